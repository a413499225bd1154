// GSObjectDictionaryObject.h - the value object that wraps a whole GSObjectDictionary, which
// is how dictionaries nest inside dictionaries.
//
// The dictionary's own body is the content of item 1 of the shared value body. Reading it
// follows the dictionary's rules (the caseless flag stays as it was); a file that makes a
// dictionary hold itself, or nests deeper than the record reader follows, fails to read.
#pragma once

#include "objects/GSObject.h"
#include "objects/GSObjectDictionary.h"

class GSObjectDictionaryObject : public GSObject {
public:
    GSObjectDictionaryObject() = default;
    explicit GSObjectDictionaryObject(const GSObjectDictionary& v) : value(v) {}
    static GSRuntimeClass gsClassGSObjectDictionaryObject;
    static GSObject* _createFunction();
    const GSRuntimeClass* getRuntimeClass() const override;
    short read(GSFile* file) override;
    short write(GSFile* file) const override;

    GSObjectDictionary value;
};
