// GSStringDictionaryKey.cpp - the text key.
#include "objects/GSStringDictionaryKey.h"

#include "objects/GSRuntimeClass.h"
#include "objects/GSValueObjectBody.h"

#include <new>

GSRuntimeClass GSStringDictionaryKey::gsClassGSStringDictionaryKey(
    "GSStringDictionaryKey", &GSObjectDictionaryKey::gsClassGSObjectDictionaryKey,
    &GSStringDictionaryKey::_createFunction);

GSObject* GSStringDictionaryKey::_createFunction() {
    return new (std::nothrow) GSStringDictionaryKey();
}
const GSRuntimeClass* GSStringDictionaryKey::getRuntimeClass() const {
    return &gsClassGSStringDictionaryKey;
}

bool GSStringDictionaryKey::operator==(const GSObjectDictionaryKey& other) const {
    // Exactly this class on both sides: only then is `other` known to hold a text.
    if (other.getRuntimeClass() != getRuntimeClass()) return false;
    return value.compareValueSimple(static_cast<const GSStringDictionaryKey&>(other).value) == 0;
}

short GSStringDictionaryKey::write(GSFile* file) const {
    return GSWriteValueBody(file, [this](GSFile* f) { return value.write(f); });
}
short GSStringDictionaryKey::read(GSFile* file) {
    return GSReadValueBody(file, [this](GSFile* f) { return value.read(f); });
}
