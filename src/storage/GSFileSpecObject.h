// GSFileSpecObject.h - the value object that wraps one GSFileSpec.
//
// The spec is stored as its full path (GSFileSpec's file form) inside the shared value body;
// its option dictionary is not stored. A new object holds the empty spec.
#pragma once

#include "objects/GSObject.h"
#include "storage/GSFileSpec.h"

class GSFileSpecObject : public GSObject {
public:
    GSFileSpecObject() = default;
    explicit GSFileSpecObject(const GSFileSpec& v) : value(v) {}
    static GSRuntimeClass gsClassGSFileSpecObject;
    static GSObject* _createFunction();
    const GSRuntimeClass* getRuntimeClass() const override;
    short read(GSFile* file) override;
    short write(GSFile* file) const override;

    GSFileSpec value;
};
