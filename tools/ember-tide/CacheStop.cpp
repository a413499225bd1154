// CacheStop.cpp - the stop flag and its signal handler.
#include "CacheStop.h"

#include <atomic>
#include <cstring>

namespace tool {

namespace {

// Set by the signal handler, read by everyone; lock-free, so the handler may store into it.
std::atomic<int> stopSignal{0};
static_assert(std::atomic<int>::is_always_lock_free);

extern "C" void onStopSignal(int signal) {
    stopSignal.store(signal);
}

} // namespace

int stopSignalNumber() {
    return stopSignal.load();
}

bool stopping() {
    return stopSignal.load() != 0;
}

void resetStop() {
    stopSignal.store(0);
}

SignalGuard::SignalGuard() {
    struct sigaction action;
    std::memset(&action, 0, sizeof action);
    action.sa_handler = onStopSignal;
    sigemptyset(&action.sa_mask);
    action.sa_flags = SA_RESTART;
    for (size_t i = 0; i < std::size(kSignals); ++i)
        ::sigaction(kSignals[i], &action, &previous[i]);
}

SignalGuard::~SignalGuard() {
    for (size_t i = 0; i < std::size(kSignals); ++i)
        ::sigaction(kSignals[i], &previous[i], nullptr);
}

} // namespace tool
