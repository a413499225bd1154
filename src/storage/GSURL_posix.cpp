// GSURL_posix.cpp - the file-system layer over POSIX calls (Linux and other non-Apple systems).
//
// A handle is a GSPosixURL: an absolute path, lexically tidied (no empty or "." components, no
// trailing "/"; ".." is kept, since only the disk knows what it means past a symbolic link),
// whether it was named as a folder, and an atomic reference count, so that handles may be shared
// by holders on several threads. A URL string ("file://...") is percent-decoded into such a path;
// a handle never needs to be turned back into one.
//
// The calls beyond POSIX are Linux's: statx (birth time, the immutable attribute), renameat2
// (exchange, no-replace) and the FS_IOC_GETFLAGS/SETFLAGS ioctls. Elsewhere the code falls back
// to lstat, link/rename sequences and "cannot tell" for the locked flag.
#include "GSURL.h"

#include <atomic>
#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstring>
#include <dirent.h>
#include <fcntl.h>
#include <new>
#include <string>
#include <string_view>
#include <sys/stat.h>
#include <unistd.h>
#include <vector>

#ifdef __linux__
#include <linux/fs.h>
#include <sys/ioctl.h>
#endif

namespace {

// Marks a live GSPosixURL. Checking it is the counterpart of asking a Foundation object for its
// class: it turns a handle of another kind, or one already freed, into "no URL" in practice; it
// cannot make reading through a wild pointer safe.
constexpr unsigned kURLMagic = 0x4753524Cu;

struct GSPosixURL {
    unsigned magic = kURLMagic;
    std::atomic<long> references{1};
    std::string path;       // absolute and tidy; "/" for the root
    bool directory = false; // named as a folder
};

GSPosixURL* GSURLObject(const void* url) {
    auto* object = static_cast<GSPosixURL*>(const_cast<void*>(url));
    return object && object->magic == kURLMagic ? object : nullptr;
}

// A new handle for the caller, or null when memory runs out.
void* GSURLHandOut(std::string path, bool directory) {
    auto* url = new (std::nothrow) GSPosixURL;
    if (!url) return nullptr;
    url->path = std::move(path);
    url->directory = directory || url->path == "/";
    return url;
}

// Runs `body`, turning an exception (memory running out inside std::string) into `failure`:
// nothing of this layer throws.
template <class Result, class Body> Result GSGuarded(Result failure, Body&& body) noexcept {
    try {
        return body();
    } catch (...) {
        return failure;
    }
}

std::atomic<bool> gsRenameFlags{true};

// ---------------------------------------------------------------- texts

// The bytes of `text` as the file system takes them: UTF-8 as it stands, Windows Latin 1 and
// every other tag (read as Mac Roman, as on Apple platforms) converted to UTF-8. False for a
// text with a NUL in it, which no path can hold.
bool GSPlatformBytes(const GSString& text, std::string* out) {
    GSString copy(text);
    unsigned char tag = copy.getEncoding();
    if (tag != GSString::kUTF8) {
        copy.setEncoding(tag == GSString::kWindows ? GSString::kWindows : GSString::kMac);
        copy.convertEncoding(GSString::kUTF8);
    }
    const char* bytes = copy.getConstAddr();
    out->assign(bytes ? bytes : "", bytes ? static_cast<size_t>(copy.getLength()) : 0);
    return out->find('\0') == std::string::npos;
}

// The framework's string from file-system bytes, tagged UTF-8 as they are; null when empty.
GSString GSStringFromPlatform(std::string_view bytes) {
    if (bytes.empty()) return GSString();
    return GSString(bytes.data(), static_cast<long>(bytes.size()), GSString::kUTF8);
}

// The platform's error text for `error` on `path`.
void GSSetDetail(GSString* detail, const std::string& path, int error) {
    if (!detail) return;
    std::string text = path + ": " + std::strerror(error);
    *detail = GSStringFromPlatform(text);
}

// ---------------------------------------------------------------- paths

// Appends the components of `raw` to `path` (absolute and tidy), dropping empty and "."
// components.
void GSAppendComponents(std::string* path, std::string_view raw) {
    while (!raw.empty()) {
        size_t slash = raw.find('/');
        std::string_view component = raw.substr(0, slash);
        raw = slash == std::string_view::npos ? std::string_view() : raw.substr(slash + 1);
        if (component.empty() || component == ".") continue;
        if (path->back() != '/') path->push_back('/');
        path->append(component);
    }
}

// `raw` made absolute (relative to the current folder) and tidy; empty when the current folder
// cannot be had.
std::string GSTidyPath(std::string_view raw) {
    std::string path = "/";
    if (raw.empty() || raw.front() != '/') {
        std::vector<char> buffer(PATH_MAX);
        while (!::getcwd(buffer.data(), buffer.size())) {
            if (errno != ERANGE || buffer.size() > (1u << 20)) return std::string();
            buffer.resize(buffer.size() * 2);
        }
        GSAppendComponents(&path, buffer.data());
    }
    GSAppendComponents(&path, raw);
    return path;
}

// The folder holding `path` ("/" for the root itself, as ".." of the root is the root).
std::string GSParentPath(const std::string& path) {
    size_t slash = path.rfind('/');
    return slash == 0 || slash == std::string::npos ? std::string("/") : path.substr(0, slash);
}

std::string_view GSLastComponent(const std::string& path) {
    if (path == "/") return path;
    return std::string_view(path).substr(path.rfind('/') + 1);
}

bool GSIsFolderOnDisk(const std::string& path) {
    struct stat facts;
    return ::stat(path.c_str(), &facts) == 0 && S_ISDIR(facts.st_mode);
}

int GSHexValue(char c) {
    if (c >= '0' && c <= '9') return c - '0';
    if (c >= 'a' && c <= 'f') return c - 'a' + 10;
    if (c >= 'A' && c <= 'F') return c - 'A' + 10;
    return -1;
}

// The local path of a "file://" URL string, percent-decoded; false for another host, a
// malformed escape, or a NUL. The query and fragment ("?", "#") are not part of the path: a
// "#" in a file name is written "%23". Bytes that a strict URL would escape (spaces,
// non-ASCII) are taken as they stand.
bool GSPathFromURLString(std::string_view text, std::string* path, bool* directory) {
    text.remove_prefix(7); // "file://"
    size_t slash = text.find('/');
    if (slash == std::string_view::npos) return false;
    std::string_view host = text.substr(0, slash);
    if (!host.empty() && host != "localhost") return false;
    text = text.substr(slash);
    text = text.substr(0, text.find_first_of("?#"));
    std::string decoded;
    for (size_t i = 0; i < text.size(); ++i) {
        char c = text[i];
        if (c == '%') {
            int high = i + 2 < text.size() ? GSHexValue(text[i + 1]) : -1;
            int low = i + 2 < text.size() ? GSHexValue(text[i + 2]) : -1;
            if (high < 0 || low < 0) return false;
            c = static_cast<char>(high * 16 + low);
            if (c == 0) return false;
            i += 2;
        }
        decoded.push_back(c);
    }
    *directory = decoded.back() == '/';
    *path = GSTidyPath(decoded);
    return true;
}

// `path` with its symbolic links resolved as far as the disk answers: components that do not
// exist are kept as they stand (".." among them applied to the text). A loop of links or a
// target too long to read leaves the path as it was.
std::string GSResolveSymlinks(const std::string& path) {
    std::vector<std::string> pending; // components still to walk, the next one last
    auto push = [&pending](std::string_view raw) {
        std::vector<std::string> parts;
        while (!raw.empty()) {
            size_t slash = raw.find('/');
            if (slash != 0) parts.emplace_back(raw.substr(0, slash));
            raw = slash == std::string_view::npos ? std::string_view() : raw.substr(slash + 1);
        }
        pending.insert(pending.end(), parts.rbegin(), parts.rend());
    };
    push(path);
    std::string done;   // resolved so far, without links; empty for the root
    bool exists = true; // false once a component is missing: the rest is text only
    int links = 0;
    std::vector<char> target(PATH_MAX + 1);
    while (!pending.empty()) {
        std::string component = std::move(pending.back());
        pending.pop_back();
        if (component == ".") continue;
        if (component == "..") {
            size_t slash = done.rfind('/');
            done.erase(slash == std::string::npos ? 0 : slash);
            continue;
        }
        std::string candidate = done + "/" + component;
        if (exists) {
            ssize_t n = ::readlink(candidate.c_str(), target.data(), target.size());
            if (n >= 0) {
                if (static_cast<size_t>(n) >= target.size() || ++links > 40) return path;
                std::string_view link(target.data(), static_cast<size_t>(n));
                if (!link.empty() && link.front() == '/') done.clear();
                push(link);
                continue;
            }
            if (errno != EINVAL) exists = false; // EINVAL: there, and not a link
        }
        done = std::move(candidate);
    }
    return done.empty() ? std::string("/") : done;
}

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

// ---------------------------------------------------------------- changing the disk

// Deletes `name` in the folder `parent` (a descriptor, or AT_FDCWD), a folder with everything
// in it. A folder is opened relative to its parent with O_NOFOLLOW, so a folder swapped for a
// link while we work is never followed out of the tree. 0, or the errno with the failing path.
int GSRemoveItemAt(int parent, const std::string& name, const std::string& path,
                   std::string* failed) {
    *failed = path;
    struct stat facts;
    if (::fstatat(parent, name.c_str(), &facts, AT_SYMLINK_NOFOLLOW) != 0) return errno;
    if (!S_ISDIR(facts.st_mode)) return ::unlinkat(parent, name.c_str(), 0) == 0 ? 0 : errno;

    int fd = ::openat(parent, name.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC);
    if (fd < 0) return errno;
    DIR* folder = ::fdopendir(fd);
    if (!folder) {
        int error = errno;
        ::close(fd);
        return error;
    }
    // The names are read in full first: entries removed during a listing may make it skip.
    std::vector<std::string> names;
    errno = 0;
    while (struct dirent* entry = ::readdir(folder)) {
        if (std::strcmp(entry->d_name, ".") != 0 && std::strcmp(entry->d_name, "..") != 0)
            names.emplace_back(entry->d_name);
    }
    int error = errno;
    for (size_t i = 0; error == 0 && i < names.size(); ++i)
        error = GSRemoveItemAt(::dirfd(folder), names[i], path + "/" + names[i], failed);
    ::closedir(folder);
    if (error != 0) return error;
    *failed = path;
    return ::unlinkat(parent, name.c_str(), AT_REMOVEDIR) == 0 ? 0 : errno;
}

// Renames `from` to `to`, failing when `to` exists. 0 or the errno.
int GSRenameNoReplace(const std::string& from, const std::string& to) {
#ifdef __linux__
    if (gsRenameFlags) {
        if (::renameat2(AT_FDCWD, from.c_str(), AT_FDCWD, to.c_str(), RENAME_NOREPLACE) == 0)
            return 0;
        if (errno != EINVAL && errno != ENOSYS) return errno;
    }
#endif
    // Without RENAME_NOREPLACE: a hard link at the new name fails at once when the name is
    // taken; then the old name goes. An item that cannot be linked (a folder, a file system
    // without hard links) is renamed after a check that the name is free, which another
    // process could still beat.
    if (::link(from.c_str(), to.c_str()) == 0) {
        if (::unlink(from.c_str()) == 0) return 0;
        int error = errno;
        ::unlink(to.c_str());
        return error;
    }
    if (errno == EEXIST) return EEXIST;
    struct stat facts;
    if (::lstat(to.c_str(), &facts) == 0) return EEXIST;
    if (errno != ENOENT) return errno;
    return ::rename(from.c_str(), to.c_str()) == 0 ? 0 : errno;
}

// A name beside `path` that is free now, for holding an item during a replacement.
std::string GSFreeNameBeside(const std::string& path) {
    std::string folder = GSParentPath(path);
    if (folder != "/") folder += "/";
    for (unsigned i = 0;; ++i) {
        std::string candidate =
            folder + ".gs-replaced-" + std::to_string(::getpid()) + "-" + std::to_string(i);
        struct stat facts;
        if (::lstat(candidate.c_str(), &facts) != 0 && errno == ENOENT) return candidate;
    }
}

// The replacement without the one-step exchange. At every instant the target's name holds
// either the old or the new item wherever a file can be linked: the old file is first linked
// under the backup name, then rename() puts the new one in place in one step. A folder (or a
// file system without hard links) is moved aside and the new item moved in: two renames, with
// a moment in which the target's name is free. A failure of the second step moves the old item
// back.
int GSReplaceBySteps(const std::string& target, const std::string& replacement,
                     const std::string& backup, bool folders, std::string* failed) {
    *failed = target;
    if (!folders && backup.empty())
        return ::rename(replacement.c_str(), target.c_str()) == 0 ? 0 : errno;
    if (!folders) {
        int status = ::link(target.c_str(), backup.c_str());
        if (status != 0 && errno == EEXIST && ::unlink(backup.c_str()) == 0)
            status = ::link(target.c_str(), backup.c_str());
        if (status == 0) {
            if (::rename(replacement.c_str(), target.c_str()) == 0) return 0;
            int error = errno;
            ::unlink(backup.c_str());
            return error;
        }
        if (errno != EPERM && errno != EOPNOTSUPP && errno != EMLINK) {
            *failed = backup;
            return errno;
        }
    }
    std::string hold = backup.empty() ? GSFreeNameBeside(target) : backup;
    if (::rename(target.c_str(), hold.c_str()) != 0) return errno;
    if (::rename(replacement.c_str(), target.c_str()) != 0) {
        int error = errno;
        ::rename(hold.c_str(), target.c_str());
        return error;
    }
    if (backup.empty()) return GSRemoveItemAt(AT_FDCWD, hold, hold, failed);
    return 0;
}

} // namespace

// ---------------------------------------------------------------- reference counts

void GSIdRetain(const void* object) {
    if (GSPosixURL* url = GSURLObject(object))
        url->references.fetch_add(1, std::memory_order_relaxed);
}

void GSIdRelease(const void* object) {
    GSPosixURL* url = GSURLObject(object);
    if (url && url->references.fetch_sub(1, std::memory_order_acq_rel) == 1) {
        url->magic = 0;
        delete url;
    }
}

long GSIdGetRetainCount(const void* object) {
    GSPosixURL* url = GSURLObject(object);
    return url ? url->references.load(std::memory_order_relaxed) : 0;
}

void GSURLAllowRenameFlags(bool allowed) {
    gsRenameFlags = allowed;
}

// ---------------------------------------------------------------- URLs

void* GSURLCreateWithFilePath(const GSString& path, short isDirectory, short resolveFolder) {
    return GSGuarded<void*>(nullptr, [&]() -> void* {
        if (path.isEmpty()) return nullptr;
        std::string bytes;
        if (!GSPlatformBytes(path, &bytes)) return nullptr;
        std::string tidy;
        bool directory = false;
        if (bytes.compare(0, 7, "file://") == 0) {
            if (!GSPathFromURLString(bytes, &tidy, &directory)) return nullptr;
        } else {
            directory = isDirectory == 1 || bytes.back() == '/';
            tidy = GSTidyPath(bytes);
        }
        if (tidy.empty()) return nullptr;
        if (resolveFolder && tidy != "/") {
            // Only the folder is resolved: a link in the last place stays the item it is.
            std::string folder = GSResolveSymlinks(GSParentPath(tidy));
            std::string last(GSLastComponent(tidy));
            tidy = GSTidyPath(folder);
            GSAppendComponents(&tidy, last);
        }
        return GSURLHandOut(std::move(tidy), directory);
    });
}

void* GSURLCreateByAppending(const void* url, const GSString& component) {
    return GSGuarded<void*>(nullptr, [&]() -> void* {
        GSPosixURL* base = GSURLObject(url);
        std::string bytes;
        if (!base || component.isEmpty() || !GSPlatformBytes(component, &bytes)) return nullptr;
        std::string path = base->path;
        GSAppendComponents(&path, bytes);
        // As Foundation does, the disk decides whether a component without a trailing "/"
        // names a folder.
        bool directory = bytes.back() == '/' || GSIsFolderOnDisk(path);
        return GSURLHandOut(std::move(path), directory);
    });
}

void* GSURLCreateByDeletingLastPathComponent(void* url) {
    return GSGuarded<void*>(nullptr, [&]() -> void* {
        GSPosixURL* base = GSURLObject(url);
        return base ? GSURLHandOut(GSParentPath(base->path), true) : nullptr;
    });
}

void* GSURLCreateParentURL(void* url) {
    GSPosixURL* base = GSURLObject(url);
    if (!base || base->path == "/") return nullptr;
    return GSURLCreateByDeletingLastPathComponent(url);
}

short GSURLIsRoot(const void* url) {
    GSPosixURL* base = GSURLObject(url);
    return base && base->path == "/" ? 1 : 0;
}

GSString GSURLGetPathname(const void* url) {
    GSPosixURL* base = GSURLObject(url);
    if (!base || base->path == "/") return GSString(); // "/" less its trailing "/"
    return GSStringFromPlatform(base->path);
}

GSString GSURLGetLastPathComponent(const void* url) {
    GSPosixURL* base = GSURLObject(url);
    return base ? GSStringFromPlatform(GSLastComponent(base->path)) : GSString();
}

short GSURLIsEqual(const void* a, const void* b) {
    GSPosixURL* first = GSURLObject(a);
    GSPosixURL* second = GSURLObject(b);
    if (!first || !second) return !first && !second ? 1 : 0;
    return first->path == second->path && first->directory == second->directory ? 1 : 0;
}

// ---------------------------------------------------------------- items

short GSURLResolveLinkOrAlias(const void* url, int options, GSIdPointer* resolved,
                              short* isFolder) {
    // `options` asks how alias files are resolved (without mounting, without user interface).
    // Alias files exist only on Apple platforms; here only symbolic links are resolved.
    (void)options;
    GSPosixURL* start = GSURLObject(url);
    if (!start) return 1;
    if (resolved) *resolved = nullptr;
    return GSGuarded<short>(0, [&]() -> short {
        std::string path = GSResolveSymlinks(start->path);
        if (path == start->path) return 0; // not a link, nor inside one
        bool folder = GSIsFolderOnDisk(path);
        if (resolved) *resolved = GSURLHandOut(path, folder || start->directory);
        if (isFolder) *isFolder = folder ? 1 : 0;
        return 0;
    });
}

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

short GSURLReplaceWithURL(void* target, void* replacement, const GSString& backupName,
                          GSString* detail) {
    GSPosixURL* old = GSURLObject(target);
    GSPosixURL* next = GSURLObject(replacement);
    if (!old || !next) return 1;
    return GSGuarded<short>(1, [&]() -> short {
        const std::string& path = old->path;
        struct stat oldFacts, nextFacts;
        if (::lstat(path.c_str(), &oldFacts) != 0) {
            GSSetDetail(detail, path, errno);
            return 1;
        }
        if (::lstat(next->path.c_str(), &nextFacts) != 0) {
            GSSetDetail(detail, next->path, errno);
            return 1;
        }
        if (path == next->path) {
            GSSetDetail(detail, path, EINVAL);
            return 1;
        }
        std::string backup;
        if (!backupName.isEmpty()) {
            std::string name;
            if (!GSPlatformBytes(backupName, &name) || name.find('/') != std::string::npos ||
                name == "." || name == "..") {
                GSSetDetail(detail, path, EINVAL);
                return 1;
            }
            backup = GSParentPath(path);
            GSAppendComponents(&backup, name);
        }
        // The new item takes the old one's owner and permissions, as a replacement on Apple
        // platforms keeps the original's metadata; the owner only where we may give it. The
        // creation date cannot be carried over on Linux.
        bool sameKind = (oldFacts.st_mode & S_IFMT) == (nextFacts.st_mode & S_IFMT);
        if (sameKind && (S_ISREG(oldFacts.st_mode) || S_ISDIR(oldFacts.st_mode))) {
            if (oldFacts.st_uid != nextFacts.st_uid || oldFacts.st_gid != nextFacts.st_gid)
                (void)::lchown(next->path.c_str(), oldFacts.st_uid, oldFacts.st_gid);
            (void)::chmod(next->path.c_str(), oldFacts.st_mode & 07777);
        }

        std::string failed = path;
        int error = 0;
        bool exchanged = false;
#ifdef __linux__
        // One step: the two names swap their items, so the target's name always holds an item
        // and the old one is then at the replacement's name, to be kept or deleted.
        if (gsRenameFlags) {
            if (::renameat2(AT_FDCWD, next->path.c_str(), AT_FDCWD, path.c_str(),
                            RENAME_EXCHANGE) == 0)
                exchanged = true;
            else if (errno != EINVAL && errno != ENOSYS)
                error = errno;
        }
#endif
        if (exchanged) {
            if (backup.empty())
                error = GSRemoveItemAt(AT_FDCWD, next->path, next->path, &failed);
            else if (backup != next->path && ::rename(next->path.c_str(), backup.c_str()) != 0) {
                error = errno;
                failed = backup;
            }
        } else if (error == 0) {
            // No exchange on this file system (EINVAL/ENOSYS) or not allowed: see
            // GSReplaceBySteps for what stays safe.
            bool folders = S_ISDIR(oldFacts.st_mode) || S_ISDIR(nextFacts.st_mode);
            error = GSReplaceBySteps(path, next->path, backup, folders, &failed);
        }
        if (error == 0) return 0;
        GSSetDetail(detail, failed, error);
        return 1;
    });
}

short GSURLMoveToURL(void* from, void* to, GSString* detail) {
    GSPosixURL* source = GSURLObject(from);
    GSPosixURL* destination = GSURLObject(to);
    if (!source || !destination) return 1;
    return GSGuarded<short>(1, [&]() -> short {
        // Across file systems the move fails (EXDEV): nothing here copies.
        int error = GSRenameNoReplace(source->path, destination->path);
        if (error == 0) return 0;
        GSSetDetail(detail, error == EEXIST ? destination->path : source->path, error);
        return 1;
    });
}

short GSURLRemove(void* url, GSString* detail) {
    GSPosixURL* item = GSURLObject(url);
    if (!item) return 1;
    return GSGuarded<short>(1, [&]() -> short {
        std::string failed;
        int error = GSRemoveItemAt(AT_FDCWD, item->path, item->path, &failed);
        if (error == 0) return 0;
        GSSetDetail(detail, failed, error);
        return 1;
    });
}
