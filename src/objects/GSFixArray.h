// GSFixArray.h - an array with N elements of storage inside the object.
//
// Up to N elements need no heap allocation; past that the elements move to a heap block that
// grows to max(N, 2 * (capacity + n)). Elements must be trivially copyable (pointers, code
// units): they are moved with memcpy. Not copyable, since the element pointer may point into
// the object itself. Allocation failures are statuses, never exceptions.
#pragma once

#include "objects/GSExceptions.h"

#include <cstring>
#include <new>
#include <type_traits>

template <class T, int N> class GSFixArray {
    static_assert(std::is_trivially_copyable_v<T>, "GSFixArray moves its elements with memcpy");
    static_assert(N > 0);

public:
    GSFixArray() noexcept : elements(local) {}
    GSFixArray(const GSFixArray&) = delete;
    GSFixArray& operator=(const GSFixArray&) = delete;
    virtual ~GSFixArray() {
        if (heapOwned) delete[] heap;
    }

    long getCount() const { return count; }
    long getCapacity() const { return localCapacity ? localCapacity : heapCapacity; }
    bool isOnHeap() const { return elements != local; }
    T* getElements() { return elements; }
    const T* getElements() const { return elements; }
    T& operator[](long i) {
        if (i < 0 || i >= count) throw std::bad_index();
        return elements[i];
    }
    const T& operator[](long i) const {
        if (i < 0 || i >= count) throw std::bad_index();
        return elements[i];
    }

    short setCapacity(long k) {
        if (getCapacity() >= k) return 0;
        if (k <= N) {
            localCapacity = k;
            return 0;
        }
        T* block = new (std::nothrow) T[k];
        if (!block) return 1;
        if (count) std::memcpy(block, elements, sizeof(T) * count);
        if (heapOwned) delete[] heap;
        heap = block;
        heapOwned = 1;
        heapCapacity = k;
        localCapacity = 0;
        elements = heap;
        return 0;
    }

    // Inserts n elements at index (negative: at the end). The source may lie in this array.
    short insert(long index, const T* source, long n) {
        if (n <= 0) return 0;
        if (index < 0 || index > count) index = count;
        T* oldBlock = nullptr;
        if (count + n > getCapacity()) {
            long capacity = getCapacity();
            long wanted = 2 * (capacity + n) > N ? 2 * (capacity + n) : N;
            T* block = new (std::nothrow) T[wanted];
            if (!block) return 1;
            if (count) std::memcpy(block, elements, sizeof(T) * count);
            if (heapOwned) oldBlock = heap; // kept until the source elements are copied
            heap = block;
            heapOwned = 1;
            heapCapacity = wanted;
            localCapacity = 0;
            T* oldElements = elements;
            elements = heap;
            if (source >= oldElements && source < oldElements + count)
                source = elements + (source - oldElements);
        }
        T staged[16];
        T* copy = nullptr;
        // The source may overlap the range that moves up: stage it first.
        if (source >= elements && source < elements + count) {
            copy = n <= 16 ? staged : new (std::nothrow) T[n];
            if (!copy) {
                delete[] oldBlock;
                return 1;
            }
            std::memcpy(copy, source, sizeof(T) * n);
            source = copy;
        }
        std::memmove(elements + index + n, elements + index, sizeof(T) * (count - index));
        std::memcpy(elements + index, source, sizeof(T) * n);
        count += n;
        if (copy && copy != staged) delete[] copy;
        delete[] oldBlock;
        return 0;
    }

    short add(const T& element) { return insert(-1, &element, 1); }

    void removeAt(long index) {
        if (index < 0 || index >= count) return;
        std::memmove(elements + index, elements + index + 1, sizeof(T) * (count - index - 1));
        --count;
    }

private:
    short heapOwned = 0;
    long heapCapacity = 0;
    T* heap = nullptr;
    T local[N] = {};
    long localCapacity = N;
    T* elements;
    long count = 0;
};
