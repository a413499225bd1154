// GSNumericStringTable.cpp - insert-or-replace, lookup and listing of the number-keyed table.
#include "objects/GSNumericStringTable.h"

#include <cstdint>
#include <cstdlib>

constinit const GSNumericStringTable GSNumericStringTable::null;

template <>
int GSDynaArray<_NumericStringTableEntry>::compareAscending(const void* a, const void* b) {
    // The subtraction in unsigned arithmetic wraps instead of overflowing; converting back to
    // int is modular (C++20), which gives the wrapped signed difference.
    auto x = static_cast<std::uint32_t>(static_cast<const _NumericStringTableEntry*>(a)->key);
    auto y = static_cast<std::uint32_t>(static_cast<const _NumericStringTableEntry*>(b)->key);
    return static_cast<int>(x - y);
}

long GSNumericStringTable::findIndex(int key) const {
    long count = entries.getSize();
    if (count == 0) return -1;
    const _NumericStringTableEntry* base = entries.getData();
    _NumericStringTableEntry probe;
    probe.key = key;
    const void* hit = std::bsearch(&probe, base, static_cast<size_t>(count), sizeof(*base),
                                   GSDynaArray<_NumericStringTableEntry>::compareAscending);
    return hit ? static_cast<const _NumericStringTableEntry*>(hit) - base : -1;
}

const GSString& GSNumericStringTable::getValue(int key) const {
    long index = findIndex(key);
    return index < 0 ? GSString::null : entries[index].value;
}

long GSNumericStringTable::setValue(int key, const GSString& value) {
    // Copied first: `value` may be one of this table's own texts, which the insertion moves.
    _NumericStringTableEntry entry{key, value};
    long index = findIndex(key);
    if (index >= 0) {
        // The storage is made private first, so a copy of this table keeps its old value.
        _NumericStringTableEntry* own = entries.getMutableData();
        if (!own) return -1;
        own[index].value = entry.value;
        return index;
    }
    index = _findInsertionIndex(&entry, entries.getData(), entries.getSize(), sizeof(entry),
                                GSDynaArray<_NumericStringTableEntry>::compareAscending);
    return entries.replace(index, 0, &entry, 1) ? -1 : index;
}

short GSNumericStringTable::add(const GSString& key, const GSString& value) {
    setValue(key.getLongValue(0, nullptr), value);
    return 0;
}

short GSNumericStringTable::get(long index, GSString* key, GSString* value) const {
    const _NumericStringTableEntry& entry = entries[index]; // throws bad_index outside 0..count-1
    if (key) key->setLongValue(entry.key);
    if (value) *value = entry.value;
    return 0;
}
