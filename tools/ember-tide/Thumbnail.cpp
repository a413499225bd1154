// Thumbnail.cpp - `ember-tide thumbnail [-s SIZE] FILE OUT`, the desktop thumbnailer's entry.
#include "Arguments.h"
#include "Confinement.h"
#include "GSThumbnailRenderer.h"
#include "InPlaceOutput.h"
#include "Tool.h"
#include "Watchdog.h"

#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <string>
#include <sys/stat.h>
#include <unistd.h>

namespace tool {

namespace {

const char* kThumbnailHelp =
    "Usage: ember-tide thumbnail [-s|--size SIZE] FILE OUT\n"
    "Writes a PNG thumbnail of FILE's preview to OUT, fitted into SIZE x SIZE pixels (default\n"
    "256) with its aspect kept: the document's own width and height decide the shape, or the\n"
    "picture's when the document states none. Small previews are scaled up.\n"
    "OUT is written in place, as a shell's '>' writes it: opened (made if missing) and emptied\n"
    "before FILE is read, then written once the picture is ready, so a reader that opened OUT\n"
    "before sees the PNG. A link at OUT is written through, an existing file keeps its mode, a\n"
    "pipe or device gets the bytes; a folder, or OUT naming FILE itself, is refused. \"-\" or\n"
    "/dev/stdout: standard output.\n"
    "\n"
    "Exit status: 0 written; 1 no preview, or a preview that is no decodable picture; 2 usage or\n"
    "I/O error. A failure once OUT is open leaves OUT empty; OUT is opened after the arguments\n"
    "are checked and FILE is found readable.\n"
    "Example: ember-tide thumbnail -s 128 photo.etd photo.png\n";

constexpr int kMaxThumbnailSize = 4096;

// Why FILE cannot be thumbnailed at all, found before OUT is touched: a mistyped FILE must not
// empty OUT. (O_NONBLOCK: a FIFO as FILE is refused, not waited on.)
std::string unreadable(const std::string& file) {
    const int fd = ::open(file.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY);
    if (fd < 0) return std::strerror(errno);
    struct stat st;
    const int status = ::fstat(fd, &st);
    const int error = errno;
    ::close(fd);
    if (status != 0) return std::strerror(error);
    if (S_ISDIR(st.st_mode)) return "is a folder";
    return S_ISREG(st.st_mode) ? "" : "not a regular file";
}

} // namespace

int runThumbnail(int argc, char** argv) {
    int size = 256;
    ParsedArguments args =
        parseArguments("thumbnail", argc, argv, "s:", {{"size", required_argument, nullptr, 's'}},
                       [&](int, const char* value) {
                           char* end = nullptr;
                           long v = std::strtol(value, &end, 10);
                           if (!*value || *end || v < 1 || v > kMaxThumbnailSize) {
                               usageError("thumbnail", "SIZE is a whole number from 1 to 4096");
                               return false;
                           }
                           size = static_cast<int>(v);
                           return true;
                       });
    if (!args.ok) return kUsage;
    if (args.help) return printHelp(kThumbnailHelp);
    if (args.operands.size() != 2) {
        usageError("thumbnail",
                   args.operands.size() < 2 ? "FILE and OUT are needed" : "too many arguments");
        return kUsage;
    }
    std::vector<std::string> files;
    if (!pathsFromOperands("thumbnail", args, &files)) return kUsage;
    if (std::string problem = unreadable(files[0]); !problem.empty()) {
        message(files[0], "cannot open: " + problem);
        return kIOError;
    }
    // OUT is opened before the confinement, which keeps no right to write anywhere.
    InPlaceOutput output;
    if (std::string error = output.open(files[1], files[0]); !error.empty()) {
        message(files[1], "cannot write: " + error);
        return kIOError;
    }
    // A reader that goes away is an I/O error (status 2), not a death by signal.
    std::signal(SIGPIPE, SIG_IGN);
    // From here on the process reads FILE and writes through the descriptor it holds.
    limitThumbnailProcess(files[0]);
    Confinement confinement;
    confinement.paths.push_back({files[0], kReadFiles});
    confineProcess(confinement);

    GSThumbnailRequest request;
    request.path = files[0];
    request.maxSize = size;
    GSThumbnailResult result = GSRenderThumbnail(request);
    switch (result.status) {
    case GSThumbnailStatus::kCannotOpen:
        message(files[0], "cannot open: " + result.message);
        return kIOError;
    case GSThumbnailStatus::kNoPreview:
    case GSThumbnailStatus::kUndecodable:
        message(files[0], result.message);
        return kNoPreview;
    case GSThumbnailStatus::kOK:
        break;
    }
    if (std::string error = output.write(result.png.data(), result.png.size()); !error.empty()) {
        message(files[1], "cannot write: " + error);
        return kIOError;
    }
    return kOK;
}

} // namespace tool
