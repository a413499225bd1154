// GSFileWorkerMemory.h - the file worker whose "file" is a growable block of bytes in memory.
//
// The buffer shares its storage copy-on-write with the array it was built from, so writing never
// changes the caller's bytes. Seeking never extends the data (a position past the end is clamped
// and fails); only writing grows it. Closing keeps the bytes: they can be taken afterwards with
// getBuffer().
#pragma once

#include "objects/GSDynaArray.h"
#include "storage/GSFileWorker.h"

class GSFileWorkerMemory : public GSFileWorker {
public:
    GSFileWorkerMemory();
    explicit GSFileWorkerMemory(const GSDynaArray<unsigned char>& data);
    GSFileWorkerMemory(long growBy, long capacity);

    const GSRuntimeClass* getRuntimeClass() const override;
    static GSObject* _createFunction();
    static GSRuntimeClass gsClassGSFileWorkerMemory;

    short isMemoryWorker() const override { return 1; }
    void* getMemoryAddress() const override;
    long readData(void* buffer, long count) override;
    short seek(long offset, short whence) override;
    long tell() override { return position; }
    short flush() override { return 0; }
    short eof() override { return position == buffer.getSize() ? 1 : 0; }
    short getError() override { return 0; }
    long _write(const void* data, long count) override;
    short _open() override;
    short _close(short) override { return 0; }

    const GSDynaArray<unsigned char>& getBuffer() const { return buffer; }

private:
    GSDynaArray<unsigned char> buffer;
    long position = 0;
};
