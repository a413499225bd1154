// GSArrayObjects.cpp - registration and bodies of the array value objects.
#include "objects/GSArrayObjects.h"

#include "objects/GSArrayBlock.h"
#include "objects/GSRuntimeClass.h"
#include "objects/GSValueObjectBody.h"

#include <new>

GSRuntimeClass GSBufferObject::gsClassGSBufferObject("GSBufferObject", &GSObject::gsClassGSObject,
                                                     &GSBufferObject::_createFunction);
GSRuntimeClass GSFloatArrayObject::gsClassGSFloatArrayObject("GSFloatArrayObject",
                                                             &GSObject::gsClassGSObject,
                                                             &GSFloatArrayObject::_createFunction);
GSRuntimeClass GSLongArrayObject::gsClassGSLongArrayObject("GSLongArrayObject",
                                                           &GSObject::gsClassGSObject,
                                                           &GSLongArrayObject::_createFunction);

GSObject* GSBufferObject::_createFunction() {
    return new (std::nothrow) GSBufferObject();
}
GSObject* GSFloatArrayObject::_createFunction() {
    return new (std::nothrow) GSFloatArrayObject();
}
GSObject* GSLongArrayObject::_createFunction() {
    return new (std::nothrow) GSLongArrayObject();
}

const GSRuntimeClass* GSBufferObject::getRuntimeClass() const {
    return &gsClassGSBufferObject;
}
const GSRuntimeClass* GSFloatArrayObject::getRuntimeClass() const {
    return &gsClassGSFloatArrayObject;
}
const GSRuntimeClass* GSLongArrayObject::getRuntimeClass() const {
    return &gsClassGSLongArrayObject;
}

short GSBufferObject::write(GSFile* file) const {
    return GSWriteValueBody(file, [this](GSFile* f) { return GSWriteArrayBlock(f, value); });
}
short GSBufferObject::read(GSFile* file) {
    return GSReadValueBody(file, [this](GSFile* f) { return GSReadArrayBlock(f, &value); });
}

short GSFloatArrayObject::write(GSFile* file) const {
    return GSWriteValueBody(file, [this](GSFile* f) { return GSWriteArrayBlock(f, value); });
}
short GSFloatArrayObject::read(GSFile* file) {
    return GSReadValueBody(file, [this](GSFile* f) { return GSReadArrayBlock(f, &value); });
}

short GSLongArrayObject::write(GSFile* file) const {
    return GSWriteValueBody(file, [this](GSFile* f) { return GSWriteArrayBlock(f, value); });
}
short GSLongArrayObject::read(GSFile* file) {
    return GSReadValueBody(file, [this](GSFile* f) { return GSReadArrayBlock(f, &value); });
}
