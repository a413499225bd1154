// GSStringTable.cpp - insert-or-replace, lookup and listing of the text-keyed table.
#include "objects/GSStringTable.h"

#include <algorithm>
#include <cstdlib>

constinit const GSStringTable GSStringTable::null;

template <> int GSDynaArray<_StringTableEntry>::compareAscending(const void* a, const void* b) {
    return static_cast<const _StringTableEntry*>(a)->key.compareValue(
        static_cast<const _StringTableEntry*>(b)->key);
}

int GSStringTable::compareSimple(const void* a, const void* b) {
    return static_cast<const _StringTableEntry*>(a)->key.compareValueSimple(
        static_cast<const _StringTableEntry*>(b)->key);
}

long GSStringTable::findIndex(const GSString& key) const {
    long count = entries.getSize();
    if (count == 0) return -1;
    const _StringTableEntry* base = entries.getData();
    if (!sorted) {
        for (long i = 0; i < count; ++i)
            if (base[i].key.compareValue(key) == 0) return i;
        return -1;
    }
    // Only the key of the probe is read; copying a GSString shares its bytes.
    _StringTableEntry probe{key, GSString()};
    const void* hit = std::bsearch(&probe, base, static_cast<size_t>(count), sizeof(*base),
                                   GSDynaArray<_StringTableEntry>::compareAscending);
    return hit ? static_cast<const _StringTableEntry*>(hit) - base : -1;
}

const GSString& GSStringTable::getValue(const GSString& key) const {
    long index = findIndex(key);
    return index < 0 ? GSString::null : entries[index].value;
}

long GSStringTable::setValue(const GSString& key, const GSString& value) {
    // The pair is copied first: `key` or `value` may be one of this table's own entries, which
    // the insertion below moves.
    _StringTableEntry entry{key, value};
    long count = entries.getSize();
    if (!sorted) return entries.add(entry) ? -1 : count;
    long index = findIndex(key);
    if (index >= 0) {
        // The storage is made private first, so a copy of this table that shares it keeps its
        // old value.
        _StringTableEntry* own = entries.getMutableData();
        if (!own) return -1;
        own[index].value = entry.value;
        return index;
    }
    index = _findInsertionIndex(&entry, entries.getData(), count, sizeof(entry),
                                GSDynaArray<_StringTableEntry>::compareAscending);
    return entries.replace(index, 0, &entry, 1) ? -1 : index;
}

short GSStringTable::add(const GSString& key, const GSString& value) {
    setValue(key, value);
    return 0;
}

short GSStringTable::get(long index, GSString* key, GSString* value) const {
    const _StringTableEntry& entry = entries[index]; // throws bad_index outside 0..count-1
    if (key) *key = entry.key;
    if (value) *value = entry.value;
    return 0;
}

void GSStringTable::setSorted(short flag) {
    sorted = flag ? 1 : 0;
    if (!sorted || entries.getSize() < 2) return;
    // Stable, so that keys appended more than once stay in the order they came.
    _StringTableEntry* first = entries.getMutableData();
    if (!first) return;
    std::stable_sort(first, first + entries.getSize(),
                     [](const _StringTableEntry& a, const _StringTableEntry& b) {
                         return GSDynaArray<_StringTableEntry>::compareAscending(&a, &b) < 0;
                     });
}
