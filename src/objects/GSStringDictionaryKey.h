// GSStringDictionaryKey.h - a dictionary key made of a text.
//
// Two string keys are equal when their texts are equal byte for byte (with case); a dictionary
// whose string keys are caseless compares them its own way instead (GSObjectDictionary). The
// file body is the shared value body with the text in GSString's file form.
#pragma once

#include "objects/GSObjectDictionaryKey.h"
#include "text/GSString.h"

class GSStringDictionaryKey : public GSObjectDictionaryKey {
public:
    GSStringDictionaryKey() : value("") {}
    explicit GSStringDictionaryKey(const GSString& text) : value(text) {}
    static GSRuntimeClass gsClassGSStringDictionaryKey;
    static GSObject* _createFunction();
    const GSRuntimeClass* getRuntimeClass() const override;
    short read(GSFile* file) override;
    short write(GSFile* file) const override;
    bool operator==(const GSObjectDictionaryKey& other) const override;

    GSString value; // the key text; empty in a new key
};
