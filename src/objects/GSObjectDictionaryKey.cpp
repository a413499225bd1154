// GSObjectDictionaryKey.cpp - the key base class record and the key check.
#include "objects/GSObjectDictionaryKey.h"

#include "objects/GSRuntimeClass.h"

GSRuntimeClass GSObjectDictionaryKey::gsClassGSObjectDictionaryKey("GSObjectDictionaryKey",
                                                                   &GSObject::gsClassGSObject,
                                                                   nullptr);

const GSRuntimeClass* GSObjectDictionaryKey::getRuntimeClass() const {
    return &gsClassGSObjectDictionaryKey;
}

const GSObjectDictionaryKey* GSObjectDictionaryKey::asKey(const GSObject* object) {
    if (!object) return nullptr;
    // Class records are static and name their base, so the chain is short and ends at GSObject.
    for (const GSRuntimeClass* c = object->getRuntimeClass(); c; c = c->getBaseClass())
        if (c == &gsClassGSObjectDictionaryKey)
            return static_cast<const GSObjectDictionaryKey*>(object);
    return nullptr;
}
