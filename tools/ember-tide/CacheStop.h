// CacheStop.h - stopping `ember-tide cache` cleanly on Ctrl-C, SIGTERM or SIGHUP.
//
// The handler only sets a flag; the walk and the workers check it between steps, so that no
// half-written entry is ever left in the cache. While a SignalGuard lives, the three signals
// set the flag instead of ending the process.
#pragma once

#include <csignal>
#include <iterator>

namespace tool {

// The signal that asked to stop, or 0.
int stopSignalNumber();
bool stopping();
void resetStop();

class SignalGuard {
public:
    SignalGuard();
    ~SignalGuard();
    SignalGuard(const SignalGuard&) = delete;
    SignalGuard& operator=(const SignalGuard&) = delete;

private:
    static constexpr int kSignals[] = {SIGINT, SIGTERM, SIGHUP};
    struct sigaction previous[std::size(kSignals)];
};

} // namespace tool
