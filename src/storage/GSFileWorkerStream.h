// GSFileWorkerStream.h - the file worker over a real file, through a C stdio stream, with safe
// saving.
//
// Reading is fread/fseeko/ftello on a stream opened in binary. Writing a file anew ("w" modes)
// with bit 1 of the safety mode set, over a file that exists, is a safe save: the target is left
// alone, the bytes go to a hidden temporary file beside it (".tmp" + ten random letters or
// digits + the target's extender), and a complete close puts that file in the target's place in
// one platform step (GSFileSpec::exchangeWith). With bit 2 the old content is kept as
// "name~.ext" (more tildes while a name is taken and cannot be freed). A failure before the
// exchange, or a close that discards, deletes only the temporary file. Without safe mode a "w"
// open deletes the old file first.
//
// Other processes may save beside us at the same time, and another user may plant links in a
// shared folder: every file that a write creates is created exclusively and without following
// a link (O_CREAT | O_EXCL | O_NOFOLLOW), a temporary name that is taken is passed over for the
// next one, a write into an existing file never follows a link at its name (callers that want
// the link's target resolve it first, as GSFile does), and the worker deletes a file on failure
// only while the name still holds the item that it created or that the exchange put there.
//
// Beyond that protocol, and without changing its results: the temporary file's bytes are
// synced to the disk before the exchange and the folder after it, so that a power cut leaves the
// target with either the old or the new content, never an empty or torn file. A write or flush
// that fell short is remembered until close even when a later seek clears the stream's error
// indicator, so a file with a hole is never exchanged in. Every such call goes through
// GSFileWorkerStreamIO, where tests inject failures.
#pragma once

#include "storage/GSFileWorker.h"

#include <cstdio>

class GSFileWorkerStreamIO;

class GSFileWorkerStream : public GSFileWorker {
public:
    GSFileWorkerStream();
    // Does not close through the protocol (nothing is exchanged); the stream is closed so that
    // its descriptor does not leak.
    ~GSFileWorkerStream() override;

    const GSFileSpec* getWorkingFileSpec() const override { return &workingSpec; }
    long readData(void* buffer, long count) override;
    short seek(long offset, short whence) override;
    long tell() override;
    short flush() override;
    short eof() override;
    short getError() override;
    // The byte as it is, in every mode: a stream writes bare LF.
    short putChar(char c) override;
    long _write(const void* buffer, long count) override;
    short _open() override;
    short _close(short discard) override;

    // Backup names. removeBackupSpec: 1 when `spec` names nothing or its item could be deleted
    // (the name is free); 0 after a failed deletion, reported as message 49703.
    short removeBackupSpec(const GSFileSpec& spec) const;
    // "name.extbak", "name.extbak1", ... up to 1000 tries; the last removeBackupSpec result.
    short createStandardBackupSpec(GSFileSpec* out) const;
    // Clears the standard backup away, then "name~.ext", "name~~.ext", ... up to 1000 tries.
    short createBackupSpec(GSFileSpec* out) const;

private:
    // Which item a name holds: device and inode.
    struct Identity {
        unsigned long long device = 0, inode = 0;
        bool known = false;
    };

    // Opens workingSpec's file for the access mode; a descriptor or -1.
    int openWorkingFile();
    // Steps of _close after the stream is closed.
    short exchangeWithTarget();
    short keepOldContentAsBackup();
    // Deletes the working file if its name still holds `owned`.
    void removeWorkingFile();

    GSFileSpec workingSpec;
    std::FILE* stream = nullptr;
    GSFileWorkerStreamIO* io;
    bool writeFailed = false; // a write or flush fell short since open
    Identity owned;           // the item at workingSpec's name that is this worker's to delete
};
