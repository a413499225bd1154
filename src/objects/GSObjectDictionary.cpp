// GSObjectDictionary.cpp - look-ups, editing and the file body of the dictionary.
#include "objects/GSObjectDictionary.h"

#include "fileformat/GSFile.h"
#include "fileformat/GSLimits.h"
#include "fileformat/GSTagRead.h"
#include "fileformat/GSTagWrite.h"
#include "objects/GSArrayObjects.h"
#include "objects/GSObjectRef.h"
#include "objects/GSStringDictionaryKey.h"
#include "objects/GSValueObjectBody.h"

namespace {

enum : int { kKeysItem = 1, kValuesItem = 2 };

// Dictionaries nested in dictionaries being written on this thread.
thread_local int writeDepth = 0;

class WriteDepthGuard {
public:
    WriteDepthGuard() { ++writeDepth; }
    ~WriteDepthGuard() { --writeDepth; }
    WriteDepthGuard(const WriteDepthGuard&) = delete;
    WriteDepthGuard& operator=(const WriteDepthGuard&) = delete;
    // The entries of the innermost dictionary are records one level below it: keep them within
    // what the record reader follows.
    bool tooDeep() const { return writeDepth >= GSCurrentLimits().objectDepth; }
};

const GSStringDictionaryKey* asStringKey(const GSObject* object) {
    return object &&
                   object->isKindOfRuntimeClass(GSStringDictionaryKey::gsClassGSStringDictionaryKey)
               ? static_cast<const GSStringDictionaryKey*>(object)
               : nullptr;
}

} // namespace

const GSObjectDictionary GSObjectDictionary::null;

GSObjectDictionary::GSObjectDictionary(long capacity, long grow)
    : keys(capacity, grow), values(capacity, grow) {}

GSObjectDictionary::GSObjectDictionary(const GSObjectDictionary& other)
    : GSObject(other), keys(other.keys.getCount(), -100), values(other.values.getCount(), -100) {
    *this = other;
}

GSObjectDictionary& GSObjectDictionary::operator=(const GSObjectDictionary& other) {
    if (this == &other) return *this;
    keys = other.keys;
    values = other.values;
    caselessStringKeys = other.caselessStringKeys;
    return *this;
}

GSObjectDictionary::~GSObjectDictionary() = default;

const GSObjectDictionaryKey* GSObjectDictionary::getKeyAt(long index) const {
    return GSObjectDictionaryKey::asKey(keys.getObjectAt(index));
}

long GSObjectDictionary::getIndexForKey(const GSObjectDictionaryKey* key) const {
    long count = keys.getCount();
    if (count == 0 || !key) return -1;
    if (caselessStringKeys) {
        if (const GSStringDictionaryKey* wanted = asStringKey(key)) {
            for (long i = count - 1; i >= 0; --i) {
                const GSStringDictionaryKey* entry = asStringKey(keys.getObjectAt(i));
                if (entry && entry->value.compareValueCaseless(wanted->value) == 0) return i;
            }
            return -1;
        }
    }
    for (long i = count - 1; i >= 0; --i) {
        const GSObjectDictionaryKey* entry = getKeyAt(i);
        if (entry && *entry == *key) return i;
    }
    return -1;
}

GSObject* GSObjectDictionary::getValue(const GSObjectDictionaryKey* key) const {
    long index = getIndexForKey(key);
    // A dictionary whose read failed may have fewer values than keys: no value is null.
    return index < 0 ? nullptr : values.getObjectAt(index);
}

GSObject* GSObjectDictionary::getObjectValue(const GSString& name, GSObject* defaultValue) const {
    GSStringDictionaryKey key(name);
    GSObject* value = getValue(&key);
    return value ? value : defaultValue;
}

GSDynaArray<unsigned char> GSObjectDictionary::getBufferValue(const GSString& name) const {
    GSDynaArray<unsigned char> bytes;
    auto* buffer = GSObjectCast<GSBufferObject>(getObjectValue(name, nullptr),
                                                GSBufferObject::gsClassGSBufferObject);
    if (buffer && buffer->value.hasStorage()) bytes = buffer->value;
    return bytes;
}

short GSObjectDictionary::addValue(const GSObjectDictionaryKey* key, const GSObject* value) {
    // Keys and values stay paired even after a partial read left fewer values than keys.
    while (values.getCount() < keys.getCount())
        if (values.add(nullptr)) return 1;
    if (keys.add(key)) return 1;
    if (values.add(value)) {
        keys.removeAt(keys.getCount() - 1);
        return 1;
    }
    return 0;
}

short GSObjectDictionary::setValue(const GSObjectDictionaryKey* key, const GSObject* value) {
    long index = getIndexForKey(key);
    if (index < 0 || index >= values.getCount()) return addValue(key, value);
    // The new value goes in before the old one leaves, so storing the same object again never
    // lets its count reach 0 in between.
    if (values.insertAt(index, value)) return 1;
    return values.removeAt(index + 1);
}

short GSObjectDictionary::setObjectValue(const GSString& name, const GSObject* value) {
    GSObjectRef<GSStringDictionaryKey> key(new GSStringDictionaryKey(name));
    return setValue(key.get(), value);
}

short GSObjectDictionary::removeValue(const GSObjectDictionaryKey* key) {
    long index = getIndexForKey(key);
    if (index < 0) return 0;
    values.removeAt(index);
    return keys.removeAt(index);
}

void GSObjectDictionary::empty() {
    keys.empty();
    values.empty();
}

short GSObjectDictionary::write(GSFile* file) const {
    WriteDepthGuard depth;
    if (depth.tooDeep()) return 1;
    GSTagWrite writer(file);
    short result = 1;
    if (writer.writeVersion(kGSValueBodyVersion) == 0 && writer.writeStart(kKeysItem) == 0) {
        short status = keys.write(file);
        if (writer.writeEnd()) status = 1;
        if (status == 0 && writer.writeStart(kValuesItem) == 0) {
            status = values.write(file);
            if (writer.writeEnd()) status = 1;
            result = status ? 1 : 0;
        }
    }
    writer.writeEndTag();
    return result;
}

short GSObjectDictionary::read(GSFile* file) {
    GSTagRead reader(file);
    if (short status = reader.readVersion(kGSValueBodyVersion, nullptr)) return status;
    for (;;) {
        int tag = reader.read();
        if (tag == GSTagRead::kEndTag) return 0;
        if (tag == kKeysItem || tag == kValuesItem) {
            // ObjectArray::read empties the array first and fails for an element that comes
            // back as no object; a record that refers back to a dictionary still being read
            // (itself, or one that holds it) is such an element.
            if ((tag == kKeysItem ? keys : values).read(file)) return 1;
        } else if (tag == GSTagRead::kBadTag || reader.skip()) {
            return 1;
        }
    }
}
