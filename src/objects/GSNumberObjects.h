// GSNumberObjects.h - value objects that wrap one number: GSLongObject, GSULongObject,
// GSPointerObject, GSFloatObject and GSDoubleObject.
//
// Each derives directly from GSObject, is registered under its class name and stores its
// number in the shared value body (GSValueObjectBody.h) with the matching GSFile primitive:
// 32-bit longs (GSULongObject writes the same four bytes as the GSLongObject of equal bits),
// 64-bit pointers, and floats and doubles in the file's current encoding (compatible, or raw
// when the document says so). A new object holds 0.
#pragma once

#include "objects/GSObject.h"

#include <cstdint>

class GSLongObject : public GSObject {
public:
    GSLongObject() = default;
    explicit GSLongObject(int v) : value(v) {}
    static GSRuntimeClass gsClassGSLongObject;
    static GSObject* _createFunction();
    const GSRuntimeClass* getRuntimeClass() const override;
    short read(GSFile* file) override;
    short write(GSFile* file) const override;

    int value = 0;
};

class GSULongObject : public GSObject {
public:
    GSULongObject() = default;
    explicit GSULongObject(unsigned v) : value(v) {}
    static GSRuntimeClass gsClassGSULongObject;
    static GSObject* _createFunction();
    const GSRuntimeClass* getRuntimeClass() const override;
    short read(GSFile* file) override;
    short write(GSFile* file) const override;

    unsigned value = 0;
};

// A pointer-wide integer: its bits travel, never what it may have pointed to.
class GSPointerObject : public GSObject {
public:
    GSPointerObject() = default;
    explicit GSPointerObject(std::intptr_t v) : value(v) {}
    static GSRuntimeClass gsClassGSPointerObject;
    static GSObject* _createFunction();
    const GSRuntimeClass* getRuntimeClass() const override;
    short read(GSFile* file) override;
    short write(GSFile* file) const override;

    std::intptr_t value = 0;
};

class GSFloatObject : public GSObject {
public:
    GSFloatObject() = default;
    explicit GSFloatObject(float v) : value(v) {}
    static GSRuntimeClass gsClassGSFloatObject;
    static GSObject* _createFunction();
    const GSRuntimeClass* getRuntimeClass() const override;
    short read(GSFile* file) override;
    short write(GSFile* file) const override;

    float value = 0;
};

// In the compatible encoding a double keeps only 31 significant bits; raw documents keep all.
class GSDoubleObject : public GSObject {
public:
    GSDoubleObject() = default;
    explicit GSDoubleObject(double v) : value(v) {}
    static GSRuntimeClass gsClassGSDoubleObject;
    static GSObject* _createFunction();
    const GSRuntimeClass* getRuntimeClass() const override;
    short read(GSFile* file) override;
    short write(GSFile* file) const override;

    double value = 0;
};
