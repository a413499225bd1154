// Tool.cpp - messages, the preview look-up and safe output files.
#include "Tool.h"

#include "GSFileSpec.h"
#include "GSGetThumbnail.h"
#include "GSMemPicData.h"

#include <cerrno>
#include <cstring>
#include <exception>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace tool {

void message(const std::string& file, const std::string& what) {
    std::fprintf(stderr, "ember-tide: %s: %s\n", file.c_str(), what.c_str());
}

void usageError(const char* command, const std::string& what) {
    std::fprintf(stderr, "ember-tide: %s%s%s\nTry 'ember-tide %s--help'.\n", command ? command : "",
                 command ? ": " : "", what.c_str(),
                 command ? (std::string(command) + " ").c_str() : "");
}

const char* formatName(int kind) {
    return kind == GSMemPicData::kPNG ? "png" : "jpeg";
}

DocumentPreview readDocumentPreview(const std::string& path) {
    DocumentPreview result;
    struct stat st;
    if (::stat(path.c_str(), &st) != 0) {
        result.problem = std::strerror(errno);
        return result;
    }
    if (S_ISDIR(st.st_mode)) {
        result.problem = "is a folder";
        return result;
    }
    EmberTideDocumentFacts facts;
    int kind = 0, infoValue = 0;
    GSTSize<int> size;
    try {
        errno = 0;
        if (GSGetThumbnailWithFacts(GSFileSpec(GSString(path.c_str(), -1, GSString::kUTF8)),
                                    &result.bytes, &kind, &infoValue, &size, &facts) != 0) {
            result.problem = errno ? std::strerror(errno) : "cannot be opened";
            return result;
        }
    } catch (const std::exception& e) {
        result.problem = std::string("damaged document (") + e.what() + ")";
        result.bytes.clear();
    }
    result.opened = true;
    result.recognised = facts.recognised;
    result.selection = facts.isSelection;
    result.versionKnown = facts.versionRead;
    result.version = facts.version;
    result.hasPreview = result.bytes.getSize() > 0;
    if (result.hasPreview) {
        result.kind = kind;
        result.infoKnown = facts.infoGiven;
        result.infoValue = infoValue;
        result.sizeKnown = facts.sizeGiven;
        result.size = size;
    }
    return result;
}

namespace {

bool writeAll(int fd, const unsigned char* data, long size) {
    while (size > 0) {
        ssize_t n = ::write(fd, data, static_cast<size_t>(size));
        if (n < 0 && errno == EINTR) continue;
        if (n <= 0) return false;
        data += n;
        size -= n;
    }
    return true;
}

} // namespace

std::string writeOutputFile(const std::string& out, const unsigned char* data, long size) {
    if (out == "-") {
        if (!writeAll(STDOUT_FILENO, data, size)) return std::strerror(errno);
        return {};
    }
    std::string folder = ".";
    std::string name = out;
    if (auto slash = out.rfind('/'); slash != std::string::npos) {
        folder = slash == 0 ? "/" : out.substr(0, slash);
        name = out.substr(slash + 1);
    }
    std::string temporary = folder + "/." + name + ".XXXXXX";
    int fd = ::mkstemp(temporary.data());
    if (fd < 0) return std::strerror(errno);
    ::fchmod(
        fd, 0644 & ~[] {
            mode_t mask = ::umask(0);
            ::umask(mask);
            return mask;
        }());
    bool ok = writeAll(fd, data, size);
    int error = errno;
    if (::close(fd) != 0 && ok) {
        ok = false;
        error = errno;
    }
    if (ok && ::rename(temporary.c_str(), out.c_str()) != 0) {
        ok = false;
        error = errno;
    }
    if (!ok) {
        ::unlink(temporary.c_str());
        return std::strerror(error);
    }
    return {};
}

} // namespace tool
