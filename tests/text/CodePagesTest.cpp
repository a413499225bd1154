// CodePagesTest.cpp - the code-page tables against the C library's charsets, and
// GSString::convertEncoding between every pair of tags.
#include "GSCodePages.h"
#include "GSString.h"
#include "TextSupport.h"

#include <gtest/gtest.h>

#include <iconv.h>

using namespace testing_support;

namespace {

// The code point glibc's iconv gives one byte of `charset`, or -1 when it has none.
long iconvCodePoint(const char* charset, unsigned char byte) {
    iconv_t cd = iconv_open("UTF-32LE", charset);
    if (cd == reinterpret_cast<iconv_t>(-1)) return -2;
    char in[1] = {static_cast<char>(byte)}, *inp = in;
    unsigned char out[8] = {};
    char* outp = reinterpret_cast<char*>(out);
    size_t inLeft = 1, outLeft = sizeof out;
    size_t done = iconv(cd, &inp, &inLeft, &outp, &outLeft);
    iconv_close(cd);
    return done == static_cast<size_t>(-1) || outLeft != 4 ? -1
                                                           : out[0] | out[1] << 8 | out[2] << 16;
}

} // namespace

TEST(CodePages, ToUnicodeTablesAgreeWithTheCharsetsAndTheirOwnDeviations) {
    for (int b = 0; b < 256; ++b) {
        long windows = iconvCodePoint("CP1252", static_cast<unsigned char>(b));
        long mac = iconvCodePoint("MACINTOSH", static_cast<unsigned char>(b));
        ASSERT_TRUE(windows != -2 && mac != -2) << "iconv lacks CP1252 or MACINTOSH";
        // Undefined Windows bytes read as themselves.
        EXPECT_EQ(__winToUnicode[b], windows >= 0 ? windows : b) << "Windows byte " << b;
        // glibc keeps the older Greek capital delta at 0xC6 where the mapping has U+2206.
        bool deviation = b == 0x14 || b == 0xBD || b == 0xF0 || b == 0xC6;
        EXPECT_TRUE(deviation || __macToUnicode[b] == mac) << "Mac byte " << b;
        EXPECT_TRUE(b >= 0xA0 || __psToUnicode[b] == (b == 0x60 ? 0x2018 : __winToUnicode[b]))
            << "PostScript byte " << b;
    }
    // Mac: the apple, omega and delta of the mapping. PostScript: StandardEncoding where it has a
    // glyph, its four positions read the framework's way, Latin-1 where it has none.
    const std::pair<const unsigned short*, std::pair<int, unsigned>> rows[] = {
        {__macToUnicode, {0x14, 0xF8FF}}, {__macToUnicode, {0xF0, 0xF8FF}},
        {__macToUnicode, {0xBD, 0x2126}}, {__macToUnicode, {0xC6, 0x2206}},
        {__psToUnicode, {0xA4, 0x2044}},  {__psToUnicode, {0xA9, 0x0027}},
        {__psToUnicode, {0xAE, 0xFB01}},  {__psToUnicode, {0xC7, 0x02C6}},
        {__psToUnicode, {0xCA, 0x00B0}},  {__psToUnicode, {0xD0, 0x201C}},
        {__psToUnicode, {0xFB, 0x00DF}},  {__psToUnicode, {0xA0, 0x00A0}},
        {__psToUnicode, {0xD1, 0x00D1}},  {__psToUnicode, {0xFF, 0x00FF}}};
    for (const auto& [table, row] : rows)
        EXPECT_EQ(table[row.first], row.second)
            << (table == __psToUnicode ? "PS " : "Mac ") << row.first;
}

TEST(CodePages, ConvertEncoding) {
    const int W = GSString::kWindows, M = GSString::kMac, U = GSString::kUTF8,
              U16 = GSString::kUTF16;
    const std::string pair = units(u"h\U0001F600i") + "!"; // four units and an odd byte
    struct Row {
        const char* name;
        std::string in;
        int from, to;
        std::string out;
        short lost;
        int tagAfter = -1; // -1: `to`
    };
    const Row rows[] = {
        {"Windows to Mac, Latin-1 fall-back", "\x81\xE9\x80\xA4", W, M, "\x81\x8E\xDB\xA4", 0},
        {"ligatures become letters", "\xDE\xDF\x14", M, W, "fifl", 1}, // U+F8FF has no byte
        {"UTF-8 to Mac", "\xC3\xA9", U, M, "\x8E", 0},
        {"UTF-8 to Windows", "\xE2\x82\xAC", U, W, "\x80", 0},
        {"a ligature", "\xEF\xAC\x81", U, W, "fi", 0},
        {"PostScript writes Windows", "\xEF\xAC\x82", U, GSString::kPostScript, "fl", 0},
        {"no Mac byte", "\xC2\xB1", U, M, "", 1},
        {"Latin-1 fall-back", "\xC3\x97", U, M, "\xD7", 0},
        {"a mark joins its letter", "e\xCC\x81x", U, M, "\x8Ex", 0},
        {"a mark without a composition", "q\xCC\x81x", U, W, "qx", 1},
        {"beyond the BMP: lost",
         "a\xF0\x9F\x98\x80"
         "b",
         U, W, "ab", 1},
        {"a surrogate code point is skipped", "\xED\xA0\x80z", U, W, "z", 0},
        {"lenient: a stray byte as itself", "\xA9t", U, W, "\xA9t", 0},
        {"lenient: a lead takes what follows", "\xE9t\xE9", U, W, "", 1},
        {"tag 2 is converted as UTF-8", "\xC3\xA9", GSString::kWindowsTable, W, "\xE9", 0},
        {"the apple", "\x14", M, U, "\xEF\xA3\xBF", 0},
        {"the first character makes it UTF-8", "abc", W, GSString::kWindowsTable, "abc", 0, U},
        {"nothing keeps the tag", "", W, GSString::kWindowsTable, "", 0},
        {"PostScript to UTF-8", "`\xAE\xD0", 3, U, "\xE2\x80\x98\xEF\xAC\x81\xE2\x80\x9C", 0},
        {"ASCII as one byte, others as a unit", "A\xE9", W, U16, "A" + units(u"\u00e9"), 0},
        // As it always has: UTF-8 to UTF-16 leaves the text empty, UTF-16 into a code page is
        // read as UTF-8, and UTF-16 becomes UTF-8 whatever else the target.
        {"UTF-8 to UTF-16", "abc", U, U16, "", 0},
        {"UTF-16 to Mac", pair, U16, M, std::string("h\0=\0!", 5), 1},
        {"UTF-16 to tag 200", pair, U16, 200, "h\xF0\x9F\x98\x80i", 0, U},
    };
    for (const Row& r : rows) {
        GSString s = bytes(r.in, r.from);
        EXPECT_EQ(s.convertEncoding(r.to), r.lost) << r.name;
        EXPECT_EQ(text(s), r.out) << r.name;
        EXPECT_EQ(s.getEncoding(), r.tagAfter < 0 ? r.to : r.tagAfter) << r.name;
    }
}

TEST(CodePages, BulkConversionEqualsCharacterByCharacterAppending) {
    // Long texts take the bulk path; the same text appended one character at a time is the
    // reference, capacity included. Every byte but NUL occurs.
    std::string all;
    for (int i = 0; i < 3000; ++i)
        all += static_cast<char>(i % 255 + 1);
    for (int from : {0, 1, 3}) {
        for (int to : {0, 1, 2, 3, 100, 101, 150}) {
            if (from == to) continue;
            SCOPED_TRACE(std::to_string(from) + " to " + std::to_string(to));
            GSString bulk = bytes(all, from), reference;
            short lost = bulk.convertEncoding(to), expectedLost = 0;
            reference.setEncoding(static_cast<unsigned char>(to));
            reference.setSize(static_cast<long>(all.size()) + 1);
            int entries;
            const unsigned short* table = GSGetFromUnicodeTable(to, &entries);
            for (char c : all) {
                unsigned code = GSGetToUnicodeTable(from)[static_cast<unsigned char>(c)];
                if (table)
                    expectedLost |= reference.addCharForUnicode(table, entries, code);
                else
                    reference.addUnicodeChar(code);
            }
            EXPECT_EQ(lost, expectedLost);
            EXPECT_EQ(bulk.getEncoding(), reference.getEncoding());
            EXPECT_EQ(text(bulk), text(reference));
            EXPECT_EQ(bulk.getSize(), reference.getSize());
            // And back from UTF-8: every Windows byte and every Mac byte but two round-trip.
            // U+00B1 has no Mac byte, on purpose; U+F8FF (0xF0) is written as 0x14.
            if (to != GSString::kUTF8) continue;
            std::string expected;
            for (char c : all)
                if (from == GSString::kWindows || c != '\xB1')
                    expected += from == GSString::kMac && c == '\xF0' ? '\x14' : c;
            EXPECT_EQ(bulk.convertEncoding(from), from == GSString::kWindows ? 0 : 1);
            if (from != GSString::kPostScript) {
                EXPECT_EQ(text(bulk), expected);
            }
        }
    }
}
