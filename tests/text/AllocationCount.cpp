// AllocationCount.cpp - the counting replacements of the global operator new and delete.
#include "AllocationCount.h"

#include <atomic>
#include <cstdlib>
#include <new>

namespace {

std::atomic<long> counted{0};

void* allocate(std::size_t size) noexcept {
    counted.fetch_add(1, std::memory_order_relaxed);
    return std::malloc(size ? size : 1);
}

void* allocateOrThrow(std::size_t size) {
    if (void* block = allocate(size)) return block;
    throw std::bad_alloc();
}

} // namespace

long text_testing::allocations() {
    return counted.load(std::memory_order_relaxed);
}

// The framework allocates its bytes with new (std::nothrow); the plain forms are counted too.
// Over-aligned forms are left to the library: nothing here allocates over-aligned types.
void* operator new(std::size_t size) {
    return allocateOrThrow(size);
}
void* operator new[](std::size_t size) {
    return allocateOrThrow(size);
}
void* operator new(std::size_t size, const std::nothrow_t&) noexcept {
    return allocate(size);
}
void* operator new[](std::size_t size, const std::nothrow_t&) noexcept {
    return allocate(size);
}
void operator delete(void* block) noexcept {
    std::free(block);
}
void operator delete[](void* block) noexcept {
    std::free(block);
}
void operator delete(void* block, std::size_t) noexcept {
    std::free(block);
}
void operator delete[](void* block, std::size_t) noexcept {
    std::free(block);
}
void operator delete(void* block, const std::nothrow_t&) noexcept {
    std::free(block);
}
void operator delete[](void* block, const std::nothrow_t&) noexcept {
    std::free(block);
}
