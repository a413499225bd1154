// Convert.cpp - `ember-tide convert`: a document's preview written again in another version or
// chunk form, byte for byte, and saved safely.
//
// What is carried over is what a reader finds: the preview's encoded bytes, kind, information
// value and stated size, the way its picture data was stored (inline, or an object record of
// either class), and whether the file is a document or a selection. The new file holds the
// header and the preview chunk, as `create` writes them; other items of IN are not kept, so a
// document that holds any is never converted onto itself (that would lose them).
#include "Arguments.h"
#include "Tool.h"
#include "thumbnail/EmberTideDocumentWriter.h"
#include "thumbnail/GSImageHeader.h"

#include <climits>
#include <string>
#include <sys/stat.h>
#include <vector>

namespace tool {

namespace {

const char* kConvertHelp =
    "Usage: ember-tide convert [--version V] [--form long|byte] IN OUT\n"
    "Writes the document (or selection) IN again as OUT in another version or chunk form. The\n"
    "preview's bytes, kind, size and information value stay as they are, and so does the way\n"
    "its picture is stored (inline or as an object record). Only the preview is carried over:\n"
    "items of the editor's own beside it are not kept (they are counted on stderr), and a\n"
    "document that holds such items is not converted onto itself. IN is read completely\n"
    "before OUT is written, so IN and OUT may otherwise be the same file; an existing OUT is\n"
    "replaced only once the new document is complete (\"-\" writes to standard output).\n"
    "\n"
    "  --version V   document version: 3.2 (default), 2.0, 0x0300, 768, ... (1.0 to 3.15)\n"
    "  --form F      long: 4-byte lengths and counts; byte: compact (default for version 3;\n"
    "                needs version 3 or later)\n"
    "\n"
    "Exit status: 0 written; 1 nothing to convert (not a document, or no preview; OUT is not\n"
    "written); 2 usage or I/O error, or OUT is IN and IN holds items that would be lost.\n"
    "Example: ember-tide convert --version 2.0 photo.etd photo-v2.etd\n";

EmberTideDocumentOptions::Store storeOf(EmberTideDocumentFacts::PictureStore store) {
    switch (store) {
    case EmberTideDocumentFacts::kRecord:
        return EmberTideDocumentOptions::kRecord;
    case EmberTideDocumentFacts::kSystemRecord:
        return EmberTideDocumentOptions::kSystemRecord;
    default:
        return EmberTideDocumentOptions::kInline;
    }
}

std::string nothingToConvert(const DocumentPreview& d) {
    if (!d.recognised) return "not an Ember Tide document";
    if (!d.versionKnown) return "version unreadable";
    if (((d.version >> 8) & 0xFF) > (kEmberTideNewestVersion >> 8))
        return "version " + std::to_string((d.version >> 8) & 0xFF) + "." +
               std::to_string(d.version & 0xFF) + " is not read";
    return d.selection ? "no preview in this selection" : "no preview in this document";
}

} // namespace

int runConvert(int argc, char** argv) {
    EmberTideDocumentOptions options;
    options.version = kEmberTideNewestVersion;
    std::string form;
    ParsedArguments parsed =
        parseArguments("convert", argc, argv, "", kLayoutOptions, [&](int key, const char* value) {
            return layoutOption("convert", key, value, &options, &form);
        });
    if (!parsed.ok) return kUsage;
    if (parsed.help) return printHelp(kConvertHelp);
    std::vector<std::string> files;
    if (!twoPathsFromOperands("convert", parsed, "IN and OUT are needed", &files)) return kUsage;
    if (!applyLayoutForm("convert", form, &options)) return kUsage;

    // Everything is read, and IN closed, before OUT is opened.
    DocumentPreview d = readDocumentPreview(files[0], true);
    if (!d.opened) {
        message(files[0], "cannot open: " + d.problem);
        return kIOError;
    }
    if (!d.problem.empty()) message(files[0], d.problem);
    if (!d.hasPreview) {
        message(files[0], nothingToConvert(d));
        return kNoPreview;
    }

    if (d.otherItems > 0) {
        struct stat in, out;
        if (::stat(files[0].c_str(), &in) == 0 && ::stat(files[1].c_str(), &out) == 0 &&
            in.st_dev == out.st_dev && in.st_ino == out.st_ino) {
            message(files[1], "is IN, which holds " + std::to_string(d.otherItems) +
                                  " item(s) besides its preview that convert does not carry "
                                  "over; write to another file");
            return kUsage;
        }
        message(files[0],
                std::to_string(d.otherItems) + " item(s) besides the preview are not carried over");
    }

    EmberTidePreview preview;
    preview.bytes = d.bytes;
    preview.kind = d.kind;
    preview.infoValue = d.infoKnown ? d.infoValue : 0;
    preview.size = d.size;
    if (!d.sizeKnown) {
        // The writer always states a size; a stated 0 x 0 would shrink the thumbnail to a
        // pixel, so the picture's own size is stated instead, as `create` does.
        GSImageHeader header = GSReadImageHeader(d.bytes.getData(), d.bytes.getSize());
        if (header.sizeKnown && header.width <= INT_MAX && header.height <= INT_MAX)
            preview.size = {static_cast<int>(header.width), static_cast<int>(header.height)};
    }
    options.store = storeOf(d.store);
    options.selection = d.selection;

    std::string error = saveDocument(files[1], false, d.bytes.getSize(), [&](GSFile* file) {
        return EmberTideWriteDocument(file, preview, options);
    });
    if (!error.empty()) {
        message(files[1], "cannot write: " + error);
        return kIOError;
    }
    return kOK;
}

} // namespace tool
