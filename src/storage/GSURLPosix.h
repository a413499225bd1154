// GSURLPosix.h - what the POSIX files of the file-system layer share: the handle and its texts.
//
// The layer over POSIX calls is three files: GSURL_posix.cpp makes, compares and counts the
// handles; GSURLFileState_posix.cpp reads and writes an item's dates and flags;
// GSURLChanges_posix.cpp renames, replaces and removes items. This header declares what more
// than one of them needs: the handle (GSPosixURL) and the check that turns a pointer into one,
// the guard that keeps exceptions inside the layer, the crossing of texts between the
// framework's strings and file-system bytes, and the three path helpers that work on a tidy
// path's text alone. It is internal to those files; everything else reaches the layer through
// GSURL.h only.
#pragma once

#include "storage/GSURL.h"

#include <atomic>
#include <string>
#include <string_view>

// Marks a live GSPosixURL. Checking it is the counterpart of asking a Foundation object for its
// class: it turns a handle of another kind, or one already freed, into "no URL" in practice; it
// cannot make reading through a wild pointer safe.
constexpr unsigned kURLMagic = 0x4753524Cu;

struct GSPosixURL {
    unsigned magic = kURLMagic;
    std::atomic<long> references{1};
    std::string path;       // absolute and tidy; "/" for the root
    bool directory = false; // named as a folder
};

// The live handle behind `url`, or null for anything else.
GSPosixURL* GSURLObject(const void* url);

// Runs `body`, turning an exception (memory running out inside std::string) into `failure`:
// nothing of this layer throws.
template <class Result, class Body> Result GSGuarded(Result failure, Body&& body) noexcept {
    try {
        return body();
    } catch (...) {
        return failure;
    }
}

// ---------------------------------------------------------------- texts

// The bytes of `text` as the file system takes them: UTF-8 as it stands, Windows Latin 1 and
// every other tag (read as Mac Roman, as on Apple platforms) converted to UTF-8. False for a
// text with a NUL in it, which no path can hold.
bool GSPlatformBytes(const GSString& text, std::string* out);
// The framework's string from file-system bytes, tagged UTF-8 as they are; null when empty.
GSString GSStringFromPlatform(std::string_view bytes);
// The platform's error text for `error` on `path`.
void GSSetDetail(GSString* detail, const std::string& path, int error);

// ---------------------------------------------------------------- paths

// Appends the components of `raw` to `path` (absolute and tidy), dropping empty and "."
// components.
void GSAppendComponents(std::string* path, std::string_view raw);
// The folder holding `path` ("/" for the root itself, as ".." of the root is the root).
std::string GSParentPath(const std::string& path);
// The last component of `path` ("/" for the root itself).
std::string_view GSLastComponent(const std::string& path);
