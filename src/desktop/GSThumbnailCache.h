// GSThumbnailCache.h - the desktop's shared thumbnail cache: where a file's thumbnail lives,
// what it must say about the file, and whether what is there is still good.
//
// Desktops that follow the freedesktop thumbnail rules keep one cache per user,
// $XDG_CACHE_HOME/thumbnails (default ~/.cache/thumbnails), with a folder per size (normal 128,
// large 256, x-large 512, xx-large 1024 pixels) and fail/<program>-<version>/ for files a
// program could not thumbnail. An entry is named by the MD5 of the file's URI in lower-case hex
// plus ".png"; it is valid while its Thumb::URI and Thumb::MTime text keys match the file.
// Folders are private (0700), entries too (0600), and entries appear by rename, so that a
// reader never sees half of one.
//
// This file owns the naming, the URI form, reading the keys back and the safe write; walking
// folders and rendering are the caller's. Everything here is safe to call from several threads.
#pragma once

#include "thumbnail/GSPNGWriter.h"

#include <string>
#include <vector>

struct GSCacheSize {
    const char* name; // the folder's name: "normal", "large", "x-large", "xx-large"
    int pixels;       // the thumbnail fits into pixels x pixels
};

// The size called `name`, or null when there is none of that name.
const GSCacheSize* GSFindCacheSize(const std::string& name);

// The file: URI of an absolute path, as GLib writes it (and so as GNOME's file manager asks for
// it): every byte outside A-Z a-z 0-9 and !$&'()*+,-./:=@_~ becomes %XX (upper-case hex), so
// spaces become %20 and a UTF-8 name keeps its bytes, each escaped.
std::string GSFileURI(const std::string& absolutePath);

// 32 lower-case hex digits.
std::string GSMD5Hex(const void* bytes, size_t count);
// <md5 of uri>.png
std::string GSCacheEntryName(const std::string& uri);

// The thumbnails folder: $XDG_CACHE_HOME/thumbnails when that variable is an absolute path,
// else $HOME/.cache/thumbnails (the password database's home when HOME is unset). Empty when
// there is no home at all.
std::string GSThumbnailCacheRoot();

// Whether the first bytes of a file are a document's identifier (a selection's is not).
bool GSStartsAsDocument(const unsigned char* head, size_t count);
bool GSStartsAsSelection(const unsigned char* head, size_t count);
inline constexpr size_t kGSIdentifierBytes = 21; // enough for either identifier and its NUL

// The tEXt keys of a whole PNG file. False when the file cannot be read or is no complete PNG
// (a missing IEND, a chunk running past the end): such an entry is never current.
bool GSReadPNGTextKeys(const std::string& path, GSPNGText* keys);
const std::string* GSFindTextKey(const GSPNGText& keys, const char* key);

// Whether the entry at `entryPath` exists, is a complete PNG and names this URI and mtime. The
// entry's keys are left in `keys` when given (whoever wrote it may be asked: Software, ...).
bool GSCacheEntryIsCurrent(const std::string& entryPath, const std::string& uri, long long mtime,
                           GSPNGText* keys = nullptr);

// Creates `folder` and the missing folders above it with mode 0700. Returns an empty string, or
// what went wrong.
std::string GSMakePrivateFolders(const std::string& folder);

// Writes `bytes` as folder/name: a temporary file in the same folder (mode 0600), renamed into
// place once complete; the temporary file is removed on failure. Returns an empty string, or
// what went wrong.
std::string GSWriteCacheEntry(const std::string& folder, const std::string& name,
                              const std::vector<unsigned char>& bytes);

// The failure entry of the standard: a 1 x 1 transparent PNG that carries the file's
// Thumb::URI and Thumb::MTime (and `software`), so that readers stop retrying the file until it
// changes. Empty when encoding failed.
std::vector<unsigned char> GSMakeFailureEntry(const std::string& uri, long long mtime,
                                              const std::string& software);
