// PrimitivesTest.cpp - byte-exact encodings of GSFile's numbers and identifiers, reading them back
// from whole, truncated and lying data, positioning and the path helpers.
#include "FileTestSupport.h"
#include "MemoryAndDisk.h"
#include "objects/GSArray.h"

#include <gtest/gtest.h>

#include <cfloat>
#include <climits>
#include <cmath>
#include <functional>
#include <optional>
#include <string>
#include <tuple>

using namespace std::string_literals;
using namespace testing_support;

namespace {

using Write = std::function<void(GSFile&)>;
using Read = std::function<std::optional<long double>(GSFile&)>; // nullopt: a failed read

// The bytes that `write` puts into a new memory file with the given flags added.
std::string written(const Write& write, unsigned char flags = 0) {
    MemoryFile m;
    m.file.setFlags(m.file.getFlags() | flags);
    write(m.file);
    return toHex(m.bytes());
}

template <typename T> Read as(short (GSFile::*read)(T*), unsigned char flags = 0) {
    return [read, flags](GSFile& f) -> std::optional<long double> {
        f.setFlags(f.getFlags() | flags);
        T value{};
        if ((f.*read)(&value)) return std::nullopt;
        return static_cast<long double>(value);
    };
}

std::optional<long double> readMemory(const std::string& hex, const Read& read) {
    MemoryFile m(fromHex(hex));
    return read(m.file);
}

} // namespace

// Integers are big-endian. The compatible float encoding is a 4-byte mantissa (m in [0.5, 1)
// times 2^30, cut towards zero) and a 2-byte binary exponent: floats keep all their bits, doubles
// only 31. The raw flags, each on its own, store IEEE bits instead. Array counts are 4-byte longs
// unless an object table asks for 64-bit positions; then they are compact.
TEST(Primitives, ByteExactEncodings) {
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
         "e0 00 00 00 00 02 c0 00 00 00 00 00 00 00"},
        {"4-byte counts", 0, [](GSFile& f) { f.writeArrayCount(300), f.writeArrayCount(-2); },
         "00 00 01 2c ff ff ff fe"},
        {"64-bit counts", 0, [](GSFile& f) {
             f.startObjectMergingWrite(1), f.writeArrayCount(300), f.writeArrayCount(1L << 40);
         }, "02 00 00 00 00 00 00 00 00 00 ac 04 80 80 80 80 80 40"}};
    // clang-format on
    for (const auto& [name, flags, write, hex] : cases)
        EXPECT_EQ(written(write, flags), hex) << name;
    for (float v : {1.5f, -0.1f, 123456.79f, 1e10f, -6.5e-11f})
        EXPECT_EQ(readMemory(written([v](GSFile& f) { f.writeFloat(v); }), as(&GSFile::readFloat)),
                  v);
}

// Compact long longs: 6 value bits, the sign and "more" in the first byte, then 7 bits a byte.
TEST(Primitives, CompactLongLong) {
    auto compact = [](long v) { return written([v](GSFile& f) { f.writeCompactLongLong(v); }); };
    // clang-format off
    for (auto [value, hex] : {std::pair{0L, "00"}, {63L, "3f"}, {64L, "80 01"}, {-1L, "40"}, {-64L, "7f"},
                              {-65L, "c0 01"}, {8191L, "bf 7f"}, {8192L, "80 80 01"},
                              {LONG_MAX, "bf ff ff ff ff ff ff ff ff 01"},
                              {LONG_MIN, "ff ff ff ff ff ff ff ff ff 01"}}) {
        EXPECT_EQ(compact(value), hex) << value;
        EXPECT_EQ(readMemory(hex, as(&GSFile::readCompactLongLong)), value);
    }
    for (long v : {(1L << 55) - 1, 1L << 55, -(1L << 34) - 1, 1L << 62, -(1L << 62) - 1})
        EXPECT_EQ(readMemory(compact(v), as(&GSFile::readCompactLongLong)), v);
    // clang-format on
}

// Every read takes exactly its bytes. Data that ends inside a number is a failed read, never a
// read beyond the data; so is a compact long long with more than the nine continuation bytes that
// 64 bits can need, and an array count beyond the bytes left (before anything is allocated).
TEST(Primitives, ReadingWholeTruncatedAndLyingData) {
    const Read objects = [](GSFile& f) -> std::optional<long double> {
        ObjectArray array;
        return array.read(&f) ? std::nullopt : std::optional<long double>(array.getCount());
    };
    const Read tenBytes = [](GSFile& f) -> std::optional<long double> {
        unsigned char buffer[16] = {};
        return f.read(buffer, 10) && buffer[4] == 0 ? std::nullopt : std::optional(1.0L);
    };
    const Read compact = as(&GSFile::readCompactLongLong);
    const auto fail = std::nullopt;
    // clang-format off
    const std::tuple<const char*, bool, Read, std::optional<long double>> cases[] = {
        {"80 00", false, as(&GSFile::readIntAsShort), -32768}, // sign-extended
        // The low half must not be sign-extended over the high half.
        {"00 00 00 01 80 00 00 00", false, as(&GSFile::readLongLong), 0x180000000L},
        {"ff ff ff fe", false, as(&GSFile::readArrayCount), -2},
        {"ac 04", true, as(&GSFile::readArrayCount), 300},
        {"80 80 80 80 80 40", true, as(&GSFile::readArrayCount), 1L << 40},
        {"c0 00 00 00", false, as(&GSFile::readFloat, GSFile::kRawFloats), -2},
        {"c0 00 00 00 00 00 00 00", false, as(&GSFile::readDouble, GSFile::kRawDoubles), -2},
        // Out-of-range exponents saturate: above 37 to the largest float (the sign is dropped),
        // below -36 to zero. 37 and -36 themselves are still computed.
        {"ff ff ff ff 00 26", false, as(&GSFile::readFloat), FLT_MAX},
        {"20 00 00 00 00 26", false, as(&GSFile::readFloat), FLT_MAX},
        {"ff ff ff ff ff db", false, as(&GSFile::readFloat), 0},
        {"e0 00 00 00 00 25", false, as(&GSFile::readFloat), -std::ldexp(1.0L, 36)},
        {"20 00 00 00 ff dc", false, as(&GSFile::readFloat), std::ldexp(1.0L, -37)},
        {"01 02 03 04 05 06 07", false, as(&GSFile::readLongLong), fail},
        {"20 00 00 00 00", false, as(&GSFile::readFloat), fail},
        {"20 00 00 00 01", false, as(&GSFile::readDouble), fail},
        {"00 00 01", false, as(&GSFile::readArrayCount), fail},
        {"80 ff", false, compact, fail},
        {"80 ff ff ff ff ff ff ff ff ff 01", false, compact, fail},
        {"61 62 63 64", false, tenBytes, fail},
        {"7f ff ff ff 01", false, objects, fail},
        {"80 80 80 80 80 80 80 80 80 01", true, objects, fail}}; // 2^62
    // clang-format on
    for (const auto& [hex, byteForm, read, expected] : cases) {
        SCOPED_TRACE(hex);
        onMemoryAndDisk(fromHex(hex), byteForm, [&](GSFile& f) {
            EXPECT_EQ(read(f), expected);
            if (expected) {
                EXPECT_EQ(f.getBytesLeft(), 0) << "bytes left unread";
            }
        });
    }
    onMemoryAndDisk(Bytes(5000, 0), false, [](GSFile& f) {
        ASSERT_EQ(f.seek(100, 0), 0);
        EXPECT_TRUE(f.fitsInFile(4900));
        EXPECT_FALSE(f.fitsInFile(4901) || f.fitsInFile(1L << 62) || f.fitsInFile(-1));
        EXPECT_EQ(f.tell(), 100) << "checking the bytes left must not move the reader";
    });
}

// A token over 255 bytes is refused before reading; a mismatch leaves its bytes consumed; white
// space after a token is skipped up to the end of the data, vertical tab excepted. An identifier
// is its text and a NUL, and the reader goes back where it was when asked to.
TEST(Primitives, TokensIdentifiersAndPositions) {
    const std::string a300(300, 'a');
    // data, text, identifier (else token), rewind (else skip white space), found, position after
    const std::tuple<std::string, std::string, bool, short, bool, long> cases[] = {
        {a300, std::string(256, 'a'), false, 0, false, 0},
        {a300, std::string(255, 'a'), false, 0, true, 255},
        {"key \t\r\n\f\v", "kex", false, 1, false, 3},
        {"key \t\r\n\f\v", "key", false, 1, true, 8},
        {"k  ", "k", false, 1, true, 3},
        {"AB\0x"s, "AB", true, 1, true, 3},
        {"ABC", "AB", true, 1, false, 0},
        {"AB", "AB", true, 1, false, 0},
        {"AX\0"s, "AB", true, 1, false, 0},
        {"ABC", "AB", true, 0, false, 3}};
    for (const auto& [data, text, id, flag, found, after] : cases) {
        MemoryFile m(Bytes(data.begin(), data.end()));
        EXPECT_EQ(id ? m.file.hasID(text.c_str(), flag) : m.file.isToken(text.c_str(), flag), found)
            << data;
        EXPECT_EQ(m.file.tell(), after) << data << " " << flag;
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
        EXPECT_EQ(text(GSFile::getFilename(path)) + " " +
                      std::to_string(GSFile::_getExtender(path)) + " " + renamed.getConstAddr(),
                  std::string(name) + " " + extender + " " + changed);
    }
}
