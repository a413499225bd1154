// GSStringUniCharEnumerator.h - walks a GSString code point by code point.
//
// Single-byte text (tags 0, 1, 3) is read through its to-Unicode table, one byte a character,
// NUL bytes skipped; every other tag, 2 included, is read as UTF-8, leniently (a bad byte is a
// code point of its own value). Forwards every code point is delivered; backwards over UTF-8
// only the base character of each cluster, its combining marks skipped. With `decompose` a
// precomposed letter of the combining tables (GSCombiningMarks.h) comes as its base letter and
// then its mark. The enumerator holds a copy of the string (sharing its bytes), so the string
// it was made from may change or go meanwhile.
#pragma once

#include "text/GSString.h"

struct GSDecomposition;

class GSStringUniCharEnumerator {
public:
    GSStringUniCharEnumerator(const GSString& s, short decompose, short backwards);
    GSStringUniCharEnumerator(const GSStringUniCharEnumerator&) = delete;
    GSStringUniCharEnumerator& operator=(const GSStringUniCharEnumerator&) = delete;

    // The next code point; false at the end.
    bool getNext(unsigned* code);

    // The byte index the walk continues from.
    long getIndex() const { return index; }
    // Start and byte length of the character last read (-1 before the first).
    long getCharStart() const { return charStart; }
    long getCharSize() const { return charSize; }

private:
    GSString string;
    const unsigned char* bytes;
    const unsigned short* table;
    short decompose;
    short backwards;
    long index;
    long charStart = -1;
    long charSize = -1;
    long end;
    unsigned pending = 0;
    const GSDecomposition* decompositions = nullptr; // fetched on first need
};
