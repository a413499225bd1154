// GSFileWorkerStreamIO.cpp - the real calls behind the stream worker's seam.
#include "storage/GSFileWorkerStreamIO.h"

#include "fileformat/GSFormatNumbers.h"
#include "storage/GSFileSpec.h"

#include <atomic>
#include <fcntl.h>
#include <unistd.h>

namespace {

// Null: the real calls. Those live in an object that is never destroyed, so that a file closed
// during the program's exit still finds them.
std::atomic<GSFileWorkerStreamIO*> gsCurrent{nullptr};

GSFileWorkerStreamIO* GSRealCalls() {
    static GSFileWorkerStreamIO* const real = new GSFileWorkerStreamIO;
    return real;
}

// fsync, or on Apple platforms F_FULLFSYNC where the file system takes it: a plain fsync there
// only hands the data to the drive, whose cache a power cut can still lose.
int GSSyncDescriptor(int fd) {
#ifdef F_FULLFSYNC
    if (::fcntl(fd, F_FULLFSYNC) == 0) return 0;
#endif
    return ::fsync(fd) == 0 ? 0 : -1;
}

} // namespace

GSFileWorkerStreamIO::~GSFileWorkerStreamIO() = default;

size_t GSFileWorkerStreamIO::write(const void* bytes, size_t count, std::FILE* stream) {
    return std::fwrite(bytes, 1, count, stream);
}

int GSFileWorkerStreamIO::flush(std::FILE* stream) {
    return std::fflush(stream);
}

int GSFileWorkerStreamIO::sync(std::FILE* stream) {
    int fd = ::fileno(stream);
    return fd < 0 ? -1 : GSSyncDescriptor(fd);
}

int GSFileWorkerStreamIO::close(std::FILE* stream) {
    return std::fclose(stream);
}

short GSFileWorkerStreamIO::exchange(GSFileSpec* working, const GSFileSpec& target, short removeOld,
                                     GSString* detail) {
    return working->exchangeWith(target, removeOld, detail);
}

short GSFileWorkerStreamIO::rename(GSFileSpec* spec, const GSString& newName, GSString* detail) {
    return spec->rename(newName, detail);
}

int GSFileWorkerStreamIO::syncFolder(const GSFileSpec& item) {
    GSString folder = item.getPathname(GSFolderPath);
    if (folder.isEmpty()) return -1;
    int fd = ::open(folder.getConstAddr(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (fd < 0) return -1;
    int status = GSSyncDescriptor(fd);
    ::close(fd);
    return status;
}

GSFileWorkerStreamIO* GSFileWorkerStreamIO::getCurrent() {
    GSFileWorkerStreamIO* installed = gsCurrent.load(std::memory_order_acquire);
    return installed ? installed : GSRealCalls();
}

void GSFileWorkerStreamIO::setCurrent(GSFileWorkerStreamIO* io) {
    gsCurrent.store(io, std::memory_order_release);
}
