// GSRandom.cpp - the process-wide generator state.
#include "storage/GSRandom.h"

#include <atomic>
#include <cstdint>

namespace {

std::atomic<uint32_t> state{4385737};

} // namespace

unsigned GSRandom32() {
    uint32_t old = state.load(std::memory_order_relaxed);
    uint32_t next;
    do {
        next = old * 1103515245u + 12345u; // modulo 2^32 by unsigned arithmetic
    } while (!state.compare_exchange_weak(old, next, std::memory_order_relaxed));
    return next >> 1;
}
