// GSArrayData.h - the shared, reference-counted storage behind GSDynaArray<T>.
//
// Its reference count is the number of GSDynaArrays that share it; a storage shared by more than
// one array is never written (GSDynaArray copies it first). The element block is allocated with
// the non-throwing allocator: a failed allocation leaves `elements` null and is a status upstream.
#pragma once

#include "objects/GSObject.h"

#include <new>

template <class T> class GSArrayData : public GSObject {
public:
    // A new storage for `capacity` elements, or null when the allocation fails.
    static GSArrayData* create(long capacity) {
        auto* data = new (std::nothrow) GSArrayData();
        if (!data) return nullptr;
        if (capacity > 0) {
            data->elements = new (std::nothrow) T[capacity];
            if (!data->elements) {
                delete data;
                return nullptr;
            }
            data->capacity = capacity;
        }
        return data;
    }
    ~GSArrayData() override { delete[] elements; }

    long capacity = 0;
    long size = 0;
    T* elements = nullptr;

private:
    GSArrayData() = default;
};
