// EmberTideDocumentWriter.h - writes a document (or selection) around an encoded preview.
//
// The write side of GSGetThumbnail, with the framework's own writer classes: the header, from
// version 0x0300 an object table (long form with 4-byte counts, or byte form with compact ones),
// and a preview chunk holding the picture inline (tag 6 after an information item) or as a
// picture-data object record (tag 4). Used by `ember-tide create`, the sample documents and
// the tests, so that writer and reader agree by construction.
#pragma once

#include "objects/GSDynaArray.h"
#include "objects/GSTSize.h"

class GSFile;

struct EmberTidePreview {
    GSDynaArray<unsigned char> bytes;
    int kind = 2; // 2 JPEG, 3 PNG
    int infoValue = 0;
    GSTSize<int> size;
};

struct EmberTideDocumentOptions {
    enum Store { kInline, kRecord, kSystemRecord };

    short version = 0x0200;
    bool byteForm = false; // version 0x0300 and later: compact counts and byte-form chunks
    Store store = kInline;
    bool selection = false;
    // An unknown item of this many bytes written before the preview (0: none), as the editor's
    // own data would stand there.
    long paddingBefore = 0;
};

// Writes the header: identifier, version and, from 0x0300, the start of object merging.
short EmberTideDataWriteHeader(GSFile* file, short version, bool byteForm, bool isSelection);
// Writes a whole document into `file` (opened for writing, positioned at its start).
short EmberTideWriteDocument(GSFile* file, const EmberTidePreview& preview,
                             const EmberTideDocumentOptions& options);
