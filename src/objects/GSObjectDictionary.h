// GSObjectDictionary.h - a dictionary of GSObject values under string and number keys.
//
// An ordered pair of object arrays: key i (a GSObjectDictionaryKey) belongs to value i. Each
// array holds one reference on every object in it; values are shared, never copied, so a copy
// of a dictionary (copy construction, assignment) shares its keys and values with the
// original. Look-ups walk the keys from the last to the first, so that when a key occurs twice
// the later entry wins; they cost O(n), which suits the handful of options a dictionary carries.
// A look-up never takes a reference for the caller and never fails: absence is -1, null, the
// caller's default or an empty array.
//
// With caseless string keys set, a string key finds string entries regardless of letter case.
// That flag belongs to the object, not to the file: reading keeps the flag the dictionary had.
//
// The file body: version 256, item 1 the key array, item 2 the value array (each an array count
// and one object record per element), the end tag. A dictionary read from a file may hold
// anything in its key array; entries that are not keys are passed over by every look-up.
#pragma once

#include "objects/GSArray.h"
#include "objects/GSDynaArray.h"
#include "objects/GSObject.h"

class GSObjectDictionaryKey;
class GSString;

class GSObjectDictionary : public GSObject {
public:
    // An empty dictionary for callers that need a reference to one.
    static const GSObjectDictionary null;

    explicit GSObjectDictionary(long capacity = 0, long grow = -100);
    GSObjectDictionary(const GSObjectDictionary& other);
    GSObjectDictionary& operator=(const GSObjectDictionary& other);
    ~GSObjectDictionary() override;

    long getCount() const { return keys.getCount(); }
    bool isEmpty() const { return keys.getCount() == 0; }
    short getCaselessStringKeys() const { return caselessStringKeys; }
    void setCaselessStringKeys(short on) { caselessStringKeys = on; }

    // The index of the last entry whose key matches `key`, or -1.
    long getIndexForKey(const GSObjectDictionaryKey* key) const;
    GSObject* getValue(const GSObjectDictionaryKey* key) const;
    // The value under the string key `name`, or `defaultValue`.
    GSObject* getObjectValue(const GSString& name, GSObject* defaultValue) const;
    // The bytes of a GSBufferObject stored under `name`, sharing its storage (a change through
    // the result leaves the dictionary's bytes alone); empty for any other value or none.
    GSDynaArray<unsigned char> getBufferValue(const GSString& name) const;

    // The entry at `index`: its key (null when the object there is not a key) and its value.
    const GSObjectDictionaryKey* getKeyAt(long index) const;
    GSObject* getValueAt(long index) const { return values.getObjectAt(index); }
    const ObjectArray& getKeys() const { return keys; }
    const ObjectArray& getValues() const { return values; }

    // Stores `value` under `key`: replaces the value of the entry getIndexForKey finds, or
    // appends a new entry. Both objects gain a reference. 0, or 1 when room cannot be made.
    short setValue(const GSObjectDictionaryKey* key, const GSObject* value);
    short setObjectValue(const GSString& name, const GSObject* value);
    // Appends an entry without looking for the key first (a later duplicate wins look-ups).
    short addValue(const GSObjectDictionaryKey* key, const GSObject* value);
    // Removes the entry getIndexForKey finds; 0 whether or not there was one.
    short removeValue(const GSObjectDictionaryKey* key);
    void empty();

    short read(GSFile* file) override;
    // Fails (1) instead of recursing when dictionaries nest deeper than a reader would follow,
    // as a dictionary that holds itself would without an object table.
    short write(GSFile* file) const override;

private:
    ObjectArray keys;
    ObjectArray values;
    short caselessStringKeys = 0;
};
