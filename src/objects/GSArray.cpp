// GSArray.cpp - untyped arrays, pointer arrays and object arrays.
#include "objects/GSArray.h"

#include "fileformat/GSFile.h"
#include "objects/GSGrowth.h"
#include "objects/GSObject.h"

#include <cstring>
#include <new>

GSArray::GSArray(long size, long initialCapacity, long growBy) {
    init(size, initialCapacity, growBy);
}

GSArray::~GSArray() {
    exit();
}

void GSArray::exit() {
    if (ownsStorage) delete[] storage;
    storage = nullptr;
    storageBytes = 0;
    capacity = 0;
    count = 0;
}

short GSArray::init(long size, long initialCapacity, long growBy) {
    if (storage) exit();
    elementSize = size;
    count = 0;
    grow = growBy;
    capacity = initialCapacity > 0 ? initialCapacity : 0;
    if (capacity == 0) return 0;
    storage = new (std::nothrow) unsigned char[static_cast<size_t>(elementSize * capacity)];
    if (!storage) {
        capacity = 0;
        return 1;
    }
    storageBytes = elementSize * capacity;
    ownsStorage = 1;
    return 0;
}

short GSArray::enlarge() {
    long newCapacity = capacity + GSGrowthStep(grow, capacity);
    auto* block = new (std::nothrow) unsigned char[static_cast<size_t>(elementSize * newCapacity)];
    if (block && storage) std::memcpy(block, storage, static_cast<size_t>(elementSize * count));
    if (ownsStorage) delete[] storage;
    storage = block;
    ownsStorage = 1;
    if (!block) {
        // The framework's rule: a failed growth loses the contents.
        storageBytes = 0;
        capacity = 0;
        count = 0;
        return 1;
    }
    storageBytes = elementSize * newCapacity;
    capacity = newCapacity;
    return 0;
}

short GSArray::insertAt(long index, const void* element) {
    if (index < 0) index = count;
    if (index > count) return 0;
    short failed = count == capacity ? enlarge() : 0;
    if (failed) return 1;
    ++count;
    unsigned char* slot = storage + index * elementSize;
    std::memmove(slot + elementSize, slot, static_cast<size_t>((count - 1 - index) * elementSize));
    std::memcpy(slot, element, static_cast<size_t>(elementSize));
    return 0;
}

short GSArray::removeAt(long index) {
    if (index < 0 || index >= count) return 0;
    unsigned char* slot = storage + index * elementSize;
    std::memmove(slot, slot + elementSize, static_cast<size_t>((count - 1 - index) * elementSize));
    --count;
    return 0;
}

short GSArray::setSize(long n) {
    if (n < 0) return 1;
    if (n * elementSize > storageBytes) {
        auto* block = new (std::nothrow) unsigned char[static_cast<size_t>(n * elementSize)];
        if (!block) return storage ? 0 : 1;
        if (storage) std::memcpy(block, storage, static_cast<size_t>(count * elementSize));
        if (ownsStorage) delete[] storage;
        storage = block;
        ownsStorage = 1;
        storageBytes = n * elementSize;
    }
    // Never below the count: insertAt enlarges only when count == capacity.
    capacity = n < count ? count : n;
    return storage || n == 0 ? 0 : 1;
}

void* GSArray::getElement(long index) const {
    if (index < 0 || index >= count || !storage) return nullptr;
    return storage + index * elementSize;
}

void* PointerArray::getElementAt(long index) const {
    void* slot = getElement(index);
    if (!slot) return nullptr;
    void* pointer;
    std::memcpy(&pointer, slot, sizeof pointer);
    return pointer;
}

// ---------------------------------------------------------------- ObjectArray

ObjectArray::~ObjectArray() {
    empty();
}

ObjectArray& ObjectArray::operator=(const ObjectArray& other) {
    if (this == &other) return *this;
    empty();
    setSize(other.getCount());
    for (long i = 0; i < other.getCount(); ++i)
        add(other.getObjectAt(i));
    return *this;
}

short ObjectArray::insertAt(long index, const GSObject* object) {
    long before = count;
    short status = GSArray::insertAt(index, &object);
    if (status == 0 && count > before && object) object->addReference();
    return status;
}

short ObjectArray::removeAt(long index) {
    if (index < 0 || index >= count) return 0;
    GSObject* object = getObjectAt(index);
    GSArray::removeAt(index);
    if (object) object->release();
    return 0;
}

void ObjectArray::empty() {
    // Released after the count is cleared: a destructor may look at this array again.
    long n = count;
    count = 0;
    for (long i = 0; i < n; ++i) {
        GSObject* object;
        std::memcpy(&object, storage + i * elementSize, sizeof object);
        if (object) object->release();
    }
}

short ObjectArray::write(GSFile* file) const {
    short status = file->writeArrayCount(count);
    for (long i = 0; i < count && status == 0; ++i)
        status = file->writeObject(getObjectAt(i));
    return status;
}

short ObjectArray::read(GSFile* file) {
    empty();
    long n;
    if (short status = file->readArrayCount(&n)) return status;
    if (n <= 0) return 0;
    // Every element takes at least one byte of the file: a larger count is a failed read,
    // before anything is allocated for it.
    if (!file->fitsInFile(n)) return 1;
    if (setSize(n)) return 1;
    for (long i = 0; i < n; ++i) {
        GSObject* object = file->readObject();
        if (!object) return 1;
        add(object);
    }
    return 0;
}
