// bench_storage.cpp - the cost of saving: a 100 MiB document through the stream worker's safe
// save and through the memory worker, and the memory worker's growth.
//
// SaveToFile is the whole safe save over an existing 100 MiB document, as a user's save is:
// open (a hidden temporary file), the writes, flush and fsync, the exchange with the target, the
// folder's fsync, and the old document's deletion. Its MiB/s is what bench/storage.sh sets
// beside `dd bs=1M count=100 conv=fsync` over an existing 100 MiB file on the same disk. The file
// goes to $ET_BENCH_DIR (default: the system's temporary folder), which should be on a real disk,
// not tmpfs. SaveToMemory writes the same document into a memory file that starts empty and grows
// by doubling; MemoryGrowth reports `per_MB`, the seconds per MiB written, at 1, 10 and 100 MiB,
// which stays flat when growth costs amortised linear time.
//
// Every case runs five times and reports the median (and mean, spread) of the repetitions.
#include "fileformat/GSFile.h"
#include "fileformat/GSFormatNumbers.h"
#include "objects/GSLongDictionaryKey.h"
#include "objects/GSObjectDictionary.h"
#include "storage/GSFileSpec.h"
#include "storage/GSFileSpecKeys.h"
#include "storage/GSFileWorker.h"

#include <benchmark/benchmark.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <string>
#include <unistd.h>
#include <vector>

namespace {

constexpr long kMiB = 1L << 20;
constexpr long kDocumentBytes = 100 * kMiB;

const std::vector<unsigned char>& piece() {
    static const std::vector<unsigned char> bytes = [] {
        std::vector<unsigned char> b(1 << 20);
        unsigned state = 12345;
        for (auto& c : b) {
            state = state * 1103515245u + 12345u;
            c = static_cast<unsigned char>(state >> 24);
        }
        return b;
    }();
    return bytes;
}

// Writes `total` bytes in pieces of `size` bytes; false when a write fails.
bool writeBytes(GSFile* file, long total, long size) {
    const unsigned char* bytes = piece().data();
    for (long at = 0; at < total; at += size) {
        long n = total - at < size ? total - at : size;
        if (file->write(bytes + at % (kMiB - size + 1), n)) return false;
    }
    return true;
}

std::string benchFolder() {
    const char* given = std::getenv("ET_BENCH_DIR");
    return given && *given ? given : std::filesystem::temp_directory_path().string();
}

// The document being saved over: 100 MiB, made once and kept between runs (every save leaves
// a new one in its place), removed when the program ends.
struct OldDocument {
    std::string path = benchFolder() + "/et-bench-storage-" + std::to_string(::getpid()) + ".etd";
    OldDocument() {
        if (std::FILE* f = std::fopen(path.c_str(), "wb")) {
            for (long at = 0; at < kDocumentBytes; at += kMiB)
                std::fwrite(piece().data(), 1, kMiB, f);
            std::fclose(f);
        }
    }
    ~OldDocument() { std::remove(path.c_str()); }
};

void SaveToFile(benchmark::State& state) {
    static OldDocument old;
    const long pieceSize = state.range(0);
    GSFileSpec spec(GSString(old.path.c_str(), -1, GSString::kUTF8));
    spec.getOrCreateDictionary()->setObjectValue(GSFileSafetyModeKey, new GSLongDictionaryKey(1));
    for (auto _ : state) {
        GSFile file(spec, 0);
        file.getFileWorker()->setAccessMode("wb");
        if (file.open() || !writeBytes(&file, kDocumentBytes, pieceSize) ||
            file.close(GSCloseKeep)) {
            state.SkipWithError("the save failed");
            break;
        }
    }
    state.SetBytesProcessed(state.iterations() * kDocumentBytes);
}

void saveToMemory(benchmark::State& state, long total) {
    for (auto _ : state) {
        GSFile file;
        file.init(GSGrowDouble, 0);
        file.getFileWorker()->setAccessMode("wb");
        if (file.open() || !writeBytes(&file, total, 65536) || file.close(GSCloseKeep)) {
            state.SkipWithError("the save failed");
            break;
        }
        benchmark::DoNotOptimize(file.getFileWorker()->getMemoryAddress());
    }
    state.SetBytesProcessed(state.iterations() * total);
}

void SaveToMemory(benchmark::State& state) {
    saveToMemory(state, kDocumentBytes);
}

void MemoryGrowth(benchmark::State& state) {
    saveToMemory(state, state.range(0) * kMiB);
    state.counters["per_MB"] = benchmark::Counter(static_cast<double>(state.range(0)),
                                                  benchmark::Counter::kIsIterationInvariantRate |
                                                      benchmark::Counter::kInvert);
}

} // namespace

BENCHMARK(SaveToFile)
    ->ArgName("piece")
    ->Arg(65536)
    ->Arg(4096)
    ->Iterations(1)
    ->Repetitions(5)
    ->ReportAggregatesOnly(true)
    ->UseRealTime()
    ->Unit(benchmark::kMillisecond);
BENCHMARK(SaveToMemory)
    ->Iterations(2)
    ->Repetitions(5)
    ->ReportAggregatesOnly(true)
    ->UseRealTime()
    ->Unit(benchmark::kMillisecond);
BENCHMARK(MemoryGrowth)
    ->ArgName("MB")
    ->Arg(1)
    ->Arg(10)
    ->Arg(100)
    ->Repetitions(5)
    ->ReportAggregatesOnly(true)
    ->UseRealTime()
    ->Unit(benchmark::kMillisecond);

BENCHMARK_MAIN();
