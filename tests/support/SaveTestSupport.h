// SaveTestSupport.h - documents and whole saves shared by the safe-save tests.
//
// A test document is deterministic bytes written through GSFile the way a real writer does it:
// many pieces of varying size, and a length field at the start that is written as a placeholder
// first and patched at the end by seeking back (as chunk writers do), so that a save seeks and
// clears the stream's error indicator before it closes.
#pragma once

#include "FileTestSupport.h"
#include "fileformat/GSFile.h"
#include "fileformat/GSFormatNumbers.h"
#include "objects/GSLongDictionaryKey.h"
#include "objects/GSObjectDictionary.h"
#include "objects/GSObjectRef.h"
#include "storage/GSFileSpec.h"
#include "storage/GSFileSpecKeys.h"
#include "storage/GSFileWorker.h"
#include "storage/GSFileWorkerStream.h"

#include <algorithm>
#include <cctype>
#include <cstdio>
#include <string>

namespace save_test {

using namespace file_test;
using testing_support::Bytes;

// Options of a spec: `value` goes into its dictionary, which then owns it.
inline void put(GSFileSpec* spec, const GSString& key, GSObject* value) {
    spec->getOrCreateDictionary()->setObjectValue(key, value);
}
inline void putLong(GSFileSpec* spec, const GSString& key, int value) {
    put(spec, key, new GSLongDictionaryKey(value));
}

// A stream worker for `path`, not yet opened.
inline GSObjectRef<GSFileWorkerStream> streamWorker(const std::string& path, const char* mode,
                                                    unsigned safety = 0) {
    GSObjectRef<GSFileWorkerStream> w(new GSFileWorkerStream());
    w->setAccessMode(mode);
    w->setFileSpec(GSFileSpec(testing_support::bytes(path)));
    w->setSafetyMode(safety);
    return w;
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

// Writes `doc` (4 bytes or more) into an open file in pieces of 1 to `maxPiece` bytes, the length
// field patched last. Every status is gathered, none stops the writing (the worker must notice
// by itself).
inline short writeDocument(GSFile* file, const Bytes& doc, size_t maxPiece) {
    const unsigned char placeholder[4] = {};
    short status = file->write(placeholder, 4);
    unsigned state = static_cast<unsigned>(doc.size());
    for (size_t at = 4, piece; at < doc.size(); at += piece) {
        state = state * 1103515245u + 12345u;
        piece = std::min(1 + (state >> 16) % maxPiece, doc.size() - at);
        status |= file->write(doc.data() + at, static_cast<long>(piece));
    }
    status |= file->seek(0, 0);
    status |= file->write(doc.data(), 4);
    status |= file->seek(0, 2);
    return status;
}

// A whole save of `doc` to `path` ("wb"; "GSFileSafetyMode" = mode, none when mode < 0): nonzero
// when any step failed. The file is closed with close(0) whatever happened before.
inline short saveDocument(const std::string& path, int mode, const Bytes& doc,
                          size_t maxPiece = 4096) {
    GSFileSpec spec(testing_support::bytes(path));
    if (mode >= 0) putLong(&spec, GSFileSafetyModeKey, mode);
    GSFile file(spec, 0);
    file.getFileWorker()->setAccessMode("wb");
    if (file.open()) return 1;
    short status = writeDocument(&file, doc, maxPiece);
    return static_cast<short>(status | file.close(GSCloseKeep));
}

// The hidden temporary names a save leaves only when it is interrupted: ".tmp", ten lower-case
// letters or digits, and the target's extender or (the name reserved for the old content) none.
inline bool isTemporaryName(const std::string& name, const std::string& extender) {
    return name.size() >= 14 && name.compare(0, 4, ".tmp") == 0 &&
           (name.size() == 14 || name.compare(14, std::string::npos, extender) == 0) &&
           std::all_of(name.begin() + 4, name.begin() + 14,
                       [](unsigned char c) { return std::islower(c) || std::isdigit(c); });
}

} // namespace save_test
