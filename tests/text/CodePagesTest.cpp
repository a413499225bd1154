// CodePagesTest.cpp - GSString::convertEncoding between every pair of tags.
//
// The tables themselves are checked by their generator against the vendors' mappings; here the
// framework's own departures (the apple, the PostScript quotes and ligatures) show in the rows.
#include "TextSupport.h"
#include "text/GSCodePages.h"
#include "text/GSString.h"

#include <gtest/gtest.h>

using namespace testing_support;

TEST(CodePages, ConvertEncoding) {
    const int W = GSString::kWindows, M = GSString::kMac, U = GSString::kUTF8,
              U16 = GSString::kUTF16;
    const std::string pair = units(u"h\U0001F600i") + "!"; // four units and an odd byte
    // Rows: name, text, its tag, the target tag, text after, lost, tag after (-1: the target).
    using Row = std::tuple<const char*, std::string, int, int, std::string, short, int>;
    const Row rows[] = {
        {"Windows to Mac, Latin-1 fall-back", "\x81\xE9\x80\xA4", W, M, "\x81\x8E\xDB\xA4", 0, -1},
        {"ligatures become letters", "\xDE\xDF\x14", M, W, "fifl", 1, -1}, // U+F8FF has no byte
        {"UTF-8 to Mac", "\xC3\xA9", U, M, "\x8E", 0, -1},
        {"PostScript writes Windows", "\xEF\xAC\x82", U, GSString::kPostScript, "fl", 0, -1},
        {"no Mac byte", "\xC2\xB1", U, M, "", 1, -1},
        {"Latin-1 fall-back", "\xC3\x97", U, M, "\xD7", 0, -1},
        {"a mark joins its letter", "e\xCC\x81x", U, M, "\x8Ex", 0, -1},
        {"a mark without a composition", "q\xCC\x81x", U, W, "qx", 1, -1},
        {"beyond the BMP: lost", "a\xF0\x9F\x98\x80\x62", U, W, "ab", 1, -1},
        {"a surrogate code point is skipped", "\xED\xA0\x80z", U, W, "z", 0, -1},
        {"lenient: a stray byte as itself", "\xA9t", U, W, "\xA9t", 0, -1},
        {"lenient: a lead takes what follows", "\xE9t\xE9", U, W, "", 1, -1},
        {"tag 2 is converted as UTF-8", "\xC3\xA9", GSString::kWindowsTable, W, "\xE9", 0, -1},
        {"the apple", "\x14", M, U, "\xEF\xA3\xBF", 0, -1},
        {"ohm and increment", "\xBD\xC6", M, U, "\xE2\x84\xA6\xE2\x88\x86", 0, -1},
        {"the first character makes it UTF-8", "abc", W, GSString::kWindowsTable, "abc", 0, U},
        {"nothing keeps the tag", "", W, GSString::kWindowsTable, "", 0, -1},
        {"PostScript to UTF-8", "`\xAE\xD0", 3, U, "\xE2\x80\x98\xEF\xAC\x81\xE2\x80\x9C", 0, -1},
        {"ASCII as one byte, others as a unit", "A\xE9", W, U16, "A" + units(u"\u00e9"), 0, -1},
        // As it always has: UTF-8 to UTF-16 leaves the text empty, UTF-16 into a code page is
        // read as UTF-8, and UTF-16 becomes UTF-8 whatever else the target.
        {"UTF-8 to UTF-16", "abc", U, U16, "", 0, -1},
        {"UTF-16 to Mac", pair, U16, M, std::string("h\0=\0!", 5), 1, -1},
        {"UTF-16 to tag 200", pair, U16, 200, "h\xF0\x9F\x98\x80i", 0, U},
    };
    for (const auto& [name, in, from, to, out, lost, tagAfter] : rows) {
        GSString s = bytes(in, from);
        short got = s.convertEncoding(to);
        EXPECT_EQ(std::tuple(got, text(s), int(s.getEncoding())),
                  std::tuple(lost, out, tagAfter < 0 ? to : tagAfter))
            << name;
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
            EXPECT_EQ(std::tuple(lost, int(bulk.getEncoding()), text(bulk), bulk.getSize()),
                      std::tuple(expectedLost, int(reference.getEncoding()), text(reference),
                                 reference.getSize()));
            // And back from UTF-8: every Windows byte and every Mac byte but two round-trip.
            // U+00B1 has no Mac byte, on purpose; U+F8FF (0xF0) is written as 0x14.
            if (to != GSString::kUTF8) continue;
            std::string expected;
            for (char c : all)
                if (from == GSString::kWindows || c != '\xB1')
                    expected += from == GSString::kMac && c == '\xF0' ? '\x14' : c;
            EXPECT_EQ(bulk.convertEncoding(from), from == GSString::kWindows ? 0 : 1);
            EXPECT_TRUE(from == GSString::kPostScript || text(bulk) == expected);
        }
    }
}
