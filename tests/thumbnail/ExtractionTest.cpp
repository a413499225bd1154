// ExtractionTest.cpp - finding the preview in documents built item by item, including the
// malformed ones a stranger could send.
#include "EmberTideDocumentWriter.h"
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
void operator delete[](void* p) noexcept { std::free(p); }
void operator delete[](void* p, std::size_t) noexcept { std::free(p); }
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

// A preview chunk as item 13, its items written by the callback.
void previewChunk(GSFile* f, GSTagWrite* top, const std::function<void(GSTagWrite*)>& items,
                  short chunkVersion = 256) {
    top->writeStart(13);
    GSTagWrite chunk(f);
    chunk.writeVersion(chunkVersion);
    items(&chunk);
    chunk.writeEndTag();
    top->writeEnd();
}

struct Extracted {
    GSDynaArray<unsigned char> bytes;
    int kind = -1;
    int info = -1;
    GSTSize<int> size{-1, -1};
};

Extracted extract(const Bytes& file) {
    TempFolder folder;
    writeFile(folder.path("doc.etd"), file);
    Extracted e;
    EXPECT_EQ(GSGetThumbnail(GSFileSpec(GSString(folder.path("doc.etd").c_str())), &e.bytes, &e.kind,
                             &e.info, &e.size),
              0);
    return e;
}

const Bytes kImage = fromHex("ff d8 ff e0 00 10 4a 46 49 46 00 01 de ad be ef");

} // namespace

TEST(Extraction, InformationAndInlinePicture) {
    Bytes png(1000, 0x5A);
    Extracted e = extract(document(0x0200, [&](GSFile* f, GSTagWrite* top) {
        previewChunk(f, top, [&](GSTagWrite* c) {
            previewInfo(f, c, 7, 160, 120);
            inlinePicture(f, c, 5, 1000, png); // kind 5 is read as PNG
        });
    }));
    EXPECT_EQ(e.kind, 3);
    EXPECT_EQ(e.info, 7);
    EXPECT_EQ(e.size, (GSTSize<int>{160, 120}));
    ASSERT_EQ(e.bytes.getSize(), 1000);
    EXPECT_EQ(e.bytes[999], 0x5A);

    // Picture data before the information: the chunk ends there and the size stays unset.
    e = extract(document(0x0200, [&](GSFile* f, GSTagWrite* top) {
        previewChunk(f, top, [&](GSTagWrite* c) {
            inlinePicture(f, c, 2, static_cast<int>(kImage.size()), kImage);
            previewInfo(f, c, 7, 160, 120);
        });
    }));
    EXPECT_EQ(e.bytes.getSize(), static_cast<long>(kImage.size()));
    EXPECT_EQ(e.size, (GSTSize<int>{-1, -1}));
    EXPECT_EQ(e.info, -1);
}

TEST(Extraction, WriterRoundTripsEveryVersionFormAndStore) {
    using O = EmberTideDocumentOptions;
    for (short version : {short(0x0100), short(0x0200), short(0x0300), short(0x0302)})
        for (bool byteForm : {false, true})
            for (O::Store store : {O::kInline, O::kRecord, O::kSystemRecord}) {
                if (byteForm && version < 0x0300) continue;
                SCOPED_TRACE(testing::Message() << "version " << version << " byte " << byteForm
                                                << " store " << store);
                EmberTidePreview preview;
                preview.bytes = toDynaArray(kImage);
                preview.kind = 3;
                preview.infoValue = -2;
                preview.size = {300, 200};
                O options;
                options.version = version;
                options.byteForm = byteForm;
                options.store = store;
                MemoryFile m;
                ASSERT_EQ(EmberTideWriteDocument(&m.file, preview, options), 0);
                Extracted e = extract(m.bytes());
                ASSERT_EQ(e.bytes.getSize(), static_cast<long>(kImage.size()));
                EXPECT_EQ(std::memcmp(e.bytes.getData(), kImage.data(), kImage.size()), 0);
                EXPECT_EQ(e.kind, 3);
                EXPECT_EQ(e.size, (GSTSize<int>{300, 200}));
                EXPECT_EQ(e.info, -2); // from the information item, also for records
            }
}

TEST(Extraction, DocumentsThatCarryNoPreview) {
    auto good = [&](GSFile* f, GSTagWrite* top) {
        previewChunk(f, top, [&](GSTagWrite* c) {
            inlinePicture(f, c, 2, static_cast<int>(kImage.size()), kImage);
        });
    };
    struct Case {
        const char* what;
        Bytes file;
    } cases[] = {
        {"selection", document(0x0200, good, false, "Ember Tide Selection")},
        {"version 4.0", document(0x0400, good)},
        {"minor 16", document(0x0210, good)},
        {"identifier without NUL", [&] {
             Bytes b = document(0x0200, good);
             b[19] = ' ';
             return b;
         }()},
        {"kind 4", document(0x0200, [&](GSFile* f, GSTagWrite* top) {
             previewChunk(f, top, [&](GSTagWrite* c) { inlinePicture(f, c, 4, 16, kImage); });
         })},
        {"count 0", document(0x0200, [&](GSFile* f, GSTagWrite* top) {
             previewChunk(f, top, [&](GSTagWrite* c) { inlinePicture(f, c, 2, 0, {}); });
         })},
        {"preview chunk of major 2", document(0x0200, [&](GSFile* f, GSTagWrite* top) {
             previewChunk(f, top, [&](GSTagWrite* c) { inlinePicture(f, c, 2, 16, kImage); }, 0x0200);
         })},
        // The count claims far more than the file holds: refused before anything is allocated.
        {"count beyond the file", document(0x0200, [&](GSFile* f, GSTagWrite* top) {
             previewChunk(f, top, [&](GSTagWrite* c) { inlinePicture(f, c, 2, 0x7FFFFFFF, kImage); });
         })},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.what);
        largestArrayRequest = 0;
        EXPECT_EQ(extract(c.file).bytes.getSize(), 0);
        EXPECT_LT(largestArrayRequest.load(), 1u << 20) << "allocated for a count the file cannot hold";
    }
}

TEST(Extraction, RecordsOfOtherClassesAreNoPicture) {
    // A registered, creatable class that is no picture data: its record is read, never used.
    Bytes file = document(0x0200, [&](GSFile* f, GSTagWrite* top) {
        previewChunk(f, top, [&](GSTagWrite* c) {
            c->writeStart(4);
            GSFileWorkerMemory other;
            f->writeObject(&other);
            f->write(kImage.data(), static_cast<long>(kImage.size()));
            c->writeEnd();
        });
    });
    EXPECT_EQ(extract(file).bytes.getSize(), 0);
}

TEST(Extraction, MalformedItemsEndTheScan) {
    // A negative length before the preview: the scan must stop, not walk backwards forever.
    Bytes file = document(0x0200, [&](GSFile* f, GSTagWrite*) {
        f->writeLong(12);
        f->writeLong(-8);
    });
    EXPECT_EQ(extract(file).bytes.getSize(), 0);

    // Truncation at every offset of a good document never yields bytes that are not there.
    Bytes good = document(0x0302, [&](GSFile* f, GSTagWrite* top) {
        previewChunk(f, top, [&](GSTagWrite* c) {
            previewInfo(f, c, 1, 8, 8);
            inlinePicture(f, c, 2, static_cast<int>(kImage.size()), kImage);
        });
    }, true);
    for (size_t cut = 0; cut < good.size(); ++cut) {
        Bytes part(good.begin(), good.begin() + static_cast<long>(cut));
        Extracted e = extract(part);
        if (e.bytes.getSize() > 0) {
            SCOPED_TRACE(cut);
            EXPECT_EQ(e.bytes.getSize(), static_cast<long>(kImage.size()));
        }
    }
}

TEST(Extraction, MergingStartedTwiceIsMisuse) {
    // Tag 11 asks for object merging in a version 3 document that already merges.
    Bytes file = document(0x0300, [&](GSFile* f, GSTagWrite* top) {
        top->writeStart(11);
        f->writeShort(256);
        f->writeLong(0);
        top->writeEnd();
    });
    TempFolder folder;
    writeFile(folder.path("doc.etd"), file);
    GSDynaArray<unsigned char> bytes;
    int kind, info;
    GSTSize<int> size;
    EXPECT_THROW(GSGetThumbnail(GSFileSpec(GSString(folder.path("doc.etd").c_str())), &bytes, &kind,
                                &info, &size),
                 std::bad_file);
}

TEST(Extraction, UnopenableFileIsTheOnlyFailure) {
    GSDynaArray<unsigned char> bytes;
    int kind = 0, info = 0;
    GSTSize<int> size;
    EXPECT_NE(GSGetThumbnail(GSFileSpec(GSString("/nonexistent/doc.etd")), &bytes, &kind, &info, &size),
              0);
    EXPECT_EQ(bytes.getSize(), 0);
}
