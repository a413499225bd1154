// BenchMemoryFile.h - opening a GSFile on memory for the benchmarks.
//
// The memory worker grows its buffer by the framework's growth rule; -100 doubles it, so a file
// written from empty costs amortised linear time and the benchmarks measure the encodings, not
// the growth.
#pragma once

#include "fileformat/GSFile.h"
#include "fileformat/GSFormatNumbers.h"
#include "storage/GSFileWorker.h"

namespace bench_support {

// Opens `file` for reading and writing on an empty memory buffer with room for `capacity`
// bytes (0: the worker's default). Returns false when it cannot.
inline bool openMemoryFile(GSFile* file, long capacity) {
    if (file->init(GSGrowDouble, capacity)) return false;
    file->getFileWorker()->setAccessMode("wb+");
    return file->open() == 0;
}

} // namespace bench_support
