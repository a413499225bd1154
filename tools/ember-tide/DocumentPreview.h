// DocumentPreview.h - the preview look-up that info, extract, thumbnail and convert share: one
// read of a file that tells what it is and what preview it holds.
//
// Only regular files are read, since a pipe or a device could block the reader for ever.
// Exceptions of the framework stop here: a document that makes extraction throw is reported in
// `problem` and counts as having no preview.
#pragma once

#include "objects/GSDynaArray.h"
#include "objects/GSTSize.h"
#include "thumbnail/GSGetThumbnail.h"

#include <string>

namespace tool {

// Everything a subcommand needs to know about one file.
struct DocumentPreview {
    bool opened = false;     // false: the file could not be read at all (see `problem`)
    std::string problem;     // why not, or why extraction stopped (an exception)
    bool recognised = false; // starts with a document or selection identifier
    bool selection = false;
    bool versionKnown = false;
    int version = 0;
    bool hasPreview = false;
    int kind = 0;
    bool infoKnown = false;
    int infoValue = 0;
    bool sizeKnown = false;
    GSTSize<int> size;
    GSDynaArray<unsigned char> bytes;
    // Inline or an object record (of which class): known whenever a preview was found.
    EmberTideDocumentFacts::PictureStore store = EmberTideDocumentFacts::kNoPicture;
    long otherItems = 0; // items of the editor's own beside the preview
};

// Reads everything and closes the file before it returns. A selection's preview is read only
// with `selections` set: thumbnails and `extract` never show one, `convert` carries it over.
DocumentPreview readDocumentPreview(const std::string& path, bool selections = false);

// "jpeg" or "png" for a preview kind.
const char* formatName(int kind);

} // namespace tool
