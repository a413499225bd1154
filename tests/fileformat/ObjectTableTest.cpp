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
        return w.writeVersion(256) || w.writeStart(1) || file->writeLong(value) || w.writeEnd() ||
               (child && (w.writeStart(2) || file->writeObject(child.get()) || w.writeEnd())) ||
               w.writeEndTag();
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

// The statuses of reading every record of `bytes` in turn (object merging on when `merged`),
// with the values the records gave: "0:7 1:- ".
std::string readAll(const Bytes& bytes, bool merged, int records) {
    MemoryFile r(bytes);
    if (merged && r.file.startObjectMergingRead()) return "no table";
    std::string got;
    for (int i = 0; i < records; ++i) {
        GSObject* o = nullptr;
        short status = r.file.readObject(&o);
        got += std::to_string(status) + ":" + (o ? std::to_string(valueOf(o)) : "-") + " ";
        GSObjectRef<GSObject> drop(merged ? nullptr : o); // the table keeps its own
    }
    if (merged) r.file.stopObjectMergingRead();
    return got;
}

} // namespace

// A shared object is written once in place and referenced by index after; the table (count,
// positions) follows, and the header where merging started points to it. With use64Bit the table
// offset is 8 bytes and the positions are compact; without, 4-byte longs.
TEST(ObjectTable, SharedObjectIsWrittenOnceAndReadBackAsOne) {
    for (short use64 : {0, 1}) {
        SCOPED_TRACE(use64 ? "use64Bit" : "4-byte");
        MemoryFile m;
        auto n = node(7);
        ASSERT_FALSE(m.file.startObjectMergingWrite(use64) || m.file.writeObject(n.get()) ||
                     m.file.writeObject(n.get()));
        m.file.stopObjectMergingWrite();
        ASSERT_EQ(m.file.writeLong(0x0a0b0c0d), 0); // whatever follows the table
        // The header and the record's first byte (0: written in place); the reference (2, index
        // 0), the table and what follows.
        const std::string written = toHex(m.bytes()),
                          head =
                              use64 ? "02 00 00 00 00 00 00 00 00 1b 00" : "01 00 00 00 00 29 00",
                          tail = use64 ? "02 00 00 00 00 00 00 00 01 0a 0a 0b 0c 0d"
                                       : "02 00 00 00 00 00 00 00 01 00 00 00 06 0a 0b 0c 0d";
        EXPECT_EQ(written.substr(0, head.size()) + " .. " +
                      written.substr(written.size() - tail.size()),
                  head + " .. " + tail);

        MemoryFile r(m.bytes());
        GSObject* first = nullptr;
        GSObject* again = nullptr;
        ASSERT_FALSE(r.file.startObjectMergingRead() || r.file.readObject(&first) ||
                     r.file.readObject(&again));
        EXPECT_EQ(first, again) << "a shared object must read back as one object";
        EXPECT_EQ(valueOf(first), 7);
        GSObjectRef<GSObject> hold(first);
        r.file.stopObjectMergingRead();
        EXPECT_EQ(first->getReferenceCount(), 1) << "the table keeps its references until it stops";
        EXPECT_EQ(r.file.tell(), long(m.bytes().size()) - 4)
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
    EXPECT_EQ(readAll(m.bytes(), true, 2), "0:- 0:- ") << "a reference never written; null";
    MemoryFile plain;
    ASSERT_EQ(plain.file.writeObject(nullptr), 0);
    EXPECT_EQ(toHex(plain.bytes()), "01");
    EXPECT_EQ(readAll(plain.bytes(), false, 1), "1:- ") << "a null record without a table";
    EXPECT_EQ(
        readAll(fromHex("01 00 00 00 00 0a 02 ff ff ff ff 02 00 00 00 05 00 00 00 00"), true, 2),
        "0:- 1:- ")
        << "reference -1 is null; a reference beyond the table";

    // Merging started twice, or stopped when it is not running, is a programming error.
    EXPECT_THROW(m.file.stopObjectMergingRead(), std::bad_file);
    ASSERT_EQ(m.file.startObjectMergingWrite(0), 0);
    EXPECT_THROW(m.file.startObjectMergingWrite(0), std::bad_file);
    EXPECT_THROW(m.file.startObjectMergingRead(), std::bad_file);
    m.file.stopObjectMergingWrite();
    EXPECT_THROW(m.file.stopObjectMergingWrite(), std::bad_file);
    MemoryFile r(m.bytes());
    ASSERT_EQ(r.file.startObjectMergingRead(), 0);
    EXPECT_THROW(r.file.startObjectMergingRead(), std::bad_file);
    r.file.stopObjectMergingRead();
}

// Records crafted to break the reader: every one is a failed read or no object, never a crash,
// a cast or a recursion without end, and the records after them still read.
TEST(ObjectRecordRobustness, CraftedRecords) {
    // An unknown class costs only its bytes.
    MemoryFile unknown;
    GSTagWrite body(&unknown.file);
    ASSERT_FALSE(unknown.file.putChar(0) || GSString("GSNoSuchClass").write(&unknown.file) ||
                 body.writeVersion(256) || body.writeStart(1) || unknown.file.writeLong(99) ||
                 body.writeEnd() || body.writeEndTag() || unknown.file.writeObject(node(5).get()));
    EXPECT_EQ(readAll(unknown.bytes(), false, 2), "0:- 0:5 ");

    // A record whose child refers back to its own entry: following the reference meets the record
    // being read, and the record in place refers to itself too.
    MemoryFile cycle;
    auto n = node(1);
    n->child.reset(n.get());
    ASSERT_FALSE(cycle.file.startObjectMergingWrite(0) ||
                 cycle.file.getObjectTable()->writeObject(n.get(), 1) ||
                 cycle.file.writeObject(n.get()));
    cycle.file.stopObjectMergingWrite();
    n->child.reset();
    EXPECT_EQ(readAll(cycle.bytes(), true, 2), "1:- 1:- ");

    // Nesting beyond the limit fails.
    for (int depth : {16, 300}) {
        GSObjectRef<TestNode> head;
        for (int i = 0; i < depth; ++i)
            head = node(i, head.get());
        MemoryFile m;
        ASSERT_EQ(m.file.writeObject(head.get()), 0);
        EXPECT_EQ(readAll(m.bytes(), false, 1), depth == 300 ? "1:- " : "0:15 ") << depth;
    }

    // Array counts beyond the bytes left fail before anything is allocated.
    MemoryFile huge;
    ASSERT_FALSE(huge.file.startObjectMergingWrite(1) || huge.file.writeArrayCount(1L << 62));
    huge.file.stopObjectMergingWrite();
    MemoryFile r(huge.bytes()), plain(fromHex("7f ff ff ff 01"));
    ObjectArray array;
    ASSERT_EQ(r.file.startObjectMergingRead(), 0);
    EXPECT_EQ(array.read(&r.file), 1) << "array count 2^62";
    EXPECT_EQ(array.getCount(), 0);
    r.file.stopObjectMergingRead();
    EXPECT_EQ(array.read(&plain.file), 1) << "array count 2^31-1";
}

// Table headers: version, offset (4 or 8 bytes), then at the offset the count and positions.
TEST(ObjectRecordRobustness, CraftedTableHeaders) {
    const std::string emptyTable64 = " 00 00 00 00 00 00 00 00 00 00 00 00";
    // clang-format off
    const std::tuple<std::string, short, short, const char*> cases[] = {
        {"10 00" + emptyTable64, 0, 1, "version 4096"},
        {"10 01" + emptyTable64, 1, 0, "version 4097"},
        {"01 00 00 00 00 00 00 00 00 01 00 00 00 0d", 0, 0, "a position at the last byte"},
        {"01 00 00 00 00 00 00 00 00 01 ff ff ff ff", 0, 0, "position -1: never written"},
        {"01 00 00 00 00 00 00 00 00 01 00 00 00 0e", 1, 0, "a position at the file length"},
        {"01 00 00 00 00 00 00 00 00 01 ff ff ff fe", 1, 0, "a position below -1"},
        {"01 00 00 00 10 00 00 00 00 00", 1, 0, "a table offset beyond the end"},
        {"01 00 ff ff ff f0 00 00 00 00", 1, 0, "a negative table offset"},
        {"01 00 00 00 00 00 7f ff ff ff", 1, 0, "a count of 2^31-1 in a tiny file"}};
    // clang-format on
    for (const auto& [hex, status, use64, what] : cases) {
        MemoryFile f(fromHex(hex));
        EXPECT_EQ(f.file.startObjectMergingRead(), status) << what;
        EXPECT_EQ(f.file.getObjectTable() != nullptr, status == 0) << what;
        EXPECT_EQ(f.file.getUse64Bit(), use64) << what;
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
        writeFile(folder.path("doc.etd"), document);
        GSDynaArray<unsigned char> bytes;
        int kind = 0, info = 0;
        GSTSize<int> size{0, 0};
        ASSERT_EQ(GSGetThumbnail(
                      GSFileSpec(GSString(folder.path("doc.etd").c_str(), -1, GSString::kUTF8)),
                      &bytes, &kind, &info, &size),
                  0);
        EXPECT_EQ(bytes.getSize(), patched ? 0 : 5)
            << "a subclass record must not count as picture data";
    }
}
