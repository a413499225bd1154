// OutputFiles.cpp - output files and the safe save of documents.
#include "OutputFiles.h"

#include "fileformat/GSFile.h"
#include "fileformat/GSFormatNumbers.h"
#include "objects/GSLongDictionaryKey.h"
#include "objects/GSObjectDictionary.h"
#include "objects/GSObjectRef.h"
#include "storage/GSAtomicFile.h"
#include "storage/GSFileSpec.h"
#include "storage/GSFileSpecKeys.h"
#include "storage/GSFileWorker.h"
#include "storage/GSFileWorkerMemory.h"

#include <cerrno>
#include <sys/stat.h>
#include <unistd.h>

namespace tool {

std::string folderOf(const std::string& path) {
    const size_t slash = path.rfind('/');
    if (slash == std::string::npos) return ".";
    return slash == 0 ? "/" : path.substr(0, slash);
}

std::string followLinks(const std::string& path) {
    std::string current = path;
    // As many links in a row as the kernel follows; a loop ends here as it would there (ELOOP,
    // when the last one is opened).
    for (int hop = 0; hop < 40; ++hop) {
        struct stat st;
        if (::lstat(current.c_str(), &st) != 0 || !S_ISLNK(st.st_mode)) break;
        std::string target(static_cast<size_t>(st.st_size > 0 ? st.st_size : 255) + 1, '\0');
        ssize_t n = ::readlink(current.c_str(), target.data(), target.size());
        if (n <= 0 || static_cast<size_t>(n) >= target.size()) break;
        target.resize(static_cast<size_t>(n));
        current = target[0] == '/' ? target : folderOf(current) + "/" + target;
    }
    return current;
}

std::string writeOutputFile(const std::string& named, const unsigned char* data, long size) {
    const size_t count = static_cast<size_t>(size);
    if (named == "-") return GSWriteAll(STDOUT_FILENO, data, count) ? "" : GSErrorText(errno);
    // A link at OUT stays a link: what it leads to is written, even where that does not exist
    // yet, as `>` would do.
    return GSWriteFileAtomically(followLinks(named), data, count);
}

namespace {

// What errno says, or `otherwise` when the framework failed without setting it.
std::string lastErrorOr(const char* otherwise) {
    return errno ? GSErrorText(errno) : otherwise;
}

// The whole document in memory: for standard output, and for a new file, which is then
// written as every new output is (writeOutputFile).
std::string saveThroughMemory(const std::string& out, long sizeHint, const DocumentWriter& write) {
    GSFile file;
    if (file.init(GSGrowDouble, sizeHint + 4096)) return "out of memory";
    file.getFileWorker()->setAccessMode("wb+");
    if (file.open() || write(&file)) return "cannot make the document";
    const auto& bytes = static_cast<GSFileWorkerMemory*>(file.getFileWorker())->getBuffer();
    return writeOutputFile(out, bytes.getData(), bytes.getSize());
}

} // namespace

std::string saveDocument(const std::string& named, bool keepBackup, long sizeHint,
                         const DocumentWriter& write) {
    if (named == "-") return saveThroughMemory(named, sizeHint, write);
    const std::string out = followLinks(named);
    // A save puts a new file where the old item was: a folder would be exchanged and then
    // deleted with all it holds, a device replaced by a plain file.
    struct stat st;
    if (::lstat(out.c_str(), &st) != 0) return saveThroughMemory(out, sizeHint, write);
    if (!S_ISREG(st.st_mode)) return S_ISDIR(st.st_mode) ? "is a folder" : "not a regular file";

    // Over an existing file the framework saves through a hidden temporary file that is
    // exchanged into place when complete, keeping the old content as a backup when asked.
    GSFileSpec spec(GSString(out.c_str(), -1, GSString::kUTF8));
    GSObjectRef<GSLongDictionaryKey> mode(new GSLongDictionaryKey(
        keepBackup ? GSSafetyTemporaryFile | GSSafetyBackup : GSSafetyTemporaryFile));
    if (spec.getOrCreateDictionary()->setObjectValue(GSFileSafetyModeKey, mode.get()))
        return "out of memory";
    GSFile file(spec, 0);
    if (!file.getFileWorker()) return "out of memory";
    file.getFileWorker()->setAccessMode("wb+");
    errno = 0;
    if (file.open()) return lastErrorOr("cannot be created");
    errno = 0;
    if (write(&file)) {
        std::string error = lastErrorOr("cannot be written");
        file.close(GSCloseDiscard); // discards the temporary file; the old document stays as it was
        return error;
    }
    errno = 0;
    if (file.close(GSCloseKeep)) return lastErrorOr("cannot be saved");
    return {};
}

} // namespace tool
