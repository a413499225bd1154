// NumbersTest.cpp - integers and compact fractions written into text, integers read back, and
// the white space and trailing characters around them.
#include "TextSupport.h"
#include "text/GSString.h"

#include <gtest/gtest.h>

#include <climits>

using namespace testing_support;

TEST(Numbers, IntegerWidthCountsDigitsAndItsSignPicksThePadding) {
    const std::tuple<long long, int, const char*> rows[] = {
        // clang-format off
        {0, 0, "0"}, {7, -3, "007"}, {7, 3, "  7"}, {-5, -3, "-005"}, {-5, 3, "  -5"},
        {-12, -5, "-00012"}, {123, 2, "123"}, {-123, 1, "-123"}, {INT_MIN, 0, "-2147483648"},
        {LLONG_MAX, 0, "9223372036854775807"}, {LLONG_MIN, -21, "-009223372036854775808"},
        // clang-format on
    };
    for (const auto& [value, width, expected] : rows) {
        GSString s, l;
        l.addLongLong(value, width);
        EXPECT_EQ(text(l), expected) << "addLongLong(" << value << ", " << width << ")";
        if (value == int(value)) {
            s.addLong(int(value), width);
            EXPECT_EQ(text(s), expected) << "addLong(" << value << ", " << width << ")";
        }
    }
    // Appends, keeps the tag, and pads a wide field in full.
    GSString s("n=", 2, GSString::kMac), v("x");
    s.addLong(42, 200);
    v.setLongValue(-9);
    EXPECT_EQ(std::tuple(text(s), int(s.getEncoding()), text(v)),
              std::tuple("n=" + std::string(198, ' ') + "42", int(GSString::kMac), "-9"));
}

TEST(Numbers, CompactDecimalsRoundByFortyNineHundredthsAndDropTrailingZeros) {
    // Rows: value, decimals, text, scale (minus the fractional places before the zeros went).
    const std::tuple<double, int, const char*, int> rows[] = {
        // clang-format off
        {1.25, 2, "1.25", -2}, {1.5, 2, "1.5", -2}, {2.0, 2, "2", 0}, {1.05, 2, "1.05", -2},
        {-0.5, 2, "-0.5", -2}, {2.004, 2, "2", 0}, {0.0, 3, "0", 0}, {0.125, 2, "0.12", -2},
        {0.126, 2, "0.13", -2}, {1.7, 0, "2", 0}, {1.5, 0, "1", 0}, {1.52, 0, "2", 0},
        {12.3456, 3, "12.346", -3}, {-3.0, 4, "-3", 0},
        {1e30, 2, "9223372036854775807", 0}, // held at the integer range, never undefined
        // clang-format on
    };
    for (const auto& [value, decimals, expected, expectedScale] : rows) {
        GSString s;
        int scale = 99;
        EXPECT_EQ(s.addCompactDouble(value, decimals, &scale), 0);
        EXPECT_EQ(std::tuple(text(s), scale), std::tuple(std::string(expected), expectedScale))
            << value << " with " << decimals << " decimals";
    }
    GSString f;
    EXPECT_EQ(f.addCompactFloat(0.75f, 2, nullptr) || text(f) != "0.75", false) << "no scale";
}

TEST(Numbers, TrailingCharactersWhiteSpaceAndReading) {
    // Dots in front of a removed ellipsis stay; several ellipses go one by one; the Windows
    // ellipsis (0x85) is not one.
    const std::tuple<std::string, int, char, const char*> trailing[] = {
        {"Loading\xE2\x80\xA6", GSString::kUTF8, '.', "Loading"},
        {"Wait..\xE2\x80\xA6\xE2\x80\xA6..", GSString::kUTF8, '.', "Wait.."},
        {"Fin\xC9\xC9", GSString::kMac, '.', "Fin"},
        {"Fin\x85", GSString::kWindows, '.', "Fin\x85"},
        {"1.500", GSString::kUTF8, '0', "1.5"},
        {"000", GSString::kUTF8, '0', ""},
    };
    for (const auto& [in, tag, c, out] : trailing) {
        GSString s = bytes(in, tag);
        s.removeTrailingChar(c);
        EXPECT_EQ(text(s), out) << in;
    }
    // Skipped: 3, 7, tab, line feed, form feed, carriage return, space, U+200B, each with the
    // combining marks after it. In the Mac code page 0xCA is its no-break space, not skipped.
    const std::tuple<std::string, int, long, long> space[] = {
        // clang-format off
        {"\x03\x07\t\n\x0C\r \xE2\x80\x8B \xCC\x81x", 100, 0, 13}, {"\x0Bx", 100, 0, 0},
        {"\xC2\xA0x", 100, 0, 0}, {"\x01x", 100, 0, 0}, {"x ", 100, 0, 0}, {"   ", 100, 0, 3},
        {"   ", 100, 9, 9}, {" \xCA" "1", GSString::kMac, 0, 1},
        // clang-format on
    };
    for (const auto& [in, tag, from, expected] : space)
        EXPECT_EQ(bytes(in, tag).skipWhiteSpace(from), expected) << in;

    // Rows: text, index, value, end (past the digits consumed), digits end (past those added).
    const std::tuple<const char*, long, int, long, long> numbers[] = {
        // clang-format off
        {"42abc", 0, 42, 2, 2}, {"-+12", 0, -12, 4, 4}, {"+12", 0, 12, 3, 3}, {"+-12", 0, 0, 1, 1},
        {"-", 0, 0, 1, 1}, {"abc", 0, 0, 0, 0}, {"2147483639", 0, 2147483639, 10, 10},
        {"2147483647", 0, 214748364, 10, 9}, {"99999999999", 0, 999999999, 11, 9},
        {"-2147483648x", 0, -214748364, 11, 10}, {"", 0, 0, 0, 0}, {"x 7", 5, 0, 5, 5},
        // clang-format on
    };
    for (const auto& [in, index, value, end, digitsEnd] : numbers) {
        long e = -7, d = -7;
        int got = GSString(in).getBasicLongValue(index, &e, &d);
        EXPECT_EQ(std::tuple(got, e, d), std::tuple(value, end, digitsEnd)) << in;
    }
    long end = -1;
    EXPECT_EQ((std::tuple{GSString("  42abc").getLongValue(0, &end), end,
                          GSString::null.getLongValue(0, nullptr)}),
              std::tuple(42, 4L, 0));
}
