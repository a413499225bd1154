// StringStorageTest.cpp - GSString's storage forms, sharing, growth and editing.
#include "AllocationCounter.h"
#include "GSString.h"
#include "TextSupport.h"

#include <gtest/gtest.h>

using bench_support::allocationCount;
using namespace testing_support;

TEST(StringStorage, BorrowedAndInlineTextsAllocateNothing) {
    const long before = allocationCount();
    const char* literal = "abc";
    GSString borrowed(literal), copy(borrowed), null;
    EXPECT_EQ(copy.getConstAddr(), literal) << "a C text is borrowed, and so by its copies";
    EXPECT_EQ(borrowed.getSize(), 4);
    EXPECT_EQ(std::pair(null.getSize(), null[0]), std::pair(0L, '\0')) << "no size, no bytes";
    EXPECT_EQ(GSString("caf\xE9").getEncoding(), GSString::kMac) << "invalid UTF-8 is tagged Mac";
    ASSERT_EQ(copy.add('d'), 0);
    EXPECT_EQ(copy.getSize(), GSString::kInlineSize) << "the first edit copies it inline";
    EXPECT_EQ(text(copy) + text(borrowed), "abcdabc");
    GSString s, assigned;
    for (int i = 0; i < 46; ++i)
        ASSERT_EQ(s.add('x'), 0);
    assigned = s.getConstAddr();
    EXPECT_EQ(allocationCount() - before, 0) << "46 bytes of text fit inline";
    EXPECT_EQ(assigned.getSize(), GSString::kInlineSize);

    // Past 46 bytes a buffer; removing keeps it, setSize reserves nothing below 48.
    ASSERT_EQ(s.add('y'), 0);
    EXPECT_GT(s.getSize(), GSString::kInlineSize);
    const long size = s.getSize();
    ASSERT_EQ(s.remove(10, -1), 0);
    EXPECT_EQ(s.setSize(40), 0);
    EXPECT_EQ(s.getSize(), size);
    EXPECT_EQ(s.setSize(200), 0);
    EXPECT_GE(s.getSize(), 200);
    EXPECT_EQ(text(s), std::string(10, 'x'));
}

TEST(StringStorage, CopiesShareABufferThatIsNeverWritten) {
    const std::string hundred(100, 'a');
    GSString original;
    original = hundred.c_str();
    const char* buffer = original.getConstAddr();
    {
        const long before = allocationCount();
        GSString copy(original), assigned;
        assigned = copy;
        EXPECT_EQ(allocationCount() - before, 0) << "copies share the buffer";
        EXPECT_EQ(assigned.getConstAddr(), buffer);
        ASSERT_EQ(copy.add('b'), 0);
        ASSERT_EQ(assigned.remove(0, 1), 0);
        ASSERT_EQ(assigned.insert(5, "zz"), 0);
        EXPECT_EQ(text(copy), hundred + "b");
        EXPECT_EQ(text(assigned), std::string(5, 'a') + "zz" + std::string(94, 'a'));
        GSString cleared(original);
        cleared.clear(); // shared: let go, the original keeps it
        EXPECT_TRUE(cleared.isNull());
    }
    EXPECT_EQ(text(original), hundred) << "the shared buffer was written";
    const long before = allocationCount();
    ASSERT_EQ(original.add('c'), 0);
    original.clear();
    EXPECT_EQ(allocationCount() - before, 0) << "an own buffer is written in place, kept by clear";
    EXPECT_EQ(original.getConstAddr(), buffer);
    EXPECT_EQ(original.getLength(), 0);

    GSString a("short"), b;
    a.add('!');
    b = a;
    b.add('?');
    EXPECT_EQ(text(a) + text(b), "short!short!?") << "inline copies are independent";
}

TEST(StringStorage, AppendingOneByteAtATimeReallocatesLogarithmically) {
    GSString s;
    const long before = allocationCount();
    for (int i = 0; i < 100000; ++i)
        ASSERT_EQ(s.add(static_cast<char>('a' + i % 26)), 0);
    EXPECT_LE(allocationCount() - before, 40) << "growth must double, not add a constant";
    EXPECT_EQ(s.getLength(), 100000);
    EXPECT_EQ(s[99999], 'a' + 99999 % 26);
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
        EXPECT_EQ(text(s), start + start.substr(2));
        s = s.getConstAddr() + 1; // assigned a tail of itself
        EXPECT_EQ(text(s), (start + start.substr(2)).substr(1));
        s.init(s.getConstAddr() + 1, 3, GSString::kWindows);
        EXPECT_EQ(text(s), (start + start.substr(2)).substr(2, 3));
        ASSERT_EQ(s.add(s), 0);
        EXPECT_EQ(s.getLength(), 6);
        EXPECT_EQ(text(copy), start) << "a copy taken before is untouched";
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
    char buffer[] = "volatile";
    GSString owned = GSString::withCopyOf(buffer);
    buffer[0] = 'V';
    EXPECT_EQ(text(owned), "volatile");
    EXPECT_FALSE(owned.initFromCString("\xFF", 0));
    EXPECT_TRUE(GSString(5).isNull()) << "no texts are registered by number";

    // UTF-16: unpaired surrogates become spaces, a high one takes the unit after it along.
    const std::tuple<std::u16string, long, std::string> utf16[] = {
        // clang-format off
        {u"A\u00e9\u20ac\U0001F600", 5, "A\xC3\xA9\xE2\x82\xAC\xF0\x9F\x98\x80"},
        {u"\xDC00x", 2, " x"}, {u"x\xD800", 2, "x "}, {u"\xD800yz", 3, " z"},
        {u"\U0010FFFF", 2, "\xF4\x8F\xBF\xBF"},
        {u"ab", -1, "ab"}, {u"", -1, ""},
        // clang-format on
    };
    for (const auto& [in, count, out] : utf16) {
        GSString s = GSString("x", 1, GSString::kMac);
        s.init(reinterpret_cast<const unsigned short*>(in.c_str()), count);
        EXPECT_EQ(std::tuple(text(s), int(s.getEncoding())), std::tuple(out, U));
    }
}

TEST(StringStorage, AddPromotesToTheHigherTagAndEditsClamp) {
    // UTF-8 appended to single-byte text makes it UTF-8; single-byte text appended to UTF-8 is
    // converted first; between code pages the higher tag wins too.
    const std::tuple<GSString, GSString, std::string, int> rows[] = {
        {GSString("caf\x8E"), GSString("\xC3\xBC"), "caf\xC3\xA9\xC3\xBC", GSString::kUTF8},
        {GSString("\xC3\xA9"), GSString("\x8E"), "\xC3\xA9\xC3\xA9", GSString::kUTF8},
        {bytes("\xE9", 0), bytes("x", 1), "\x8Ex", GSString::kMac},
        {GSString("ab"), GSString("cd"), "abcd", GSString::kUTF8},
    };
    for (const auto& [a, b, sum, tag] : rows)
        EXPECT_EQ(std::tuple(text(a + b), int((a + b).getEncoding())), std::tuple(sum, tag)) << sum;

    GSString s("0123456789");
    EXPECT_EQ(s.remove(3, 0) + s.remove(20, 2) + s.remove(8, 5), 0);
    EXPECT_EQ(s.insert(-4, "ab"), 0);
    EXPECT_EQ(s.insert(99, "yz"), 0);
    EXPECT_EQ(text(s), "ab01234567yz") << "remove stops at the end, insert clamps";
    EXPECT_EQ(s._insert(13, "x", 1), 1) << "_insert outside the text fails";

    GSString word("a\xE2\x82\xAC"
                  "b"),
        out("[]"), part; // a, euro sign, b
    EXPECT_EQ(word.addCharToString(1, &out), 4);
    EXPECT_EQ(word.insertCharInString(0, 1, &out), 1);
    EXPECT_EQ(text(out), "[a]\xE2\x82\xAC");
    EXPECT_EQ(word.addCharToString(5, &out), 5) << "past the end nothing is copied";
    EXPECT_EQ(bytes("\xE2\x82").addCharToString(0, &part), 2) << "a cut character stops at the end";
}
