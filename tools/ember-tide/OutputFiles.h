// OutputFiles.h - how the subcommands write what they make: whole files put in place at once,
// documents saved with the framework's safe save, links at the output followed.
//
// No reader ever sees half a file: new outputs are written beside their target and renamed into
// place (GSAtomicFile.h), an existing document is saved through the framework's temporary file
// and exchange. A symbolic link at an output stays a link, and what it leads to is written, as
// `>` would do. `thumbnail` writes OUT in place instead (InPlaceOutput.h).
#pragma once

#include <functional>
#include <string>

class GSFile;

namespace tool {

// The folder that holds `path`: "." for a bare name.
std::string folderOf(const std::string& path);

// `path` with the symbolic links at its last place followed to the item they lead to, which
// need not exist: a link at an output stays a link, and what it leads to is written.
std::string followLinks(const std::string& path);

// Writes bytes to `out` ("-": stdout) under a temporary name beside it (created exclusively and
// unpredictably), synced, renamed into place once complete, the folder synced after; a link at
// `out` is followed. Returns an empty string, or what went wrong.
std::string writeOutputFile(const std::string& out, const unsigned char* data, long size);

// Fills an open file with a whole document; 0 on success.
using DocumentWriter = std::function<short(GSFile*)>;

// Saves a document at `out` with the framework's safe save: an existing file is left alone while
// the new one is written beside it under a hidden temporary name, and a complete file is
// exchanged into its place on close ("GSFileSafetyMode" 1); with `keepBackup` the previous
// content stays under the framework's backup name, "name~.ext" (mode 3). A failed write discards
// what was written. A link at `out` is followed, so the link stays a link (a dangling one gets
// the file it names). A new file, and "-" (stdout), are built in memory and written with
// writeOutputFile; `sizeHint` is the expected size. Anything at `out` that is not a regular file
// (a folder, a device) is refused, as a save would replace it.
// Returns an empty string, or what went wrong.
std::string saveDocument(const std::string& out, bool keepBackup, long sizeHint,
                         const DocumentWriter& write);

} // namespace tool
