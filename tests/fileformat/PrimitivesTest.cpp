// PrimitivesTest.cpp - byte-exact encodings of GSFile's numbers and identifiers, positioning and
// the path helpers.
#include "TestSupport.h"

#include <gtest/gtest.h>

#include <cfloat>
#include <climits>
#include <cmath>
#include <functional>
#include <string>
#include <tuple>

using namespace testing_support;

namespace {

std::string text(const GSString& s) {
    return s.getConstAddr() ? s.getConstAddr() : "";
}

// The bytes that `write` puts into a new memory file with the given flags added.
std::string written(const std::function<void(GSFile&)>& write, unsigned char flags = 0) {
    MemoryFile m;
    m.file.setFlags(m.file.getFlags() | flags);
    write(m.file);
    return toHex(m.bytes());
}

// The value that `read` takes from exactly the bytes `hex`.
template <typename T>
T readHex(const std::string& hex, short (GSFile::*read)(T*), unsigned char flags = 0) {
    MemoryFile m(fromHex(hex));
    m.file.setFlags(m.file.getFlags() | flags);
    T value{};
    EXPECT_EQ((m.file.*read)(&value), 0) << "reading " << hex;
    EXPECT_EQ(m.file.tell(), long(m.bytes().size())) << "bytes left unread in " << hex;
    return value;
}

} // namespace

TEST(Primitives, IntegersAreBigEndian) {
    EXPECT_EQ(written([](GSFile& f) {
                  f.writeShort(-2);
                  f.writeLongLong(0x0102030405060708L);
                  f.writeLong(-0x01020304);
                  f.writeIntAsShort(0x12345); // only the low 16 bits are kept
              }),
              "ff fe 01 02 03 04 05 06 07 08 fe fd fc fc 23 45");
    EXPECT_EQ(readHex("80 00", &GSFile::readIntAsShort), -32768) << "must be sign-extended";
    EXPECT_EQ(readHex("00 00 00 01 80 00 00 00", &GSFile::readLongLong), 0x180000000L)
        << "the low half must not be sign-extended over the high half";
}

// The compatible encoding: a 4-byte mantissa (m in [0.5, 1) times 2^30, cut towards zero) and a
// 2-byte binary exponent. Floats keep all their bits; doubles only 31.
TEST(Primitives, CompatibleFloatEncoding) {
    EXPECT_EQ(written([](GSFile& f) {
                  for (float v : {1.0f, 0.0f, -3.0f})
                      f.writeFloat(v);
                  f.writeDouble(1.0 + std::ldexp(1.0, -40));
              }),
              "20 00 00 00 00 01 00 00 00 00 00 00 d0 00 00 00 00 02 20 00 00 00 00 01");
    for (float v : {1.5f, -0.1f, 123456.79f, 1e10f, -6.5e-11f})
        EXPECT_EQ(readHex(written([v](GSFile& f) { f.writeFloat(v); }), &GSFile::readFloat), v);

    // Reading a float saturates out-of-range exponents: above 37 to the largest float (the sign
    // is dropped), below -36 to zero. 37 and -36 themselves are still computed.
    // clang-format off
    for (auto [hex, expected] : {std::pair{"ff ff ff ff 00 26", FLT_MAX},
                                 {"20 00 00 00 00 26", FLT_MAX},
                                 {"ff ff ff ff ff db", 0.0f},
                                 {"20 00 00 00 00 25", std::ldexp(1.0f, 36)},
                                 {"e0 00 00 00 00 25", -std::ldexp(1.0f, 36)},
                                 {"20 00 00 00 ff dc", std::ldexp(1.0f, -37)}})
        EXPECT_EQ(readHex(hex, &GSFile::readFloat), expected) << hex;
    // clang-format on
}

TEST(Primitives, RawFloatAndDoubleFlagsAreIndependent) {
    auto both = [](GSFile& f) {
        f.writeFloat(-2.0f);
        f.writeDouble(-2.0);
    };
    EXPECT_EQ(written(both, GSFile::kRawFloats), "c0 00 00 00 e0 00 00 00 00 02")
        << "raw float, compatible double";
    EXPECT_EQ(written(both, GSFile::kRawDoubles), "e0 00 00 00 00 02 c0 00 00 00 00 00 00 00")
        << "compatible float, raw double";
    EXPECT_EQ(readHex("c0 00 00 00", &GSFile::readFloat, GSFile::kRawFloats), -2.0f);
    EXPECT_EQ(readHex("c0 00 00 00 00 00 00 00", &GSFile::readDouble, GSFile::kRawDoubles), -2.0);
}

TEST(Primitives, CompactLongLong) {
    // clang-format off
    for (auto [value, hex] : {std::pair{0L, "00"}, {63L, "3f"}, {64L, "80 01"}, {-1L, "40"},
                              {-64L, "7f"}, {-65L, "c0 01"}, {300L, "ac 04"}, {8191L, "bf 7f"},
                              {8192L, "80 80 01"},
                              {LONG_MAX, "bf ff ff ff ff ff ff ff ff 01"},
                              {LONG_MIN, "ff ff ff ff ff ff ff ff ff 01"}}) {
        EXPECT_EQ(written([v = value](GSFile& f) { f.writeCompactLongLong(v); }), hex) << value;
        EXPECT_EQ(readHex(hex, &GSFile::readCompactLongLong), value);
    }
    // clang-format on
    // Round trips at a few more of the 7-bit group boundaries; readHex checks every byte is read.
    for (long v : {(1L << 55) - 1, 1L << 55, -(1L << 34) - 1, 1L << 62, -(1L << 62) - 1})
        EXPECT_EQ(readHex(written([v](GSFile& f) { f.writeCompactLongLong(v); }),
                          &GSFile::readCompactLongLong),
                  v);
}

// Array counts are 4-byte longs unless an object table asks for 64-bit positions; then they are
// compact long longs.
TEST(Primitives, ArrayCountWidthFollowsTheObjectTable) {
    EXPECT_EQ(readHex("ff ff ff fe", &GSFile::readArrayCount), -2) << "must be sign-extended";
    for (short use64 : {0, 1}) {
        SCOPED_TRACE(use64 ? "64-bit object table" : "32-bit object table");
        MemoryFile m;
        ASSERT_EQ(m.file.startObjectMergingWrite(use64), 0);
        long start = m.file.tell(), count = 0;
        const long second = use64 ? 1L << 40 : -2;
        ASSERT_EQ(m.file.writeArrayCount(300), 0);
        ASSERT_EQ(m.file.writeArrayCount(second), 0);
        Bytes all = m.bytes();
        EXPECT_EQ(toHex(Bytes(all.begin() + start, all.end())),
                  use64 ? "ac 04 80 80 80 80 80 40" : "00 00 01 2c ff ff ff fe");
        ASSERT_EQ(m.file.seek(start, 0), 0);
        ASSERT_EQ(m.file.readArrayCount(&count), 0);
        EXPECT_EQ(count, 300);
        ASSERT_EQ(m.file.readArrayCount(&count), 0);
        EXPECT_EQ(count, second);
    }
}

TEST(Primitives, TokensIdentifiersAndWhiteSpace) {
    MemoryFile many(Bytes(300, 'a'));
    EXPECT_FALSE(many.file.isToken(std::string(256, 'a').c_str(), 0));
    EXPECT_EQ(many.file.tell(), 0) << "a token over 255 bytes is refused before reading";
    EXPECT_TRUE(many.file.isToken(std::string(255, 'a').c_str(), 0));

    MemoryFile spaced(Bytes{'k', 'e', 'y', ' ', '\t', '\r', '\n', '\f', '\v'});
    EXPECT_FALSE(spaced.file.isToken("kex", 1));
    EXPECT_EQ(spaced.file.tell(), 3) << "a mismatch leaves its bytes consumed";
    spaced.file.readWhiteSpace();
    EXPECT_EQ(spaced.file.getChar(), '\v') << "vertical tab is not white space";
    MemoryFile end(Bytes{'k', ' ', ' '});
    EXPECT_TRUE(end.file.isToken("k", 1));
    EXPECT_EQ(end.file.tell(), 3) << "at the end of the data nothing is put back";

    // An identifier is its text and a NUL.
    // clang-format off
    const std::tuple<Bytes, short, bool, long> cases[] = {
        {{'A', 'B', 0, 'x'}, 1, true, 3},
        {{'A', 'B', 'C'}, 1, false, 0}, {{'A', 'B'}, 1, false, 0}, {{'A', 'X', 0}, 1, false, 0},
        {{'A', 'B', 'C'}, 0, false, 3}, // not rewound when not asked to
    };
    // clang-format on
    for (const auto& [data, rewind, found, after] : cases) {
        MemoryFile m(data);
        EXPECT_EQ(m.file.hasID("AB", rewind), found) << toHex(data);
        EXPECT_EQ(m.file.tell(), after) << toHex(data) << (rewind ? ", rewinding" : "");
    }
}

TEST(Primitives, Positioning) {
    MemoryFile m(Bytes{0, 1, 2, 3, 4, 5, 6, 7, 8, 9});
    ASSERT_EQ(m.file.seek(3, 0), 0);
    EXPECT_NE(m.file.seek(-1, 0), 0);
    EXPECT_EQ(m.file.tell(), 3) << "a refused absolute seek must not move";
    EXPECT_EQ(m.file.seek(-1, 1), 0);
    EXPECT_EQ(m.file.getLength(), 10);
    EXPECT_EQ(m.file.tell(), 2) << "getLength must restore the position";
    short s = 0;

    GSFile none;
    EXPECT_EQ(none.tell(), -1);
    EXPECT_NE(none.readShort(&s), 0);
    EXPECT_EQ(none.getChar(), -1);
}

TEST(Primitives, PathHelpers) {
    EXPECT_EQ(text(GSFile::getFilename("/a/b/c.txt")), "c.txt");
    EXPECT_EQ(text(GSFile::getFilename("c.txt")), "c.txt");
    EXPECT_EQ(text(GSFile::getFilename("/a/b/")), "");

    // The extender's dot must come after the last '/' and after the last ')'.
    EXPECT_EQ(GSFile::_getExtender("/a/b/c.txt"), 6);
    EXPECT_EQ(GSFile::_getExtender("a.tar.gz"), 5);
    EXPECT_EQ(GSFile::_getExtender("/a.b/readme"), -1);
    EXPECT_EQ(GSFile::_getExtender("report.final (copy)"), -1);
    for (auto [path, expected] : {std::pair{"/a/b/c.txt", "/a/b/c.png"},
                                  {"/a.b/readme", "/a.b/readme.png"},
                                  {"report.final (copy)", "report.final (copy).png"}}) {
        GSString changed(path);
        GSFile::changeFileExtender(&changed, ".png");
        EXPECT_EQ(text(changed), expected) << "from " << path;
    }
}
