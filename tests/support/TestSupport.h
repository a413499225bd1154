// TestSupport.h - helpers shared by the test suites: files in memory and on disk, byte strings.
#pragma once

#include "fileformat/GSFile.h"
#include "objects/GSDynaArray.h"

#include <string>
#include <vector>

namespace testing_support {

using Bytes = std::vector<unsigned char>;

// A memory file opened for reading and writing.
struct MemoryFile {
    MemoryFile();
    explicit MemoryFile(const Bytes& content);
    Bytes bytes() const; // everything written so far
    GSFile file;
};

GSDynaArray<unsigned char> toDynaArray(const Bytes& bytes);
Bytes fromHex(const std::string& hex); // "01 0a ff" -> bytes
std::string toHex(const Bytes& bytes);

// A fresh private folder that is removed with everything in it when the object goes.
class TempFolder {
public:
    TempFolder();
    ~TempFolder();
    TempFolder(const TempFolder&) = delete;
    TempFolder& operator=(const TempFolder&) = delete;
    std::string path(const std::string& name) const { return folder + "/" + name; }
    const std::string& root() const { return folder; }

private:
    std::string folder;
};

void writeFile(const std::string& path, const Bytes& bytes);
Bytes readFile(const std::string& path);

} // namespace testing_support
