// GSStringChars.cpp - characters of GSString: appending code points and the byte-index rules.
//
// Indices are byte indices. In UTF-8 text a character is its lead byte and continuation bytes
// (10xxxxxx); a cluster is a base character and the combining marks (Mn, Mc, Me) after it.
// The rules that walk clusters loop instead of recursing, so that a text of many marks costs
// no stack, with the results of the recursive definitions.
#include "text/GSCodePages.h"
#include "text/GSString.h"
#include "text/GSUTF8.h"
#include "text/GSUnicode.h"

#include <algorithm>

namespace {

constexpr int kNoEntry = 0x10000; // outside the 16-bit byte codes of the tables

bool isContinuation(unsigned char byte) {
    return (byte & 0xC0) == 0x80;
}

} // namespace

// ---------------------------------------------------------------- appending code points

short GSString::addUnicodeChar(unsigned code) {
    if (encoding < 100 && getLength() == 0) encoding = kUTF8;
    if (code <= 127) return add(static_cast<char>(code));
    if (encoding < 100) {
        int entries;
        const unsigned short* table = GSGetFromUnicodeTable(encoding, &entries);
        return addCharForUnicode(table, entries, static_cast<unsigned short>(code & 0xFFFF));
    }
    if (encoding == kUTF16) {
        if (code > 0x10FFFF || (code >= 0xD800 && code <= 0xDFFF)) return 0; // dropped
        unsigned short units[2];
        int n = 1;
        if (code < 0x10000) {
            units[0] = static_cast<unsigned short>(code);
        } else {
            units[0] = static_cast<unsigned short>(((code + 0xFF0000) >> 10) | 0xD800);
            units[1] = static_cast<unsigned short>((code & 0x3FF) | 0xDC00);
            n = 2;
        }
        char bytes[4];
        std::memcpy(bytes, units, static_cast<size_t>(2 * n));
        return append(bytes, 2 * n);
    }
    if (encoding != kUTF8) return 1;
    if (code >= 0xDC00 && code <= 0xDFFE) {
        // A low surrogate joins the high one stored last (as its own 3-byte form) into one
        // code point. The ranges end one short of DFFF and DBFF, as they always have.
        long length = getLength();
        if (length == 0) return 1;
        long start = getValidStartIndexForIndexBasic(length - 1);
        unsigned high = getUnicodeChar(start, nullptr);
        if (high < 0xD800 || high > 0xDBFE) return 1;
        remove(start, -1);
        code = (code & 0x3FF) + ((high * 1024) & 0xFFC00) + 0x10000;
    }
    char bytes[8];
    return append(bytes, GSUTF8Encode(code, bytes));
}

short GSString::addCharForUnicode(const unsigned short* table, int entries, unsigned short code) {
    if (code <= 127) return add(static_cast<char>(code));
    if (code >= 0x0300 && code <= 0x036F) {
        // A combining mark merges into the letter before it. The letter is taken as a signed
        // char, so a byte from 0x80 up never combines.
        long length = getLength();
        if (length == 0) return 1;
        char last = (*this)[length - 1];
        unsigned base = static_cast<unsigned>(static_cast<int>(static_cast<signed char>(last)));
        unsigned combined = getCombinationWithDiacriticalMark(base, code);
        if (combined == 0) return 1;
        remove(length - 1, 1);
        if (addCharForUnicode(table, entries, static_cast<unsigned short>(combined))) {
            add(last);
            return 1;
        }
        return 0;
    }
    int byteCode = table ? GSFindUnicodeInTable(table, entries, code, kNoEntry) : kNoEntry;
    if (byteCode == kNoEntry) return code <= 255 ? add(static_cast<char>(code)) : 1;
    if (byteCode > 0) return add(static_cast<char>(byteCode));
    if (byteCode == 0) return 1;
    int ligature = ~byteCode;
    return ligature < 2 ? add(__ligatureTexts[ligature]) : 1;
}

// ---------------------------------------------------------------- index rules

long GSString::getCharCountForIndex(long i) const {
    if (encoding < 100 || isNull()) return 1;
    auto byte = static_cast<unsigned char>((*this)[i]);
    if ((byte & 0xE0) == 0xC0) return 2;
    if ((byte & 0xF0) == 0xE0) return 3;
    if ((byte & 0xF8) == 0xF0) return 4;
    if ((byte & 0xFC) == 0xF8) return 5;
    if ((byte & 0xFE) == 0xFC) return 6;
    return 1;
}

long GSString::getValidStartIndexForIndexBasic(long i) const {
    if (i < 1) return i;
    const auto* p = reinterpret_cast<const unsigned char*>(getConstAddr());
    long length = getLength();
    // Bytes past the text read as its NUL, which is no continuation byte.
    for (long j = i; j >= 0; --j)
        if (!p || j > length || !isContinuation(p[j])) return j;
    return 0;
}

long GSString::getValidStartIndexForIndex(long i, short withMarks) const {
    if (encoding != kUTF8) return i;
    const auto* p = reinterpret_cast<const unsigned char*>(getConstAddr());
    long length = getLength();
    for (;;) {
        long j = getValidStartIndexForIndexBasic(i);
        if (j < 1 || !withMarks || j >= length) return j;
        unsigned code;
        if (!GSUTF8ReadChar(p + j, length - j, 0, &code) || !GSUnicodeIsMark(code)) return j;
        i = j - 1; // a mark: go on to the character before it
    }
}

long GSString::getValidEndIndexForIndex(long i, short withMarks) const {
    if (encoding != kUTF8) return i;
    const auto* p = reinterpret_cast<const unsigned char*>(getConstAddr());
    long length = getLength();
    // Each mark after the character continues the walk past the mark and takes one off the
    // final result, exactly as the recursive rule does.
    long marks = 0;
    for (;;) {
        long k = i + 1;
        while (k >= 0 && k < length && isContinuation(p[k]))
            ++k;
        if (k >= length) return std::max(i + 1, length) - 1 - marks;
        long last = k - 1;
        if (!withMarks || k < 0) return last - marks;
        unsigned code;
        const unsigned char* past = GSUTF8ReadChar(p + k, length - k, 0, &code);
        if (!past || !GSUnicodeIsMark(code)) return last - marks;
        i = past - p;
        ++marks;
    }
}

unsigned GSString::getUnicodeChar(long i, long* next) const {
    const auto* p = reinterpret_cast<const unsigned char*>(getConstAddr());
    long length = getLength();
    if (next) *next = i + 1;
    if (!p || i < 0 || i > length) return 0;
    unsigned byte = p[i];
    if (byte < 127) return byte;
    if (encoding < 100) {
        // Tag 2 reads through the Windows table here (and only here).
        const unsigned short* table =
            encoding == kWindowsTable ? __winToUnicode : GSGetToUnicodeTable(encoding);
        return table ? table[byte] : byte;
    }
    unsigned code;
    const unsigned char* past = GSUTF8ReadChar(p + i, length - i, 1, &code);
    if (next) *next = past - p;
    return code;
}
