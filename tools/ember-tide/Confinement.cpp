// Confinement.cpp - Landlock and the seccomp filter of the confined commands.
#include "Confinement.h"

#if defined(__linux__)

#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <fcntl.h>
#include <sys/prctl.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#if defined(ET_HAVE_SECCOMP) || defined(ET_TEST_HOOKS)
#include <sched.h>
#include <sys/ioctl.h>
#endif

#if defined(ET_HAVE_SECCOMP)
#include <seccomp.h>
#endif

#if defined(ET_TEST_HOOKS)
#include <linux/io_uring.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/wait.h>
#endif

namespace tool {

namespace {

// ---------------------------------------------------------------- Landlock
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

std::string errorName(int error) {
    const char* name = ::strerrorname_np(error);
    return name ? name : "errno " + std::to_string(error);
}

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

// ---------------------------------------------------------------- seccomp
#if defined(ET_HAVE_SECCOMP)

class SeccompFilter {
public:
    SeccompFilter() : context(::seccomp_init(SCMP_ACT_ALLOW)) {}
    ~SeccompFilter() {
        if (context) ::seccomp_release(context);
    }
    SeccompFilter(const SeccompFilter&) = delete;
    SeccompFilter& operator=(const SeccompFilter&) = delete;

    scmp_filter_ctx context;
};

// A system call that this architecture does not have (fork on arm64) needs no rule.
int addRule(scmp_filter_ctx context, uint32_t action, const char* name,
            const scmp_arg_cmp* condition = nullptr) {
    int number = ::seccomp_syscall_resolve_name(name);
    if (number == __NR_SCMP_ERROR) return 0;
    return condition ? ::seccomp_rule_add(context, action, number, 1, *condition)
                     : ::seccomp_rule_add(context, action, number, 0);
}

// A call denied when (argument & mask) == value. Rules on the same call add up: any one denies.
struct MaskedRule {
    const char* name;
    unsigned argument;
    uint64_t mask, value;
};

bool applySeccomp(std::string* why) {
    SeccompFilter filter;
    if (!filter.context) {
        *why = "seccomp: cannot make a filter";
        return false;
    }
    const uint32_t deny = SCMP_ACT_ERRNO(EPERM);
    // io_uring would bring back what the rules on the calls deny (its operations make sockets,
    // connect, open files) without any of those calls being made. New namespaces would give the
    // process privileges of its own inside them.
    // clang-format off
    std::vector<const char*> denied = {
        "socket", "socketpair", "connect", "bind", "listen", "accept", "accept4",
        "fork", "vfork", "execve", "execveat",
        "io_uring_setup", "io_uring_enter", "io_uring_register",
        "unshare", "setns"};
    // clang-format on
    // The sanitizers' leak checker ptraces the process's threads from a task of its own.
    if (!kSanitizerBuild) denied.push_back("ptrace");
    int status = 0;
    for (const char* name : denied)
        if ((status = addRule(filter.context, deny, name)) != 0) break;

            // clone's flags are its first argument, except on s390 where they are its second.
#if defined(__s390__) || defined(__s390x__)
    constexpr unsigned kFlagsArgument = 1;
#else
    constexpr unsigned kFlagsArgument = 0;
#endif
    // Threads share the thread group and the address space; a new process shares neither. The
    // leak checker's task shares the address space (and can run no other program).
    const uint64_t shared = kSanitizerBuild ? CLONE_THREAD | CLONE_VM : CLONE_THREAD;
    std::vector<MaskedRule> masked = {{"clone", kFlagsArgument, shared, 0}};
    for (uint64_t flag : {CLONE_NEWUSER, CLONE_NEWNS, CLONE_NEWPID, CLONE_NEWNET, CLONE_NEWUTS,
                          CLONE_NEWIPC, CLONE_NEWCGROUP})
        masked.push_back({"clone", kFlagsArgument, flag, flag});
    // Pushing bytes into a terminal's input (TIOCSTI) or reading and pasting a console's
    // selection (TIOCLINUX) would type commands into the shell behind it. The kernel reads the
    // request as 32 bits: the mask keeps a request with high bits set from slipping past.
    for (uint64_t request : {TIOCSTI, TIOCLINUX})
        masked.push_back({"ioctl", 1, 0xFFFFFFFFu, request});
    for (const MaskedRule& rule : masked) {
        if (status != 0) break;
        // (libseccomp's SCMP_CMP macro is a C compound literal.)
        scmp_arg_cmp condition{};
        condition.arg = rule.argument;
        condition.op = SCMP_CMP_MASKED_EQ;
        condition.datum_a = rule.mask;
        condition.datum_b = rule.value;
        status = addRule(filter.context, deny, rule.name, &condition);
    }
    // clone3's flags lie in memory, out of the filter's sight: ENOSYS sends the C library back to
    // clone.
    if (status == 0) status = addRule(filter.context, SCMP_ACT_ERRNO(ENOSYS), "clone3");
    if (status != 0) {
        *why = "seccomp rule: " + errorName(-status);
        return false;
    }
    status = ::seccomp_load(filter.context);
    if (status != 0) {
        *why = "seccomp: " + errorName(-status);
        return false;
    }
    return true;
}

#else

bool applySeccomp(std::string* why) {
    *why = "seccomp: not built in";
    return false;
}

#endif

#if defined(ET_TEST_HOOKS)

// Tries what a confined process must not do, and says how each attempt ended: read `file`,
// open it for writing, create a file beside it, and the calls that the filter denies.
void runProbe(const std::string& file) {
    std::string line = "ember-tide: probe:";
    auto report = [&line](const char* what, long result) {
        line += std::string(" ") + what + "=" + (result >= 0 ? "ok" : errorName(errno));
    };
    auto closed = [](long fd) {
        if (fd >= 0) ::close(static_cast<int>(fd));
        return fd;
    };
    report("open", closed(::open(file.c_str(), O_RDONLY | O_CLOEXEC)));
    report("write", closed(::open(file.c_str(), O_WRONLY | O_CLOEXEC)));
    const size_t slash = file.rfind('/');
    const std::string created =
        (slash == std::string::npos ? "" : file.substr(0, slash + 1)) + "probe-new";
    const long fd = closed(::open(created.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0600));
    if (fd >= 0) ::unlink(created.c_str());
    report("create", fd);
    report("socket", closed(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0)));
    const pid_t child = ::fork();
    if (child == 0) ::_exit(0);
    if (child > 0) ::waitpid(child, nullptr, 0);
    report("fork", child);
    // Once set up, a ring's IORING_OP_SOCKET and IORING_OP_CONNECT would make a connection.
    io_uring_params params{};
    report("io_uring", closed(::syscall(SYS_io_uring_setup, 1, &params)));
    // With a bit above the 32 that the kernel reads: a filter that compares all 64 would pass it.
    const char typed = ' ';
    report("tiocsti", ::ioctl(STDIN_FILENO, TIOCSTI | 1ul << 32, &typed));
    char subcode = 7; // TIOCL_GETSHIFTSTATE: only reads
    report("tioclinux", ::ioctl(STDIN_FILENO, TIOCLINUX, &subcode) < 0 ? -1 : 0);
    report("unshare", ::unshare(CLONE_NEWUSER));
    // A thread in a new user namespace, which the kernel itself refuses (EINVAL): nothing can
    // start even where the filter lets the call through, and a new process is denied anyway.
    report("clone", ::syscall(SYS_clone, CLONE_NEWUSER | CLONE_THREAD | CLONE_SIGHAND | CLONE_VM, 0,
                              0, 0, 0));
    struct rlimit cpu, as;
    ::getrlimit(RLIMIT_CPU, &cpu);
    ::getrlimit(RLIMIT_AS, &as);
    auto limit = [](rlim_t value) {
        return value == RLIM_INFINITY ? std::string("none") : std::to_string(value);
    };
    std::fprintf(stderr, "%s cpu=%s as=%s\n", line.c_str(), limit(cpu.rlim_cur).c_str(),
                 limit(as.rlim_cur).c_str());
}

#endif

} // namespace

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
