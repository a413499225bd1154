// NumbersTest.cpp - integers and compact fractions written into text, integers read back.
#include "GSString.h"

#include <gtest/gtest.h>

#include <climits>
#include <string>

namespace {

std::string text(const GSString& s) {
    return s.getConstAddr() ? std::string(s.getConstAddr(), static_cast<size_t>(s.getLength()))
                            : std::string();
}

std::string compact(double value, int decimals, int* scale = nullptr) {
    GSString s;
    EXPECT_EQ(s.addCompactDouble(value, decimals, scale), 0);
    return text(s);
}

} // namespace

TEST(Numbers, IntegerWidthCountsDigitsAndItsSignPicksThePadding) {
    struct Case {
        long long value;
        int width;
        const char* expected;
    };
    const Case cases[] = {
        {0, 0, "0"},
        {7, -3, "007"},
        {7, 3, "  7"},
        {-5, -3, "-005"},
        {-5, 3, "  -5"},
        {-12, -5, "-00012"},
        {123, 2, "123"},
        {123, -2, "123"},
        {-123, 1, "-123"},
        {INT_MAX, 0, "2147483647"},
        {INT_MIN, 0, "-2147483648"},
        {LLONG_MAX, 0, "9223372036854775807"},
        {LLONG_MIN, -21, "-009223372036854775808"},
    };
    for (const Case& c : cases) {
        GSString s;
        if (c.value >= INT_MIN && c.value <= INT_MAX) {
            EXPECT_EQ(s.addLong(static_cast<int>(c.value), c.width), 0);
            EXPECT_EQ(text(s), c.expected) << "addLong(" << c.value << ", " << c.width << ")";
            s.clear();
        }
        EXPECT_EQ(s.addLongLong(c.value, c.width), 0);
        EXPECT_EQ(text(s), c.expected) << "addLongLong(" << c.value << ", " << c.width << ")";
    }

    // Appends to what is there, keeps the tag, and a wide field is padded in full.
    GSString s = GSString::withCopyOf("n=");
    s.setEncoding(GSString::kMac);
    s.addLong(42, 200);
    EXPECT_EQ(s.getLength(), 202);
    EXPECT_EQ(text(s).substr(198), "  42");
    EXPECT_EQ(s.getEncoding(), GSString::kMac);
    s.setLongValue(-9);
    EXPECT_EQ(text(s), "-9");
}

TEST(Numbers, CompactDecimalsRoundByFortyNineHundredthsAndDropTrailingZeros) {
    struct Case {
        double value;
        int decimals;
        const char* expected;
        int scale;
    };
    const Case cases[] = {
        {1.25, 2, "1.25", -2},
        {1.5, 2, "1.5", -2},
        {2.0, 2, "2", 0},
        {1.05, 2, "1.05", -2},
        {-0.5, 2, "-0.5", -2},
        {2.004, 2, "2", 0},
        {0.0, 3, "0", 0},
        {0.125, 2, "0.12", -2},
        {0.126, 2, "0.13", -2},
        {1.7, 0, "2", 0},
        {1.5, 0, "1", 0},
        {1.52, 0, "2", 0},
        {12.3456, 3, "12.346", -3},
        {-3.0, 4, "-3", 0},
        {1e30, 2, "9223372036854775807", 0}, // held at the integer range, never undefined
    };
    for (const Case& c : cases) {
        int scale = 99;
        EXPECT_EQ(compact(c.value, c.decimals, &scale), c.expected)
            << c.value << " with " << c.decimals << " decimals";
        EXPECT_EQ(scale, c.scale) << c.value << " with " << c.decimals << " decimals";
    }
    EXPECT_EQ(compact(0.25, 2), "0.25") << "the scale pointer may be null";
    GSString f;
    f.addCompactFloat(0.75f, 2, nullptr);
    EXPECT_EQ(text(f), "0.75");
}

TEST(Numbers, TrailingCharactersAndTheEllipsis) {
    GSString s = GSString::withCopyOf("Loading\xE2\x80\xA6");
    s.removeTrailingChar('.');
    EXPECT_EQ(text(s), "Loading");

    // Dots in front of a removed ellipsis stay; several ellipses go one by one.
    s = GSString::withCopyOf("Wait..\xE2\x80\xA6\xE2\x80\xA6..");
    s.removeTrailingChar('.');
    EXPECT_EQ(text(s), "Wait..");

    GSString mac("Fin\xC9\xC9", 5, GSString::kMac);
    mac.removeTrailingChar('.');
    EXPECT_EQ(text(mac), "Fin");
    GSString windows("Fin\x85", 4, GSString::kWindows);
    windows.removeTrailingChar('.');
    EXPECT_EQ(text(windows), "Fin\x85") << "the Windows ellipsis is not removed";

    GSString zeros = GSString::withCopyOf("1.500");
    zeros.removeTrailingChar('0');
    EXPECT_EQ(text(zeros), "1.5");
    GSString all = GSString::withCopyOf("000");
    all.removeTrailingChar('0');
    EXPECT_EQ(text(all), "");
}

TEST(Numbers, ReadingStopsAccumulatingNearTheLimit) {
    struct Case {
        const char* text;
        int value;
        long end;
        long digitsEnd;
    };
    const Case cases[] = {
        {"42abc", 42, 2, 2},
        {"-+12", -12, 4, 4},
        {"+12", 12, 3, 3},
        {"+-12", 0, 1, 1},
        {"-", 0, 1, 1},
        {"abc", 0, 0, 0},
        {"2147483639", 2147483639, 10, 10},
        {"2147483647", 214748364, 10, 9},
        {"99999999999", 999999999, 11, 9},
        {"-2147483648x", -214748364, 11, 10},
        {"", 0, 0, 0},
    };
    for (const Case& c : cases) {
        GSString s(c.text);
        long end = -7, digitsEnd = -7;
        EXPECT_EQ(s.getBasicLongValue(0, &end, &digitsEnd), c.value) << c.text;
        EXPECT_EQ(end, c.end) << c.text;
        EXPECT_EQ(digitsEnd, c.digitsEnd) << c.text;
    }
    long end = -1;
    EXPECT_EQ(GSString("  42abc").getLongValue(0, &end), 42);
    EXPECT_EQ(end, 4);
    EXPECT_EQ(GSString("abc").getLongValue(0, &end), 0);
    EXPECT_EQ(end, 0);
    EXPECT_EQ(GSString("x 7").getBasicLongValue(5, &end, nullptr), 0) << "past the end";
    EXPECT_EQ(end, 5);
    EXPECT_EQ(GSString::null.getLongValue(0, nullptr), 0);
}

TEST(Numbers, WhiteSpaceIsExactlyTheFrameworksSet) {
    // Skipped: 3, 7, tab, line feed, form feed, carriage return, space, U+200B; each with the
    // combining marks that follow it.
    GSString skipped = GSString::withCopyOf("\x03\x07\t\n\x0C\r \xE2\x80\x8B \xCC\x81x");
    EXPECT_EQ(skipped.skipWhiteSpace(0), skipped.getLength() - 1);
    for (const char* stopper : {"\x0Bx", "\xC2\xA0x", "\x01x", "x "}) {
        GSString s(stopper);
        EXPECT_EQ(s.skipWhiteSpace(0), 0) << "stops at byte " << int(stopper[0] & 0xFF);
    }
    GSString blank("   ");
    EXPECT_EQ(blank.skipWhiteSpace(0), 3);
    EXPECT_EQ(blank.skipWhiteSpace(9), 9) << "an index past the end is returned as it is";
    // In the Mac code page a byte is a character: 0xCA is its no-break space, not skipped.
    GSString mac(" \xCA"
                 "1",
                 3, GSString::kMac);
    EXPECT_EQ(mac.skipWhiteSpace(0), 1);
}
