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
        EXPECT_EQ(f.write(bytes.data(), long(bytes.size())), 0);
        rewind();
    }
    void rewind() { EXPECT_EQ(f.seek(start, 0), 0); }
    std::string written() const {
        Bytes all = m.bytes();
        return toHex(Bytes(all.begin() + start, all.end()));
    }
    MemoryFile m;
    GSFile& f = m.file;
    long start = 0;
};

// Version 1.0, one item of tag 5 whose body is written `piece` bytes at a time, the end marker.
void writeOneItemChunk(GSFile& f, const Bytes& body, size_t piece) {
    GSTagWrite w(&f);
    ASSERT_EQ(w.writeVersion(0x0100), 0);
    ASSERT_EQ(w.writeStart(5), 0);
    for (size_t at = 0; at < body.size(); at += piece)
        ASSERT_EQ(f.write(body.data() + at, long(std::min(piece, body.size() - at))), 0);
    ASSERT_EQ(w.writeEnd(), 0);
    ASSERT_EQ(w.writeEndTag(), 0);
}

} // namespace

// A byte-form body of up to 255 bytes gets a 2-byte header, a longer one a 9-byte header, however
// the body is cut into writes.
TEST(Chunks, OneItemLayout) {
    const std::string longHeader = "85 00 00 00 00 00 00 01 00";
    struct Case {
        bool byteForm;
        size_t size, piece;
        std::string header;
    };
    // clang-format off
    const Case cases[] = {
        {false, 300, 7, "00 00 00 05 00 00 01 2c"}, {true, 0, 1, "05 00"},
        {true, 255, 255, "05 ff"}, {true, 255, 1, "05 ff"},       {true, 256, 256, longHeader},
        {true, 256, 1, longHeader}, {true, 256, 200, longHeader},
    };
    // clang-format on
    for (const Case& c : cases) {
        SCOPED_TRACE((c.byteForm ? "byte form, " : "long form, ") + std::to_string(c.size) +
                     " bytes in pieces of " + std::to_string(c.piece));
        ChunkFile file(c.byteForm);
        Bytes body = pattern(c.size, 'a');
        writeOneItemChunk(file.f, body, c.piece);
        std::string bodyHex = c.size ? " " + toHex(body) : "";
        EXPECT_EQ(file.written(), c.byteForm ? "10 " + c.header + bodyHex + " 7f"
                                             : "01 00 " + c.header + bodyHex + " ff ff ff ff");
        file.rewind();
        GSTagRead r(&file.f);
        short version = 0;
        ASSERT_EQ(r.readVersion(0x0100, &version), 0);
        EXPECT_EQ(version, 0x0100);
        ASSERT_EQ(r.read(), 5);
        ASSERT_EQ(r.getLength(), long(c.size));
        EXPECT_EQ(readBytes(file.f, r.getLength()), body);
        EXPECT_EQ(r.read(), GSTagRead::kEndTag);
    }

    // Any byte whose low seven bits are all set ends a byte-form chunk, whatever its top bit.
    for (const char* end : {"7f", "ff"}) {
        ChunkFile e(true, end);
        EXPECT_EQ(GSTagRead(&e.f).read(), GSTagRead::kEndTag) << end;
    }
}

// A chunk of a newer major version is stepped over whole, so that the caller goes on after it; a
// newer minor is accepted; major 0 and minors of 16 or more are refused but not skipped.
TEST(Chunks, ReadVersionAgainstTheNewestKnown) {
    const char* longItems = "00 00 00 01 00 00 00 02 aa bb 00 00 00 02 00 00 00 00 ff ff ff ff 5a";
    const char* byteItems = "01 02 aa bb 82 00 00 00 00 00 00 00 01 cc 7f 5a";
    struct Case {
        const char* version;
        bool byteForm;
        short maxVersion, result, expected;
    };
    // clang-format off
    const Case cases[] = {
        {"00 03 00 02", false, 770, 0, 0x0302}, // the old form: major and minor as two shorts
        {"03 05", false, 770, 0, 0x0305},       {"32", true, 770, 0, 0x0302},
        {"04 00", false, 770, 1, 0x0400},       {"00 04 00 01", false, 770, 1, 0x0401},
        {"40", true, 770, 1, 0x0400},           {"00 00 00 10", false, 770, 1, 0x0010},
        {"03 20", false, 770, 1, 0x0320},       {"09 00", false, 0, 0, 0x0900},
    };
    // clang-format on
    for (const Case& c : cases) {
        SCOPED_TRACE(std::string(c.version) + (c.byteForm ? " (byte form)" : ""));
        std::string chunk = std::string(c.version) + " " + (c.byteForm ? byteItems : longItems);
        ChunkFile file(c.byteForm, chunk.c_str());
        short version = 0;
        EXPECT_EQ(GSTagRead(&file.f).readVersion(c.maxVersion, &version), c.result);
        EXPECT_EQ(version, c.expected);
        if ((c.expected >> 8) > (c.maxVersion >> 8) && c.maxVersion > 0) {
            EXPECT_EQ(file.f.getChar(), 'Z') << "a too-new chunk must be skipped to its end";
        } else {
            EXPECT_EQ(file.f.tell(), file.start + long(fromHex(c.version).size()));
        }
    }
}

// Long-form lengths are patched in batches: the 16th writeEnd writes all 16 and puts the position
// back at the end; writeEndTag writes the rest.
TEST(Chunks, LongFormLengthCache) {
    MemoryFile m;
    GSTagWrite w(&m.file);
    ASSERT_EQ(w.writeVersion(0x0100), 0);
    auto lengthField = [&](int item) {
        Bytes all = m.bytes();
        return toHex(Bytes(all.begin() + 6 + item * 10, all.begin() + 10 + item * 10));
    };
    for (int i = 0; i < 17; ++i) {
        ASSERT_EQ(w.writeStart(i + 1), 0);
        ASSERT_EQ(m.file.write("xy", 2), 0);
        for (int j = 0; i == 15 && j < 15; ++j)
            ASSERT_EQ(lengthField(j), "00 00 00 00") << "item " << j << " patched early";
        ASSERT_EQ(w.writeEnd(), 0);
        if (i == 15) {
            for (int j = 0; j < 16; ++j)
                EXPECT_EQ(lengthField(j), "00 00 00 02") << "item " << j;
            EXPECT_EQ(m.file.tell(), long(m.bytes().size())) << "position not restored";
        }
    }
    EXPECT_EQ(lengthField(16), "00 00 00 00");
    ASSERT_EQ(w.writeEndTag(), 0);
    EXPECT_EQ(lengthField(16), "00 00 00 02");
    EXPECT_EQ(m.bytes().size(), 2 + 17 * 10 + 4u);
}

// A byte-form chunk inside an item of another: the inner writer's worker sits on the outer's, and
// whichever body outgrows its buffer first, the headers must reach the file in order.
TEST(Chunks, NestedByteFormChunks) {
    struct Case {
        std::vector<size_t> inner; // body sizes of the inner chunk's items
        size_t tail;               // bytes of the outer body after the inner chunk
        const char* start;         // expected first bytes
    };
    const Case cases[] = {
        {{3}, 0, "10 01 07 10 02 03"},
        {{300}, 0, "10 81 00 00 00 00 00 00 01 37 10 82 00 00 00 00 00 00 01 2c"},
        {{3}, 300, "10 81 00 00 00 00 00 00 01 33 10 02 03"},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.start);
        ChunkFile file(true);
        GSFile& f = file.f;
        GSTagWrite outer(&f), inner(&f);
        ASSERT_EQ(outer.writeVersion(0x0100), 0);
        ASSERT_EQ(outer.writeStart(1), 0);
        ASSERT_EQ(inner.writeVersion(0x0100), 0);
        for (size_t i = 0; i < c.inner.size(); ++i) {
            ASSERT_EQ(inner.writeStart(int(i) + 2), 0);
            ASSERT_EQ(f.write(pattern(c.inner[i], int(i)).data(), long(c.inner[i])), 0);
            ASSERT_EQ(inner.writeEnd(), 0);
        }
        ASSERT_EQ(inner.writeEndTag(), 0);
        ASSERT_EQ(f.write(pattern(c.tail, 99).data(), long(c.tail)), 0);
        ASSERT_EQ(outer.writeEnd(), 0);
        ASSERT_EQ(outer.writeEndTag(), 0);
        EXPECT_EQ(file.written().rfind(c.start, 0), 0u) << file.written().substr(0, 60);

        file.rewind();
        GSTagRead r(&f), ri(&f);
        ASSERT_EQ(r.readVersion(0x0100, nullptr), 0);
        ASSERT_EQ(r.read(), 1);
        ASSERT_EQ(ri.readVersion(0x0100, nullptr), 0);
        for (size_t i = 0; i < c.inner.size(); ++i) {
            ASSERT_EQ(ri.read(), int(i) + 2) << "inner item " << i;
            EXPECT_EQ(readBytes(f, ri.getLength()), pattern(c.inner[i], int(i)));
        }
        ASSERT_EQ(ri.read(), GSTagRead::kEndTag);
        EXPECT_EQ(readBytes(f, r.getBodyStart() + r.getLength() - f.tell()), pattern(c.tail, 99));
        EXPECT_EQ(r.read(), GSTagRead::kEndTag);
        EXPECT_EQ(f.tell(), long(file.m.bytes().size()));
    }
}
