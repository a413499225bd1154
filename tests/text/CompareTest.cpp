// CompareTest.cpp - the orderings and byte searches of GSString.
#include "TextSupport.h"
#include "text/GSString.h"

#include <gtest/gtest.h>

#include <vector>

using testing_support::text;

namespace {

// The operations under test, as rows can name them.
using Op = int (*)(const GSString&, const GSString&, long count);
const Op kValue = [](auto& a, auto& b, long) { return a.compareValue(b); };
const Op kCaseless = [](auto& a, auto& b, long) { return a.compareValueCaseless(b); };
const Op kCount = [](auto& a, auto& b, long n) { return a.compareValueCountCaseless(b, n); };
const Op kSimple = [](auto& a, auto& b, long) { return a.compareValueSimple(b); };
const Op kEqualCount = [](auto& a, auto& b, long n) { return a.isEqualCount(b, n) ? 1 : 0; };

} // namespace

// Exact values, not only signs: where an ordering yields a difference, it is the one of these
// operands (code points, unsigned bytes or lengths), first minus second.
TEST(Compare, ExactResults) {
    const int U = GSString::kUTF8, M = GSString::kMac, W = GSString::kWindows;
    // Rows: name, a and its tag, b and its tag, the operation, a count (for
    // compareValueCountCaseless and isEqualCount only), the result.
    using Row = std::tuple<const char*, const char*, int, const char*, int, Op, long, int>;
    const Row rows[] = {
        {"empty equals null", "", U, nullptr, U, kValue, 0, 0},
        {"empty first", "", U, "a", U, kValue, 0, -1},
        {"precomposed and decomposed", "\xC3\xA9", U, "e\xCC\x81", U, kValue, 0, 0},
        {"Mac and UTF-8 spelling", "caf\x8E", M, "cafe\xCC\x81", U, kValue, 0, 0},
        {"Windows and Mac spelling", "caf\xE9", W, "caf\x8E", M, kValue, 0, 0},
        {"one tag: unsigned bytes", "ab\xE9", M, "abc", M, kValue, 0, 0xE9 - 'c'},
        {"one tag: length difference", "abcdef", W, "ab", W, kValue, 0, 4},
        {"two tags: prefix by code point", "ab", W, "abcd", M, kValue, 0, -1},
        {"UTF-8 prefix", "ab", U, "abcd", U, kValue, 0, -1},
        {"e acute between e and f", "\xC3\xA9", U, "g", U, kValue, 0, 'e' - 'g'},
        {"e acute after e", "\xC3\xA9", U, "e", U, kValue, 0, 1},
        {"euro after pound", "\xE2\x82\xAC", U, "\xC2\xA3", U, kValue, 0, 0x20AC - 0xA3},
        {"caseless", "ABC", U, "abz", U, kCaseless, 0, 'C' - 'Z'},
        {"caseless prefix", "ab", U, "AB!", U, kCaseless, 0, -1},
        {"caseless null and empty", nullptr, U, "", U, kCaseless, 0, 0},
        // toupper alone (C locale): thorn keeps its case, e-acute matches through its base letter.
        {"thorn caseless", "\xC3\xBE", U, "\xC3\x9E", U, kCaseless, 0, 0xFE - 0xDE},
        {"e-acute caseless", "\xC3\xA9", U, "\xC3\x89", U, kCaseless, 0, 0},
        {"count reaches", "ABCx", U, "abcy", U, kCount, 4, 'X' - 'Y'},
        {"count in bytes", "\xE2\x82\xACz", U, "\xE2\x82\xACy", U, kCount, 3, 0},
        {"bytes: null and empty", nullptr, U, "", U, kSimple, 0, 0},
        {"bytes: null first", nullptr, U, "a", U, kSimple, 0, -1},
        {"bytes, not code points", "\xC3\xA9", U, "f", U, kSimple, 0, 0xC3 - 'f'},
        {"bytes: NUL against the longer", "ab", U, "abc", U, kSimple, 0, -'c'},
        {"equal count", "abcd", U, "abcx", U, kEqualCount, 3, 1},
        {"negative count: all", "ab", U, "abc", U, kEqualCount, -1, 0},
        {"only null matches null", nullptr, U, "", U, kEqualCount, 0, 0},
        {"null matches null", nullptr, U, nullptr, U, kEqualCount, 5, 1},
    };
    for (const auto& [name, textA, tagA, textB, tagB, op, count, expected] : rows) {
        // A negative length copies up to the NUL: nullptr gives the null string, "" an empty one.
        GSString a(textA, -1, tagA), b(textB, -1, tagB);
        EXPECT_EQ(op(a, b, count), expected) << name;
        bool symmetric = op != kCount && op != kEqualCount;
        EXPECT_EQ(symmetric ? op(b, a, count) : -expected, -expected) << name << " (reversed)";
        EXPECT_EQ(op == kSimple ? a.compareValueSimple(textB) : expected, expected) << name;
    }
}

// A search from outside the text finds nothing; the whole text as a substring shares its bytes.
TEST(Compare, SearchesAndSubstrings) {
    const GSString path("/a/b.c/d.txt"); // borrowed, so that a copy has the very same bytes
    EXPECT_EQ((std::vector{path.findChar('/', 1), path.findChar('/', -1), path.findChar('t', 13),
                           path.findCharRev('.'), GSString::null.findCharRev('a')}),
              (std::vector<long>{2, -1, -1, 8, -1}));
    EXPECT_EQ(text(path.getSubstring(9, -1)) + text(path.getSubstring(20, 2)), "txt");
    EXPECT_EQ(path.getSubstring(0, 12).getConstAddr(), path.getConstAddr());
}
