// GSTagWriteFileWorker.cpp - buffering of byte-form item bodies.
#include "fileformat/GSTagWriteFileWorker.h"

#include "fileformat/GSFile.h"
#include "fileformat/GSTagWrite.h"
#include "objects/GSRuntimeClass.h"

#include <cstring>
#include <new>

GSRuntimeClass
    GSTagWriteFileWorker::gsClassGSTagWriteFileWorker("GSTagWriteFileWorker",
                                                      &GSFileWorker::gsClassGSFileWorker,
                                                      &GSTagWriteFileWorker::_createFunction);

GSObject* GSTagWriteFileWorker::_createFunction() {
    return new (std::nothrow) GSTagWriteFileWorker();
}

const GSRuntimeClass* GSTagWriteFileWorker::getRuntimeClass() const {
    return &gsClassGSTagWriteFileWorker;
}

GSTagWriteFileWorker::~GSTagWriteFileWorker() {
    if (underlying) underlying->release();
}

short GSTagWriteFileWorker::activate(GSFile* file) {
    GSFileWorker* current = file->getFileWorker();
    if (current) current->addReference();
    if (underlying) underlying->release();
    underlying = current;
    ownedUnderlying = (file->getFlags() & GSFile::kOwnsWorker) ? 1 : 0;
    if (!underlying) return 1;
    passThrough = false;
    buffered = 0;
    file->init(this, 0);
    // A compressing worker cannot be written around: go straight through.
    if (underlying->hasCompression()) return doPassThrough();
    return 0;
}

short GSTagWriteFileWorker::deactivate(GSFile* file) {
    if (!underlying) return 1;
    file->init(underlying, ownedUnderlying);
    short status = 0;
    if (!passThrough) status = flushBuffer(buffered);
    underlying->release();
    underlying = nullptr;
    passThrough = false;
    return status;
}

short GSTagWriteFileWorker::doPassThrough() {
    if (passThrough) return 0;
    passThrough = true; // first, so that the header written next goes straight through
    if (underlying && underlying->isKindOfRuntimeClass(gsClassGSTagWriteFileWorker)) {
        if (static_cast<GSTagWriteFileWorker*>(underlying)->doPassThrough()) return 1;
    }
    return flushBuffer(-1);
}

short GSTagWriteFileWorker::flushBuffer(int size) {
    short status = owner ? owner->writeTagWithSize(size) : 1;
    if (status == 0 && buffered > 0 && underlying)
        status = underlying->writeData(buffer, buffered) == buffered ? 0 : 1;
    buffered = 0;
    return status;
}

long GSTagWriteFileWorker::_write(const void* data, long count) {
    if (!passThrough) {
        if (count >= 0 && buffered + count < 256) {
            std::memcpy(buffer + buffered, data, static_cast<size_t>(count));
            buffered += static_cast<int>(count);
            return count;
        }
        if (doPassThrough()) return 0;
    }
    return underlying ? underlying->_write(data, count) : 0;
}

const GSFileSpec* GSTagWriteFileWorker::getFileSpec() const {
    return underlying ? underlying->getFileSpec() : GSFileWorker::getFileSpec();
}

short GSTagWriteFileWorker::startCompression(int level) {
    if (doPassThrough() || !underlying) return 1;
    return underlying->startCompression(level);
}

short GSTagWriteFileWorker::endCompression() {
    return underlying ? underlying->endCompression() : 1;
}

long GSTagWriteFileWorker::readData(void* data, long count) {
    if (doPassThrough() || !underlying) return 0;
    return underlying->readData(data, count);
}

short GSTagWriteFileWorker::seek(long offset, short whence) {
    if (doPassThrough() || !underlying) return 1;
    return underlying->seek(offset, whence);
}

long GSTagWriteFileWorker::tell() {
    doPassThrough();
    return underlying ? underlying->tell() : -1;
}

short GSTagWriteFileWorker::flush() {
    if (doPassThrough() || !underlying) return 1;
    return underlying->flush();
}

short GSTagWriteFileWorker::eof() {
    if (!passThrough) return 1;
    return underlying ? underlying->eof() : 1;
}

short GSTagWriteFileWorker::getError() {
    if (!passThrough) return 0;
    return underlying ? underlying->getError() : 1;
}
