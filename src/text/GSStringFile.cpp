// GSStringFile.cpp - the file form of GSString.
//
// 64-bit layout: tag byte, compact byte count (NUL included; 0 for the null string), bytes.
// Classic layout: a short marker (0 null; else the one's complement of the tag) and a 4-byte
// count, or, in older files, a positive marker that is itself the count of a Windows text.
// Single-byte texts are held in memory in the Mac code page, whatever code page wrote them.
#include "fileformat/GSFile.h"
#include "text/GSString.h"

short GSString::write(GSFile* file) const {
    long n = isNull() ? 0 : getLength() + 1;
    short failed;
    if (file->getUse64Bit()) {
        failed = file->writeChar(static_cast<char>(encoding));
        if (!failed) failed = file->writeCompactLongLong(n);
    } else {
        if (n == 0) return file->writeShort(0);
        failed = file->writeIntAsShort(~static_cast<int>(encoding));
        if (!failed) failed = file->writeLong(static_cast<int>(n));
    }
    if (failed) return 1;
    return n > 0 ? file->write(getConstAddr(), n) : 0;
}

short GSString::read(GSFile* file) {
    clear();
    long n = 0;
    int tag = 0;
    short result;
    if (file->getUse64Bit()) {
        char t;
        result = file->readChar(&t);
        if (result == 0) {
            tag = static_cast<unsigned char>(t);
            result = file->readCompactLongLong(&n);
        }
    } else {
        short marker = 0;
        result = file->readShort(&marker);
        if (result == 0 && marker < 0) {
            tag = ~marker;
            int count;
            result = file->readLong(&count);
            n = count;
        } else if (result == 0) {
            n = marker;
        }
    }
    if (result || n < 1) return result;
    // The text must be in the file: a count beyond the bytes left is a failed read, before any
    // room is made for it.
    if (!file->fitsInFile(n)) return 1;
    if (tag < 0 || tag > 255) return 1;
    if (createOwnData(n, n < 16 ? n + 16 : 2 * n, 0)) return 1;
    if (file->read(mutableBytes(), n)) {
        becomeNull(); // never a partial text
        return 1;
    }
    setByteCount(n);
    encoding = static_cast<unsigned char>(tag);
    if (mutableBytes()[n - 1] != 0) {
        becomeNull(); // no terminator: the null string, not an error
        return 0;
    }
    if (encoding < 100) convertEncoding(kMac);
    return 0;
}
