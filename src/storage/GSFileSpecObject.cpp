// GSFileSpecObject.cpp - registration and body of the file-spec value object.
#include "storage/GSFileSpecObject.h"

#include "objects/GSRuntimeClass.h"
#include "objects/GSValueObjectBody.h"

#include <new>

GSRuntimeClass GSFileSpecObject::gsClassGSFileSpecObject("GSFileSpecObject",
                                                         &GSObject::gsClassGSObject,
                                                         &GSFileSpecObject::_createFunction);

GSObject* GSFileSpecObject::_createFunction() {
    return new (std::nothrow) GSFileSpecObject();
}

const GSRuntimeClass* GSFileSpecObject::getRuntimeClass() const {
    return &gsClassGSFileSpecObject;
}

short GSFileSpecObject::write(GSFile* file) const {
    return GSWriteValueBody(file, [this](GSFile* f) { return value.write(f); });
}

short GSFileSpecObject::read(GSFile* file) {
    return GSReadValueBody(file, [this](GSFile* f) { return value.read(f); });
}
