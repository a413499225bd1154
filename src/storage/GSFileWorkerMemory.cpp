// GSFileWorkerMemory.cpp - reading, writing and seeking in a memory buffer.
#include "storage/GSFileWorkerMemory.h"

#include "objects/GSRuntimeClass.h"

#include <cstring>
#include <new>

GSRuntimeClass GSFileWorkerMemory::gsClassGSFileWorkerMemory("GSFileWorkerMemory",
                                                             &GSFileWorker::gsClassGSFileWorker,
                                                             &GSFileWorkerMemory::_createFunction);

GSObject* GSFileWorkerMemory::_createFunction() {
    return new (std::nothrow) GSFileWorkerMemory();
}

const GSRuntimeClass* GSFileWorkerMemory::getRuntimeClass() const {
    return &gsClassGSFileWorkerMemory;
}

GSFileWorkerMemory::GSFileWorkerMemory() : buffer(-100) {
    buffer.reserve(32768);
}

GSFileWorkerMemory::GSFileWorkerMemory(const GSDynaArray<unsigned char>& data) : buffer(data) {}

GSFileWorkerMemory::GSFileWorkerMemory(long growBy, long capacity) : buffer(growBy) {
    if (capacity == 0) capacity = growBy >= 0 ? growBy : 8192;
    buffer.reserve(capacity);
}

void* GSFileWorkerMemory::getMemoryAddress() const {
    return const_cast<unsigned char*>(buffer.getData());
}

long GSFileWorkerMemory::readData(void* out, long count) {
    long available = buffer.getSize() - position;
    if (count <= available) {
        if (count < 1) return count;
    } else {
        if (available < 1) return 0;
        count = available;
    }
    std::memcpy(out, buffer.getData() + position, static_cast<size_t>(count));
    position += count;
    return count;
}

short GSFileWorkerMemory::seek(long offset, short whence) {
    long size = buffer.getSize();
    long base = whence == 0 ? 0 : whence == 2 ? size : position;
    long target;
    if (__builtin_add_overflow(offset, base, &target)) target = offset < 0 ? -1 : size + 1;
    if (target >= 0 && target <= size) {
        position = target;
        return 0;
    }
    position = target < 0 ? 0 : size;
    return 1;
}

long GSFileWorkerMemory::_write(const void* data, long count) {
    if (count <= 0) return 0;
    long size = buffer.getSize();
    long replaced = count < size - position ? count : size - position;
    if (buffer.replace(position, replaced, static_cast<const unsigned char*>(data), count))
        return 0;
    position += count;
    return count;
}

short GSFileWorkerMemory::_open() {
    position = 0;
    if (accessFlags & GSAccessTruncate) buffer.empty();
    return 0;
}
