// GSFileWorkerStream.cpp - stdio-backed file worker.
#include "GSFileWorkerStream.h"

#include <cstdio>
#include <sys/types.h>

GSFileWorkerStream::~GSFileWorkerStream() {
    // Destroying a worker does not close it through the protocol; do not leak the descriptor.
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

long GSFileWorkerStream::tell() { return stream ? static_cast<long>(ftello(stream)) : -1; }

short GSFileWorkerStream::flush() { return !stream || std::fflush(stream) != 0 ? 1 : 0; }

short GSFileWorkerStream::eof() { return !stream || std::feof(stream) ? 1 : 0; }

short GSFileWorkerStream::getError() { return !stream || std::ferror(stream) ? 1 : 0; }

short GSFileWorkerStream::putChar(char c) {
    return !stream || std::fputc(static_cast<unsigned char>(c), stream) == EOF ? 1 : 0;
}

long GSFileWorkerStream::_write(const void* buffer, long count) {
    if (!stream || count <= 0) return 0;
    return static_cast<long>(std::fwrite(buffer, 1, static_cast<size_t>(count), stream));
}

short GSFileWorkerStream::_open() {
    if (!fileSpec.isValid()) return 1;
    workingSpec = fileSpec;
    GSString path = workingSpec.getPathname(1);
    if (path.isEmpty()) return 1;
    if (accessFlags & GSAccessTruncate) std::remove(path.getConstAddr());
    stream = std::fopen(path.getConstAddr(), accessMode);
    return stream ? 0 : 1;
}

short GSFileWorkerStream::_close(short discard) {
    if (!stream) return 0;
    short error = (accessFlags & GSAccessTruncate) && std::ferror(stream) ? 1 : 0;
    if (std::fclose(stream) != 0) error = 1;
    stream = nullptr;
    if (discard || error) std::remove(workingSpec.getPathname(1).getConstAddr());
    workingSpec = gs_invalid_filespec;
    return error;
}
