// DictionaryTest.cpp - GSObjectDictionary: look-ups by key class, case and order, shared
// buffers, copies, the exact bytes of its body, and files that make a dictionary hold itself,
// nest too deeply, put foreign objects among keys or break off in its values.
#include "RecordForms.h"
#include "TextSupport.h"
#include "fileformat/GSLimits.h"
#include "fileformat/GSTagWrite.h"
#include "objects/GSArrayObjects.h"
#include "objects/GSLongDictionaryKey.h"
#include "objects/GSNumberObjects.h"
#include "objects/GSObjectDictionary.h"
#include "objects/GSObjectDictionaryObject.h"
#include "objects/GSStringDictionaryKey.h"
#include "objects/GSStringObject.h"

#include <climits>

using namespace testing_support;
using namespace record_forms;

namespace {

// A key for a look-up that lasts as long as the expression it is made in.
const GSObjectDictionaryKey* at(const GSObjectDictionaryKey&& k) {
    return &k;
}
GSStringDictionaryKey key(const char* text) {
    return GSStringDictionaryKey(GSString(text));
}

// The number of the GSLongObject under the string key `text` (under the long key `number` when
// text is null), or INT_MIN when there is none.
int longUnder(const GSObjectDictionary& d, const char* text, int number = 0) {
    GSObject* o = text ? d.getValue(at(key(text))) : d.getValue(at(GSLongDictionaryKey(number)));
    auto* l = GSObjectCast<GSLongObject>(o, GSLongObject::gsClassGSLongObject);
    return l ? l->value : INT_MIN;
}

// `levels` dictionary objects, each holding the next under "next"; the innermost holds `leaf`.
GSObjectRef<GSObjectDictionaryObject> chain(int levels, GSObject* leaf) {
    GSObjectRef<GSObjectDictionaryObject> head(new GSObjectDictionaryObject());
    head->value.setObjectValue("next", leaf);
    for (int i = 1; i < levels; ++i) {
        GSObjectRef<GSObjectDictionaryObject> outer(new GSObjectDictionaryObject());
        outer->value.setObjectValue("next", head.get());
        head = outer;
    }
    return head;
}

using Writer = std::function<short(GSFile*)>;
// The record of `o`; of null, a broken record (marker 5).
Writer record(const GSObject* o) {
    return [o](GSFile* f) { return o ? f->writeObject(o) : f->putChar(5); };
}

// A dictionary body written by hand: the keys' records in item 1, the values' in item 2.
short writeBody(GSFile* f, const std::vector<Writer>& keys, const std::vector<Writer>& values) {
    GSTagWrite w(f);
    auto array = [&](int tag, const std::vector<Writer>& records) {
        short failed = w.writeStart(tag) || f->writeArrayCount(long(records.size()));
        for (const Writer& r : records)
            failed = failed || r(f);
        return failed || w.writeEnd();
    };
    return static_cast<short>(w.writeVersion(256) || array(1, keys) || array(2, values) ||
                              w.writeEndTag());
}

} // namespace

// The later of two equal keys wins; a string "7" and a long 7 are different keys, with the
// caseless flag or without; a prefix is no match.
TEST(Dictionary, LookUpsFollowKeyClassCaseAndOrder) {
    GSObjectDictionary d;
    EXPECT_EQ(d.getIndexForKey(at(key("a"))), -1) << "empty";
    const char* texts[] = {"Name", "dup", "7", nullptr, "dup"};
    for (int i = 0; i < 5; ++i)
        d.addValue(texts[i]
                       ? static_cast<GSObjectDictionaryKey*>(new GSStringDictionaryKey(texts[i]))
                       : new GSLongDictionaryKey(7),
                   new GSLongObject(i));
    const std::tuple<short, const char*, int, int> rows[] = {
        {0, "Name", 0, 0},      {0, "NAME", 0, INT_MIN}, {1, "nAmE", 0, 0},
        {1, "Nam", 0, INT_MIN}, {0, "7", 0, 2},          {1, "7", 0, 2},
        {0, nullptr, 7, 3},     {1, nullptr, 7, 3},      {0, nullptr, 8, INT_MIN},
        {0, "dup", 0, 4},       {1, "DUP", 0, 4},
    };
    for (const auto& [caseless, text, number, expected] : rows) {
        d.setCaselessStringKeys(caseless);
        EXPECT_EQ(longUnder(d, text, number), expected) << caseless << (text ? text : "long");
    }
    EXPECT_EQ(d.getIndexForKey(nullptr), -1);
    ASSERT_EQ(d.removeValue(at(key("dup"))) + d.removeValue(at(key("none"))), 0);
    EXPECT_EQ(std::pair(longUnder(d, "dup"), d.getCount()), std::pair(1, 4L))
        << "the earlier entry after the later one went";
    GSLongObject fallback(-1);
    EXPECT_EQ(d.getObjectValue("none", &fallback), &fallback);
    EXPECT_EQ(d.getObjectValue("Name", &fallback), d.getValueAt(0));
    // setValue replaces the value of an existing key, also with the very same object.
    GSObjectRef<GSLongObject> two(new GSLongObject(2));
    d.setObjectValue("x", new GSLongObject(1));
    d.setObjectValue("x", two.get());
    d.setObjectValue("X", two.get()); // caseless: the same entry
    EXPECT_EQ(std::pair(d.getCount(), two->getReferenceCount()), std::pair(5L, 2));
}

TEST(Dictionary, CopiesShareTheirObjectsAndBuffers) {
    GSObjectRef<GSLongObject> one(new GSLongObject(1)), old(new GSLongObject(0));
    GSObjectRef<GSBufferObject> buffer(new GSBufferObject(toDynaArray(Bytes{1, 2, 3})));
    GSObjectDictionary d, assigned;
    d.setCaselessStringKeys(1);
    d.setObjectValue("one", one.get());
    d.setObjectValue("data", buffer.get());
    d.setObjectValue("text", new GSStringObject("not bytes"));
    d.setObjectValue("nothing", new GSBufferObject());
    GSObjectDictionary copy(d);
    EXPECT_EQ(copy.getValue(at(key("ONE"))), one.get()) << "the same object, caseless too";
    EXPECT_EQ(std::pair(copy.getCaselessStringKeys(), GSObjectDictionary::null.isEmpty()),
              std::pair(short(1), true));
    assigned.setObjectValue("old", old.get());
    assigned = d;
    assigned = assigned;
    EXPECT_EQ(std::pair(old->getReferenceCount(), one->getReferenceCount()), std::pair(1, 4))
        << "the previous entries were let go, the new ones taken";
    copy.setObjectValue("one", new GSLongObject(5));
    EXPECT_EQ(longUnder(d, "one"), 1) << "changing a copy leaves the original";
    // A buffer value comes back sharing its storage, which a write through it copies first.
    GSDynaArray<unsigned char> bytes = assigned.getBufferValue("data");
    EXPECT_EQ(buffer->value.getArrayData()->getReferenceCount(), 2) << "the storage is shared";
    bytes[0] = 9;
    EXPECT_EQ(std::pair(int(buffer->value[0]), int(bytes[0])), std::pair(1, 9));
    for (const char* other : {"text", "nothing", "absent"})
        EXPECT_FALSE(d.getBufferValue(other).hasStorage()) << other;
}

// The body: version, item 1 the keys, item 2 the values, the end tag.
TEST(Dictionary, BodyBytes) {
    GSObjectDictionary empty;
    EXPECT_EQ(toHex(writeIn(Form::kPlain, [&](GSFile* f) { return empty.write(f); })),
              "01 00 00 00 00 01 00 00 00 04 00 00 00 00 00 00 00 02 00 00 00 04 00 00 00 00 "
              "ff ff ff ff");
    // {"k": 7} in a document with 64-bit mode: the table header, the body in the byte form with
    // both records in place, then the table with their two positions. The table asks for each
    // record's position, which makes the items around them take the long header (tag | 0x80 and
    // an 8-byte length) although their bodies are short.
    GSObjectDictionary small;
    small.setObjectValue("k", new GSLongObject(7));
    // clang-format off
    const std::string expected =
        "02 00 00 00 00 00 00 00 00 4f "                   // table version, offset 79
        "10 "                                              // dictionary version
        "81 00 00 00 00 00 00 00 22 01 "                   // keys: 34 bytes, count 1
        "00 64 16 47 53 53 74 72 69 6e 67 44 69 63 74 69 " // record of "GSStringDictionaryKey"
        "6f 6e 61 72 79 4b 65 79 00 "
        "10 01 04 64 02 6b 00 7f "                         // its body: "k"
        "82 00 00 00 00 00 00 00 19 01 "                   // values: 25 bytes, count 1
        "00 64 0d 47 53 4c 6f 6e 67 4f 62 6a 65 63 74 00 " // record of "GSLongObject"
        "10 01 04 00 00 00 07 7f "                         // its body: 7
        "7f "                                              // the dictionary's end
        "00 00 00 02 15 80 01";                            // the table: positions 21 and 64
    // clang-format on
    EXPECT_EQ(toHex(writeIn(Form::kByteTable, [&](GSFile* f) { return small.write(f); })),
              expected);
    // The keys' bodies are the value body: a long key is written like a long value.
    GSLongDictionaryKey k(-2);
    GSLongObject v(-2);
    EXPECT_EQ(writeIn(Form::kPlain, [&](GSFile* f) { return k.write(f); }),
              writeIn(Form::kPlain, [&](GSFile* f) { return v.write(f); }));
}

// Only a table makes an object held twice come back as one. The caseless flag is the reader's
// own, not the file's, and a read replaces the entries there were.
TEST(Dictionary, ReadingBackSharesThroughTheTableAndReplaces) {
    GSObjectDictionaryObject top;
    GSObjectRef<GSLongObject> shared(new GSLongObject(-7));
    top.value.setObjectValue("shared", shared.get());
    top.value.setObjectValue("again", shared.get());
    for (Form form : kForms) {
        GSObjectDictionaryObject back;
        back.value.setCaselessStringKeys(1);
        back.value.setObjectValue("stale", new GSLongObject(0));
        Bytes bytes = writeIn(form, [&](GSFile* f) { return top.write(f); });
        ASSERT_EQ(readIn(form, bytes, [&](GSFile* f) { return back.read(f); }), 0);
        const GSObjectDictionary& r = back.value;
        EXPECT_EQ(
            std::tuple(longUnder(r, "SHARED"), r.getCount(), r.getValueAt(0) == r.getValueAt(1)),
            std::tuple(-7, 2L, form != Form::kPlain))
            << formName(form);
    }
}

// Objects of other classes in the key array are no keys: look-ups pass over them. A read that
// fails in the values leaves keys without values: their look-ups give null, and adding keeps
// keys and values paired.
TEST(DictionaryRobustness, ForeignKeysAndPartReads) {
    GSLongObject seven(7), one(1);
    GSStringObject a("a"), x("x");
    GSStringDictionaryKey b("b"), c("c");
    GSObjectDictionary d, part;
    Bytes foreign = writeIn(Form::kPlain, [&](GSFile* f) {
        return writeBody(f, {record(&seven), record(&a), record(&b)},
                         {record(&x), record(&x), record(&x)});
    });
    ASSERT_EQ(readIn(Form::kPlain, foreign, [&](GSFile* f) { return d.read(f); }), 0);
    EXPECT_EQ(std::pair(d.getKeyAt(0) == nullptr, d.getKeyAt(2) != nullptr), std::pair(true, true));
    for (short caseless : {0, 1}) {
        d.setCaselessStringKeys(caseless);
        EXPECT_EQ(std::tuple(d.getIndexForKey(at(GSLongDictionaryKey(7))),
                             d.getIndexForKey(at(key("a"))),
                             d.getIndexForKey(at(key(caseless ? "B" : "b")))),
                  std::tuple(-1L, -1L, 2L));
    }
    EXPECT_EQ(d.setValue(new GSLongDictionaryKey(7), new GSStringObject("z")), 0);
    EXPECT_EQ(d.getCount(), 4) << "a new entry, not the foreign one";

    Bytes broken = writeIn(Form::kPlain, [&](GSFile* f) {
        return writeBody(f, {record(&b), record(&c)}, {record(&one), record(nullptr)});
    });
    EXPECT_EQ(readIn(Form::kPlain, broken, [&](GSFile* f) { return part.read(f); }), 1);
    EXPECT_EQ(std::pair(part.getValues().getCount(), part.getValue(at(key("c")))),
              std::pair(1L, static_cast<GSObject*>(nullptr)));
    ASSERT_EQ(part.setObjectValue("d", new GSLongObject(3)), 0);
    EXPECT_EQ(std::pair(longUnder(part, "b"), longUnder(part, "d")), std::pair(1, 3));
}

// With an object table a dictionary that holds itself is written as a reference back to its own
// record; reading meets the record while still reading it, and fails. Without a table the
// writer refuses instead of recursing, as it refuses to nest deeper than a reader follows. One
// level more, written around a body made beforehand, fails to read.
TEST(DictionaryRobustness, CyclesAndNestingPastTheLimit) {
    const int deepest =
        GSCurrentLimits().objectDepth - 1; // the innermost entries are one level below
    GSObjectRef<GSLongObject> leaf(new GSLongObject(0));
    GSObjectRef<GSObjectDictionaryObject> self(new GSObjectDictionaryObject());
    self->value.setObjectValue("self", self.get());
    GSObjectRef<GSObjectDictionaryObject> a(new GSObjectDictionaryObject());
    GSObjectRef<GSObjectDictionaryObject> b = chain(1, a.get());
    a->value.addValue(new GSLongDictionaryKey(1), b.get());
    Bytes body = writeIn(Form::kPlain, [&](GSFile* f) { return chain(1, leaf.get())->write(f); });
    GSObjectRef<RawRecord> past(
        new RawRecord(GSObjectDictionaryObject::gsClassGSObjectDictionaryObject,
                      [&](GSFile* f) { return f->write(body.data(), long(body.size())); }));
    // Rows: the record, whether a writer with a table takes it, whether one without does. (The
    // body made beforehand is in the form without a table, where the failure is the depth.)
    const std::tuple<GSObjectRef<GSObjectDictionaryObject>, bool, bool> rows[] = {
        {self, true, false},
        {a, true, false},
        {chain(deepest + 1, leaf.get()), false, false},
        {chain(deepest, past.get()), true, true}};
    for (Form form : kForms) {
        GSObjectRef<GSObjectDictionaryObject> deep = chain(deepest, leaf.get());
        GSObjectRef<GSObjectDictionaryObject> back = roundTrip(*deep, form);
        ASSERT_TRUE(back);
        EXPECT_EQ(writeIn(form, [&](GSFile* f) { return back->write(f); }),
                  writeIn(form, [&](GSFile* f) { return deep->write(f); }));
        for (const auto& [record, tableWrites, plainWrites] : rows) {
            MemoryFile m;
            if (form != Form::kPlain) m.file.startObjectMergingWrite(form == Form::kByteTable);
            bool written = m.file.writeObject(record.get()) == 0;
            EXPECT_EQ(written, form == Form::kPlain ? plainWrites : tableWrites);
            if (form != Form::kPlain) m.file.stopObjectMergingWrite();
            short status = 0;
            GSObjectRef<GSObject> read;
            if (written) read = readRecordIn(form, m.bytes(), &status);
            EXPECT_EQ(read.get(), nullptr);
            EXPECT_EQ(status != 0, written) << formName(form);
        }
    }
    // The cycles are ours: break them, or they would outlive the test.
    self->value.empty();
    b->value.empty();
}

// Dictionary bodies and value bodies read from bytes (the long form); no entry is kept from a
// failed read.
TEST(DictionaryRobustness, CraftedBodies) {
    // Rows: bytes, the dictionary's status, the value body's (-1: not a case for it).
    const std::tuple<const char*, short, short, const char*> rows[] = {
        {"01 00 00 00 00 03 00 00 00 01 00 ff ff ff ff", 0, -1, "an unknown item is skipped"},
        {"01 00 80 00 00 00 00 00 00 00 ff ff ff ff", 1, 1, "item 0x80000000"},
        {"01 00 00 00 00 03 ff ff ff f0 ff ff ff ff", 1, 1, "an item that points backwards"},
        {"01 00 00 00 00 01 00 00 00 04 7f ff ff ff ff ff ff ff", 1, -1, "2^31-1 keys"},
        {"01 00 00 00 00 01 00 00 00 05 00 00 00 01 01 ff ff ff ff", 1, -1, "a null key record"},
        {"02 00 ff ff ff ff", 1, 1, "a newer major version"},
        {"01 00 00 00 00 01", 1, 1, "cut in a header"},
        {"01 00", 1, 1, "no end tag"},
    };
    for (const auto& [hex, status, valueStatus, what] : rows) {
        GSObjectDictionary d;
        GSLongObject value;
        MemoryFile m(fromHex(hex)), v(fromHex(hex));
        EXPECT_EQ(d.read(&m.file), status) << what;
        EXPECT_EQ(d.getCount(), 0) << what;
        EXPECT_EQ(valueStatus < 0 ? valueStatus : value.read(&v.file), valueStatus) << what;
    }
}
