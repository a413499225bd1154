// ReplayMain.cpp - runs a fuzz target's entry point on saved inputs, without libFuzzer.
//
// Linked with each target's source into replay_<target>, built with the ordinary compiler in
// the test builds, so that `make test` (and the sanitizer preset) runs every seed and every
// saved crasher through the same code the fuzzer exercised. Arguments are files or folders
// (each file in a folder is one input); a missing folder is skipped, so a target without saved
// crashers needs none. The exit status is 0 when every input returned; a crash ends the process.
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size);
// Optional, as with libFuzzer: a target that tightens limits before its first input.
extern "C" __attribute__((weak)) int LLVMFuzzerInitialize(int* argc, char*** argv);

namespace {

bool replay(const std::filesystem::path& path) {
    std::ifstream in(path, std::ios::binary);
    if (!in) {
        std::fprintf(stderr, "replay: cannot read %s\n", path.c_str());
        return false;
    }
    std::vector<uint8_t> bytes((std::istreambuf_iterator<char>(in)),
                               std::istreambuf_iterator<char>());
    LLVMFuzzerTestOneInput(bytes.data(), bytes.size());
    return true;
}

} // namespace

int main(int argc, char** argv) {
    if (LLVMFuzzerInitialize) LLVMFuzzerInitialize(&argc, &argv);
    long inputs = 0;
    bool ok = true;
    for (int i = 1; i < argc; ++i) {
        std::filesystem::path arg(argv[i]);
        std::error_code error;
        if (std::filesystem::is_directory(arg, error)) {
            for (const auto& entry : std::filesystem::directory_iterator(arg)) {
                if (!entry.is_regular_file() || entry.path().filename().string()[0] == '.')
                    continue;
                ok = replay(entry.path()) && ok;
                ++inputs;
            }
        } else if (std::filesystem::exists(arg, error)) {
            ok = replay(arg) && ok;
            ++inputs;
        }
    }
    std::printf("replayed %ld inputs\n", inputs);
    return ok ? 0 : 1;
}
