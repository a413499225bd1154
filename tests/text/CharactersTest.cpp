// CharactersTest.cpp - code points in GSString: appending, combining marks, index rules, the
// enumerator, and malformed texts that no reading operation may read past.
#include "TextSupport.h"
#include "text/GSCodePages.h"
#include "text/GSCombiningMarks.h"
#include "text/GSString.h"
#include "text/GSStringUniCharEnumerator.h"

#include <gtest/gtest.h>

#include <cstring>
#include <memory>
#include <vector>

using namespace testing_support;

namespace {

using Codes = std::vector<unsigned>;

Codes walk(const GSString& s, short decompose, short backwards) {
    GSStringUniCharEnumerator e(s, decompose, backwards);
    Codes codes;
    unsigned code;
    while (codes.size() < 100 && e.getNext(&code))
        codes.push_back(code);
    return codes;
}

} // namespace

TEST(Characters, AddUnicodeChar) {
    // An empty single-byte string turns UTF-8; PostScript text uses the Windows table; tag 2 has
    // none (Latin-1 only); a code-page tag counts only the low 16 bits; UTF-16 drops surrogates
    // and codes beyond U+10FFFF. In UTF-8 a high surrogate waits as its own form for a low one
    // within DC00-DFFE, and a high one within D800-DBFE, to join it. In a code page a mark
    // merges into the letter before it, but a byte from 0x80 never combines; U+0111 has no
    // Windows byte, so d stays.
    const int W = GSString::kWindows, M = GSString::kMac, U = GSString::kUTF8, T2 = 2;
    // Rows: tag, text, code points added, text after, result of the last.
    const std::tuple<int, std::string, Codes, std::string, short> rows[] = {
        // clang-format off
        {W, "", {0xE9}, "\xC3\xA9", 0}, {M, "x", {0xE9}, "x\x8E", 0}, {3, "x", {0x20AC}, "x\x80", 0},
        {T2, "x", {0xE9}, "x\xE9", 0}, {T2, "x", {0x20AC}, "x", 1}, {M, "x", {0x100E9}, "x\x8E", 0},
        {U, "x", {0x200000}, "x\xF8\x88\x80\x80\x80", 0}, {150, "x", {'a'}, "xa", 0},
        {150, "x", {0xE9}, "x", 1}, {U, "", {0xDC00}, "", 1}, {101, "x", {0xD800, 0x110000}, "x", 0},
        {101, "x", {0x1F600}, "x" + units(u"\U0001F600"), 0},
        {U, "a", {0xD83D}, "a\xED\xA0\xBD", 0}, {U, "a", {0xD83D, 0xDE00}, "a\xF0\x9F\x98\x80", 0},
        {U, "", {'z', 0xDC00}, "z", 1}, {U, "", {0xDBFE, 0xDFFE}, "\xF4\x8F\xAF\xBE", 0},
        {U, "", {0xDBFF, 0xDC00}, "\xED\xAF\xBF", 1}, {U, "", {0xD800, 0xDFFF}, "\xED\xA0\x80\xED\xBF\xBF", 0},
        {M, "e", {0x0301}, "\x8E", 0}, {W, "q", {0x0301}, "q", 1}, {M, "\x8E", {0x0301}, "\x8E", 1},
        {W, "d", {0x0304}, "d", 1}, {W, "x", {0xFB01}, "xfi", 0}, {M, "x", {0x00B1}, "x", 1},
        // clang-format on
    };
    for (const auto& [tag, start, codes, expected, result] : rows) {
        GSString s = bytes(start, tag);
        short last = 0;
        for (unsigned code : codes)
            last = s.addUnicodeChar(code);
        EXPECT_EQ(std::tuple(last, text(s), int(s.getEncoding())),
                  std::tuple(result, expected, start.empty() && tag < 100 ? U : tag));
    }
    int entries;
    EXPECT_EQ(GSString().addCharForUnicode(GSGetFromUnicodeTable(M, &entries), entries, 0x0301), 1)
        << "a mark with no letter before it";
}

TEST(Characters, EveryMarkTableComposesAndDecomposes) {
    for (const GSCombiningRecord& record : __combineToUnicode) {
        for (const GSCombiningEntry& e :
             std::vector(record.entries, record.entries + record.count)) {
            SCOPED_TRACE(std::string(1, char(e.base)) + " + U+" + std::to_string(record.mark));
            EXPECT_EQ(GSString::getCombinationWithDiacriticalMark(e.base, record.mark),
                      e.precomposed);
            // Through the enumerator the precomposed letter comes out as its base and its mark,
            // and as itself without decomposition.
            GSString s("");
            s.addUnicodeChar(e.precomposed);
            EXPECT_EQ(walk(s, 1, 0), (Codes{e.base, record.mark}));
            EXPECT_EQ(walk(s, 0, 0), (Codes{e.precomposed}));
        }
    }
    // A mark with no record, a base with no entry, a base beyond ASCII, no mark at all.
    for (auto [base, mark] : {std::pair(0x65u, 0x0305u),
                              {0x62u, 0x0301u},
                              {0x165u, 0x0301u},
                              {0x65u, 0x0341u},
                              {0x65u, 0x02FFu}})
        EXPECT_EQ(GSString::getCombinationWithDiacriticalMark(base, mark), 0u) << base << mark;
    unsigned base, mark;
    EXPECT_FALSE(GSGetDecomposition(0x00E6, &base, &mark)) << "a ligature is no letter + mark";
}

TEST(Characters, IndexRules) {
    // a, e + acute + circumflex, euro sign, grinning face, x
    GSString s("ae\xCC\x81\xCC\x82\xE2\x82\xAC\xF0\x9F\x98\x80x");
    std::vector<long> counts;
    for (long i = 0; i < 14; ++i)
        counts.push_back(s.getCharCountForIndex(i));
    EXPECT_EQ(counts, (std::vector<long>{1, 1, 2, 1, 2, 1, 3, 1, 1, 4, 1, 1, 1, 1}));
    long next = -1;
    const std::tuple<const char*, long, long> rows[] = {
        {"six-byte lead", bytes("\xFC\xF8", 100).getCharCountForIndex(0), 6},
        {"five-byte lead", bytes("\xFC\xF8", 100).getCharCountForIndex(1), 5},
        {"single-byte text", bytes("\xE2\x82", 1).getCharCountForIndex(0), 1},
        {"basic start in the euro", s.getValidStartIndexForIndexBasic(8), 6},
        {"basic start, no lead", bytes("\x80\x80\x80").getValidStartIndexForIndexBasic(2), 0},
        {"start: the second mark", s.getValidStartIndexForIndex(5, 0), 4},
        {"start: the cluster's base", s.getValidStartIndexForIndex(5, 1), 1},
        {"start: UTF-8 only", bytes("ae\xCC\x81", 1).getValidStartIndexForIndex(3, 1), 3},
        {"end of e + acute", GSString("e\xCC\x81y").getValidEndIndexForIndex(0, 1), 2},
        // With two marks the rule gives one less than the cluster's last byte, as it always has.
        {"end of two marks", s.getValidEndIndexForIndex(1, 1), 4},
        {"end of the euro", s.getValidEndIndexForIndex(6, 0), 8},
        {"a mark cut short is none", GSString("e\xCC").getValidEndIndexForIndex(0, 1), 0},
        {"the face", s.getUnicodeChar(9, &next), 0x1F600},
        {"past the face", next, 13},
        {"tag 2 reads Windows", bytes("\x80\x7F", 2).getUnicodeChar(0, &next), 0x20AC},
        {"PostScript below 127 as is", bytes("\x60", 3).getUnicodeChar(0, &next), 0x60},
        {"cut UTF-8, lenient", bytes("\xE2\x82").getUnicodeChar(0, &next), 0x2080},
        {"past the cut one", next, 3},
    };
    for (const auto& [name, got, expected] : rows)
        EXPECT_EQ(got, expected) << name;
}

TEST(Characters, EnumeratorWalksBothWays) {
    // a, e + acute, e-acute, euro sign, grinning face, o + circumflex + tilde, stray 0xFF, z;
    // the stray byte reads as U+00FF, which decomposes too.
    GSString s = bytes("ae\xCC\x81\xC3\xA9\xE2\x82\xAC\xF0\x9F\x98\x80o\xCC\x82\xCC\x83\xFFz");
    GSString mac = bytes("\x8E\x62\xDB", 1), nuls = bytes(std::string("\0a\0\0b\0", 6), 0);
    const std::tuple<const char*, GSString, short, short, Codes> rows[] = {
        // clang-format off
        {"forwards", s, 0, 0, {'a', 'e', 0x301, 0xE9, 0x20AC, 0x1F600, 'o', 0x302, 0x303, 0xFF, 'z'}},
        {"decomposed", s, 1, 0,
         {'a', 'e', 0x301, 'e', 0x301, 0x20AC, 0x1F600, 'o', 0x302, 0x303, 'y', 0x308, 'z'}},
        {"backwards: bases only", s, 0, 1, {'z', 0xFF, 'o', 0x1F600, 0x20AC, 0xE9, 'e', 'a'}},
        {"backwards decomposed", s, 1, 1, {'z', 'y', 0x308, 'o', 0x1F600, 0x20AC, 'e', 0x301, 'e', 'a'}},
        {"Mac", mac, 0, 0, {0xE9, 'b', 0x20AC}}, {"Mac back", mac, 1, 1, {0x20AC, 'b', 'e', 0x301}},
        {"code pages skip NUL", nuls, 0, 0, {'a', 'b'}}, {"backwards too", nuls, 0, 1, {'b', 'a'}},
        {"tag 2 as UTF-8", bytes("\xC3\xA9", 2), 0, 0, {0xE9}},
        {"tag 2 backwards byte by byte", bytes("\xC3\xA9", 2), 0, 1, {0xA9, 0xE9}},
        {"null", GSString(), 1, 0, {}}, {"null backwards", GSString(), 1, 1, {}},
        // clang-format on
    };
    for (const auto& [name, string, decompose, backwards, expected] : rows)
        EXPECT_EQ(walk(string, decompose, backwards), expected) << name;
    GSStringUniCharEnumerator e(s, 0, 0);
    unsigned code;
    for (int i = 0; i < 6; ++i)
        e.getNext(&code);
    EXPECT_EQ(std::tuple(e.getCharStart(), e.getCharSize(), e.getIndex()), std::tuple(9, 4, 13));
}

// Each malformed text is borrowed from a heap block of exactly its bytes and NUL, so that under
// AddressSanitizer a read past the NUL is a reported error. Every reading operation is run at
// every index, in every encoding.
TEST(MalformedText, NoOperationReadsPastTheEnd) {
    // Cut sequences, bytes that lead nothing, lone surrogates, overlong forms, marks without a
    // base or cut short.
    const std::string malformed[] = {
        // clang-format off
        "\xC3", "ab\xE2\x82", "\xF0\x9F\x98", "\xFC\x80\x80", "\xFE\xFF\xFE", "\x80\xBF\x80x",
        "\xED\xA0\x80", "\xED\xB0\x80\xCC\x81", "\xC0\x80\xE0\x80\x80", "\xCC\x81\xCC\x81\xCC",
        "e\xCC\x81\xCC\x81\xCC", "\xC3\xA9\xFF",
        // clang-format on
    };
    for (const std::string& b : malformed) {
        for (int tag : {0, 1, 2, 3, 100, 101, 200}) {
            SCOPED_TRACE("tag " + std::to_string(tag) + ", " + std::to_string(b.size()) + " bytes");
            auto block = std::make_unique<char[]>(b.size() + 1);
            std::memcpy(block.get(), b.c_str(), b.size() + 1);
            GSString s;
            s.initFromCString(block.get(), 1);
            s.setEncoding(static_cast<unsigned char>(tag));
            long length = s.getLength();
            s.isValidUTF8();
            for (long i = -2; i <= length + 2; ++i) {
                s.getCharCountForIndex(i);
                EXPECT_LE(s.getValidStartIndexForIndex(i, 1), std::max(i, 0L));
                EXPECT_LE(s.getValidEndIndexForIndex(i, 1), std::max(i, length));
                long next;
                s.getUnicodeChar(i, &next);
                EXPECT_LE(next, std::max(i + 1, length + 1)) << "at " << i;
                GSString out;
                EXPECT_LE(s.addCharToString(i, &out), std::max(i, length));
            }
            for (short decompose : {0, 1})
                for (short backwards : {0, 1})
                    EXPECT_LE(walk(s, decompose, backwards).size(), size_t(2 * length + 2));
            for (int target : {0, 1, 2, 3, 100, 101, 200})
                GSString(s).convertEncoding(target);
            EXPECT_EQ(std::string(block.get(), b.size()), b) << "a copy wrote into the text";
            GSString edited(s);
            edited.addUnicodeChar(0xDC00);
            edited.add(GSString("\xC3", 1, 100));
            edited.remove(0, 1);
        }
    }
}
