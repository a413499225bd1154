// StringStorageTest.cpp - GSString's storage forms, sharing, growth and editing.
#include "AllocationCounter.h"
#include "GSString.h"

#include <gtest/gtest.h>

#include <string>

using bench_support::allocationCount;

namespace {

std::string text(const GSString& s) {
    return s.getConstAddr() ? std::string(s.getConstAddr(), s.getLength()) : "<null>";
}

} // namespace

TEST(StringStorage, NullEmptyBorrowedAndInlineForms) {
    const long before = allocationCount();
    GSString null;
    EXPECT_TRUE(null.isNull());
    EXPECT_EQ(null.getSize(), 0);
    EXPECT_EQ(null.getEncoding(), GSString::kUTF8);
    EXPECT_EQ(null[0], 0);

    const char* literal = "abc";
    GSString borrowed(literal);
    EXPECT_EQ(borrowed.getConstAddr(), literal) << "a C text is borrowed, not copied";
    EXPECT_EQ(borrowed.getLength(), 3);
    EXPECT_EQ(borrowed.getSize(), 4);
    EXPECT_EQ(borrowed.getEncoding(), GSString::kUTF8);
    GSString latin("caf\xE9");
    EXPECT_EQ(latin.getEncoding(), GSString::kMac) << "invalid UTF-8 is tagged Mac";

    GSString edited(borrowed);
    EXPECT_EQ(edited.getConstAddr(), literal) << "a copy of a borrowed text borrows it too";
    ASSERT_EQ(edited.add('d'), 0);
    EXPECT_NE(edited.getConstAddr(), literal);
    EXPECT_EQ(edited.getSize(), GSString::kInlineSize) << "the first edit copies it inline";
    EXPECT_EQ(text(edited), "abcd");
    EXPECT_EQ(text(borrowed), "abc");

    GSString empty("");
    EXPECT_FALSE(empty.isNull());
    EXPECT_TRUE(empty.isEmpty());
    EXPECT_EQ(allocationCount() - before, 0) << "borrowed and inline texts allocate nothing";
}

TEST(StringStorage, InlineUpTo46BytesThenABufferOfTwiceTheNeed) {
    const std::string t46(46, 'x');
    GSString s;
    {
        const long before = allocationCount();
        for (char c : t46)
            ASSERT_EQ(s.add(c), 0);
        GSString assigned;
        assigned = t46.c_str();
        EXPECT_EQ(allocationCount() - before, 0) << "46 bytes of text fit inline";
        EXPECT_EQ(s.getSize(), 47);
        EXPECT_EQ(assigned.getSize(), 47);
    }
    const long before = allocationCount();
    ASSERT_EQ(s.add('y'), 0);
    EXPECT_GT(allocationCount() - before, 0);
    EXPECT_EQ(s.getSize(), 96) << "47 bytes and the NUL need 48; the buffer gets twice that";
    EXPECT_EQ(text(s), t46 + "y");

    GSString assigned;
    assigned = (t46 + "y").c_str();
    EXPECT_EQ(assigned.getSize(), 2 * 47 + 2) << "assignment proposes 2n + 2";
    GSString small;
    small = std::string(20, 'z').c_str();
    EXPECT_EQ(small.getSize(), 47);

    // Removing bytes keeps an own buffer; setSize reserves twice what it is asked for.
    ASSERT_EQ(s.remove(10, -1), 0);
    EXPECT_EQ(s.getSize(), 96);
    EXPECT_EQ(s.getLength(), 10);
    EXPECT_EQ(s.setSize(40), 0);
    EXPECT_EQ(s.getSize(), 96) << "below 48 nothing is reserved";
    EXPECT_EQ(s.setSize(200), 0);
    EXPECT_EQ(s.getSize(), 402);
    EXPECT_EQ(text(s), std::string(10, 'x'));
}

TEST(StringStorage, CopiesShareABufferThatIsNeverWritten) {
    const std::string long1(100, 'a');
    GSString original;
    original = long1.c_str();
    const char* bytes = original.getConstAddr();
    {
        const long before = allocationCount();
        GSString copy(original);
        GSString assigned;
        assigned = copy;
        EXPECT_EQ(allocationCount() - before, 0) << "copies share the buffer";
        EXPECT_EQ(copy.getConstAddr(), bytes);
        EXPECT_EQ(assigned.getConstAddr(), bytes);

        ASSERT_EQ(copy.add('b'), 0);
        ASSERT_EQ(assigned.remove(0, 1), 0);
        ASSERT_EQ(assigned.insert(5, "zz"), 0);
        EXPECT_NE(copy.getConstAddr(), bytes) << "an edit of a shared buffer copies it first";
        EXPECT_NE(assigned.getConstAddr(), bytes);
        EXPECT_EQ(text(copy), long1 + "b");
        EXPECT_EQ(text(assigned), std::string(5, 'a') + "zz" + std::string(94, 'a'));
    }
    EXPECT_EQ(original.getConstAddr(), bytes);
    EXPECT_EQ(text(original), long1) << "the shared buffer was written";

    {
        GSString copy(original);
        copy.clear(); // shared: let go, the original keeps it
        EXPECT_TRUE(copy.isNull());
        EXPECT_EQ(text(original), long1);
    }
    const long before = allocationCount();
    ASSERT_EQ(original.add('c'), 0);
    original.clear();
    EXPECT_EQ(allocationCount() - before, 0)
        << "an unshared buffer is written in place and kept by clear";
    EXPECT_EQ(original.getConstAddr(), bytes);
    EXPECT_FALSE(original.isNull());
    EXPECT_EQ(original.getLength(), 0);

    // Inline copies are independent copies of the bytes.
    GSString a("short"), b;
    a.add('!');
    b = a;
    b.add('?');
    EXPECT_EQ(text(a), "short!");
    EXPECT_EQ(text(b), "short!?");
}

TEST(StringStorage, AppendingOneByteAtATimeReallocatesLogarithmically) {
    GSString s;
    const long before = allocationCount();
    for (int i = 0; i < 100000; ++i)
        ASSERT_EQ(s.add(static_cast<char>('a' + i % 26)), 0);
    EXPECT_EQ(s.getLength(), 100000);
    EXPECT_LE(allocationCount() - before, 40) << "growth must double, not add a constant";
    EXPECT_EQ(s[99999], 'a' + 99999 % 26);
    EXPECT_EQ(s[100000], 0);
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
}

TEST(StringStorage, InitFromBytesAndCText) {
    GSString s;
    s.init("a\0b", 3, GSString::kWindows);
    EXPECT_EQ(s.getLength(), 3) << "a given length counts embedded NULs";
    EXPECT_EQ(s.getEncoding(), GSString::kWindows);
    s.init("\xC3\xA9", 2, -2);
    EXPECT_EQ(s.getEncoding(), GSString::kUTF8) << "-2 tags valid UTF-8 as such";
    s.init("\xE9", 1, -2);
    EXPECT_EQ(s.getEncoding(), GSString::kMac);
    s.init("\xC3\xA9", 2, -1);
    EXPECT_EQ(s.getEncoding(), GSString::kMac) << "-1 tags Mac whatever the bytes";
    s.init("xyz", -1, GSString::kPostScript);
    EXPECT_EQ(text(s), "xyz");
    EXPECT_EQ(s.getEncoding(), GSString::kPostScript);
    s.init("xyz", 0, 7);
    EXPECT_TRUE(s.isNull()) << "no bytes: the null string";
    EXPECT_EQ(s.getEncoding(), 7);

    char buffer[] = "volatile";
    GSString owned = GSString::withCopyOf(buffer);
    buffer[0] = 'V';
    EXPECT_EQ(text(owned), "volatile");
    EXPECT_FALSE(owned.initFromCString("\xFF", 0));
    EXPECT_EQ(owned.getEncoding(), GSString::kMac);

    GSString numbered(5), zero(0);
    EXPECT_TRUE(numbered.isNull()) << "no texts are registered by number";
    EXPECT_TRUE(zero.isNull());
}

TEST(StringStorage, InitFromUTF16) {
    auto utf16 = [](std::initializer_list<unsigned short> units, long count) {
        GSString s;
        s.setEncoding(GSString::kMac);
        s.init(std::data(units), count);
        EXPECT_EQ(s.getEncoding(), GSString::kUTF8);
        return text(s);
    };
    EXPECT_EQ(utf16({'A', 0xE9, 0x20AC, 0xD83D, 0xDE00}, 5),
              "A\xC3\xA9\xE2\x82\xAC\xF0\x9F\x98\x80");
    EXPECT_EQ(utf16({0xDC00, 'x'}, 2), " x") << "a lone low surrogate";
    EXPECT_EQ(utf16({'x', 0xD800}, 2), "x ") << "a high surrogate at the end";
    EXPECT_EQ(utf16({0xD800, 'y', 'z'}, 3), " z") << "the unit after a lone high goes with it";
    EXPECT_EQ(utf16({0xDBFF, 0xDFFF}, 2), "\xF4\x8F\xBF\xBF");
    EXPECT_EQ(utf16({'a', 'b', 0, 'c'}, -1), "ab") << "a negative count stops at a 0 unit";
    EXPECT_EQ(utf16({0}, -1), "<null>");
}

TEST(StringStorage, AddPromotesToTheHigherTag) {
    GSString mac("caf\x8E"); // tagged Mac: not UTF-8
    ASSERT_EQ(mac.getEncoding(), GSString::kMac);
    EXPECT_EQ(mac.add(GSString("\xC3\xBC")), 0);
    EXPECT_EQ(mac.getEncoding(), GSString::kUTF8) << "UTF-8 appended makes the whole text UTF-8";
    EXPECT_EQ(text(mac), "caf\xC3\xA9\xC3\xBC");

    GSString utf8("\xC3\xA9");
    EXPECT_EQ(utf8.add(GSString("\x8E")), 0);
    EXPECT_EQ(text(utf8), "\xC3\xA9\xC3\xA9") << "single-byte text is converted before it is added";

    GSString windows("\xE9", 1, GSString::kWindows);
    EXPECT_EQ(windows.add(GSString("x", 1, GSString::kMac)), 0);
    EXPECT_EQ(windows.getEncoding(), GSString::kMac);
    EXPECT_EQ(text(windows), "\x8Ex");

    GSString sum = GSString("ab") + GSString("cd");
    EXPECT_EQ(text(sum), "abcd");
}

TEST(StringStorage, RemoveInsertAndWholeCharacters) {
    GSString s("0123456789");
    EXPECT_EQ(s.remove(3, 0), 0);
    EXPECT_EQ(s.remove(20, 2), 0);
    EXPECT_EQ(text(s), "0123456789");
    EXPECT_EQ(s.remove(8, 5), 0);
    EXPECT_EQ(text(s), "01234567") << "n past the end stops at the end";
    EXPECT_EQ(s.insert(-4, "ab"), 0);
    EXPECT_EQ(s.insert(99, "yz"), 0);
    EXPECT_EQ(text(s), "ab01234567yz") << "insert clamps its position";
    EXPECT_EQ(s._insert(13, "x", 1), 1) << "_insert outside the text fails";

    GSString word("a\xE2\x82\xAC"
                  "b"); // a, euro sign, b
    GSString out("[]");
    EXPECT_EQ(word.addCharToString(1, &out), 4);
    EXPECT_EQ(word.insertCharInString(0, 1, &out), 1);
    EXPECT_EQ(text(out), "[a]\xE2\x82\xAC");
    EXPECT_EQ(word.addCharToString(5, &out), 5) << "past the end nothing is copied";
    GSString cut("\xE2\x82", 2, GSString::kUTF8);
    GSString part;
    EXPECT_EQ(cut.addCharToString(0, &part), 2) << "a character cut short stops at the end";
    EXPECT_EQ(part.getLength(), 2);
}
