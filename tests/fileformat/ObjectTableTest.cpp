// ObjectTableTest.cpp - object records, object merging, and records and tables crafted to break
// them.
#include "TestSupport.h"
#include "fileformat/GSFileObjectTable.h"
#include "fileformat/GSTagRead.h"
#include "fileformat/GSTagWrite.h"
#include "objects/GSObjectRef.h"
#include "objects/GSRuntimeClass.h"

#include <gtest/gtest.h>

#include <functional>
#include <string>
#include <tuple>
#include <vector>

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

GSObjectRef<TestNode> node(int value, GSObject* child = nullptr) {
    GSObjectRef<TestNode> n(new TestNode());
    n->value = value;
    n->child.reset(child);
    return n;
}

// Reads `records` records from `bytes` (object merging on when `merged`): each record's status and
// value ("-" for none, "=k" for the object of record k again), then the bytes left after stopping.
// Every object must be held by the caller alone once merging stopped ("rc" otherwise).
std::string readAll(const Bytes& bytes, bool merged, int records) {
    MemoryFile r(bytes);
    if (merged && r.file.startObjectMergingRead())
        return "no table " + std::to_string(r.file.getUse64Bit());
    std::string got;
    std::vector<GSObjectRef<GSObject>> held;
    for (int i = 0; i < records; ++i) {
        GSObject* o = nullptr;
        short status = r.file.readObject(&o);
        auto* n = GSObjectCast<TestNode>(o, TestNode::gsClassTestNode);
        std::string what = o ? (n ? std::to_string(n->value) : "?") : "-";
        for (size_t k = 0; k < held.size(); ++k)
            if (o && held[k].get() == o) what = "=" + std::to_string(k);
        got += std::to_string(status) + ":" + what + " ";
        if (what[0] != '=') held.emplace_back(o);
    }
    if (!merged) return got;
    r.file.stopObjectMergingRead();
    for (const auto& o : held)
        if (o && o->getReferenceCount() != 1) got += "rc ";
    return got + "@" + std::to_string(long(bytes.size()) - r.file.tell());
}

using Write = std::function<short(GSFile&)>;
Write raw(const std::string& hex) {
    return [hex](GSFile& f) { return f.write(fromHex(hex).data(), long(fromHex(hex).size())); };
}

} // namespace

// A shared object is written once in place and referenced by index after; the table (count,
// positions) follows, and the header where merging started points to it. With use64Bit the table
// offset is 8 bytes and the positions are compact; without, 4-byte longs. Crafted records are a
// failed read or no object, never a crash, a cast or a recursion without end, and the records
// after them still read. Table headers: version, offset (4 or 8 bytes), then at the offset the
// count and positions.
TEST(ObjectTable, RecordsAndTables) {
    auto shared = [](short use64) {
        return [use64](GSFile& f) {
            auto n = node(7);
            short s = f.startObjectMergingWrite(use64) || f.writeObject(n.get()) ||
                      f.writeObject(n.get());
            f.stopObjectMergingWrite();
            return short(s || f.writeLong(0x0a0b0c0d)); // whatever follows the table
        };
    };
    auto chain = [](int depth) {
        return [depth](GSFile& f) {
            GSObjectRef<TestNode> head;
            for (int i = 0; i < depth; ++i)
                head = node(i, head.get());
            return f.writeObject(head.get());
        };
    };
    const std::string emptyTable64 = " 00 00 00 00 00 00 00 00 00 00 00 00";
    // clang-format off
    const std::tuple<const char*, Write, const char*, bool, int, const char*> cases[] = {
        // name, writer, bytes written (".." for any), merged, records, what is read
        {"shared, 4-byte", shared(0), "01 00 00 00 00 29 00 .. 02 00 00 00 00 00 00 00 01 00 00 00 06 0a 0b 0c 0d",
         true, 2, "0:7 0:=0 @4"},
        {"shared, use64Bit", shared(1), "02 00 00 00 00 00 00 00 00 1b 00 .. 02 00 00 00 00 00 00 00 01 0a 0a 0b 0c 0d",
         true, 2, "0:7 0:=0 @4"},
        {"a reference never written in place; null", [](GSFile& f) {
             auto n = node(3);
             short s = f.startObjectMergingWrite(0) || f.getObjectTable()->writeObject(n.get(), 1) ||
                       f.writeObject(nullptr);
             f.stopObjectMergingWrite();
             return s;
         }, "01 00 00 00 00 06 02 00 00 00 00 01 00 00 00 01 ff ff ff ff", true, 2, "0:- 0:- @0"},
        {"null without a table", [](GSFile& f) { return f.writeObject(nullptr); }, "01", false, 1, "1:- "},
        {"reference -1 is null; a reference beyond the table",
         raw("01 00 00 00 00 0a 02 ff ff ff ff 02 00 00 00 05 00 00 00 00"), "", true, 2, "0:- 1:- @0"},
        {"an unknown class costs only its bytes", [](GSFile& f) {
             GSTagWrite body(&f);
             return short(f.putChar(0) || GSString("GSNoSuchClass").write(&f) || body.writeVersion(256) ||
                          body.writeStart(1) || f.writeLong(99) || body.writeEnd() || body.writeEndTag() ||
                          f.writeObject(node(5).get()));
         }, "", false, 2, "0:- 0:5 "},
        // Following the child's reference meets the record being read; the record in place refers
        // to itself too.
        {"a record that contains itself", [](GSFile& f) {
             auto n = node(1);
             n->child.reset(n.get());
             short s = f.startObjectMergingWrite(0) || f.getObjectTable()->writeObject(n.get(), 1) ||
                       f.writeObject(n.get());
             f.stopObjectMergingWrite();
             n->child.reset();
             return s;
         }, "", true, 2, "1:- 1:- @0"},
        {"nesting 16", chain(16), "", false, 1, "0:15 "},
        {"nesting beyond the limit", chain(300), "", false, 1, "1:- "},
        {"version 4096", raw("10 00" + emptyTable64), "", true, 0, "@0"},
        {"version 4097", raw("10 01" + emptyTable64), "", true, 0, "no table 0"},
        {"a position at the last byte", raw("01 00 00 00 00 00 00 00 00 01 00 00 00 0d"), "", true, 0, "@0"},
        {"position -1: never written", raw("01 00 00 00 00 00 00 00 00 01 ff ff ff ff"), "", true, 0, "@0"},
        {"a position at the file length", raw("01 00 00 00 00 00 00 00 00 01 00 00 00 0e"), "", true, 0, "no table 0"},
        {"a position below -1", raw("01 00 00 00 00 00 00 00 00 01 ff ff ff fe"), "", true, 0, "no table 0"},
        {"a table offset beyond the end", raw("01 00 00 00 10 00 00 00 00 00"), "", true, 0, "no table 0"},
        {"a negative table offset", raw("01 00 ff ff ff f0 00 00 00 00"), "", true, 0, "no table 0"},
        {"a count of 2^31-1 in a tiny file", raw("01 00 00 00 00 00 7f ff ff ff"), "", true, 0, "no table 0"}};
    // clang-format on
    for (const auto& [name, write, hex, merged, records, read] : cases) {
        SCOPED_TRACE(name);
        MemoryFile m;
        ASSERT_EQ(write(m.file), 0);
        const std::string written = toHex(m.bytes()), expected = hex;
        size_t cut = expected.find(" .. ");
        if (cut != std::string::npos) {
            const std::string tail = expected.substr(cut + 4);
            EXPECT_EQ(written.substr(0, cut) + " .. " +
                          written.substr(written.size() - tail.size()),
                      expected);
        } else if (!expected.empty()) {
            EXPECT_EQ(written, expected);
        }
        EXPECT_EQ(readAll(m.bytes(), merged, records), read);
    }
}

// Merging started twice, or stopped when it is not running, is a programming error.
TEST(ObjectTable, MisuseThrows) {
    MemoryFile m;
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
