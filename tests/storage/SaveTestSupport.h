// SaveTestSupport.h - documents, saves and folder listings shared by the safe-save tests.
//
// A test document is deterministic bytes written through GSFile the way a real writer does it:
// many pieces of varying size, and a length field at the start that is written as a placeholder
// first and patched at the end by seeking back (as chunk writers do), so that a save seeks and
// clears the stream's error indicator before it closes.
#pragma once

#include "GSFile.h"
#include "GSFileSpec.h"
#include "GSFileSpecKeys.h"
#include "GSFileWorker.h"
#include "GSLongDictionaryKey.h"
#include "GSObjectDictionary.h"
#include "TestSupport.h"

#include <cstdio>
#include <cstring>
#include <dirent.h>
#include <fcntl.h>
#include <set>
#include <string>
#include <sys/stat.h>
#include <unistd.h>

namespace save_test {

using testing_support::Bytes;

inline std::string str(const GSString& s) {
    return s.getConstAddr() ? std::string(s.getConstAddr(), static_cast<size_t>(s.getLength()))
                            : std::string();
}

inline GSString gs(const std::string& text) {
    return GSString(text.data(), static_cast<long>(text.size()), GSString::kUTF8);
}

inline void putLong(GSFileSpec* spec, const GSString& key, int value) {
    spec->getOrCreateDictionary()->setObjectValue(key, new GSLongDictionaryKey(value));
}

// The spec of `path` with "GSFileSafetyMode" = mode (none when mode < 0).
inline GSFileSpec specWithMode(const std::string& path, int mode) {
    GSFileSpec spec(gs(path));
    if (mode >= 0) putLong(&spec, GSFileSafetyModeKey, mode);
    return spec;
}

// `size` bytes that depend on `seed`; the first four hold the size, big-endian.
inline Bytes makeDocument(unsigned seed, size_t size) {
    Bytes bytes(size);
    unsigned state = seed * 2654435761u + 1;
    for (auto& b : bytes) {
        state = state * 1103515245u + 12345u;
        b = static_cast<unsigned char>(state >> 23);
    }
    for (size_t i = 0; i < 4 && i < size; ++i)
        bytes[i] = static_cast<unsigned char>(size >> (8 * (3 - i)));
    return bytes;
}

// Writes `doc` into an open file in pieces of 1 to `maxPiece` bytes, the length field patched
// last. Every status is gathered, none stops the writing (the worker must notice by itself).
inline short writeDocument(GSFile* file, const Bytes& doc, size_t maxPiece) {
    short status = 0;
    const unsigned char placeholder[4] = {};
    size_t at = doc.size() < 4 ? doc.size() : 4;
    status |= file->write(placeholder, static_cast<long>(at));
    unsigned state = static_cast<unsigned>(doc.size());
    while (at < doc.size()) {
        state = state * 1103515245u + 12345u;
        size_t piece = 1 + (state >> 16) % maxPiece;
        if (piece > doc.size() - at) piece = doc.size() - at;
        status |= file->write(doc.data() + at, static_cast<long>(piece));
        at += piece;
    }
    status |= file->seek(0, 0);
    status |= file->write(doc.data(), doc.size() < 4 ? static_cast<long>(doc.size()) : 4);
    status |= file->seek(0, 2);
    return status;
}

// A whole save of `doc` to `path` ("wb", the given safety mode): nonzero when any step failed.
// The file is closed with close(0) whatever happened before.
inline short saveDocument(const std::string& path, int mode, const Bytes& doc,
                          size_t maxPiece = 4096) {
    GSFile file(specWithMode(path, mode), 0);
    file.getFileWorker()->setAccessMode("wb");
    if (file.open()) return 1;
    short status = writeDocument(&file, doc, maxPiece);
    return static_cast<short>(status | file.close(0));
}

// The file's bytes (empty when it cannot be read), in one read: the tests compare documents of
// a few hundred KB hundreds of times.
inline Bytes slurp(const std::string& path) {
    Bytes bytes;
    int fd = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
    struct stat facts;
    if (fd >= 0 && ::fstat(fd, &facts) == 0 && facts.st_size > 0) {
        bytes.resize(static_cast<size_t>(facts.st_size));
        ssize_t n = ::read(fd, bytes.data(), bytes.size());
        bytes.resize(n > 0 ? static_cast<size_t>(n) : 0);
    }
    if (fd >= 0) ::close(fd);
    return bytes;
}

// Writes the whole file anew.
inline void spill(const std::string& path, const Bytes& bytes) {
    if (std::FILE* f = std::fopen(path.c_str(), "wb")) {
        std::fwrite(bytes.data(), 1, bytes.size(), f);
        std::fclose(f);
    }
}

inline std::set<std::string> listing(const std::string& folder) {
    std::set<std::string> names;
    if (DIR* d = ::opendir(folder.c_str())) {
        while (dirent* e = ::readdir(d))
            if (std::strcmp(e->d_name, ".") != 0 && std::strcmp(e->d_name, "..") != 0)
                names.insert(e->d_name);
        ::closedir(d);
    }
    return names;
}

// The hidden temporary names a save leaves only when it is interrupted: ".tmp", ten lower-case
// letters or digits, and the target's extender or none.
inline bool isTemporaryName(const std::string& name, const std::string& extender) {
    if (name.size() != 14 && name.size() != 14 + extender.size()) return false;
    if (name.compare(0, 4, ".tmp") != 0 ||
        name.compare(14, std::string::npos, extender, 0, name.size() - 14) != 0)
        return false;
    for (size_t i = 4; i < 14; ++i)
        if (!(name[i] >= 'a' && name[i] <= 'z') && !(name[i] >= '0' && name[i] <= '9'))
            return false;
    return true;
}

} // namespace save_test
