// GSCodePages.h - the single-byte code pages of GSString and their tables.
//
// Five tables, generated into GSCodePageTables.inc: three to-Unicode tables (the code point of
// each byte) and two from-Unicode tables (pairs of code point and byte code, sorted by code
// point, searched by binary search). A from-Unicode byte code is read as a signed 16-bit
// value: positive, the byte; 0, not representable; negative v, the ligature text ~v of
// __ligatureTexts ("fi", "fl"). The tables belong to the encoding tags like this:
//
//   tag   reading a byte                         writing a code point
//   0     __winToUnicode                         __unicodeToWin (29)
//   1     __macToUnicode                         __unicodeToMac (126)
//   2     __winToUnicode, in getUnicodeChar only none
//   3     __psToUnicode                          __unicodeToWin (29): written as Windows text
//
// The Mac tables are not each other's inverse everywhere on purpose (U+00B1 has no Mac byte).
#pragma once

extern const unsigned short __winToUnicode[256];
extern const unsigned short __macToUnicode[256];
extern const unsigned short __psToUnicode[256];
extern const unsigned short __unicodeToWin[2 * 29];
extern const unsigned short __unicodeToMac[2 * 126];
extern const char* const __ligatureTexts[2];

constexpr int GSUnicodeToWinEntries = 29;
constexpr int GSUnicodeToMacEntries = 126;

// The to-Unicode table of tags 0, 1 and 3; null for every other tag (2 included).
const unsigned short* GSGetToUnicodeTable(int tag);
// The from-Unicode table of tags 0, 1 and 3 with its entry count; null and 0 for other tags.
const unsigned short* GSGetFromUnicodeTable(int tag, int* entries);
// The byte code that `table` gives `code`, or `notFound` when it has no entry.
int GSFindUnicodeInTable(const unsigned short* table, int entries, unsigned code, int notFound);
