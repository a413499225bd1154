// Confinement.h - what `ember-tide thumbnail` and `ember-tide cache` give up before they parse a
// stranger's file: every path but the few they need, sockets, new processes and programs.
//
// Two Linux mechanisms, applied in this order by confineProcess():
//   1. Landlock: the process keeps only the file-system rights listed in a Confinement (read one
//      file, read the trees given, write in one folder...); descriptors opened before keep
//      theirs, which is how `thumbnail` writes OUT with no write right anywhere. The ABI version
//      that the kernel reports decides which rights exist and are handled; a right that this
//      kernel does not know is simply not handled by it. TCP bind and connect are denied too.
//   2. A seccomp filter (libseccomp), whose default is to allow: socket, socketpair, connect,
//      bind, listen and accept fail with EPERM; so do fork, vfork and clone without CLONE_THREAD
//      (threads stay possible), clone with a new-namespace flag, unshare, setns, execve,
//      execveat, ptrace, io_uring's three calls, and ioctl's TIOCSTI and TIOCLINUX. clone3
//      answers ENOSYS: its flags lie in memory where a filter cannot read them, and the C
//      library then falls back to clone, whose flags the filter does see.
// Both need no privileges once PR_SET_NO_NEW_PRIVS is set, which comes first. On a kernel
// without either mechanism (or inside a sandbox that hides them) the command carries on without
// it, silently unless EMBER_TIDE_DEBUG_CONFINEMENT is set in the environment, which prints what
// was applied and why not. Confinement cannot be undone and is inherited by every thread, so it
// is applied after everything that must be opened by name is open (libraries are loaded at start;
// the time zone is read here) and before the first thread is started: Landlock binds the calling
// thread only.
//
// Process confinement is a concern of the Linux command-line tool, not of the library: it lives
// here, beside the commands, and builds to nothing on other systems (macOS sandboxes its
// thumbnail extension through its entitlements).
//
// Builds with ET_TEST_HOOKS (never a release build) honour EMBER_TIDE_TEST_PROBE=FILE: right
// after confinement the process tries to read FILE, to open it for writing, to create a file
// beside it, and each denied call (socket, fork, io_uring_setup, ioctl TIOCSTI and TIOCLINUX on
// stdin, unshare and clone with CLONE_NEWUSER), and reports on stderr
// "ember-tide: probe: open=ok write=EACCES ... cpu=N as=N" (an errno name, or ok, for each,
// then its resource limits), so that a test can see the confinement from outside.
#pragma once

#include <string>
#include <vector>

namespace tool {

// Whether this build runs under AddressSanitizer, whose runtime needs more than a confined
// process keeps (and terabytes of address space). Such builds are for tests, never shipped.
#if defined(__SANITIZE_ADDRESS__)
inline constexpr bool kSanitizerBuild = true;
#elif defined(__has_feature)
#if __has_feature(address_sanitizer)
inline constexpr bool kSanitizerBuild = true;
#else
inline constexpr bool kSanitizerBuild = false;
#endif
#else
inline constexpr bool kSanitizerBuild = false;
#endif

// The rights kept on one path (and, for a folder, on everything beneath it).
enum ConfinedAccess : unsigned {
    kReadFiles = 1u << 0,   // open files for reading
    kListFolders = 1u << 1, // open folders and list them
    kWriteFiles = 1u << 2,  // create files, write, truncate, rename within and remove them
    kMakeFolders = 1u << 3, // create folders
};

struct ConfinedPath {
    std::string path; // a file or a folder; a path that does not exist is left out
    unsigned access;  // ConfinedAccess bits; on a file only kReadFiles and kWriteFiles count
};

struct Confinement {
    std::vector<ConfinedPath> paths;
};

// What confineProcess() managed to apply.
struct ConfinementResult {
    int landlockABI = 0;    // the kernel's Landlock ABI version; 0 when not applied
    bool seccomp = false;   // whether the filter is in force
    std::string notApplied; // why not (empty when both are in force)
};

// Confines the calling process for good. Call it before any thread exists. Never fails: what
// the kernel cannot do is left undone (see the result).
ConfinementResult confineProcess(const Confinement& confinement);

} // namespace tool
