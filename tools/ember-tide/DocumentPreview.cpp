// DocumentPreview.cpp - reading a file's kind and preview for the subcommands.
#include "DocumentPreview.h"

#include "fileformat/GSFile.h"
#include "fileformat/GSFormatNumbers.h"
#include "storage/GSAtomicFile.h"
#include "storage/GSFileSpec.h"

#include <cerrno>
#include <exception>
#include <sys/stat.h>

namespace tool {

const char* formatName(int kind) {
    return kind == GSPreviewPNG ? "png" : "jpeg";
}

DocumentPreview readDocumentPreview(const std::string& path, bool selections) {
    DocumentPreview result;
    struct stat st;
    if (::stat(path.c_str(), &st) != 0) {
        result.problem = GSErrorText(errno);
        return result;
    }
    if (!S_ISREG(st.st_mode)) {
        // A pipe or a device could block the reader for ever, or never end.
        result.problem = S_ISDIR(st.st_mode) ? "is a folder" : "not a regular file";
        return result;
    }
    EmberTideDocumentFacts facts;
    int kind = 0, infoValue = 0;
    GSTSize<int> size;
    try {
        errno = 0;
        GSFile file(GSFileSpec(GSString(path.c_str(), -1, GSString::kUTF8)), 0);
        if (file.open() != 0) {
            result.problem = errno ? GSErrorText(errno) : "cannot be opened";
            return result;
        }
        EmberTideReadPreview(&file, &result.bytes, &kind, &infoValue, &size, &facts, selections);
    } catch (const std::exception& e) {
        result.problem = std::string("damaged document (") + e.what() + ")";
        result.bytes.clear();
    }
    result.opened = true;
    result.recognised = facts.recognised;
    result.selection = facts.isSelection;
    result.versionKnown = facts.versionRead;
    result.version = facts.version;
    result.otherItems = facts.otherItems;
    result.hasPreview = result.bytes.getSize() > 0;
    if (result.hasPreview) {
        result.kind = kind;
        result.infoKnown = facts.infoGiven;
        result.infoValue = infoValue;
        result.sizeKnown = facts.sizeGiven;
        result.size = size;
        result.store = facts.pictureStore;
    }
    return result;
}

} // namespace tool
