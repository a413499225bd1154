// fuzz_records.cpp - object records, object tables, dictionaries and array blocks on arbitrary
// bytes, with every registered class creatable. The first byte chooses:
//   bit 0  read through an object table (the bytes start with its header);
//   bit 1  skip records instead of reading them;
//   bit 2  read one bare dictionary body (GSObjectDictionary::read) instead of records;
//   bit 3  read one array block of bytes, floats or ints (bits 4-5: 0 bytes, 1 floats, 2 ints).
// Whatever comes back is used as a reader would: dictionaries are searched with every kind of
// key, with and without caseless string keys, and copied; keys are compared with both key kinds.
// Seeds: fuzz/make_records_seeds.cpp writes them with our own writer.
#include "FuzzInput.h"
#include "objects/GSArrayBlock.h"
#include "objects/GSArrayObjects.h"
#include "objects/GSExceptions.h"
#include "objects/GSLongDictionaryKey.h"
#include "objects/GSObject.h"
#include "objects/GSObjectDictionary.h"
#include "objects/GSObjectDictionaryObject.h"
#include "objects/GSObjectRef.h"
#include "objects/GSStringDictionaryKey.h"

namespace {

void useObject(const GSObject* object);

void useDictionary(const GSObjectDictionary& dictionary) {
    GSStringDictionaryKey text(GSString("GSFileData"));
    GSLongDictionaryKey number(7);
    for (short caseless : {0, 1}) {
        GSObjectDictionary copy(dictionary);
        copy.setCaselessStringKeys(caseless);
        copy.getValue(&text);
        copy.getValue(&number);
        GSDynaArray<unsigned char> bytes = copy.getBufferValue("GSFileData");
        if (bytes.getSize() > 0) bytes[0] = 0; // copy on write, never into the dictionary
        for (long i = 0; i < copy.getCount(); ++i)
            if (const GSObjectDictionaryKey* key = copy.getKeyAt(i)) copy.getIndexForKey(key);
    }
    // Values may be dictionaries again; the reader's depth limit bounds this recursion.
    for (long i = 0; i < dictionary.getValues().getCount(); ++i)
        useObject(dictionary.getValueAt(i));
}

void useObject(const GSObject* object) {
    if (!object) return;
    if (const GSObjectDictionaryKey* key = GSObjectDictionaryKey::asKey(object)) {
        GSStringDictionaryKey text(GSString("a"));
        GSLongDictionaryKey number(0);
        (void)(*key == text);
        (void)(*key == number);
    }
    if (auto* d = GSObjectCast<const GSObjectDictionaryObject>(
            const_cast<GSObject*>(object),
            GSObjectDictionaryObject::gsClassGSObjectDictionaryObject))
        useDictionary(d->value);
}

void readArrayBlock(GSFile* file, unsigned kind) {
    if (kind == 0) {
        GSDynaArray<unsigned char> bytes;
        GSReadArrayBlock(file, &bytes);
    } else if (kind == 1) {
        GSDynaArray<float> floats;
        GSReadArrayBlock(file, &floats);
    } else {
        GSDynaArray<int> ints;
        GSReadArrayBlock(file, &ints);
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size < 1) return 0;
    unsigned mode = data[0];
    GSFile file;
    openMemoryFile(&file, data + 1, size - 1);
    bool merging = (mode & 1) && file.startObjectMergingRead() == 0;
    if (mode & 4) {
        GSObjectDictionary dictionary;
        dictionary.read(&file);
        useDictionary(dictionary);
    } else if (mode & 8) {
        readArrayBlock(&file, (mode >> 4) & 3);
    } else {
        for (int i = 0; i < 64; ++i) {
            if (mode & 2) {
                if (file._skipObject()) break;
            } else {
                GSObject* object = nullptr;
                short status = file.readObject(&object);
                GSObjectRef<GSObject> hold(object);
                if (status) break;
                useObject(object);
            }
        }
    }
    if (merging) file.stopObjectMergingRead();
    return 0;
}
