// CacheFiller.cpp - one file of the cache run.
#include "CacheFiller.h"

#include "CacheStop.h"
#include "Tool.h"
#include "Watchdog.h"
#include "storage/GSAtomicFile.h"
#include "thumbnail/GSThumbnailRenderer.h"
#include "thumbnail/GSWorkDeadline.h"

#include <cerrno>
#include <fcntl.h>
#include <sys/stat.h>
#include <system_error>
#include <unistd.h>
#include <vector>

namespace tool {

namespace {

constexpr const char* kMimeType = "application/x-ember-tide-document";
// GNOME's thumbnail factory reads failure entries from this folder only: the desktop that would
// run our thumbnailer, see it fail and record the failure here itself.
constexpr const char* kGnomeFailFolder = "gnome-thumbnail-factory";

} // namespace

CacheFiller::CacheFiller(const GSCacheSize* size, bool force, const std::string& cacheRoot,
                         bool progressLine)
    : size(size), force(force), sizeFolder(cacheRoot + "/" + size->name),
      failFolder(cacheRoot + "/fail/ember-tide-" ET_VERSION),
      gnomeFailFolder(cacheRoot + "/fail/" + kGnomeFailFolder), progressLine(progressLine) {}

std::string CacheFiller::makeFolders() const {
    for (const std::string* folder : {&sizeFolder, &failFolder}) {
        std::string problem = GSMakePrivateFolders(*folder);
        if (!problem.empty()) return *folder + ": " + problem;
    }
    return {};
}

bool CacheFiller::knownUpToDate(const std::string& path, CacheEntryNames* names) const {
    names->uri = GSFileURI(path);
    names->name = GSCacheEntryName(names->uri);
    struct stat known;
    GSPNGText keys;
    const std::string* type = nullptr;
    return !force && ::stat(path.c_str(), &known) == 0 && S_ISREG(known.st_mode) &&
           GSCacheEntryIsCurrent(sizeFolder + "/" + names->name, names->uri, known.st_mtime,
                                 &keys) &&
           (type = GSFindTextKey(keys, "Thumb::Mimetype")) && *type == kMimeType;
}

CacheOutcome CacheFiller::process(const std::string& path, const CacheEntryNames& names) {
    const std::string& uri = names.uri;
    const std::string& name = names.name;
    int fd = ::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY);
    if (fd < 0) {
        report(path, "cannot read: " + GSErrorText(errno));
        return CacheOutcome::kFailed;
    }
    struct stat st;
    unsigned char head[kGSIdentifierBytes];
    ssize_t n = 0;
    bool statted = ::fstat(fd, &st) == 0;
    int error = statted ? 0 : errno;
    if (statted && S_ISREG(st.st_mode)) {
        do {
            n = ::read(fd, head, sizeof head);
        } while (n < 0 && errno == EINTR);
        if (n < 0) error = errno;
    }
    ::close(fd);
    if (error) {
        report(path, "cannot read: " + GSErrorText(error));
        return CacheOutcome::kFailed;
    }
    if (!S_ISREG(st.st_mode) || !GSStartsAsDocument(head, static_cast<size_t>(n)))
        return CacheOutcome::kNotOurs;

    const long long mtime = st.st_mtime;
    if (!force) {
        if (GSCacheEntryIsCurrent(sizeFolder + "/" + name, uri, mtime))
            return CacheOutcome::kUpToDate;
        if (GSCacheEntryIsCurrent(failFolder + "/" + name, uri, mtime)) {
            report(path, "no usable preview (a failure recorded earlier; --force tries again)");
            return CacheOutcome::kFailed;
        }
    }
    if (stopping()) return CacheOutcome::kAbandoned;

    GSThumbnailRequest request;
    request.path = path;
    request.maxSize = size->pixels;
    request.text = {{"Thumb::URI", uri},
                    {"Thumb::MTime", std::to_string(mtime)},
                    {"Thumb::Size", std::to_string(static_cast<long long>(st.st_size))},
                    {"Thumb::Mimetype", kMimeType},
                    {"Software", "ember-tide " ET_VERSION}};
    GSThumbnailResult result = GSRenderThumbnail(request);
    if (stopping()) return CacheOutcome::kAbandoned;

    switch (result.status) {
    case GSThumbnailStatus::kOK: {
        std::string problem = GSWriteCacheEntry(sizeFolder, name, result.png);
        if (!problem.empty()) {
            report(path, "cannot write its thumbnail in " + sizeFolder + ": " + problem);
            return CacheOutcome::kFailed;
        }
        ::unlink((failFolder + "/" + name).c_str()); // an earlier failure no longer holds
        return CacheOutcome::kWritten;
    }
    case GSThumbnailStatus::kCannotOpen:
        // The standard keeps nothing, failure entries included, for files that cannot be read.
        report(path, "cannot read: " + result.message);
        return CacheOutcome::kFailed;
    case GSThumbnailStatus::kNoPreview:
    case GSThumbnailStatus::kUndecodable:
        break;
    }
    // Out of time is recorded as a failure too: the file would take as long on the next run.
    if (GSWorkTimedOut())
        report(path, "more than " + fileCPUSecondsText() + " s of processor time; given up");
    else
        report(path, result.message);
    recordFailure(path, uri, name, mtime);
    return CacheOutcome::kFailed;
}

void CacheFiller::recordFailure(const std::string& path) {
    struct stat st;
    if (::stat(path.c_str(), &st) != 0) return;
    const std::string uri = GSFileURI(path);
    recordFailure(path, uri, GSCacheEntryName(uri), st.st_mtime);
}

void CacheFiller::recordFailure(const std::string& path, const std::string& uri,
                                const std::string& name, long long mtime) {
    std::vector<unsigned char> entry = GSMakeFailureEntry(uri, mtime, "ember-tide " ET_VERSION);
    for (const std::string* folder : {&failFolder, &gnomeFailFolder}) {
        std::string problem = GSMakePrivateFolders(*folder);
        if (problem.empty()) problem = GSWriteCacheEntry(*folder, name, entry);
        if (!problem.empty())
            report(path, "cannot record the failure in " + *folder + ": " + problem);
    }
}

void CacheFiller::report(const std::string& path, const std::string& what) {
    std::lock_guard<std::mutex> lock(outputMutex);
    if (progressLine) {
        std::fputs("\r\033[K", stderr);
    }
    message(path, what);
}

} // namespace tool
