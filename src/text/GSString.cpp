// GSString.cpp - construction, editing and validity of GSString.
#include "GSString.h"

#include "GSUTF8.h"

#include <cstring>

GSString& GSString::operator=(const char* text) {
    if (!text) {
        buffer.clear();
        return *this;
    }
    init(text, static_cast<long>(std::strlen(text)), encoding);
    return *this;
}

bool GSString::initFromCString(const char* text, short /*borrow*/) {
    buffer.clear();
    if (text) _insert(0, text, static_cast<long>(std::strlen(text)));
    encoding = kMac;
    bool valid = isValidUTF8();
    if (valid) encoding = kUTF8;
    return valid;
}

void GSString::init(const char* bytes, long length, int tag) {
    encoding = tag < 0 ? static_cast<unsigned char>(kMac) : static_cast<unsigned char>(tag);
    clear();
    if (!bytes) return;
    if (length < 0) {
        initFromCString(bytes, 0);
        if (tag >= 0) encoding = static_cast<unsigned char>(tag);
        return;
    }
    if (length == 0) {
        makeRoom(1);
        return;
    }
    _insert(0, bytes, length);
    if (tag == -2 && isValidUTF8()) encoding = kUTF8;
}

char GSString::operator[](long i) const {
    if (isNull() || i < 0 || i > getLength()) return 0;
    return buffer[i];
}

void GSString::clear() {
    // An unshared buffer beyond the size of a short text is kept for reuse; a shared one, or a
    // short text, is let go and the string becomes null.
    if (buffer.hasStorage() && buffer.getArrayData()->getReferenceCount() == 1 &&
        buffer.getCapacity() > 47) {
        buffer.setSize(1);
        buffer[0] = 0;
    } else {
        buffer.clear();
    }
}

short GSString::makeRoom(long bytesWithNul) {
    if (!buffer.hasStorage()) {
        long proposed = bytesWithNul < 16 ? bytesWithNul + 16 : 2 * bytesWithNul;
        if (buffer.reserve(proposed)) return 1;
        if (buffer.setSize(1)) return 1;
        buffer[0] = 0;
    }
    if (bytesWithNul > buffer.getCapacity()) {
        if (buffer.reserve(2 * bytesWithNul)) {
            buffer.clear();
            return 1;
        }
    }
    return 0;
}

short GSString::_insert(long at, const char* bytes, long n) {
    if (n < 0) return 1;
    long length = getLength();
    if (at < 0 || at > length) return 1;
    if (makeRoom(length + n + 1)) return 1;
    if (n == 0) return 0;
    // replace() copies from a source outside this string's storage only.
    if (bytes >= buffer.getData() && bytes < buffer.getData() + buffer.getSize()) {
        GSString copy(bytes, n, encoding);
        return _insert(at, copy.getConstAddr(), n);
    }
    return buffer.replace(at, 0, bytes, n);
}

short GSString::insert(long at, const char* text) {
    if (!text) return 0;
    long length = getLength();
    if (at < 0) at = 0;
    if (at > length) at = length;
    return _insert(at, text, static_cast<long>(std::strlen(text)));
}

short GSString::add(const char* text) {
    if (!text) return 0;
    return _insert(getLength(), text, static_cast<long>(std::strlen(text)));
}

short GSString::remove(long at, long n) {
    long length = getLength();
    if (n == 0 || at < 0 || at >= length) return 0;
    if (n < 0 || n > length - at) n = length - at;
    char none = 0;
    return buffer.replace(at, n, &none, 0);
}

bool GSString::isValidUTF8() const {
    if (isNull()) return false;
    const auto* p = reinterpret_cast<const unsigned char*>(getConstAddr());
    long length = getLength();
    long i = 0;
    while (i < length) {
        unsigned code;
        long used = GSUTF8ReadChar(p + i, length - i, &code, true);
        if (used <= 0) return false;
        i += used;
    }
    return true;
}

short GSString::convertEncoding(int tag) {
    if (tag == encoding || isNull()) {
        encoding = static_cast<unsigned char>(tag);
        return 0;
    }
    const char* p = getConstAddr();
    for (long i = 0; i < getLength(); ++i)
        if (static_cast<unsigned char>(p[i]) >= 0x80) return 1;
    if (encoding == kUTF16 || tag == kUTF16) return 1;
    encoding = static_cast<unsigned char>(tag);
    return 0;
}

int GSString::compareValue(const GSString& other) const {
    const char* a = getConstAddr() ? getConstAddr() : "";
    const char* b = other.getConstAddr() ? other.getConstAddr() : "";
    return std::strcmp(a, b);
}
