// Thumbnail.cpp - `ember-tide thumbnail [-s SIZE] FILE OUT`, the desktop thumbnailer's entry.
#include "Arguments.h"
#include "Confinement.h"
#include "InPlaceOutput.h"
#include "Tool.h"
#include "Watchdog.h"
#include "fileformat/GSLimits.h"
#include "storage/GSAtomicFile.h"
#include "thumbnail/GSThumbnailRenderer.h"

#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <utility>
#include <cstring>
#include <fcntl.h>
#include <string>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>
#include <vector>

namespace tool {

namespace {

const char* kThumbnailHelp =
    "Usage: ember-tide thumbnail [-s|--size SIZE] FILE OUT\n"
    "Writes a PNG thumbnail of FILE's preview to OUT, fitted into SIZE x SIZE pixels (default\n"
    "256) with its aspect kept: the document's own width and height decide the shape, or the\n"
    "picture's when the document states none. Small previews are scaled up.\n"
    "OUT is written in place, as a shell's '>' writes it: an existing OUT is emptied before FILE\n"
    "is read and written once the picture is ready, so a reader that opened OUT before sees the\n"
    "PNG; a missing OUT is made only when there is a picture. A link at OUT is written through,\n"
    "an existing file keeps its mode, a pipe or device gets the bytes; a folder, or OUT naming\n"
    "FILE itself, is refused. \"-\" or /dev/stdout: standard output.\n"
    "\n"
    "Exit status: 0 written; 1 no preview, or a preview that is no decodable picture; 2 usage or\n"
    "I/O error. A failure leaves an existing OUT empty and makes no new one; OUT is opened\n"
    "after the arguments are checked and FILE is found readable.\n"
    "Example: ember-tide thumbnail -s 128 photo.etd photo.png\n";

// Why FILE cannot be thumbnailed at all, found before OUT is touched: a mistyped FILE must not
// empty OUT. (O_NONBLOCK: a FIFO as FILE is refused, not waited on.)
std::string unreadable(const std::string& file) {
    const int fd = ::open(file.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY);
    if (fd < 0) return GSErrorText(errno);
    struct stat st;
    const int status = ::fstat(fd, &st);
    const int error = errno;
    ::close(fd);
    if (status != 0) return GSErrorText(error);
    if (S_ISDIR(st.st_mode)) return "is a folder";
    return S_ISREG(st.st_mode) ? "" : "not a regular file";
}

// Confines this process to reading FILE and makes the picture; returns the exit status, with
// the PNG in `png` when it is kOK.
int renderConfined(const std::string& file, int size, std::vector<unsigned char>* png) {
    limitThumbnailProcess(file);
    Confinement confinement;
    confinement.paths.push_back({file, kReadFiles});
    confineProcess(confinement);

    GSThumbnailRequest request;
    request.path = file;
    request.maxSize = size;
    GSThumbnailResult result = GSRenderThumbnail(request);
    switch (result.status) {
    case GSThumbnailStatus::kCannotOpen:
        message(file, "cannot open: " + result.message);
        return kIOError;
    case GSThumbnailStatus::kNoPreview:
    case GSThumbnailStatus::kUndecodable:
        message(file, result.message);
        return kNoPreview;
    case GSThumbnailStatus::kOK:
        break;
    }
    *png = std::move(result.png);
    return kOK;
}

// Makes the picture in a child that confines itself and hands the PNG over a pipe, so that
// this process keeps the right to make OUT afterwards. Returns the exit status.
int renderInChild(const std::string& file, int size, std::vector<unsigned char>* png) {
    int pipeFds[2];
    if (::pipe2(pipeFds, O_CLOEXEC) != 0) {
        message(file, "cannot start: " + GSErrorText(errno));
        return kIOError;
    }
    std::fflush(nullptr);
    const pid_t child = ::fork();
    if (child < 0) {
        message(file, "cannot start: " + GSErrorText(errno));
        return kIOError;
    }
    if (child == 0) {
        ::close(pipeFds[0]);
        int status = renderConfined(file, size, png);
        // A failure here means that the parent went away.
        if (status == kOK && !GSWriteAll(pipeFds[1], png->data(), png->size())) status = kIOError;
        exitAtOnce(status);
    }
    ::close(pipeFds[1]);
    unsigned char buffer[65536];
    for (;;) {
        const ssize_t n = ::read(pipeFds[0], buffer, sizeof buffer);
        if (n < 0 && errno == EINTR) continue;
        if (n <= 0) break;
        png->insert(png->end(), buffer, buffer + n);
    }
    ::close(pipeFds[0]);
    int status = 0;
    while (::waitpid(child, &status, 0) < 0 && errno == EINTR) {
    }
    if (!WIFEXITED(status)) {
        // The hard CPU limit's SIGKILL: no picture.
        message(file, "given up (the decoder was stopped by signal " +
                          std::to_string(WIFSIGNALED(status) ? WTERMSIG(status) : 0) + ")");
        return kNoPreview;
    }
    return WEXITSTATUS(status);
}

} // namespace

int runThumbnail(int argc, char** argv) {
    int size = 256;
    ParsedArguments args = parseArguments(
        "thumbnail", argc, argv, "s:", {{"size", required_argument, nullptr, 's'}},
        [&](int, const char* value) {
            char* end = nullptr;
            long v = std::strtol(value, &end, 10);
            if (!*value || *end || v < 1 || v > GSCurrentLimits().thumbnailSize) {
                usageError("thumbnail", "SIZE is a whole number from 1 to " +
                                            std::to_string(GSCurrentLimits().thumbnailSize));
                return false;
            }
            size = static_cast<int>(v);
            return true;
        });
    if (!args.ok) return kUsage;
    if (args.help) return printHelp(kThumbnailHelp);
    std::vector<std::string> files;
    if (!twoPathsFromOperands("thumbnail", args, "FILE and OUT are needed", &files)) return kUsage;
    if (std::string problem = unreadable(files[0]); !problem.empty()) {
        message(files[0], "cannot open: " + problem);
        return kIOError;
    }
    // An existing OUT is opened and emptied now; a missing one is made once the picture is there.
    InPlaceOutput output;
    if (std::string error = output.open(files[1], files[0], false); !error.empty()) {
        message(files[1], "cannot write: " + error);
        return kIOError;
    }
    // A reader that goes away is an I/O error (status 2), not a death by signal.
    std::signal(SIGPIPE, SIG_IGN);

    // Whoever reads FILE is confined first: it may read FILE and nothing else, and write only
    // what it holds open. With OUT open already, that is this process (a fork costs up to a
    // quarter of a small thumbnail's time); a missing OUT must be made afterwards, which a
    // confined process may not do, so then a child makes the picture.
    std::vector<unsigned char> png;
    const int status = output.isOpen() ? renderConfined(files[0], size, &png)
                                       : renderInChild(files[0], size, &png);
    if (status != kOK) return status;
    if (!output.isOpen()) {
        if (std::string error = output.open(files[1], files[0], true); !error.empty()) {
            message(files[1], "cannot write: " + error);
            return kIOError;
        }
    }
    if (std::string error = output.write(png.data(), png.size()); !error.empty()) {
        message(files[1], "cannot write: " + error);
        return kIOError;
    }
    return kOK;
}

} // namespace tool
