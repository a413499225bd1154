// bench_tables.cpp - filling and searching the string tables.
//
// GSStringTable and GSNumericStringTable keep their entries in one sorted array: a lookup is a
// binary search (O(log n) comparisons), an insertion a binary search plus moving the entries
// behind the new one up by one slot (O(n) moves). Here n distinct keys are inserted in random
// order into an empty table, then all n are looked up in another random order, for n = 10^3,
// 10^4 and 10^5. The text keys are short names, one in eight with an accented letter, so that
// the code-point comparison meets both its ASCII shortcut and its decomposing path.
// `per_insert` and `per_lookup` are CPU seconds per operation (SI prefix: 1.5u is 1.5 us);
// lookups should grow like log n (plus cache misses), inserts like n (the moves) and no faster.
// Filling 10^5 entries in random order therefore takes seconds (about 5 * 10^9 bytes moved);
// bench/run.sh leaves those two runs out unless BENCH_FULL=1.
#include "objects/GSNumericStringTable.h"
#include "objects/GSStringTable.h"

#include <benchmark/benchmark.h>

#include <algorithm>
#include <cstdio>
#include <random>
#include <vector>

namespace {

std::vector<GSString> makeTextKeys(long n) {
    std::vector<GSString> keys;
    keys.reserve(static_cast<size_t>(n));
    for (long i = 0; i < n; ++i) {
        char buffer[48];
        // Spread over the alphabet so that the keys do not come out nearly sorted.
        long scrambled = (i * 2654435761L) % 1000003;
        std::snprintf(buffer, sizeof buffer,
                      i % 8 == 0 ? "caf\xC3\xA9.%07ld.%ld" : "name.%07ld.%ld", scrambled, i);
        keys.push_back(GSString::withCopyOf(buffer));
    }
    std::shuffle(keys.begin(), keys.end(), std::mt19937(1));
    return keys;
}

// Distinct keys less than 2^31 apart, so that the table's wrapped order is a total order.
std::vector<int> makeNumericKeys(long n) {
    std::vector<int> keys(static_cast<size_t>(n));
    for (long i = 0; i < n; ++i)
        keys[static_cast<size_t>(i)] = static_cast<int>(i * 7 - n * 3);
    std::shuffle(keys.begin(), keys.end(), std::mt19937(2));
    return keys;
}

// The keys in the table's order: a table filled in that order only ever appends, which keeps
// the set-up of the lookup runs short.
std::vector<GSString> sortedTextKeys(std::vector<GSString> keys) {
    std::sort(keys.begin(), keys.end(),
              [](const GSString& a, const GSString& b) { return a.compareValue(b) < 0; });
    return keys;
}

template <class T> std::vector<T> shuffled(std::vector<T> items, unsigned seed) {
    std::shuffle(items.begin(), items.end(), std::mt19937(seed));
    return items;
}

void perItem(benchmark::State& state, const char* name, long n) {
    state.SetItemsProcessed(static_cast<int64_t>(state.iterations()) * n);
    state.counters[name] =
        benchmark::Counter(static_cast<double>(n), benchmark::Counter::kIsIterationInvariantRate |
                                                       benchmark::Counter::kInvert);
}

const GSString kValue = GSString::withCopyOf("value");

void BM_StringTableInsert(benchmark::State& state) {
    const long n = state.range(0);
    const auto keys = makeTextKeys(n);
    for (auto _ : state) {
        GSStringTable table;
        for (const GSString& key : keys)
            table.setValue(key, kValue);
        if (table.getCount() != n) return state.SkipWithError("keys were lost");
        benchmark::DoNotOptimize(table.getCount());
    }
    perItem(state, "per_insert", n);
}

void BM_StringTableLookup(benchmark::State& state) {
    const long n = state.range(0);
    const auto keys = makeTextKeys(n);
    GSStringTable table;
    for (const GSString& key : sortedTextKeys(keys))
        table.setValue(key, key);
    const auto probes = shuffled(keys, 3);
    for (auto _ : state) {
        long found = 0;
        for (const GSString& key : probes)
            found += !table.getValue(key).isNull();
        if (found != n) return state.SkipWithError("keys were not found");
    }
    perItem(state, "per_lookup", n);
}

void BM_NumericTableInsert(benchmark::State& state) {
    const long n = state.range(0);
    const auto keys = makeNumericKeys(n);
    for (auto _ : state) {
        GSNumericStringTable table;
        for (int key : keys)
            table.setValue(key, kValue);
        if (table.getCount() != n) return state.SkipWithError("keys were lost");
        benchmark::DoNotOptimize(table.getCount());
    }
    perItem(state, "per_insert", n);
}

void BM_NumericTableLookup(benchmark::State& state) {
    const long n = state.range(0);
    const auto keys = makeNumericKeys(n);
    GSNumericStringTable table;
    auto ordered = keys;
    std::sort(ordered.begin(), ordered.end());
    for (int key : ordered)
        table.setValue(key, kValue);
    const auto probes = shuffled(keys, 4);
    for (auto _ : state) {
        long found = 0;
        for (int key : probes)
            found += !table.getValue(key).isNull();
        if (found != n) return state.SkipWithError("keys were not found");
    }
    perItem(state, "per_lookup", n);
}

BENCHMARK(BM_StringTableInsert)
    ->ArgName("n")
    ->RangeMultiplier(10)
    ->Range(1000, 100000)
    ->Unit(benchmark::kMillisecond);
BENCHMARK(BM_StringTableLookup)
    ->ArgName("n")
    ->RangeMultiplier(10)
    ->Range(1000, 100000)
    ->Unit(benchmark::kMillisecond);
BENCHMARK(BM_NumericTableInsert)
    ->ArgName("n")
    ->RangeMultiplier(10)
    ->Range(1000, 100000)
    ->Unit(benchmark::kMillisecond);
BENCHMARK(BM_NumericTableLookup)
    ->ArgName("n")
    ->RangeMultiplier(10)
    ->Range(1000, 100000)
    ->Unit(benchmark::kMillisecond);

} // namespace

BENCHMARK_MAIN();
