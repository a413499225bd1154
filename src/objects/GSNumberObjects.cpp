// GSNumberObjects.cpp - registration and bodies of the number value objects.
#include "objects/GSNumberObjects.h"

#include "fileformat/GSFile.h"
#include "objects/GSRuntimeClass.h"
#include "objects/GSValueObjectBody.h"

#include <new>

// Registered in the framework's order for value objects; the registry sorts by name, so the
// order matters only for ties.
GSRuntimeClass GSLongObject::gsClassGSLongObject("GSLongObject", &GSObject::gsClassGSObject,
                                                 &GSLongObject::_createFunction);
GSRuntimeClass GSULongObject::gsClassGSULongObject("GSULongObject", &GSObject::gsClassGSObject,
                                                   &GSULongObject::_createFunction);
GSRuntimeClass GSPointerObject::gsClassGSPointerObject("GSPointerObject",
                                                       &GSObject::gsClassGSObject,
                                                       &GSPointerObject::_createFunction);
GSRuntimeClass GSFloatObject::gsClassGSFloatObject("GSFloatObject", &GSObject::gsClassGSObject,
                                                   &GSFloatObject::_createFunction);
GSRuntimeClass GSDoubleObject::gsClassGSDoubleObject("GSDoubleObject", &GSObject::gsClassGSObject,
                                                     &GSDoubleObject::_createFunction);

GSObject* GSLongObject::_createFunction() {
    return new (std::nothrow) GSLongObject();
}
GSObject* GSULongObject::_createFunction() {
    return new (std::nothrow) GSULongObject();
}
GSObject* GSPointerObject::_createFunction() {
    return new (std::nothrow) GSPointerObject();
}
GSObject* GSFloatObject::_createFunction() {
    return new (std::nothrow) GSFloatObject();
}
GSObject* GSDoubleObject::_createFunction() {
    return new (std::nothrow) GSDoubleObject();
}

const GSRuntimeClass* GSLongObject::getRuntimeClass() const {
    return &gsClassGSLongObject;
}
const GSRuntimeClass* GSULongObject::getRuntimeClass() const {
    return &gsClassGSULongObject;
}
const GSRuntimeClass* GSPointerObject::getRuntimeClass() const {
    return &gsClassGSPointerObject;
}
const GSRuntimeClass* GSFloatObject::getRuntimeClass() const {
    return &gsClassGSFloatObject;
}
const GSRuntimeClass* GSDoubleObject::getRuntimeClass() const {
    return &gsClassGSDoubleObject;
}

short GSLongObject::write(GSFile* file) const {
    return GSWriteValueBody(file, [this](GSFile* f) { return f->writeLong(value); });
}
short GSLongObject::read(GSFile* file) {
    return GSReadValueBody(file, [this](GSFile* f) { return f->readLong(&value); });
}

// The same four bytes as a long: 4294967295 is written as -1 is.
short GSULongObject::write(GSFile* file) const {
    return GSWriteValueBody(file,
                            [this](GSFile* f) { return f->writeLong(static_cast<int>(value)); });
}
short GSULongObject::read(GSFile* file) {
    return GSReadValueBody(file, [this](GSFile* f) {
        int bits;
        short status = f->readLong(&bits);
        if (status == 0) value = static_cast<unsigned>(bits);
        return status;
    });
}

short GSPointerObject::write(GSFile* file) const {
    return GSWriteValueBody(
        file, [this](GSFile* f) { return f->writePointer(reinterpret_cast<void*>(value)); });
}
short GSPointerObject::read(GSFile* file) {
    return GSReadValueBody(file, [this](GSFile* f) {
        void* bits;
        short status = f->readPointer(&bits);
        if (status == 0) value = reinterpret_cast<std::intptr_t>(bits);
        return status;
    });
}

short GSFloatObject::write(GSFile* file) const {
    return GSWriteValueBody(file, [this](GSFile* f) { return f->writeFloat(value); });
}
short GSFloatObject::read(GSFile* file) {
    return GSReadValueBody(file, [this](GSFile* f) { return f->readFloat(&value); });
}

short GSDoubleObject::write(GSFile* file) const {
    return GSWriteValueBody(file, [this](GSFile* f) { return f->writeDouble(value); });
}
short GSDoubleObject::read(GSFile* file) {
    return GSReadValueBody(file, [this](GSFile* f) { return f->readDouble(&value); });
}
