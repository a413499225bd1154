// FileTestSupport.h - texts, folder listings and locked files for tests of the file layers.
//
// Header-only, in its own namespace, so that suites which take it need nothing else linked and
// cannot collide with helpers of other suites. Paths are UTF-8 bytes as the file system takes them.
#pragma once

#include "TestSupport.h"
#include "TextSupport.h"

#include <algorithm>
#include <cstring>
#include <dirent.h>
#include <fcntl.h>
#include <initializer_list>
#include <linux/fs.h>
#include <set>
#include <string>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace file_test {

inline std::string readText(const std::string& path) {
    testing_support::Bytes b = testing_support::readFile(path);
    return std::string(b.begin(), b.end());
}

inline void writeText(const std::string& path, const std::string& text) {
    testing_support::writeFile(path, testing_support::Bytes(text.begin(), text.end()));
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

// Makes items under `root`, in order: "name/" a folder, "name->target" a symbolic link, and
// "name=text" a file holding the text. False at the first item that cannot be made.
inline bool makeItems(const std::string& root, std::initializer_list<std::string> items) {
    for (const std::string& item : items) {
        size_t arrow = item.find("->"), equals = item.find('=');
        std::string path = root + "/" + item.substr(0, std::min(arrow, equals));
        if (arrow != std::string::npos) {
            if (::symlink(item.substr(arrow + 2).c_str(), path.c_str()) != 0) return false;
        } else if (equals != std::string::npos) {
            writeText(path, item.substr(equals + 1));
        } else if (::mkdir(path.c_str(), 0755) != 0) {
            return false;
        }
    }
    return true;
}

// Sets or clears the immutable attribute behind the layers' back; false where the file system or
// our rights refuse (tests then skip what needs a locked file).
inline bool setImmutable(const std::string& path, bool on) {
    int fd = ::open(path.c_str(), O_RDONLY | O_NONBLOCK);
    if (fd < 0) return false;
    int attributes = 0;
    bool ok = ::ioctl(fd, FS_IOC_GETFLAGS, &attributes) == 0;
    if (ok) {
        attributes = on ? attributes | FS_IMMUTABLE_FL : attributes & ~FS_IMMUTABLE_FL;
        ok = ::ioctl(fd, FS_IOC_SETFLAGS, &attributes) == 0;
    }
    ::close(fd);
    return ok;
}

// Unlocks the file however the test ends, so that its folder can be removed.
struct Unlock {
    std::string path;
    ~Unlock() { setImmutable(path, false); }
};

} // namespace file_test
