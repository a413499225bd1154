// GSAtomicFile.h - the one way a whole new file is written outside the framework's safe save.
//
// The bytes go to a temporary file beside the target, created exclusively under an
// unpredictable hidden name (".name.xxxxxx", write access only, never through a link), are
// synced when asked, and the file is renamed over the target once complete; the folder is synced
// after the rename. A reader of the target sees the old file or the whole new one, never half of
// one, and a failure removes the temporary file. The tool's new outputs (create and convert to a
// new file, extract) and the desktop cache's entries are written here; a document that already
// exists is saved with the framework's own safe save (GSFile with a safety mode) instead, and
// `thumbnail` writes its OUT in place because its caller may hold that file open.
//
// Beside it: the small POSIX helpers every writer of ours needs (a loop that writes everything,
// the text of an errno), so that no caller keeps its own copy.
#pragma once

#include <cstddef>
#include <string>

// The system's text for an errno value ("No space left on device").
std::string GSErrorText(int error);

// Writes all `size` bytes to `fd`, retrying after signals and short writes; false with errno
// set when the descriptor refuses.
bool GSWriteAll(int fd, const void* bytes, size_t size);

struct GSAtomicFileOptions {
    // 0: a new file's usual mode (0666 less the umask). Otherwise exactly this mode, umask or
    // not (the cache's entries are private, 0600).
    unsigned mode = 0;
    // Sync the bytes before the rename and the folder after it, so that a power cut leaves the
    // old file or the new one. A cache entry, which is made again when lost, skips both.
    bool durable = true;
};

// Writes `bytes` as the file `path` (whose folder must exist) as described above. Returns an
// empty string, or the system's text of what went wrong.
std::string GSWriteFileAtomically(const std::string& path, const void* bytes, size_t size,
                                  const GSAtomicFileOptions& options = {});
