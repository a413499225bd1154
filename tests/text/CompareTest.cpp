// CompareTest.cpp - the orderings and byte searches of GSString.
#include "GSString.h"

#include <gtest/gtest.h>

#include <string>

namespace {

std::string text(const GSString& s) {
    return s.getConstAddr() ? std::string(s.getConstAddr(), static_cast<size_t>(s.getLength()))
                            : std::string();
}

int sign(int v) {
    return (v > 0) - (v < 0);
}

GSString tagged(const char* bytes, int tag) {
    return GSString(bytes, static_cast<long>(std::strlen(bytes)), tag);
}

} // namespace

TEST(Compare, CodePointOrderAcrossEncodingsAndSpellings) {
    const GSString empty = GSString::withCopyOf("");
    EXPECT_EQ(empty.compareValue(GSString::null), 0);
    EXPECT_EQ(GSString::null.compareValue(empty), 0);
    EXPECT_EQ(empty.compareValue(GSString("a")), -1);
    EXPECT_EQ(GSString("a").compareValue(GSString::null), 1);

    struct Case {
        GSString a, b;
        int expected; // exact where the ordering gives a code-point difference
        const char* what;
    };
    const Case cases[] = {
        {GSString("\xC3\xA9"), GSString("e\xCC\x81"), 0, "precomposed and decomposed e acute"},
        {tagged("caf\x8E", GSString::kMac), GSString("cafe\xCC\x81"), 0, "Mac and UTF-8 spelling"},
        {tagged("caf\xE9", GSString::kWindows), tagged("caf\x8E", GSString::kMac), 0,
         "Windows and Mac spelling"},
        {tagged("abc", GSString::kWindows), GSString("abc"), 0, "tag 0 and UTF-8, same text"},
        {tagged("abc", GSString::kMac), tagged("abd", GSString::kMac), 'c' - 'd', "memcmp"},
        {tagged("ab", GSString::kMac), tagged("abc", GSString::kMac), -1, "prefix first"},
        // Decomposed, e-acute sorts between e and f, unlike its bytes (0xC3 > 'f').
        {GSString("\xC3\xA9"), GSString("f"), 'e' - 'f', "e acute before f"},
        {GSString("\xC3\xA9"), GSString("e"), 1, "e acute after e"},
        {GSString("e"), GSString("e\xCC\x81"), -1, "a letter before itself with a mark"},
        {GSString("abc"), GSString("abd"), 'c' - 'd', "ASCII"},
        {GSString("Zebra"), GSString("apple"), 'Z' - 'a', "case matters"},
        {GSString("\xE2\x82\xAC"), GSString("\xC2\xA3"), 0x20AC - 0xA3, "euro after pound"},
    };
    for (const Case& c : cases) {
        EXPECT_EQ(c.a.compareValue(c.b), c.expected) << c.what;
        EXPECT_EQ(sign(c.b.compareValue(c.a)), -sign(c.expected)) << c.what << " (reversed)";
    }
}

TEST(Compare, CaselessPrefixCountsBytesOfTheFirstString) {
    EXPECT_LT(GSString("ABC").compareValueCaseless(GSString("abd")), 0);
    EXPECT_EQ(GSString("ABC").compareValueCaseless(GSString("abc")), 0);
    EXPECT_EQ(GSString("ABCx").compareValueCountCaseless(GSString("abcy"), 3), 0);
    EXPECT_NE(GSString("ABCx").compareValueCountCaseless(GSString("abcy"), 4), 0);
    EXPECT_EQ(GSString("ab").compareValueCaseless(GSString("AB!")), -1);
    EXPECT_EQ(GSString("ab!").compareValueCaseless(GSString("AB")), 1);
    // Only the C runtime's upper case: o-slash keeps its case, while e-acute matches E-acute
    // through its decomposition.
    EXPECT_NE(GSString("\xC3\xB8").compareValueCaseless(GSString("\xC3\x98")), 0);
    EXPECT_EQ(GSString("\xC3\xA9").compareValueCaseless(GSString("\xC3\x89")), 0);
    // The count is in bytes of the first string: e-acute is two bytes, so a count of 2 covers
    // "e" and its mark, a count of 1 only the e.
    EXPECT_EQ(GSString("\xC3\xA9z").compareValueCountCaseless(GSString("E\xCC\x81y"), 2), 0);
    EXPECT_EQ(GSString("ez").compareValueCountCaseless(GSString("Ey"), 1), 0);
    EXPECT_EQ(GSString::null.compareValueCaseless(GSString::withCopyOf("")), 0);
}

TEST(Compare, BytesAndSearches) {
    const GSString empty = GSString::withCopyOf("");
    EXPECT_EQ(GSString::null.compareValueSimple(empty), 0);
    EXPECT_EQ(GSString::null.compareValueSimple(GSString::null), 0);
    EXPECT_EQ(GSString::null.compareValueSimple(GSString("a")), -1);
    EXPECT_EQ(GSString("a").compareValueSimple(GSString::null), 1);
    EXPECT_EQ(GSString("a").compareValueSimple(static_cast<const char*>(nullptr)), 1);
    EXPECT_GT(GSString("\xC3\xA9").compareValueSimple("f"), 0) << "bytes, not code points";
    EXPECT_LT(GSString("abc").compareValueSimple("abd"), 0);

    EXPECT_TRUE(GSString("abcd").isEqualCount(GSString("abcx"), 3));
    EXPECT_FALSE(GSString("abcd").isEqualCount(GSString("abcx"), 4));
    EXPECT_FALSE(GSString::null.isEqualCount(empty, 0)) << "only null matches null";
    EXPECT_TRUE(GSString::null.isEqualCount(GSString::null, 5));

    const GSString path("/a/b.c/d.txt");
    EXPECT_EQ(path.findChar('/', 0), 0);
    EXPECT_EQ(path.findChar('/', 1), 2);
    EXPECT_EQ(path.findChar('t', 11), 11) << "the last byte";
    EXPECT_EQ(path.findChar('q', 0), -1);
    EXPECT_EQ(path.findCharRev('.'), 8);
    EXPECT_EQ(path.findCharRev('/'), 6);
    EXPECT_EQ(path.findCharRev('q'), -1);
    EXPECT_EQ(GSString::null.findChar('a', 0), -1);
    EXPECT_EQ(GSString::null.findCharRev('a'), -1);

    GSString hello = tagged("hello", GSString::kMac);
    GSString tail = hello.getSubstring(2, -1);
    EXPECT_EQ(text(tail), "llo");
    EXPECT_EQ(tail.getEncoding(), GSString::kMac);
    EXPECT_EQ(text(hello.getSubstring(1, 3)), "ell");
    GSString longText = GSString::withCopyOf(std::string(100, 'x').c_str());
    GSString whole = longText.getSubstring(0, 100);
    EXPECT_EQ(whole.getConstAddr(), longText.getConstAddr()) << "the whole text is shared";
    GSString none = hello.getSubstring(3, 0);
    EXPECT_TRUE(none.isNull());
    EXPECT_EQ(none.getEncoding(), GSString::kMac);
}
