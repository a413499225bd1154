// GSURL_posix.cpp - the URL objects of the file-system layer over POSIX calls (Linux and other
// non-Apple systems): making, appending, comparing, reference counts, texts and paths.
//
// A handle is a GSPosixURL: an absolute path, lexically tidied (no empty or "." components, no
// trailing "/"; ".." is kept, since only the disk knows what it means past a symbolic link),
// whether it was named as a folder, and an atomic reference count, so that handles may be shared
// by holders on several threads. A URL string ("file://...") is percent-decoded into such a path;
// a handle never needs to be turned back into one. Making a handle reads the disk only to resolve
// links and to ask whether an appended component is a folder. What an item's state is and how
// items change lie in GSURLFileState_posix.cpp and GSURLChanges_posix.cpp.
#include "storage/GSURLPosix.h"

#include "storage/GSAtomicFile.h"

#include <cerrno>
#include <climits>
#include <cstring>
#include <new>
#include <string>
#include <string_view>
#include <sys/stat.h>
#include <unistd.h>
#include <vector>

GSPosixURL* GSURLObject(const void* url) {
    auto* object = static_cast<GSPosixURL*>(const_cast<void*>(url));
    return object && object->magic == kURLMagic ? object : nullptr;
}

// ---------------------------------------------------------------- texts

bool GSPlatformBytes(const GSString& text, std::string* out) {
    GSString copy(text);
    unsigned char tag = copy.getEncoding();
    if (tag != GSString::kUTF8) {
        copy.setEncoding(tag == GSString::kWindows ? GSString::kWindows : GSString::kMac);
        copy.convertEncoding(GSString::kUTF8);
    }
    const char* bytes = copy.getConstAddr();
    out->assign(bytes ? bytes : "", bytes ? static_cast<size_t>(copy.getLength()) : 0);
    return out->find('\0') == std::string::npos;
}

GSString GSStringFromPlatform(std::string_view bytes) {
    if (bytes.empty()) return GSString();
    return GSString(bytes.data(), static_cast<long>(bytes.size()), GSString::kUTF8);
}

void GSSetDetail(GSString* detail, const std::string& path, int error) {
    if (!detail) return;
    std::string text = path + ": " + GSErrorText(error);
    *detail = GSStringFromPlatform(text);
}

// ---------------------------------------------------------------- paths

void GSAppendComponents(std::string* path, std::string_view raw) {
    while (!raw.empty()) {
        size_t slash = raw.find('/');
        std::string_view component = raw.substr(0, slash);
        raw = slash == std::string_view::npos ? std::string_view() : raw.substr(slash + 1);
        if (component.empty() || component == ".") continue;
        if (path->back() != '/') path->push_back('/');
        path->append(component);
    }
}

std::string GSParentPath(const std::string& path) {
    size_t slash = path.rfind('/');
    return slash == 0 || slash == std::string::npos ? std::string("/") : path.substr(0, slash);
}

std::string_view GSLastComponent(const std::string& path) {
    if (path == "/") return path;
    return std::string_view(path).substr(path.rfind('/') + 1);
}

namespace {

// A new handle for the caller, or null when memory runs out.
void* GSURLHandOut(std::string path, bool directory) {
    auto* url = new (std::nothrow) GSPosixURL;
    if (!url) return nullptr;
    url->path = std::move(path);
    url->directory = directory || url->path == "/";
    return url;
}

// `raw` made absolute (relative to the current folder) and tidy; empty when the current folder
// cannot be had.
std::string GSTidyPath(std::string_view raw) {
    std::string path = "/";
    if (raw.empty() || raw.front() != '/') {
        std::vector<char> buffer(PATH_MAX);
        while (!::getcwd(buffer.data(), buffer.size())) {
            if (errno != ERANGE || buffer.size() > (1u << 20)) return std::string();
            buffer.resize(buffer.size() * 2);
        }
        GSAppendComponents(&path, buffer.data());
    }
    GSAppendComponents(&path, raw);
    return path;
}

bool GSIsFolderOnDisk(const std::string& path) {
    struct stat facts;
    return ::stat(path.c_str(), &facts) == 0 && S_ISDIR(facts.st_mode);
}

int GSHexValue(char c) {
    if (c >= '0' && c <= '9') return c - '0';
    if (c >= 'a' && c <= 'f') return c - 'a' + 10;
    if (c >= 'A' && c <= 'F') return c - 'A' + 10;
    return -1;
}

// The local path of a "file://" URL string, percent-decoded; false for another host, a
// malformed escape, or a NUL. The query and fragment ("?", "#") are not part of the path: a
// "#" in a file name is written "%23". Bytes that a strict URL would escape (spaces,
// non-ASCII) are taken as they stand.
bool GSPathFromURLString(std::string_view text, std::string* path, bool* directory) {
    text.remove_prefix(7); // "file://"
    size_t slash = text.find('/');
    if (slash == std::string_view::npos) return false;
    std::string_view host = text.substr(0, slash);
    if (!host.empty() && host != "localhost") return false;
    text = text.substr(slash);
    text = text.substr(0, text.find_first_of("?#"));
    std::string decoded;
    for (size_t i = 0; i < text.size(); ++i) {
        char c = text[i];
        if (c == '%') {
            int high = i + 2 < text.size() ? GSHexValue(text[i + 1]) : -1;
            int low = i + 2 < text.size() ? GSHexValue(text[i + 2]) : -1;
            if (high < 0 || low < 0) return false;
            c = static_cast<char>(high * 16 + low);
            if (c == 0) return false;
            i += 2;
        }
        decoded.push_back(c);
    }
    *directory = decoded.back() == '/';
    *path = GSTidyPath(decoded);
    return true;
}

// `path` with its symbolic links resolved as far as the disk answers: components that do not
// exist are kept as they stand (".." among them applied to the text). A loop of links or a
// target too long to read leaves the path as it was.
std::string GSResolveSymlinks(const std::string& path) {
    std::vector<std::string> pending; // components still to walk, the next one last
    auto push = [&pending](std::string_view raw) {
        std::vector<std::string> parts;
        while (!raw.empty()) {
            size_t slash = raw.find('/');
            if (slash != 0) parts.emplace_back(raw.substr(0, slash));
            raw = slash == std::string_view::npos ? std::string_view() : raw.substr(slash + 1);
        }
        pending.insert(pending.end(), parts.rbegin(), parts.rend());
    };
    push(path);
    std::string done;   // resolved so far, without links; empty for the root
    bool exists = true; // false once a component is missing: the rest is text only
    int links = 0;
    std::vector<char> target(PATH_MAX + 1);
    while (!pending.empty()) {
        std::string component = std::move(pending.back());
        pending.pop_back();
        if (component == ".") continue;
        if (component == "..") {
            size_t slash = done.rfind('/');
            done.erase(slash == std::string::npos ? 0 : slash);
            continue;
        }
        std::string candidate = done + "/" + component;
        if (exists) {
            ssize_t n = ::readlink(candidate.c_str(), target.data(), target.size());
            if (n >= 0) {
                if (static_cast<size_t>(n) >= target.size() || ++links > 40) return path;
                std::string_view link(target.data(), static_cast<size_t>(n));
                if (!link.empty() && link.front() == '/') done.clear();
                push(link);
                continue;
            }
            if (errno != EINVAL) exists = false; // EINVAL: there, and not a link
        }
        done = std::move(candidate);
    }
    return done.empty() ? std::string("/") : done;
}

} // namespace

// ---------------------------------------------------------------- reference counts

void GSIdRetain(const void* object) {
    if (GSPosixURL* url = GSURLObject(object))
        url->references.fetch_add(1, std::memory_order_relaxed);
}

void GSIdRelease(const void* object) {
    GSPosixURL* url = GSURLObject(object);
    if (url && url->references.fetch_sub(1, std::memory_order_acq_rel) == 1) {
        url->magic = 0;
        delete url;
    }
}

long GSIdGetRetainCount(const void* object) {
    GSPosixURL* url = GSURLObject(object);
    return url ? url->references.load(std::memory_order_relaxed) : 0;
}

// ---------------------------------------------------------------- URLs

void* GSURLCreateWithFilePath(const GSString& path, short isDirectory, short resolveFolder) {
    return GSGuarded<void*>(nullptr, [&]() -> void* {
        if (path.isEmpty()) return nullptr;
        std::string bytes;
        if (!GSPlatformBytes(path, &bytes)) return nullptr;
        std::string tidy;
        bool directory = false;
        if (bytes.compare(0, 7, "file://") == 0) {
            if (!GSPathFromURLString(bytes, &tidy, &directory)) return nullptr;
        } else {
            directory = isDirectory == 1 || bytes.back() == '/';
            tidy = GSTidyPath(bytes);
        }
        if (tidy.empty()) return nullptr;
        if (resolveFolder && tidy != "/") {
            // Only the folder is resolved: a link in the last place stays the item it is.
            std::string folder = GSResolveSymlinks(GSParentPath(tidy));
            std::string last(GSLastComponent(tidy));
            tidy = GSTidyPath(folder);
            GSAppendComponents(&tidy, last);
        }
        return GSURLHandOut(std::move(tidy), directory);
    });
}

void* GSURLCreateByAppending(const void* url, const GSString& component) {
    return GSGuarded<void*>(nullptr, [&]() -> void* {
        GSPosixURL* base = GSURLObject(url);
        std::string bytes;
        if (!base || component.isEmpty() || !GSPlatformBytes(component, &bytes)) return nullptr;
        std::string path = base->path;
        GSAppendComponents(&path, bytes);
        // As Foundation does, the disk decides whether a component without a trailing "/"
        // names a folder.
        bool directory = bytes.back() == '/' || GSIsFolderOnDisk(path);
        return GSURLHandOut(std::move(path), directory);
    });
}

void* GSURLCreateByDeletingLastPathComponent(void* url) {
    return GSGuarded<void*>(nullptr, [&]() -> void* {
        GSPosixURL* base = GSURLObject(url);
        return base ? GSURLHandOut(GSParentPath(base->path), true) : nullptr;
    });
}

void* GSURLCreateParentURL(void* url) {
    GSPosixURL* base = GSURLObject(url);
    if (!base || base->path == "/") return nullptr;
    return GSURLCreateByDeletingLastPathComponent(url);
}

short GSURLIsRoot(const void* url) {
    GSPosixURL* base = GSURLObject(url);
    return base && base->path == "/" ? 1 : 0;
}

GSString GSURLGetPathname(const void* url) {
    GSPosixURL* base = GSURLObject(url);
    if (!base || base->path == "/") return GSString(); // "/" less its trailing "/"
    return GSStringFromPlatform(base->path);
}

GSString GSURLGetLastPathComponent(const void* url) {
    GSPosixURL* base = GSURLObject(url);
    return base ? GSStringFromPlatform(GSLastComponent(base->path)) : GSString();
}

short GSURLIsEqual(const void* a, const void* b) {
    GSPosixURL* first = GSURLObject(a);
    GSPosixURL* second = GSURLObject(b);
    if (!first || !second) return !first && !second ? 1 : 0;
    return first->path == second->path && first->directory == second->directory ? 1 : 0;
}

// ---------------------------------------------------------------- items

short GSURLResolveLinkOrAlias(const void* url, int options, GSIdPointer* resolved,
                              short* isFolder) {
    // `options` asks how alias files are resolved (without mounting, without user interface).
    // Alias files exist only on Apple platforms; here only symbolic links are resolved.
    (void)options;
    GSPosixURL* start = GSURLObject(url);
    if (!start) return 1;
    if (resolved) *resolved = nullptr;
    return GSGuarded<short>(0, [&]() -> short {
        std::string path = GSResolveSymlinks(start->path);
        if (path == start->path) return 0; // not a link, nor inside one
        bool folder = GSIsFolderOnDisk(path);
        if (resolved) *resolved = GSURLHandOut(path, folder || start->directory);
        if (isFolder) *isFolder = folder ? 1 : 0;
        return 0;
    });
}
