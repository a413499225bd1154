// GSFileWorkerStreamIO.h - the calls through which the stream worker writes and saves: a seam
// for tests.
//
// GSFileWorkerStream does every step that can lose data through one object of this class:
// writing, flushing and syncing the stream, closing it, exchanging the finished temporary file
// with the target, renaming the old content to its backup name, and syncing the folder after
// the exchange. The default object makes the real calls. Tests derive from the class, call the
// base operations for the calls they let through, fail the ones they choose, and install their
// object with setCurrent; production code never installs one. That is how a save is shown to
// leave the old file intact when its n-th write, flush, sync, close, exchange or rename fails.
//
// A worker takes the current object when it opens and keeps it until it closes, so installing
// another one never changes a save half-way. setCurrent is not for use while other threads save.
#pragma once

#include <cstddef>
#include <cstdio>

class GSFileSpec;
class GSString;

class GSFileWorkerStreamIO {
public:
    virtual ~GSFileWorkerStreamIO();

    // fwrite: the number of bytes written.
    virtual size_t write(const void* bytes, size_t count, std::FILE* stream);
    // fflush: 0 or EOF.
    virtual int flush(std::FILE* stream);
    // Makes the bytes already handed to the system durable (fsync of the stream's descriptor;
    // on Apple platforms F_FULLFSYNC, which also empties the drive's cache, where the file
    // system takes it). The stream's own buffer is flushed before, by `flush`. 0 or -1.
    virtual int sync(std::FILE* stream);
    // fclose: 0 or EOF. The stream is gone afterwards either way.
    virtual int close(std::FILE* stream);
    // working.exchangeWith(target, removeOld, detail).
    virtual short exchange(GSFileSpec* working, const GSFileSpec& target, short removeOld,
                           GSString* detail);
    // spec->rename(newName, detail).
    virtual short rename(GSFileSpec* spec, const GSString& newName, GSString* detail);
    // Makes the entries of the folder holding `item` durable (fsync of the folder). 0 or -1.
    virtual int syncFolder(const GSFileSpec& item);

    // The object workers use from their next open on.
    static GSFileWorkerStreamIO* getCurrent();
    // Installs `io` (owned by the caller, alive while workers use it); null restores the real
    // calls. For tests only.
    static void setCurrent(GSFileWorkerStreamIO* io);
};
