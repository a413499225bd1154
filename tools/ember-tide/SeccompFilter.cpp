// SeccompFilter.cpp - the seccomp filter of a confined command, built with libseccomp.
//
// The filter allows by default and denies what a thumbnailer never needs and an attacker would
// want: sockets, new processes and programs, namespaces, ptrace, io_uring, and the ioctls that
// type into a terminal. Threads stay possible, since `cache` starts its workers after the
// filter is in force. Builds without libseccomp (ET_HAVE_SECCOMP unset) apply no filter and
// say so.
#include "ConfinementSteps.h"

#if defined(__linux__)

#if defined(ET_HAVE_SECCOMP)
#include <cerrno>
#include <cstdint>
#include <sched.h>
#include <seccomp.h>
#include <sys/ioctl.h>
#include <vector>
#endif

namespace tool {

#if defined(ET_HAVE_SECCOMP)

namespace {

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

} // namespace

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

} // namespace tool

#endif
