// PrimitivesTest.cpp - byte-exact encodings of GSFile's numbers and identifiers, positioning and
// the path helpers.
#include "FileTestSupport.h"

#include <gtest/gtest.h>

#include <cfloat>
#include <climits>
#include <cmath>
#include <functional>
#include <string>
#include <tuple>

using namespace testing_support;

namespace {

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

// Integers are big-endian. The compatible float encoding is a 4-byte mantissa (m in [0.5, 1)
// times 2^30, cut towards zero) and a 2-byte binary exponent: floats keep all their bits, doubles
// only 31. The raw flags, each on its own, store IEEE bits instead.
TEST(Primitives, ByteExactEncodings) {
    using Write = std::function<void(GSFile&)>;
    // clang-format off
    const std::tuple<const char*, unsigned char, Write, const char*> cases[] = {
        {"integers", 0, [](GSFile& f) {
             f.writeShort(-2), f.writeLongLong(0x0102030405060708L), f.writeLong(-0x01020304);
             f.writeIntAsShort(0x12345); // only the low 16 bits are kept
         }, "ff fe 01 02 03 04 05 06 07 08 fe fd fc fc 23 45"},
        {"compatible", 0, [](GSFile& f) {
             f.writeFloat(1.0f), f.writeFloat(0.0f), f.writeFloat(-3.0f);
             f.writeDouble(1.0 + std::ldexp(1.0, -40));
         }, "20 00 00 00 00 01 00 00 00 00 00 00 d0 00 00 00 00 02 20 00 00 00 00 01"},
        {"raw float", GSFile::kRawFloats, [](GSFile& f) { f.writeFloat(-2.0f), f.writeDouble(-2.0); },
         "c0 00 00 00 e0 00 00 00 00 02"},
        {"raw double", GSFile::kRawDoubles, [](GSFile& f) { f.writeFloat(-2.0f), f.writeDouble(-2.0); },
         "e0 00 00 00 00 02 c0 00 00 00 00 00 00 00"}};
    // clang-format on
    for (const auto& [name, flags, write, hex] : cases)
        EXPECT_EQ(written(write, flags), hex) << name;
    EXPECT_EQ(readHex("80 00", &GSFile::readIntAsShort), -32768) << "must be sign-extended";
    EXPECT_EQ(readHex("00 00 00 01 80 00 00 00", &GSFile::readLongLong), 0x180000000L)
        << "the low half must not be sign-extended over the high half";
    EXPECT_EQ(readHex("c0 00 00 00", &GSFile::readFloat, GSFile::kRawFloats), -2.0f);
    EXPECT_EQ(readHex("c0 00 00 00 00 00 00 00", &GSFile::readDouble, GSFile::kRawDoubles), -2.0);
    for (float v : {1.5f, -0.1f, 123456.79f, 1e10f, -6.5e-11f})
        EXPECT_EQ(readHex(written([v](GSFile& f) { f.writeFloat(v); }), &GSFile::readFloat), v);

    // Reading a float saturates out-of-range exponents: above 37 to the largest float (the sign
    // is dropped), below -36 to zero. 37 and -36 themselves are still computed.
    // clang-format off
    for (auto [hex, expected] : {std::pair{"ff ff ff ff 00 26", FLT_MAX}, {"20 00 00 00 00 26", FLT_MAX},
                                 {"ff ff ff ff ff db", 0.0f}, {"e0 00 00 00 00 25", -std::ldexp(1.0f, 36)},
                                 {"20 00 00 00 ff dc", std::ldexp(1.0f, -37)}})
        EXPECT_EQ(readHex(hex, &GSFile::readFloat), expected) << hex;
    // clang-format on
}

// Compact long longs: 6 value bits, the sign and "more" in the first byte, then 7 bits a byte.
// Array counts are 4-byte longs unless an object table asks for 64-bit positions; then compact.
TEST(Primitives, CompactLongLongAndArrayCounts) {
    auto compact = [](long v) { return written([v](GSFile& f) { f.writeCompactLongLong(v); }); };
    // clang-format off
    for (auto [value, hex] : {std::pair{0L, "00"}, {63L, "3f"}, {64L, "80 01"}, {-1L, "40"}, {-64L, "7f"},
                              {-65L, "c0 01"}, {8191L, "bf 7f"}, {8192L, "80 80 01"},
                              {LONG_MAX, "bf ff ff ff ff ff ff ff ff 01"},
                              {LONG_MIN, "ff ff ff ff ff ff ff ff ff 01"}}) {
        EXPECT_EQ(compact(value), hex) << value;
        EXPECT_EQ(readHex(hex, &GSFile::readCompactLongLong), value);
    }
    for (long v : {(1L << 55) - 1, 1L << 55, -(1L << 34) - 1, 1L << 62, -(1L << 62) - 1})
        EXPECT_EQ(readHex(compact(v), &GSFile::readCompactLongLong), v);
    // clang-format on

    EXPECT_EQ(readHex("ff ff ff fe", &GSFile::readArrayCount), -2) << "must be sign-extended";
    for (short use64 : {0, 1}) {
        MemoryFile m;
        ASSERT_EQ(m.file.startObjectMergingWrite(use64), 0);
        long start = m.file.tell(), count = 0, second = use64 ? 1L << 40 : -2;
        ASSERT_FALSE(m.file.writeArrayCount(300) || m.file.writeArrayCount(second));
        Bytes all = m.bytes();
        EXPECT_EQ(toHex(Bytes(all.begin() + start, all.end())),
                  use64 ? "ac 04 80 80 80 80 80 40" : "00 00 01 2c ff ff ff fe");
        ASSERT_FALSE(m.file.seek(start, 0) || m.file.readArrayCount(&count));
        EXPECT_EQ(count, 300);
        ASSERT_EQ(m.file.readArrayCount(&count), 0);
        EXPECT_EQ(count, second);
    }
}

TEST(Primitives, TokensIdentifiersAndPositions) {
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

    // An identifier is its text and a NUL: data, rewind wanted, found, position after.
    const std::tuple<Bytes, short, bool, long> cases[] = {{{'A', 'B', 0, 'x'}, 1, true, 3},
                                                          {{'A', 'B', 'C'}, 1, false, 0},
                                                          {{'A', 'B'}, 1, false, 0},
                                                          {{'A', 'X', 0}, 1, false, 0},
                                                          {{'A', 'B', 'C'}, 0, false, 3}};
    for (const auto& [data, rewind, found, after] : cases) {
        MemoryFile m(data);
        EXPECT_EQ(m.file.hasID("AB", rewind), found) << toHex(data);
        EXPECT_EQ(m.file.tell(), after) << toHex(data) << (rewind ? ", rewinding" : "");
    }

    MemoryFile m(Bytes(10, 0));
    ASSERT_EQ(m.file.seek(3, 0), 0);
    EXPECT_NE(m.file.seek(-1, 0), 0);
    EXPECT_EQ(m.file.tell(), 3) << "a refused absolute seek must not move";
    EXPECT_EQ(m.file.seek(-1, 1), 0);
    EXPECT_EQ(m.file.getLength(), 10);
    EXPECT_EQ(m.file.tell(), 2) << "getLength must restore the position";
    GSFile none;
    short s = 0;
    EXPECT_EQ(none.tell() + none.getChar() - none.readShort(&s), -3) << "no worker";
}

// The extender's dot must come after the last '/' and after the last ')'.
TEST(Primitives, PathHelpers) {
    const char* cases[][4] = {
        {"/a/b/c.txt", "c.txt", "6", "/a/b/c.png"},
        {"a.tar.gz", "a.tar.gz", "5", "a.tar.png"},
        {"/a.b/readme", "readme", "-1", "/a.b/readme.png"},
        {"report.final (copy)", "report.final (copy)", "-1", "report.final (copy).png"},
        {"/a/b/", "", "-1", "/a/b/.png"}};
    for (const auto& [path, name, extender, changed] : cases) {
        GSString renamed(path);
        GSFile::changeFileExtender(&renamed, ".png");
        EXPECT_EQ(file_test::str(GSFile::getFilename(path)) + " " +
                      std::to_string(GSFile::_getExtender(path)) + " " + renamed.getConstAddr(),
                  std::string(name) + " " + extender + " " + changed);
    }
}
