// GSFileWorkerStream.h - the file worker over a real file, through a C stdio stream.
//
// Reading is fread/fseeko/ftello on a stream opened in binary. Opening for writing ("w" modes)
// removes the old file first; output files that readers must never see half-written are saved
// by their writer under a temporary name and renamed into place.
#pragma once

#include "GSFileWorker.h"

#include <cstdio>

class GSFileWorkerStream : public GSFileWorker {
public:
    GSFileWorkerStream() = default;
    ~GSFileWorkerStream() override;

    const GSFileSpec* getWorkingFileSpec() const override { return &workingSpec; }
    long readData(void* buffer, long count) override;
    short seek(long offset, short whence) override;
    long tell() override;
    short flush() override;
    short eof() override;
    short getError() override;
    short putChar(char c) override;
    long _write(const void* buffer, long count) override;
    short _open() override;
    short _close(short discard) override;

private:
    GSFileSpec workingSpec;
    std::FILE* stream = nullptr;
};
