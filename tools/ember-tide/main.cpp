// main.cpp - ember-tide: thumbnails and facts from Ember Tide documents.
#include "Tool.h"
#include "storage/GSAtomicFile.h"

#include <cerrno>
#include <csignal>
#include <cstring>

namespace {

const char* kHelp =
    "Usage: ember-tide COMMAND [OPTIONS] ARGS...\n"
    "\n"
    "Commands:\n"
    "  thumbnail [-s SIZE] FILE OUT\n"
    "                          write a PNG thumbnail fitted into SIZE x SIZE (default 256)\n"
    "  cache [--size normal|large|x-large|xx-large] [--jobs N] [--force] [--json] PATH...\n"
    "                          fill the desktop's thumbnail cache for every document under\n"
    "                          the PATHs, in parallel, with progress on a terminal\n"
    "  info [--json] FILE...   what each file is and which preview it carries\n"
    "  extract FILE OUT        write the embedded preview (JPEG or PNG bytes) to OUT\n"
    "  create [OPTIONS] [--backup] IMAGE OUT\n"
    "                          write a document around a JPEG or PNG image; --backup keeps\n"
    "                          the previous OUT as NAME~.EXT\n"
    "  convert [--version V] [--form long|byte] IN OUT\n"
    "                          write a document again in another version or chunk form,\n"
    "                          with the same preview bytes\n"
    "\n"
    "  --help, --version       this text; the version\n"
    "  COMMAND --help          the command's own usage\n"
    "\n"
    "Examples: ember-tide thumbnail -s 128 photo.etd photo.png\n"
    "          ember-tide cache ~/Pictures\n"
    "          ember-tide convert --version 2.0 photo.etd photo-v2.etd\n";

} // namespace

namespace {

int runCommand(int argc, char** argv) {
    if (argc < 2) {
        std::fputs(kHelp, stderr);
        return tool::kUsage;
    }
    const char* command = argv[1];
    if (std::strcmp(command, "--help") == 0 || std::strcmp(command, "-h") == 0 ||
        std::strcmp(command, "help") == 0) {
        std::fputs(kHelp, stdout);
        return tool::kOK;
    }
    if (std::strcmp(command, "--version") == 0) {
        std::printf("ember-tide %s\n", ET_VERSION);
        return tool::kOK;
    }
    try {
        if (std::strcmp(command, "thumbnail") == 0) return tool::runThumbnail(argc - 1, argv + 1);
        if (std::strcmp(command, "info") == 0) return tool::runInfo(argc - 1, argv + 1);
        if (std::strcmp(command, "extract") == 0) return tool::runExtract(argc - 1, argv + 1);
        if (std::strcmp(command, "create") == 0) return tool::runCreate(argc - 1, argv + 1);
        if (std::strcmp(command, "convert") == 0) return tool::runConvert(argc - 1, argv + 1);
        if (std::strcmp(command, "cache") == 0) return tool::runCache(argc - 1, argv + 1);
    } catch (const std::exception& e) {
        std::fprintf(stderr, "ember-tide: %s: %s\n", command, e.what());
        return tool::kNoPreview;
    }
    tool::usageError(nullptr, std::string("unknown command '") + command + "'");
    return tool::kUsage;
}

} // namespace

int main(int argc, char** argv) {
    // Under a file-size limit (ulimit -f) the kernel would kill a save mid-write with SIGXFSZ,
    // leaving its temporary file behind; ignored, the write fails with EFBIG instead, and the
    // save cleans up and reports it as any other I/O error.
    std::signal(SIGXFSZ, SIG_IGN);
    int status = runCommand(argc, argv);
    // What went to stdout must have arrived (a full disk, a closed pipe): otherwise a script
    // would take a cut listing for a whole one.
    if (std::fflush(stdout) != 0 || std::ferror(stdout)) {
        std::fprintf(stderr, "ember-tide: write error: %s\n", GSErrorText(errno).c_str());
        return tool::kIOError;
    }
    return status;
}
