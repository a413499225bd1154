// StringStorageTest.cpp - GSString's storage forms, sharing, growth and editing.
#include "AllocationCounter.h"
#include "TextSupport.h"
#include "text/GSString.h"

#include <gtest/gtest.h>

using bench_support::allocationCount;
using namespace testing_support;

TEST(StringStorage, BorrowedInlineAndSharedTexts) {
    // A C text is borrowed, and so by its copies; the first edit copies it inline, and 46 bytes
    // of text fit there without an allocation. Invalid UTF-8 is tagged Mac.
    long before = allocationCount();
    const char* literal = "abc";
    GSString borrowed(literal), copy(borrowed), null, s, assigned;
    EXPECT_EQ(copy.getConstAddr(), literal);
    EXPECT_EQ(std::tuple(borrowed.getSize(), null.getSize(), null[0]), std::tuple(4L, 0L, '\0'));
    EXPECT_EQ(GSString("caf\xE9").getEncoding(), GSString::kMac);
    ASSERT_EQ(copy.add('d'), 0);
    for (int i = 0; i < 46; ++i)
        ASSERT_EQ(s.add('x'), 0);
    assigned = s.getConstAddr();
    EXPECT_EQ(std::tuple(text(copy) + text(borrowed), copy.getSize(), assigned.getSize()),
              std::tuple("abcdabc", GSString::kInlineSize, GSString::kInlineSize));
    EXPECT_EQ(allocationCount() - before, 0);

    // Past 46 bytes a buffer, which copies share and never write: each copy's first edit, or
    // clear, lets go of it. An own buffer is written in place and kept by remove, clear and a
    // setSize below its capacity.
    ASSERT_EQ(s.add('y'), 0);
    const std::string original = std::string(46, 'x') + "y";
    const char* buffer = s.getConstAddr();
    const long size = s.getSize();
    before = allocationCount();
    {
        GSString shared(s), other;
        other = shared;
        EXPECT_EQ(std::pair(allocationCount() - before, other.getConstAddr()),
                  std::pair(0L, buffer));
        ASSERT_FALSE(shared.add('b') || other.remove(0, 1) || other.insert(5, "zz"));
        EXPECT_EQ(text(shared) + "|" + text(other),
                  original + "b|" + std::string(5, 'x') + "zz" + original.substr(6));
        GSString cleared(s);
        cleared.clear();
        EXPECT_TRUE(cleared.isNull());
    }
    EXPECT_EQ(text(s), original) << "the shared buffer was written";
    before = allocationCount();
    ASSERT_FALSE(s.remove(10, -1) || s.setSize(40) || s.add('c'));
    EXPECT_EQ(std::tuple(text(s), s.getSize(), s.getConstAddr(), allocationCount() - before),
              std::tuple(std::string(10, 'x') + "c", size, buffer, 0L));
    s.clear();
    EXPECT_EQ(std::tuple(s.getLength(), s.getConstAddr()), std::tuple(0L, buffer));
    EXPECT_TRUE(s.setSize(200) == 0 && s.getSize() >= 200);

    GSString grown;
    before = allocationCount();
    for (int i = 0; i < 100000; ++i)
        ASSERT_EQ(grown.add(static_cast<char>('a' + i % 26)), 0);
    EXPECT_LE(allocationCount() - before, 40) << "growth must double, not add a constant";
    EXPECT_EQ(std::pair(grown.getLength(), grown[99999]),
              std::pair(100000L, char('a' + 99999 % 26)));
}

TEST(StringStorage, EditsReadingTheirOwnBytes) {
    for (std::string start : {std::string("hello"), std::string(60, 'h')}) {
        SCOPED_TRACE(start.size());
        GSString s;
        s = start.c_str();
        GSString copy(s);
        ASSERT_EQ(s.insert(1, s.getConstAddr()), 0) << "own text inserted into itself";
        EXPECT_EQ(text(s), start.substr(0, 1) + start + start.substr(1));
        s = start.c_str();
        ASSERT_EQ(s.add(s.getConstAddr() + 2), 0);
        const std::string added = start + start.substr(2);
        s = s.getConstAddr() + 1; // assigned a tail of itself
        EXPECT_EQ(text(s), added.substr(1));
        s.init(s.getConstAddr() + 1, 3, GSString::kWindows);
        ASSERT_EQ(s.add(s), 0);
        EXPECT_EQ(text(s) + "|" + text(copy),
                  added.substr(2, 3) + added.substr(2, 3) + "|" + start);
    }
    GSString own;
    own = std::string(60, 'u').c_str();
    own.init(reinterpret_cast<const unsigned short*>(own.getConstAddr()), 3);
    EXPECT_EQ(text(own), "\xE7\x95\xB5\xE7\x95\xB5\xE7\x95\xB5") << "its own units, U+7575";
}

TEST(StringStorage, InitTagsAndCopies) {
    // Rows: bytes, length (negative: to the NUL), tag (-2: UTF-8 when valid, else Mac; -1: Mac),
    // the text and tag after.
    const int W = GSString::kWindows, M = GSString::kMac, U = GSString::kUTF8;
    const std::tuple<const char*, long, int, std::string, int> rows[] = {
        // clang-format off
        {"a\0b", 3, W, std::string("a\0b", 3), W}, {"\xC3\xA9", 2, -2, "\xC3\xA9", U},
        {"\xE9", 1, -2, "\xE9", M}, {"\xC3\xA9", 2, -1, "\xC3\xA9", M}, {"xyz", -1, 3, "xyz", 3},
        {"xyz", 0, 7, "", 7}, // no bytes: the null string
        // clang-format on
    };
    for (const auto& [in, length, tag, out, tagAfter] : rows) {
        GSString s;
        s.init(in, length, tag);
        EXPECT_EQ(std::tuple(text(s), int(s.getEncoding())), std::tuple(out, tagAfter)) << in;
    }
    // UTF-16: unpaired surrogates become spaces, a high one takes the unit after it along.
    const std::tuple<std::u16string, long, std::string> utf16[] = {
        // clang-format off
        {u"A\u00e9\u20ac\U0001F600", 5, "A\xC3\xA9\xE2\x82\xAC\xF0\x9F\x98\x80"},
        {u"\xDC00x", 2, " x"}, {u"x\xD800", 2, "x "}, {u"\xD800yz", 3, " z"},
        {u"\U0010FFFF", 2, "\xF4\x8F\xBF\xBF"}, {u"ab", -1, "ab"}, {u"", -1, ""},
        // clang-format on
    };
    for (const auto& [in, count, out] : utf16) {
        GSString s = GSString("x", 1, GSString::kMac);
        s.init(reinterpret_cast<const unsigned short*>(in.c_str()), count);
        EXPECT_EQ(std::tuple(text(s), int(s.getEncoding())), std::tuple(out, U));
    }
    char buffer[] = "volatile";
    GSString owned = GSString::withCopyOf(buffer);
    buffer[0] = 'V';
    EXPECT_EQ(text(owned), "volatile");
    EXPECT_FALSE(owned.initFromCString("\xFF", 0));
    EXPECT_TRUE(GSString(5).isNull()) << "no texts are registered by number";
}

TEST(StringStorage, AddPromotesToTheHigherTagAndEditsClamp) {
    // UTF-8 appended to single-byte text makes it UTF-8; single-byte text appended to UTF-8 is
    // converted first; between code pages the higher tag wins too.
    const std::tuple<GSString, GSString, std::string, int> rows[] = {
        {GSString("caf\x8E"), GSString("\xC3\xBC"), "caf\xC3\xA9\xC3\xBC", GSString::kUTF8},
        {GSString("\xC3\xA9"), GSString("\x8E"), "\xC3\xA9\xC3\xA9", GSString::kUTF8},
        {bytes("\xE9", 0), bytes("x", 1), "\x8Ex", GSString::kMac},
    };
    for (const auto& [a, b, sum, tag] : rows)
        EXPECT_EQ(std::tuple(text(a + b), int((a + b).getEncoding())), std::tuple(sum, tag)) << sum;

    // remove stops at the end, insert clamps, _insert outside the text fails.
    GSString s("0123456789");
    ASSERT_FALSE(s.remove(3, 0) || s.remove(20, 2) || s.remove(8, 5) || s.insert(-4, "ab") ||
                 s.insert(99, "yz"));
    EXPECT_EQ(std::pair(text(s), s._insert(13, "x", 1)),
              std::pair(std::string("ab01234567yz"), short(1)));

    // a, euro sign, b; past the end nothing is copied, a cut character stops at the end.
    GSString word("a\xE2\x82\xAC\x62"), out("[]"), part;
    EXPECT_EQ(
        (std::tuple{word.addCharToString(1, &out), word.insertCharInString(0, 1, &out),
                    word.addCharToString(5, &out), bytes("\xE2\x82").addCharToString(0, &part)}),
        std::tuple(4L, 1L, 5L, 2L));
    EXPECT_EQ(text(out), "[a]\xE2\x82\xAC");
}
