// GSUnicode.cpp - the general-category lookup.
#include "text/GSUnicode.h"

#include <iterator>

namespace {

const GSUnicodeCategoryRange categoryRanges[] = {
#include "GSUnicodeCategoryTables.inc"
};

constexpr long rangeCount = static_cast<long>(std::size(categoryRanges));
static_assert(rangeCount == 4099, "the general categories of Unicode 16.0.0 form 4,099 runs");

} // namespace

int GSGetGeneralCategory(unsigned code) {
    if (code > 0x10FFFD) return GSCategoryCo;
    long low = 0, high = rangeCount - 1;
    while (low <= high) {
        long middle = (low + high) / 2;
        const GSUnicodeCategoryRange& range = categoryRanges[middle];
        if (code < range.first)
            high = middle - 1;
        else if (code > range.last)
            low = middle + 1;
        else
            return range.category;
    }
    return GSCategoryCn; // not reached: the ranges cover every code point
}

bool GSUnicodeIsMark(unsigned code) {
    int category = GSGetGeneralCategory(code);
    return category == GSCategoryMn || category == GSCategoryMc || category == GSCategoryMe;
}

const GSUnicodeCategoryRange* GSGetUnicodeCategoryRanges(long* count) {
    *count = rangeCount;
    return categoryRanges;
}
