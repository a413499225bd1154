// FuzzInput.h - arbitrary bytes as an open memory file.
#pragma once

#include "fileformat/GSFile.h"

#include <cstddef>
#include <cstdint>
#include <cstring>

inline void openMemoryFile(GSFile* file, const uint8_t* data, size_t size) {
    GSDynaArray<unsigned char> bytes;
    bytes.setSize(static_cast<long>(size));
    if (size) std::memcpy(bytes.getMutableData(), data, size);
    file->init(bytes);
    file->open();
}
