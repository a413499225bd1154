// GSObjectDictionaryKey.h - the abstract base of the keys of a GSObjectDictionary.
//
// A key adds one virtual operation after GSObject's nine: operator==, which is true only for a
// key of exactly its own class with an equal value, so a string key "7" never matches the long
// key 7. The key classes themselves are GSStringDictionaryKey and GSLongDictionaryKey.
//
// A dictionary read from a file may hold objects of any class in its key array; asKey() is the
// one way to look at such an object as a key, and gives null for anything that is not one.
#pragma once

#include "objects/GSObject.h"

class GSObjectDictionaryKey : public GSObject {
public:
    // Registered without a factory: there is no key of this class itself.
    static GSRuntimeClass gsClassGSObjectDictionaryKey;
    const GSRuntimeClass* getRuntimeClass() const override;

    // Slot 9.
    virtual bool operator==(const GSObjectDictionaryKey& other) const = 0;

    // The object as a key when its runtime class descends from this one, else null: keys read
    // from a file are checked before they are used, never just cast.
    static const GSObjectDictionaryKey* asKey(const GSObject* object);
};
