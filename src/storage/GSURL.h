// GSURL.h - the file-system layer: file URLs behind opaque handles.
//
// Every contact of the file classes with the platform's file system goes through these free
// functions, so nothing else touches the platform. A URL is an opaque `void*`: a Foundation
// NSURL on Apple platforms (GSURL_apple.mm). Every function first checks that its URL arguments
// are URLs and treats anything else as absent. Functions named Create return a new reference
// that the caller releases, normally by adopting it into a GSIdPointer. None of them throws.
//
// Texts cross the boundary as the framework's strings do: into the platform from Windows Latin 1
// (tag 0), UTF-8 (tag 100) or Mac Roman (every other tag); back as UTF-8, a null string when the
// platform's text is empty or cannot be converted.
#pragma once

#include "GSIdPointer.h"
#include "GSString.h"

// Null for an empty path. A path that begins with "file://" is read as a URL string, any other
// as a file path (a folder's when `isDirectory` is 1). With `resolveFolder` nonzero the folder
// part is resolved through symbolic links and the last component appended again.
void* GSURLCreateWithFilePath(const GSString& path, short isDirectory, short resolveFolder);
// Null for an empty component or no URL.
void* GSURLCreateByAppending(const void* url, const GSString& component);
// Null without a URL.
void* GSURLCreateByDeletingLastPathComponent(void* url);
// Null without a URL, without a last component, or for the root.
void* GSURLCreateParentURL(void* url);
// 1 when the URL's last path component is "/".
short GSURLIsRoot(const void* url);
// The POSIX path with one trailing "/" removed; empty without a URL.
GSString GSURLGetPathname(const void* url);
// The last path component; empty without a URL.
GSString GSURLGetLastPathComponent(const void* url);
// 1 when both are absent or both name the same URL.
short GSURLIsEqual(const void* a, const void* b);
