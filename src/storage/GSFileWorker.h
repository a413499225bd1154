// GSFileWorker.h - the byte-stream backend under every GSFile.
//
// GSFile formats numbers, strings and chunks; a worker only moves bytes: to a stdio stream
// (GSFileWorkerStream), a memory block (GSFileWorkerMemory) or through a chunk writer
// (GSTagWriteFileWorker). A worker is a reference-counted GSObject, so a file and a chunk writer
// can share one. The access mode is normalised to what fopen takes ("rb", "wb+", ...): the C
// stream is always binary and newline translation is the worker's own business (getChar/putChar).
#pragma once

#include "GSFileSpec.h"
#include "GSObject.h"
#include "GSString.h"

enum : unsigned {
    GSAccessRead = 1,
    GSAccessWrite = 2,
    GSAccessBinary = 4,
    GSAccessTruncate = 8,
};

class GSFileWorker : public GSObject {
public:
    GSFileWorker();
    ~GSFileWorker() override;

    const GSRuntimeClass* getRuntimeClass() const override;

    virtual const GSFileSpec* getFileSpec() const;
    virtual const GSFileSpec* getWorkingFileSpec() const;
    virtual short isMemoryWorker() const;
    virtual void* getMemoryAddress() const;
    virtual short startCompression(int level);
    virtual short endCompression();
    virtual long readData(void* buffer, long count) = 0;
    virtual short seek(long offset, short whence) = 0;
    virtual long tell() = 0;
    virtual short flush() = 0;
    virtual short eof() = 0;
    virtual short getError() = 0;
    virtual short getString(GSString* s, int maxLength);
    virtual short putString(const GSString& s, short addNewline);
    virtual short putLong(int value, int width);
    virtual short putChar(char c);
    virtual short getChar();
    virtual long _write(const void* buffer, long count) = 0;
    virtual short _open() = 0;
    virtual short _close(short discard) = 0;

    void setAccessMode(const char* mode);
    const char* getAccessMode() const { return accessMode; }
    unsigned getAccessFlags() const { return accessFlags; }
    void setFileSpec(const GSFileSpec& spec) { fileSpec = spec; }
    unsigned getSafetyMode() const { return safetyMode; }
    void setSafetyMode(unsigned mode) { safetyMode = mode; }
    short isOpened() const { return isOpen; }
    bool hasCompression() const { return compression != nullptr; }
    // Marks the worker open without the open protocol (used by the chunk writer's worker).
    void setOpened(short open) { isOpen = open; }

    short open();
    short close(short discard);
    long writeData(const void* buffer, long count) { return _write(buffer, count); }

    static GSRuntimeClass gsClassGSFileWorker;

protected:
    GSFileSpec fileSpec;
    char accessMode[4] = {};
    unsigned accessFlags = 0;
    unsigned safetyMode = 0;
    short isOpen = 0;
    void* compression = nullptr;
};
