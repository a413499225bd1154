// GSLongDictionaryKey.cpp - the number key.
#include "objects/GSLongDictionaryKey.h"

#include "fileformat/GSFile.h"
#include "objects/GSRuntimeClass.h"
#include "objects/GSValueObjectBody.h"

#include <new>

GSRuntimeClass GSLongDictionaryKey::gsClassGSLongDictionaryKey(
    "GSLongDictionaryKey", &GSObjectDictionaryKey::gsClassGSObjectDictionaryKey,
    &GSLongDictionaryKey::_createFunction);

GSObject* GSLongDictionaryKey::_createFunction() {
    return new (std::nothrow) GSLongDictionaryKey();
}
const GSRuntimeClass* GSLongDictionaryKey::getRuntimeClass() const {
    return &gsClassGSLongDictionaryKey;
}

bool GSLongDictionaryKey::operator==(const GSObjectDictionaryKey& other) const {
    if (other.getRuntimeClass() != getRuntimeClass()) return false;
    return value == static_cast<const GSLongDictionaryKey&>(other).value;
}

short GSLongDictionaryKey::write(GSFile* file) const {
    return GSWriteValueBody(file, [this](GSFile* f) { return f->writeLong(value); });
}
short GSLongDictionaryKey::read(GSFile* file) {
    return GSReadValueBody(file, [this](GSFile* f) { return f->readLong(&value); });
}
