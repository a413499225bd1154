// Watchdog.cpp - resource limits of the thumbnail command, the cache's per-file CPU monitor.
#include "Watchdog.h"

#include "PrintableText.h"

#include "Confinement.h"
#include "fileformat/GSLimits.h"
#include "thumbnail/GSWorkDeadline.h"

#include <algorithm>
#include <chrono>
#include <cmath>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <pthread.h>
#include <sys/resource.h>
#include <unistd.h>
#include <utility>

#if defined(ET_COVERAGE)
extern "C" void __gcov_dump(); // the coverage runtime's: writes this process's counts now
#endif

namespace tool {

void exitAtOnce(int status) {
#if defined(ET_COVERAGE)
    __gcov_dump();
#endif
    ::_exit(status);
}

namespace {

// Lowers the soft limit to `soft` and the hard one to `hard`, keeping whichever the caller set
// lower already (a soft limit stays below the hard one).
void lowerLimit(int resource, rlim_t soft, rlim_t hard) {
    struct rlimit limit;
    if (::getrlimit(resource, &limit) != 0) return;
    limit.rlim_max = std::min(limit.rlim_max, hard);
    limit.rlim_cur = std::min({limit.rlim_cur, soft, limit.rlim_max});
    ::setrlimit(resource, &limit);
}

// Test hooks: whether the environment variable `variable` names the file at `path`.
[[maybe_unused]] bool namedBy(const char* variable, const std::string& path) {
    const char* name = std::getenv(variable);
    if (!name || !*name) return false;
    const size_t slash = path.rfind('/');
    return path.compare(slash == std::string::npos ? 0 : slash + 1, std::string::npos, name) == 0;
}

// Test hooks: a file named as EMBER_TIDE_TEST_SPIN_ON says takes processor time for ever, as a
// parser caught in a loop that checks no deadline would; one named as EMBER_TIDE_TEST_CRASH_ON
// says crashes its decoder.
void misbehaveIfAsked([[maybe_unused]] const std::string& path) {
#if defined(ET_TEST_HOOKS)
    if (namedBy("EMBER_TIDE_TEST_CRASH_ON", path)) ::raise(SIGSEGV);
    if (!namedBy("EMBER_TIDE_TEST_SPIN_ON", path)) return;
    volatile unsigned long turns = 0;
    for (;;)
        turns = turns + 1;
#endif
}

// What the SIGXCPU handler writes: made before the handler is installed, since a handler may
// only call what is safe in a signal.
char overrunMessage[1024];
size_t overrunMessageLength = 0;

extern "C" void onCPULimit(int) {
    (void)!::write(STDERR_FILENO, overrunMessage, overrunMessageLength);
    exitAtOnce(1);
}

// The same for a crash: the start of the message, the signal's number is added by the handler.
// The handler runs on a stack of its own, so that an overflow of the thread's stack is reported
// too.
char crashMessage[1024];
size_t crashMessageLength = 0;
alignas(16) char crashStack[64 * 1024];

extern "C" void onCrash(int number) {
    char tail[16];
    size_t n = sizeof tail;
    tail[--n] = '\n';
    tail[--n] = ')';
    do {
        tail[--n] = static_cast<char>('0' + number % 10);
        number /= 10;
    } while (number > 0 && n > 0);
    (void)!::write(STDERR_FILENO, crashMessage, crashMessageLength);
    (void)!::write(STDERR_FILENO, tail + n, sizeof tail - n);
    exitAtOnce(1);
}

void reportCrashes(const std::string& file) {
    int n = std::snprintf(crashMessage, sizeof crashMessage,
                          "ember-tide: %s: given up (the decoder was stopped by signal ",
                          printable(file).c_str());
    crashMessageLength = n < 0 ? 0 : std::min(static_cast<size_t>(n), sizeof crashMessage - 1);
    stack_t stack{};
    stack.ss_sp = crashStack;
    stack.ss_size = sizeof crashStack;
    if (::sigaltstack(&stack, nullptr) != 0) return;
    struct sigaction action;
    std::memset(&action, 0, sizeof action);
    action.sa_handler = onCrash;
    action.sa_flags = SA_ONSTACK;
    sigemptyset(&action.sa_mask);
    for (int signal : {SIGSEGV, SIGBUS, SIGILL, SIGFPE, SIGABRT})
        ::sigaction(signal, &action, nullptr);
}

double seconds(clockid_t clock) {
    timespec now{};
    ::clock_gettime(clock, &now);
    return static_cast<double>(now.tv_sec) + static_cast<double>(now.tv_nsec) * 1e-9;
}

} // namespace

double fileCPUSeconds() {
#if defined(ET_TEST_HOOKS)
    if (const char* text = std::getenv("EMBER_TIDE_TEST_CPU_SECONDS")) {
        double seconds = std::strtod(text, nullptr);
        if (seconds > 0 && seconds <= GSCurrentLimits().thumbnailCPUSeconds) return seconds;
    }
#endif
    return GSCurrentLimits().thumbnailCPUSeconds;
}

std::string fileCPUSecondsText() {
    char text[32];
    std::snprintf(text, sizeof text, "%g", fileCPUSeconds());
    return text;
}

void workSlowlyIfAsked([[maybe_unused]] const std::string& path) {
#if defined(ET_TEST_HOOKS)
    if (!namedBy("EMBER_TIDE_TEST_SLOW_ON", path)) return;
    while (!GSWorkTimeUp(kGSWorkUnitsPerCheck)) {
    }
#endif
}

void limitThumbnailProcess(const std::string& file) {
    // RLIMIT_CPU counts whole seconds.
    const auto budget = static_cast<rlim_t>(std::ceil(fileCPUSeconds()));
    lowerLimit(RLIMIT_CPU, budget, budget + 2);
    // The message names the limit in force, which the caller may have set lower.
    struct rlimit cpu {};
    ::getrlimit(RLIMIT_CPU, &cpu);
    int n = std::snprintf(overrunMessage, sizeof overrunMessage,
                          "ember-tide: %s: more than %llu s of processor time; given up\n",
                          printable(file).c_str(), static_cast<unsigned long long>(cpu.rlim_cur));
    overrunMessageLength = n < 0 ? 0 : std::min(static_cast<size_t>(n), sizeof overrunMessage - 1);
    struct sigaction action;
    std::memset(&action, 0, sizeof action);
    action.sa_handler = onCPULimit;
    sigemptyset(&action.sa_mask);
    ::sigaction(SIGXCPU, &action, nullptr);
    if (!kSanitizerBuild) {
        lowerLimit(RLIMIT_AS, static_cast<rlim_t>(GSCurrentLimits().thumbnailAddressSpace),
                   static_cast<rlim_t>(GSCurrentLimits().thumbnailAddressSpace));
        reportCrashes(file);
    }
    misbehaveIfAsked(file);
}

CacheWatchdog::CacheWatchdog(int jobs, OverrunHandler onOverrun)
    : budget(fileCPUSeconds()), onOverrun(std::move(onOverrun)),
      slots(static_cast<size_t>(std::max(jobs, 1))) {
    if (!kSanitizerBuild) {
        const rlim_t limit =
            static_cast<rlim_t>(GSCurrentLimits().thumbnailAddressSpace) * (slots.size() + 1);
        lowerLimit(RLIMIT_AS, limit, RLIM_INFINITY);
    }
    thread = std::thread([this] { monitor(); });
}

CacheWatchdog::~CacheWatchdog() {
    {
        std::lock_guard<std::mutex> lock(mutex);
        stopping = true;
    }
    wake.notify_all();
    thread.join();
}

void CacheWatchdog::begin(int worker, const std::string& path) {
    clockid_t clock{};
    if (::pthread_getcpuclockid(::pthread_self(), &clock) == 0) {
        std::lock_guard<std::mutex> lock(mutex);
        Slot& slot = slots.at(static_cast<size_t>(worker));
        slot.busy = true;
        slot.clock = clock;
        slot.started = seconds(clock);
        slot.path = path;
    }
    misbehaveIfAsked(path);
}

void CacheWatchdog::end(int worker) {
    std::lock_guard<std::mutex> lock(mutex);
    slots.at(static_cast<size_t>(worker)).busy = false;
}

void CacheWatchdog::monitor() {
    std::unique_lock<std::mutex> lock(mutex);
    while (!stopping) {
        // A tenth of a second overshoots the budget by little and costs nothing.
        wake.wait_for(lock, std::chrono::milliseconds(100));
        for (size_t worker = 0; worker < slots.size(); ++worker) {
            Slot& slot = slots[worker];
            if (!slot.busy || seconds(slot.clock) - slot.started <= kBackstopFactor * budget)
                continue;
            slot.busy = false; // its worker is lost to the run: never to be named again
            std::string path = slot.path;
            lock.unlock();
            onOverrun(static_cast<int>(worker), path);
            lock.lock();
        }
    }
}

} // namespace tool
