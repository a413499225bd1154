// Watchdog.h - bounds on the processor time and the memory that one thumbnail may take, so that
// a document made to be slow or greedy can never stall the program that asked for it.
//
// The parsers are meant to stay within these bounds on any input (counts are checked against
// the bytes left, nesting is limited, pixels are budgeted); the watchdog is what holds when one
// of them is wrong. `ember-tide thumbnail` is one process per file, so the kernel's limits do
// the work: RLIMIT_CPU and RLIMIT_AS. `ember-tide cache` thumbnails many files in one process on
// several threads, where a process-wide CPU limit would end a long run for no fault: there each
// file gets the same budget as a deadline in its worker's own processor time (GSWorkDeadline),
// which the decoders and the scaler check, so that a slow file fails alone and the run goes on.
// A worker cannot be stopped from outside, so a monitor thread reads each worker's CPU clock as
// the backstop for work that does not check: a file still running at twice the budget is given
// up and ends the run. The address space is bounded per worker.
//
// Sanitizer builds get no address-space limit: their shadow memory reserves terabytes of it.
#pragma once

#include "fileformat/GSLimits.h"

#include <condition_variable>
#include <ctime>
#include <functional>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

namespace tool {

// `ember-tide thumbnail FILE`: RLIMIT_CPU of GSLimits::thumbnailCPUSeconds, after which the process
// ends with status 1 (no thumbnail) and a message that names FILE (the hard limit, two seconds
// later, kills it should that fail), and RLIMIT_AS of GSLimits::thumbnailAddressSpace. Limits that
// the caller set lower are kept. A crash (a fatal signal in a decoder) ends the process the same
// way, except in sanitizer builds, whose own handlers report it.
void limitThumbnailProcess(const std::string& file);

// Ends the process now, as _exit does (no exit handlers, no buffers flushed); coverage builds
// write the process's counts first (not safe in a signal handler in general: the test builds'
// deliberate crashes leave the heap whole).
[[noreturn]] void exitAtOnce(int status);

// The processor-time budget of one file: GSLimits::thumbnailCPUSeconds, or in builds with test
// hooks what EMBER_TIDE_TEST_CPU_SECONDS says (fractions too), so that a test need not wait for the
// real one.
double fileCPUSeconds();
// The same as messages give it: "15", "0.25".
std::string fileCPUSecondsText();

// The backstop of `cache` gives a file's work this many times its budget to stop by itself.
inline constexpr int kBackstopFactor = 2;

// Builds with test hooks: a file named as EMBER_TIDE_TEST_SLOW_ON says works until the
// thread's deadline passes, checking it as a decoder does (then its decoding fails at once).
void workSlowlyIfAsked(const std::string& path);

// `ember-tide cache`: created before the workers start, destroyed after they have ended.
class CacheWatchdog {
public:
    // Sets RLIMIT_AS to (jobs + 1) x GSLimits::thumbnailAddressSpace (unless lower already) and
    // starts the monitor. `onOverrun` runs on the monitor's thread, once, with the worker and the
    // path of a file that has taken more than kBackstopFactor x fileCPUSeconds() of its worker's
    // time. That worker may never be free again: the run ends without waiting for it.
    using OverrunHandler = std::function<void(int worker, const std::string& path)>;
    CacheWatchdog(int jobs, OverrunHandler onOverrun);
    ~CacheWatchdog();
    CacheWatchdog(const CacheWatchdog&) = delete;
    CacheWatchdog& operator=(const CacheWatchdog&) = delete;

    // Called by worker `worker` (0 to jobs - 1) on its own thread around each file.
    void begin(int worker, const std::string& path);
    void end(int worker);

    double fileBudget() const { return budget; }

private:
    struct Slot {
        bool busy = false;
        clockid_t clock{};  // the worker thread's CPU clock
        double started = 0; // its reading when the file began, in seconds
        std::string path;
    };

    void monitor();

    const double budget;
    const OverrunHandler onOverrun;
    std::mutex mutex;
    std::condition_variable wake;
    std::vector<Slot> slots;
    bool stopping = false;
    std::thread thread;
};

} // namespace tool
