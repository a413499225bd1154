// GSNumericStringTable.h - texts looked up by a 32-bit number.
//
// The table behind GSString::load and GSString(int id), and the source of the names and
// patterns of the date formatter. Entries (number, text) are kept sorted in a GSDynaArray and
// found by binary search.
//
// The order is deliberately the wrapped 32-bit difference of the keys (a - b modulo 2^32, read
// as signed): keys less than 2^31 apart sort ascending, keys further apart compare the other way
// round (2147483647 sorts before -1). That order is not transitive over the whole int range, and
// the table keeps it anyway: entries are placed and found by the same binary search with the
// same comparison, which is what stored tables of such keys were built with.
#pragma once

#include "objects/GSBasicStringTable.h"
#include "objects/GSDynaArray.h"

struct _NumericStringTableEntry {
    int key = 0;
    GSString value;
};

// The search order of the table: the keys' difference, wrapped to 32 bits.
template <>
int GSDynaArray<_NumericStringTableEntry>::compareAscending(const void* a, const void* b);

class GSNumericStringTable : public GSBasicStringTable {
public:
    // Passes the initial capacity (entries allocated at once, none when 0) and the growth
    // parameter to the entry array.
    constexpr explicit GSNumericStringTable(long capacity = 0, long grow = -100) : entries(grow) {
        if (capacity > 0) entries.reserve(capacity);
    }

    static const GSNumericStringTable null;

    // Stores `value` under `key`, replacing a value stored there, always in key order (the
    // sorted flag is not consulted). Returns the entry's index, or -1 when the entries could not
    // get the room (allocation failure; nothing changed).
    long setValue(int key, const GSString& value);
    // The text stored for `key`, or GSString::null when there is none.
    const GSString& getValue(int key) const;
    // The index of `key`, or -1.
    long findIndex(int key) const;

    long getCount() const override { return entries.getSize(); }
    long getCapacity() const override { return entries.getCapacity(); }
    long getEntrySize() const override { return sizeof(_NumericStringTableEntry); }
    // The key is written as decimal text.
    short get(long index, GSString* key, GSString* value) const override;
    // The key text is read as an integer (GSString::getLongValue: white space skipped, 0 when
    // there are no digits).
    short add(const GSString& key, const GSString& value) override;

private:
    GSDynaArray<_NumericStringTableEntry> entries;
};
