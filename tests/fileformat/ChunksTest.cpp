// ChunksTest.cpp - tagged chunks in both forms: the exact bytes the writer produces, the patching
// of lengths, nested byte-form items, and what the reader makes of them.
#include "GSTagRead.h"
#include "GSTagWrite.h"
#include "TestSupport.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <vector>

using namespace testing_support;

namespace {

Bytes pattern(size_t n, int seed) {
    Bytes b(n);
    for (size_t i = 0; i < n; ++i)
        b[i] = static_cast<unsigned char>(seed + i * 7);
    return b;
}

Bytes readBytes(GSFile& f, long n) {
    Bytes b(static_cast<size_t>(n));
    EXPECT_EQ(f.read(b.data(), n), 0);
    return b;
}

// A memory file for chunks of one form. The byte form is chosen by an object table with 64-bit
// positions, whose own header comes first: `start` is where the chunk begins.
struct ChunkFile {
    explicit ChunkFile(bool byteForm, const char* hex = "") {
        EXPECT_EQ(byteForm ? f.startObjectMergingWrite(1) : 0, 0);
        start = f.tell();
        Bytes bytes = fromHex(hex);
        EXPECT_FALSE(f.write(bytes.data(), long(bytes.size())) || f.seek(start, 0));
    }
    std::string written() const {
        Bytes all = m.bytes();
        return toHex(Bytes(all.begin() + start, all.end()));
    }
    MemoryFile m;
    GSFile& f = m.file;
    long start = 0;
};

} // namespace

// Version 1.0, one item of tag 5 whose body is written in pieces, the end marker. A byte-form
// body of up to 255 bytes gets a 2-byte header, a longer one a 9-byte header, however the body
// is cut into writes.
TEST(Chunks, OneItemLayout) {
    const std::string longHeader = "85 00 00 00 00 00 00 01 00";
    const std::tuple<bool, size_t, size_t, std::string> cases[] = {
        {false, 300, 7, "00 00 00 05 00 00 01 2c"},
        {true, 0, 1, "05 00"},
        {true, 255, 255, "05 ff"},
        {true, 255, 1, "05 ff"},
        {true, 256, 1, longHeader},
        {true, 256, 200, longHeader}};
    for (const auto& [byteForm, size, piece, header] : cases) {
        SCOPED_TRACE(std::to_string(size) + " bytes in pieces of " + std::to_string(piece));
        ChunkFile file(byteForm);
        Bytes body = pattern(size, 'a');
        GSTagWrite w(&file.f);
        ASSERT_FALSE(w.writeVersion(0x0100) || w.writeStart(5));
        for (size_t at = 0; at < body.size(); at += piece)
            ASSERT_EQ(file.f.write(body.data() + at, long(std::min(piece, size - at))), 0);
        ASSERT_FALSE(w.writeEnd() || w.writeEndTag());
        std::string bodyHex = size ? " " + toHex(body) : "";
        EXPECT_EQ(file.written(), byteForm ? "10 " + header + bodyHex + " 7f"
                                           : "01 00 " + header + bodyHex + " ff ff ff ff");
        ASSERT_EQ(file.f.seek(file.start, 0), 0);
        GSTagRead r(&file.f);
        short version = 0;
        ASSERT_FALSE(r.readVersion(0x0100, &version) || version != 0x0100);
        ASSERT_EQ(r.read(), 5);
        EXPECT_EQ(readBytes(file.f, r.getLength()), body);
        EXPECT_EQ(r.read(), GSTagRead::kEndTag);
    }
    // Any byte whose low seven bits are all set ends a byte-form chunk, whatever its top bit.
    ChunkFile end(true, "ff");
    EXPECT_EQ(GSTagRead(&end.f).read(), GSTagRead::kEndTag);
}

// A chunk of a newer major version is stepped over whole, so that the caller goes on after it; a
// newer minor is accepted; major 0 and minors of 16 or more are refused but not skipped.
TEST(Chunks, ReadVersionAgainstTheNewestKnown) {
    const char* longItems = "00 00 00 01 00 00 00 02 aa bb 00 00 00 02 00 00 00 00 ff ff ff ff 5a";
    const char* byteItems = "01 02 aa bb 82 00 00 00 00 00 00 00 01 cc 7f 5a";
    // clang-format off
    const std::tuple<const char*, bool, short, short, short> cases[] = {
        {"00 03 00 02", false, 770, 0, 0x0302}, // the old form: major and minor as two shorts
        {"03 05", false, 770, 0, 0x0305},       {"32", true, 770, 0, 0x0302},
        {"04 00", false, 770, 1, 0x0400},       {"00 04 00 01", false, 770, 1, 0x0401},
        {"40", true, 770, 1, 0x0400},           {"00 00 00 10", false, 770, 1, 0x0010},
        {"03 20", false, 770, 1, 0x0320},       {"09 00", false, 0, 0, 0x0900}};
    // clang-format on
    for (const auto& [hex, byteForm, maxVersion, result, expected] : cases) {
        SCOPED_TRACE(hex);
        ChunkFile file(byteForm,
                       (std::string(hex) + " " + (byteForm ? byteItems : longItems)).c_str());
        short version = 0;
        EXPECT_EQ(GSTagRead(&file.f).readVersion(maxVersion, &version), result);
        EXPECT_EQ(version, expected);
        if ((expected >> 8) > (maxVersion >> 8) && maxVersion > 0)
            EXPECT_EQ(file.f.getChar(), 'Z') << "a too-new chunk must be skipped to its end";
        else
            EXPECT_EQ(file.f.tell(), file.start + long(fromHex(hex).size()));
    }
}

// Long-form lengths are patched in batches: the 16th writeEnd writes all 16 and puts the position
// back at the end; writeEndTag writes the rest.
TEST(Chunks, LongFormLengthCache) {
    MemoryFile m;
    GSTagWrite w(&m.file);
    auto lengths = [&] { // per item, whether its length field holds 2 yet
        std::string all;
        Bytes b = m.bytes();
        for (size_t at = 6; at < b.size(); at += 10)
            all += toHex(Bytes(b.begin() + long(at), b.begin() + long(at) + 4)) == "00 00 00 02";
        return all;
    };
    ASSERT_EQ(w.writeVersion(0x0100), 0);
    for (int i = 0; i < 17; ++i) {
        ASSERT_FALSE(w.writeStart(i + 1) || m.file.write("xy", 2) || w.writeEnd());
        if (i == 14) {
            EXPECT_EQ(lengths(), std::string(15, '\0')) << "patched early";
        }
    }
    EXPECT_EQ(lengths(), std::string(16, '\1') + '\0');
    EXPECT_EQ(m.file.tell(), long(m.bytes().size())) << "position not restored";
    ASSERT_EQ(w.writeEndTag(), 0);
    EXPECT_EQ(lengths(), std::string(17, '\1'));
}

// A byte-form chunk inside an item of another: the inner writer's worker sits on the outer's, and
// whichever body outgrows its buffer first, the headers must reach the file in order.
TEST(Chunks, NestedByteFormChunks) {
    const std::tuple<size_t, size_t, const char*> cases[] = {
        // inner body, outer tail, first bytes
        {3, 0, "10 01 07 10 02 03"},
        {300, 0, "10 81 00 00 00 00 00 00 01 37 10 82 00 00 00 00 00 00 01 2c"},
        {3, 300, "10 81 00 00 00 00 00 00 01 33 10 02 03"}};
    for (const auto& [inner, tail, start] : cases) {
        SCOPED_TRACE(start);
        ChunkFile file(true);
        GSFile& f = file.f;
        GSTagWrite outer(&f), in(&f);
        ASSERT_FALSE(outer.writeVersion(0x0100) || outer.writeStart(1) || in.writeVersion(0x0100) ||
                     in.writeStart(2) || f.write(pattern(inner, 1).data(), long(inner)) ||
                     in.writeEnd() || in.writeEndTag() ||
                     f.write(pattern(tail, 9).data(), long(tail)) || outer.writeEnd() ||
                     outer.writeEndTag());
        EXPECT_EQ(file.written().rfind(start, 0), 0u) << file.written().substr(0, 60);

        ASSERT_EQ(f.seek(file.start, 0), 0);
        GSTagRead r(&f), ri(&f);
        ASSERT_FALSE(r.readVersion(0x0100, nullptr) || r.read() != 1);
        ASSERT_FALSE(ri.readVersion(0x0100, nullptr) || ri.read() != 2);
        EXPECT_EQ(readBytes(f, ri.getLength()), pattern(inner, 1));
        ASSERT_EQ(ri.read(), GSTagRead::kEndTag);
        EXPECT_EQ(readBytes(f, r.getBodyStart() + r.getLength() - f.tell()), pattern(tail, 9));
        EXPECT_EQ(r.read(), GSTagRead::kEndTag);
        EXPECT_EQ(f.tell(), long(file.m.bytes().size()));
    }
}
