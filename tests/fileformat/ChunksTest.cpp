// ChunksTest.cpp - tagged chunks in both forms: the exact bytes the writer produces, the patching
// of lengths, nested byte-form items, and what the reader makes of them, crafted ones included.
#include "MemoryAndDisk.h"
#include "fileformat/GSTagRead.h"
#include "fileformat/GSTagWrite.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>
#include <string>
#include <vector>

using namespace testing_support;

namespace {

// A memory file for chunks of one form. The byte form is chosen by an object table with 64-bit
// positions, whose own header comes first: `start` is where the chunk begins.
struct ChunkFile {
    explicit ChunkFile(bool byteForm) {
        EXPECT_EQ(byteForm ? f.startObjectMergingWrite(1) : 0, 0);
        start = f.tell();
    }
    std::string written() const {
        Bytes all = m.bytes();
        return toHex(Bytes(all.begin() + start, all.end()));
    }
    MemoryFile m;
    GSFile& f = m.file;
    long start = 0;
};

// What a reader makes of a chunk: its version ("!" when refused) and the position after it, then
// each item's tag and length up to the end marker, or "stop" where an item cannot be read or
// skipped. A too-new chunk is stepped over whole: the byte after it is shown instead.
std::string walk(GSFile& f, short maxVersion) {
    long start = f.tell();
    GSTagRead r(&f);
    short version = 0, refused = r.readVersion(maxVersion, &version);
    char text[16];
    std::snprintf(text, sizeof text, "%04x%s", version, refused ? "!" : "");
    if (refused && maxVersion > 0 && (version >> 8) > (maxVersion >> 8))
        return text + (" next " + toHex(Bytes{static_cast<unsigned char>(f.getChar())}));
    std::string out = text + ("@" + std::to_string(f.tell() - start));
    for (int i = 0; i < 8 && !refused; ++i) {
        int tag = r.read();
        if (tag == GSTagRead::kEndTag) return out + " end";
        if (tag == GSTagRead::kBadTag) return out + " stop";
        out += " " + std::to_string(tag) + ":" + std::to_string(r.getLength());
        if (r.skip()) return out + " stop";
    }
    return out;
}

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
        Bytes body(size, 0x7f); // each byte could pass for an end marker
        GSTagWrite w(&file.f);
        ASSERT_FALSE(w.writeVersion(0x0100) || w.writeStart(5));
        for (size_t at = 0; at < body.size(); at += piece)
            ASSERT_EQ(file.f.write(body.data() + at, long(std::min(piece, size - at))), 0);
        ASSERT_FALSE(w.writeEnd() || w.writeEndTag());
        std::string bodyHex = size ? " " + toHex(body) : "";
        EXPECT_EQ(file.written(), byteForm ? "10 " + header + bodyHex + " 7f"
                                           : "01 00 " + header + bodyHex + " ff ff ff ff");
        ASSERT_EQ(file.f.seek(file.start, 0), 0);
        EXPECT_EQ(walk(file.f, 0x0100),
                  (byteForm ? "0100@1 5:" : "0100@2 5:") + std::to_string(size) + " end");
    }
}

// A chunk of a newer major version is stepped over whole, so that the caller goes on after it; a
// newer minor is accepted; major 0 and minors of 16 or more are refused but not skipped. Any byte
// whose low seven bits are all set ends a byte-form chunk. An item length that points backwards
// would put the reader onto the same header again, and one far beyond the data must not overflow
// the position arithmetic: skipping either fails, or (on a real file) leaves the reader where no
// header can be read, in a plain walk and in readVersion's walk over a too-new chunk. Data that
// ends inside a header is a failed read.
TEST(Chunks, Reading) {
    const std::string longItems =
                          " 00 00 00 01 00 00 00 02 aa bb 00 00 00 02 00 00 00 00 ff ff ff ff 5a",
                      byteItems = " 01 02 aa bb 82 00 00 00 00 00 00 00 01 cc 7f 5a";
    // clang-format off
    const std::tuple<std::string, bool, short, const char*> cases[] = {
        {"00 03 00 02" + longItems, false, 770, "0302@4 1:2 2:0 end"}, // major and minor as shorts
        {"03 05" + longItems, false, 770, "0305@2 1:2 2:0 end"},
        {"32" + byteItems, true, 770, "0302@1 1:2 2:1 end"},
        {"04 00" + longItems, false, 770, "0400! next 5a"},
        {"00 04 00 01" + longItems, false, 770, "0401! next 5a"},
        {"40" + byteItems, true, 770, "0400! next 5a"},
        {"00 00 00 10" + longItems, false, 770, "0010!@4"},
        {"03 20" + longItems, false, 770, "0320!@2"},
        {"09 00" + longItems, false, 0, "0900@2 1:2 2:0 end"},
        {"10 ff", true, 0x0100, "0100@1 end"},
        {"01 00 00 00 00 05 ff ff ff f8 ff ff ff ff", false, 0x0100, "0100@2 5:-8 stop"},
        {"01 00 00 00 00 05 ff ff ff ff 00 00 00 00", false, 0x0100, "0100@2 5:-1 stop"},
        {"01 00 00 00 00 05 7f ff ff ff 61 62 ff ff ff ff", false, 0x0100, "0100@2 5:2147483647 stop"},
        {"10 85 ff ff ff ff ff ff ff f7 7f", true, 0x0100, "0100@1 5:-9 stop"},
        {"10 85 40 00 00 00 00 00 00 00 61 62 7f", true, 0x0100, "0100@1 5:4611686018427387904 stop"},
        {"10 85 7f ff ff ff ff ff ff ff 61 7f", true, 0x0100, "0100@1 5:9223372036854775807 stop"},
        {"04 00 00 00 00 05 ff ff ff f8 5a", false, 0x0302, "0400! next 5a"},
        {"40 85 ff ff ff ff ff ff ff f7 5a", true, 0x0302, "0400! next 5a"},
        {"00 03", false, 0x0300, "0000!@2"},
        {"01 00 00 00 00 05 00 00", false, 0x0100, "0100@2 stop"},
        {"10 05", true, 0x0100, "0100@1 stop"},
        {"10 85 00 00 00 01", true, 0x0100, "0100@1 stop"}};
    // clang-format on
    for (const auto& [hex, byteForm, maxVersion, expected] : cases) {
        SCOPED_TRACE(hex);
        onMemoryAndDisk(fromHex(hex), byteForm,
                        [&](GSFile& f) { EXPECT_EQ(walk(f, maxVersion), expected); });
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
                     in.writeStart(2) || f.write(Bytes(inner, 0x7f).data(), long(inner)) ||
                     in.writeEnd() || in.writeEndTag() ||
                     f.write(Bytes(tail, 0xff).data(), long(tail)) || outer.writeEnd() ||
                     outer.writeEndTag());
        std::string written = file.written();
        EXPECT_EQ(written.rfind(start, 0), 0u) << written.substr(0, 60);
        ASSERT_EQ(f.seek(file.start, 0), 0);
        GSTagRead r(&f);
        ASSERT_FALSE(r.readVersion(0x0100, nullptr) || r.read() != 1);
        EXPECT_EQ(walk(f, 0x0100), "0100@1 2:" + std::to_string(inner) + " end");
        EXPECT_EQ(r.getBodyStart() + r.getLength() - f.tell(), long(tail));
        ASSERT_EQ(f.seek(long(tail), 1), 0);
        EXPECT_EQ(r.read(), GSTagRead::kEndTag);
        EXPECT_EQ(f.tell(), long(f.getLength()));
    }
}
