// GSObjectDictionaryObject.cpp - registration and body of the dictionary value object.
#include "objects/GSObjectDictionaryObject.h"

#include "objects/GSRuntimeClass.h"
#include "objects/GSValueObjectBody.h"

#include <new>

GSRuntimeClass GSObjectDictionaryObject::gsClassGSObjectDictionaryObject(
    "GSObjectDictionaryObject", &GSObject::gsClassGSObject,
    &GSObjectDictionaryObject::_createFunction);

GSObject* GSObjectDictionaryObject::_createFunction() {
    return new (std::nothrow) GSObjectDictionaryObject();
}
const GSRuntimeClass* GSObjectDictionaryObject::getRuntimeClass() const {
    return &gsClassGSObjectDictionaryObject;
}

short GSObjectDictionaryObject::write(GSFile* file) const {
    return GSWriteValueBody(file, [this](GSFile* f) { return value.write(f); });
}
short GSObjectDictionaryObject::read(GSFile* file) {
    return GSReadValueBody(file, [this](GSFile* f) { return value.read(f); });
}
