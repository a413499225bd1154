// GSTagWrite.cpp - chunk writing in both forms.
#include "fileformat/GSTagWrite.h"

#include "fileformat/GSFile.h"
#include "fileformat/GSFilePositionRestorer.h"

GSTagWrite::GSTagWrite(GSFile* f) : file(f), worker(this) {
    worker.addReference(); // embedded: never destroyed through its reference count
}

GSTagWrite::~GSTagWrite() {
    if (worker.isActive()) worker.deactivate(file);
}

short GSTagWrite::writeVersion(short version) {
    if (!file->getUse64Bit()) return file->writeShort(version);
    worker.setAccessMode(file->getAccessMode());
    worker.setSafetyMode(static_cast<unsigned>(file->getSafetyMode()));
    worker.setOpened(1);
    auto v = static_cast<unsigned short>(version);
    return file->writeChar(static_cast<char>((v & 15) | ((v >> 4) & 0xF0)));
}

short GSTagWrite::writeStart(int newTag) {
    if (file->getUse64Bit()) {
        tag = newTag;
        return worker.activate(file);
    }
    if (file->writeLong(newTag)) return 1;
    long position = file->tell();
    if (position < 0) return 1;
    cache[cacheCount].position = position;
    cache[cacheCount].length = 0;
    return file->writeLong(0);
}

short GSTagWrite::writeEnd() {
    if (file->getUse64Bit()) {
        if (worker.deactivate(file)) return 1;
        if (lengthEnd <= 0) return 0;
        long end = file->tell();
        if (end < 0 || file->seek(lengthEnd - 8, 0)) return 1;
        GSFilePositionRestorer back(file, end);
        short status = file->writeLongLong(end - lengthEnd);
        return static_cast<short>(back.restore() || status);
    }
    long end = file->tell();
    if (end < 0) return 1;
    cache[cacheCount].length = end - cache[cacheCount].position - 4;
    if (++cacheCount == 16) return clearLengthCache();
    return 0;
}

short GSTagWrite::clearLengthCache() {
    if (cacheCount == 0) return 0;
    long position = file->tell();
    if (position < 0) return 1;
    short status = 0;
    {
        GSFilePositionRestorer back(file, position);
        for (int i = 0; i < cacheCount && status == 0; ++i) {
            status = file->seek(cache[i].position, 0);
            if (status == 0) status = file->writeLong(static_cast<int>(cache[i].length));
        }
        cacheCount = 0;
        if (back.restore()) status = 1;
    }
    return status;
}

short GSTagWrite::writeEndTag() {
    if (file->getUse64Bit()) return file->writeChar(0x7F);
    if (clearLengthCache()) return 1;
    return file->writeLong(-1);
}

short GSTagWrite::writeTagWithSize(int size) {
    if (size < 0) {
        if (file->writeChar(static_cast<char>(tag | 0x80)) || file->writeLongLong(0)) return 1;
        lengthEnd = file->tell();
        return lengthEnd < 0 ? 1 : 0;
    }
    lengthEnd = -1;
    if (file->writeChar(static_cast<char>(tag))) return 1;
    return file->writeChar(static_cast<char>(size));
}
