// Extract.cpp - `ember-tide extract FILE OUT`: the embedded encoded preview, byte for byte.
#include "Tool.h"

#include <cstring>
#include <string>

namespace tool {

namespace {

const char* kExtractHelp =
    "Usage: ember-tide extract FILE OUT\n"
    "Writes the preview embedded in FILE, exactly as stored (JPEG or PNG bytes), to OUT\n"
    "(\"-\" for standard output). OUT appears complete or not at all.\n"
    "\n"
    "Exit status: 0 written; 1 the file has no preview (OUT is not written); 2 usage or I/O error.\n"
    "Example: ember-tide extract photo.etd preview.jpg\n";

} // namespace

int runExtract(int argc, char** argv) {
    std::string args[2];
    int n = 0;
    for (int i = 1; i < argc; ++i) {
        const char* a = argv[i];
        if (std::strcmp(a, "--help") == 0 || std::strcmp(a, "-h") == 0) {
            std::fputs(kExtractHelp, stdout);
            return kOK;
        }
        if (a[0] == '-' && a[1] != 0) {
            usageError("extract", std::string("unknown option ") + a);
            return kUsage;
        }
        if (n == 2) {
            usageError("extract", "too many arguments");
            return kUsage;
        }
        args[n++] = a;
    }
    if (n != 2) {
        usageError("extract", "FILE and OUT are needed");
        return kUsage;
    }
    DocumentPreview d = readDocumentPreview(args[0]);
    if (!d.opened) {
        message(args[0], "cannot open: " + d.problem);
        return kIOError;
    }
    if (!d.problem.empty()) message(args[0], d.problem);
    if (!d.hasPreview) {
        message(args[0], !d.recognised ? "not an Ember Tide document"
                         : d.selection ? "a selection carries no preview"
                                       : "no preview in this document");
        return kNoPreview;
    }
    std::string error = writeOutputFile(args[1], d.bytes.getData(), d.bytes.getSize());
    if (!error.empty()) {
        message(args[1], "cannot write: " + error);
        return kIOError;
    }
    return kOK;
}

} // namespace tool
