// GSCombiningMarks.h - letters with combining diacritical marks, composed and decomposed.
//
// The framework's own table of which ASCII letter and mark (U+0300-036F) make which precomposed
// character, one record per mark in __combineToUnicode. It is not Unicode's canonical
// composition: a macron on d gives U+0111, a dot above i the dotless U+0131, a dot on L/l
// U+013F/U+0140, and the two solidus marks are split by case. Composition is a binary search
// (GSString::getCombinationWithDiacriticalMark); decomposition a direct lookup in a table of
// 8192 entries built once per process, on first use, under the language's once-only guard.
#pragma once

struct GSCombiningEntry {
    unsigned char base;         // an ASCII letter
    unsigned short precomposed; // the code point of base + mark
};

struct GSCombiningRecord {
    unsigned mark;
    const GSCombiningEntry* entries; // sorted by base
    int count;
};

constexpr int GSCombiningRecordCount = 15;
extern const GSCombiningRecord __combineToUnicode[GSCombiningRecordCount]; // sorted by mark

// The decomposition table: for each code point below 8192 its base letter and mark, or a zero
// base when it has none. Built on the first call.
struct GSDecomposition {
    unsigned char base;
    unsigned short mark;
};
constexpr unsigned GSDecompositionTableSize = 8192;
const GSDecomposition* GSGetDecompositionTable();

// The base letter and mark of a precomposed code point of the records; false for every other.
inline bool GSGetDecomposition(unsigned code, unsigned* base, unsigned* mark) {
    if (code >= GSDecompositionTableSize) return false;
    const GSDecomposition& d = GSGetDecompositionTable()[code];
    if (!d.base) return false;
    *base = d.base;
    *mark = d.mark;
    return true;
}
