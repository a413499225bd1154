// GSGetThumbnail.h - finding the encoded preview inside a document.
//
// A document starts with "Ember Tide Document" (or "Ember Tide Selection") and a NUL, its
// version (0x0302 is the newest read), from 0x0300 on an object table header, and then its
// top-level items. The preview is item 13, a nested chunk whose items describe the picture
// (information item 0, an object record 4, or inline picture data 6) followed by the encoded
// JPEG or PNG bytes. Nothing is decoded here; everything else in the file is skipped by seeking,
// so the cost does not grow with the document's size.
#pragma once

#include "fileformat/GSFormatNumbers.h"
#include "objects/GSDynaArray.h"
#include "objects/GSTSize.h"
#include "storage/GSFileSpec.h"

class GSFile;
class GSTagRead;

short EmberTideDataReadVersion(GSTagRead* reader, short* version, short* merging);
short EmberTideDataReadHeader(GSFile* file, short* version, short* merging, short* isSelection);

// Extracts the preview: the encoded bytes, their kind, the information value and the pixel
// size, each written only as far as the document gives it. Returns nonzero only when the file
// cannot be opened; a document without a preview leaves `bytes` empty. May throw bad_file for
// a document that starts object merging twice or loses its table.
short GSGetThumbnail(const GSFileSpec& spec, GSDynaArray<unsigned char>* bytes, int* kind,
                     int* infoValue, GSTSize<int>* size);

// What a reader learns about a document besides its preview (for tools that report on files).
struct EmberTideDocumentFacts {
    bool recognised = false; // the identifier was found
    bool isSelection = false;
    bool versionRead = false; // the version bytes were there (it may still be refused)
    short version = 0;
    bool headerAccepted = false;
    bool infoGiven = false; // an information item was read
    bool sizeGiven = false; // the size came from an information item or a picture object
    // How the picture data of the preview found was stored, so that it can be written again
    // the same way: inline (item 6) or as an object record (item 4) of either class.
    enum PictureStore : unsigned char { kNoPicture, kInline, kRecord, kSystemRecord };
    PictureStore pictureStore = kNoPicture;
    // Top-level items the scan passed over: the editor's own data beside the preview.
    long otherItems = 0;
};

short GSGetThumbnailWithFacts(const GSFileSpec& spec, GSDynaArray<unsigned char>* bytes, int* kind,
                              int* infoValue, GSTSize<int>* size, EmberTideDocumentFacts* facts);

// The same on a file that is already open (on disk or in memory), from its current position.
// A selection carries its preview chunk like a document, but is never shown by one: its preview
// is read only when `selections` is set (for tools that rewrite files, never for thumbnails).
void EmberTideReadPreview(GSFile* file, GSDynaArray<unsigned char>* bytes, int* kind,
                          int* infoValue, GSTSize<int>* size, EmberTideDocumentFacts* facts,
                          bool selections = false);
