// bench_objects.cpp - writing and reading back an object table of n distinct objects.
//
// Object merging keeps a table entry per object and looks objects up by address while writing
// and by file position while reading; done naively either look-up makes a table of n objects
// cost O(n^2). Here n distinct GSMemPicData objects are written under startObjectMergingWrite(1)
// on a memory file, each as the record of one item of a chunk (the way a document holds
// records: a picture-data record stops reading before its end marker, and the item lets the
// reader step over the rest), and read back under startObjectMergingRead, checking every field.
// The CPU time per object (`per_obj`; `write_per_obj`, `read_per_obj` for the two halves;
// seconds with an SI prefix, 1.5u is 1.5 us) must stay roughly flat from 10^4 to 10^6 objects.
// `allocs_per_obj` counts the calls to operator new per object over both halves, for information.
//
// BM_ValueObjectTable does the same with value objects (longs, doubles, strings, buffers and
// long arrays in turn) written as consecutive records: per object it must stay flat from 10^3
// to 10^5. Its memory file is made large enough up front, so that the figure is that of the
// records and the table, not of the buffer's growth (which BM_ObjectTable includes).
// BM_DictionaryLookUp measures GSObjectDictionary look-ups at 10, 100 and 1,000 entries, with and
// without caseless string keys: a dictionary is searched linearly from its last entry, by design,
// so the cost per look-up grows with n (`per_entry` shows it staying roughly constant per entry
// walked).
#include "AllocationCounter.h"
#include "BenchMemoryFile.h"
#include "fileformat/GSFile.h"
#include "fileformat/GSFormatNumbers.h"
#include "fileformat/GSTagRead.h"
#include "fileformat/GSTagWrite.h"
#include "objects/GSArrayObjects.h"
#include "objects/GSNumberObjects.h"
#include "objects/GSObjectDictionary.h"
#include "objects/GSObjectRef.h"
#include "objects/GSStringDictionaryKey.h"
#include "objects/GSStringObject.h"
#include "thumbnail/GSMemPicData.h"

#include <benchmark/benchmark.h>

#include <ctime>
#include <string>
#include <vector>

using bench_support::allocationCount;
using bench_support::openMemoryFile;

namespace {

constexpr int kRecordTag = 4;

std::vector<GSObjectRef<GSMemPicData>> makeObjects(long n) {
    std::vector<GSObjectRef<GSMemPicData>> objects;
    objects.reserve(static_cast<size_t>(n));
    for (long i = 0; i < n; ++i) {
        GSObjectRef<GSMemPicData> object(new GSMemPicData());
        object->kind = GSPreviewJPEG;
        object->infoValue = static_cast<int>(i % 30000);
        object->size = {static_cast<int>(i), static_cast<int>(i % 977)};
        objects.push_back(std::move(object));
    }
    return objects;
}

short writeTable(GSFile* file, const std::vector<GSObjectRef<GSMemPicData>>& objects) {
    if (file->startObjectMergingWrite(1)) return 1;
    short failed = 0;
    {
        GSTagWrite chunk(file);
        failed = chunk.writeVersion(256);
        for (size_t i = 0; i < objects.size() && !failed; ++i)
            failed = chunk.writeStart(kRecordTag) || file->writeObject(objects[i].get()) ||
                     chunk.writeEnd();
        if (!failed) failed = chunk.writeEndTag();
    }
    file->stopObjectMergingWrite();
    return failed;
}

// Reads the records back and checks that object i came back with object i's fields.
short readTable(GSFile* file, long n) {
    if (file->startObjectMergingRead()) return 1;
    short failed = 0;
    GSTagRead chunk(file);
    if (chunk.readVersion(256, nullptr)) failed = 1;
    long i = 0;
    while (!failed) {
        int tag = chunk.read();
        if (tag == GSTagRead::kEndTag) break;
        if (tag != kRecordTag) {
            failed = 1;
            break;
        }
        GSObject* object = file->readObject(); // kept alive by the table until merging stops
        if (!GSMemPicData::isPictureData(object)) {
            failed = 1;
            break;
        }
        auto* picture = static_cast<GSMemPicData*>(object);
        GSTSize<int> size{static_cast<int>(i), static_cast<int>(i % 977)};
        if (picture->infoValue != i % 30000 || picture->size != size || chunk.skip()) failed = 1;
        ++i;
    }
    file->stopObjectMergingRead();
    return failed || i != n ? 1 : 0;
}

// CPU seconds of this thread: like the benchmark's own CPU time, not disturbed by other load.
double cpuSeconds() {
    timespec now{};
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &now);
    return static_cast<double>(now.tv_sec) + static_cast<double>(now.tv_nsec) * 1e-9;
}

void BM_ObjectTable(benchmark::State& state) {
    const long n = state.range(0);
    const auto objects = makeObjects(n);
    double writeSeconds = 0, readSeconds = 0;
    long allocations = 0;
    for (auto _ : state) {
        long before = allocationCount();
        GSFile file;
        if (!openMemoryFile(&file, 0)) return state.SkipWithError("no memory file");
        double start = cpuSeconds();
        if (writeTable(&file, objects)) return state.SkipWithError("the table was not written");
        double written = cpuSeconds();
        if (file.seek(0, 0) || readTable(&file, n))
            return state.SkipWithError("the table did not read back");
        double read = cpuSeconds();
        writeSeconds += written - start;
        readSeconds += read - written;
        allocations += allocationCount() - before;
    }
    double objectsDone = static_cast<double>(state.iterations()) * static_cast<double>(n);
    state.SetItemsProcessed(static_cast<int64_t>(objectsDone));
    state.counters["per_obj"] =
        benchmark::Counter(static_cast<double>(n), benchmark::Counter::kIsIterationInvariantRate |
                                                       benchmark::Counter::kInvert);
    state.counters["write_per_obj"] = writeSeconds / objectsDone;
    state.counters["read_per_obj"] = readSeconds / objectsDone;
    state.counters["allocs_per_obj"] = static_cast<double>(allocations) / objectsDone;
}

BENCHMARK(BM_ObjectTable)->ArgName("n")->Arg(10000)->Arg(100000)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_ObjectTable)->ArgName("n")->Arg(1000000)->Iterations(2)->Unit(benchmark::kMillisecond);

// ---------------------------------------------------------------- value objects

GSObjectRef<GSObject> makeValueObject(long i) {
    switch (i % 5) {
    case 0:
        return GSObjectRef<GSObject>(new GSLongObject(static_cast<int>(i)));
    case 1:
        return GSObjectRef<GSObject>(new GSDoubleObject(static_cast<double>(i) * 0.5));
    case 2: {
        GSString text("value ");
        text.addLong(static_cast<int>(i), 0);
        return GSObjectRef<GSObject>(new GSStringObject(text));
    }
    case 3: {
        GSDynaArray<unsigned char> bytes;
        bytes.setSize(16);
        bytes[0] = static_cast<unsigned char>(i);
        return GSObjectRef<GSObject>(new GSBufferObject(bytes));
    }
    default: {
        GSDynaArray<int> ints;
        for (int k = 0; k < 4; ++k)
            ints.add(static_cast<int>(i) + k);
        return GSObjectRef<GSObject>(new GSLongArrayObject(ints));
    }
    }
}

// Reads n records back and checks each object's class and first value.
short readValueObjects(GSFile* file, long n) {
    if (file->startObjectMergingRead()) return 1;
    short failed = 0;
    for (long i = 0; i < n && !failed; ++i) {
        GSObject* object = file->readObject(); // kept alive by the table until merging stops
        switch (i % 5) {
        case 0: {
            auto* l = GSObjectCast<GSLongObject>(object, GSLongObject::gsClassGSLongObject);
            failed = !l || l->value != i;
            break;
        }
        case 1: {
            auto* d = GSObjectCast<GSDoubleObject>(object, GSDoubleObject::gsClassGSDoubleObject);
            failed = !d || d->value != static_cast<double>(i) * 0.5;
            break;
        }
        case 2:
            failed = !GSObjectCast<GSStringObject>(object, GSStringObject::gsClassGSStringObject);
            break;
        case 3: {
            auto* b = GSObjectCast<GSBufferObject>(object, GSBufferObject::gsClassGSBufferObject);
            failed = !b || b->value.getSize() != 16 || b->value[0] != static_cast<unsigned char>(i);
            break;
        }
        default: {
            auto* a = GSObjectCast<GSLongArrayObject>(object,
                                                      GSLongArrayObject::gsClassGSLongArrayObject);
            failed = !a || a->value.getSize() != 4 || a->value[0] != i;
        }
        }
    }
    file->stopObjectMergingRead();
    return failed;
}

void BM_ValueObjectTable(benchmark::State& state) {
    const long n = state.range(0);
    std::vector<GSObjectRef<GSObject>> objects;
    objects.reserve(static_cast<size_t>(n));
    for (long i = 0; i < n; ++i)
        objects.push_back(makeValueObject(i));
    double writeSeconds = 0, readSeconds = 0;
    for (auto _ : state) {
        GSFile file;
        if (!openMemoryFile(&file, n * 64)) return state.SkipWithError("no memory file");
        double start = cpuSeconds();
        if (file.startObjectMergingWrite(1)) return state.SkipWithError("no table");
        short failed = 0;
        for (long i = 0; i < n && !failed; ++i)
            failed = file.writeObject(objects[i].get());
        file.stopObjectMergingWrite();
        if (failed) return state.SkipWithError("the objects were not written");
        double written = cpuSeconds();
        if (file.seek(0, 0) || readValueObjects(&file, n))
            return state.SkipWithError("the objects did not read back");
        double read = cpuSeconds();
        writeSeconds += written - start;
        readSeconds += read - written;
    }
    double objectsDone = static_cast<double>(state.iterations()) * static_cast<double>(n);
    state.SetItemsProcessed(static_cast<int64_t>(objectsDone));
    state.counters["per_obj"] =
        benchmark::Counter(static_cast<double>(n), benchmark::Counter::kIsIterationInvariantRate |
                                                       benchmark::Counter::kInvert);
    state.counters["write_per_obj"] = writeSeconds / objectsDone;
    state.counters["read_per_obj"] = readSeconds / objectsDone;
}

BENCHMARK(BM_ValueObjectTable)
    ->ArgName("n")
    ->Arg(1000)
    ->Arg(10000)
    ->Arg(100000)
    ->Unit(benchmark::kMillisecond);

// ---------------------------------------------------------------- dictionary look-ups

// n entries "key0" ... under string keys; the look-ups go round all of them, so on average half
// the entries are walked (from the last one down).
void BM_DictionaryLookUp(benchmark::State& state) {
    const long n = state.range(0);
    GSObjectDictionary dictionary;
    dictionary.setCaselessStringKeys(static_cast<short>(state.range(1)));
    std::vector<GSObjectRef<GSStringDictionaryKey>> keys;
    for (long i = 0; i < n; ++i) {
        GSString text("key");
        text.addLong(static_cast<int>(i), 0);
        dictionary.setObjectValue(text, new GSLongObject(static_cast<int>(i)));
        keys.emplace_back(new GSStringDictionaryKey(text));
    }
    long i = 0, misses = 0;
    for (auto _ : state) {
        GSObject* value = dictionary.getValue(keys[static_cast<size_t>(i)].get());
        benchmark::DoNotOptimize(value);
        auto* l = GSObjectCast<GSLongObject>(value, GSLongObject::gsClassGSLongObject);
        if (!l || l->value != i) ++misses;
        if (++i == n) i = 0;
    }
    if (misses) state.SkipWithError("a look-up found the wrong value");
    state.counters["per_entry"] = benchmark::Counter(static_cast<double>(n + 1) / 2.0,
                                                     benchmark::Counter::kIsIterationInvariantRate |
                                                         benchmark::Counter::kInvert);
}

BENCHMARK(BM_DictionaryLookUp)->ArgNames({"n", "caseless"})->ArgsProduct({{10, 100, 1000}, {0, 1}});

} // namespace

BENCHMARK_MAIN();
