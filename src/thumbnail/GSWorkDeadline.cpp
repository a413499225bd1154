// GSWorkDeadline.cpp - the calling thread's deadline, in its own processor time.
#include "thumbnail/GSWorkDeadline.h"

#include <ctime>

namespace {

struct Deadline {
    bool set = false;
    bool passed = false;
    double at = 0;   // seconds of the thread's CPU clock
    long credit = 0; // units of work left before the clock is read again
};

thread_local Deadline deadline;

double threadSeconds() {
    timespec now{};
    ::clock_gettime(CLOCK_THREAD_CPUTIME_ID, &now);
    return static_cast<double>(now.tv_sec) + static_cast<double>(now.tv_nsec) * 1e-9;
}

} // namespace

GSWorkDeadline::GSWorkDeadline(double cpuSeconds) {
    deadline = Deadline{true, false, threadSeconds() + cpuSeconds, 0};
}

GSWorkDeadline::~GSWorkDeadline() {
    deadline = Deadline{};
}

bool GSWorkTimeUp(long units) {
    Deadline& d = deadline;
    if (!d.set || d.passed) return d.passed;
    d.credit -= units;
    if (d.credit > 0) return false;
    d.credit = kGSWorkUnitsPerCheck;
    d.passed = threadSeconds() >= d.at;
    return d.passed;
}

bool GSWorkTimedOut() {
    return deadline.passed;
}
