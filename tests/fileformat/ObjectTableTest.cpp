// ObjectTableTest.cpp - object records, object merging, and records crafted to break them.
#include "EmberTideDocumentWriter.h"
#include "GSArray.h"
#include "GSFileObjectTable.h"
#include "GSGetThumbnail.h"
#include "GSMemPicData.h"
#include "GSObjectRef.h"
#include "GSRuntimeClass.h"
#include "GSTagRead.h"
#include "GSTagWrite.h"
#include "TestSupport.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <string>

using namespace testing_support;

namespace {

// A node with a value (item 1) and an optional child object record (item 2), so that records
// can nest and refer to each other.
class TestNode : public GSObject {
public:
    static GSRuntimeClass gsClassTestNode;
    static GSObject* _createFunction() { return new TestNode(); }
    const GSRuntimeClass* getRuntimeClass() const override { return &gsClassTestNode; }

    short write(GSFile* file) const override {
        GSTagWrite w(file);
        if (w.writeVersion(256) || w.writeStart(1) || file->writeLong(value) || w.writeEnd())
            return 1;
        if (child && (w.writeStart(2) || file->writeObject(child.get()) || w.writeEnd())) return 1;
        return w.writeEndTag();
    }
    short read(GSFile* file) override {
        GSTagRead r(file);
        if (r.readVersion(256, nullptr)) return 1;
        for (;;) {
            int tag = r.read();
            if (tag == GSTagRead::kEndTag) return 0;
            if (tag == GSTagRead::kBadTag) return 1;
            GSObject* object = nullptr;
            if (tag == 1 ? file->readLong(&value) : tag == 2 ? file->readObject(&object) : r.skip())
                return 1;
            if (object) child.reset(object);
        }
    }

    int value = 0;
    GSObjectRef<GSObject> child;
};
GSRuntimeClass TestNode::gsClassTestNode("GSTestNode", &GSObject::gsClassGSObject,
                                         &TestNode::_createFunction);

// Reads exactly like picture data but is another class; its name is as long as "GSMemPicData".
class ForeignPic : public GSMemPicData {
public:
    static GSRuntimeClass gsClassForeignPic;
    static GSObject* _createFunction() { return new ForeignPic(); }
    const GSRuntimeClass* getRuntimeClass() const override { return &gsClassForeignPic; }
};
GSRuntimeClass ForeignPic::gsClassForeignPic("GSForeignPic", &GSMemPicData::gsClassGSMemPicData,
                                             &ForeignPic::_createFunction);

GSObjectRef<TestNode> node(int value, GSObject* child = nullptr) {
    GSObjectRef<TestNode> n(new TestNode());
    n->value = value;
    n->child.reset(child);
    return n;
}

int valueOf(GSObject* object) {
    auto* n = GSObjectCast<TestNode>(object, TestNode::gsClassTestNode);
    return n ? n->value : -1;
}

Bytes slice(const Bytes& b, long from, long to) {
    return Bytes(b.begin() + from, b.begin() + to);
}

} // namespace

// With use64Bit the table offset is 8 bytes and the positions are compact; without, 4-byte longs.
TEST(ObjectTable, SharedObjectIsWrittenOnceAndReadBackAsOne) {
    for (short use64 : {0, 1}) {
        SCOPED_TRACE(use64 ? "use64Bit" : "4-byte");
        MemoryFile m;
        auto n = node(7);
        ASSERT_EQ(m.file.startObjectMergingWrite(use64), 0);
        long record = m.file.tell();
        ASSERT_EQ(m.file.writeObject(n.get()), 0);
        long second = m.file.tell();
        ASSERT_EQ(m.file.writeObject(n.get()), 0);
        long table = m.file.tell();
        m.file.stopObjectMergingWrite();
        ASSERT_EQ(m.file.writeLong(0x0a0b0c0d), 0); // whatever follows the table
        Bytes b = m.bytes();
        EXPECT_EQ(toHex(slice(b, 0, record)),
                  use64 ? "02 00 00 00 00 00 00 00 00 1b" : "01 00 00 00 00 29");
        EXPECT_EQ(b[record], 0) << "the first occurrence is written in place";
        EXPECT_EQ(toHex(slice(b, second, table)), "02 00 00 00 00");
        EXPECT_EQ(toHex(slice(b, table, b.size())),
                  use64 ? "00 00 00 01 0a 0a 0b 0c 0d" : "00 00 00 01 00 00 00 06 0a 0b 0c 0d");

        MemoryFile r(b);
        ASSERT_EQ(r.file.startObjectMergingRead(), 0);
        EXPECT_EQ(r.file.getUse64Bit(), use64);
        GSObject* first = nullptr;
        GSObject* again = nullptr;
        ASSERT_EQ(r.file.readObject(&first), 0);
        ASSERT_EQ(r.file.readObject(&again), 0);
        ASSERT_NE(first, nullptr);
        EXPECT_EQ(first, again) << "a shared object must read back as one object";
        EXPECT_EQ(valueOf(first), 7);
        GSObjectRef<GSObject> hold(first);
        r.file.stopObjectMergingRead();
        EXPECT_EQ(first->getReferenceCount(), 1) << "the table keeps its references until it stops";
        EXPECT_EQ(r.file.tell(), static_cast<long>(b.size()) - 4)
            << "stopping leaves the file after the table";
    }
}

TEST(ObjectTable, ReferencesAndNullRecords) {
    MemoryFile m;
    auto n = node(3);
    ASSERT_EQ(m.file.startObjectMergingWrite(0), 0);
    ASSERT_EQ(m.file.getObjectTable()->writeObject(n.get(), 1), 0); // never written in place
    ASSERT_EQ(m.file.writeObject(nullptr), 0);
    m.file.stopObjectMergingWrite();
    EXPECT_EQ(toHex(m.bytes()), "01 00 00 00 00 06 02 00 00 00 00 01 00 00 00 01 ff ff ff ff");
    MemoryFile r(m.bytes());
    ASSERT_EQ(r.file.startObjectMergingRead(), 0);
    GSObject* o = n.get();
    EXPECT_EQ(r.file.readObject(&o), 0);
    EXPECT_EQ(o, nullptr) << "an object written only as a reference";
    o = n.get();
    EXPECT_EQ(r.file.readObject(&o), 0);
    EXPECT_EQ(o, nullptr) << "a null record with a table";
    r.file.stopObjectMergingRead();

    MemoryFile plain;
    ASSERT_EQ(plain.file.writeObject(nullptr), 0);
    EXPECT_EQ(toHex(plain.bytes()), "01");
    MemoryFile p(plain.bytes());
    EXPECT_EQ(p.file.readObject(&o), 1) << "a null record without a table";
    EXPECT_EQ(o, nullptr);

    MemoryFile refs(fromHex("01 00 00 00 00 0a 02 ff ff ff ff 02 00 00 00 05 00 00 00 00"));
    ASSERT_EQ(refs.file.startObjectMergingRead(), 0);
    EXPECT_EQ(refs.file.readObject(&o), 0) << "reference -1 is null";
    EXPECT_EQ(refs.file.readObject(&o), 1) << "a reference beyond the table";
    refs.file.stopObjectMergingRead();
}

TEST(ObjectTable, MisuseThrowsBadFile) {
    MemoryFile m;
    EXPECT_THROW(m.file.stopObjectMergingWrite(), std::bad_file);
    EXPECT_THROW(m.file.stopObjectMergingRead(), std::bad_file);
    ASSERT_EQ(m.file.startObjectMergingWrite(0), 0);
    EXPECT_THROW(m.file.startObjectMergingWrite(0), std::bad_file);
    EXPECT_THROW(m.file.startObjectMergingRead(), std::bad_file);
    m.file.stopObjectMergingWrite();
    ASSERT_EQ(m.file.seek(0, 0), 0);
    ASSERT_EQ(m.file.startObjectMergingRead(), 0);
    EXPECT_THROW(m.file.startObjectMergingRead(), std::bad_file);
    m.file.stopObjectMergingRead();
}

TEST(ObjectRecord, UnknownClassCostsOnlyItsBytes) {
    MemoryFile m;
    ASSERT_EQ(m.file.putChar(0), 0);
    ASSERT_EQ(GSString("GSNoSuchClass").write(&m.file), 0);
    {
        GSTagWrite body(&m.file);
        ASSERT_EQ(body.writeVersion(256) || body.writeStart(1) || m.file.writeLong(99) ||
                      body.writeEnd() || body.writeEndTag(),
                  0);
    }
    auto n = node(5);
    ASSERT_EQ(m.file.writeObject(n.get()), 0);

    MemoryFile r(m.bytes());
    GSObject* o = n.get();
    EXPECT_EQ(r.file.readObject(&o), 0);
    EXPECT_EQ(o, nullptr);
    GSObjectRef<GSObject> next(r.file.readObject());
    EXPECT_EQ(valueOf(next.get()), 5) << "the record after an unknown class";
    EXPECT_EQ(r.file.tell(), static_cast<long>(m.bytes().size()));
}

TEST(ObjectRecordRobustness, SelfReferenceFailsInsteadOfRecursing) {
    MemoryFile m;
    auto n = node(1);
    n->child.reset(n.get());
    ASSERT_EQ(m.file.startObjectMergingWrite(0), 0);
    ASSERT_EQ(m.file.getObjectTable()->writeObject(n.get(), 1), 0);
    ASSERT_EQ(m.file.writeObject(n.get()), 0); // its child item refers back to entry 0
    m.file.stopObjectMergingWrite();
    n->child.reset();

    MemoryFile r(m.bytes());
    ASSERT_EQ(r.file.startObjectMergingRead(), 0);
    GSObject* o = nullptr;
    EXPECT_NE(r.file.readObject(&o), 0) << "following the reference meets its own record";
    EXPECT_EQ(o, nullptr);
    EXPECT_NE(r.file.readObject(&o), 0) << "the record in place refers to itself too";
    r.file.stopObjectMergingRead();
}

TEST(ObjectRecordRobustness, DeepNestingFails) {
    for (int depth : {16, 300}) {
        GSObjectRef<TestNode> head;
        for (int i = 0; i < depth; ++i)
            head = node(i, head.get());
        MemoryFile m;
        ASSERT_EQ(m.file.writeObject(head.get()), 0);
        MemoryFile r(m.bytes());
        GSObjectRef<GSObject> back(r.file.readObject());
        int levels = 0;
        for (GSObject* p = back.get(); p; p = static_cast<TestNode*>(p)->child.get())
            ++levels;
        EXPECT_EQ(levels, depth == 300 ? 0 : depth) << "nesting beyond the limit must fail";
    }
}

TEST(ObjectRecordRobustness, HugeArrayCountsFailBeforeAllocating) {
    MemoryFile m;
    ASSERT_EQ(m.file.startObjectMergingWrite(1), 0);
    ASSERT_EQ(m.file.writeArrayCount(1L << 62), 0);
    m.file.stopObjectMergingWrite();
    MemoryFile r(m.bytes());
    ASSERT_EQ(r.file.startObjectMergingRead(), 0);
    ObjectArray array;
    EXPECT_EQ(array.read(&r.file), 1) << "array count 2^62";
    EXPECT_EQ(array.getCount(), 0);
    r.file.stopObjectMergingRead();

    MemoryFile plain(fromHex("7f ff ff ff 01"));
    EXPECT_EQ(array.read(&plain.file), 1) << "array count 2^31-1";
}

// Table headers: version, offset (4 or 8 bytes), then at the offset the count and positions.
TEST(ObjectRecordRobustness, CraftedTableHeaders) {
    const std::string emptyTable64 = " 00 00 00 00 00 00 00 00 00 00 00 00";
    struct {
        std::string hex;
        short status, use64;
        const char* what;
    } cases[] = {
        {"10 00" + emptyTable64, 0, 1, "version 4096"},
        {"10 01" + emptyTable64, 1, 0, "version 4097"},
        {"01 00 00 00 00 00 00 00 00 01 00 00 00 0d", 0, 0, "a position at the last byte"},
        {"01 00 00 00 00 00 00 00 00 01 ff ff ff ff", 0, 0, "position -1: never written"},
        {"01 00 00 00 00 00 00 00 00 01 00 00 00 0e", 1, 0, "a position at the file length"},
        {"01 00 00 00 00 00 00 00 00 01 ff ff ff fe", 1, 0, "a position below -1"},
        {"01 00 00 00 10 00 00 00 00 00", 1, 0, "a table offset beyond the end"},
        {"01 00 ff ff ff f0 00 00 00 00", 1, 0, "a negative table offset"},
        {"01 00 00 00 00 00 7f ff ff ff", 1, 0, "a count of 2^31-1 in a tiny file"},
    };
    for (const auto& c : cases) {
        MemoryFile f(fromHex(c.hex));
        EXPECT_EQ(f.file.startObjectMergingRead(), c.status) << c.what;
        EXPECT_EQ(f.file.getObjectTable() != nullptr, c.status == 0) << c.what;
        EXPECT_EQ(f.file.getUse64Bit(), c.use64) << c.what;
        if (f.file.getObjectTable()) f.file.stopObjectMergingRead();
    }
}

TEST(ObjectRecordRobustness, PictureRecordOfAnotherClassIsNoPicture) {
    EmberTidePreview preview;
    preview.bytes = toDynaArray(Bytes{1, 2, 3, 4, 5});
    preview.size = {4, 3};
    EmberTideDocumentOptions options;
    options.version = 0x0302;
    options.store = EmberTideDocumentOptions::kRecord;
    MemoryFile m;
    ASSERT_EQ(EmberTideWriteDocument(&m.file, preview, options), 0);
    Bytes document = m.bytes();
    const std::string from = "GSMemPicData", to = "GSForeignPic";
    auto at = std::search(document.begin(), document.end(), from.begin(), from.end());
    ASSERT_NE(at, document.end());

    TempFolder folder;
    for (bool patched : {false, true}) {
        if (patched) std::copy(to.begin(), to.end(), at);
        std::string path = folder.path(patched ? "foreign.etd" : "original.etd");
        writeFile(path, document);
        GSDynaArray<unsigned char> bytes;
        int kind = 0, info = 0;
        GSTSize<int> size{0, 0};
        ASSERT_EQ(GSGetThumbnail(GSFileSpec(GSString(path.c_str(), -1, GSString::kUTF8)), &bytes,
                                 &kind, &info, &size),
                  0);
        EXPECT_EQ(bytes.getSize(), patched ? 0 : 5)
            << (patched ? "a subclass record must not count as picture data" : "original");
    }
}
