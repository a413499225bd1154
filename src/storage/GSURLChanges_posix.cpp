// GSURLChanges_posix.cpp - the changes to the disk through POSIX calls: rename without replace,
// replace, move and remove.
//
// Linux's renameat2 does a move that refuses to replace (RENAME_NOREPLACE) and a replacement
// that swaps two names in one step (RENAME_EXCHANGE). Where the kernel or the file system lacks
// them, or GSURLAllowRenameFlags turned them off, the same results come from link/rename
// sequences, each written so that a failure leaves the items as they were. Removal walks a
// folder by descriptors and never follows a symbolic link out of the tree.
#include "storage/GSURLPosix.h"

#include <atomic>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <dirent.h>
#include <fcntl.h>
#include <string>
#include <sys/stat.h>
#include <unistd.h>
#include <vector>

namespace {

// Whether renameat2's flags may be tried (GSURLAllowRenameFlags).
std::atomic<bool> gsRenameFlags{true};

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

void GSURLAllowRenameFlags(bool allowed) {
    gsRenameFlags = allowed;
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
            if (oldFacts.st_uid != nextFacts.st_uid || oldFacts.st_gid != nextFacts.st_gid) {
                // A refusal (another user's file) leaves the new item's owner. glibc's fortified
                // headers want the result looked at, which a cast to void does not do.
                if (::lchown(next->path.c_str(), oldFacts.st_uid, oldFacts.st_gid) != 0) {
                }
            }
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
