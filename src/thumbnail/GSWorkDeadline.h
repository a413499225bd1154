// GSWorkDeadline.h - a budget of processor time for the work on one file, which the long loops
// of decoding and scaling check, so that they give up on a file that takes too long.
//
// A process that thumbnails one file can leave the bound to the kernel (RLIMIT_CPU). A thread
// that works through many files cannot be stopped from outside without ending them all, so its
// loops stop themselves: a GSWorkDeadline sets the calling thread's deadline in that thread's
// own processor time, and GSWorkTimeUp() - called by libjpeg's progress monitor, the PNG row
// loop and the scaler between bands - says once it has passed; the loop then fails as a damaged
// picture would, and GSWorkTimedOut() tells the two apart. Reading a thread's CPU clock is a
// system call, so it is read once per kGSWorkUnitsPerCheck units (pixels) of work, which keeps
// the checks far below a percent of the work. Without a deadline nothing is ever out of time.
#pragma once

// About a millisecond of decoding or scaling.
inline constexpr long kGSWorkUnitsPerCheck = 1L << 16;

// Sets the calling thread's deadline `cpuSeconds` of its processor time from now, for as long as
// it lives (deadlines do not nest: the destructor leaves the thread without one).
class GSWorkDeadline {
public:
    explicit GSWorkDeadline(double cpuSeconds);
    ~GSWorkDeadline();
    GSWorkDeadline(const GSWorkDeadline&) = delete;
    GSWorkDeadline& operator=(const GSWorkDeadline&) = delete;
};

// Counts `units` of work done; true once the thread's deadline has passed (and from then on).
bool GSWorkTimeUp(long units);
// Whether a check of this thread's deadline found it passed.
bool GSWorkTimedOut();
