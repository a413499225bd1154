// GSURLFileState_posix.cpp - an item's state through POSIX calls: its dates, its folder, hidden
// and locked flags, read and written.
//
// Dates cross at millisecond precision in UTC (see GSURL.h for the rounding). Hidden is the
// name's leading dot, and the creation date cannot be set here. On Linux, statx gives the birth
// time and the immutable attribute, which is the locked flag; a file system whose statx does not
// report the attribute is asked through the FS_IOC_GETFLAGS ioctl, and FS_IOC_SETFLAGS writes
// it. Elsewhere the code falls back to lstat and "cannot tell" for the locked flag. A symbolic
// link is the item itself, never what it leads to.
#include "storage/GSURLPosix.h"

#include <cerrno>
#include <ctime>
#include <fcntl.h>
#include <string>
#include <string_view>
#include <sys/stat.h>
#include <unistd.h>

#ifdef __linux__
#include <linux/fs.h>
#include <sys/ioctl.h>
#endif

namespace {

// ---------------------------------------------------------------- dates

// floor(f * 1000 + 0.49) for the fraction f = nanoseconds / 1e9, in exact integers.
GSDate GSDateFromPlatform(long long seconds, long long nanoseconds) {
    long long milliseconds = (nanoseconds + 490000) / 1000000;
    if (milliseconds >= 1000) {
        milliseconds = 0;
        ++seconds;
    }
    GSDate date(1, 1, 1970, 0, 0, 0, static_cast<int>(milliseconds));
    date.addSeconds(static_cast<long>(seconds));
    return date;
}

// The platform time of `date` read as UTC; false when it is no calendar date the platform's
// date parser would take (years 1 to 9999, real days, no leap second), GSDate::invalid included.
bool GSPlatformFromDate(const GSDate& date, struct timespec* out) {
    if (date.year < 1 || date.year > 9999) return false;
    if (date.day < 1 || date.day > GSDate::getDaysInMonth(date.month, date.year) ||
        date.hour > 23 || date.minute > 59 || date.second > 59 || date.millisecond > 999)
        return false;
    long long seconds =
        date.getDaysSince1970() * 86400 + date.hour * 3600 + date.minute * 60 + date.second;
    out->tv_sec = static_cast<time_t>(seconds);
    out->tv_nsec = static_cast<long>(date.millisecond) * 1000000;
    return true;
}

// ---------------------------------------------------------------- item facts

// What one look at an item (never through a final symbolic link) tells.
struct GSItemFacts {
    mode_t mode = 0;
    bool hasAccess = false, hasBirth = false, hasModification = false;
    struct timespec access {};
    struct timespec birth {};
    struct timespec modification {};
    int locked = -1; // 1, 0, or -1 when the file system does not say
};

#ifdef __linux__
// The immutable attribute through the ioctl, for file systems whose statx does not report it.
// Only regular files and folders are opened (a device or a FIFO must not be), never through a
// link; -1 when it cannot be read.
int GSReadLockedByIoctl(const std::string& path, mode_t mode) {
    if (!S_ISREG(mode) && !S_ISDIR(mode)) return -1;
    int fd = ::open(path.c_str(), O_RDONLY | O_NONBLOCK | O_NOFOLLOW | O_NOCTTY | O_CLOEXEC);
    if (fd < 0) return -1;
    int attributes = 0;
    int status = ::ioctl(fd, FS_IOC_GETFLAGS, &attributes);
    ::close(fd);
    return status == 0 ? ((attributes & FS_IMMUTABLE_FL) ? 1 : 0) : -1;
}
#endif

// False (errno set) when the item cannot be reached.
bool GSReadItemFacts(const std::string& path, GSItemFacts* facts) {
#ifdef __linux__
    struct statx extended;
    if (::statx(AT_FDCWD, path.c_str(), AT_SYMLINK_NOFOLLOW | AT_NO_AUTOMOUNT,
                STATX_BASIC_STATS | STATX_BTIME, &extended) == 0) {
        auto time = [](const struct statx_timestamp& t) {
            struct timespec out {};
            out.tv_sec = static_cast<time_t>(t.tv_sec);
            out.tv_nsec = static_cast<long>(t.tv_nsec);
            return out;
        };
        facts->mode = extended.stx_mode;
        facts->hasAccess = extended.stx_mask & STATX_ATIME;
        facts->access = time(extended.stx_atime);
        facts->hasBirth = extended.stx_mask & STATX_BTIME;
        facts->birth = time(extended.stx_btime);
        facts->hasModification = extended.stx_mask & STATX_MTIME;
        facts->modification = time(extended.stx_mtime);
        if (extended.stx_attributes_mask & STATX_ATTR_IMMUTABLE)
            facts->locked = (extended.stx_attributes & STATX_ATTR_IMMUTABLE) ? 1 : 0;
        else
            facts->locked = GSReadLockedByIoctl(path, facts->mode);
        return true;
    }
    if (errno != ENOSYS) return false; // else a kernel (or sandbox) without statx
#endif
    struct stat basic;
    if (::lstat(path.c_str(), &basic) != 0) return false;
    facts->mode = basic.st_mode;
    facts->hasAccess = facts->hasModification = true;
    facts->access = basic.st_atim;
    facts->modification = basic.st_mtim;
#ifdef __linux__
    facts->locked = GSReadLockedByIoctl(path, facts->mode);
#endif
    return true;
}

// Sets or clears the immutable attribute; 0 or the errno.
int GSWriteLocked(const std::string& path, bool locked) {
#ifdef __linux__
    int fd = ::open(path.c_str(), O_RDONLY | O_NONBLOCK | O_NOFOLLOW | O_NOCTTY | O_CLOEXEC);
    if (fd < 0) return errno;
    int attributes = 0;
    int error = 0;
    if (::ioctl(fd, FS_IOC_GETFLAGS, &attributes) != 0) {
        error = errno;
    } else {
        int wanted = locked ? attributes | FS_IMMUTABLE_FL : attributes & ~FS_IMMUTABLE_FL;
        if (wanted != attributes && ::ioctl(fd, FS_IOC_SETFLAGS, &wanted) != 0) error = errno;
    }
    ::close(fd);
    return error;
#else
    (void)path;
    return locked ? ENOTSUP : 0;
#endif
}

} // namespace

short GSURLFillFileState(const void* url, GSFileState* state) {
    if (!state) return 1;
    state->valid = 0;
    GSPosixURL* item = GSURLObject(url);
    GSItemFacts facts;
    if (!item || !GSReadItemFacts(item->path, &facts)) return 1;

    // One working date, not reset between the three: a date the file system does not keep
    // (the birth time on many file systems) takes the one read before it.
    GSDate working(0);
    if (facts.hasAccess) working = GSDateFromPlatform(facts.access.tv_sec, facts.access.tv_nsec);
    state->accessDate = working;
    if (facts.hasBirth) working = GSDateFromPlatform(facts.birth.tv_sec, facts.birth.tv_nsec);
    state->creationDate = working;
    if (facts.hasModification)
        working = GSDateFromPlatform(facts.modification.tv_sec, facts.modification.tv_nsec);
    state->modificationDate = working;

    unsigned char flags = state->flags;
    // Hidden is the name's leading dot; there is no separate attribute to read.
    std::string_view name = GSLastComponent(item->path);
    if (name.front() == '.')
        flags |= GSFileState::kHidden;
    else
        flags &= ~GSFileState::kHidden;
    // No packages here: a folder is a folder.
    flags &= ~(GSFileState::kFolder | GSFileState::kPackage);
    if (S_ISDIR(facts.mode)) flags |= GSFileState::kFolder;
    if (facts.locked == 1) flags |= GSFileState::kLocked;
    if (facts.locked == 0) flags &= ~GSFileState::kLocked;
    flags &= ~GSFileState::kCleared;
    state->flags = flags;
    state->valid = 1;
    return 0;
}

short GSURLSetFileState(void* url, const GSFileState& state, GSString* detail) {
    GSPosixURL* item = GSURLObject(url);
    GSItemFacts facts;
    if (!item || !GSReadItemFacts(item->path, &facts)) return 1;
    // The creation date cannot be set on Linux, and hiddenness is the name itself: both are left
    // as they are. A date that is no calendar date is left as it is too.
    struct timespec times[2];
    bool haveAccess = GSPlatformFromDate(state.accessDate, &times[0]);
    bool haveModification = GSPlatformFromDate(state.modificationDate, &times[1]);
    if (!haveAccess) times[0].tv_nsec = UTIME_OMIT;
    if (!haveModification) times[1].tv_nsec = UTIME_OMIT;
    bool lock = (state.flags & GSFileState::kLocked) != 0;

    // An immutable item takes no new dates: it is unlocked first and locked again last.
    if (facts.locked == 1 && (!lock || haveAccess || haveModification)) {
        if (int error = GSWriteLocked(item->path, false)) {
            GSSetDetail(detail, item->path, error);
            return 1;
        }
    }
    int error = 0;
    if ((haveAccess || haveModification) &&
        ::utimensat(AT_FDCWD, item->path.c_str(), times, AT_SYMLINK_NOFOLLOW) != 0)
        error = errno;
    if (lock) {
        int lockError = GSWriteLocked(item->path, true);
        if (error == 0) error = lockError;
    }
    if (error == 0) return 0;
    GSSetDetail(detail, item->path, error);
    return 1;
}
