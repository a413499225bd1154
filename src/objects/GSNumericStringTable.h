// GSNumericStringTable.h - texts looked up by a 32-bit number.
//
// The table behind GSString::load and GSString(int id). Nothing in this system registers texts
// yet, so the table is empty and every number gives the null string; its entries (sorted by
// key in a GSDynaArray, found by binary search) come with the string tables themselves.
#pragma once

#include "GSString.h"

class GSNumericStringTable {
public:
    constexpr GSNumericStringTable() noexcept = default;

    // The text stored for `key`, or GSString::null when there is none.
    const GSString& getValue(int key) const;
    long getCount() const { return 0; }
};
