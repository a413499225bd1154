// GSFile.cpp - set-up, positioning and the byte-level encodings of GSFile.
#include "fileformat/GSFile.h"

#include "fileformat/GSFileObjectTable.h"
#include "fileformat/GSFormatNumbers.h"
#include "objects/GSObjectDictionary.h"
#include "storage/GSFileSpecKeys.h"
#include "storage/GSFileWorkerMemory.h"
#include "storage/GSFileWorkerStream.h"

#include <cfloat>
#include <climits>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <new>

short GetBigShort(const unsigned char* p) {
    return static_cast<short>(static_cast<uint16_t>((p[0] << 8) | p[1]));
}

int GetBigLong(const unsigned char* p) {
    return static_cast<int>((static_cast<uint32_t>(p[0]) << 24) |
                            (static_cast<uint32_t>(p[1]) << 16) |
                            (static_cast<uint32_t>(p[2]) << 8) | p[3]);
}

void SetBigShort(unsigned char* p, short value) {
    auto v = static_cast<uint16_t>(value);
    p[0] = static_cast<unsigned char>(v >> 8);
    p[1] = static_cast<unsigned char>(v);
}

void SetBigLong(unsigned char* p, int value) {
    auto v = static_cast<uint32_t>(value);
    p[0] = static_cast<unsigned char>(v >> 24);
    p[1] = static_cast<unsigned char>(v >> 16);
    p[2] = static_cast<unsigned char>(v >> 8);
    p[3] = static_cast<unsigned char>(v);
}

// ---------------------------------------------------------------- set-up

GSFile::GSFile() = default;

GSFile::GSFile(const GSFileSpec& spec, short resolveLink) {
    init(spec, resolveLink);
}

GSFile::~GSFile() {
    if (worker) {
        flags &= ~kTemporary; // closing must not delete this object again
        if (worker->isOpened()) close(GSCloseKeep);
        freeFileWorker();
    }
}

short GSFile::init(GSFileWorker* newWorker, short ownsWorker) {
    if (newWorker == worker) return worker ? 0 : 1;
    freeFileWorker();
    worker = newWorker;
    if (ownsWorker)
        flags |= kOwnsWorker;
    else
        flags &= ~kOwnsWorker;
    if (!worker) return 1;
    worker->setSafetyMode(static_cast<unsigned>(getSafetyMode()));
    worker->addReference();
    return 0;
}

short GSFile::init(const GSDynaArray<unsigned char>& bytes) {
    auto* memory = new (std::nothrow) GSFileWorkerMemory(bytes);
    return init(memory, 1);
}

short GSFile::init(long growBy, long capacity) {
    auto* memory = new (std::nothrow) GSFileWorkerMemory(growBy, capacity);
    return init(memory, 1);
}

// A spec that names memory (its bytes in the dictionary, or a memory file to write) gets a
// memory worker, so documents are read from and written to memory with the same code as files;
// any other spec gets a stream worker in setFileSpec.
short GSFile::init(const GSFileSpec& spec, short resolveLink) {
    if (spec.getDictionary()) {
        GSDynaArray<unsigned char> bytes = spec.getDictionary()->getBufferValue(GSFileDataKey);
        short attached = 0;
        if (bytes.getSize() > 0)
            attached = init(bytes) == 0;
        else if (spec.isMemoryFileSpec(0))
            attached = init(GSGrowDouble, 0x2000000) == 0;
        if (attached) worker->setFileSpec(spec);
    }
    GSFileSpec target;
    if (resolveLink && spec.isLink(&target, 0, nullptr)) {
        // The file is where the link leads; the options travel with it.
        if (spec.getDictionary()) *target.getOrCreateDictionary() = *spec.getDictionary();
        return setFileSpec(target);
    }
    return setFileSpec(spec);
}

// The safety mode and the format version come from the spec's options when it has them; a
// backup (bit 2) always goes through a temporary file (bit 1).
short GSFile::setFileSpec(const GSFileSpec& spec) {
    if (!worker) {
        short status = init(new (std::nothrow) GSFileWorkerStream(), 1);
        if (status) return status;
    }
    worker->setFileSpec(spec);
    int mode = spec.getDictionaryLong(GSFileSafetyModeKey, getSafetyMode());
    if (mode & 2) mode |= 1;
    flags =
        static_cast<unsigned char>((flags & ~kSafetyModeMask) | ((mode & 15) << kSafetyModeShift));
    worker->setSafetyMode(static_cast<unsigned>(mode));
    formatVersion = spec.getDictionaryLong(GSFileFormatVersionKey, formatVersion);
    return 0;
}

int GSFile::getSafetyMode() const {
    int field = (flags & kSafetyModeMask) >> kSafetyModeShift;
    return field >= 8 ? field - 16 : field; // a signed 4-bit field
}

short GSFile::open() {
    return worker ? worker->open() : 1;
}

short GSFile::close(short how) {
    if (!worker) return 1;
    short status = worker->close(how);
    flags &= ~(kRawFloats | kRawDoubles);
    formatVersion = 0;
    if (flags & kTemporary) {
        GSString path = getFileSpec().getPathname(GSFullPath);
        if (!path.isEmpty()) std::remove(path.getConstAddr());
        delete this; // a temporary file was made on the heap for exactly this
    }
    return status;
}

void GSFile::freeFileWorker() {
    if (!worker) return;
    if (flags & kOwnsWorker)
        worker->release();
    else
        worker->releaseNoDelete();
    worker = nullptr;
    flags &= ~kOwnsWorker;
}

const GSFileSpec& GSFile::getFileSpec() const {
    static const GSFileSpec empty;
    return worker ? *worker->getFileSpec() : empty;
}

const char* GSFile::getAccessMode() const {
    return worker ? worker->getAccessMode() : nullptr;
}

// ---------------------------------------------------------------- positioning

long GSFile::tell() {
    if (!worker) return -1;
    long position = worker->tell();
    return position < 0 ? -1 : position - origin;
}

short GSFile::seek(long position, int whence) {
    if (!worker) return 1;
    if (whence == 0) {
        if (position < 0) return 1;
        long absolute;
        if (__builtin_add_overflow(position, origin, &absolute)) return 1;
        return worker->seek(absolute, 0);
    }
    return worker->seek(position, static_cast<short>(whence));
}

long GSFile::getLength() {
    long position = tell();
    if (position < 0) return -1;
    long length = -1;
    if (seek(0, 2) == 0) length = tell();
    if (seek(position, 0) != 0) return -1;
    return length;
}

long GSFile::getBytesLeft() {
    long position = tell();
    long length = getLength();
    if (position < 0 || length < 0) return -1;
    return length > position ? length - position : 0;
}

bool GSFile::fitsInFile(long count) {
    if (count < 0) return false;
    if (count <= 4096) return true;
    long left = getBytesLeft();
    return left >= 0 && count <= left;
}

// ---------------------------------------------------------------- raw bytes

short GSFile::read(void* buffer, long count) {
    if (!worker || count < 0) return 1;
    return worker->readData(buffer, count) == count ? 0 : 1;
}

short GSFile::write(const void* buffer, long count) {
    if (!worker || count < 0) return 1;
    if (count == 0) return 0;
    return worker->writeData(buffer, count) == count ? 0 : 1;
}

short GSFile::readChar(char* c) {
    return read(c, 1);
}
short GSFile::writeChar(char c) {
    return write(&c, 1);
}
short GSFile::getChar() {
    return worker ? worker->getChar() : -1;
}
short GSFile::putChar(char c) {
    return worker ? worker->putChar(c) : 1;
}

// ---------------------------------------------------------------- integers

short GSFile::readShort(short* value) {
    unsigned char b[2];
    if (read(b, 2)) return 1;
    *value = GetBigShort(b);
    return 0;
}

short GSFile::writeShort(short value) {
    unsigned char b[2];
    SetBigShort(b, value);
    return write(b, 2);
}

short GSFile::readLong(int* value) {
    unsigned char b[4];
    if (read(b, 4)) return 1;
    *value = GetBigLong(b);
    return 0;
}

short GSFile::writeLong(int value) {
    unsigned char b[4];
    SetBigLong(b, value);
    return write(b, 4);
}

short GSFile::readLongLong(long* value) {
    unsigned char b[8];
    if (read(b, 8)) return 1;
    uint64_t high = static_cast<uint32_t>(GetBigLong(b));
    uint64_t low = static_cast<uint32_t>(GetBigLong(b + 4));
    *value = static_cast<long>((high << 32) | low);
    return 0;
}

short GSFile::writeLongLong(long value) {
    unsigned char b[8];
    auto v = static_cast<uint64_t>(value);
    SetBigLong(b, static_cast<int>(static_cast<uint32_t>(v >> 32)));
    SetBigLong(b + 4, static_cast<int>(static_cast<uint32_t>(v)));
    return write(b, 8);
}

short GSFile::readIntAsShort(int* value) {
    short s;
    if (readShort(&s)) return 1;
    *value = s;
    return 0;
}

short GSFile::writeIntAsShort(int value) {
    return writeShort(static_cast<short>(value));
}

short GSFile::readPointer(void** value) {
    long bits;
    if (readLongLong(&bits)) return 1;
    *value = reinterpret_cast<void*>(static_cast<uintptr_t>(bits));
    return 0;
}

short GSFile::writePointer(void* value) {
    return writeLongLong(static_cast<long>(reinterpret_cast<uintptr_t>(value)));
}

// ---------------------------------------------------------------- floating point

namespace {

// The compatible encoding keeps 31 significant bits: m in [0.5, 1) scaled by 2^30, truncated,
// and the binary exponent. Infinities become the largest mantissa with an exponent no reader
// takes as finite; NaN has no encoding and is written as 0.
short writeCompatible(GSFile* file, double m, int e) {
    int mantissa;
    if (std::isnan(m)) {
        mantissa = 0, e = 0;
    } else if (std::isinf(m)) {
        mantissa = m > 0 ? 0x3FFFFFFF : -0x3FFFFFFF, e = SHRT_MAX;
    } else {
        mantissa = static_cast<int>(m * 1073741824.0);
    }
    if (file->writeLong(mantissa)) return 1;
    return file->writeShort(static_cast<short>(e));
}

short readCompatible(GSFile* file, int* mantissa, short* exponent) {
    if (file->readLong(mantissa)) return 1;
    return file->readShort(exponent);
}

} // namespace

short GSFile::writeFloat(float value) {
    if (flags & kRawFloats) {
        uint32_t bits;
        std::memcpy(&bits, &value, 4);
        return writeLong(static_cast<int>(bits));
    }
    int e = 0;
    float m = std::isfinite(value) ? std::frexp(value, &e) : value;
    return writeCompatible(this, m, e);
}

short GSFile::readFloat(float* value) {
    if (flags & kRawFloats) {
        int bits;
        if (readLong(&bits)) return 1;
        std::memcpy(value, &bits, 4);
        return 0;
    }
    int m;
    short e;
    if (readCompatible(this, &m, &e)) return 1;
    // Out-of-range exponents saturate; the sign is deliberately lost on overflow.
    if (e > 37)
        *value = FLT_MAX;
    else if (e < -36)
        *value = 0.0f;
    else
        *value = static_cast<float>(std::ldexp(m * (1.0 / 1073741824.0), e));
    return 0;
}

short GSFile::writeDouble(double value) {
    if (flags & kRawDoubles) {
        uint64_t bits;
        std::memcpy(&bits, &value, 8);
        return writeLongLong(static_cast<long>(bits));
    }
    int e = 0;
    double m = std::isfinite(value) ? std::frexp(value, &e) : value;
    return writeCompatible(this, m, e);
}

short GSFile::readDouble(double* value) {
    if (flags & kRawDoubles) {
        long bits;
        if (readLongLong(&bits)) return 1;
        std::memcpy(value, &bits, 8);
        return 0;
    }
    int m;
    short e;
    if (readCompatible(this, &m, &e)) return 1;
    *value = std::ldexp(m * (1.0 / 1073741824.0), e);
    return 0;
}

// ---------------------------------------------------------------- compact integers

// First byte: 6 value bits, the sign in bit 6, "more" in bit 7; then 7 bits a byte, least
// significant first. Negative values store their complement, so small magnitudes stay short.
short GSFile::writeCompactLongLong(long value) {
    unsigned char b[10];
    int n = 0;
    auto z = static_cast<uint64_t>(value ^ (value >> 63));
    b[n++] = static_cast<unsigned char>((z & 0x3F) | (value < 0 ? 0x40 : 0) | (z >= 64 ? 0x80 : 0));
    if (z >= 64) {
        uint64_t r = z >> 6;
        for (;;) {
            b[n++] = static_cast<unsigned char>((r & 0x7F) | (r >= 128 ? 0x80 : 0));
            if (r < 128) break;
            r >>= 7;
        }
    }
    return write(b, n);
}

short GSFile::readCompactLongLong(long* value) {
    unsigned char first;
    if (read(&first, 1)) return 1;
    uint64_t bits = first & 0x3F;
    unsigned char last = first;
    short status = 0;
    // A value needs at most 9 continuation bytes; a longer run is malformed.
    for (int shift = 6; last & 0x80; shift += 7) {
        if (shift > 62 || read(&last, 1)) {
            status = 1;
            break;
        }
        bits |= static_cast<uint64_t>(last & 0x7F) << shift;
    }
    if (first & 0x40) bits = ~bits;
    *value = static_cast<long>(bits);
    return status;
}

short GSFile::getUse64Bit() const {
    return objectTable ? objectTable->getUse64Bit() : 0;
}

short GSFile::readArrayCount(long* count) {
    if (getUse64Bit()) return readCompactLongLong(count);
    int n;
    if (readLong(&n)) return 1;
    *count = n;
    return 0;
}

short GSFile::writeArrayCount(long count) {
    if (getUse64Bit()) return writeCompactLongLong(count);
    return writeLong(static_cast<int>(count));
}

// ---------------------------------------------------------------- identifiers and text

bool GSFile::isToken(const char* token, short skipWhiteSpaceAfter) {
    size_t n = std::strlen(token);
    if (n > 255) return false;
    char bytes[256];
    if (read(bytes, static_cast<long>(n))) return false;
    if (std::memcmp(bytes, token, n) != 0) return false;
    if (skipWhiteSpaceAfter) readWhiteSpace();
    return true;
}

bool GSFile::hasID(const char* id, short rewindOnFailure) {
    long position = rewindOnFailure ? tell() : 0;
    if (isToken(id, 0) && getChar() == 0) return true;
    if (rewindOnFailure) seek(position, 0);
    return false;
}

// Vertical tab (11) is deliberately not white space here.
void GSFile::readWhiteSpace() {
    short c;
    do {
        c = getChar();
    } while (c == 9 || c == 10 || c == 12 || c == 13 || c == 32);
    if (c != -1) seek(-1, 1);
}

// ---------------------------------------------------------------- path helpers

GSString GSFile::getFilename(const GSString& path) {
    long length = path.getLength();
    long start = length;
    while (start > 0 && path[start - 1] != '/')
        --start;
    return GSString(path.getConstAddr() ? path.getConstAddr() + start : nullptr, length - start,
                    path.getEncoding());
}

long GSFile::_getExtender(const GSString& path) {
    for (long i = path.getLength() - 1; i >= 0; --i) {
        char c = path[i];
        if (c == '.') return i;
        if (c == '/' || c == ')') break;
    }
    return -1;
}

void GSFile::changeFileExtender(GSString* path, const GSString& extender) {
    long at = _getExtender(*path);
    if (at >= 0) path->remove(at, -1);
    path->add(extender.getConstAddr());
}

short GSFile::hasTrailingPathDivider(const GSString& path) {
    long length = path.getLength();
    return length > 0 && path[length - 1] == '/' ? 1 : 0;
}

void GSFile::addPathDividerIfNeeded(GSString* path) {
    if (!hasTrailingPathDivider(*path)) path->add('/');
}

void GSFile::removePathDividerIfNeeded(GSString* path) {
    if (hasTrailingPathDivider(*path)) path->remove(path->getLength() - 1, 1);
}
