// GSAtomicFile.cpp - temporary file, write, sync, rename, sync the folder.
#include "storage/GSAtomicFile.h"

#include "storage/GSRandom.h"

#include <cerrno>
#include <fcntl.h>
#include <sys/stat.h>
#include <system_error>
#include <unistd.h>

std::string GSErrorText(int error) {
    return std::generic_category().message(error);
}

bool GSWriteAll(int fd, const void* bytes, size_t size) {
    const auto* data = static_cast<const unsigned char*>(bytes);
    while (size > 0) {
        ssize_t n = ::write(fd, data, size);
        if (n < 0 && errno == EINTR) continue;
        if (n < 0) return false;
        if (n == 0) {
            errno = EIO;
            return false;
        }
        data += n;
        size -= static_cast<size_t>(n);
    }
    return true;
}

namespace {

// Brings a folder's entries to the disk; best effort, as some file systems refuse.
void syncFolder(const std::string& folder) {
    int fd = ::open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (fd >= 0) {
        ::fsync(fd);
        ::close(fd);
    }
}

// Six characters of [0-9a-z], from the system's entropy, unlike the framework's generator,
// which starts alike in every process (another writer must not guess the name).
std::string randomSuffix() {
    unsigned char random[6];
    if (::getentropy(random, sizeof random) != 0)
        for (unsigned char& r : random)
            r = static_cast<unsigned char>(GSRandom32() ^ static_cast<unsigned>(::getpid()));
    std::string suffix;
    for (unsigned char r : random) {
        unsigned v = r % 36u;
        suffix += static_cast<char>(v < 10 ? '0' + v : 'a' + (v - 10));
    }
    return suffix;
}

} // namespace

std::string GSWriteFileAtomically(const std::string& path, const void* bytes, size_t size,
                                  const GSAtomicFileOptions& options) {
    const size_t slash = path.rfind('/');
    const std::string folder = slash == std::string::npos ? "."
                               : slash == 0               ? "/"
                                                          : path.substr(0, slash);
    const std::string name = slash == std::string::npos ? path : path.substr(slash + 1);
    // Write access only (O_EXCL under a random name, as mkstemp would, but without its read
    // access), so that a confined process needs no right to read anything in the folder.
    const mode_t mode = options.mode ? static_cast<mode_t>(options.mode) : 0666;
    std::string temporary;
    int fd = -1;
    for (int attempt = 0; attempt < 100 && fd < 0; ++attempt) {
        temporary = folder + "/." + name + "." + randomSuffix();
        fd = ::open(temporary.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC | O_NOFOLLOW, mode);
        if (fd < 0 && errno != EEXIST) break;
    }
    if (fd < 0) return GSErrorText(errno);
    // An exact mode is set after the umask has taken its bits.
    bool ok = (options.mode == 0 || ::fchmod(fd, mode) == 0) && GSWriteAll(fd, bytes, size) &&
              (!options.durable || ::fsync(fd) == 0);
    int error = errno;
    if (::close(fd) != 0 && ok) {
        ok = false;
        error = errno;
    }
    // The bytes reach the disk before the name does, and the name after the rename.
    if (ok && ::rename(temporary.c_str(), path.c_str()) != 0) {
        ok = false;
        error = errno;
    }
    if (!ok) {
        ::unlink(temporary.c_str());
        return GSErrorText(error);
    }
    if (options.durable) syncFolder(folder);
    return {};
}
