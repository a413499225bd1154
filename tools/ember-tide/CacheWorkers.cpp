// CacheWorkers.cpp - the worker pool of `ember-tide cache`: threads, the queue, one file's job.
#include "CacheWorkers.h"

#include "CacheStop.h"
#include "thumbnail/GSWorkDeadline.h"

#include <algorithm>
#include <chrono>
#include <new>
#include <sched.h>

namespace tool {

namespace {

int coreCount() {
    cpu_set_t set;
    if (::sched_getaffinity(0, sizeof set, &set) == 0 && CPU_COUNT(&set) > 0)
        return CPU_COUNT(&set);
    unsigned n = std::thread::hardware_concurrency();
    return n > 0 ? static_cast<int>(n) : 1;
}

int threadCount(int jobs, long total) {
    jobs = jobs > 0 ? jobs : coreCount();
    return static_cast<int>(std::max(1L, std::min<long>(jobs, total)));
}

// The watchdog's watch over one file's work, ended however that work ends.
struct Watched {
    Watched(CacheWatchdog& watchdog, int worker, const std::string& path)
        : watchdog(watchdog), worker(worker) {
        watchdog.begin(worker, path);
    }
    ~Watched() { watchdog.end(worker); }
    Watched(const Watched&) = delete;
    Watched& operator=(const Watched&) = delete;

    CacheWatchdog& watchdog;
    const int worker;
};

} // namespace

// A file whose work outlasts its budget fails alone (the decoders and the scaler check the
// deadline). One whose work does not stop even at the backstop holds its worker for good: it is
// recorded as failed so that the next run goes past it, and this run ends with its summary
// without waiting for that worker.
CacheWorkers::CacheWorkers(const std::vector<std::string>& files, int jobs, CacheFiller& filler,
                           CacheCounts& counts)
    : files(files), total(static_cast<long>(files.size())), jobs(threadCount(jobs, total)),
      filler(filler), counts(counts), lost(static_cast<size_t>(this->jobs)),
      watchdog(this->jobs,
               [this](int worker, const std::string& path) { onOverrun(worker, path); }) {}

void CacheWorkers::onOverrun(int worker, const std::string& path) {
    filler.report(path, "more than " + fileCPUSecondsText() +
                            " s of processor time; given up, and the run stops here");
    filler.recordFailure(path);
    ++counts.failed;
    ++counts.done;
    ++lostWorkers;
    std::lock_guard<std::mutex> lock(poolMutex);
    lost[static_cast<size_t>(worker)] = true;
    --running;
    poolDone.notify_all();
}

CacheOutcome CacheWorkers::process(int worker, const std::string& path) {
    CacheEntryNames names;
    CacheOutcome outcome = CacheOutcome::kFailed;
    try {
        // Neither the watchdog nor a deadline for the look at the entry: each reads the thread's
        // processor clock, a system call, which was a fifth of a run that finds all up to date.
        if (filler.knownUpToDate(path, &names)) return CacheOutcome::kUpToDate;
        Watched watched(watchdog, worker, path);
        GSWorkDeadline deadline(watchdog.fileBudget());
        workSlowlyIfAsked(path);
        outcome = filler.process(path, names);
    } catch (const std::bad_alloc&) {
        // The workers share the address-space limit that the watchdog set.
        filler.report(path, "out of memory");
    }
    return outcome;
}

void CacheWorkers::work(int worker) {
    for (;;) {
        long i = next.fetch_add(1);
        if (i >= total || stopping() || lostWorkers > 0) break;
        const CacheOutcome outcome = process(worker, files[static_cast<size_t>(i)]);
        if (lostWorkers > 0) {
            std::lock_guard<std::mutex> lock(poolMutex);
            if (lost[static_cast<size_t>(worker)]) break; // back too late: counted already
        }
        switch (outcome) {
        case CacheOutcome::kWritten:
            ++counts.written;
            break;
        case CacheOutcome::kUpToDate:
            ++counts.upToDate;
            break;
        case CacheOutcome::kFailed:
            ++counts.failed;
            break;
        case CacheOutcome::kNotOurs:
            ++counts.notOurs;
            break;
        case CacheOutcome::kAbandoned:
            continue;
        }
        ++counts.done;
    }
    std::lock_guard<std::mutex> lock(poolMutex);
    if (!lost[static_cast<size_t>(worker)]) --running; // else counted out already
    poolDone.notify_all();
}

bool CacheWorkers::run(const std::function<void()>& tick) {
    running = jobs;
    for (int j = 0; j < jobs; ++j)
        pool.emplace_back(&CacheWorkers::work, this, j);
    {
        std::unique_lock<std::mutex> lock(poolMutex);
        while (
            !poolDone.wait_for(lock, std::chrono::milliseconds(100), [&] { return running == 0; }))
            tick();
    }
    if (lostWorkers > 0) return false;
    for (std::thread& t : pool)
        t.join();
    return true;
}

} // namespace tool
