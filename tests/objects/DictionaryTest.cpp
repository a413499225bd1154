// DictionaryTest.cpp - GSObjectDictionary: look-ups by key class, case and order, shared
// buffers, copies, the exact bytes of its body, nested round trips in every chunk form, and
// files that make a dictionary hold itself, nest too deeply or put foreign objects among keys.
#include "GSArrayObjects.h"
#include "GSLongDictionaryKey.h"
#include "GSNumberObjects.h"
#include "GSObjectDictionary.h"
#include "GSObjectDictionaryObject.h"
#include "GSStringDictionaryKey.h"
#include "GSStringObject.h"
#include "GSTagWrite.h"
#include "RecordForms.h"
#include "TextSupport.h"

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
GSLongDictionaryKey key(int number) {
    return GSLongDictionaryKey(number);
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

// How many dictionaries deep the chain read back goes before its long; -1 when broken.
int depthOf(GSObject* object) {
    int levels = 0;
    for (GSObjectDictionary* d = inner(object); d; d = inner(object), ++levels)
        object = d->getObjectValue("next", nullptr);
    return GSObjectCast<GSLongObject>(object, GSLongObject::gsClassGSLongObject) ? levels : -1;
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

// The record of chain(levels) written piece by piece, past the dictionary writer's own check.
short writeChain(GSFile* f, int levels) {
    GSStringDictionaryKey next("next");
    GSLongObject leaf(levels);
    GSTagWrite body(f);
    Writer value =
        levels > 1 ? [levels](GSFile* g) { return writeChain(g, levels - 1); } : record(&leaf);
    return static_cast<short>(f->putChar(0) || GSString("GSObjectDictionaryObject").write(f) ||
                              body.writeVersion(256) || body.writeStart(1) ||
                              writeBody(f, {record(&next)}, {value}) || body.writeEnd() ||
                              body.writeEndTag());
}

} // namespace

TEST(Dictionary, LookUpsFollowKeyClassCaseAndOrder) {
    GSObjectDictionary d;
    EXPECT_EQ(d.getIndexForKey(at(key("a"))), -1) << "empty";
    ASSERT_EQ(d.addValue(new GSStringDictionaryKey("Name"), new GSLongObject(1)), 0);
    EXPECT_EQ(d.getValue(at(key("NAME"))), nullptr) << "string keys match with case by default";
    d.setCaselessStringKeys(1);
    EXPECT_EQ(longUnder(d, key("nAmE")), 1) << "caseless";
    EXPECT_EQ(d.getValue(at(key("Nam"))), nullptr) << "a prefix is not a match";
    EXPECT_EQ(d.getIndexForKey(nullptr), -1);
    // A string "7" and a long 7 are different keys, with the caseless flag or without.
    for (short caseless : {0, 1}) {
        GSObjectDictionary mixed;
        mixed.setCaselessStringKeys(caseless);
        mixed.addValue(new GSStringDictionaryKey("7"), new GSLongObject(10));
        mixed.addValue(new GSLongDictionaryKey(7), new GSLongObject(20));
        EXPECT_EQ(std::pair(longUnder(mixed, key("7")), longUnder(mixed, key(7))),
                  std::pair(10, 20));
        EXPECT_EQ(mixed.getValue(at(key(8))), nullptr);
    }
    // A key that occurs twice: the later entry wins, until it is removed.
    GSObjectDictionary dup;
    const char* texts[] = {"a", "dup", "b", "c", "dup"};
    for (int i = 0; i < 5; ++i)
        dup.addValue(new GSStringDictionaryKey(texts[i]), new GSLongObject(i));
    EXPECT_EQ(longUnder(dup, key("dup")), 4);
    ASSERT_EQ(dup.removeValue(at(key("dup"))) + dup.removeValue(at(key("none"))), 0);
    EXPECT_EQ(longUnder(dup, key("dup")), 1) << "the earlier entry after the later one went";
    EXPECT_EQ(dup.getCount(), 4);
    GSLongObject fallback(-1);
    EXPECT_EQ(dup.getObjectValue("none", &fallback), &fallback);
    EXPECT_EQ(dup.getObjectValue("a", &fallback), dup.getValueAt(0));
    // setValue replaces the value of an existing key, also with the very same object.
    GSObjectRef<GSLongObject> two(new GSLongObject(2));
    d.setObjectValue("x", new GSLongObject(1));
    d.setObjectValue("x", two.get());
    d.setObjectValue("X", two.get()); // caseless: the same entry
    EXPECT_EQ(d.getCount(), 2);
    EXPECT_EQ(two->getReferenceCount(), 2) << "ours and the dictionary's";
}

TEST(Dictionary, CopiesShareTheirObjectsAndBuffers) {
    GSObjectRef<GSLongObject> one(new GSLongObject(1));
    GSObjectRef<GSBufferObject> buffer(new GSBufferObject(toDynaArray(Bytes{1, 2, 3})));
    GSObjectDictionary d, assigned;
    d.setCaselessStringKeys(1);
    d.setObjectValue("one", one.get());
    d.setObjectValue("data", buffer.get());
    d.setObjectValue("text", new GSStringObject("not bytes"));
    d.setObjectValue("nothing", new GSBufferObject());
    GSObjectDictionary copy(d);
    EXPECT_EQ(copy.getValue(at(key("ONE"))), one.get()) << "the same object, caseless too";
    EXPECT_EQ(copy.getCaselessStringKeys(), 1);
    EXPECT_TRUE(GSObjectDictionary::null.isEmpty());
    GSObjectRef<GSLongObject> old(new GSLongObject(0));
    assigned.setObjectValue("old", old.get());
    assigned = d;
    assigned = assigned;
    EXPECT_EQ(old->getReferenceCount(), 1) << "the previous entries were let go";
    EXPECT_EQ(one->getReferenceCount(), 4);
    copy.setObjectValue("one", new GSLongObject(5));
    EXPECT_EQ(longUnder(d, key("one")), 1) << "changing a copy leaves the original";

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

TEST(Dictionary, NestedDictionariesRoundTripInEveryForm) {
    GSObjectRef<GSObjectDictionaryObject> top(new GSObjectDictionaryObject());
    GSObjectDictionary& d = top->value;
    GSObjectRef<GSLongObject> shared(new GSLongObject(-7));
    d.setObjectValue("shared", shared.get());
    d.setObjectValue("again", shared.get());
    d.addValue(new GSLongDictionaryKey(3), new GSStringObject("three"));
    d.addValue(new GSStringDictionaryKey(""), new GSFloatObject(0.5f));
    d.setObjectValue("bytes", new GSBufferObject(toDynaArray(Bytes(300, 0xab))));
    GSObjectRef<GSObjectDictionaryObject> middle = chain(2);
    middle->value.addValue(new GSLongDictionaryKey(-1), new GSLongArrayObject());
    d.setObjectValue("nested", middle.get());
    for (Form form : kForms) {
        SCOPED_TRACE(formName(form));
        auto back = roundTrip(*top, form);
        ASSERT_TRUE(back);
        // Every entry, the nested ones too, comes back to write the same bytes; only a table
        // makes a shared object come back as one.
        EXPECT_EQ(writeIn(form, [&](GSFile* f) { return back->write(f); }),
                  writeIn(form, [&](GSFile* f) { return top->write(f); }));
        const GSObjectDictionary& r = back->value;
        EXPECT_EQ(std::pair(longUnder(r, key("shared")), longUnder(r, key("again"))),
                  std::pair(-7, -7));
        EXPECT_EQ(r.getValue(at(key("shared"))) == r.getValue(at(key("again"))),
                  form != Form::kPlain);
        EXPECT_EQ(depthOf(r.getObjectValue("nested", nullptr)), 2);
        // The caseless flag is the reader's own, not the file's; the arrays are replaced.
        Bytes bytes = writeIn(form, [&](GSFile* f) { return top->write(f); });
        GSObjectDictionaryObject target;
        target.value.setCaselessStringKeys(1);
        target.value.setObjectValue("stale", new GSLongObject(0));
        ASSERT_EQ(readIn(form, bytes, [&](GSFile* f) { return target.read(f); }), 0);
        EXPECT_EQ(longUnder(target.value, key("SHARED")), -7);
        EXPECT_EQ(target.value.getValue(at(key("stale"))), nullptr);
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
    ASSERT_EQ(readIn(Form::kPlain,
                     writeIn(Form::kPlain,
                             [&](GSFile* f) {
                                 return writeBody(f, {record(&seven), record(&a), record(&b)},
                                                  {record(&x), record(&x), record(&x)});
                             }),
                     [&](GSFile* f) { return d.read(f); }),
              0);
    EXPECT_EQ(d.getKeyAt(0), nullptr);
    EXPECT_NE(d.getKeyAt(2), nullptr);
    for (short caseless : {0, 1}) {
        d.setCaselessStringKeys(caseless);
        EXPECT_EQ(std::pair(d.getIndexForKey(at(key(7))), d.getIndexForKey(at(key("a")))),
                  std::pair(-1L, -1L));
        EXPECT_EQ(d.getIndexForKey(at(key(caseless ? "B" : "b"))), 2);
    }
    EXPECT_EQ(d.setValue(new GSLongDictionaryKey(7), new GSStringObject("z")), 0);
    EXPECT_EQ(d.getCount(), 4) << "a new entry, not the foreign one";

    Bytes broken = writeIn(Form::kPlain, [&](GSFile* f) {
        return writeBody(f, {record(&b), record(&c)}, {record(&one), record(nullptr)});
    });
    EXPECT_EQ(readIn(Form::kPlain, broken, [&](GSFile* f) { return part.read(f); }), 1);
    EXPECT_EQ(part.getValues().getCount(), 1);
    EXPECT_EQ(part.getValue(at(key("c"))), nullptr);
    ASSERT_EQ(part.setObjectValue("d", new GSLongObject(3)), 0);
    EXPECT_EQ(std::pair(longUnder(part, key("b")), longUnder(part, key("d"))), std::pair(1, 3));
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
    b->value.addValue(new GSLongDictionaryKey(1), a.get());
    for (GSObjectDictionaryObject* cycle : {self.get(), a.get()}) {
        for (Form form : {Form::kLongTable, Form::kByteTable}) {
            Bytes bytes = writeIn(form, [&](GSFile* f) { return f->writeObject(cycle); });
            short status;
            EXPECT_EQ(readRecordIn(form, bytes, &status).get(), nullptr) << formName(form);
            EXPECT_NE(status, 0) << formName(form);
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
        EXPECT_EQ(depthOf(roundTrip(*chain(deepest), form).get()), deepest) << formName(form);
        MemoryFile tooDeep;
        EXPECT_EQ(tooDeep.file.writeObject(chain(deepest + 1).get()), 1)
            << "the writer does not go deeper than a reader follows";
    }
    for (int levels : {deepest, deepest + 1, 300}) {
        Bytes bytes = writeIn(Form::kPlain, [&](GSFile* f) { return writeChain(f, levels); });
        short status;
        GSObjectRef<GSObject> back = readRecordIn(Form::kPlain, bytes, &status);
        EXPECT_EQ(depthOf(back.get()), levels == deepest ? deepest : -1) << levels;
        EXPECT_EQ(status != 0, levels != deepest) << levels;
    }
}

TEST(DictionaryRobustness, CraftedBodies) {
    const std::tuple<const char*, short, const char*> rows[] = {
        {"01 00 00 00 00 03 00 00 00 01 00 ff ff ff ff", 0, "an unknown item is skipped"},
        {"01 00 80 00 00 00 00 00 00 00 ff ff ff ff", 1, "item 0x80000000"},
        {"01 00 00 00 00 03 ff ff ff f0 ff ff ff ff", 1, "an item that points backwards"},
        {"01 00 00 00 00 01 00 00 00 04 7f ff ff ff ff ff ff ff", 1, "2^31-1 keys"},
        {"01 00 00 00 00 01 00 00 00 05 00 00 00 01 01 ff ff ff ff", 1, "a null key record"},
        {"02 00 ff ff ff ff", 1, "a newer major version"},
        {"01 00 00 00 00 01", 1, "cut in a header"},
    };
    for (const auto& [hex, status, what] : rows) {
        GSObjectDictionary d;
        MemoryFile m(fromHex(hex));
        EXPECT_EQ(d.read(&m.file), status) << what;
        EXPECT_EQ(d.getCount(), 0) << what;
    }
}
