// ValueObjectsTest.cpp - the value objects: their registration, round trips in every chunk form,
// the exact bytes of a record, the tolerance of the shared body, the array block in both forms,
// and crafted bodies that must fail without allocating, throwing or crashing.
#include "EmberTideDocumentWriter.h"
#include "GSArrayBlock.h"
#include "GSArrayObjects.h"
#include "GSFileSpecObject.h"
#include "GSGetThumbnail.h"
#include "GSLongDictionaryKey.h"
#include "GSMemPicData.h"
#include "GSNumberObjects.h"
#include "GSObjectDictionaryObject.h"
#include "GSObjectRef.h"
#include "GSRuntimeClass.h"
#include "GSStringDictionaryKey.h"
#include "GSStringObject.h"
#include "GSTagRead.h"
#include "GSTagWrite.h"
#include "GSValueObjectBody.h"
#include "RecordForms.h"
#include "TestSupport.h"

#include <gtest/gtest.h>

#include <climits>
#include <cmath>
#include <functional>
#include <string>
#include <vector>

using namespace testing_support;
using namespace record_forms;

namespace {

template <class T> GSDynaArray<T> arrayOf(std::initializer_list<T> values) {
    GSDynaArray<T> array;
    for (const T& v : values)
        array.add(v);
    return array;
}

// Each value survives a round trip as a record of class T.
template <class T, class V> void expectRoundTrips(Form form, std::initializer_list<V> values) {
    for (V v : values) {
        auto back = roundTrip(T(v), form);
        ASSERT_TRUE(back) << v;
        EXPECT_EQ(back->value, v);
    }
}

template <class T> std::vector<T> elements(const GSDynaArray<T>& array) {
    return std::vector<T>(array.getData(), array.getData() + array.getSize());
}

// A body: the version, then items given as (tag, body bytes), then the end tag.
Bytes body(Form form, short version, const std::vector<std::pair<int, Bytes>>& items) {
    return writeIn(form, [&](GSFile* f) {
        GSTagWrite w(f);
        short failed = w.writeVersion(version);
        for (const auto& [tag, bytes] : items)
            failed = failed || w.writeStart(tag) || f->write(bytes.data(), long(bytes.size())) ||
                     w.writeEnd();
        return static_cast<short>(failed || w.writeEndTag());
    });
}

// Writes a GSBufferObject record whose item 1 holds `block` as given: blocks our writer does not
// produce, in a document whose table knows the record's position.
class HandWrittenBuffer : public GSObject {
public:
    explicit HandWrittenBuffer(Bytes b) : block(std::move(b)) {}
    const GSRuntimeClass* getRuntimeClass() const override {
        return &GSBufferObject::gsClassGSBufferObject;
    }
    short write(GSFile* file) const override {
        return GSWriteValueBody(
            file, [this](GSFile* f) { return f->write(block.data(), long(block.size())); });
    }

private:
    Bytes block;
};

} // namespace

TEST(ValueObjects, RegisteredByNameAndCreatedEmpty) {
    struct {
        const char* name;
        const GSRuntimeClass* cls;
    } classes[] = {
        {"GSLongObject", &GSLongObject::gsClassGSLongObject},
        {"GSULongObject", &GSULongObject::gsClassGSULongObject},
        {"GSPointerObject", &GSPointerObject::gsClassGSPointerObject},
        {"GSFloatObject", &GSFloatObject::gsClassGSFloatObject},
        {"GSDoubleObject", &GSDoubleObject::gsClassGSDoubleObject},
        {"GSStringObject", &GSStringObject::gsClassGSStringObject},
        {"GSFileSpecObject", &GSFileSpecObject::gsClassGSFileSpecObject},
        {"GSObjectDictionaryObject", &GSObjectDictionaryObject::gsClassGSObjectDictionaryObject},
        {"GSBufferObject", &GSBufferObject::gsClassGSBufferObject},
        {"GSFloatArrayObject", &GSFloatArrayObject::gsClassGSFloatArrayObject},
        {"GSLongArrayObject", &GSLongArrayObject::gsClassGSLongArrayObject},
        {"GSStringDictionaryKey", &GSStringDictionaryKey::gsClassGSStringDictionaryKey},
        {"GSLongDictionaryKey", &GSLongDictionaryKey::gsClassGSLongDictionaryKey},
    };
    for (const auto& c : classes) {
        ASSERT_EQ(GSRuntimeClass::getRuntimeClassForName(c.name), c.cls) << c.name;
        EXPECT_EQ(c.cls->getName().compareValueSimple(c.name), 0) << c.name;
        GSObjectRef<GSObject> made(GSRuntimeClass::createObjectForName(c.name));
        ASSERT_NE(made.get(), nullptr) << c.name;
        EXPECT_EQ(made->getRuntimeClass(), c.cls) << c.name;
        EXPECT_EQ(made->getReferenceCount(), 1) << c.name << ": only our reference";
    }
    EXPECT_NE(GSRuntimeClass::getRuntimeClassForName("GSObjectDictionaryKey"), nullptr);
    EXPECT_EQ(GSRuntimeClass::createObjectForName("GSObjectDictionaryKey"), nullptr) << "abstract";

    GSLongObject minusFive(-5), target(9);
    GSFloatObject other;
    EXPECT_EQ(minusFive.copyContentTo(&target), 0);
    EXPECT_EQ(target.value, -5);
    EXPECT_EQ(minusFive.copyContentTo(&other), 1) << "another class";
}

TEST(ValueObjects, NumbersRoundTripInEveryForm) {
    for (Form form : kForms) {
        SCOPED_TRACE(formName(form));
        expectRoundTrips<GSLongObject>(form, {0, -1, INT_MIN, INT_MAX, 0x12345678});
        expectRoundTrips<GSULongObject>(form, {0u, 4294967295u, 0x80000000u});
        expectRoundTrips<GSPointerObject>(form,
                                          {std::intptr_t(0x0102030405060708), std::intptr_t(-2)});
        // A float's 24 significant bits survive both encodings (within the compatible encoding's
        // binary exponents, -36 to 37).
        expectRoundTrips<GSFloatObject>(form, {0.0f, 1.0f, -3.25e-3f, 12345.678f, -1.0e10f});
        // The compatible encoding keeps 31 significant bits of a double (a truncated mantissa of
        // at least 2^29); raw keeps them all.
        for (double v : {0.1, -12345.678901234567, 1e-300}) {
            auto back = roundTrip(GSDoubleObject(v), form);
            ASSERT_TRUE(back);
            if (form == Form::kByteTable)
                EXPECT_EQ(back->value, v);
            else
                EXPECT_NEAR(back->value, v, std::ldexp(std::fabs(v), -29));
        }
    }
}

TEST(ValueObjects, StringsAndArraysRoundTripInEveryForm) {
    Bytes bytes300(300);
    for (size_t i = 0; i < bytes300.size(); ++i)
        bytes300[i] = static_cast<unsigned char>(i * 7);
    for (Form form : kForms) {
        SCOPED_TRACE(formName(form));
        for (const char* text : {"", "Grüße, 世界", "plain"}) {
            auto back = roundTrip(GSStringObject(GSString(text)), form);
            ASSERT_TRUE(back);
            EXPECT_EQ(back->value.compareValueSimple(text), 0) << text;
            EXPECT_FALSE(back->value.isNull()) << "empty is not null";
        }
        // A file spec is stored as its path; a spec of nothing as the null string.
        GSFileSpec spec(GSString("/docs/r\xC3\xA9sum\xC3\xA9.etd", -1, GSString::kUTF8));
        auto specBack = roundTrip(GSFileSpecObject(spec), form);
        ASSERT_TRUE(specBack);
        EXPECT_TRUE(specBack->value == spec);
        EXPECT_EQ(specBack->value.getFilename(1).compareValueSimple("r\xC3\xA9sum\xC3\xA9.etd"), 0);
        auto noSpec = roundTrip(GSFileSpecObject(), form);
        ASSERT_TRUE(noSpec);
        EXPECT_EQ(noSpec->value.isValid(), 0);

        auto null = roundTrip(GSStringObject(), form);
        ASSERT_TRUE(null);
        EXPECT_TRUE(null->value.isNull());

        // 300 bytes take the long item header in the byte form.
        for (const Bytes& b : {Bytes{}, Bytes{0xff}, bytes300}) {
            auto back = roundTrip(GSBufferObject(toDynaArray(b)), form);
            ASSERT_TRUE(back);
            EXPECT_EQ(Bytes(back->value.getData(), back->value.getData() + back->value.getSize()),
                      b);
        }
        std::vector<float> floats{1.5f, -0.0f, 6.25e-5f};
        auto fa = roundTrip(GSFloatArrayObject(arrayOf({1.5f, -0.0f, 6.25e-5f})), form);
        ASSERT_TRUE(fa);
        EXPECT_EQ(elements(fa->value), floats);
        auto la = roundTrip(GSLongArrayObject(arrayOf({7, INT_MIN, -1})), form);
        ASSERT_TRUE(la);
        EXPECT_EQ(elements(la->value), (std::vector<int>{7, INT_MIN, -1}));
        auto none = roundTrip(GSLongArrayObject(), form);
        ASSERT_TRUE(none);
        EXPECT_EQ(none->value.getSize(), 0);
    }
}

// The exact bytes of a record, so that other writers and readers of the format can agree.
TEST(ValueObjects, LongObjectRecordBytes) {
    GSLongObject object(-2);
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
    GSLongObject minusOne(-1);
    for (Form form : kForms)
        EXPECT_EQ(writeIn(form, [&](GSFile* f) { return allOnes.write(f); }),
                  writeIn(form, [&](GSFile* f) { return minusOne.write(f); }))
            << formName(form);
}

// Items other than 1 are skipped, a later item 1 wins, no item 1 leaves the value; only item
// number 0x80000000, a broken item, a too-new version or a failed value fail the read.
TEST(ValueObjects, BodyToleratesLaterItemsAndRefusesBrokenOnes) {
    auto readLong = [](Form form, const Bytes& bytes, int* value) {
        GSLongObject object(*value);
        short status = readIn(form, bytes, [&](GSFile* f) { return object.read(f); });
        *value = object.value;
        return status;
    };
    const Bytes seven{0, 0, 0, 7}, nine{0, 0, 0, 9};
    for (Form form : kForms) {
        SCOPED_TRACE(formName(form));
        int v = 0;
        EXPECT_EQ(readLong(form, body(form, 256, {{2, Bytes(5)}, {7, seven}, {1, seven}}), &v), 0);
        EXPECT_EQ(v, 7) << "items 2 and 7 before item 1";
        v = 3;
        EXPECT_EQ(readLong(form, body(form, 256, {{2, seven}}), &v), 0);
        EXPECT_EQ(v, 3) << "no item 1 leaves the value";
        EXPECT_EQ(readLong(form, body(form, 256, {{1, seven}, {1, nine}}), &v), 0);
        EXPECT_EQ(v, 9) << "a second item 1 wins";
        EXPECT_EQ(readLong(form, body(form, 0x0105, {{1, seven}}), &v), 0) << "a newer minor";
        EXPECT_EQ(readLong(form, body(form, 0x0200, {{1, seven}}), &v), 1) << "a newer major";
        EXPECT_EQ(readLong(form, body(form, 256, {{1, Bytes{0, 0}}}), &v), 1) << "a short value";
    }
    int v = 0;
    // Long form: item 0x80000000 with a sane length, and an item whose length points back.
    EXPECT_EQ(readLong(Form::kPlain, fromHex("01 00 80 00 00 00 00 00 00 00 ff ff ff ff"), &v), 1);
    EXPECT_EQ(readLong(Form::kPlain, fromHex("01 00 00 00 00 05 ff ff ff f0 ff ff ff ff"), &v), 1);
    EXPECT_EQ(readLong(Form::kPlain, fromHex("01 00 00 00 00 01"), &v), 1) << "truncated header";
    EXPECT_EQ(readLong(Form::kPlain, fromHex("01 00"), &v), 1) << "no end tag";
}

TEST(ValueObjects, ArraysAreReplacedNotAppended) {
    GSFloatArrayObject three(arrayOf({1.0f, 2.0f, 3.0f}));
    GSDynaArray<float> ten;
    for (int i = 0; i < 10; ++i)
        ten.add(float(i));
    GSFloatArrayObject target(ten);
    for (Form form : kForms) {
        Bytes bytes = writeIn(form, [&](GSFile* f) { return three.write(f); });
        target.value = ten;
        ASSERT_EQ(readIn(form, bytes, [&](GSFile* f) { return target.read(f); }), 0);
        EXPECT_EQ(elements(target.value), (std::vector<float>{1, 2, 3})) << formName(form);
        EXPECT_EQ(ten.getSize(), 10) << "the array that shared the old storage keeps it";
    }
    // An empty buffer is a count of 0 and no bytes: version, item 1 of 6 bytes, end.
    GSBufferObject empty;
    EXPECT_EQ(toHex(writeIn(Form::kPlain, [&](GSFile* f) { return empty.write(f); })),
              "01 00 00 00 00 01 00 00 00 06 01 00 00 00 00 00 ff ff ff ff");
}

// The merged block: version 512 and an object table of its own around count and elements.
TEST(ArrayBlock, MergedFormRoundTripsAndNeverNestsATable) {
    GSDynaArray<int> ints = arrayOf({1, -2, 3});
    MemoryFile m;
    ASSERT_EQ(GSWriteArrayBlock(&m.file, ints, true), 0);
    ASSERT_EQ(m.file.getObjectTable(), nullptr) << "its table is closed";
    Bytes merged = m.bytes();
    // 02 00 version, 02 00 table version (64-bit), 8-byte offset, compact count 3, three longs,
    // then the empty table.
    EXPECT_EQ(toHex(Bytes(merged.begin(), merged.begin() + 13)),
              "02 00 02 00 00 00 00 00 00 00 00 0d 03");
    GSDynaArray<int> back;
    MemoryFile r(merged);
    ASSERT_EQ(GSReadArrayBlock(&r.file, &back), 0);
    EXPECT_EQ(elements(back), (std::vector<int>{1, -2, 3}));
    EXPECT_EQ(r.file.tell(), static_cast<long>(merged.size())) << "after the block's table";
    EXPECT_EQ(r.file.getObjectTable(), nullptr);

    // Inside a file that is merging already, neither side may start a second table.
    MemoryFile outer;
    ASSERT_EQ(outer.file.startObjectMergingWrite(0), 0);
    EXPECT_EQ(GSWriteArrayBlock(&outer.file, ints, true), 1);
    outer.file.stopObjectMergingWrite();

    // Inside a document that merges: a buffer record whose item 1 holds a merged block (or one
    // whose version is refused), then an ordinary record that must still read. The reader must
    // neither throw nor touch the document's table.
    const Bytes afterVersion(merged.begin() + 2, merged.end());
    for (Form form : {Form::kLongTable, Form::kByteTable}) {
        for (const char* version : {"merged", "refused"}) {
            SCOPED_TRACE(std::string(formName(form)) + ", " + version);
            bool refused = std::string(version) == "refused";
            // Refused: a major above 2 (byte form), a minor of 16 (long form).
            Bytes block = form == Form::kByteTable
                              ? Bytes{Bytes::value_type(refused ? 0x30 : 0x20)}
                              : Bytes{2, Bytes::value_type(refused ? 0x10 : 0)};
            block.insert(block.end(), afterVersion.begin(), afterVersion.end());
            HandWrittenBuffer buffer(block);
            GSLongObject after(42);
            Bytes file = writeIn(form, [&](GSFile* f) {
                return static_cast<short>(f->writeObject(&buffer) || f->writeObject(&after));
            });
            MemoryFile rf(file);
            ASSERT_EQ(rf.file.startObjectMergingRead(), 0);
            GSObject* o = nullptr;
            EXPECT_NO_THROW(EXPECT_EQ(rf.file.readObject(&o), 1));
            EXPECT_EQ(o, nullptr);
            ASSERT_NE(rf.file.getObjectTable(), nullptr) << "the document's table survives";
            GSObjectRef<GSObject> next(rf.file.readObject());
            auto* l = GSObjectCast<GSLongObject>(next.get(), GSLongObject::gsClassGSLongObject);
            ASSERT_NE(l, nullptr) << "the record after the refused one";
            EXPECT_EQ(l->value, 42);
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
    struct Case {
        Form form;
        long count, bytes;
        bool bytesFit; // whether the count is right for 1-byte elements
        const char* what;
    };
    const Case cases[] = {
        {Form::kPlain, 0x7fffffff, 3, false, "count 2^31-1, 3 bytes"},
        {Form::kByteTable, 1L << 62, 3, false, "compact count 2^62"},
        {Form::kByteTable, LONG_MAX, 3, false, "compact count 2^63-1"},
        {Form::kPlain, -1, 8, false, "count -1"},
        {Form::kPlain, 2000, 2000, true, "2000 elements in 2000 bytes"},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.what);
        Bytes bytes = writeIn(c.form, [&](GSFile* f) {
            return GSWriteValueBody(f, [&](GSFile* g) {
                GSTagWrite v(g);
                Bytes filler(static_cast<size_t>(c.bytes), 0x41);
                return static_cast<short>(v.writeVersion(256) || g->writeArrayCount(c.count) ||
                                          g->write(filler.data(), c.bytes));
            });
        });
        GSBufferObject buffer(toDynaArray(Bytes{1, 2}));
        GSLongArrayObject ints(arrayOf({5}));
        EXPECT_EQ(readIn(c.form, bytes, [&](GSFile* f) { return buffer.read(f); }),
                  c.bytesFit ? 0 : 1);
        EXPECT_EQ(buffer.value.getSize(), c.bytesFit ? c.count : 0);
        EXPECT_EQ(readIn(c.form, bytes, [&](GSFile* f) { return ints.read(f); }), 1);
        EXPECT_FALSE(ints.value.hasStorage()) << "no storage may be made for the count";
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
    ASSERT_GE(floats.value.getSize(), 2);
    EXPECT_EQ(floats.value[0], 1.5f);
    EXPECT_EQ(floats.value[1], 2.5f);
}

// A preview item 4 holding a record of any of these classes is no picture: no preview, no
// exception, no crash, in every document version and form.
TEST(ValueObjectsRobustness, PreviewRecordOfAValueClassIsNoPreview) {
    auto document = [](short version, bool byteForm, const GSObject* record) {
        MemoryFile m;
        EXPECT_EQ(EmberTideDataWriteHeader(&m.file, version, byteForm, false), 0);
        {
            GSTagWrite top(&m.file);
            GSTagWrite chunk(&m.file);
            short failed = top.writeStart(13) || chunk.writeVersion(256) || chunk.writeStart(0) ||
                           GSWritePreviewInfo(&m.file, 1, {4, 3}) || chunk.writeEnd() ||
                           chunk.writeStart(4) || m.file.writeObject(record) || chunk.writeEnd() ||
                           chunk.writeEndTag() || top.writeEnd() || top.writeEndTag();
            EXPECT_EQ(failed, 0);
        }
        if (version >= 0x0300) m.file.stopObjectMergingWrite();
        return m.bytes();
    };
    GSMemPicData picture;
    picture.kind = GSMemPicData::kJPEG;
    picture.dataSize = 5;
    picture.bytes = toDynaArray(Bytes{1, 2, 3, 4, 5});
    GSObjectDictionaryObject dictionary;
    dictionary.value.setObjectValue("GSFileData", new GSBufferObject(toDynaArray(Bytes{1, 2, 3})));
    dictionary.value.setObjectValue("dataSize", new GSLongObject(5));
    HandWrittenBuffer merged(
        fromHex("02 00 02 00 00 00 00 00 00 00 00 06 05 01 02 03 04 05 00 00 00 00"));
    GSObjectRef<GSObject> records[] = {
        GSObjectRef<GSObject>(new GSLongObject(5)),
        GSObjectRef<GSObject>(new GSULongObject(5)),
        GSObjectRef<GSObject>(new GSPointerObject(5)),
        GSObjectRef<GSObject>(new GSFloatObject(5)),
        GSObjectRef<GSObject>(new GSDoubleObject(5)),
        GSObjectRef<GSObject>(new GSStringObject("GSMemPicData")),
        GSObjectRef<GSObject>(new GSFileSpecObject(GSFileSpec(GSString("/GSMemPicData")))),
        GSObjectRef<GSObject>(new GSObjectDictionaryObject(dictionary.value)),
        GSObjectRef<GSObject>(new GSBufferObject(toDynaArray(Bytes{1, 2, 3, 4, 5}))),
        GSObjectRef<GSObject>(new GSFloatArrayObject(arrayOf({5.0f}))),
        GSObjectRef<GSObject>(new GSLongArrayObject(arrayOf({2, 5}))),
        GSObjectRef<GSObject>(new GSStringDictionaryKey("k")),
        GSObjectRef<GSObject>(new GSLongDictionaryKey(5)),
    };
    struct {
        short version;
        bool byteForm;
    } forms[] = {{0x0200, false}, {0x0302, false}, {0x0302, true}};
    for (const auto& form : forms) {
        SCOPED_TRACE("version " + std::to_string(form.version) +
                     (form.byteForm ? " byte" : " long"));
        auto preview = [&](const GSObject* record) {
            Bytes doc = document(form.version, form.byteForm, record);
            MemoryFile r(doc);
            GSDynaArray<unsigned char> bytes;
            int kind = 0, info = 0;
            GSTSize<int> size{0, 0};
            EXPECT_NO_THROW(EmberTideReadPreview(&r.file, &bytes, &kind, &info, &size, nullptr));
            return bytes.getSize();
        };
        ASSERT_EQ(preview(&picture), 5) << "the same document with picture data has a preview";
        for (const auto& record : records)
            EXPECT_EQ(preview(record.get()), 0)
                << record->getRuntimeClass()->getName().getConstAddr();
        EXPECT_EQ(preview(&merged), 0) << "a buffer with a merged block";
    }
}
