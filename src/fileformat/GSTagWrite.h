// GSTagWrite.h - writes a chunk: writeVersion, then writeStart(tag) / body / writeEnd() per item,
// then writeEndTag().
//
// Long form: each item's 4-byte length is a placeholder patched later, in batches of up to 16
// (the length cache), so the file must be seekable. Byte form: the body goes through the embedded
// GSTagWriteFileWorker, which decides between the 2-byte and the 9-byte header. One item is open
// at a time; a nested chunk is written by a second GSTagWrite on the same file.
#pragma once

#include "fileformat/GSTagWriteFileWorker.h"

class GSFile;

class GSTagWrite {
public:
    explicit GSTagWrite(GSFile* file);
    GSTagWrite(const GSTagWrite&) = delete;
    GSTagWrite& operator=(const GSTagWrite&) = delete;
    ~GSTagWrite();

    short writeVersion(short version);
    short writeStart(int tag);
    short writeEnd();
    short writeEndTag();
    short clearLengthCache();
    // Byte form: the item header for a body of `size` bytes, or a long header with a zero
    // length to be patched when size is negative.
    short writeTagWithSize(int size);

    GSFile* getFile() const { return file; }

private:
    struct CachedLength {
        long position;
        long length;
    };

    GSFile* file;
    CachedLength cache[16] = {};
    int cacheCount = 0;
    long lengthEnd = -1;
    GSTagWriteFileWorker worker;
    int tag = 0;
};
