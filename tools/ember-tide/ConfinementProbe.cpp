// ConfinementProbe.cpp - the test hook that shows a confinement from outside (builds with
// ET_TEST_HOOKS only, never a release build).
//
// With EMBER_TIDE_TEST_PROBE=FILE set, a confined process tries each thing it must not do and
// prints one line saying how every attempt ended, followed by its resource limits (set by
// Watchdog.cpp), so that a test can check the confinement without a debugger. The line's format
// is described in Confinement.h.
#include "ConfinementSteps.h"

#if defined(__linux__) && defined(ET_TEST_HOOKS)

#include <cerrno>
#include <cstdio>
#include <fcntl.h>
#include <linux/io_uring.h>
#include <sched.h>
#include <string>
#include <sys/ioctl.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

namespace tool {

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

} // namespace tool

#endif
