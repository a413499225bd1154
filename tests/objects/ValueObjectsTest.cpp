// ValueObjectsTest.cpp - the value objects: round trips in every chunk form, the exact bytes of a
// record, the tolerance of the shared body, the array block in both forms, and crafted bodies
// that must fail without allocating, throwing or crashing.
#include "RecordForms.h"
#include "fileformat/GSFormatNumbers.h"
#include "fileformat/GSTagWrite.h"
#include "objects/GSArrayBlock.h"
#include "objects/GSArrayObjects.h"
#include "objects/GSLongDictionaryKey.h"
#include "objects/GSNumberObjects.h"
#include "objects/GSObjectDictionaryObject.h"
#include "objects/GSRuntimeClass.h"
#include "objects/GSStringDictionaryKey.h"
#include "objects/GSStringObject.h"
#include "objects/GSValueObjectBody.h"
#include "storage/GSFileSpecObject.h"
#include "thumbnail/EmberTideDocumentWriter.h"
#include "thumbnail/GSGetThumbnail.h"
#include "thumbnail/GSMemPicData.h"

#include <climits>
#include <cmath>

using namespace testing_support;
using namespace record_forms;

namespace {

template <class T> GSDynaArray<T> arrayOf(std::initializer_list<T> values) {
    GSDynaArray<T> array;
    for (const T& v : values)
        array.add(v);
    return array;
}

// A GSBufferObject record whose item 1 holds `block` as given: blocks our writer does not make.
GSObject* handWrittenBuffer(const Bytes& block) {
    return new RawRecord(GSBufferObject::gsClassGSBufferObject, [block](GSFile* file) {
        return GSWriteValueBody(
            file, [&](GSFile* f) { return f->write(block.data(), long(block.size())); });
    });
}

// An object of every value class, several with values at the edges of their encodings: 300
// bytes take the long item header in the byte form; a file spec is stored as its path; the
// dictionary holds one object twice, keys of both classes and a dictionary in a dictionary.
std::vector<GSObjectRef<GSObject>> samples() {
    Bytes bytes300(300);
    for (size_t i = 0; i < bytes300.size(); ++i)
        bytes300[i] = static_cast<unsigned char>(i * 7);
    GSObjectRef<GSObjectDictionaryObject> nested(new GSObjectDictionaryObject());
    nested->value.addValue(new GSLongDictionaryKey(-1), new GSLongArrayObject());
    GSObjectRef<GSLongObject> shared(new GSLongObject(5));
    GSObjectDictionary dictionary;
    dictionary.setObjectValue("GSFileData", new GSBufferObject(toDynaArray({1, 2, 3})));
    dictionary.setObjectValue("dataSize", shared.get());
    dictionary.setObjectValue("again", shared.get());
    dictionary.addValue(new GSLongDictionaryKey(3), new GSStringObject("three"));
    dictionary.addValue(new GSStringDictionaryKey(""), nested.get());
    std::vector<GSObjectRef<GSObject>> out;
    // clang-format off
    for (GSObject* o : std::initializer_list<GSObject*>{
             new GSLongObject(INT_MIN), new GSLongObject(0x12345678),
             new GSULongObject(0x80000000u),
             new GSPointerObject(std::intptr_t(0x0102030405060708)), new GSPointerObject(-2),
             new GSFloatObject(-3.25e-3f), new GSDoubleObject(-12345.678901234567),
             new GSStringObject(GSString("Gr\xC3\xBC\xC3\x9F" "e")), new GSStringObject(""),
             new GSStringObject(), new GSFileSpecObject(GSFileSpec(GSString("/r\xC3\xA9.etd"))),
             new GSFileSpecObject(), new GSObjectDictionaryObject(dictionary),
             new GSBufferObject(toDynaArray(bytes300)), new GSBufferObject(toDynaArray({})),
             new GSLongArrayObject(arrayOf({7, INT_MIN, -1})),
             new GSFloatArrayObject(arrayOf({1.5f, -0.0f, 6.25e-5f})), new GSLongArrayObject(),
             new GSStringDictionaryKey("k"), new GSLongDictionaryKey(5)})
        out.emplace_back(o);
    // clang-format on
    return out;
}

std::string className(const GSObject& o) {
    return o.getRuntimeClass()->getName().getConstAddr();
}

} // namespace

// Each record comes back as an object of its class (made by name) that writes the same bytes;
// numbers are compared by value too, as their encodings can lose bits.
TEST(ValueObjects, EveryClassRoundTripsInEveryForm) {
    for (Form form : kForms) {
        for (const auto& sample : samples()) {
            SCOPED_TRACE(std::string(formName(form)) + ", " + className(*sample));
            GSObjectRef<GSObject> back = roundTrip(*sample, form);
            ASSERT_TRUE(back);
            EXPECT_EQ(writeIn(form, [&](GSFile* f) { return back->write(f); }),
                      writeIn(form, [&](GSFile* f) { return sample->write(f); }));
        }
        // A float's 24 significant bits survive both encodings (within the compatible encoding's
        // binary exponents, -36 to 37); the compatible encoding keeps 31 significant bits of a
        // double (a truncated mantissa of at least 2^29), raw keeps them all.
        for (float v : {1.0f, -3.25e-3f, 12345.678f, -1.0e10f})
            EXPECT_EQ(roundTrip(GSFloatObject(v), form)->value, v) << formName(form);
        for (double v : {0.1, -12345.678901234567, 1e-300})
            EXPECT_NEAR(roundTrip(GSDoubleObject(v), form)->value, v,
                        form == Form::kByteTable ? 0 : std::ldexp(std::fabs(v), -29));
        EXPECT_EQ(roundTrip(GSULongObject(4294967295u), form)->value, 4294967295u);
        // A file spec is stored as its path; a spec of nothing as the null string.
        GSFileSpec spec(GSString("/docs/r\xC3\xA9sum\xC3\xA9.etd"));
        GSFileSpec back = roundTrip(GSFileSpecObject(spec), form)->value;
        EXPECT_TRUE(back == spec);
        EXPECT_EQ(back.getFilename(1).compareValueSimple("r\xC3\xA9sum\xC3\xA9.etd"), 0);
        EXPECT_EQ(roundTrip(GSFileSpecObject(), form)->value.isValid(), 0);
        // Arrays are replaced, not appended to: an empty one read over three floats, in storage
        // shared with another array that keeps them.
        GSFloatArrayObject target(arrayOf({1.0f, 2.0f, 3.0f}));
        GSDynaArray<float> sharer = target.value;
        Bytes empty = writeIn(form, [](GSFile* f) { return GSFloatArrayObject().write(f); });
        ASSERT_EQ(readIn(form, empty, [&](GSFile* f) { return target.read(f); }), 0);
        EXPECT_EQ(std::pair(target.value.getSize(), sharer.getSize()), std::pair(0L, 3L));
    }
}

// The exact bytes of records, so that other writers and readers of the format can agree.
TEST(ValueObjects, RecordBytes) {
    GSLongObject object(-2), minusOne(-1);
    const std::string name = "47 53 4c 6f 6e 67 4f 62 6a 65 63 74 00"; // "GSLongObject" + NUL
    // Classic strings: marker ~100 (ff 9b) and a 4-byte count; long-form body.
    EXPECT_EQ(toHex(writeIn(Form::kPlain, [&](GSFile* f) { return f->writeObject(&object); })),
              "00 ff 9b 00 00 00 0d " + name +
                  " 01 00 00 00 00 01 00 00 00 04 ff ff ff fe ff ff ff ff");
    // 64-bit strings: tag byte and compact count; byte-form body. After the table header.
    Bytes b = writeIn(Form::kByteTable, [&](GSFile* f) { return f->writeObject(&object); });
    EXPECT_EQ(toHex(Bytes(b.begin() + 10, b.end() - 5)),
              "00 64 0d " + name + " 10 01 04 ff ff ff fe 7f");
    // An unsigned long of all ones writes the very bytes of a long -1.
    GSULongObject allOnes(4294967295u);
    for (Form form : kForms)
        EXPECT_EQ(writeIn(form, [&](GSFile* f) { return allOnes.write(f); }),
                  writeIn(form, [&](GSFile* f) { return minusOne.write(f); }))
            << formName(form);
    // An empty buffer is a count of 0 and no bytes: version, item 1 of 6 bytes, end.
    GSBufferObject empty;
    EXPECT_EQ(toHex(writeIn(Form::kPlain, [&](GSFile* f) { return empty.write(f); })),
              "01 00 00 00 00 01 00 00 00 06 01 00 00 00 00 00 ff ff ff ff");
}

// Items other than 1 are skipped, a later item 1 wins, no item 1 leaves the value; a too-new
// version or a failed value fail the read (broken items: DictionaryTest's crafted bodies).
TEST(ValueObjects, BodyToleratesLaterItemsAndRefusesBrokenOnes) {
    using Items = std::vector<std::pair<int, Bytes>>;
    const Bytes seven{0, 0, 0, 7}, nine{0, 0, 0, 9};
    const std::tuple<const char*, short, Items, short, int> rows[] = {
        {"items 2 and 7 before item 1", 256, {{2, Bytes(5)}, {7, seven}, {1, seven}}, 0, 7},
        {"no item 1 leaves the value", 256, {{2, seven}}, 0, 3},
        {"a second item 1 wins", 256, {{1, seven}, {1, nine}}, 0, 9},
        {"a newer minor", 0x0105, {{1, seven}}, 0, 7},
        {"a newer major", 0x0200, {{1, seven}}, 1, 3},
        {"a short value", 256, {{1, Bytes{0, 0}}}, 1, 3},
    };
    for (Form form : kForms) {
        for (const auto& [what, version, items, status, value] : rows) {
            Bytes bytes = writeIn(form, [&](GSFile* f) {
                GSTagWrite w(f);
                short failed = w.writeVersion(version);
                for (const auto& [tag, item] : items)
                    failed = failed || w.writeStart(tag) ||
                             f->write(item.data(), long(item.size())) || w.writeEnd();
                return static_cast<short>(failed || w.writeEndTag());
            });
            GSLongObject object(3);
            EXPECT_EQ(readIn(form, bytes, [&](GSFile* f) { return object.read(f); }), status)
                << formName(form) << ": " << what;
            EXPECT_EQ(status ? value : object.value, value) << formName(form) << ": " << what;
        }
    }
}

// The merged block: version 512 and an object table of its own around count and elements.
TEST(ArrayBlock, MergedFormRoundTripsAndNeverNestsATable) {
    GSDynaArray<int> ints = arrayOf({1, -2, 3}), back;
    MemoryFile m;
    ASSERT_EQ(GSWriteArrayBlock(&m.file, ints, true), 0);
    ASSERT_EQ(m.file.getObjectTable(), nullptr) << "its table is closed";
    Bytes merged = m.bytes();
    // 02 00 version, 02 00 table version (64-bit), 8-byte offset, compact count 3, three longs,
    // then the empty table.
    EXPECT_EQ(toHex(Bytes(merged.begin(), merged.begin() + 13)),
              "02 00 02 00 00 00 00 00 00 00 00 0d 03");
    MemoryFile r(merged);
    ASSERT_EQ(GSReadArrayBlock(&r.file, &back), 0);
    EXPECT_EQ(std::vector(back.getData(), back.getData() + back.getSize()),
              (std::vector{1, -2, 3}));
    EXPECT_EQ(r.file.tell(), static_cast<long>(merged.size())) << "after the block's table";
    // Inside a file that is merging already, neither side may start a second table.
    MemoryFile outer;
    ASSERT_EQ(outer.file.startObjectMergingWrite(0), 0);
    EXPECT_EQ(GSWriteArrayBlock(&outer.file, ints, true), 1);
    outer.file.stopObjectMergingWrite();
    // Inside a document that merges: a buffer record whose item 1 holds a merged block (or one
    // whose version is refused: a major above 2 in the byte form, a minor of 16 in the long
    // form), then an ordinary record that must still read. The reader must neither throw nor
    // touch the document's table.
    for (Form form : {Form::kLongTable, Form::kByteTable}) {
        for (bool refused : {false, true}) {
            SCOPED_TRACE(std::string(formName(form)) + (refused ? ", refused" : ", merged"));
            Bytes block = form == Form::kByteTable
                              ? Bytes{Bytes::value_type(refused ? 0x30 : 0x20)}
                              : Bytes{2, Bytes::value_type(refused ? 0x10 : 0)};
            block.insert(block.end(), merged.begin() + 2, merged.end());
            GSObjectRef<GSObject> buffer(handWrittenBuffer(block));
            GSLongObject after(42);
            MemoryFile rf(writeIn(form, [&](GSFile* f) {
                return static_cast<short>(f->writeObject(buffer.get()) || f->writeObject(&after));
            }));
            ASSERT_EQ(rf.file.startObjectMergingRead(), 0);
            GSObject* o = nullptr;
            EXPECT_NO_THROW(EXPECT_EQ(rf.file.readObject(&o), 1));
            EXPECT_EQ(o, nullptr);
            ASSERT_NE(rf.file.getObjectTable(), nullptr) << "the document's table survives";
            GSObjectRef<GSObject> next(rf.file.readObject());
            auto* l = GSObjectCast<GSLongObject>(next.get(), GSLongObject::gsClassGSLongObject);
            EXPECT_EQ(l ? l->value : 0, 42) << "the record after the refused one";
            rf.file.stopObjectMergingRead();
        }
    }
    MemoryFile refused(fromHex("02 10 02 00 00 00 00 00 00 00 00 00 00"));
    EXPECT_NO_THROW(EXPECT_EQ(GSReadArrayBlock(&refused.file, &back), 1));
    EXPECT_EQ(refused.file.getObjectTable(), nullptr);
}

// Counts are checked against the bytes left, with each element's smallest size, before any
// storage is made; a negative count or missing elements fail the read.
TEST(ValueObjectsRobustness, ArrayCountsThatCannotBeInTheFileFail) {
    const std::tuple<Form, long, long, const char*> rows[] = {
        {Form::kPlain, 0x7fffffff, 3, "count 2^31-1, 3 bytes"},
        {Form::kByteTable, 1L << 62, 3, "compact count 2^62"},
        {Form::kByteTable, LONG_MAX, 3, "compact count 2^63-1"},
        {Form::kPlain, -1, 8, "count -1"},
        {Form::kPlain, 2000, 2000, "2000 elements in 2000 bytes: right for bytes only"},
    };
    for (const auto& [form, count, size, what] : rows) {
        Bytes bytes = writeIn(form, [&](GSFile* f) {
            return GSWriteValueBody(f, [&](GSFile* g) {
                GSTagWrite v(g);
                Bytes filler(static_cast<size_t>(size), 0x41);
                return static_cast<short>(v.writeVersion(256) || g->writeArrayCount(count) ||
                                          g->write(filler.data(), size));
            });
        });
        GSBufferObject buffer(toDynaArray({1, 2}));
        GSLongArrayObject ints(arrayOf({5}));
        bool fits = count == size;
        EXPECT_EQ(readIn(form, bytes, [&](GSFile* f) { return buffer.read(f); }), fits ? 0 : 1)
            << what;
        EXPECT_EQ(buffer.value.getSize(), fits ? count : 0) << what;
        EXPECT_EQ(readIn(form, bytes, [&](GSFile* f) { return ints.read(f); }), 1) << what;
        EXPECT_FALSE(ints.value.hasStorage()) << what << ": no storage may be made for the count";
    }
    // Three floats announced, two present: the read fails with what was appended so far.
    Bytes two = writeIn(Form::kPlain, [](GSFile* f) {
        return GSWriteValueBody(f, [](GSFile* g) {
            GSTagWrite v(g);
            return static_cast<short>(v.writeVersion(256) || g->writeArrayCount(3) ||
                                      g->writeFloat(1.5f) || g->writeFloat(2.5f));
        });
    });
    GSFloatArrayObject floats;
    EXPECT_EQ(readIn(Form::kPlain, two, [&](GSFile* f) { return floats.read(f); }), 1);
    EXPECT_EQ(std::vector(floats.value.getData(), floats.value.getData() + 2),
              (std::vector{1.5f, 2.5f}));
}

// A preview item 4 holding a record of any of these classes is no picture: no preview, no
// exception, no crash, in every document version and form.
TEST(ValueObjectsRobustness, PreviewRecordOfAValueClassIsNoPreview) {
    GSMemPicData picture;
    picture.kind = GSPreviewJPEG;
    picture.dataSize = 5;
    picture.bytes = toDynaArray({1, 2, 3, 4, 5});
    std::vector<GSObjectRef<GSObject>> records = samples();
    records.emplace_back(handWrittenBuffer( // a buffer with a merged block
        fromHex("02 00 02 00 00 00 00 00 00 00 00 06 05 01 02 03 04 05 00 00 00 00")));
    for (const auto& [version, byteForm] :
         {std::pair<short, bool>{0x0200, false}, {0x0302, false}, {0x0302, true}}) {
        auto preview = [&](const GSObject* record) {
            MemoryFile m;
            EXPECT_EQ(EmberTideDataWriteHeader(&m.file, version, byteForm, false), 0);
            {
                GSTagWrite top(&m.file), chunk(&m.file);
                EXPECT_EQ(top.writeStart(GSTagPreview) || chunk.writeVersion(GSChunkVersion) ||
                              chunk.writeStart(GSPreviewTagInfo) ||
                              GSWritePreviewInfo(&m.file, 1, {4, 3}) || chunk.writeEnd() ||
                              chunk.writeStart(GSPreviewTagRecord) || m.file.writeObject(record) ||
                              chunk.writeEnd() || chunk.writeEndTag() || top.writeEnd() ||
                              top.writeEndTag(),
                          0);
            }
            if (version >= 0x0300) m.file.stopObjectMergingWrite();
            MemoryFile r(m.bytes());
            GSDynaArray<unsigned char> bytes;
            int kind = 0, info = 0;
            GSTSize<int> size{0, 0};
            EXPECT_NO_THROW(EmberTideReadPreview(&r.file, &bytes, &kind, &info, &size, nullptr));
            return bytes.getSize();
        };
        SCOPED_TRACE("version " + std::to_string(version) + (byteForm ? " byte" : " long"));
        ASSERT_EQ(preview(&picture), 5) << "the same document with picture data has a preview";
        for (const auto& record : records)
            EXPECT_EQ(preview(record.get()), 0) << className(*record);
    }
}
