// CodePagesTest.cpp - the code-page tables and GSString::convertEncoding.
#include "GSCodePages.h"
#include "GSFile.h"
#include "GSString.h"
#include "TestSupport.h"

#include <gtest/gtest.h>

#include <cstring>
#include <iconv.h>
#include <string>

using testing_support::MemoryFile;

namespace {

std::string text(const GSString& s) {
    return s.getConstAddr() ? std::string(s.getConstAddr(), s.getLength()) : "<null>";
}

GSString bytes(const std::string& b, int tag) {
    return GSString(b.data(), static_cast<long>(b.size()), tag);
}

// The code point glibc's iconv gives one byte of `charset`, or -1 when it has none.
long iconvCodePoint(const char* charset, unsigned char byte) {
    iconv_t cd = iconv_open("UTF-32LE", charset);
    if (cd == reinterpret_cast<iconv_t>(-1)) return -2;
    char in[1] = {static_cast<char>(byte)};
    unsigned char out[8] = {};
    char* inp = in;
    char* outp = reinterpret_cast<char*>(out);
    size_t inLeft = 1, outLeft = sizeof out;
    size_t done = iconv(cd, &inp, &inLeft, &outp, &outLeft);
    iconv_close(cd);
    if (done == static_cast<size_t>(-1) || outLeft != 4) return -1;
    return out[0] | out[1] << 8 | out[2] << 16;
}

void expectSortedTable(const unsigned short* table, int entries, const char* name) {
    for (int i = 1; i < entries; ++i)
        EXPECT_LT(table[2 * (i - 1)], table[2 * i]) << name << " is not sorted at entry " << i;
}

} // namespace

TEST(CodePages, ToUnicodeTablesAgreeWithTheCharsetsAndTheirOwnDeviations) {
    for (int b = 0; b < 256; ++b) {
        long windows = iconvCodePoint("CP1252", static_cast<unsigned char>(b));
        long mac = iconvCodePoint("MACINTOSH", static_cast<unsigned char>(b));
        ASSERT_NE(windows, -2) << "iconv lacks CP1252";
        ASSERT_NE(mac, -2) << "iconv lacks MACINTOSH";
        if (windows >= 0) {
            EXPECT_EQ(__winToUnicode[b], windows) << "Windows byte " << b;
        } else {
            EXPECT_EQ(__winToUnicode[b], b) << "undefined Windows bytes read as themselves";
        }
        // glibc keeps the older Greek capital delta at 0xC6 where the mapping has U+2206.
        if (b != 0x14 && b != 0xBD && b != 0xF0 && b != 0xC6) {
            EXPECT_EQ(__macToUnicode[b], mac) << "Mac byte " << b;
        }
    }
    EXPECT_EQ(__macToUnicode[0x14], 0xF8FF);
    EXPECT_EQ(__macToUnicode[0xF0], 0xF8FF);
    EXPECT_EQ(__macToUnicode[0xBD], 0x2126);
    EXPECT_EQ(__macToUnicode[0xDB], 0x20AC);
    EXPECT_EQ(__macToUnicode[0xC6], 0x2206);

    for (int b = 0; b < 0x80; ++b)
        EXPECT_EQ(__psToUnicode[b], b == 0x60 ? 0x2018 : b) << "PostScript byte " << b;
    for (int b = 0x80; b < 0xA0; ++b)
        EXPECT_EQ(__psToUnicode[b], __winToUnicode[b]);
    // StandardEncoding where it has a glyph, its four positions read the framework's way,
    // Latin-1 where it has none.
    const std::pair<int, unsigned> postscript[] = {
        {0xA4, 0x2044}, {0xA9, 0x0027}, {0xAE, 0xFB01}, {0xC7, 0x02C6}, {0xCA, 0x00B0},
        {0xD0, 0x201C}, {0xFB, 0x00DF}, {0xA0, 0x00A0}, {0xD1, 0x00D1}, {0xFF, 0x00FF}};
    for (auto [b, code] : postscript)
        EXPECT_EQ(__psToUnicode[b], code) << "PostScript " << b;

    expectSortedTable(__unicodeToWin, GSUnicodeToWinEntries, "__unicodeToWin");
    expectSortedTable(__unicodeToMac, GSUnicodeToMacEntries, "__unicodeToMac");
    for (int b = 0; b < 256; ++b)
        for (const unsigned short* table : {__winToUnicode, __macToUnicode, __psToUnicode})
            EXPECT_FALSE(table[b] >= 0x0300 && table[b] <= 0x036F)
                << "no code page byte may read as a combining mark";
}

TEST(CodePages, ConvertEncodingBetweenCodePages) {
    // Mac bytes from the Windows code page: through the Mac table or, without an entry, as
    // their Latin-1 byte.
    GSString w = bytes("\x81\xE9\x80\xA4", GSString::kWindows);
    EXPECT_EQ(w.convertEncoding(GSString::kMac), 0);
    EXPECT_EQ(text(w), "\x81\x8E\xDB\xA4");
    GSString m = bytes("\xDE\xDF\x14", GSString::kMac);
    EXPECT_EQ(m.convertEncoding(GSString::kWindows), 1) << "U+F8FF has no Windows byte";
    EXPECT_EQ(text(m), "fifl") << "ligatures become their letters";
}

TEST(CodePages, ConvertEncodingFromUnicode) {
    struct Case {
        std::string utf8;
        int target;
        std::string expected;
        short lost;
    } cases[] = {
        {"\xC3\xA9", GSString::kMac, "\x8E", 0},
        {"\xE2\x82\xAC", GSString::kWindows, "\x80", 0},
        {"\xEF\xAC\x81", GSString::kWindows, "fi", 0},
        {"\xEF\xAC\x82", GSString::kPostScript, "fl", 0}, // written with the Windows table
        {"\xC2\xB1", GSString::kMac, "", 1},
        {"\xC3\x97", GSString::kMac, "\xD7", 0},    // Latin-1 fall-back, read back differently
        {"e\xCC\x81x", GSString::kMac, "\x8Ex", 0}, // a combining mark joins its letter
        {"q\xCC\x81x", GSString::kWindows, "qx", 1},
        {"a\xF0\x9F\x98\x80"
         "b",
         GSString::kWindows, "ab", 1},                 // beyond the BMP: lost
        {"\xED\xA0\x80z", GSString::kWindows, "z", 0}, // a surrogate code point is skipped
        {"\xA9t", GSString::kWindows, "\xA9t", 0},     // lenient: a stray byte reads as itself
        {"\xE9t\xE9", GSString::kWindows, "", 1},      // lenient: a lead byte takes what follows
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.utf8 + " to " + std::to_string(c.target));
        GSString s = bytes(c.utf8, GSString::kUTF8);
        EXPECT_EQ(s.convertEncoding(c.target), c.lost);
        EXPECT_EQ(s.getEncoding(), c.target);
        EXPECT_EQ(s.isNull() ? "" : text(s), c.expected);
    }
    GSString wide("abc");
    EXPECT_EQ(wide.convertEncoding(GSString::kUTF16), 0);
    EXPECT_EQ(wide.getEncoding(), GSString::kUTF16);
    EXPECT_EQ(wide.getLength(), 0) << "UTF-8 to UTF-16 leaves the string empty, as it always has";

    GSString tag2 = bytes("\xC3\xA9", GSString::kWindowsTable);
    EXPECT_EQ(tag2.convertEncoding(GSString::kWindows), 0);
    EXPECT_EQ(text(tag2), "\xE9") << "tag 2 is converted as UTF-8";
}

TEST(CodePages, ConvertEncodingToUnicode) {
    GSString apple = bytes("\x14", GSString::kMac);
    EXPECT_EQ(apple.convertEncoding(GSString::kUTF8), 0);
    EXPECT_EQ(text(apple), "\xEF\xA3\xBF");

    GSString abc = bytes("abc", GSString::kWindows);
    EXPECT_EQ(abc.convertEncoding(GSString::kWindowsTable), 0);
    EXPECT_EQ(abc.getEncoding(), GSString::kUTF8) << "the first character makes it UTF-8";
    EXPECT_EQ(text(abc), "abc");
    GSString empty = bytes("", GSString::kWindows);
    EXPECT_EQ(empty.convertEncoding(GSString::kWindowsTable), 0);
    EXPECT_EQ(empty.getEncoding(), GSString::kWindowsTable);

    GSString ps = bytes("`\xAE\xD0", GSString::kPostScript);
    EXPECT_EQ(ps.convertEncoding(GSString::kUTF8), 0);
    EXPECT_EQ(text(ps), "\xE2\x80\x98\xEF\xAC\x81\xE2\x80\x9C");

    GSString units = bytes("A\xE9", GSString::kWindows);
    EXPECT_EQ(units.convertEncoding(GSString::kUTF16), 0);
    unsigned short e9 = 0xE9;
    EXPECT_EQ(text(units), "A" + std::string(reinterpret_cast<const char*>(&e9), 2))
        << "ASCII is appended as one byte, other characters as a unit in machine order";

    const unsigned short pair[] = {'h', 0xD83D, 0xDE00, 'i'};
    char raw[sizeof pair + 1] = {}; // four units and an odd byte
    std::memcpy(raw, pair, sizeof pair);
    GSString utf16(raw, sizeof raw, GSString::kUTF16);
    EXPECT_EQ(utf16.convertEncoding(GSString::kMac), 1)
        << "UTF-16 is read as UTF-8 into a code page";
    GSString fromUnits(raw, sizeof raw, GSString::kUTF16);
    EXPECT_EQ(fromUnits.convertEncoding(GSString::kWindows + 200), 0);
    EXPECT_EQ(fromUnits.getEncoding(), GSString::kUTF8)
        << "UTF-16 becomes UTF-8 whatever the target";
    EXPECT_EQ(text(fromUnits), "h\xF0\x9F\x98\x80i") << "an odd last byte is not a unit";
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
            GSString bulk = bytes(all, from);
            short lost = bulk.convertEncoding(to);
            GSString reference;
            reference.setEncoding(static_cast<unsigned char>(to));
            reference.setSize(static_cast<long>(all.size()) + 1);
            int entries;
            const unsigned short* table = GSGetFromUnicodeTable(to, &entries);
            const unsigned short* source = GSGetToUnicodeTable(from);
            short expectedLost = 0;
            for (char c : all) {
                unsigned code = source[static_cast<unsigned char>(c)];
                if (table)
                    expectedLost |= reference.addCharForUnicode(table, entries, code);
                else
                    reference.addUnicodeChar(code);
            }
            EXPECT_EQ(lost, expectedLost);
            EXPECT_EQ(bulk.getEncoding(), reference.getEncoding());
            EXPECT_EQ(text(bulk), text(reference));
            EXPECT_EQ(bulk.getSize(), reference.getSize());
            // And back again from UTF-8: every Windows byte and every Mac byte but two round-trip.
            // U+00B1 has no Mac byte, on purpose; U+F8FF (0xF0) is written as 0x14.
            if (to == GSString::kUTF8) {
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
}

TEST(CodePages, ReadingConvertsSingleByteTextToMac) {
    MemoryFile m;
    ASSERT_EQ(m.file.writeShort(6), 0); // the old form: a positive count of Windows text
    ASSERT_EQ(m.file.write("caf\xE9!", 6), 0);
    ASSERT_EQ(GSString("\xC3\xA9t\xC3\xA9").write(&m.file), 0);
    m.file.seek(0, 0);
    GSString s;
    ASSERT_EQ(s.read(&m.file), 0);
    EXPECT_EQ(s.getEncoding(), GSString::kMac);
    EXPECT_EQ(text(s), "caf\x8E!");
    ASSERT_EQ(s.read(&m.file), 0);
    EXPECT_EQ(s.getEncoding(), GSString::kUTF8) << "Unicode text is kept as it is";
    EXPECT_EQ(text(s), "\xC3\xA9t\xC3\xA9");
}
