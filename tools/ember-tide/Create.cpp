// Create.cpp - `ember-tide create`: a document (or selection) around a JPEG or PNG image,
// written with the framework's own writer and saved safely.
#include "EmberTideDocumentWriter.h"
#include "GSGetThumbnail.h"
#include "GSImageHeader.h"
#include "GSMemPicData.h"
#include "Tool.h"

#include <cerrno>
#include <climits>
#include <cstring>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

namespace tool {

namespace {

const char* kCreateHelp =
    "Usage: ember-tide create [--version V] [--form long|byte] [--store "
    "inline|record|system-record]\n"
    "                         [--selection] [--backup] IMAGE OUT\n"
    "Writes a document whose preview is IMAGE (a JPEG or PNG file, stored byte for byte; its\n"
    "width and height are read from its header). An existing OUT is replaced only once the new\n"
    "document is complete (\"-\" writes to standard output).\n"
    "\n"
    "  --version V   document version: 3.2 (default), 2.0, 0x0300, 768, ... (1.0 to 3.15)\n"
    "  --form F      long: 4-byte lengths and counts; byte: compact (default for version 3;\n"
    "                needs version 3 or later)\n"
    "  --store S     inline picture data (default), or a picture-data object record\n"
    "                (record, system-record)\n"
    "  --selection   write a selection file instead of a document\n"
    "  --backup      keep the previous OUT as NAME~.EXT (NAME~~.EXT, ... while that name is\n"
    "                taken and cannot be freed)\n"
    "\n"
    "Exit status: 0 written; 1 IMAGE is not a JPEG or PNG; 2 usage or I/O error.\n"
    "Example: ember-tide create --version 2.0 --store record photo.jpg photo.etd\n"
    "         ember-tide create --backup photo.jpg photo.etd   (the old one: photo~.etd)\n";

bool readWholeFile(const std::string& path, std::vector<unsigned char>* bytes, std::string* error) {
    std::ifstream in(path, std::ios::binary);
    if (!in) {
        *error = std::strerror(errno);
        return false;
    }
    bytes->assign(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
    if (in.bad()) {
        *error = "read error";
        return false;
    }
    return true;
}

} // namespace

int runCreate(int argc, char** argv) {
    EmberTideDocumentOptions options;
    options.version = kEmberTideNewestVersion;
    std::string form;
    bool backup = false;
    std::vector<std::string> files;
    for (int i = 1; i < argc; ++i) {
        std::string a = argv[i];
        auto value = [&](const char* name) -> const char* {
            if (i + 1 >= argc) {
                usageError("create", std::string(name) + " needs a value");
                return nullptr;
            }
            return argv[++i];
        };
        if (a == "--help" || a == "-h") {
            std::fputs(kCreateHelp, stdout);
            return kOK;
        } else if (int taken = parseLayoutOption("create", argc, argv, &i, &options, &form)) {
            if (taken < 0) return kUsage;
        } else if (a == "--store") {
            const char* v = value("--store");
            if (!v) return kUsage;
            std::string store = v;
            if (store == "inline")
                options.store = EmberTideDocumentOptions::kInline;
            else if (store == "record")
                options.store = EmberTideDocumentOptions::kRecord;
            else if (store == "system-record")
                options.store = EmberTideDocumentOptions::kSystemRecord;
            else {
                usageError("create", "--store is inline, record or system-record");
                return kUsage;
            }
        } else if (a == "--selection") {
            options.selection = true;
        } else if (a == "--backup") {
            backup = true;
        } else if (a.size() > 1 && a[0] == '-') {
            usageError("create", "unknown option " + a);
            return kUsage;
        } else {
            files.push_back(a);
        }
    }
    if (files.size() != 2) {
        usageError("create", "IMAGE and OUT are needed");
        return kUsage;
    }
    if (!applyLayoutForm("create", form, &options)) return kUsage;
    if (backup && files[1] == "-") {
        usageError("create", "--backup needs an OUT file");
        return kUsage;
    }

    std::vector<unsigned char> image;
    std::string error;
    if (!readWholeFile(files[0], &image, &error)) {
        message(files[0], "cannot read: " + error);
        return kIOError;
    }
    GSImageHeader header = GSReadImageHeader(image.data(), static_cast<long>(image.size()));
    if (header.format == GSImageFormat::kUnknown || !header.sizeKnown) {
        message(files[0], "not a JPEG or PNG image");
        return kNoPreview;
    }
    if (image.size() > static_cast<size_t>(INT_MAX) || header.width > INT_MAX ||
        header.height > INT_MAX) {
        message(files[0], "image too large for a document preview");
        return kNoPreview;
    }
    EmberTidePreview preview;
    preview.kind = header.format == GSImageFormat::kPNG ? GSMemPicData::kPNG : GSMemPicData::kJPEG;
    preview.size = {static_cast<int>(header.width), static_cast<int>(header.height)};
    if (preview.bytes.setSize(static_cast<long>(image.size()))) {
        message(files[0], "out of memory");
        return kIOError;
    }
    if (!image.empty()) std::memcpy(preview.bytes.getMutableData(), image.data(), image.size());

    // Nothing is opened at OUT before the image is known to be good: a refused IMAGE leaves an
    // existing OUT as it was.
    error = saveDocument(files[1], backup, preview.bytes.getSize(), [&](GSFile* file) {
        return EmberTideWriteDocument(file, preview, options);
    });
    if (!error.empty()) {
        message(files[1], "cannot write: " + error);
        return kIOError;
    }
    return kOK;
}

} // namespace tool
