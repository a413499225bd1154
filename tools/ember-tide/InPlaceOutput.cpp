// InPlaceOutput.cpp - opening, emptying and writing the thumbnailer's OUT through one descriptor.
#include "InPlaceOutput.h"
#include "storage/GSAtomicFile.h"

#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace tool {

InPlaceOutput::~InPlaceOutput() {
    if (ownsFd && fd >= 0) ::close(fd);
}

std::string InPlaceOutput::open(const std::string& out, const std::string& input, bool create) {
    if (out == "-" || out == "/dev/stdout") {
        fd = STDOUT_FILENO;
        return {};
    }
    // Not O_TRUNC: the check below must see FILE before anything is emptied. O_NOCTTY: a terminal
    // as OUT never becomes the process's controlling terminal. Opening a FIFO waits for its
    // reader, as `>` does.
    const int opened =
        ::open(out.c_str(), O_WRONLY | O_CLOEXEC | O_NOCTTY | (create ? O_CREAT : 0), 0666);
    if (opened < 0 && errno == ENOENT && !create) return {};
    if (opened < 0) return errno == EISDIR ? "is a folder" : GSErrorText(errno);
    struct stat st, in;
    if (::fstat(opened, &st) != 0) {
        const int error = errno;
        ::close(opened);
        return GSErrorText(error);
    }
    if (S_ISREG(st.st_mode) && ::stat(input.c_str(), &in) == 0 && in.st_dev == st.st_dev &&
        in.st_ino == st.st_ino) {
        ::close(opened);
        return "is FILE itself";
    }
    fd = opened;
    ownsFd = true;
    regular = S_ISREG(st.st_mode);
    if (regular && ::ftruncate(fd, 0) != 0) return GSErrorText(errno);
    return {};
}

std::string InPlaceOutput::write(const unsigned char* data, size_t size) {
    int error = GSWriteAll(fd, data, size) ? 0 : errno;
    // Half a PNG would pass for a picture that fails to load; an empty OUT is a plain failure.
    if (error && regular) (void)!::ftruncate(fd, 0);
    if (ownsFd) {
        if (::close(fd) != 0 && !error) error = errno;
        fd = -1;
    }
    return error ? GSErrorText(error) : std::string();
}

} // namespace tool
