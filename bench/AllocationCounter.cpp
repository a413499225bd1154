// AllocationCounter.cpp - the counting replacements of the global operator new and delete.
//
// Memory still comes from malloc (posix_memalign for over-aligned types), so the only change
// to the program is one relaxed atomic increment per allocation. The nothrow forms are
// replaced too: the framework allocates its arrays with new (std::nothrow).
#include "AllocationCounter.h"

#include <atomic>
#include <cstdlib>
#include <new>

namespace {

std::atomic<long> allocations{0};

void* allocate(std::size_t size) noexcept {
    allocations.fetch_add(1, std::memory_order_relaxed);
    return std::malloc(size ? size : 1);
}

void* allocateAligned(std::size_t size, std::align_val_t alignment) noexcept {
    allocations.fetch_add(1, std::memory_order_relaxed);
    auto align = static_cast<std::size_t>(alignment);
    if (align < sizeof(void*)) align = sizeof(void*);
    void* block = nullptr;
    return posix_memalign(&block, align, size ? size : 1) == 0 ? block : nullptr;
}

void* allocateOrThrow(std::size_t size) {
    if (void* block = allocate(size)) return block;
    throw std::bad_alloc();
}

void* allocateAlignedOrThrow(std::size_t size, std::align_val_t alignment) {
    if (void* block = allocateAligned(size, alignment)) return block;
    throw std::bad_alloc();
}

} // namespace

namespace bench_support {

long allocationCount() {
    return allocations.load(std::memory_order_relaxed);
}

} // namespace bench_support

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
void* operator new(std::size_t size, std::align_val_t a) {
    return allocateAlignedOrThrow(size, a);
}
void* operator new[](std::size_t size, std::align_val_t a) {
    return allocateAlignedOrThrow(size, a);
}
void* operator new(std::size_t size, std::align_val_t a, const std::nothrow_t&) noexcept {
    return allocateAligned(size, a);
}
void* operator new[](std::size_t size, std::align_val_t a, const std::nothrow_t&) noexcept {
    return allocateAligned(size, a);
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
void operator delete(void* block, std::align_val_t) noexcept {
    std::free(block);
}
void operator delete[](void* block, std::align_val_t) noexcept {
    std::free(block);
}
void operator delete(void* block, std::size_t, std::align_val_t) noexcept {
    std::free(block);
}
void operator delete[](void* block, std::size_t, std::align_val_t) noexcept {
    std::free(block);
}
void operator delete(void* block, std::align_val_t, const std::nothrow_t&) noexcept {
    std::free(block);
}
void operator delete[](void* block, std::align_val_t, const std::nothrow_t&) noexcept {
    std::free(block);
}
