// CacheWalk.cpp - collecting the regular files under the PATHs.
#include "CacheWalk.h"

#include "CacheStop.h"
#include "Tool.h"
#include "storage/GSAtomicFile.h"

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <dirent.h>
#include <filesystem>
#include <system_error>
#include <utility>

namespace tool {

std::string absolutePath(const std::string& path) {
    std::filesystem::path p(path);
    if (p.is_relative()) p = std::filesystem::current_path() / p;
    std::string normal = p.lexically_normal().string();
    while (normal.size() > 1 && normal.back() == '/')
        normal.pop_back();
    return normal;
}

CacheWalker::CacheWalker(const std::string& cacheRoot) {
    struct stat st;
    if (::stat(cacheRoot.c_str(), &st) == 0) cacheFolder = {st.st_dev, st.st_ino};
}

void CacheWalker::addRoot(const std::string& path, const struct stat& st) {
    if (S_ISDIR(st.st_mode)) {
        if (char* real = ::realpath(path.c_str(), nullptr)) {
            trees.emplace_back(real);
            std::free(real);
        }
        folders.push_back(path);
    } else if (S_ISREG(st.st_mode)) {
        addFile(path);
    }
}

void CacheWalker::walk() {
    for (const std::string& root : folders)
        walkFolder(root);
}

void CacheWalker::addFile(const std::string& path) {
    if (known.insert(path).second) files.push_back(path);
}

bool CacheWalker::enterOnce(const struct stat& st) {
    FolderID id{st.st_dev, st.st_ino};
    return id != cacheFolder && seen.insert(id).second;
}

bool CacheWalker::insideTrees(const std::string& real) const {
    for (const std::string& tree : trees)
        if (real == tree || tree == "/" ||
            (real.size() > tree.size() && real.compare(0, tree.size(), tree) == 0 &&
             real[tree.size()] == '/'))
            return true;
    return false;
}

void CacheWalker::followLink(const std::string& path) {
    struct stat st;
    if (::stat(path.c_str(), &st) != 0 || !S_ISREG(st.st_mode)) return; // dangling, or a folder
    char* real = ::realpath(path.c_str(), nullptr);
    if (!real) return;
    bool inside = insideTrees(real);
    std::free(real);
    if (inside) addFile(path);
}

void CacheWalker::walkFolder(const std::string& root) {
    struct stat st;
    if (::stat(root.c_str(), &st) != 0 || !enterOnce(st)) return;
    std::vector<std::string> pending{root};
    while (!pending.empty() && !stopping()) {
        std::string folder = std::move(pending.back());
        pending.pop_back();
        DIR* dir = ::opendir(folder.c_str());
        if (!dir) {
            message(folder, "cannot read the folder: " + GSErrorText(errno));
            ++unreadableFolders;
            continue;
        }
        std::string prefix = folder == "/" ? folder : folder + "/";
        while (dirent* entry = ::readdir(dir)) {
            const char* name = entry->d_name;
            if (std::strcmp(name, ".") == 0 || std::strcmp(name, "..") == 0) continue;
            std::string child = prefix + name;
            unsigned char type = entry->d_type;
            struct stat childStat;
            bool statted = false;
            if (type == DT_UNKNOWN || type == DT_DIR) {
                if (::lstat(child.c_str(), &childStat) != 0) continue;
                statted = true;
                type = S_ISDIR(childStat.st_mode)   ? DT_DIR
                       : S_ISREG(childStat.st_mode) ? DT_REG
                       : S_ISLNK(childStat.st_mode) ? DT_LNK
                                                    : DT_UNKNOWN;
            }
            if (type == DT_DIR) {
                if (statted && enterOnce(childStat)) pending.push_back(std::move(child));
            } else if (type == DT_REG) {
                addFile(child);
            } else if (type == DT_LNK) {
                followLink(child);
            }
        }
        ::closedir(dir);
    }
}

} // namespace tool
