// UnicodeTest.cpp - UTF-8 of one code point and the general-category table.
#include "GSUTF8.h"
#include "GSUnicode.h"

#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

namespace {

struct Read {
    bool ok;
    unsigned code;
    long used;
};

// Reads from a heap block of exactly the given bytes, so that AddressSanitizer reports any
// look past them.
Read readChar(const std::string& bytes, short lenient, long available = -1) {
    auto block = std::make_unique<unsigned char[]>(bytes.size() + (bytes.empty() ? 1 : 0));
    std::copy(bytes.begin(), bytes.end(), block.get());
    unsigned code = 12345;
    long n = available < 0 ? static_cast<long>(bytes.size()) : available;
    const unsigned char* past = GSUTF8ReadChar(block.get(), n, lenient, &code);
    return {past != nullptr, code, past ? past - block.get() : -1};
}

std::string encode(unsigned code) {
    char out[8];
    int n = GSUTF8Encode(code, out);
    return std::string(out, n);
}

} // namespace

TEST(UTF8, EveryLeadByteClassInBothModes) {
    struct Case {
        std::string bytes;
        unsigned code;
    } cases[] = {
        {"A", 0x41},
        {"\x7F", 0x7F},
        {"\xC3\xA9", 0xE9},
        {"\xE2\x82\xAC", 0x20AC},
        {"\xF0\x9F\x98\x80", 0x1F600},
        {"\xF8\x88\x80\x80\x80", 0x200000},
        {"\xFC\x84\x80\x80\x80\x80", 0x4000000},
        {"\xFD\xBF\xBF\xBF\xBF\xBF", 0x7FFFFFFF},
        {"\xC0\x80", 0}, // overlong forms are accepted
        {"\xE0\x80\xAF", 0x2F},
        {"\xED\xA0\x80", 0xD800}, // and so are surrogate code points
    };
    for (const Case& c : cases) {
        for (short lenient : {0, 1}) {
            SCOPED_TRACE(std::to_string(c.code) + (lenient ? " lenient" : " strict"));
            Read r = readChar(c.bytes, lenient);
            EXPECT_TRUE(r.ok);
            EXPECT_EQ(r.code, c.code);
            EXPECT_EQ(r.used, static_cast<long>(c.bytes.size()));
        }
    }
    for (unsigned char bad : {0x80, 0xBF, 0xFE, 0xFF}) {
        Read strict = readChar(std::string(1, static_cast<char>(bad)) + "x", 0);
        EXPECT_FALSE(strict.ok);
        EXPECT_EQ(strict.code, 0u);
        Read lenient = readChar(std::string(1, static_cast<char>(bad)) + "x", 1);
        EXPECT_EQ(lenient.code, bad) << "a bad lead byte is a character of its own value";
        EXPECT_EQ(lenient.used, 1);
    }
}

TEST(UTF8, TruncatedAndBrokenSequences) {
    // Strict: a sequence longer than what is available fails with the lead byte's bits; one
    // that reaches the text's end fails there (at its NUL), with the bits read so far.
    Read r = readChar("\xE2\x82", 0, 1);
    EXPECT_FALSE(r.ok);
    EXPECT_EQ(r.code, 0x2u);
    r = readChar("\xE2\x82", 0);
    EXPECT_FALSE(r.ok);
    EXPECT_EQ(r.code, 0x82u);
    r = readChar("\xE2"
                 "A\x82",
                 0);
    EXPECT_FALSE(r.ok) << "a byte that is no continuation byte breaks the sequence";

    // Lenient: min(k, available) continuation bytes, the NUL after the text counting as one.
    r = readChar("\xE2\x82", 1);
    EXPECT_EQ(r.code, 0x2080u);
    EXPECT_EQ(r.used, 3) << "one past the NUL, which is never read";
    r = readChar("\xF0", 1);
    EXPECT_EQ(r.code, 0u);
    EXPECT_EQ(r.used, 2);
    r = readChar("\xE2"
                 "A\x82",
                 1);
    EXPECT_EQ(r.code, (0x2u << 12) | (0x01u << 6) | 0x02u) << "low six bits, whatever the byte";
    EXPECT_EQ(r.used, 3);
    r = readChar("", 1, 0);
    EXPECT_EQ(r.code, 0u);
}

TEST(UTF8, EncodingUsesTheArithmeticLimitBeyondUnicode) {
    EXPECT_EQ(encode(0x7FF), "\xDF\xBF");
    EXPECT_EQ(encode(0x10FFFF), "\xF4\x8F\xBF\xBF");
    EXPECT_EQ(encode(0x1FFFFF), "\xF7\xBF\xBF\xBF");
    EXPECT_EQ(encode(0x200000), "\xF8\x88\x80\x80\x80");
    EXPECT_EQ(encode(0x3FFFFFF), "\xFB\xBF\xBF\xBF\xBF");
    EXPECT_EQ(encode(0x4000000), "\xFC\x84\x80\x80\x80\x80");
    EXPECT_EQ(encode(0x80000000u), "\xFE\x82\x80\x80\x80\x80\x80") << "seven bytes";
    EXPECT_EQ(encode(0xFFFFFFFFu), "\xFE\x83\xBF\xBF\xBF\xBF\xBF");
    for (unsigned code = 0; code < 0x110000; code += 0x3F) {
        std::string e = encode(code);
        Read r = readChar(e, 0);
        ASSERT_TRUE(r.ok && r.code == code && r.used == static_cast<long>(e.size())) << code;
    }
}

TEST(UnicodeCategories, TableCoversEveryCodePointOnceInMaximalRuns) {
    long count;
    const GSUnicodeCategoryRange* ranges = GSGetUnicodeCategoryRanges(&count);
    ASSERT_EQ(count, 4099);
    EXPECT_EQ(ranges[0].first, 0u);
    EXPECT_EQ(ranges[count - 1].last, 0x10FFFFu);
    for (long i = 0; i < count; ++i) {
        ASSERT_LE(ranges[i].first, ranges[i].last) << i;
        ASSERT_LE(ranges[i].category, 29) << i;
        if (i > 0) {
            ASSERT_EQ(ranges[i].first, ranges[i - 1].last + 1) << "gap or overlap at " << i;
            ASSERT_NE(ranges[i].category, ranges[i - 1].category) << "runs not maximal at " << i;
        }
    }
}

TEST(UnicodeCategories, ValuesAcrossThePlanes) {
    struct Case {
        unsigned code;
        int category;
    };
    // One code point of each category, across the planes; U+1C89 is new in Unicode 16.0, so it
    // shows the data version; from U+10FFFE up the answer is private use without a lookup.
    // clang-format off
    const Case cases[] = {
        {0x0000, GSCategoryCc}, {0x0020, GSCategoryZs}, {0x0028, GSCategoryPs}, {0x0041, GSCategoryLu},
        {0x0061, GSCategoryLl}, {0x00AB, GSCategoryPi}, {0x01C5, GSCategoryLt}, {0x02B0, GSCategoryLm},
        {0x0300, GSCategoryMn}, {0x0378, GSCategoryCn}, {0x0903, GSCategoryMc}, {0x20DD, GSCategoryMe},
        {0x2160, GSCategoryNl}, {0x2029, GSCategoryZp}, {0xD800, GSCategoryCs}, {0xE000, GSCategoryCo},
        {0x1F600, GSCategorySo}, {0x1D7CE, GSCategoryNd}, {0x20000, GSCategoryLo},
        {0xE0001, GSCategoryCf}, {0x1C89, GSCategoryLu}, {0x10FFFD, GSCategoryCo},
        {0x10FFFE, GSCategoryCo}, {0xFFFFFFFF, GSCategoryCo},
    };
    // clang-format on
    for (const Case& c : cases)
        EXPECT_EQ(GSGetGeneralCategory(c.code), c.category) << std::hex << "U+" << c.code;
    EXPECT_TRUE(GSUnicodeIsMark(0x0301));
    EXPECT_TRUE(GSUnicodeIsMark(0x0903));
    EXPECT_TRUE(GSUnicodeIsMark(0x20DD));
    EXPECT_FALSE(GSUnicodeIsMark('e'));
    EXPECT_FALSE(GSUnicodeIsMark(0x02C6)) << "a spacing modifier letter is no mark";
}
