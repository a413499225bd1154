// Landlock.cpp - the file-system and network rights that a confined command keeps, through
// Landlock's system calls.
//
// Every right of the kernel's ABI is handled, so each is denied unless a rule on one of the
// Confinement's paths gives it back. The process's own needs are added to those paths here (the
// allocator's one file under /proc, and what sanitizer and coverage builds read and write), since
// a command cannot know them. A path that does not exist gets no rule; a rule the kernel refuses
// leaves Landlock unapplied rather than applied without it.
#include "ConfinementSteps.h"

#if defined(__linux__)

#include <cerrno>
#include <cstdint>
#include <cstdlib>
#include <fcntl.h>
#include <string>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>
#include <vector>

namespace tool {

namespace {

// The kernel headers of Debian 12 (Linux 6.1) know Landlock's first two ABI versions only: the
// system call numbers (the same on every architecture), the structures and the rights are spelled
// out here as the kernel defines them.
#if !defined(SYS_landlock_create_ruleset)
constexpr long SYS_landlock_create_ruleset = 444;
constexpr long SYS_landlock_add_rule = 445;
constexpr long SYS_landlock_restrict_self = 446;
#endif

constexpr unsigned kLandlockCreateRulesetVersion = 1u << 0;
constexpr int kLandlockRulePathBeneath = 1;

// A ruleset as the kernel reads it: the kernel takes as many bytes as its ABI knows fields
// (8 up to ABI 3, 16 with network rights from ABI 4, 24 with scopes from ABI 6).
struct LandlockRulesetAttr {
    uint64_t handledAccessFS;
    uint64_t handledAccessNet;
    uint64_t scoped;
};

struct __attribute__((packed)) LandlockPathBeneathAttr {
    uint64_t allowedAccess;
    int32_t parentFd;
};

enum : uint64_t {
    kFSExecute = 1ull << 0,
    kFSWriteFile = 1ull << 1,
    kFSReadFile = 1ull << 2,
    kFSReadDir = 1ull << 3,
    kFSRemoveDir = 1ull << 4,
    kFSRemoveFile = 1ull << 5,
    kFSMakeChar = 1ull << 6,
    kFSMakeDir = 1ull << 7,
    kFSMakeReg = 1ull << 8,
    kFSMakeSock = 1ull << 9,
    kFSMakeFifo = 1ull << 10,
    kFSMakeBlock = 1ull << 11,
    kFSMakeSym = 1ull << 12,
    kFSRefer = 1ull << 13,    // ABI 2: moves and links between folders
    kFSTruncate = 1ull << 14, // ABI 3
    kFSIoctlDev = 1ull << 15, // ABI 5
    // The rights that a rule on a file (not a folder) may carry.
    kFSFileRights = kFSExecute | kFSWriteFile | kFSReadFile | kFSTruncate | kFSIoctlDev,
};
enum : uint64_t { kNetBindTCP = 1ull << 0, kNetConnectTCP = 1ull << 1 };            // ABI 4
enum : uint64_t { kScopeAbstractUnixSocket = 1ull << 0, kScopeSignal = 1ull << 1 }; // ABI 6

// Every file-system right that the ABI knows: all are denied unless a rule gives them back.
uint64_t handledFSRights(int abi) {
    uint64_t rights = (kFSMakeSym << 1) - 1; // ABI 1: execute to make-symlink
    if (abi >= 2) rights |= kFSRefer;
    if (abi >= 3) rights |= kFSTruncate;
    if (abi >= 5) rights |= kFSIoctlDev;
    return rights;
}

uint64_t landlockRights(unsigned access) {
    uint64_t rights = 0;
    if (access & kReadFiles) rights |= kFSReadFile;
    if (access & kListFolders) rights |= kFSReadDir;
    // A rename within a folder is a removal and a creation there; REFER (moves between
    // folders) stays denied.
    if (access & kWriteFiles) rights |= kFSWriteFile | kFSTruncate | kFSMakeReg | kFSRemoveFile;
    if (access & kMakeFolders) rights |= kFSMakeDir;
    return rights;
}

// A descriptor that closes itself.
class FileDescriptor {
public:
    explicit FileDescriptor(int fd) : fd(fd) {}
    ~FileDescriptor() {
        if (fd >= 0) ::close(fd);
    }
    FileDescriptor(const FileDescriptor&) = delete;
    FileDescriptor& operator=(const FileDescriptor&) = delete;
    int get() const { return fd; }

private:
    int fd;
};

} // namespace

// Returns the ABI version applied, or 0 with `why` set.
int applyLandlock(const Confinement& confinement, std::string* why) {
    long abi = ::syscall(SYS_landlock_create_ruleset, nullptr, 0, kLandlockCreateRulesetVersion);
    if (abi < 1) {
        *why = "Landlock: " + errorName(errno);
        return 0;
    }
    LandlockRulesetAttr attr{};
    attr.handledAccessFS = handledFSRights(static_cast<int>(abi));
    size_t attrSize = sizeof attr.handledAccessFS;
    if (abi >= 4) {
        // No rule gives TCP back: binding and connecting are denied (sockets are refused by the
        // filter as well; this holds where the filter cannot be loaded).
        attr.handledAccessNet = kNetBindTCP | kNetConnectTCP;
        attrSize += sizeof attr.handledAccessNet;
    }
    if (abi >= 6) {
        // No connecting to abstract sockets or signalling processes outside this domain.
        attr.scoped = kScopeAbstractUnixSocket | kScopeSignal;
        attrSize += sizeof attr.scoped;
    }
    FileDescriptor ruleset(
        static_cast<int>(::syscall(SYS_landlock_create_ruleset, &attr, attrSize, 0u)));
    if (ruleset.get() < 0) {
        *why = "Landlock ruleset: " + errorName(errno);
        return 0;
    }

    std::vector<ConfinedPath> paths = confinement.paths;
    // The C library's allocator reads this once, when a thread's heap first shrinks.
    paths.push_back({"/proc/sys/vm/overcommit_memory", kReadFiles});
    if (kSanitizerBuild) {
        // The sanitizers read /proc/self (maps, task) at exit, where the leak checker stops the
        // threads, and when they report; and the program's own file to symbolise a report.
        paths.push_back({"/proc", kReadFiles | kListFolders});
        paths.push_back({"/proc/self/exe", kReadFiles});
    }
#if defined(ET_COVERAGE)
    // A coverage build writes its counts (.gcda files) at exit, beneath its build folder or
    // beneath GCOV_PREFIX when that is set, creating the folders they go in: without these
    // rights every confined command would show as never run. Such builds measure the tests and
    // are never shipped.
    const char* prefix = std::getenv("GCOV_PREFIX");
    for (const char* counts : {ET_COVERAGE_DIR, prefix})
        if (counts && *counts) paths.push_back({counts, kReadFiles | kWriteFiles | kMakeFolders});
#endif
    for (const ConfinedPath& path : paths) {
        FileDescriptor fd(::open(path.path.c_str(), O_PATH | O_CLOEXEC));
        struct stat st;
        if (fd.get() < 0 || ::fstat(fd.get(), &st) != 0) continue; // nothing there to allow
        LandlockPathBeneathAttr rule{};
        rule.allowedAccess = landlockRights(path.access) & attr.handledAccessFS;
        if (!S_ISDIR(st.st_mode)) rule.allowedAccess &= kFSFileRights;
        rule.parentFd = fd.get();
        if (rule.allowedAccess == 0) continue;
        if (::syscall(SYS_landlock_add_rule, ruleset.get(), kLandlockRulePathBeneath, &rule, 0u) !=
            0) {
            // Restricting without this rule would break the command itself.
            *why = "Landlock rule for " + path.path + ": " + errorName(errno);
            return 0;
        }
    }
    if (::syscall(SYS_landlock_restrict_self, ruleset.get(), 0u) != 0) {
        *why = "Landlock: " + errorName(errno);
        return 0;
    }
    return static_cast<int>(abi);
}

} // namespace tool

#endif
