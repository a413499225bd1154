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

#include <atomic>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <new>

using namespace testing_support;

// The framework allocates element blocks with the non-throwing array form; the largest request
// made tells whether a count read from a file was trusted before it was checked.
static std::atomic<size_t> largestArrayRequest{0};

void* operator new[](std::size_t size, const std::nothrow_t&) noexcept {
    size_t seen = largestArrayRequest.load();
    while (size > seen && !largestArrayRequest.compare_exchange_weak(seen, size)) {
    }
    return std::malloc(size ? size : 1);
}
void operator delete[](void* p) noexcept {
    std::free(p);
}
void operator delete[](void* p, std::size_t) noexcept {
    std::free(p);
}
void* operator new[](std::size_t size) {
    if (void* p = std::malloc(size ? size : 1)) return p;
    throw std::bad_alloc();
}

namespace {

// Builds a document in memory: identifier, version, then items written by the callback.
Bytes document(short version, const std::function<void(GSFile*, GSTagWrite*)>& items,
               bool byteForm = false, const char* id = "Ember Tide Document") {
    MemoryFile m;
    m.file.write(id, static_cast<long>(std::strlen(id)) + 1);
    GSTagWrite top(&m.file);
    top.writeVersion(version);
    if (version >= 0x0300) m.file.startObjectMergingWrite(byteForm);
    items(&m.file, &top);
    top.writeEndTag();
    if (version >= 0x0300) m.file.stopObjectMergingWrite();
    return m.bytes();
}

void previewInfo(GSFile* f, GSTagWrite* chunk, int info, int w, int h) {
    chunk->writeStart(0);
    GSWritePreviewInfo(f, info, {w, h});
    chunk->writeEnd();
}

void inlinePicture(GSFile* f, GSTagWrite* chunk, int kind, int count, const Bytes& image) {
    chunk->writeStart(6);
    f->writeIntAsShort(kind);
    f->writeArrayCount(count);
    f->write(image.data(), static_cast<long>(image.size()));
    chunk->writeEnd();
}

// A document of `version` whose preview chunk (item 13) holds the items the callback writes.
Bytes withPreview(const std::function<void(GSFile*, GSTagWrite*)>& items, short version = 0x0200,
                  short chunkVersion = 256, bool byteForm = false,
                  const char* id = "Ember Tide Document") {
    return document(
        version,
        [&](GSFile* f, GSTagWrite* top) {
            top->writeStart(13);
            GSTagWrite chunk(f);
            chunk.writeVersion(chunkVersion);
            items(f, &chunk);
            chunk.writeEndTag();
            top->writeEnd();
        },
        byteForm, id);
}

struct Extracted {
    short status = -1;
    GSDynaArray<unsigned char> bytes;
    int kind = -1;
    int info = -1;
    GSTSize<int> size{-1, -1};
};

Extracted extract(const Bytes& file) {
    TempFolder folder;
    writeFile(folder.path("doc.etd"), file);
    Extracted e;
    e.status =
        GSGetThumbnail(GSFileSpec(GSString(folder.path("doc.etd").c_str(), -1, GSString::kUTF8)),
                       &e.bytes, &e.kind, &e.info, &e.size);
    return e;
}

const Bytes kImage = fromHex("ff d8 ff e0 00 10 4a 46 49 46 00 01 de ad be ef");

} // namespace

TEST(Extraction, InformationAndInlinePicture) {
    Bytes png(1000, 0x5A);
    Extracted e = extract(withPreview([&](GSFile* f, GSTagWrite* c) {
        previewInfo(f, c, -2, 160, 120);   // a negative value keeps its sign
        inlinePicture(f, c, 5, 1000, png); // kind 5 is read as PNG
    }));
    EXPECT_EQ(e.status, 0);
    EXPECT_EQ(e.kind, 3);
    EXPECT_EQ(e.info, -2);
    EXPECT_EQ(e.size, (GSTSize<int>{160, 120}));
    ASSERT_EQ(e.bytes.getSize(), 1000);
    EXPECT_EQ(e.bytes[999], 0x5A);

    // Picture data before the information: the chunk ends there and the size stays unset.
    e = extract(withPreview([&](GSFile* f, GSTagWrite* c) {
        inlinePicture(f, c, 2, static_cast<int>(kImage.size()), kImage);
        previewInfo(f, c, 7, 160, 120);
    }));
    EXPECT_EQ(e.bytes.getSize(), static_cast<long>(kImage.size()));
    EXPECT_EQ(e.size, (GSTSize<int>{-1, -1}));
    EXPECT_EQ(e.info, -1);
}

TEST(Extraction, DocumentsThatCarryNoPreview) {
    auto picture = [&](int kind, int count) {
        return [=](GSFile* f, GSTagWrite* c) { inlinePicture(f, c, kind, count, kImage); };
    };
    const Bytes good = withPreview(picture(2, 16));
    Bytes noNul = good;
    noNul[19] = ' ';
    struct Case {
        const char* what;
        Bytes file;
    } cases[] = {
        {"selection", withPreview(picture(2, 16), 0x0200, 256, false, "Ember Tide Selection")},
        {"version 4.0", withPreview(picture(2, 16), 0x0400)},
        {"minor 16", withPreview(picture(2, 16), 0x0210)},
        {"identifier without NUL", noNul},
        {"kind 4", withPreview(picture(4, 16))},
        {"count 0", withPreview(picture(2, 0))},
        {"preview chunk of major 2", withPreview(picture(2, 16), 0x0200, 0x0200)},
        // The count claims far more than the file holds: refused before anything is allocated.
        {"count beyond the file", withPreview(picture(2, 0x7FFFFFFF))},
        // A registered, creatable class that is no picture data: its record is read, never used.
        {"record of another class", withPreview([&](GSFile* f, GSTagWrite* c) {
             c->writeStart(4);
             GSFileWorkerMemory other;
             f->writeObject(&other);
             f->write(kImage.data(), static_cast<long>(kImage.size()));
             c->writeEnd();
         })},
        // A negative length before the preview: the scan must stop, not walk backwards forever.
        {"negative item length", document(0x0200,
                                          [&](GSFile* f, GSTagWrite*) {
                                              f->writeLong(12);
                                              f->writeLong(-8);
                                          })},
    };
    EXPECT_EQ(extract(good).bytes.getSize(), 16) << "the cases' source is no good document";
    for (const Case& c : cases) {
        SCOPED_TRACE(c.what);
        largestArrayRequest = 0;
        Extracted e = extract(c.file);
        EXPECT_EQ(e.status, 0) << "an opened file is no failure";
        EXPECT_EQ(e.bytes.getSize(), 0);
        EXPECT_LT(largestArrayRequest.load(), 1u << 20)
            << "allocated for a count the file cannot hold";
    }

    // Truncation at every offset of a good document never yields bytes that are not there.
    Bytes whole = withPreview(
        [&](GSFile* f, GSTagWrite* c) {
            previewInfo(f, c, 1, 8, 8);
            inlinePicture(f, c, 2, static_cast<int>(kImage.size()), kImage);
        },
        0x0302, 256, true);
    for (size_t cut = 0; cut < whole.size(); ++cut) {
        long size =
            extract(Bytes(whole.begin(), whole.begin() + static_cast<long>(cut))).bytes.getSize();
        EXPECT_TRUE(size == 0 || size == static_cast<long>(kImage.size())) << "cut at " << cut;
    }
}

TEST(Extraction, OnlyUnopenableFilesAndMisuseFail) {
    GSDynaArray<unsigned char> bytes;
    int kind = 0, info = 0;
    GSTSize<int> size;
    EXPECT_NE(
        GSGetThumbnail(GSFileSpec(GSString("/nonexistent/doc.etd")), &bytes, &kind, &info, &size),
        0);
    EXPECT_EQ(bytes.getSize(), 0);

    // Tag 11 asks for object merging in a version 3 document that already merges.
    Bytes twice = document(0x0300, [&](GSFile* f, GSTagWrite* top) {
        top->writeStart(11);
        f->writeShort(256);
        f->writeLong(0);
        top->writeEnd();
    });
    EXPECT_THROW(extract(twice), std::bad_file);
}
