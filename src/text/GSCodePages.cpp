// GSCodePages.cpp - the code-page tables and their choice by encoding tag.
#include "text/GSCodePages.h"

#include "GSCodePageTables.inc"

const char* const __ligatureTexts[2] = {"fi", "fl"};

const unsigned short* GSGetToUnicodeTable(int tag) {
    switch (tag) {
    case 0:
        return __winToUnicode;
    case 1:
        return __macToUnicode;
    case 3:
        return __psToUnicode;
    default:
        return nullptr;
    }
}

const unsigned short* GSGetFromUnicodeTable(int tag, int* entries) {
    switch (tag) {
    case 0:
    case 3:
        *entries = GSUnicodeToWinEntries;
        return __unicodeToWin;
    case 1:
        *entries = GSUnicodeToMacEntries;
        return __unicodeToMac;
    default:
        *entries = 0;
        return nullptr;
    }
}

int GSFindUnicodeInTable(const unsigned short* table, int entries, unsigned code, int notFound) {
    int low = 0, high = entries - 1;
    while (low <= high) {
        int middle = (low + high) / 2;
        unsigned key = table[2 * middle];
        if (key == code) return static_cast<short>(table[2 * middle + 1]);
        if (key < code)
            low = middle + 1;
        else
            high = middle - 1;
    }
    return notFound;
}
