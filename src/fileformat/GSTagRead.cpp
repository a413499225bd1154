// GSTagRead.cpp - chunk reading in both forms.
#include "fileformat/GSTagRead.h"

#include "fileformat/GSFile.h"

GSTagRead::GSTagRead(GSFile* f) : file(f), bodyStart(f->tell()) {}

short GSTagRead::readByteVersion(short* out) {
    char b;
    if (file->readChar(&b)) return 1;
    auto v = static_cast<unsigned char>(b);
    *out = static_cast<short>(((v >> 4) << 8) | (v & 15));
    return 0;
}

// The old form stores the major and the minor as two shorts; a first short above 255 is the
// whole version.
short GSTagRead::readShortVersion(short* out) {
    short first;
    if (file->readShort(&first)) return 1;
    if (first > 255) {
        *out = first;
        return 0;
    }
    short minor;
    if (file->readShort(&minor)) return 1;
    *out = static_cast<short>((static_cast<unsigned>(first) << 8) |
                              static_cast<unsigned short>(minor));
    return 0;
}

short GSTagRead::readVersion(short maxVersion, short* versionOut) {
    short v;
    short status = file->getUse64Bit() ? readByteVersion(&v) : readShortVersion(&v);
    if (status) return status;
    version = v;
    versionRead = true;
    short result = 0;
    auto major = static_cast<signed char>(static_cast<unsigned short>(v) >> 8);
    if (maxVersion >= 1 && major > (maxVersion >> 8)) {
        // Too new: step over the whole chunk so that the file stands after it.
        for (;;) {
            int t = read();
            if (t == kEndTag || t == kBadTag || skip()) break;
        }
        result = 1;
    }
    if (v < 256 || (v & 0xF0)) result = 1;
    if (versionOut) *versionOut = v;
    return result;
}

short GSTagRead::readLongTag() {
    int t;
    if (file->readLong(&t)) return 1;
    tag = t;
    if (t == kEndTag) return 0;
    int n;
    if (file->readLong(&n)) return 1;
    length = n;
    return 0;
}

short GSTagRead::readByteTag() {
    char b;
    if (file->readChar(&b)) return 1;
    auto v = static_cast<unsigned char>(b);
    if ((v & 127) == 127) {
        tag = kEndTag;
        return 0;
    }
    tag = v & 127;
    if (v & 128) return file->readLongLong(&length);
    char n;
    if (file->readChar(&n)) return 1;
    length = static_cast<unsigned char>(n);
    return 0;
}

int GSTagRead::read() {
    short status = file->getUse64Bit() ? readByteTag() : readLongTag();
    if (status) tag = kBadTag;
    bodyStart = file->tell();
    return tag;
}

short GSTagRead::skip() {
    long target;
    if (length < 0 || bodyStart < 0 || __builtin_add_overflow(bodyStart, length, &target)) return 1;
    return file->seek(target, 0);
}
