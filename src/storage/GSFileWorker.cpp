// GSFileWorker.cpp - access modes, the open/close protocol and the shared text operations.
//
// The text operations are written once, against the byte-moving slots, so every worker shares
// them. One asymmetry is deliberate: the base putChar turns "\n" into CR LF in text mode, the
// stream worker's own putChar does not, so a stream writes bare LF and a memory worker in text
// mode CR LF. Reading translates every kind of line break on every worker.
#include "storage/GSFileWorker.h"

#include "objects/GSRuntimeClass.h"

#include <cstring>

GSRuntimeClass GSFileWorker::gsClassGSFileWorker("GSFileWorker", &GSObject::gsClassGSObject,
                                                 nullptr);

GSFileWorker::GSFileWorker() {
    setAccessMode("rb");
}

GSFileWorker::~GSFileWorker() = default;

const GSRuntimeClass* GSFileWorker::getRuntimeClass() const {
    return &gsClassGSFileWorker;
}

const GSFileSpec* GSFileWorker::getFileSpec() const {
    return &fileSpec;
}
const GSFileSpec* GSFileWorker::getWorkingFileSpec() const {
    return getFileSpec();
}
short GSFileWorker::isMemoryWorker() const {
    return 0;
}
void* GSFileWorker::getMemoryAddress() const {
    return nullptr;
}
short GSFileWorker::startCompression(int) {
    return 1;
}
short GSFileWorker::endCompression() {
    return 1;
}

// "r+b" is deliberately not binary: the "+" is found at the second character before the "b"
// would be looked for.
void GSFileWorker::setAccessMode(const char* mode) {
    accessFlags = 0;
    std::memset(accessMode, 0, sizeof accessMode);
    if (!mode || !mode[0]) mode = "r";
    char first = mode[0];
    accessFlags = first == 'r'   ? GSAccessRead
                  : first == 'w' ? GSAccessWrite | GSAccessTruncate
                                 : GSAccessWrite;
    accessMode[0] = first;
    accessMode[1] = 'b';
    char plus;
    if (mode[1] == 't') {
        plus = mode[2];
    } else if (mode[1] == 'b') {
        accessFlags |= GSAccessBinary;
        plus = mode[2];
    } else {
        plus = mode[1];
    }
    if (plus == '+') {
        accessMode[2] = '+';
        accessFlags |= GSAccessRead | GSAccessWrite;
    }
}

short GSFileWorker::open() {
    if (isOpen) return 1;
    short status = _open();
    if (status) return status;
    isOpen = 1;
    return 0;
}

short GSFileWorker::close(short discard) {
    if (!isOpen) return 1;
    if (compression) endCompression();
    short status = _close(discard);
    if (status) return status;
    isOpen = 0;
    return 0;
}

// In text mode every line break (CR, LF, CR LF, LF CR) reads as one "\n".
short GSFileWorker::getChar() {
    unsigned char c;
    if (readData(&c, 1) != 1) return -1;
    if ((accessFlags & GSAccessBinary) || (c != 13 && c != 10)) return c;
    unsigned char next;
    unsigned char pair = c == 13 ? 10 : 13;
    if (readData(&next, 1) == 1 && next != pair) seek(-1, 1);
    return 10;
}

short GSFileWorker::putChar(char c) {
    if (c == '\n' && !(accessFlags & GSAccessBinary)) {
        const char crlf[2] = {13, 10};
        return _write(crlf, 2) == 2 ? 0 : 1;
    }
    return _write(&c, 1) == 1 ? 0 : 1;
}

short GSFileWorker::getString(GSString* s, int maxLength) {
    unsigned saved = accessFlags;
    accessFlags &= ~GSAccessBinary;
    s->clear();
    short result = 0;
    for (int n = 1;; ++n) {
        if (maxLength > 0 && n >= maxLength) break;
        short c = getChar();
        if (c == -1) {
            result = 1;
            break;
        }
        if (c == 0) break;
        s->add(static_cast<char>(c));
        if (c == '\n') break;
    }
    accessFlags = saved;
    s->setEncoding(s->isValidUTF8() ? GSString::kUTF8 : GSString::kWindows);
    return result;
}

short GSFileWorker::putString(const GSString& s, short addNewline) {
    if (!isOpen) return 1;
    short result = 0;
    const char* p = s.getConstAddr();
    long length = s.getLength();
    if (p && std::memchr(p, '\n', length)) {
        for (long i = 0; i < length; ++i)
            if ((result = putChar(p[i])) != 0) break;
    } else if (length > 0) {
        result = _write(p, length) == length ? 0 : 1;
    }
    if (addNewline && result == 0) return putChar('\n') ? 1 : 0;
    return result;
}

short GSFileWorker::putLong(int value, int width) {
    if (!isOpen) return 1;
    char field[17];
    int at = 17;
    unsigned magnitude = value < 0 ? 0u - static_cast<unsigned>(value) : value;
    int digits = 0;
    do {
        field[--at] = static_cast<char>('0' + magnitude % 10);
        magnitude /= 10;
        ++digits;
    } while (magnitude && at > 1);
    while (width > 0 && digits < width && at > 1) {
        field[--at] = '0';
        ++digits;
    }
    if (value < 0) field[--at] = '-';
    _write(field + at, 17 - at);
    return 0;
}

short GSFileWorker::putFloat(float value, int decimals) {
    if (!isOpen) return 1;
    GSString text;
    if (text.addCompactFloat(value, decimals, nullptr)) return 1;
    return putString(text, 0) ? 1 : 0;
}
