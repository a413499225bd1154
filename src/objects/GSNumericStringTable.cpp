// GSNumericStringTable.cpp - the lookup of texts by number.
#include "GSNumericStringTable.h"

const GSString& GSNumericStringTable::getValue(int /*key*/) const {
    return GSString::null; // no entries: nothing registers texts in this system
}
