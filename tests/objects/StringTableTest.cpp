// StringTableTest.cpp - order, insert-or-replace, listing and shared storage of the string tables.
#include "GSExceptions.h"
#include "GSNumericStringTable.h"
#include "GSStringTable.h"

#include <gtest/gtest.h>

#include <climits>
#include <string>
#include <vector>

namespace {

std::string text(const GSString& s) {
    return s.isNull() ? std::string() : s.getConstAddr();
}

// Every entry as "key=value", in table order, read through the common interface.
std::vector<std::string> listing(const GSBasicStringTable& table) {
    std::vector<std::string> out;
    for (long i = 0; i < table.getCount(); ++i) {
        GSString key, value;
        EXPECT_EQ(table.get(i, &key, &value), 0);
        out.push_back(text(key) + "=" + text(value));
    }
    return out;
}

using Listing = std::vector<std::string>;

// Precomposed é, and e followed by the combining acute accent: one key to the table.
const char* const kPrecomposed = "\xC3\xA9";
const char* const kDecomposed = "e\xCC\x81";

} // namespace

TEST(StringTable, KeepsKeysInCodePointOrderAndReplacesValues) {
    GSStringTable table;
    EXPECT_EQ(table.isSorted(), 1);
    EXPECT_EQ(table.setValue("b", "1"), 0);
    EXPECT_EQ(table.setValue("a", "2"), 0);
    EXPECT_EQ(table.setValue("b", "3"), 1) << "replacing returns the existing index";
    EXPECT_EQ(listing(table), (Listing{"a=2", "b=3"}));

    // é sorts between e and f by code point after decomposition, although its first byte
    // (0xC3) is above every ASCII byte; the empty key sorts first.
    GSStringTable names;
    for (const char* key : {"f", kPrecomposed, "e", "z", "E", ""})
        names.setValue(key, "v");
    EXPECT_EQ(listing(names),
              (Listing{"=v", "E=v", "e=v", std::string(kPrecomposed) + "=v", "f=v", "z=v"}));

    // The decomposed spelling is the same key: the value changes, the stored spelling stays.
    long index = names.setValue(kDecomposed, "decomposed");
    EXPECT_EQ(index, 3);
    GSString key, value;
    names.get(index, &key, &value);
    EXPECT_EQ(text(key), kPrecomposed);
    EXPECT_EQ(text(value), "decomposed");
    EXPECT_EQ(names.getCount(), 6);
    EXPECT_EQ(text(names.getValue(kPrecomposed)), "decomposed");
    EXPECT_EQ(names.findIndex("zz"), -1);
    EXPECT_TRUE(names.getValue("zz").isNull());

    // add goes through setValue and always returns 0.
    EXPECT_EQ(names.add(GSString("f"), GSString("added")), 0);
    EXPECT_EQ(text(names.getValue("f")), "added");
    EXPECT_EQ(names.getCount(), 6);
}

TEST(StringTable, GetThrowsBadIndexOutsideTheEntries) {
    GSStringTable table;
    GSString key, value;
    EXPECT_THROW(table.get(0, &key, &value), std::bad_index);
    table.setValue("k", "v");
    EXPECT_THROW(table.get(-1, &key, &value), std::bad_index);
    EXPECT_THROW(table.get(1, &key, &value), std::bad_index);
    EXPECT_EQ(table.get(0, &key, &value), 0);

    GSNumericStringTable numbers;
    EXPECT_THROW(numbers.get(0, &key, &value), std::bad_index);
    EXPECT_TRUE(numbers.getValue(5).isNull());
    EXPECT_TRUE(numbers.getValue(5).isEmpty());
    numbers.setValue(5, "five");
    EXPECT_THROW(numbers.get(1, &key, &value), std::bad_index);
    EXPECT_THROW(numbers.get(-1, &key, &value), std::bad_index);
}

TEST(StringTable, ValuesTakenFromTheTableItselfSurviveTheInsertion) {
    // The value to insert lives in the entries that the insertion moves and reallocates.
    GSStringTable table(1, 1);
    table.setValue("m", GSString::withCopyOf("a text long enough to live in a shared buffer"));
    for (const char* key : {"a", "b", "c", "d", "e", "f"})
        table.setValue(key, table.getValue("m"));
    EXPECT_EQ(table.getCount(), 7);
    for (long i = 0; i < table.getCount(); ++i) {
        GSString value;
        table.get(i, nullptr, &value);
        EXPECT_EQ(text(value), "a text long enough to live in a shared buffer") << i;
    }

    GSNumericStringTable numbers(1, 1);
    numbers.setValue(1, GSString::withCopyOf("one"));
    for (int key = 2; key < 10; ++key)
        numbers.setValue(-key, numbers.getValue(1));
    EXPECT_EQ(numbers.getCount(), 9);
    EXPECT_EQ(text(numbers.getValue(-9)), "one");
}

TEST(StringTable, CopiesAreUnaffectedByChangesToTheOriginal) {
    GSStringTable original;
    original.setValue("a", "1");
    original.setValue("c", "3");
    GSStringTable copy(original);
    original.setValue("a", "changed"); // replace in place: must copy the shared storage first
    original.setValue("b", "2");       // insertion
    EXPECT_EQ(listing(copy), (Listing{"a=1", "c=3"}));
    EXPECT_EQ(listing(original), (Listing{"a=changed", "b=2", "c=3"}));
    copy.setValue("c", "copy");
    EXPECT_EQ(text(original.getValue("c")), "3");

    GSNumericStringTable numbers;
    numbers.setValue(1, "one");
    GSNumericStringTable numbersCopy;
    numbersCopy = numbers;
    numbers.setValue(1, "uno");
    numbers.setValue(2, "two");
    EXPECT_EQ(listing(numbersCopy), (Listing{"1=one"}));
    EXPECT_EQ(listing(numbers), (Listing{"1=uno", "2=two"}));
}

TEST(NumericStringTable, OrdersByWrappedDifferenceAndListsDecimalKeys) {
    GSNumericStringTable table;
    for (int key : {30, 10, 20})
        table.setValue(key, GSString::withCopyOf(std::to_string(key * 2).c_str()));
    EXPECT_EQ(listing(table), (Listing{"10=20", "20=40", "30=60"}));
    EXPECT_EQ(table.setValue(20, "x"), 1) << "replacing returns the existing index";
    EXPECT_EQ(table.getCount(), 3);

    GSNumericStringTable negatives;
    for (int key : {-5, 3, -100, 7, 0})
        negatives.setValue(key, "v");
    EXPECT_EQ(listing(negatives), (Listing{"-100=v", "-5=v", "0=v", "3=v", "7=v"}));

    // Keys more than 2^31 apart compare the other way round: 2147483647 - (-2) wraps to
    // -2147483647, so the largest key sorts before -2, in either order of insertion.
    for (bool largeFirst : {true, false}) {
        GSNumericStringTable wrapped;
        wrapped.setValue(largeFirst ? INT_MAX : -2, largeFirst ? "max" : "minus two");
        wrapped.setValue(largeFirst ? -2 : INT_MAX, largeFirst ? "minus two" : "max");
        EXPECT_EQ(listing(wrapped), (Listing{"2147483647=max", "-2=minus two"})) << largeFirst;
        EXPECT_EQ(text(wrapped.getValue(INT_MAX)), "max");
        EXPECT_EQ(text(wrapped.getValue(-2)), "minus two");
        EXPECT_EQ(wrapped.setValue(-2, "again"), 1);
        EXPECT_EQ(wrapped.getCount(), 2);
    }
    // Exactly 2^31 apart (2147483647 and -1), each difference wraps to INT_MIN: each key is
    // below the other, so the key inserted later goes in front, and both stay reachable.
    for (bool largeFirst : {true, false}) {
        GSNumericStringTable half;
        half.setValue(largeFirst ? INT_MAX : -1, "first");
        EXPECT_EQ(half.setValue(largeFirst ? -1 : INT_MAX, "second"), 0);
        EXPECT_EQ(listing(half), largeFirst ? (Listing{"-1=second", "2147483647=first"})
                                            : (Listing{"2147483647=second", "-1=first"}));
        EXPECT_EQ(text(half.getValue(INT_MAX)), largeFirst ? "first" : "second");
        EXPECT_EQ(text(half.getValue(-1)), largeFirst ? "second" : "first");
        EXPECT_EQ(half.setValue(-1, "again"), largeFirst ? 0 : 1);
        EXPECT_EQ(half.getCount(), 2);
    }
    // INT_MIN and 1: INT_MIN - 1 wraps to INT_MAX, so 1 sorts first.
    GSNumericStringTable extremes;
    extremes.setValue(INT_MIN, "min");
    extremes.setValue(1, "one");
    EXPECT_EQ(listing(extremes), (Listing{"1=one", "-2147483648=min"}));
    EXPECT_EQ(text(extremes.getValue(INT_MIN)), "min");
}

TEST(NumericStringTable, AddReadsTheKeyTextAsAnInteger) {
    GSNumericStringTable table;
    GSBasicStringTable& basic = table;
    EXPECT_EQ(basic.add(GSString("  42abc"), GSString("answer")), 0);
    EXPECT_EQ(basic.add(GSString("-7"), GSString("minus")), 0);
    EXPECT_EQ(basic.add(GSString("none"), GSString("zero")), 0);
    EXPECT_EQ(text(table.getValue(42)), "answer");
    EXPECT_EQ(text(table.getValue(-7)), "minus");
    EXPECT_EQ(text(table.getValue(0)), "zero");
    EXPECT_EQ(listing(basic), (Listing{"-7=minus", "0=zero", "42=answer"}));
}

TEST(StringTable, UnsortedTablesAppendAndSortLater) {
    GSStringTable table;
    table.setSorted(0);
    EXPECT_EQ(table.setValue("c", "1"), 0);
    EXPECT_EQ(table.setValue("a", "2"), 1);
    EXPECT_EQ(table.setValue("c", "3"), 2) << "no search: duplicates are appended";
    EXPECT_EQ(table.findIndex("c"), 0) << "the first of the equal keys";
    EXPECT_EQ(text(table.getValue("a")), "2");
    table.setSorted(1);
    EXPECT_EQ(listing(table), (Listing{"a=2", "c=1", "c=3"})) << "stable: duplicates in order";
    EXPECT_EQ(table.setValue("b", "4"), 1);
}

TEST(StringTable, LoadReadsTheProcessWideNumericTable) {
    // Ids far from any that the framework or an application would use.
    GSString::_numericStringTable.setValue(777001, GSString::withCopyOf("loaded text"));
    GSString s("previous");
    s.load(777001);
    EXPECT_EQ(text(s), "loaded text");
    EXPECT_EQ(text(GSString(777001)), "loaded text");
    s.load(777002);
    EXPECT_TRUE(s.isNull());
    s = GSString("x");
    s.load(0);
    EXPECT_TRUE(s.isEmpty());
    EXPECT_TRUE(GSString(0).isNull());

    GSString::_stringTable.setValue("test.key", "test value");
    EXPECT_EQ(text(GSString::_stringTable.getValue("test.key")), "test value");
}
