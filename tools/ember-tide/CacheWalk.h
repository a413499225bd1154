// CacheWalk.h - the files under the PATHs that `ember-tide cache` looks at.
//
// Folders are entered once each (by device and inode, which also stops loops made by bind
// mounts) and the cache folder itself never; symbolic links to folders are never followed, and
// links to files only when the file lies inside one of the PATHs. The walk is single-threaded
// and comes first: it gives the total for the progress line.
#pragma once

#include <compare>
#include <set>
#include <string>
#include <sys/stat.h>
#include <unordered_set>
#include <vector>

namespace tool {

// An absolute path without "." and ".." components or a trailing slash, as a file manager
// shows it (symbolic links are kept: the URI is the one the user browses).
std::string absolutePath(const std::string& path);

class CacheWalker {
public:
    explicit CacheWalker(const std::string& cacheRoot);
    // A PATH given by the user, with its stat: a folder to walk or a file to take.
    void addRoot(const std::string& path, const struct stat& st);
    void walk();

    std::vector<std::string> files;
    long unreadableFolders = 0;

private:
    struct FolderID {
        dev_t device;
        ino_t inode;
        auto operator<=>(const FolderID&) const = default;
    };

    void addFile(const std::string& path);
    bool enterOnce(const struct stat& st);
    bool insideTrees(const std::string& real) const;
    void followLink(const std::string& path);
    void walkFolder(const std::string& root);

    std::vector<std::string> folders;
    std::vector<std::string> trees; // the folder PATHs with every link resolved
    std::set<FolderID> seen;
    FolderID cacheFolder{0, 0};
    std::unordered_set<std::string> known;
};

} // namespace tool
