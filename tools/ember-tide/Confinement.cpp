// Confinement.cpp - confineProcess(): the order of the confinement's steps, and what it reports.
//
// No new privileges first, which lets an unprivileged process apply the rest; then Landlock
// (Landlock.cpp) and the seccomp filter (SeccompFilter.cpp), each on its own so that one the
// kernel lacks does not keep the other off; then, in builds with test hooks, the probe
// (ConfinementProbe.cpp). On systems other than Linux nothing is applied.
#include "Confinement.h"

#if defined(__linux__)

#include "ConfinementSteps.h"

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <string>
#include <sys/prctl.h>

namespace tool {

std::string errorName(int error) {
    const char* name = ::strerrorname_np(error);
    return name ? name : "errno " + std::to_string(error);
}

ConfinementResult confineProcess(const Confinement& confinement) {
    // Whatever must be read by name later on is read now: the time zone (dates in a document may
    // be converted to local time).
    ::tzset();

    ConfinementResult result;
    std::string landlockWhy, seccompWhy;
    if (::prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0) != 0) {
        result.notApplied = "no_new_privs: " + errorName(errno);
    } else {
        result.landlockABI = applyLandlock(confinement, &landlockWhy);
        result.seccomp = applySeccomp(&seccompWhy);
        result.notApplied = landlockWhy;
        if (!seccompWhy.empty())
            result.notApplied += (result.notApplied.empty() ? "" : "; ") + seccompWhy;
    }
    if (std::getenv("EMBER_TIDE_DEBUG_CONFINEMENT")) {
        std::fprintf(stderr, "ember-tide: confinement: Landlock %s, seccomp filter %s%s%s\n",
                     result.landlockABI ? ("ABI " + std::to_string(result.landlockABI)).c_str()
                                        : "off",
                     result.seccomp ? "on" : "off", result.notApplied.empty() ? "" : " - ",
                     result.notApplied.c_str());
    }
#if defined(ET_TEST_HOOKS)
    if (const char* probe = std::getenv("EMBER_TIDE_TEST_PROBE")) runProbe(probe);
#endif
    return result;
}

} // namespace tool

#else // not Linux

namespace tool {

ConfinementResult confineProcess(const Confinement&) {
    ConfinementResult result;
    result.notApplied = "not available on this system";
    return result;
}

} // namespace tool

#endif
