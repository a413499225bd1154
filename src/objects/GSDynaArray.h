// GSDynaArray.h - a typed growable array whose storage is shared between copies.
//
// Copying a GSDynaArray is one atomic increment: both arrays point at the same GSArrayData<T>.
// Every operation that changes elements first makes the storage private (copy on write), so a
// shared storage is never written. Index errors throw std::bad_index; allocation failures are
// statuses (1). The growth parameter follows GSGrowthStep (-100 by default: doubling).
#pragma once

#include "objects/GSArrayData.h"
#include "objects/GSExceptions.h"
#include "objects/GSGrowth.h"

#include <algorithm>
#include <utility>

template <class T> class GSDynaArray {
public:
    // constexpr, so that static tables built on an array are constant-initialised (no storage
    // is allocated until the first element arrives).
    constexpr explicit GSDynaArray(long growBy = -100) noexcept : grow(growBy) {}
    GSDynaArray(const GSDynaArray& other) : grow(other.grow), data(other.data) {
        if (data) data->addReference();
    }
    GSDynaArray(GSDynaArray&& other) noexcept
        : grow(other.grow), data(std::exchange(other.data, nullptr)) {}
    GSDynaArray& operator=(const GSDynaArray& other) {
        if (this != &other) {
            if (other.data) other.data->addReference();
            if (data) data->release();
            data = other.data;
            grow = other.grow;
        }
        return *this;
    }
    GSDynaArray& operator=(GSDynaArray&& other) noexcept {
        if (this != &other) {
            if (data) data->release();
            data = std::exchange(other.data, nullptr);
            grow = other.grow;
        }
        return *this;
    }
    virtual ~GSDynaArray() {
        if (data) data->release();
    }

    long getSize() const { return data ? data->size : 0; }
    long getCapacity() const { return data ? data->capacity : 0; }
    bool hasStorage() const { return data != nullptr; }
    long getGrow() const { return grow; }
    void setGrow(long growBy) { grow = growBy; }
    GSArrayData<T>* getArrayData() const { return data; }

    // Read access never copies; write access makes the storage private first.
    const T& operator[](long i) const {
        if (i < 0 || i >= getSize()) throw std::bad_index();
        return data->elements[i];
    }
    T& operator[](long i) {
        if (i < 0 || i >= getSize()) throw std::bad_index();
        makeUnique();
        return data->elements[i];
    }
    const T* getData() const { return data ? data->elements : nullptr; }
    // The elements for writing, made private first; null without storage.
    T* getMutableData() {
        if (!data) return nullptr;
        return makeUnique() ? nullptr : data->elements;
    }

    // Room for n elements before a write: exactly n, nothing when already private and large enough.
    short reserve(long n) {
        if (!data && n < 1) return 0;
        if (data && data->getReferenceCount() <= 1 && data->capacity >= n) return 0;
        return makeRoom(n, n);
    }
    // Sets the number of elements; new ones are value-initialised. Shrinking keeps the storage.
    short setSize(long n) {
        if (n < 0) return 1;
        if (n > getCapacity() || (data && data->getReferenceCount() > 1)) {
            if (makeRoom(n, n > getCapacity() ? n : getCapacity())) return 1;
        }
        if (!data) return n == 0 ? 0 : 1;
        // Through a local pointer: a store into a char element could otherwise alias `data`,
        // which keeps the compiler from turning the loop into a block fill.
        T* elements = data->elements;
        for (long i = data->size; i < n; ++i)
            elements[i] = T();
        data->size = n;
        return 0;
    }
    // Appends one element, growing by the growth rule.
    short add(const T& element) {
        long size = getSize();
        T value = element; // may be one of this array's elements, which makeRoom can free
        if (makeRoom(size + 1, -1)) return 1;
        data->elements[size] = std::move(value);
        data->size = size + 1;
        return 0;
    }
    // Replaces `removed` elements at `at` by n elements from `source` (which must not lie in this
    // array). at outside 0..size throws bad_index.
    short replace(long at, long removed, const T* source, long n) {
        long size = getSize();
        if (at < 0 || at > size) throw std::bad_index();
        removed = std::clamp(removed, 0L, size - at);
        long newSize = size - removed + n;
        if (newSize > getCapacity() || (data && data->getReferenceCount() > 1)) {
            if (makeRoom(newSize, -1)) return 1;
        }
        if (!data) return newSize == 0 ? 0 : 1;
        T* e = data->elements;
        if (n < removed)
            std::move(e + at + removed, e + size, e + at + n);
        else if (n > removed)
            std::move_backward(e + at + removed, e + size, e + newSize);
        std::copy(source, source + n, e + at);
        data->size = newSize;
        return 0;
    }
    // Empties the array and drops its storage.
    void clear() {
        if (data) data->release();
        data = nullptr;
    }
    // Empties the array but keeps (a private copy of) its capacity.
    short empty() {
        if (!data) return 0;
        if (data->getReferenceCount() > 1) {
            long capacity = data->capacity;
            clear();
            return makeRoom(0, capacity);
        }
        data->size = 0;
        return 0;
    }

    static int compareAscending(const void* a, const void* b) {
        const T& x = *static_cast<const T*>(a);
        const T& y = *static_cast<const T*>(b);
        return x < y ? -1 : (y < x ? 1 : 0);
    }

private:
    short makeUnique() {
        if (!data || data->getReferenceCount() <= 1) return 0;
        return makeRoom(data->size, data->capacity);
    }

    // The central routine: room for c elements; target capacity t (negative: the growth rule).
    short makeRoom(long c, long t) {
        long step = GSGrowthStep(grow, c);
        long wanted = t >= 0 ? t : c + step;
        if (!data) {
            if (wanted <= 0) return 1;
            data = GSArrayData<T>::create(wanted);
            if (!data) return 1;
            data->addReference();
            return 0;
        }
        if (t == 0) {
            clear();
            return 1;
        }
        if (data->getReferenceCount() <= 1) {
            if (data->capacity >= c) return 0;
            if (wanted < 0 || wanted == data->capacity) return 0;
            return reallocate(wanted);
        }
        return reallocate(std::max(wanted, c));
    }

    short reallocate(long capacity) {
        GSArrayData<T>* fresh = GSArrayData<T>::create(capacity);
        if (!fresh) return 1;
        long keep = std::min(data->size, capacity);
        std::copy(data->elements, data->elements + keep, fresh->elements);
        fresh->size = keep;
        fresh->addReference();
        data->release();
        data = fresh;
        return 0;
    }

    long grow;
    GSArrayData<T>* data = nullptr;
};
