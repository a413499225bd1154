// GSTagWriteFileWorker.h - the worker a byte-form chunk writer puts between a file and its worker.
//
// A byte-form item's header holds its length, either in one byte (bodies up to 255 bytes) or in
// eight. To avoid a seek back for every small body, the body is buffered here until it is known
// to fit; the write that would make 256 bytes (or any seek, tell, read or flush) switches to
// pass-through: the long header with an 8-byte placeholder goes out first, then the buffer, and
// GSTagWrite patches the length at writeEnd. Nested items stack these workers; a switch to
// pass-through anywhere forces every worker below it through first, so headers stay in order.
#pragma once

#include "storage/GSFileWorker.h"

class GSFile;
class GSTagWrite;

class GSTagWriteFileWorker : public GSFileWorker {
public:
    explicit GSTagWriteFileWorker(GSTagWrite* owner = nullptr) : owner(owner) {}
    ~GSTagWriteFileWorker() override;

    const GSRuntimeClass* getRuntimeClass() const override;
    static GSObject* _createFunction();
    static GSRuntimeClass gsClassGSTagWriteFileWorker;

    short activate(GSFile* file);
    short deactivate(GSFile* file);
    short doPassThrough();
    short flushBuffer(int size);
    bool isActive() const { return underlying != nullptr; }

    const GSFileSpec* getFileSpec() const override;
    short startCompression(int level) override;
    short endCompression() override;
    long readData(void* buffer, long count) override;
    short seek(long offset, short whence) override;
    long tell() override;
    short flush() override;
    short eof() override;
    short getError() override;
    long _write(const void* buffer, long count) override;
    short _open() override { return 1; }
    short _close(short) override { return 1; }

private:
    GSTagWrite* owner;
    GSFileWorker* underlying = nullptr;
    short ownedUnderlying = 0;
    bool passThrough = false;
    unsigned char buffer[256] = {};
    int buffered = 0;
};
