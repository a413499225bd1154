// GSStringObject.h - the value object that wraps one GSString.
//
// The text is stored with GSString's own file form inside the shared value body, so it keeps
// its encoding tag (single-byte texts come back in the Mac code page, as every string read
// does). A new object holds the null string.
#pragma once

#include "objects/GSObject.h"
#include "text/GSString.h"

class GSStringObject : public GSObject {
public:
    GSStringObject() = default;
    explicit GSStringObject(const GSString& v) : value(v) {}
    static GSRuntimeClass gsClassGSStringObject;
    static GSObject* _createFunction();
    const GSRuntimeClass* getRuntimeClass() const override;
    short read(GSFile* file) override;
    short write(GSFile* file) const override;

    GSString value;
};
