// GSFileWorker.h - the byte-stream backend under every GSFile.
//
// GSFile formats numbers, strings and chunks; a worker only moves bytes: to a stdio stream
// (GSFileWorkerStream), a memory block (GSFileWorkerMemory) or through a chunk writer
// (GSTagWriteFileWorker). A worker is a reference-counted GSObject, so a file and a chunk writer
// can share one. It owns its file specs, nothing else: the bytes belong to the stream or buffer
// behind it.
//
// Calling order: construct, setAccessMode, setFileSpec (normally through GSFile::setFileSpec,
// which also sets the safety mode), open, reads and writes, close; a worker may be opened again
// after a successful close. The access mode is normalised to what fopen takes ("rb", "wb+", ...):
// the C stream is always binary and newline translation is the worker's own business (getChar
// and the base putChar). The order of the virtual operations is part of the class's contract
// and is kept as it stands.
#pragma once

#include "fileformat/GSFormatNumbers.h"
#include "objects/GSObject.h"
#include "storage/GSFileSpec.h"
#include "text/GSString.h"

class GSFileWorker : public GSObject {
public:
    GSFileWorker();
    ~GSFileWorker() override;

    const GSRuntimeClass* getRuntimeClass() const override;

    // The file as the caller names it (the target).
    virtual const GSFileSpec* getFileSpec() const;
    // The file actually open: the target, or the temporary file of a safe save.
    virtual const GSFileSpec* getWorkingFileSpec() const;
    virtual short isMemoryWorker() const;
    virtual void* getMemoryAddress() const;
    // Compression is not supported here: both report 1.
    virtual short startCompression(int level);
    virtual short endCompression();
    virtual long readData(void* buffer, long count) = 0;
    // whence: 0 from the start, 1 from the current position, 2 from the end.
    virtual short seek(long offset, short whence) = 0;
    virtual long tell() = 0;
    virtual short flush() = 0;
    virtual short eof() = 0;
    virtual short getError() = 0;
    // Reads one line, newline included, translating line breaks even on a binary worker; at
    // most maxLength - 1 characters (no limit when maxLength <= 0). 1 when it stopped at the
    // end of the data.
    virtual short getString(GSString* s, int maxLength);
    // Writes `s` (through putChar when it holds a newline, so a text-mode memory worker writes
    // CR LF), then "\n" when asked. 1 when not open or a write fell short.
    virtual short putString(const GSString& s, short addNewline);
    // Decimal digits, zero-padded to `width` digits, "-" before them. 0 even when the write
    // falls short; 1 when not open.
    virtual short putLong(int value, int width);
    // The value with at most `decimals` fractional digits and no trailing zeros.
    virtual short putFloat(float value, int decimals);
    // In text mode "\n" becomes CR LF.
    virtual short putChar(char c);
    // A byte (0..255), or -1 at the end; in text mode CR, LF, CR LF and LF CR read as one 10.
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

    // 1 when already open; otherwise _open's status, and the worker is open on 0.
    short open();
    // 1 when not open; otherwise _close's status, and the worker is closed on 0 (a failed close
    // leaves it marked open). A nonzero `discard` throws away what was written.
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
