// GSStringTable.h - texts looked up by text.
//
// Entries are (key, value) pairs of GSStrings sorted by GSString::compareValue, the full
// code-point order: a key spelled with a precomposed letter and the same key spelled with the
// base letter and a combining mark are one key. Lookups are binary searches; an insertion moves
// the entries after it up by one, so filling a table of n entries costs O(n) moves per insert,
// which suits the small tables of texts this is for.
//
// Clearing the sorted flag (setSorted(0)) turns setValue into a plain append without search,
// duplicates included, for loading many entries at once; setting it again sorts the entries.
// GSStringTable::null is an empty table that nothing fills.
#pragma once

#include "objects/GSBasicStringTable.h"
#include "objects/GSDynaArray.h"

struct _StringTableEntry {
    GSString key;
    GSString value;
};

// The search order of the table: the entries' keys by GSString::compareValue.
template <> int GSDynaArray<_StringTableEntry>::compareAscending(const void* a, const void* b);

class GSStringTable : public GSBasicStringTable {
public:
    // Passes the initial capacity (entries allocated at once, none when 0) and the growth
    // parameter to the entry array.
    constexpr explicit GSStringTable(long capacity = 0, long grow = -100) : entries(grow) {
        if (capacity > 0) entries.reserve(capacity);
    }

    static const GSStringTable null;

    // Stores `value` under `key`: a key already present keeps its stored spelling and gets the
    // new value; a new key is inserted at its place in the order. Returns the entry's index.
    // With the sorted flag clear the pair is appended instead (index: the count before).
    // -1 when the entries could not get the room (allocation failure; nothing changed).
    long setValue(const GSString& key, const GSString& value);
    // The value stored under `key`, or GSString::null.
    const GSString& getValue(const GSString& key) const;
    // The index of `key`, or -1: a binary search, or with the sorted flag clear the first of
    // the equal keys in a walk from the start.
    long findIndex(const GSString& key) const;

    // 0 stops setValue from searching; 1 sorts the entries (duplicates stay, adjacent).
    void setSorted(short flag);

    // A byte order (strcmp of the keys, null equal to empty) for callers that want the entries
    // ordered without regard to characters, e.g. for output that must be stable byte-wise.
    static int compareSimple(const void* a, const void* b);

    long getCount() const override { return entries.getSize(); }
    long getCapacity() const override { return entries.getCapacity(); }
    long getEntrySize() const override { return sizeof(_StringTableEntry); }
    short get(long index, GSString* key, GSString* value) const override;
    short add(const GSString& key, const GSString& value) override;

private:
    GSDynaArray<_StringTableEntry> entries;
};
