// GSBasicStringTable.h - the common interface of the tables that map keys to texts.
//
// A string table keeps (key, text) entries in a GSDynaArray sorted by key and finds them by
// binary search; GSStringTable keys by text, GSNumericStringTable by a 32-bit number. This base
// holds only the sorted flag and the operations that work on any table through text keys, so
// that a caller can list or fill a table without knowing its key type. The entries live in the
// derived tables' arrays; copying a table shares them until one of the copies changes (the
// arrays' copy on write).
#pragma once

#include "text/GSString.h"

class GSBasicStringTable {
public:
    constexpr GSBasicStringTable() noexcept = default;
    virtual ~GSBasicStringTable() = default;

    // The entry array: number of entries, entries the storage holds, bytes per entry.
    virtual long getCount() const = 0;
    virtual long getCapacity() const = 0;
    virtual long getEntrySize() const = 0;
    // Copies the entry at `index` (0..count-1, in key order) into `key` and `value` and
    // returns 0; any other index throws std::bad_index.
    virtual short get(long index, GSString* key, GSString* value) const = 0;
    // Stores `value` under `key` (given as text), replacing a value stored there; returns 0.
    virtual short add(const GSString& key, const GSString& value) = 0;

    // Set by every constructor. A table whose flag is set keeps its entries in key order.
    short isSorted() const { return sorted; }

protected:
    // Copies share the entries; only the derived tables copy themselves.
    constexpr GSBasicStringTable(const GSBasicStringTable&) noexcept = default;
    constexpr GSBasicStringTable& operator=(const GSBasicStringTable&) noexcept = default;

    // The index at which `key` belongs among `count` sorted entries of `size` bytes: the
    // binary search of bsearch (same probes, same comparison), continued to the place where it
    // stopped. A table searches with bsearch first and asks here only for a key it lacks.
    static long _findInsertionIndex(const void* key, const void* base, long count, long size,
                                    int (*compare)(const void*, const void*)) {
        long low = 0, high = count;
        const auto* bytes = static_cast<const char*>(base);
        while (low < high) {
            long middle = (low + high) / 2;
            if (compare(key, bytes + middle * size) < 0)
                high = middle;
            else
                low = middle + 1;
        }
        return low;
    }

    short sorted = 1;
};
