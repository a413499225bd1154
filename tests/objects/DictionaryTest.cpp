// DictionaryTest.cpp - GSObjectDictionary: look-ups by key class, case and order, shared
// buffers, copies, the exact bytes of its body, nested round trips in every chunk form, and
// files that make a dictionary hold itself, nest too deeply or put foreign objects among keys.
#include "GSArrayObjects.h"
#include "GSLongDictionaryKey.h"
#include "GSNumberObjects.h"
#include "GSObjectDictionary.h"
#include "GSObjectDictionaryObject.h"
#include "GSObjectRef.h"
#include "GSStringDictionaryKey.h"
#include "GSStringObject.h"
#include "GSTagWrite.h"
#include "RecordForms.h"
#include "TestSupport.h"

#include <gtest/gtest.h>

#include <climits>
#include <string>

using namespace testing_support;
using namespace record_forms;

namespace {

GSStringDictionaryKey key(const char* text) {
    return GSStringDictionaryKey(GSString(text));
}
GSLongDictionaryKey key(int number) {
    return GSLongDictionaryKey(number);
}
// A key for a look-up that lasts as long as the expression it is made in.
const GSObjectDictionaryKey* at(const GSObjectDictionaryKey& k) {
    return &k;
}
// A key to be stored: the dictionary takes the only reference.
GSStringDictionaryKey* newKey(const char* text) {
    return new GSStringDictionaryKey(GSString(text));
}
GSLongDictionaryKey* newKey(int number) {
    return new GSLongDictionaryKey(number);
}

// The number of the GSLongObject found under `k`, or INT_MIN when there is none.
int longUnder(const GSObjectDictionary& d, const GSObjectDictionaryKey& k) {
    auto* l = GSObjectCast<GSLongObject>(d.getValue(&k), GSLongObject::gsClassGSLongObject);
    return l ? l->value : INT_MIN;
}

GSObjectDictionary* inner(GSObject* object) {
    auto* d = GSObjectCast<GSObjectDictionaryObject>(
        object, GSObjectDictionaryObject::gsClassGSObjectDictionaryObject);
    return d ? &d->value : nullptr;
}

// `levels` dictionary objects, each holding the next under "next"; the innermost holds a long.
GSObjectRef<GSObjectDictionaryObject> chain(int levels) {
    GSObjectRef<GSObjectDictionaryObject> head(new GSObjectDictionaryObject());
    head->value.setObjectValue("next", new GSLongObject(levels));
    for (int i = 1; i < levels; ++i) {
        GSObjectRef<GSObjectDictionaryObject> outer(new GSObjectDictionaryObject());
        outer->value.setObjectValue("next", head.get());
        head = outer;
    }
    return head;
}

// The same nesting written piece by piece, past the dictionary writer's own depth check.
short writeChainByHand(GSFile* f, int levels) {
    if (f->putChar(0) || GSString("GSObjectDictionaryObject").write(f)) return 1;
    GSTagWrite body(f);
    if (body.writeVersion(256) || body.writeStart(1)) return 1;
    {
        GSTagWrite dictionary(f);
        GSStringDictionaryKey next("next");
        GSLongObject leaf(levels);
        if (dictionary.writeVersion(256) || dictionary.writeStart(1) || f->writeArrayCount(1) ||
            f->writeObject(&next) || dictionary.writeEnd() || dictionary.writeStart(2) ||
            f->writeArrayCount(1))
            return 1;
        if (levels > 1 ? writeChainByHand(f, levels - 1) : f->writeObject(&leaf)) return 1;
        if (dictionary.writeEnd() || dictionary.writeEndTag()) return 1;
    }
    return body.writeEnd() || body.writeEndTag();
}

// How many dictionaries deep the chain read back goes before its long; -1 when broken.
int depthOf(GSObject* object) {
    int levels = 0;
    GSObjectRef<GSStringDictionaryKey> next(new GSStringDictionaryKey("next"));
    for (GSObjectDictionary* d = inner(object); d; d = inner(object)) {
        ++levels;
        object = d->getValue(next.get());
    }
    return GSObjectCast<GSLongObject>(object, GSLongObject::gsClassGSLongObject) ? levels : -1;
}

// A dictionary body written by hand: the given key and value records (null: a broken record,
// marker 5), each array in its own item.
Bytes bodyWith(const std::vector<const GSObject*>& keys,
               const std::vector<const GSObject*>& values) {
    return writeIn(Form::kPlain, [&](GSFile* f) {
        GSTagWrite w(f);
        auto array = [&](int tag, const std::vector<const GSObject*>& objects) {
            short failed = w.writeStart(tag) || f->writeArrayCount(long(objects.size()));
            for (const GSObject* o : objects)
                failed = failed || (o ? f->writeObject(o) : f->putChar(5));
            return failed || w.writeEnd();
        };
        return static_cast<short>(w.writeVersion(256) || array(1, keys) || array(2, values) ||
                                  w.writeEndTag());
    });
}

} // namespace

TEST(Dictionary, LookUpsFollowKeyClassCaseAndOrder) {
    GSObjectDictionary d;
    EXPECT_EQ(d.getIndexForKey(at(key("a"))), -1) << "empty";
    ASSERT_EQ(d.addValue(newKey("Name"), new GSLongObject(1)), 0);
    EXPECT_EQ(longUnder(d, key("Name")), 1);
    EXPECT_EQ(d.getValue(at(key("NAME"))), nullptr) << "string keys match with case by default";
    d.setCaselessStringKeys(1);
    EXPECT_EQ(longUnder(d, key("NAME")), 1) << "caseless";
    EXPECT_EQ(longUnder(d, key("nAmE")), 1) << "caseless";
    EXPECT_EQ(d.getValue(at(key("Nam"))), nullptr) << "a prefix is not a match";
    EXPECT_EQ(d.getIndexForKey(nullptr), -1);

    // A string "7" and a long 7 are different keys, with the caseless flag or without.
    for (short caseless : {0, 1}) {
        GSObjectDictionary mixed;
        mixed.setCaselessStringKeys(caseless);
        mixed.addValue(newKey("7"), new GSLongObject(10));
        mixed.addValue(newKey(7), new GSLongObject(20));
        EXPECT_EQ(longUnder(mixed, key("7")), 10) << "caseless " << caseless;
        EXPECT_EQ(longUnder(mixed, key(7)), 20) << "caseless " << caseless;
        EXPECT_EQ(mixed.getValue(at(key(8))), nullptr);
    }

    // A key that occurs twice: the later entry wins, until it is removed.
    GSObjectDictionary dup;
    const char* texts[] = {"a", "dup", "b", "c", "dup"};
    for (int i = 0; i < 5; ++i)
        dup.addValue(newKey(texts[i]), new GSLongObject(i));
    EXPECT_EQ(dup.getIndexForKey(at(key("dup"))), 4);
    EXPECT_EQ(longUnder(dup, key("dup")), 4);
    ASSERT_EQ(dup.removeValue(at(key("dup"))), 0);
    EXPECT_EQ(longUnder(dup, key("dup")), 1) << "the earlier entry after the later one went";
    EXPECT_EQ(dup.getCount(), 4);
    EXPECT_EQ(dup.removeValue(at(key("none"))), 0);

    GSLongObject fallback(-1);
    EXPECT_EQ(dup.getObjectValue("none", &fallback), &fallback);
    EXPECT_EQ(dup.getObjectValue("a", &fallback), dup.getValueAt(0));

    // setValue replaces the value of an existing key, also with the very same object.
    GSObjectRef<GSLongObject> two(new GSLongObject(2));
    d.setObjectValue("x", new GSLongObject(1));
    d.setObjectValue("x", two.get());
    d.setObjectValue("X", two.get()); // caseless: the same entry
    EXPECT_EQ(d.getCount(), 2);
    EXPECT_EQ(longUnder(d, key("x")), 2);
    EXPECT_EQ(two->getReferenceCount(), 2) << "ours and the dictionary's";
}

TEST(Dictionary, BufferValueSharesStorageUntilWritten) {
    GSObjectDictionary d;
    GSObjectRef<GSBufferObject> buffer(new GSBufferObject(toDynaArray(Bytes{1, 2, 3})));
    d.setObjectValue("data", buffer.get());
    d.setObjectValue("text", new GSStringObject("not bytes"));
    d.setObjectValue("nothing", new GSBufferObject());

    GSDynaArray<unsigned char> bytes = d.getBufferValue("data");
    ASSERT_EQ(bytes.getSize(), 3);
    EXPECT_EQ(bytes.getArrayData(), buffer->value.getArrayData()) << "the storage is shared";
    EXPECT_EQ(buffer->value.getArrayData()->getReferenceCount(), 2);
    bytes[0] = 9;
    EXPECT_EQ(buffer->value[0], 1) << "a change through the copy leaves the dictionary's bytes";
    EXPECT_EQ(bytes[0], 9);

    for (const char* other : {"text", "nothing", "absent"}) {
        GSDynaArray<unsigned char> none = d.getBufferValue(other);
        EXPECT_FALSE(none.hasStorage()) << other;
    }
}

TEST(Dictionary, CopiesShareTheirObjects) {
    GSObjectRef<GSLongObject> one(new GSLongObject(1));
    GSObjectDictionary d;
    d.setCaselessStringKeys(1);
    d.setObjectValue("one", one.get());
    d.addValue(newKey(2), new GSStringObject("two"));

    GSObjectDictionary copy(d);
    EXPECT_EQ(copy.getCount(), 2);
    EXPECT_EQ(copy.getCaselessStringKeys(), 1);
    EXPECT_EQ(copy.getValue(at(key("ONE"))), one.get()) << "the same object, not a copy of it";
    EXPECT_EQ(one->getReferenceCount(), 3);

    GSObjectDictionary assigned;
    GSObjectRef<GSLongObject> old(new GSLongObject(0));
    assigned.setObjectValue("old", old.get());
    assigned = d;
    EXPECT_EQ(old->getReferenceCount(), 1) << "the previous entries were let go";
    EXPECT_EQ(assigned.getKeyAt(1), d.getKeyAt(1));
    assigned = assigned;
    EXPECT_EQ(assigned.getCount(), 2) << "self-assignment";
    EXPECT_EQ(one->getReferenceCount(), 4);

    copy.setObjectValue("one", new GSLongObject(5));
    EXPECT_EQ(longUnder(d, key("one")), 1) << "changing a copy leaves the original";
    EXPECT_TRUE(GSObjectDictionary::null.isEmpty());
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

TEST(Dictionary, NestedDictionariesRoundTripInEveryForm) {
    GSObjectRef<GSObjectDictionaryObject> top(new GSObjectDictionaryObject());
    GSObjectDictionary& d = top->value;
    GSObjectRef<GSLongObject> shared(new GSLongObject(-7));
    d.setObjectValue("shared", shared.get());
    d.setObjectValue("again", shared.get());
    d.addValue(newKey(3), new GSStringObject("three"));
    d.addValue(newKey(""), new GSFloatObject(0.5f));
    d.setObjectValue("bytes", new GSBufferObject(toDynaArray(Bytes(300, 0xab))));
    GSObjectRef<GSObjectDictionaryObject> middle = chain(2);
    middle->value.addValue(newKey(-1), new GSLongArrayObject());
    d.setObjectValue("nested", middle.get());

    for (Form form : kForms) {
        SCOPED_TRACE(formName(form));
        auto back = roundTrip(*top, form);
        ASSERT_TRUE(back);
        const GSObjectDictionary& r = back->value;
        ASSERT_EQ(r.getCount(), 6);
        EXPECT_EQ(longUnder(r, key("shared")), -7);
        EXPECT_EQ(longUnder(r, key("again")), -7);
        // Only a table makes a shared object come back as one.
        EXPECT_EQ(r.getValue(at(key("shared"))) == r.getValue(at(key("again"))),
                  form != Form::kPlain);
        auto* three = GSObjectCast<GSStringObject>(r.getValue(at(key(3))),
                                                   GSStringObject::gsClassGSStringObject);
        ASSERT_NE(three, nullptr);
        EXPECT_EQ(three->value.compareValueSimple("three"), 0);
        auto* half = GSObjectCast<GSFloatObject>(r.getValue(at(key(""))),
                                                 GSFloatObject::gsClassGSFloatObject);
        ASSERT_NE(half, nullptr) << "the empty text is a key like any other";
        EXPECT_EQ(half->value, 0.5f);
        EXPECT_EQ(r.getBufferValue("bytes").getSize(), 300);
        GSObject* nested = r.getValue(at(key("nested")));
        EXPECT_EQ(depthOf(nested), 2);
        ASSERT_NE(inner(nested), nullptr);
        EXPECT_NE(inner(nested)->getValue(at(key(-1))), nullptr);

        // The caseless flag is the reader's own, not the file's.
        Bytes bytes = writeIn(form, [&](GSFile* f) { return top->write(f); });
        GSObjectDictionaryObject target;
        target.value.setCaselessStringKeys(1);
        target.value.setObjectValue("stale", new GSLongObject(0));
        ASSERT_EQ(readIn(form, bytes, [&](GSFile* f) { return target.read(f); }), 0);
        EXPECT_EQ(target.value.getCaselessStringKeys(), 1);
        EXPECT_EQ(longUnder(target.value, key("SHARED")), -7);
        EXPECT_EQ(target.value.getValue(at(key("stale"))), nullptr) << "the arrays are replaced";
    }
}

// A read that fails in the values leaves keys without values: their look-ups give null.
TEST(Dictionary, PartlyReadDictionaryStillLooksUp) {
    GSStringDictionaryKey a("a"), b("b");
    GSLongObject one(1);
    Bytes bytes = bodyWith({&a, &b}, {&one, nullptr});
    GSObjectDictionary d;
    EXPECT_EQ(readIn(Form::kPlain, bytes, [&](GSFile* f) { return d.read(f); }), 1);
    EXPECT_EQ(d.getCount(), 2);
    EXPECT_EQ(d.getValues().getCount(), 1);
    EXPECT_EQ(longUnder(d, key("a")), 1);
    EXPECT_EQ(d.getValue(at(key("b"))), nullptr);
    // Adding to it keeps keys and values paired.
    ASSERT_EQ(d.setObjectValue("c", new GSLongObject(3)), 0);
    EXPECT_EQ(longUnder(d, key("c")), 3);
    EXPECT_EQ(d.getValue(at(key("b"))), nullptr);
}

// Objects of other classes in the key array are no keys: look-ups pass over them.
TEST(DictionaryRobustness, ForeignObjectsAmongKeysAreNoKeys) {
    GSLongObject seven(7);
    GSStringObject a("a");
    GSStringDictionaryKey b("b");
    GSStringObject x("x"), y("y"), z("z");
    GSObjectDictionary d;
    ASSERT_EQ(readIn(Form::kPlain, bodyWith({&seven, &a, &b}, {&x, &y, &z}),
                     [&](GSFile* f) { return d.read(f); }),
              0);
    ASSERT_EQ(d.getCount(), 3);
    EXPECT_EQ(d.getKeyAt(0), nullptr);
    EXPECT_EQ(d.getKeyAt(1), nullptr);
    EXPECT_NE(d.getKeyAt(2), nullptr);
    for (short caseless : {0, 1}) {
        d.setCaselessStringKeys(caseless);
        EXPECT_EQ(d.getIndexForKey(at(key(7))), -1);
        EXPECT_EQ(d.getIndexForKey(at(key("a"))), -1);
        EXPECT_EQ(d.getIndexForKey(at(key(caseless ? "B" : "b"))), 2);
    }
    GSObjectRef<GSLongDictionaryKey> k7(new GSLongDictionaryKey(7));
    EXPECT_EQ(d.setValue(k7.get(), new GSStringObject("z")), 0);
    EXPECT_EQ(d.getCount(), 4) << "a new entry, not the foreign one";
}

// With an object table a dictionary that holds itself is written as a reference back to its own
// record; reading meets the record while still reading it, and fails. Without a table the
// writer refuses instead of recursing.
TEST(DictionaryRobustness, DictionaryHoldingItselfFailsToRead) {
    GSObjectRef<GSObjectDictionaryObject> self(new GSObjectDictionaryObject());
    self->value.setObjectValue("self", self.get());
    GSObjectRef<GSObjectDictionaryObject> a(new GSObjectDictionaryObject());
    GSObjectRef<GSObjectDictionaryObject> b(new GSObjectDictionaryObject());
    a->value.setObjectValue("b", b.get());
    b->value.addValue(newKey(1), a.get());
    for (GSObjectDictionaryObject* cycle : {self.get(), a.get()}) {
        for (Form form : {Form::kLongTable, Form::kByteTable}) {
            SCOPED_TRACE(formName(form));
            Bytes bytes = writeIn(form, [&](GSFile* f) { return f->writeObject(cycle); });
            short status;
            GSObjectRef<GSObject> back = readRecordIn(form, bytes, &status);
            EXPECT_NE(status, 0);
            EXPECT_EQ(back.get(), nullptr);
        }
        MemoryFile plain;
        EXPECT_EQ(plain.file.writeObject(cycle), 1) << "no table: refused, not endless";
    }
    // The cycles are ours: break them, or they would outlive the test.
    self->value.empty();
    b->value.empty();
}

TEST(DictionaryRobustness, NestingBeyondTheRecordLimitFails) {
    const int deepest = GSFile::kMaxObjectDepth - 1; // the innermost entries are one level below
    for (Form form : kForms) {
        SCOPED_TRACE(formName(form));
        auto back = roundTrip(*chain(deepest), form);
        EXPECT_EQ(depthOf(back.get()), deepest);
        MemoryFile tooDeep;
        EXPECT_EQ(tooDeep.file.writeObject(chain(deepest + 1).get()), 1)
            << "the writer does not go deeper than a reader follows";
    }
    for (int levels : {deepest, deepest + 1, 300}) {
        SCOPED_TRACE(levels);
        Bytes bytes = writeIn(Form::kPlain, [&](GSFile* f) { return writeChainByHand(f, levels); });
        short status;
        GSObjectRef<GSObject> back = readRecordIn(Form::kPlain, bytes, &status);
        EXPECT_EQ(depthOf(back.get()), levels == deepest ? deepest : -1);
        EXPECT_EQ(status != 0, levels != deepest);
    }
}

TEST(DictionaryRobustness, CraftedBodies) {
    struct {
        const char* hex;
        short status;
        const char* what;
    } cases[] = {
        {"01 00 00 00 00 03 00 00 00 01 00 ff ff ff ff", 0, "an unknown item is skipped"},
        {"01 00 80 00 00 00 00 00 00 00 ff ff ff ff", 1, "item 0x80000000"},
        {"01 00 00 00 00 03 ff ff ff f0 ff ff ff ff", 1, "an item that points backwards"},
        {"01 00 00 00 00 01 00 00 00 04 7f ff ff ff ff ff ff ff", 1, "2^31-1 keys"},
        {"01 00 00 00 00 01 00 00 00 05 00 00 00 01 01 ff ff ff ff", 1, "a null key record"},
        {"02 00 ff ff ff ff", 1, "a newer major version"},
        {"01 00 00 00 00 01", 1, "cut in a header"},
    };
    for (const auto& c : cases) {
        GSObjectDictionary d;
        MemoryFile m(fromHex(c.hex));
        EXPECT_EQ(d.read(&m.file), c.status) << c.what;
        EXPECT_EQ(d.getCount(), 0) << c.what;
    }
}
