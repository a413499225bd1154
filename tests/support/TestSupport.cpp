// TestSupport.cpp - shared test helpers.
#include "TestSupport.h"
#include "fileformat/GSFormatNumbers.h"

#include "storage/GSFileWorker.h"
#include "storage/GSFileWorkerMemory.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <stdexcept>

namespace testing_support {

MemoryFile::MemoryFile() {
    file.init(GSGrowDouble, 0);
    file.getFileWorker()->setAccessMode("wb+");
    file.open();
}

MemoryFile::MemoryFile(const Bytes& content) {
    file.init(toDynaArray(content));
    file.open();
}

Bytes MemoryFile::bytes() const {
    auto* memory = static_cast<GSFileWorkerMemory*>(file.getFileWorker());
    const auto& buffer = memory->getBuffer();
    return Bytes(buffer.getData(), buffer.getData() + buffer.getSize());
}

GSDynaArray<unsigned char> toDynaArray(const Bytes& bytes) {
    GSDynaArray<unsigned char> array;
    array.setSize(static_cast<long>(bytes.size()));
    std::copy(bytes.begin(), bytes.end(), array.getMutableData());
    return array;
}

Bytes fromHex(const std::string& hex) {
    Bytes out;
    std::string digits;
    for (char c : hex)
        if (std::isxdigit(static_cast<unsigned char>(c))) digits.push_back(c);
    for (size_t i = 0; i + 1 < digits.size(); i += 2)
        out.push_back(static_cast<unsigned char>(std::stoi(digits.substr(i, 2), nullptr, 16)));
    return out;
}

std::string toHex(const Bytes& bytes) {
    std::string out;
    char b[4];
    for (size_t i = 0; i < bytes.size(); ++i) {
        std::snprintf(b, sizeof b, i ? " %02x" : "%02x", bytes[i]);
        out += b;
    }
    return out;
}

TempFolder::TempFolder() {
    std::string pattern = (std::filesystem::temp_directory_path() / "et-test-XXXXXX").string();
    if (!::mkdtemp(pattern.data())) throw std::runtime_error("mkdtemp");
    // Its real path: the file layers resolve links, and the paths that tests expect must agree.
    folder = std::filesystem::canonical(pattern).string();
}

TempFolder::~TempFolder() {
    std::error_code ignored;
    std::filesystem::remove_all(folder, ignored);
}

void writeFile(const std::string& path, const Bytes& bytes) {
    std::ofstream out(path, std::ios::binary);
    out.write(reinterpret_cast<const char*>(bytes.data()),
              static_cast<std::streamsize>(bytes.size()));
}

// In one read of the size found at the end: the kill loop compares files of 300 KB hundreds of
// times.
Bytes readFile(const std::string& path) {
    std::ifstream in(path, std::ios::binary | std::ios::ate);
    Bytes bytes(in ? static_cast<size_t>(in.tellg()) : 0);
    in.seekg(0).read(reinterpret_cast<char*>(bytes.data()),
                     static_cast<std::streamsize>(bytes.size()));
    return bytes;
}

} // namespace testing_support
