// GSCombiningMarks.cpp - the composition records and the decomposition table.
#include "text/GSCombiningMarks.h"
#include "text/GSString.h"

#include <iterator>

namespace {

constexpr GSCombiningEntry __comGraveEntries[] = {
    {'A', 0x00C0}, {'E', 0x00C8}, {'I', 0x00CC}, {'O', 0x00D2}, {'U', 0x00D9},
    {'W', 0x1E80}, {'Y', 0x1EF2}, {'a', 0x00E0}, {'e', 0x00E8}, {'i', 0x00EC},
    {'o', 0x00F2}, {'u', 0x00F9}, {'w', 0x1E81}, {'y', 0x1EF3}};
constexpr GSCombiningEntry __comAcuteEntries[] = {
    {'A', 0x00C1}, {'C', 0x0106}, {'E', 0x00C9}, {'I', 0x00CD}, {'L', 0x0139}, {'N', 0x0143},
    {'O', 0x00D3}, {'R', 0x0154}, {'S', 0x015A}, {'U', 0x00DA}, {'W', 0x1E82}, {'Y', 0x00DD},
    {'Z', 0x0179}, {'a', 0x00E1}, {'c', 0x0107}, {'e', 0x00E9}, {'i', 0x00ED}, {'l', 0x013A},
    {'n', 0x0144}, {'o', 0x00F3}, {'r', 0x0155}, {'s', 0x015B}, {'u', 0x00FA}, {'w', 0x1E83},
    {'y', 0x00FD}, {'z', 0x017A}};
constexpr GSCombiningEntry __comCircumflexEntries[] = {
    {'A', 0x00C2}, {'C', 0x0108}, {'E', 0x00CA}, {'G', 0x011C}, {'H', 0x0124}, {'I', 0x00CE},
    {'J', 0x0134}, {'O', 0x00D4}, {'S', 0x015C}, {'U', 0x00DB}, {'W', 0x0174}, {'Y', 0x0176},
    {'a', 0x00E2}, {'c', 0x0109}, {'e', 0x00EA}, {'g', 0x011D}, {'h', 0x0125}, {'i', 0x00EE},
    {'j', 0x0135}, {'o', 0x00F4}, {'s', 0x015D}, {'u', 0x00FB}, {'w', 0x0175}, {'y', 0x0177}};
constexpr GSCombiningEntry __comTildeEntries[] = {
    {'A', 0x00C3}, {'I', 0x0128}, {'N', 0x00D1}, {'O', 0x00D5}, {'U', 0x0168},
    {'a', 0x00E3}, {'i', 0x0129}, {'n', 0x00F1}, {'o', 0x00F5}, {'u', 0x0169}};
constexpr GSCombiningEntry __comMacronEntries[] = {
    {'A', 0x0100}, {'E', 0x0112}, {'I', 0x012A}, {'O', 0x014C}, {'U', 0x016A}, {'a', 0x0101},
    {'d', 0x0111}, {'e', 0x0113}, {'i', 0x012B}, {'o', 0x014D}, {'u', 0x016B}};
constexpr GSCombiningEntry __comBreveEntries[] = {
    {'A', 0x0102}, {'E', 0x0114}, {'G', 0x011E}, {'I', 0x012C}, {'O', 0x014E}, {'U', 0x016C},
    {'a', 0x0103}, {'e', 0x0115}, {'g', 0x011F}, {'i', 0x012D}, {'o', 0x014F}, {'u', 0x016D}};
constexpr GSCombiningEntry __comDotEntries[] = {
    {'C', 0x010A}, {'E', 0x0116}, {'G', 0x0120}, {'I', 0x0130}, {'L', 0x013F}, {'Z', 0x017B},
    {'c', 0x010B}, {'e', 0x0117}, {'g', 0x0121}, {'i', 0x0131}, {'l', 0x0140}, {'z', 0x017C}};
constexpr GSCombiningEntry __comDieresisEntries[] = {
    {'A', 0x00C4}, {'E', 0x00CB}, {'I', 0x00CF}, {'O', 0x00D6}, {'U', 0x00DC},
    {'W', 0x1E84}, {'Y', 0x0178}, {'a', 0x00E4}, {'e', 0x00EB}, {'i', 0x00EF},
    {'o', 0x00F6}, {'u', 0x00FC}, {'w', 0x1E85}, {'y', 0x00FF}};
constexpr GSCombiningEntry __comRingEntries[] = {
    {'A', 0x00C5}, {'U', 0x016E}, {'a', 0x00E5}, {'u', 0x016F}};
constexpr GSCombiningEntry __comDoubleAcuteEntries[] = {
    {'O', 0x0150}, {'U', 0x0170}, {'o', 0x0151}, {'u', 0x0171}};
constexpr GSCombiningEntry __comCaronEntries[] = {
    {'C', 0x010C}, {'D', 0x010E}, {'E', 0x011A}, {'L', 0x013D}, {'N', 0x0147}, {'R', 0x0158},
    {'S', 0x0160}, {'T', 0x0164}, {'Z', 0x017D}, {'c', 0x010D}, {'d', 0x010F}, {'e', 0x011B},
    {'l', 0x013E}, {'n', 0x0148}, {'r', 0x0159}, {'s', 0x0161}, {'t', 0x0165}, {'z', 0x017E}};
constexpr GSCombiningEntry __comCedillaEntries[] = {
    {'C', 0x00C7}, {'G', 0x0122}, {'K', 0x0136}, {'L', 0x013B}, {'N', 0x0145}, {'R', 0x0156},
    {'S', 0x015E}, {'T', 0x0162}, {'c', 0x00E7}, {'g', 0x0123}, {'k', 0x0137}, {'l', 0x013C},
    {'n', 0x0146}, {'r', 0x0157}, {'s', 0x015F}, {'t', 0x0163}};
constexpr GSCombiningEntry __comOgonekEntries[] = {{'A', 0x0104}, {'E', 0x0118}, {'I', 0x012E},
                                                   {'U', 0x0172}, {'a', 0x0105}, {'e', 0x0119},
                                                   {'i', 0x012F}, {'u', 0x0173}};
constexpr GSCombiningEntry __comShortSolidusEntries[] = {{'o', 0x00F8}};
constexpr GSCombiningEntry __comLongSolidusEntries[] = {{'O', 0x00D8}};

#define GS_COMBINING_RECORD(mark, entries)                                                         \
    { mark, entries, static_cast<int>(std::size(entries)) }

} // namespace

const GSCombiningRecord __combineToUnicode[GSCombiningRecordCount] = {
    GS_COMBINING_RECORD(0x0300, __comGraveEntries),
    GS_COMBINING_RECORD(0x0301, __comAcuteEntries),
    GS_COMBINING_RECORD(0x0302, __comCircumflexEntries),
    GS_COMBINING_RECORD(0x0303, __comTildeEntries),
    GS_COMBINING_RECORD(0x0304, __comMacronEntries),
    GS_COMBINING_RECORD(0x0306, __comBreveEntries),
    GS_COMBINING_RECORD(0x0307, __comDotEntries),
    GS_COMBINING_RECORD(0x0308, __comDieresisEntries),
    GS_COMBINING_RECORD(0x030A, __comRingEntries),
    GS_COMBINING_RECORD(0x030B, __comDoubleAcuteEntries),
    GS_COMBINING_RECORD(0x030C, __comCaronEntries),
    GS_COMBINING_RECORD(0x0327, __comCedillaEntries),
    GS_COMBINING_RECORD(0x0328, __comOgonekEntries),
    GS_COMBINING_RECORD(0x0337, __comShortSolidusEntries),
    GS_COMBINING_RECORD(0x0338, __comLongSolidusEntries),
};

unsigned GSString::getCombinationWithDiacriticalMark(unsigned base, unsigned mark) {
    if (mark < 0x0300 || mark > 0x036F) return 0;
    int low = 0, high = GSCombiningRecordCount - 1;
    const GSCombiningRecord* record = nullptr;
    while (low <= high) {
        int middle = (low + high) / 2;
        if (__combineToUnicode[middle].mark == mark) {
            record = &__combineToUnicode[middle];
            break;
        }
        if (__combineToUnicode[middle].mark < mark)
            low = middle + 1;
        else
            high = middle - 1;
    }
    if (!record || base > 127) return 0;
    low = 0, high = record->count - 1;
    while (low <= high) {
        int middle = (low + high) / 2;
        unsigned key = record->entries[middle].base;
        if (key == base) return record->entries[middle].precomposed;
        if (key < base)
            low = middle + 1;
        else
            high = middle - 1;
    }
    return 0;
}

const GSDecomposition* GSGetDecompositionTable() {
    struct Table {
        GSDecomposition pairs[GSDecompositionTableSize] = {};
        Table() {
            for (const GSCombiningRecord& record : __combineToUnicode)
                for (int i = 0; i < record.count; ++i) {
                    const GSCombiningEntry& entry = record.entries[i];
                    pairs[entry.precomposed] = {entry.base,
                                                static_cast<unsigned short>(record.mark)};
                }
        }
    };
    static const Table table; // built once, under the language's guard; never freed
    return table.pairs;
}
