// StringTableTest.cpp - order, insert-or-replace, listing and shared storage of the string tables.
#include "TextSupport.h"
#include "objects/GSExceptions.h"
#include "objects/GSNumericStringTable.h"
#include "objects/GSStringTable.h"

#include <gtest/gtest.h>

#include <climits>
#include <vector>

using testing_support::text;

namespace {

using Listing = std::vector<std::string>;

// Every entry as "key=value", in table order, read through the common interface.
Listing listing(const GSBasicStringTable& table) {
    Listing out;
    for (long i = 0; i < table.getCount(); ++i) {
        GSString key, value;
        EXPECT_EQ(table.get(i, &key, &value), 0);
        out.push_back(text(key) + "=" + text(value));
    }
    return out;
}

} // namespace

TEST(StringTable, KeepsKeysInCodePointOrderAndReplacesValues) {
    // é sorts between e and f by code point after decomposition, although its first byte (0xC3)
    // is above every ASCII byte; the empty key sorts first.
    GSStringTable names;
    for (const char* key : {"f", "\xC3\xA9", "e", "z", "E", ""})
        names.setValue(key, "v");
    EXPECT_EQ(names.setValue("f", "w"), 4) << "replacing returns the existing index";
    EXPECT_EQ(listing(names), (Listing{"=v", "E=v", "e=v", "\xC3\xA9=v", "f=w", "z=v"}));
    // The decomposed spelling is the same key: the value changes, the stored spelling stays.
    EXPECT_EQ(names.setValue("e\xCC\x81", "decomposed"), 3);
    EXPECT_EQ(listing(names)[3], "\xC3\xA9=decomposed");
    EXPECT_EQ(text(names.getValue("\xC3\xA9")), "decomposed");
    EXPECT_EQ(std::pair(names.findIndex("zz"), names.getValue("zz").isNull()),
              std::pair(-1L, true));
    EXPECT_EQ(names.add(GSString("f"), GSString("added")), 0) << "add goes through setValue";
    EXPECT_EQ(std::pair(text(names.getValue("f")), names.getCount()),
              std::pair(std::string("added"), 6L));
    GSNumericStringTable numbers;
    EXPECT_THROW(numbers.get(0, nullptr, nullptr), std::bad_index);
    numbers.setValue(5, "five");
    for (long outside : {-1L, 1L})
        EXPECT_THROW(numbers.get(outside, nullptr, nullptr), std::bad_index) << outside;
    EXPECT_THROW(names.get(6, nullptr, nullptr), std::bad_index);
}

TEST(StringTable, ValuesFromTheTableItselfAndCopies) {
    // The value to insert lives in the entries that the insertion moves and reallocates.
    const char* shared = "a text long enough to live in a shared buffer";
    GSStringTable table(1, 1);
    table.setValue("m", GSString::withCopyOf(shared));
    for (const char* key : {"a", "b", "c", "d", "e", "f"})
        table.setValue(key, table.getValue("m"));
    EXPECT_EQ(listing(table).size(), 7u);
    for (const std::string& entry : listing(table))
        EXPECT_EQ(entry.substr(2), shared) << entry;
    GSNumericStringTable numbers(1, 1);
    numbers.setValue(1, GSString::withCopyOf("one"));
    for (int key = 2; key < 10; ++key)
        numbers.setValue(-key, numbers.getValue(1));
    EXPECT_EQ(std::pair(text(numbers.getValue(-9)), numbers.getCount()),
              std::pair(std::string("one"), 9L));

    // Copies share storage that a change to the original (replacing or inserting) copies first.
    GSStringTable copy(table);
    table.setValue("a", "changed");
    table.setValue("0", "new");
    copy.setValue("b", "copy");
    EXPECT_EQ(text(copy.getValue("a")) + text(table.getValue("b")), std::string(shared) + shared);
    GSNumericStringTable numbersCopy;
    numbersCopy = numbers;
    numbers.setValue(1, "uno");
    numbers.setValue(2, "two");
    EXPECT_EQ(std::pair(text(numbersCopy.getValue(1)), numbersCopy.getCount()),
              std::pair(std::string("one"), 9L));
}

TEST(NumericStringTable, OrdersByWrappedDifference) {
    // Keys more than 2^31 apart compare the other way round: 2147483647 - (-2) wraps to
    // -2147483647, so the largest key sorts before -2; exactly 2^31 apart (2147483647 and -1)
    // each key is below the other, so the key inserted later goes in front; INT_MIN - 1 wraps
    // to INT_MAX, so 1 sorts first. Every key stays reachable and replaceable in place.
    const std::pair<std::vector<int>, Listing> rows[] = {
        {{INT_MAX, -2}, {"2147483647=2147483647", "-2=-2"}},
        {{-2, INT_MAX}, {"2147483647=2147483647", "-2=-2"}},
        {{INT_MAX, -1}, {"-1=-1", "2147483647=2147483647"}},
        {{-1, INT_MAX}, {"2147483647=2147483647", "-1=-1"}},
        {{INT_MIN, 1}, {"1=1", "-2147483648=-2147483648"}},
    };
    for (const auto& [keys, expected] : rows) {
        GSNumericStringTable table;
        for (int key : keys)
            table.setValue(key, GSString::withCopyOf(std::to_string(key).c_str()));
        EXPECT_EQ(listing(table), expected);
        EXPECT_EQ(table.setValue(keys[0], "again"), table.findIndex(keys[0])) << "replaced there";
    }
}

TEST(NumericStringTable, AddReadsTheKeyTextAsAnInteger) {
    GSNumericStringTable table;
    GSBasicStringTable& basic = table;
    EXPECT_EQ(basic.add(GSString("  42abc"), GSString("answer")), 0);
    EXPECT_EQ(basic.add(GSString("-7"), GSString("minus")), 0);
    EXPECT_EQ(basic.add(GSString("none"), GSString("zero")), 0);
    EXPECT_EQ(listing(basic), (Listing{"-7=minus", "0=zero", "42=answer"}));
}

TEST(StringTable, UnsortedTablesAppendAndSortLater) {
    GSStringTable table;
    table.setSorted(0);
    EXPECT_EQ(table.isSorted(), 0);
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
    GSString s("previous"), absent("previous"), zero("x");
    s.load(777001);
    absent.load(777002);
    zero.load(0);
    EXPECT_EQ(text(s) + "|" + text(GSString(777001)), "loaded text|loaded text");
    EXPECT_EQ(std::tuple(absent.isNull(), zero.isEmpty(), GSString(0).isNull()),
              std::tuple(true, true, true));
}
