// CacheFiller.h - one file of `ember-tide cache`: recognise, check, render, store.
//
// Each file is opened once to read its identifier; only documents go further. An entry whose
// Thumb::URI and Thumb::MTime match the file is up to date (unless forced). A document without a
// usable preview, or whose decoding outlasts the worker's deadline (GSWorkDeadline), gets a
// failure entry in our own failure folder and in GNOME's, the only one GNOME reads, so that
// desktops stop retrying it until it changes. A worker that sees the stop
// flag after rendering drops the thumbnail; one that is writing finishes the write and the
// rename, so the cache never holds half an entry. Used by several worker threads at once.
#pragma once

#include "desktop/GSThumbnailCache.h"

#include <mutex>
#include <string>

namespace tool {

enum class CacheOutcome { kWritten, kUpToDate, kFailed, kNotOurs, kAbandoned };

// A file's names in the cache, made once per file.
struct CacheEntryNames {
    std::string uri, name;
};

class CacheFiller {
public:
    CacheFiller(const GSCacheSize* size, bool force, const std::string& cacheRoot,
                bool progressLine);

    // Makes the size and failure folders; an empty text, or what went wrong.
    std::string makeFolders() const;
    // Whether the entry of `path` is one that we made for this very file and date (our type in
    // it): then the file was a document at that date and is up to date. One stat of the file and
    // a look at the entry, without opening the file; bounded work, which needs no watchdog.
    // Fills `names` either way.
    bool knownUpToDate(const std::string& path, CacheEntryNames* names) const;
    // The rest: the file is read and recognised, checked against both entries, rendered, stored.
    CacheOutcome process(const std::string& path, const CacheEntryNames& names);
    // Records `path` as failed (the failure entries of process()), for a file given up on
    // from outside.
    void recordFailure(const std::string& path);
    // Messages share the terminal with the progress line: the line is cleared first and drawn
    // again at the next tick.
    void report(const std::string& path, const std::string& what);

    // Held while anything is written to the terminal.
    std::mutex outputMutex;

private:
    void recordFailure(const std::string& path, const std::string& uri, const std::string& name,
                       long long mtime);

    const GSCacheSize* size;
    const bool force;
    const std::string sizeFolder, failFolder, gnomeFailFolder;
    const bool progressLine;
};

} // namespace tool
