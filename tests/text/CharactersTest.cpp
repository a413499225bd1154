// CharactersTest.cpp - code points in GSString: appending, combining marks, index rules and
// the enumerator.
#include "GSCodePages.h"
#include "GSCombiningMarks.h"
#include "GSString.h"
#include "GSStringUniCharEnumerator.h"
#include "GSUTF8.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace {

std::string text(const GSString& s) {
    return s.getConstAddr() ? std::string(s.getConstAddr(), s.getLength()) : "<null>";
}

GSString bytes(const std::string& b, int tag) {
    return GSString(b.data(), static_cast<long>(b.size()), tag);
}

std::vector<unsigned> walk(const GSString& s, short decompose, short backwards) {
    GSStringUniCharEnumerator e(s, decompose, backwards);
    std::vector<unsigned> codes;
    unsigned code;
    while (codes.size() < 100 && e.getNext(&code))
        codes.push_back(code);
    return codes;
}

using Codes = std::vector<unsigned>;

} // namespace

TEST(Characters, AddUnicodeCharInEveryEncoding) {
    GSString s = bytes("", GSString::kWindows);
    EXPECT_EQ(s.addUnicodeChar(0xE9), 0);
    EXPECT_EQ(s.getEncoding(), GSString::kUTF8) << "an empty single-byte string turns UTF-8";
    EXPECT_EQ(text(s), "\xC3\xA9");

    struct Case {
        int tag;
        unsigned code;
        std::string appended; // after "x"
        short result;
    };
    // PostScript text uses the Windows table; tag 2 has none (Latin-1 only); a code-page tag
    // counts only the low 16 bits; UTF-16 drops surrogates and codes beyond U+10FFFF.
    // clang-format off
    const Case cases[] = {
        {GSString::kMac, 0xE9, "\x8E", 0},              {GSString::kWindows, 0x20AC, "\x80", 0},
        {GSString::kPostScript, 0x20AC, "\x80", 0},     {GSString::kWindowsTable, 0xE9, "\xE9", 0},
        {GSString::kWindowsTable, 0x20AC, "", 1},       {GSString::kMac, 0x100E9, "\x8E", 0},
        {GSString::kUTF8, 0x200000, "\xF8\x88\x80\x80\x80", 0}, {GSString::kUTF16, 0xD800, "", 0},
        {GSString::kUTF16, 0x110000, "", 0},            {150, 'a', "a", 0}, {150, 0xE9, "", 1},
    };
    // clang-format on
    for (const Case& c : cases) {
        SCOPED_TRACE(std::to_string(c.tag) + " U+" + std::to_string(c.code));
        GSString t = bytes("x", c.tag);
        EXPECT_EQ(t.addUnicodeChar(c.code), c.result);
        EXPECT_EQ(t.getEncoding(), c.tag);
        EXPECT_EQ(text(t), "x" + c.appended);
    }
    GSString wide = bytes("x", GSString::kUTF16);
    EXPECT_EQ(wide.addUnicodeChar(0x1F600), 0);
    unsigned short units[2] = {0xD83D, 0xDE00};
    EXPECT_EQ(text(wide), "x" + std::string(reinterpret_cast<const char*>(units), 4))
        << "a surrogate pair, each unit in machine order";
}

TEST(Characters, SurrogatesJoinInUTF8OnlyWithinTheirRanges) {
    GSString s("a");
    EXPECT_EQ(s.addUnicodeChar(0xD83D), 0);
    EXPECT_EQ(text(s), "a\xED\xA0\xBD") << "a lone high surrogate waits as its own form";
    EXPECT_EQ(s.addUnicodeChar(0xDE00), 0);
    EXPECT_EQ(text(s), "a\xF0\x9F\x98\x80");

    auto pair = [](unsigned high, unsigned low, short* result) {
        GSString t("");
        t.addUnicodeChar(high);
        *result = t.addUnicodeChar(low);
        return text(t);
    };
    short result;
    EXPECT_EQ(pair(0xD800, 0xDC00, &result), "\xF0\x90\x80\x80");
    EXPECT_EQ(pair(0xDBFE, 0xDFFE, &result), "\xF4\x8F\xAF\xBE");
    EXPECT_EQ(result, 0);
    EXPECT_EQ(pair(0xDBFF, 0xDC00, &result), "\xED\xAF\xBF") << "DBFF is outside D800-DBFE";
    EXPECT_EQ(result, 1);
    EXPECT_EQ(pair(0xD800, 0xDFFF, &result), "\xED\xA0\x80\xED\xBF\xBF")
        << "DFFF is outside DC00-DFFE: stored as it is";
    EXPECT_EQ(result, 0);
    EXPECT_EQ(pair('z', 0xDC00, &result), "z");
    EXPECT_EQ(result, 1) << "a low surrogate after no high one is refused";
    GSString empty("");
    EXPECT_EQ(empty.addUnicodeChar(0xDC00), 1);
}

TEST(Characters, AddCharForUnicodeMergesMarksAndUsesLigatures) {
    struct Case {
        std::string start;
        int tag;
        unsigned code;
        std::string expected;
        short result;
    };
    // A byte from 0x80 never combines; U+0111 has no Windows byte, so d stays; U+00A4 takes the
    // Latin-1 fall-back.
    // clang-format off
    const Case cases[] = {
        {"e", GSString::kMac, 0x0301, "\x8E", 0},     {"q", GSString::kWindows, 0x0301, "q", 1},
        {"\x8E", GSString::kMac, 0x0301, "\x8E", 1},  {"d", GSString::kWindows, 0x0304, "d", 1},
        {"", GSString::kMac, 0x0301, "", 1},          {"x", GSString::kWindows, 0xFB01, "xfi", 0},
        {"x", GSString::kMac, 0x00B1, "x", 1},        {"x", GSString::kMac, 0x00A4, "x\xA4", 0},
        {"x", GSString::kMac, 0x0100, "x", 1},
    };
    // clang-format on
    for (const Case& c : cases) {
        SCOPED_TRACE(c.start + " + U+" + std::to_string(c.code));
        GSString s = bytes(c.start, c.tag);
        int entries;
        const unsigned short* table = GSGetFromUnicodeTable(c.tag, &entries);
        EXPECT_EQ(s.addCharForUnicode(table, entries, static_cast<unsigned short>(c.code)),
                  c.result);
        EXPECT_EQ(s.isNull() ? "" : text(s), c.expected);
    }
}

TEST(Characters, EveryMarkTableComposesAndDecomposes) {
    int total = 0;
    for (int m = 0; m < GSCombiningRecordCount; ++m) {
        const GSCombiningRecord& record = __combineToUnicode[m];
        if (m > 0) {
            EXPECT_LT(__combineToUnicode[m - 1].mark, record.mark) << "records unsorted";
        }
        for (int i = 0; i < record.count; ++i) {
            const GSCombiningEntry& e = record.entries[i];
            SCOPED_TRACE(std::string(1, static_cast<char>(e.base)) + " + U+" +
                         std::to_string(record.mark));
            if (i > 0) {
                EXPECT_LT(record.entries[i - 1].base, e.base) << "entries unsorted";
            }
            EXPECT_EQ(GSString::getCombinationWithDiacriticalMark(e.base, record.mark),
                      e.precomposed);
            // Decomposition through the enumerator: the precomposed letter in UTF-8 comes out
            // as its base and its mark, and as itself without decomposition.
            GSString s("");
            s.addUnicodeChar(e.precomposed);
            EXPECT_EQ(walk(s, 1, 0), (Codes{e.base, record.mark}));
            EXPECT_EQ(walk(s, 0, 0), (Codes{e.precomposed}));
            ++total;
        }
    }
    EXPECT_EQ(total, 175);
    // The framework's own rows, kept as they are, and pairs with no record or no entry.
    // clang-format off
    const unsigned rows[][3] = {
        {'d', 0x0304, 0x0111}, {'i', 0x0307, 0x0131}, {'L', 0x0307, 0x013F}, {'o', 0x0337, 0x00F8},
        {'O', 0x0337, 0},      {'O', 0x0338, 0x00D8}, {'e', 0x0305, 0},      {'b', 0x0301, 0},
        {0x100 + 'e', 0x0301, 0}, {'e', 0x0341, 0},
    };
    // clang-format on
    for (const auto& r : rows)
        EXPECT_EQ(GSString::getCombinationWithDiacriticalMark(r[0], r[1]), r[2])
            << r[0] << " " << r[1];
    unsigned base, mark;
    EXPECT_FALSE(GSGetDecomposition(0x00E6, &base, &mark)) << "a ligature is no letter + mark";
    EXPECT_FALSE(GSGetDecomposition(0x2000, &base, &mark));
}

TEST(Characters, IndexRules) {
    // a, e + acute + circumflex, euro sign, grinning face, x
    GSString s("ae\xCC\x81\xCC\x82\xE2\x82\xAC\xF0\x9F\x98\x80x");
    ASSERT_EQ(s.getLength(), 14);
    std::vector<long> counts;
    for (long i = 0; i < 14; ++i)
        counts.push_back(s.getCharCountForIndex(i));
    EXPECT_EQ(counts, (std::vector<long>{1, 1, 2, 1, 2, 1, 3, 1, 1, 4, 1, 1, 1, 1}));
    EXPECT_EQ(bytes("\xFC\xF8", 100).getCharCountForIndex(0), 6);
    EXPECT_EQ(bytes("\xFC\xF8", 100).getCharCountForIndex(1), 5);
    EXPECT_EQ(bytes("\xE2\x82", 1).getCharCountForIndex(0), 1) << "single-byte text";

    EXPECT_EQ(s.getValidStartIndexForIndexBasic(8), 6);
    EXPECT_EQ(s.getValidStartIndexForIndexBasic(0), 0);
    EXPECT_EQ(s.getValidStartIndexForIndexBasic(-3), -3);
    EXPECT_EQ(bytes("\x80\x80\x80", 100).getValidStartIndexForIndexBasic(2), 0);
    EXPECT_EQ(s.getValidStartIndexForIndex(5, 0), 4) << "the second mark itself";
    EXPECT_EQ(s.getValidStartIndexForIndex(5, 1), 1) << "the base of the cluster";
    EXPECT_EQ(s.getValidStartIndexForIndex(12, 1), 9);
    EXPECT_EQ(bytes("ae\xCC\x81", 1).getValidStartIndexForIndex(3, 1), 3) << "UTF-8 only";

    EXPECT_EQ(GSString("e\xCC\x81y").getValidEndIndexForIndex(0, 1), 2);
    EXPECT_EQ(s.getValidEndIndexForIndex(1, 0), 1);
    EXPECT_EQ(s.getValidEndIndexForIndex(1, 1), 4)
        << "with two marks the rule gives one less than the cluster's last byte, as it always has";
    EXPECT_EQ(s.getValidEndIndexForIndex(6, 0), 8);
    EXPECT_EQ(s.getValidEndIndexForIndex(13, 1), 13);
    EXPECT_EQ(s.getValidEndIndexForIndex(14, 1), 14);
    EXPECT_EQ(s.getValidEndIndexForIndex(20, 1), 20);
    EXPECT_EQ(GSString("e\xCC").getValidEndIndexForIndex(0, 1), 0) << "a mark cut short is none";

    long next;
    EXPECT_EQ(s.getUnicodeChar(9, &next), 0x1F600u);
    EXPECT_EQ(next, 13);
    EXPECT_EQ(bytes("\x80\x7F", GSString::kWindowsTable).getUnicodeChar(0, &next), 0x20ACu);
    EXPECT_EQ(bytes("\x7F", GSString::kMac).getUnicodeChar(0, &next), 0x7Fu);
    EXPECT_EQ(bytes("\xDB", GSString::kMac).getUnicodeChar(0, &next), 0x20ACu);
    EXPECT_EQ(bytes("\x60", GSString::kPostScript).getUnicodeChar(0, &next), 0x60u)
        << "bytes below 127 are returned as they are";
    EXPECT_EQ(bytes("\xE2\x82", GSString::kUTF8).getUnicodeChar(0, &next), 0x2080u);
    EXPECT_EQ(next, 3);
}

TEST(Characters, EnumeratorWalksBothWays) {
    // a, e + acute, e-acute, euro sign, grinning face, o + circumflex + tilde, stray 0xFF, z
    GSString s = bytes("ae\xCC\x81\xC3\xA9\xE2\x82\xAC\xF0\x9F\x98\x80o\xCC\x82\xCC\x83\xFFz",
                       GSString::kUTF8);
    EXPECT_EQ(walk(s, 0, 0),
              (Codes{'a', 'e', 0x301, 0xE9, 0x20AC, 0x1F600, 'o', 0x302, 0x303, 0xFF, 'z'}));
    EXPECT_EQ(walk(s, 1, 0), (Codes{'a', 'e', 0x301, 'e', 0x301, 0x20AC, 0x1F600, 'o', 0x302, 0x303,
                                    'y', 0x308, 'z'}))
        << "the stray byte reads as U+00FF, which decomposes too";
    EXPECT_EQ(walk(s, 0, 1), (Codes{'z', 0xFF, 'o', 0x1F600, 0x20AC, 0xE9, 'e', 'a'}))
        << "backwards: base characters only";
    EXPECT_EQ(walk(s, 1, 1), (Codes{'z', 'y', 0x308, 'o', 0x1F600, 0x20AC, 'e', 0x301, 'e', 'a'}));

    GSString mac = bytes("\x8E"
                         "b\xDB",
                         GSString::kMac);
    EXPECT_EQ(walk(mac, 0, 0), (Codes{0xE9, 'b', 0x20AC}));
    EXPECT_EQ(walk(mac, 1, 1), (Codes{0x20AC, 'b', 'e', 0x301}));
    EXPECT_EQ(walk(bytes(std::string("\0a\0\0b\0", 6), GSString::kWindows), 0, 0),
              (Codes{'a', 'b'}))
        << "NUL bytes are skipped in code pages";
    EXPECT_EQ(walk(bytes(std::string("\0a\0\0b\0", 6), GSString::kWindows), 0, 1),
              (Codes{'b', 'a'}));
    EXPECT_EQ(walk(bytes("\xC3\xA9", GSString::kWindowsTable), 0, 0), (Codes{0xE9}))
        << "tag 2 is walked as UTF-8";
    EXPECT_EQ(walk(bytes("\xC3\xA9", GSString::kWindowsTable), 0, 1), (Codes{0xA9, 0xE9}))
        << "backwards tag 2 goes byte by byte";
    EXPECT_EQ(walk(GSString(), 1, 0), Codes{});
    EXPECT_EQ(walk(GSString(), 1, 1), Codes{});

    GSStringUniCharEnumerator e(s, 0, 0);
    unsigned code;
    for (int i = 0; i < 6; ++i)
        e.getNext(&code);
    EXPECT_EQ(e.getCharStart(), 9);
    EXPECT_EQ(e.getCharSize(), 4);
    EXPECT_EQ(e.getIndex(), 13);
}
