// ExtractionTest.cpp - finding the preview in documents built item by item, including the
// malformed ones a stranger could send. Documents of every layout made by our writer are read
// back through `ember-tide create` and `extract` (tests/cli).
#include "TestSupport.h"
#include "fileformat/GSTagWrite.h"
#include "objects/GSExceptions.h"
#include "objects/GSRuntimeClass.h"
#include "thumbnail/EmberTideDocumentWriter.h"
#include "thumbnail/GSGetThumbnail.h"
#include "thumbnail/GSMemPicData.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <functional>
#include <new>
#include <tuple>

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

const Bytes kImage = fromHex("ff d8 ff e0 00 10 4a 46 49 46 00 01 de ad be ef");
const Items kJPEG = picture(2, 16, kImage);

// Item 4: a picture-data record of class T (which reads exactly like GSMemPicData) holding the
// bytes.
template <class T> Items record() {
    return item(4, [](GSFile* f) {
        T picture;
        picture.kind = 2, picture.dataSize = 16, picture.size = {4, 3};
        picture.bytes = toDynaArray(kImage);
        f->writeObject(&picture);
    });
}

// A whole document around kImage (information 1, 4 x 3) by the writer that `ember-tide create`
// uses.
Bytes written(const EmberTideDocumentOptions& options) {
    EmberTidePreview preview{toDynaArray(kImage), 2, 1, {4, 3}};
    MemoryFile m;
    EXPECT_EQ(EmberTideWriteDocument(&m.file, preview, options), 0);
    return m.bytes();
}

// Reads like picture data but is another class; its name is as long as "GSMemPicData".
class ForeignPic : public GSMemPicData {
public:
    static GSRuntimeClass gsClassForeignPic;
    static GSObject* _createFunction() { return new ForeignPic(); }
    const GSRuntimeClass* getRuntimeClass() const override { return &gsClassForeignPic; }
};
GSRuntimeClass ForeignPic::gsClassForeignPic("GSForeignPic", &GSMemPicData::gsClassGSMemPicData,
                                             &ForeignPic::_createFunction);

// What GSGetThumbnail finds in `file`: the status, the byte count and (when there are bytes) the
// last byte, the kind, the information value and the size.
std::string extract(const Bytes& file) {
    TempFolder folder;
    writeFile(folder.path("doc.etd"), file);
    GSDynaArray<unsigned char> bytes;
    int kind = -1, info = -1;
    GSTSize<int> size{-1, -1};
    GSFileSpec spec(GSString(folder.path("doc.etd").c_str(), -1, GSString::kUTF8));
    std::string found = std::to_string(GSGetThumbnail(spec, &bytes, &kind, &info, &size));
    found += " " + std::to_string(bytes.getSize());
    if (bytes.getSize() == 0) return found;
    return found + " " + toHex({bytes[bytes.getSize() - 1]}) + " kind " + std::to_string(kind) +
           " info " + std::to_string(info) + " " + std::to_string(size.width) + "x" +
           std::to_string(size.height);
}

} // namespace

// A negative information value keeps its sign; kind 5 is read as PNG. The chunk ends with the
// picture: information after it is never read. A count beyond the file is refused before anything
// is allocated; a record of another class is read, never used; a negative item length before the
// preview must stop the scan, not walk backwards forever.
TEST(Extraction, FindsThePreviewOnlyWhereTheDocumentHoldsOne) {
    Bytes noNul = withPreview({kJPEG});
    noNul[19] = ' ';
    const std::string jpeg = "0 16 ef kind 2 info -1 -1x-1";
    Items negativeItem = [](GSFile* f, GSTagWrite*) { f->write("\0\0\0\x0c\xff\xff\xff\xf8", 8); };
    // clang-format off
    const std::tuple<const char*, Bytes, std::string> cases[] = {
        {"information, then PNG inline", withPreview({info(-2, 160, 120), picture(5, 1000, Bytes(1000, 0x5A))}),
         "0 1000 5a kind 3 info -2 160x120"},
        {"picture, then information", withPreview({kJPEG, info(7, 160, 120)}), jpeg},
        {"JPEG inline: the source of the cases below", withPreview({kJPEG}), jpeg},
        {"picture-data record", written({.version = 0x0302, .store = EmberTideDocumentOptions::kRecord}),
         "0 16 ef kind 2 info 1 4x3"},
        {"system picture record", written({.version = 0x0302, .store = EmberTideDocumentOptions::kSystemRecord}),
         "0 16 ef kind 2 info 1 4x3"},
        {"record of a subclass", withPreview({record<ForeignPic>()}), "0 0"},
        {"selection", document(0x0200, {preview({kJPEG})}, false, "Ember Tide Selection"), "0 0"},
        {"version 4.0", document(0x0400, {preview({kJPEG})}), "0 0"},
        {"minor 16", document(0x0210, {preview({kJPEG})}), "0 0"},
        {"identifier without NUL", noNul, "0 0"},
        {"kind 4", withPreview({picture(4, 16, kImage)}), "0 0"},
        {"count 0", withPreview({picture(2, 0, kImage)}), "0 0"},
        {"preview chunk of major 2", document(0x0200, {preview({kJPEG}, 0x0200)}), "0 0"},
        {"count beyond the file", withPreview({picture(2, 0x7FFFFFFF, kImage)}), "0 0"},
        {"negative item length", document(0x0200, {negativeItem, preview({kJPEG})}), "0 0"}};
    // clang-format on
    for (const auto& [what, file, expected] : cases) {
        largestArrayRequest = 0;
        EXPECT_EQ(extract(file), expected) << what;
        EXPECT_LT(largestArrayRequest, 1u << 20)
            << what << ": allocated for a count not in the file";
    }

    // Truncation at every offset of a good document never yields bytes that are not there.
    Bytes whole = written({.version = 0x0302, .byteForm = true});
    for (size_t cut = 0; cut < whole.size(); ++cut) {
        std::string found = extract(Bytes(whole.begin(), whole.begin() + long(cut)));
        EXPECT_TRUE(found == "0 0" || found == "0 16 ef kind 2 info 1 4x3") << "cut at " << cut;
    }
}

// Only a file that cannot be opened fails; tag 11 asking for object merging in a version 3
// document that already merges is a programming error of the writer.
TEST(Extraction, OnlyUnopenableFilesAndMisuseFail) {
    GSDynaArray<unsigned char> bytes;
    int kind, info;
    GSTSize<int> size;
    EXPECT_NE(
        GSGetThumbnail(GSFileSpec(GSString("/nonexistent/doc.etd")), &bytes, &kind, &info, &size),
        0);
    Items merging = item(11, [](GSFile* f) { f->writeShort(256), f->writeLong(0); });
    EXPECT_THROW(extract(document(0x0300, {merging})), std::bad_file);
}
