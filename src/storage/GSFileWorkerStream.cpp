// GSFileWorkerStream.cpp - the stdio-backed file worker and its safe-save protocol.
//
// A safe save, step by step:
//   _open:  the target is left alone; a hidden temporary file beside it is created and written.
//   _close: the stream is flushed, synced and closed; if everything was written, the temporary
//           file and the target are exchanged in one platform step and the folder is synced.
//           With a backup wanted the old content now lies under the temporary name and is
//           renamed to the backup name (deleted if no name can be freed). On any failure before
//           the exchange the temporary file is deleted and the target is as it was.
// Failures are logged (GSLog) and, where a user would need to know, reported as numbered
// messages through GSFileSpec::sendErrorMessage: 49703 a file could not be deleted, 49705 the
// old content could not be moved to its backup name, 49713 the target is locked.
#include "storage/GSFileWorkerStream.h"

#include "fileformat/GSFormatNumbers.h"
#include "objects/GSNumericStringTable.h"
#include "storage/GSFileState.h"
#include "storage/GSFileWorkerStreamIO.h"
#include "text/GSLog.h"

#include <cerrno>
#include <cstdio>
#include <fcntl.h>
#include <sys/stat.h>
#include <sys/types.h>
#include <unistd.h>

namespace {

enum : int {
    kMessageCannotDelete = 49703,
    kMessageCannotKeepBackup = 49705,
    kMessageLocked = 49713,
};

// The texts of the numbered messages, entered into the numeric string table at start-up (the
// table is only read afterwards).
const bool gsMessagesRegistered = [] {
    GSString::_numericStringTable.setValue(kMessageCannotDelete,
                                           GSString("The file could not be deleted."));
    GSString::_numericStringTable.setValue(
        kMessageCannotKeepBackup,
        GSString("The previous version could not be kept as a backup copy."));
    GSString::_numericStringTable.setValue(kMessageLocked,
                                           GSString("The file is locked and cannot be replaced."));
    return true;
}();

const char* text(const GSString& s) {
    return s.getConstAddr() ? s.getConstAddr() : "";
}

// The open(2) access for a normalised mode ("rb", "wb+", "ab", ...); creation and truncation
// are the caller's.
int openFlagsFor(const char* mode) {
    const int access = mode[2] == '+' ? O_RDWR : mode[0] == 'r' ? O_RDONLY : O_WRONLY;
    return mode[0] == 'a' ? access | O_APPEND | O_CREAT : access;
}

// A "w" open without a temporary file deletes the old item first and then creates the file;
// should another process create one in between, the deletion is tried again a few times.
constexpr int kRecreateTries = 3;

} // namespace

GSFileWorkerStream::GSFileWorkerStream() : io(GSFileWorkerStreamIO::getCurrent()) {}

GSFileWorkerStream::~GSFileWorkerStream() {
    if (stream) std::fclose(stream);
}

long GSFileWorkerStream::readData(void* buffer, long count) {
    if (!stream || count <= 0) return 0;
    return static_cast<long>(std::fread(buffer, 1, static_cast<size_t>(count), stream));
}

short GSFileWorkerStream::seek(long offset, short whence) {
    if (!stream) return 1;
    std::clearerr(stream);
    return fseeko(stream, static_cast<off_t>(offset), whence) == 0 ? 0 : 1;
}

long GSFileWorkerStream::tell() {
    return stream ? static_cast<long>(ftello(stream)) : -1;
}

short GSFileWorkerStream::flush() {
    if (!stream) return 1;
    if (io->flush(stream) == 0) return 0;
    if (accessFlags & GSAccessWrite) writeFailed = true;
    return 1;
}

short GSFileWorkerStream::eof() {
    return !stream || std::feof(stream) ? 1 : 0;
}

short GSFileWorkerStream::getError() {
    return !stream || std::ferror(stream) ? 1 : 0;
}

short GSFileWorkerStream::putChar(char c) {
    return _write(&c, 1) == 1 ? 0 : 1;
}

long GSFileWorkerStream::_write(const void* buffer, long count) {
    if (!stream || count <= 0) return 0;
    size_t written = io->write(buffer, static_cast<size_t>(count), stream);
    if (written != static_cast<size_t>(count)) writeFailed = true;
    return static_cast<long>(written);
}

short GSFileWorkerStream::_open() {
    const GSFileSpec& target = *getFileSpec();
    if (!target.isValid()) return 1;
    if (accessFlags & GSAccessWrite) {
        GSFileState state;
        if (target.fillState(&state) == 0 && (state.flags & GSFileState::kLocked)) {
            target.sendErrorMessage(GSString(kMessageLocked), GSString());
            return 1;
        }
    }
    io = GSFileWorkerStreamIO::getCurrent();
    writeFailed = false;
    owned = Identity();
    workingSpec = target;
    int fd = openWorkingFile();
    if (fd >= 0) {
        struct stat facts;
        if (::fstat(fd, &facts) == 0) {
            owned.device = facts.st_dev;
            owned.inode = facts.st_ino;
            owned.known = true;
        }
        stream = ::fdopen(fd, accessMode);
        if (!stream) {
            ::close(fd);
            if (accessFlags & GSAccessTruncate) removeWorkingFile();
        }
    }
    if (!stream && (accessFlags & GSAccessTruncate))
        GSLog("Couldn't create file: %s\n", text(workingSpec.getPathname(GSFullPath)));
    return stream ? 0 : 1;
}

int GSFileWorkerStream::openWorkingFile() {
    const int flags = openFlagsFor(accessMode);
    if ((accessFlags & GSAccessTruncate) && (safetyMode & GSSafetyTemporaryFile) &&
        workingSpec.exists())
        return workingSpec.createTemporaryFile(getFileSpec()->getExtender(), flags);

    GSString path = workingSpec.getPathname(GSFullPath);
    if (path.isEmpty()) return -1;
    if (!(accessFlags & GSAccessTruncate))
        return ::open(path.getConstAddr(),
                      flags | O_CLOEXEC | ((accessFlags & GSAccessWrite) ? O_NOFOLLOW : 0), 0666);
    int fd = -1;
    for (int attempt = 0; attempt < kRecreateTries && fd < 0; ++attempt) {
        std::remove(path.getConstAddr());
        fd = ::open(path.getConstAddr(), flags | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0666);
        if (fd < 0 && errno != EEXIST) break;
    }
    return fd;
}

void GSFileWorkerStream::removeWorkingFile() {
    GSString path = workingSpec.getPathname(GSFullPath);
    struct stat facts;
    if (!owned.known || path.isEmpty() || ::lstat(path.getConstAddr(), &facts) != 0 ||
        facts.st_dev != owned.device || facts.st_ino != owned.inode)
        return; // gone, or another process's item by now
    workingSpec.remove(nullptr);
}

short GSFileWorkerStream::_close(short discard) {
    if (!stream) return 0;
    const GSFileSpec& target = *getFileSpec();
    short same = workingSpec == target;
    short error = (accessFlags & GSAccessTruncate) && (std::ferror(stream) || writeFailed) ? 1 : 0;

    // The temporary file's bytes reach the disk before it takes the target's place: otherwise a
    // power cut soon after the exchange could leave the target's name on an empty file.
    if (!same && !discard && !error) {
        if (io->flush(stream) != 0 || io->sync(stream) != 0) {
            GSLog("Couldn't write file: %s\n", text(workingSpec.getPathname(GSFullPath)));
            error = 1;
        }
    }
    if (io->close(stream) != 0) {
        GSLog("Couldn't close file: %s\n", text(workingSpec.getPathname(GSFullPath)));
        error = 1;
    } else if ((accessFlags & GSAccessTruncate) && workingSpec.isValid()) {
        workingSpec.writeAdditionalInfo(same ? nullptr : &target);
    }
    stream = nullptr;

    if (!same && !discard && !error) error = exchangeWithTarget();
    // Without a temporary file this deletes the file that was being written; after a failure
    // before the exchange, only the temporary file. A reading worker never deletes its file.
    if ((discard || error) && (accessFlags & GSAccessWrite)) removeWorkingFile();
    workingSpec = gs_invalid_filespec;
    owned = Identity();
    return error;
}

short GSFileWorkerStream::exchangeWithTarget() {
    const GSFileSpec& target = *getFileSpec();
    short keepBackup = (safetyMode & GSSafetyBackup) ? 1 : 0;
    GSString detail;
    // Once exchanged, the working name holds the old content: that is what a failure of the
    // later steps deletes.
    Identity old;
    struct stat facts;
    GSString targetPath = target.getPathname(GSFullPath);
    if (!targetPath.isEmpty() && ::lstat(targetPath.getConstAddr(), &facts) == 0)
        old = Identity{static_cast<unsigned long long>(facts.st_dev),
                       static_cast<unsigned long long>(facts.st_ino), true};
    short error = io->exchange(&workingSpec, target, keepBackup ? 0 : 1, &detail);
    if (error == 0) owned = old;
    if (error) {
        GSLog("Error exchanging files: %s, %s\n", text(workingSpec.getPathname(GSFullPath)),
              text(target.getPathname(GSFullPath)));
        return error;
    }
    if (keepBackup) error = keepOldContentAsBackup();
    // The new directory entries reach the disk too. The new content is in place whatever this
    // returns, so a failure here is not the save's.
    if (io->syncFolder(target) != 0)
        GSLog("Couldn't sync folder: %s\n", text(target.getPathname(GSFolderPath)));
    return error;
}

// After the exchange the working name holds the old content.
short GSFileWorkerStream::keepOldContentAsBackup() {
    GSFileSpec backup;
    GSString detail;
    short status = 1;
    int message = kMessageCannotKeepBackup;
    // The rename never replaces: should another process take the freed name first, the search
    // runs again.
    for (int attempt = 0; attempt < kRecreateTries; ++attempt) {
        if (createBackupSpec(&backup) != 1) {
            status = workingSpec.remove(&detail);
            message = kMessageCannotDelete;
            break;
        }
        status = io->rename(&workingSpec, backup.getFilename(1), &detail);
        if (status == 0 || !backup.exists()) break;
    }
    if (status) workingSpec.sendErrorMessage(GSString(message), detail);
    return status;
}

short GSFileWorkerStream::removeBackupSpec(const GSFileSpec& spec) const {
    if (!spec.exists()) return 1;
    GSString detail;
    if (spec.remove(&detail) == 0) return 1;
    spec.sendErrorMessage(GSString(kMessageCannotDelete), detail);
    return 0;
}

short GSFileWorkerStream::createStandardBackupSpec(GSFileSpec* out) const {
    *out = *getFileSpec();
    GSString extender = out->getExtender();
    short result = 0;
    for (int i = 0; i < 1000; ++i) {
        GSString backupExtender = extender;
        backupExtender.add("bak");
        if (i) backupExtender.addLong(i, 0);
        out->setExtender(backupExtender);
        result = removeBackupSpec(*out);
        if (result == 1) break;
    }
    return result;
}

short GSFileWorkerStream::createBackupSpec(GSFileSpec* out) const {
    createStandardBackupSpec(out); // clears an old standard backup away; its name is not used
    const GSFileSpec& target = *getFileSpec();
    *out = target;
    GSString extender = target.getExtender();
    GSString base = target.getFilename(0);
    short result = 0;
    for (int i = 0; i < 1000; ++i) {
        base.add("~");
        GSString name = base;
        name.add(extender);
        out->setFilename(name);
        result = removeBackupSpec(*out);
        if (result == 1) break;
    }
    return result;
}
