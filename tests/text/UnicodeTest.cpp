// UnicodeTest.cpp - UTF-8 of one code point, read strictly and leniently, and the general
// categories.
#include "text/GSUTF8.h"
#include "text/GSUnicode.h"

#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <tuple>

namespace {

using Read = std::tuple<bool, unsigned, long>; // read, code point, bytes used (-1: failed)

// Reads from a heap block of exactly these bytes: AddressSanitizer reports any look past them.
Read readChar(const std::string& bytes, short lenient, long available = -1) {
    auto block = std::make_unique<unsigned char[]>(bytes.size() + bytes.empty());
    std::copy(bytes.begin(), bytes.end(), block.get());
    unsigned code = 12345;
    long n = available < 0 ? static_cast<long>(bytes.size()) : available;
    const unsigned char* past = GSUTF8ReadChar(block.get(), n, lenient, &code);
    return {past != nullptr, code, past ? past - block.get() : -1};
}

std::string encode(unsigned code) {
    char out[8];
    return std::string(out, size_t(GSUTF8Encode(code, out)));
}

} // namespace

TEST(UTF8, EveryLengthEncodesAndReadsBack) {
    // The last code point of each length; beyond Unicode the encoder follows the arithmetic, up
    // to seven bytes (which the reader does not take).
    // clang-format off
    const std::pair<unsigned, std::string> rows[] = {
        {0x7F, "\x7F"}, {0x7FF, "\xDF\xBF"}, {0x20AC, "\xE2\x82\xAC"}, {0x1F600, "\xF0\x9F\x98\x80"},
        {0x1FFFFF, "\xF7\xBF\xBF\xBF"}, {0x200000, "\xF8\x88\x80\x80\x80"},
        {0x7FFFFFFF, "\xFD\xBF\xBF\xBF\xBF\xBF"}, {0xFFFFFFFFu, "\xFE\x83\xBF\xBF\xBF\xBF\xBF"}};
    // clang-format on
    for (const auto& [code, bytes] : rows) {
        EXPECT_EQ(encode(code), bytes) << std::hex << code;
        for (short lenient = 0; lenient < 2 && bytes.size() < 7; ++lenient)
            EXPECT_EQ(readChar(bytes, lenient), Read(true, code, bytes.size()));
    }
    for (unsigned code = 0; code < 0x110000; code += 0x3F)
        ASSERT_EQ(readChar(encode(code), 0), Read(true, code, encode(code).size()));
}

TEST(UTF8, OverlongTruncatedAndBrokenSequences) {
    // Strict: too few bytes available fails with the lead byte's bits; a sequence that runs into
    // the text's NUL, or meets a byte that continues nothing, fails there with the bits so far.
    // Lenient: min(k, available) continuation bytes, the NUL past the text counting as one, the
    // low six bits of whatever byte comes; a bad lead byte is a character of its own value.
    const std::tuple<const char*, std::string, short, long, Read> rows[] = {
        {"overlong slash", "\xE0\x80\xAF", 0, -1, {true, 0x2F, 3}},
        {"strict continuation", "\x80x", 0, -1, {false, 0, -1}},
        {"lenient continuation", "\xBFx", 1, -1, {true, 0xBF, 1}},
        {"strict FE", "\xFEx", 0, -1, {false, 0, -1}},
        {"strict, too few available", "\xE2\x82", 0, 1, {false, 0x2, -1}},
        {"strict, cut by the NUL", "\xE2\x82", 0, -1, {false, 0x82, -1}},
        {"strict, no continuation byte", "\xE2\x41\x82", 0, -1, {false, 0x2, -1}},
        {"lenient, cut by the NUL", "\xE2\x82", 1, -1, {true, 0x2080, 3}},
        {"lenient, lead alone", "\xF0", 1, -1, {true, 0, 2}},
        {"lenient, no continuation byte", "\xE2\x41\x82", 1, -1, {true, 0x2042, 3}},
        {"nothing available", "", 1, 0, {true, 0, 1}},
    };
    for (const auto& [name, bytes, lenient, available, expected] : rows)
        EXPECT_EQ(readChar(bytes, lenient, available), expected) << name;
}

TEST(UnicodeCategories, EveryRunOfTheTableIsFound) {
    // The runs cover every code point once; each is found at both its ends.
    long count;
    const GSUnicodeCategoryRange* ranges = GSGetUnicodeCategoryRanges(&count);
    ASSERT_GT(count, 4000);
    EXPECT_EQ(ranges[count - 1].last, 0x10FFFFu);
    for (long i = 0; i < count; ++i) {
        ASSERT_EQ(ranges[i].first, i ? ranges[i - 1].last + 1 : 0) << "gap or overlap at " << i;
        if (ranges[i].first > 0x10FFFD) continue;
        ASSERT_EQ(GSGetGeneralCategory(ranges[i].first), ranges[i].category) << i;
        ASSERT_EQ(GSGetGeneralCategory(std::min(ranges[i].last, 0x10FFFDu)), ranges[i].category);
    }
    // U+1C89 is new in Unicode 16.0, so it shows the data version; from U+10FFFE up the answer
    // is private use without a lookup.
    const std::pair<unsigned, int> rows[] = {{0x1C89, GSCategoryLu}, {0x0300, GSCategoryMn},
                                             {0x0903, GSCategoryMc}, {0x20DD, GSCategoryMe},
                                             {0x0041, GSCategoryLu}, {0xFFFFFFFF, GSCategoryCo}};
    for (const auto& [code, category] : rows) {
        EXPECT_EQ(GSGetGeneralCategory(code), category) << std::hex << "U+" << code;
        EXPECT_EQ(GSUnicodeIsMark(code), category >= GSCategoryMn && category <= GSCategoryMe);
    }
}
