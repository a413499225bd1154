// CacheWorkers.h - the worker threads of `ember-tide cache`: a fixed pool that takes the walked
// files in order and hands each to the filler, under the watchdog.
//
// The files are a shared queue in effect: each worker takes the next index until none is left,
// the stop flag is set (CacheStop.h) or a worker has been lost. Each file runs with a deadline of
// its worker's processor time (GSWorkDeadline); the watchdog (Watchdog.h) gives up on a file
// that does not stop even at its backstop, records it as failed and counts its worker out. Such
// a worker can be neither joined nor left behind safely, so the run ends without it: the process
// must then end without destroying the pool (std::_Exit), as the worker may come back and use
// it. The outcome of every file is counted in CacheCounts; what the counts mean to the user, the
// progress line and the summary, is the command's business (Cache.cpp).
#pragma once

#include "CacheFiller.h"
#include "Watchdog.h"

#include <atomic>
#include <condition_variable>
#include <functional>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

namespace tool {

struct CacheCounts {
    std::atomic<long> written{0}, upToDate{0}, failed{0}, notOurs{0}, done{0};
};

class CacheWorkers {
public:
    // `jobs` threads (0: the number of cores the process may use), never more than there are
    // files and at least one. Starts the watchdog, which bounds the address space per worker.
    CacheWorkers(const std::vector<std::string>& files, int jobs, CacheFiller& filler,
                 CacheCounts& counts);
    CacheWorkers(const CacheWorkers&) = delete;
    CacheWorkers& operator=(const CacheWorkers&) = delete;

    // Runs the files through the filler and waits for the workers, calling `tick` every 100 ms
    // meanwhile. True when every worker has ended and been joined; false when one was lost (see
    // above).
    bool run(const std::function<void()>& tick);

private:
    CacheOutcome process(int worker, const std::string& path);
    void work(int worker);
    void onOverrun(int worker, const std::string& path);

    const std::vector<std::string>& files;
    const long total;
    const int jobs;
    CacheFiller& filler;
    CacheCounts& counts;
    std::atomic<long> next{0};
    std::mutex poolMutex;
    std::condition_variable poolDone;
    int running = 0; // guarded by poolMutex
    std::atomic<int> lostWorkers{0};
    std::vector<bool> lost; // guarded by poolMutex
    CacheWatchdog watchdog;
    std::vector<std::thread> pool;
};

} // namespace tool
