// fuzz_records.cpp - object records and object tables on arbitrary bytes, with every registered
// class creatable. The first byte chooses: bit 0 read through an object table, bit 1 skip
// records instead of reading them.
#include "FuzzInput.h"
#include "GSExceptions.h"
#include "GSObject.h"
#include "GSObjectRef.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size < 1) return 0;
    unsigned mode = data[0];
    GSFile file;
    openMemoryFile(&file, data + 1, size - 1);
    bool merging = (mode & 1) && file.startObjectMergingRead() == 0;
    for (int i = 0; i < 64; ++i) {
        if (mode & 2) {
            if (file._skipObject()) break;
        } else {
            GSObject* object = nullptr;
            short status = file.readObject(&object);
            GSObjectRef<GSObject> hold(object);
            if (status) break;
        }
    }
    if (merging) file.stopObjectMergingRead();
    return 0;
}
