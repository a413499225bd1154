// bench_primitives.cpp - the cost of GSFile's number encodings and of both chunk forms.
//
// Numbers: compact long longs over a mix of magnitudes and signs, and 4-byte longs, written to
// and read from a memory file that has already grown to its final size. Every document is
// made of these, so they must be cheap, and GSFile promises that they move their bytes through
// a stack buffer: each number benchmark counts the calls to operator new in its timed loop and
// reports them per number as `allocs_per_op`, which must be 0.
// Chunks: many small items (the byte form's 2-byte header, bodies buffered until they are known
// to fit) and items over 256 bytes (its 9-byte header, patched afterwards), in the long form
// and the byte form, written with GSTagWrite and read back item by item with GSTagRead.
//
// Counters: `per_op` and `per_item` are seconds per number or item, shown with an SI prefix
// (2.5n is 2.5 ns).
#include "AllocationCounter.h"
#include "BenchMemoryFile.h"
#include "fileformat/GSFile.h"
#include "fileformat/GSTagRead.h"
#include "fileformat/GSTagWrite.h"

#include <benchmark/benchmark.h>

#include <cstdint>
#include <random>
#include <vector>

using bench_support::allocationCount;
using bench_support::openMemoryFile;

namespace {

constexpr long kNumberCount = 4096;

// Half of the values fit the compact form's first byte, a quarter take two or three bytes, and
// the rest are 32-bit and full 64-bit values; about a third are negative.
std::vector<long> compactValues() {
    std::mt19937_64 random(0x45544231);
    std::vector<long> values(kNumberCount);
    for (long& value : values) {
        uint64_t r = random();
        uint64_t kind = r % 8;
        uint64_t bits = random();
        long magnitude = kind < 4    ? static_cast<long>(bits % 64)
                         : kind < 6  ? static_cast<long>(bits % 8192)
                         : kind == 6 ? static_cast<long>(bits % 0x80000000u)
                                     : static_cast<long>(bits >> 1);
        value = (r >> 8) % 3 == 0 ? -magnitude - 1 : magnitude;
    }
    return values;
}

std::vector<int> longValues() {
    std::mt19937 random(0x45544232);
    std::vector<int> values(kNumberCount);
    for (int& value : values)
        value = static_cast<int>(random());
    return values;
}

void reportPerOperation(benchmark::State& state, long operations, long allocations) {
    double total = static_cast<double>(state.iterations()) * static_cast<double>(operations);
    state.SetItemsProcessed(static_cast<int64_t>(total));
    state.counters["per_op"] = benchmark::Counter(static_cast<double>(operations),
                                                  benchmark::Counter::kIsIterationInvariantRate |
                                                      benchmark::Counter::kInvert);
    state.counters["allocs_per_op"] = total > 0 ? static_cast<double>(allocations) / total : 0;
}

// Writes every value once per iteration over the bytes of the previous iteration.
template <class T, class Write>
void benchWrite(benchmark::State& state, const std::vector<T>& values, Write write) {
    GSFile file;
    if (!openMemoryFile(&file, kNumberCount * 10)) return state.SkipWithError("no memory file");
    for (T value : values)
        write(&file, value); // grows the file to its final size
    long allocations = 0;
    for (auto _ : state) {
        long before = allocationCount();
        short failed = file.seek(0, 0);
        for (T value : values)
            failed |= write(&file, value);
        allocations += allocationCount() - before;
        if (failed) return state.SkipWithError("a write failed");
    }
    reportPerOperation(state, static_cast<long>(values.size()), allocations);
}

// Reads the values back once per iteration; the first pass checks that they round-trip.
template <class T, class Write, class Read>
void benchRead(benchmark::State& state, const std::vector<T>& values, Write write, Read read) {
    GSFile file;
    if (!openMemoryFile(&file, kNumberCount * 10)) return state.SkipWithError("no memory file");
    for (T value : values)
        write(&file, value);
    file.seek(0, 0);
    for (T value : values) {
        T back{};
        if (read(&file, &back) || back != value) return state.SkipWithError("no round trip");
    }
    long allocations = 0;
    for (auto _ : state) {
        long before = allocationCount();
        short failed = file.seek(0, 0);
        T sum{};
        for (size_t i = 0; i < values.size(); ++i) {
            T value{};
            failed |= read(&file, &value);
            sum += value;
        }
        benchmark::DoNotOptimize(sum);
        allocations += allocationCount() - before;
        if (failed) return state.SkipWithError("a read failed");
    }
    reportPerOperation(state, static_cast<long>(values.size()), allocations);
}

auto writeCompact = [](GSFile* file, long value) { return file->writeCompactLongLong(value); };
auto readCompact = [](GSFile* file, long* value) { return file->readCompactLongLong(value); };
auto writeLong = [](GSFile* file, int value) { return file->writeLong(value); };
auto readLong = [](GSFile* file, int* value) { return file->readLong(value); };

void BM_CompactLongLongWrite(benchmark::State& state) {
    benchWrite(state, compactValues(), writeCompact);
}
void BM_CompactLongLongRead(benchmark::State& state) {
    benchRead(state, compactValues(), writeCompact, readCompact);
}
void BM_LongWrite(benchmark::State& state) {
    benchWrite(state, longValues(), writeLong);
}
void BM_LongRead(benchmark::State& state) {
    benchRead(state, longValues(), writeLong, readLong);
}

BENCHMARK(BM_CompactLongLongWrite);
BENCHMARK(BM_CompactLongLongRead);
BENCHMARK(BM_LongWrite);
BENCHMARK(BM_LongRead);

// ---------------------------------------------------------------- chunks

// Small bodies: many items per chunk; large ones (over 256 bytes): fewer.
long itemsForBody(long body) {
    return body < 256 ? 2048 : 128;
}

short writeChunk(GSFile* file, const std::vector<unsigned char>& body, long items) {
    GSTagWrite writer(file);
    if (writer.writeVersion(256)) return 1;
    for (long i = 0; i < items; ++i) {
        // Tags 1..100 stay clear of both forms' end markers.
        if (writer.writeStart(static_cast<int>(i % 100) + 1) ||
            file->write(body.data(), static_cast<long>(body.size())) || writer.writeEnd())
            return 1;
    }
    return writer.writeEndTag();
}

// Reads every item's body into `buffer`; returns the number of items, -1 on a failure.
long readChunk(GSFile* file, std::vector<unsigned char>* buffer) {
    GSTagRead reader(file);
    if (reader.readVersion(256, nullptr)) return -1;
    for (long items = 0;; ++items) {
        int tag = reader.read();
        if (tag == GSTagRead::kEndTag) return items;
        long length = reader.getLength();
        if (tag == GSTagRead::kBadTag || length > static_cast<long>(buffer->size()) ||
            file->read(buffer->data(), length))
            return -1;
    }
}

void reportPerItem(benchmark::State& state, long items, long body, long allocations) {
    double total = static_cast<double>(state.iterations()) * static_cast<double>(items);
    state.SetItemsProcessed(static_cast<int64_t>(total));
    state.SetBytesProcessed(static_cast<int64_t>(total) * body);
    state.counters["per_item"] = benchmark::Counter(static_cast<double>(items),
                                                    benchmark::Counter::kIsIterationInvariantRate |
                                                        benchmark::Counter::kInvert);
    state.counters["allocs_per_item"] = total > 0 ? static_cast<double>(allocations) / total : 0;
}

// The chunk form follows the object table's use64Bit choice, so both programs open one: the
// byte form with use64Bit 1, the long form with 0.
void BM_ChunkWrite(benchmark::State& state) {
    const short byteForm = state.range(0) ? 1 : 0;
    const long body = state.range(1), items = itemsForBody(body);
    const std::vector<unsigned char> bytes(static_cast<size_t>(body), 0xA5);
    GSFile file;
    if (!openMemoryFile(&file, 0) || file.startObjectMergingWrite(byteForm))
        return state.SkipWithError("no memory file");
    const long start = file.tell();
    short failed = writeChunk(&file, bytes, items); // grows the file to its final size
    long allocations = 0;
    for (auto _ : state) {
        long before = allocationCount();
        failed |= file.seek(start, 0);
        failed |= writeChunk(&file, bytes, items);
        allocations += allocationCount() - before;
        if (failed) break;
    }
    file.stopObjectMergingWrite();
    if (failed) return state.SkipWithError("a chunk write failed");
    reportPerItem(state, items, body, allocations);
}

void BM_ChunkRead(benchmark::State& state) {
    const short byteForm = state.range(0) ? 1 : 0;
    const long body = state.range(1), items = itemsForBody(body);
    std::vector<unsigned char> buffer(static_cast<size_t>(body), 0xA5);
    GSFile file;
    if (!openMemoryFile(&file, 0) || file.startObjectMergingWrite(byteForm))
        return state.SkipWithError("no memory file");
    short failed = writeChunk(&file, buffer, items);
    file.stopObjectMergingWrite();
    if (failed || file.seek(0, 0) || file.startObjectMergingRead())
        return state.SkipWithError("the chunk cannot be written and reopened");
    const long start = file.tell();
    long allocations = 0;
    for (auto _ : state) {
        long before = allocationCount();
        failed |= file.seek(start, 0);
        failed |= readChunk(&file, &buffer) != items;
        allocations += allocationCount() - before;
        if (failed) break;
    }
    file.stopObjectMergingRead();
    if (failed) return state.SkipWithError("the chunk did not read back");
    reportPerItem(state, items, body, allocations);
}

BENCHMARK(BM_ChunkWrite)->ArgNames({"byteForm", "body"})->ArgsProduct({{0, 1}, {16, 1000}});
BENCHMARK(BM_ChunkRead)->ArgNames({"byteForm", "body"})->ArgsProduct({{0, 1}, {16, 1000}});

} // namespace

BENCHMARK_MAIN();
