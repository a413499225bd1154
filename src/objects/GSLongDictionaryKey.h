// GSLongDictionaryKey.h - a dictionary key made of a signed 32-bit number.
//
// Equal to another key only when that key is exactly of this class and holds the same number.
// The file body is the shared value body with the number as a 4-byte long.
#pragma once

#include "objects/GSObjectDictionaryKey.h"

class GSLongDictionaryKey : public GSObjectDictionaryKey {
public:
    GSLongDictionaryKey() = default;
    explicit GSLongDictionaryKey(int number) : value(number) {}
    static GSRuntimeClass gsClassGSLongDictionaryKey;
    static GSObject* _createFunction();
    const GSRuntimeClass* getRuntimeClass() const override;
    short read(GSFile* file) override;
    short write(GSFile* file) const override;
    bool operator==(const GSObjectDictionaryKey& other) const override;

    int value = 0;
};
