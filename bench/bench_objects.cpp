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
#include "AllocationCounter.h"
#include "BenchMemoryFile.h"
#include "GSFile.h"
#include "GSMemPicData.h"
#include "GSObjectRef.h"
#include "GSTagRead.h"
#include "GSTagWrite.h"

#include <benchmark/benchmark.h>

#include <ctime>
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
        object->kind = GSMemPicData::kJPEG;
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

} // namespace

BENCHMARK_MAIN();
