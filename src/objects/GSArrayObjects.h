// GSArrayObjects.h - value objects that wrap one typed array: GSBufferObject (bytes),
// GSFloatArrayObject and GSLongArrayObject (32-bit ints).
//
// The array travels as an array block (GSArrayBlock.h) inside the shared value body. The
// arrays share their storage by reference count like every GSDynaArray: handing one out costs
// an increment, and a change through the copy makes it private first. Reading replaces the
// whole array (the old storage is dropped first). A new object holds an array without storage.
#pragma once

#include "objects/GSDynaArray.h"
#include "objects/GSObject.h"

class GSBufferObject : public GSObject {
public:
    GSBufferObject() = default;
    explicit GSBufferObject(const GSDynaArray<unsigned char>& v) : value(v) {}
    static GSRuntimeClass gsClassGSBufferObject;
    static GSObject* _createFunction();
    const GSRuntimeClass* getRuntimeClass() const override;
    short read(GSFile* file) override;
    short write(GSFile* file) const override;

    GSDynaArray<unsigned char> value;
};

class GSFloatArrayObject : public GSObject {
public:
    GSFloatArrayObject() = default;
    explicit GSFloatArrayObject(const GSDynaArray<float>& v) : value(v) {}
    static GSRuntimeClass gsClassGSFloatArrayObject;
    static GSObject* _createFunction();
    const GSRuntimeClass* getRuntimeClass() const override;
    short read(GSFile* file) override;
    short write(GSFile* file) const override;

    GSDynaArray<float> value;
};

class GSLongArrayObject : public GSObject {
public:
    GSLongArrayObject() = default;
    explicit GSLongArrayObject(const GSDynaArray<int>& v) : value(v) {}
    static GSRuntimeClass gsClassGSLongArrayObject;
    static GSObject* _createFunction();
    const GSRuntimeClass* getRuntimeClass() const override;
    short read(GSFile* file) override;
    short write(GSFile* file) const override;

    GSDynaArray<int> value;
};
