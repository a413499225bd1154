// Thumbnail.cpp - `ember-tide thumbnail [-s SIZE] FILE OUT`, the desktop thumbnailer's entry.
#include "Confinement.h"
#include "GSThumbnailRenderer.h"
#include "Tool.h"
#include "Watchdog.h"

#include <cstdlib>
#include <cstring>
#include <string>

namespace tool {

namespace {

const char* kThumbnailHelp =
    "Usage: ember-tide thumbnail [-s|--size SIZE] FILE OUT\n"
    "Writes a PNG thumbnail of FILE's preview to OUT, fitted into SIZE x SIZE pixels (default\n"
    "256) with its aspect kept: the document's own width and height decide the shape, or the\n"
    "picture's when the document states none. Small previews are scaled up.\n"
    "OUT appears complete or not at all (\"-\" writes to standard output).\n"
    "\n"
    "Exit status: 0 written; 1 no preview, or a preview that is no decodable picture (OUT is\n"
    "not written); 2 usage or I/O error.\n"
    "Example: ember-tide thumbnail -s 128 photo.etd photo.png\n";

constexpr int kMaxThumbnailSize = 4096;

} // namespace

int runThumbnail(int argc, char** argv) {
    int size = 256;
    std::string files[2];
    int n = 0;
    for (int i = 1; i < argc; ++i) {
        std::string a = argv[i];
        if (a == "--help" || a == "-h") {
            std::fputs(kThumbnailHelp, stdout);
            return kOK;
        }
        if (a == "-s" || a == "--size" || a.rfind("--size=", 0) == 0) {
            std::string value;
            if (a.rfind("--size=", 0) == 0)
                value = a.substr(7);
            else if (i + 1 < argc)
                value = argv[++i];
            char* end = nullptr;
            long v = std::strtol(value.c_str(), &end, 10);
            if (value.empty() || *end || v < 1 || v > kMaxThumbnailSize) {
                usageError("thumbnail", "SIZE is a whole number from 1 to 4096");
                return kUsage;
            }
            size = static_cast<int>(v);
        } else if (a.size() > 1 && a[0] == '-') {
            usageError("thumbnail", "unknown option " + a);
            return kUsage;
        } else if (n == 2) {
            usageError("thumbnail", "too many arguments");
            return kUsage;
        } else {
            files[n++] = a;
        }
    }
    if (n != 2) {
        usageError("thumbnail", "FILE and OUT are needed");
        return kUsage;
    }
    // From here on the process reads FILE and writes beside OUT, nothing else (the temporary
    // file is opened for writing only, renamed over OUT, removed on failure).
    limitThumbnailProcess(files[0]);
    Confinement confinement;
    confinement.paths.push_back({files[0], kReadFiles});
    if (files[1] != "-") confinement.paths.push_back({folderOf(files[1]), kWriteFiles});
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
    std::string error =
        writeOutputFile(files[1], result.png.data(), static_cast<long>(result.png.size()));
    if (!error.empty()) {
        message(files[1], "cannot write: " + error);
        return kIOError;
    }
    return kOK;
}

} // namespace tool
