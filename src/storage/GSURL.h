// GSURL.h - the file-system layer: file URLs behind opaque handles, file states, moves.
//
// Every contact of the file classes with the platform's file system goes through these free
// functions, so nothing else touches the platform. A URL is an opaque `void*`: a Foundation
// NSURL on Apple platforms (GSURL_apple.mm), a small reference-counted path object elsewhere
// (GSURL_posix.cpp). Every function first checks that its URL arguments are URLs and treats
// anything else as absent. Functions named Create return a new reference that the caller
// releases, normally by adopting it into a GSIdPointer. None of them throws. Statuses are 0 for
// success and 1 for failure; a `detail`, where given, receives the platform's error text on
// failure and is left alone on success.
//
// A URL names an item by its absolute path and says whether it was named as a folder (a folder
// URL ends in "/"); two URLs are equal when both agree. Making a URL touches the disk only to
// resolve links when asked to and, when appending a component, to ask whether the result is an
// existing folder.
//
// Texts cross the boundary as the framework's strings do: into the platform from Windows Latin 1
// (tag 0), UTF-8 (tag 100) or Mac Roman (every other tag); back as UTF-8, a null string when the
// platform's text is empty. On Linux a file name is bytes: UTF-8-tagged text crosses unchanged
// even where it is not valid UTF-8, and names read back are tagged UTF-8 as they are, so a name
// that the file system gave always names the same item again.
//
// Dates cross at millisecond precision, in UTC: the platform's fraction of a second f becomes
// floor(f * 1000 + 0.49) milliseconds (1000 carries into the next second). A GSDate that is no
// calendar date (GSDate::invalid, a 30 February) is not written.
#pragma once

#include "storage/GSFileState.h"
#include "storage/GSIdPointer.h"
#include "text/GSString.h"

// ---------------------------------------------------------------- making and reading URLs
// Null for an empty path. A path that begins with "file://" is read as a URL string, any other
// as a file path (a folder's when `isDirectory` is 1 or the path ends in "/"; relative to the
// current folder when it does not begin with "/"). With `resolveFolder` nonzero the folder part
// is resolved through symbolic links and the last component appended again, so a link in the
// last place stays the item it is.
void* GSURLCreateWithFilePath(const GSString& path, short isDirectory, short resolveFolder);
// Null for an empty component or no URL.
void* GSURLCreateByAppending(const void* url, const GSString& component);
// Null without a URL.
void* GSURLCreateByDeletingLastPathComponent(void* url);
// Null without a URL, without a last component, or for the root.
void* GSURLCreateParentURL(void* url);
// 1 when the URL's last path component is "/".
short GSURLIsRoot(const void* url);
// The POSIX path with one trailing "/" removed (so the root's is empty); empty without a URL.
GSString GSURLGetPathname(const void* url);
// The last path component ("/" for the root); empty without a URL.
GSString GSURLGetLastPathComponent(const void* url);
// 1 when both are absent or both name the same URL.
short GSURLIsEqual(const void* a, const void* b);

// ---------------------------------------------------------------- the items themselves
// Resolves the symbolic links of the whole path and, on Apple platforms, an alias file (`options`
// bit 1: without mounting volumes, bit 2: without user interface). When that leads elsewhere,
// `resolved` shares the result and `*isFolder` (if given) says whether it is a folder; otherwise
// `resolved` is left empty. 1 only when `url` is no URL.
short GSURLResolveLinkOrAlias(const void* url, int options, GSIdPointer* resolved, short* isFolder);
// Clears `valid`; 1 when there is no URL or the item cannot be reached (a symbolic link is the
// item itself, not what it points to). Otherwise reads the access, creation and modification
// dates in that order into one working date, so a date the file system does not keep takes
// the one read before it; then the hidden, folder, package and locked flags (a flag that cannot
// be read keeps its bit), clears bit 4, sets `valid` and returns 0.
short GSURLFillFileState(const void* url, GSFileState* state);
// Writes the three dates and the hidden and locked flags to the item in one step. 1 when there
// is no URL or the item cannot be reached, or with `detail` when the platform refuses. On Linux
// the creation date cannot be set and hiddenness is the name's leading dot; both are left
// as they are.
short GSURLSetFileState(void* url, const GSFileState& state, GSString* detail);
// Puts the item at `replacement` in `target`'s place, keeping the target's permissions and
// owner. The old item is deleted, or kept under `backupName` (a bare name, in the target's
// folder) when that is not empty. `replacement` no longer exists afterwards. A failure leaves
// both items as they were, except that a failure to dispose of the old item after the new one
// is in place leaves the old item under `replacement`'s name. 1 without both URLs.
short GSURLReplaceWithURL(void* target, void* replacement, const GSString& backupName,
                          GSString* detail);
// Moves (renames) `from` to `to`; fails when `to` exists. 1 without both URLs.
short GSURLMoveToURL(void* from, void* to, GSString* detail);
// Deletes the item (a real deletion, no trash); a folder with everything in it. Symbolic links
// are deleted, never followed. 1 without a URL.
short GSURLRemove(void* url, GSString* detail);

#if !defined(__APPLE__)
// Whether moves and replacements may use the flags of Linux's renameat2 (RENAME_NOREPLACE,
// RENAME_EXCHANGE) where the file system offers them; on by default. Turned off, they take the
// paths of file systems without those flags, which is how those paths are tested.
void GSURLAllowRenameFlags(bool allowed);
#endif
