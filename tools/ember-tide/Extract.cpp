// Extract.cpp - `ember-tide extract FILE OUT`: the embedded encoded preview, byte for byte.
#include "Arguments.h"
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
    "Exit status: 0 written; 1 the file has no preview (OUT is not written); 2 usage or I/O "
    "error.\n"
    "Example: ember-tide extract photo.etd preview.jpg\n";

} // namespace

int runExtract(int argc, char** argv) {
    ParsedArguments parsed = parseArguments("extract", argc, argv, "", {}, nullptr);
    if (!parsed.ok) return kUsage;
    if (parsed.help) return printHelp(kExtractHelp);
    std::vector<std::string> args;
    if (!twoPathsFromOperands("extract", parsed, "FILE and OUT are needed", &args)) return kUsage;
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
