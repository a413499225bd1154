// GSStringObject.cpp - registration and body of the string value object.
#include "objects/GSStringObject.h"

#include "objects/GSRuntimeClass.h"
#include "objects/GSValueObjectBody.h"

#include <new>

GSRuntimeClass GSStringObject::gsClassGSStringObject("GSStringObject", &GSObject::gsClassGSObject,
                                                     &GSStringObject::_createFunction);

GSObject* GSStringObject::_createFunction() {
    return new (std::nothrow) GSStringObject();
}
const GSRuntimeClass* GSStringObject::getRuntimeClass() const {
    return &gsClassGSStringObject;
}

short GSStringObject::write(GSFile* file) const {
    return GSWriteValueBody(file, [this](GSFile* f) { return value.write(f); });
}
short GSStringObject::read(GSFile* file) {
    return GSReadValueBody(file, [this](GSFile* f) { return value.read(f); });
}
