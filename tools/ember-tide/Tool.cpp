// Tool.cpp - messages, the preview look-up, version numbers and safe output files.
#include "Tool.h"

#include "GSAtomicFile.h"
#include "GSFile.h"
#include "GSFileSpec.h"
#include "GSFileSpecKeys.h"
#include "GSFileWorker.h"
#include "GSFileWorkerMemory.h"
#include "GSFormatNumbers.h"
#include "GSLongDictionaryKey.h"
#include "GSMemPicData.h"
#include "GSObjectDictionary.h"
#include "GSObjectRef.h"
#include "PrintableText.h"

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <exception>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace tool {

void message(const std::string& file, const std::string& what) {
    std::fprintf(stderr, "ember-tide: %s: %s\n", printable(file).c_str(), what.c_str());
}

void usageError(const char* command, const std::string& what) {
    std::fprintf(stderr, "ember-tide: %s%s%s\nTry 'ember-tide %s--help'.\n", command ? command : "",
                 command ? ": " : "", printable(what).c_str(),
                 command ? (std::string(command) + " ").c_str() : "");
}

const char* formatName(int kind) {
    return kind == GSPreviewPNG ? "png" : "jpeg";
}

DocumentPreview readDocumentPreview(const std::string& path, bool selections) {
    DocumentPreview result;
    struct stat st;
    if (::stat(path.c_str(), &st) != 0) {
        result.problem = GSErrorText(errno);
        return result;
    }
    if (!S_ISREG(st.st_mode)) {
        // A pipe or a device could block the reader for ever, or never end.
        result.problem = S_ISDIR(st.st_mode) ? "is a folder" : "not a regular file";
        return result;
    }
    EmberTideDocumentFacts facts;
    int kind = 0, infoValue = 0;
    GSTSize<int> size;
    try {
        errno = 0;
        GSFile file(GSFileSpec(GSString(path.c_str(), -1, GSString::kUTF8)), 0);
        if (file.open() != 0) {
            result.problem = errno ? GSErrorText(errno) : "cannot be opened";
            return result;
        }
        EmberTideReadPreview(&file, &result.bytes, &kind, &infoValue, &size, &facts, selections);
    } catch (const std::exception& e) {
        result.problem = std::string("damaged document (") + e.what() + ")";
        result.bytes.clear();
    }
    result.opened = true;
    result.recognised = facts.recognised;
    result.selection = facts.isSelection;
    result.versionKnown = facts.versionRead;
    result.version = facts.version;
    result.otherItems = facts.otherItems;
    result.hasPreview = result.bytes.getSize() > 0;
    if (result.hasPreview) {
        result.kind = kind;
        result.infoKnown = facts.infoGiven;
        result.infoValue = infoValue;
        result.sizeKnown = facts.sizeGiven;
        result.size = size;
        result.store = facts.pictureStore;
    }
    return result;
}

int printHelp(const char* text) {
    std::fputs(text, stdout);
    return kOK;
}

const std::vector<option> kLayoutOptions = {
    {"version", required_argument, nullptr, kVersionOption},
    {"form", required_argument, nullptr, kFormOption},
};

bool layoutOption(const char* command, int key, const char* value,
                  EmberTideDocumentOptions* options, std::string* form) {
    const std::string v = value ? value : "";
    if (key == kFormOption) {
        if (v != "long" && v != "byte") {
            usageError(command, "--form is long or byte");
            return false;
        }
        *form = v;
        return true;
    }
    int version = parseDocumentVersion(v);
    if (version < 0) {
        usageError(command, "not a document version: " + v);
        return false;
    }
    options->version = static_cast<short>(version);
    return true;
}

bool applyLayoutForm(const char* command, const std::string& form,
                     EmberTideDocumentOptions* options) {
    bool version3 = options->version >= kEmberTideMergingVersion;
    if (form == "byte" && !version3) {
        usageError(command, "the byte form needs version 3.0 or later");
        return false;
    }
    options->byteForm = version3 && form != "long";
    return true;
}

int parseDocumentVersion(const std::string& text) {
    char* end = nullptr;
    errno = 0;
    long version = -1;
    if (auto dot = text.find('.'); dot != std::string::npos) {
        long major = std::strtol(text.c_str(), &end, 10);
        if (end != text.c_str() + dot) return -1;
        long minor = std::strtol(text.c_str() + dot + 1, &end, 10);
        if (*end || dot + 1 == text.size() || major < 0 || major > 15 || minor < 0 || minor > 15)
            return -1;
        version = (major << 8) | minor;
    } else {
        version = std::strtol(text.c_str(), &end, 0);
        if (text.empty() || *end || errno) return -1;
    }
    // The version is stored as a major and a minor nibble; a reader takes majors 1 to 3.
    if (version < 0x0100 || version > 0x030F || (version & 0xF0)) return -1;
    return static_cast<int>(version);
}

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
