// ExtractionTest.cpp - finding the preview in documents built item by item, including the
// malformed ones a stranger could send. Documents of every layout made by our writer are read
// back through `ember-tide create` and `extract` (tests/cli).
#include "GSExceptions.h"
#include "GSFileWorkerMemory.h"
#include "GSGetThumbnail.h"
#include "GSMemPicData.h"
#include "GSTagWrite.h"
#include "TestSupport.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <functional>
#include <new>

using namespace testing_support;

// The framework allocates element blocks with the non-throwing array form; the largest request
// made tells whether a count read from a file was trusted before it was checked.
static size_t largestArrayRequest = 0;

void* operator new[](std::size_t size, const std::nothrow_t&) noexcept {
    largestArrayRequest = std::max(largestArrayRequest, size);
    return ::operator new(size, std::nothrow);
}
void* operator new[](std::size_t size) {
    return ::operator new(size);
}
void operator delete[](void* p) noexcept {
    ::operator delete(p);
}
void operator delete[](void* p, std::size_t) noexcept {
    ::operator delete(p);
}

namespace {

using Items = std::function<void(GSFile*, GSTagWrite*)>;

// Identifier, version (and from 3.0 object merging), then the items, ended.
Bytes document(short version, const std::vector<Items>& items, bool byteForm = false,
               const char* id = "Ember Tide Document") {
    MemoryFile m;
    m.file.write(id, static_cast<long>(std::strlen(id)) + 1);
    GSTagWrite top(&m.file);
    top.writeVersion(version);
    if (version >= 0x0300) m.file.startObjectMergingWrite(byteForm);
    for (const Items& write : items)
        write(&m.file, &top);
    top.writeEndTag();
    if (version >= 0x0300) m.file.stopObjectMergingWrite();
    return m.bytes();
}

// Item `tag`, whose body `body` writes.
Items item(int tag, const std::function<void(GSFile*)>& body) {
    return [=](GSFile* f, GSTagWrite* chunk) {
        chunk->writeStart(tag);
        body(f);
        chunk->writeEnd();
    };
}

// Item 13, the preview chunk (of `chunkVersion`), holding `items`.
Items preview(const std::vector<Items>& items, short chunkVersion = 256) {
    return item(13, [=](GSFile* f) {
        GSTagWrite chunk(f);
        chunk.writeVersion(chunkVersion);
        for (const Items& write : items)
            write(f, &chunk);
        chunk.writeEndTag();
    });
}

Bytes withPreview(const std::vector<Items>& items) {
    return document(0x0200, {preview(items)});
}

Items info(int value, int w, int h) {
    return item(0, [=](GSFile* f) { GSWritePreviewInfo(f, value, {w, h}); });
}

// Item 6: kind, a count that may lie, and the bytes.
Items picture(int kind, long count, const Bytes& image) {
    return item(6, [=](GSFile* f) {
        f->writeIntAsShort(kind);
        f->writeArrayCount(count);
        f->write(image.data(), static_cast<long>(image.size()));
    });
}

// Bytes as they are, where an item would start.
Items raw(const std::string& hex) {
    return [=](GSFile* f, GSTagWrite*) { f->write(fromHex(hex).data(), (hex.size() + 1) / 3); };
}

const Bytes kImage = fromHex("ff d8 ff e0 00 10 4a 46 49 46 00 01 de ad be ef");
const Items kJPEG = picture(2, 16, kImage);

struct Extracted {
    short status = -1;
    GSDynaArray<unsigned char> bytes;
    int kind = -1, info = -1;
    GSTSize<int> size{-1, -1};
};

Extracted extract(const Bytes& file) {
    TempFolder folder;
    writeFile(folder.path("doc.etd"), file);
    Extracted e;
    GSFileSpec spec(GSString(folder.path("doc.etd").c_str(), -1, GSString::kUTF8));
    e.status = GSGetThumbnail(spec, &e.bytes, &e.kind, &e.info, &e.size);
    return e;
}

} // namespace

TEST(Extraction, FindsThePreviewOnlyWhereTheDocumentHoldsOne) {
    Bytes noNul = withPreview({kJPEG});
    noNul[19] = ' ';
    struct Case {
        const char* what;
        Bytes file;
        long bytes = 0; // and when there are some, what comes with them:
        int kind = -1, info = -1, width = -1, height = -1;
    } cases[] = {
        // A negative information value keeps its sign; kind 5 is read as PNG.
        {"information, then PNG inline",
         withPreview({info(-2, 160, 120), picture(5, 1000, Bytes(1000, 0x5A))}), 1000, 3, -2, 160,
         120},
        // The chunk ends with the picture: the information after it is never read.
        {"picture, then information", withPreview({kJPEG, info(7, 160, 120)}), 16, 2},
        {"JPEG inline: the source of the cases below", withPreview({kJPEG}), 16, 2},
        {"selection", document(0x0200, {preview({kJPEG})}, false, "Ember Tide Selection")},
        {"version 4.0", document(0x0400, {preview({kJPEG})})},
        {"minor 16", document(0x0210, {preview({kJPEG})})},
        {"identifier without NUL", noNul},
        {"kind 4", withPreview({picture(4, 16, kImage)})},
        {"count 0", withPreview({picture(2, 0, kImage)})},
        {"preview chunk of major 2", document(0x0200, {preview({kJPEG}, 0x0200)})},
        // The count claims far more than the file holds: refused before anything is allocated.
        {"count beyond the file", withPreview({picture(2, 0x7FFFFFFF, kImage)})},
        // A registered, creatable class that is no picture data: its record is read, never used.
        {"record of another class", withPreview({item(4,
                                                      [](GSFile* f) {
                                                          GSFileWorkerMemory other;
                                                          f->writeObject(&other);
                                                          f->write(kImage.data(), 16);
                                                      })})},
        // A negative length before the preview: the scan must stop, not walk backwards forever.
        {"negative item length",
         document(0x0200, {raw("00 00 00 0c ff ff ff f8"), preview({kJPEG})})},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.what);
        largestArrayRequest = 0;
        Extracted e = extract(c.file);
        EXPECT_EQ(e.status, 0) << "an opened file is no failure";
        EXPECT_LT(largestArrayRequest, 1u << 20) << "allocated for a count not in the file";
        ASSERT_EQ(e.bytes.getSize(), c.bytes);
        if (c.bytes == 0) continue;
        EXPECT_EQ(e.bytes[c.bytes - 1], c.kind == 3 ? 0x5A : 0xEF);
        EXPECT_EQ(e.kind, c.kind);
        EXPECT_EQ(e.info, c.info);
        EXPECT_EQ(e.size, (GSTSize<int>{c.width, c.height}));
    }

    // Truncation at every offset of a good document never yields bytes that are not there.
    Bytes whole = document(0x0302, {preview({info(1, 8, 8), kJPEG})}, true);
    for (size_t cut = 0; cut < whole.size(); ++cut) {
        long size =
            extract(Bytes(whole.begin(), whole.begin() + static_cast<long>(cut))).bytes.getSize();
        EXPECT_TRUE(size == 0 || size == 16) << "cut at " << cut;
    }
}

TEST(Extraction, OnlyUnopenableFilesAndMisuseFail) {
    Extracted e;
    EXPECT_NE(GSGetThumbnail(GSFileSpec(GSString("/nonexistent/doc.etd")), &e.bytes, &e.kind,
                             &e.info, &e.size),
              0);
    // Tag 11 asks for object merging in a version 3 document that already merges.
    EXPECT_THROW(extract(document(0x0300, {item(11,
                                                [](GSFile* f) {
                                                    f->writeShort(256);
                                                    f->writeLong(0);
                                                })})),
                 std::bad_file);
}
