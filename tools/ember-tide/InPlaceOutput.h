// InPlaceOutput.h - the thumbnailer's OUT, written in place the way a shell's `>` writes a file.
//
// Thumbnail services do not all read OUT by name after we exit: Xfce's tumbler opens OUT itself,
// runs us, waits, and reads through the stream it opened first, so a new file renamed over OUT
// would never reach it. Whoever reads FILE is confined first and keeps no right to write
// anywhere (Thumbnail.cpp). An OUT that exists is opened and emptied before FILE is read, so
// that every failure, a kill by the CPU limit included, leaves it empty instead of holding an
// older picture beside an error status; an OUT that does not exist is made only once the
// picture is there (by the process that did not read FILE), so a failure leaves no file at all.
// The caller waits for our exit, so nobody sees the file half written.
//
// As with `>`: a symbolic link is written through (the link stays, its target gets the bytes),
// an existing file keeps its inode, mode and owner, a new one gets 0666 less the umask, and a
// FIFO or a device is written to, never replaced by a regular file. Unlike `>`, OUT naming FILE
// itself (through a link or a hard link too) is refused before anything is emptied: the
// document would be lost. "-" and "/dev/stdout" are standard output itself, never reopened or
// emptied (it may be a socket, or a file the caller appends to).
#pragma once

#include <cstddef>
#include <string>

namespace tool {

class InPlaceOutput {
public:
    InPlaceOutput() = default;
    ~InPlaceOutput();
    InPlaceOutput(const InPlaceOutput&) = delete;
    InPlaceOutput& operator=(const InPlaceOutput&) = delete;

    // Opens and empties `out`, the output made from `input`; with `create` false an `out` that
    // does not exist is left so (isOpen() stays false). Returns an empty string, or what went
    // wrong (OUT is then untouched).
    std::string open(const std::string& out, const std::string& input, bool create);
    bool isOpen() const { return fd >= 0; }

    // Writes all of `data` and closes OUT. A regular file that could not take it all is emptied
    // again. Returns an empty string, or what went wrong.
    std::string write(const unsigned char* data, size_t size);

private:
    int fd = -1;
    bool ownsFd = false;
    bool regular = false; // a regular file, which can be emptied again
};

} // namespace tool
