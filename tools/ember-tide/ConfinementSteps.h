// ConfinementSteps.h - the steps of confineProcess(), each in a file of its own: Landlock, the
// seccomp filter and, in builds with test hooks, the probe.
//
// Confinement.cpp sets PR_SET_NO_NEW_PRIVS and then calls these in order: applyLandlock
// (Landlock.cpp), applySeccomp (SeccompFilter.cpp), runProbe (ConfinementProbe.cpp). Each step
// says why it could not be applied instead of failing, so that the command carries on without
// it. Internal to those files: commands include Confinement.h only.
#pragma once

#include "Confinement.h"

#include <string>

namespace tool {

// The symbolic name of an errno value ("EACCES"), as the debug line and the probe print it.
std::string errorName(int error);

// Keeps only the file-system rights that `confinement` lists and denies TCP bind and connect
// where the kernel's ABI can. Returns the ABI version applied, or 0 with `why` set.
int applyLandlock(const Confinement& confinement, std::string* why);

// Loads the filter that denies sockets, new processes and programs, namespaces, io_uring and
// the terminal-typing ioctls. False, with `why` set, when it is not in force.
bool applySeccomp(std::string* why);

#if defined(ET_TEST_HOOKS)
// Reports on stderr what a confined process can still do (see Confinement.h).
void runProbe(const std::string& file);
#endif

} // namespace tool
