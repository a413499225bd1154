// GSThumbnailCache.cpp - cache paths, URIs, MD5 names, reading the keys back, safe writes.
#include "desktop/GSThumbnailCache.h"

#include "fileformat/GSLimits.h"
#include "storage/GSAtomicFile.h"
#include "thumbnail/GSGetThumbnail.h"

#include <md5.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <pwd.h>
#include <sys/stat.h>
#include <unistd.h>
#include <utility>

namespace {

const GSCacheSize kSizes[] = {
    {"normal", 128}, {"large", 256}, {"x-large", 512}, {"xx-large", 1024}};

// GLib's set for paths (g_filename_to_uri): the characters a file manager leaves as they are.
bool keptInURI(unsigned char c) {
    if ((c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') || (c >= '0' && c <= '9')) return true;
    return c != 0 && std::strchr("!$&'()*+,-./:=@_~", c) != nullptr;
}

bool startsWithID(const unsigned char* head, size_t count, const char* id) {
    size_t n = std::strlen(id);
    return count > n && std::memcmp(head, id, n) == 0 && head[n] == 0;
}

unsigned long readBigEndian32(const unsigned char* p) {
    return (static_cast<unsigned long>(p[0]) << 24) | (static_cast<unsigned long>(p[1]) << 16) |
           (static_cast<unsigned long>(p[2]) << 8) | p[3];
}

bool readWholeFile(const std::string& path, std::vector<unsigned char>* bytes) {
    int fd = ::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK);
    if (fd < 0) return false;
    struct stat st;
    bool ok = ::fstat(fd, &st) == 0 && S_ISREG(st.st_mode) &&
              st.st_size <= GSCurrentLimits().cacheEntryBytes;
    if (ok) {
        bytes->resize(static_cast<size_t>(st.st_size));
        size_t done = 0;
        while (done < bytes->size()) {
            ssize_t n = ::read(fd, bytes->data() + done, bytes->size() - done);
            if (n < 0 && errno == EINTR) continue;
            if (n <= 0) break;
            done += static_cast<size_t>(n);
        }
        ok = done == bytes->size();
    }
    ::close(fd);
    return ok;
}

// Up to `count` bytes at `offset`; returns how many were read.
size_t readAt(int fd, unsigned char* into, size_t count, size_t offset) {
    size_t done = 0;
    while (done < count) {
        ssize_t n = ::pread(fd, into + done, count - done, static_cast<off_t>(offset + done));
        if (n < 0 && errno == EINTR) continue;
        if (n <= 0) break;
        done += static_cast<size_t>(n);
    }
    return done;
}

const unsigned char kPNGSignature[8] = {0x89, 'P', 'N', 'G', '\r', '\n', 0x1A, '\n'};
// An empty IEND chunk with its CRC: the last 12 bytes of every whole PNG.
const unsigned char kIENDChunk[12] = {0, 0, 0, 0, 'I', 'E', 'N', 'D', 0xAE, 0x42, 0x60, 0x82};

enum class ChunkWalk {
    kEnd,       // IEND reached
    kImageData, // stopped at the first IDAT, as asked
    kShort,     // the bytes ran out inside a chunk (or before IEND)
    kBad,       // no PNG signature
};

// Collects the tEXt chunks of a PNG held in `bytes`. Each chunk: 4-byte length, 4-byte type,
// the data, 4-byte CRC; the length is checked against the bytes left before it is used, in a
// form that cannot overflow.
ChunkWalk walkChunks(const unsigned char* bytes, size_t size, bool stopAtImageData,
                     GSPNGText* keys) {
    if (size < 8 || std::memcmp(bytes, kPNGSignature, 8) != 0) return ChunkWalk::kBad;
    size_t at = 8;
    while (size - at >= 12) {
        unsigned long length = readBigEndian32(&bytes[at]);
        const unsigned char* type = &bytes[at + 4];
        if (stopAtImageData && std::memcmp(type, "IDAT", 4) == 0) return ChunkWalk::kImageData;
        if (length > size - at - 12) return ChunkWalk::kShort;
        const unsigned char* data = &bytes[at + 8];
        if (std::memcmp(type, "tEXt", 4) == 0) {
            if (const void* nul = std::memchr(data, 0, length)) {
                size_t keyLength =
                    static_cast<size_t>(static_cast<const unsigned char*>(nul) - data);
                keys->emplace_back(std::string(reinterpret_cast<const char*>(data), keyLength),
                                   std::string(reinterpret_cast<const char*>(data) + keyLength + 1,
                                               length - keyLength - 1));
            }
        } else if (std::memcmp(type, "IEND", 4) == 0) {
            return ChunkWalk::kEnd;
        }
        at += 12 + length;
    }
    return ChunkWalk::kShort;
}

} // namespace

const GSCacheSize* GSFindCacheSize(const std::string& name) {
    for (const GSCacheSize& size : kSizes)
        if (name == size.name) return &size;
    return nullptr;
}

std::string GSFileURI(const std::string& absolutePath) {
    static constexpr char kHex[] = "0123456789ABCDEF";
    std::string uri = "file://";
    uri.reserve(uri.size() + absolutePath.size() * 3);
    for (unsigned char c : absolutePath) {
        if (keptInURI(c)) {
            uri += static_cast<char>(c);
        } else {
            uri += '%';
            uri += kHex[c >> 4];
            uri += kHex[c & 15];
        }
    }
    return uri;
}

std::string GSMD5Hex(const void* bytes, size_t count) {
    MD5_CTX context;
    MD5Init(&context);
    MD5Update(&context, static_cast<const uint8_t*>(bytes), count);
    uint8_t digest[MD5_DIGEST_LENGTH];
    MD5Final(digest, &context);
    static constexpr char kHex[] = "0123456789abcdef";
    std::string hex;
    for (uint8_t b : digest) {
        hex += kHex[b >> 4];
        hex += kHex[b & 15];
    }
    return hex;
}

std::string GSCacheEntryName(const std::string& uri) {
    return GSMD5Hex(uri.data(), uri.size()) + ".png";
}

std::string GSThumbnailCacheRoot() {
    // The XDG rules ignore a relative XDG_CACHE_HOME (and an empty one).
    const char* cache = std::getenv("XDG_CACHE_HOME");
    if (cache && cache[0] == '/') return std::string(cache) + "/thumbnails";
    std::string home;
    if (const char* h = std::getenv("HOME"); h && h[0] == '/') {
        home = h;
    } else {
        struct passwd entry, *found = nullptr;
        std::vector<char> buffer(16384);
        if (::getpwuid_r(::getuid(), &entry, buffer.data(), buffer.size(), &found) == 0 && found &&
            found->pw_dir && found->pw_dir[0] == '/')
            home = found->pw_dir;
    }
    if (home.empty()) return {};
    if (home.size() > 1 && home.back() == '/') home.pop_back();
    return (home == "/" ? "" : home) + "/.cache/thumbnails";
}

bool GSStartsAsDocument(const unsigned char* head, size_t count) {
    return startsWithID(head, count, kEmberTideDocumentID);
}

bool GSStartsAsSelection(const unsigned char* head, size_t count) {
    return startsWithID(head, count, kEmberTideSelectionID);
}

bool GSReadPNGTextKeys(const std::string& path, GSPNGText* keys) {
    keys->clear();
    std::vector<unsigned char> bytes;
    return readWholeFile(path, &bytes) &&
           walkChunks(bytes.data(), bytes.size(), false, keys) == ChunkWalk::kEnd;
}

const std::string* GSFindTextKey(const GSPNGText& keys, const char* key) {
    for (const auto& entry : keys)
        if (entry.first == key) return &entry.second;
    return nullptr;
}

bool GSCacheEntryIsCurrent(const std::string& entryPath, const std::string& uri, long long mtime,
                           GSPNGText* keysOut) {
    // The quick way, which keeps a run over an up-to-date folder cheap: the keys from the start
    // of the file (writers put them before the image data), and the file's last 12 bytes, which
    // are IEND only in a whole file. The whole file is read when the keys come later.
    GSPNGText keys;
    bool whole = false;
    int fd = ::open(entryPath.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK);
    if (fd < 0) return false;
    struct stat st;
    if (::fstat(fd, &st) == 0 && S_ISREG(st.st_mode) && st.st_size >= 8 + 12) {
        unsigned char head[8192];
        size_t size = static_cast<size_t>(st.st_size);
        size_t n = readAt(fd, head, std::min(sizeof head, size), 0);
        ChunkWalk walk = walkChunks(head, n, true, &keys);
        if (walk == ChunkWalk::kEnd) {
            whole = n == size;
        } else if (walk == ChunkWalk::kImageData || (walk == ChunkWalk::kShort && n < size)) {
            unsigned char tail[12];
            whole = readAt(fd, tail, sizeof tail, size - sizeof tail) == sizeof tail &&
                    std::memcmp(tail, kIENDChunk, sizeof tail) == 0;
            if (whole &&
                (!GSFindTextKey(keys, "Thumb::URI") || !GSFindTextKey(keys, "Thumb::MTime")))
                whole = GSReadPNGTextKeys(entryPath, &keys);
        }
    }
    ::close(fd);
    if (!whole) return false;
    const std::string* storedURI = GSFindTextKey(keys, "Thumb::URI");
    const std::string* storedMTime = GSFindTextKey(keys, "Thumb::MTime");
    if (keysOut) *keysOut = keys;
    return storedURI && storedMTime && *storedURI == uri && *storedMTime == std::to_string(mtime);
}

std::string GSMakePrivateFolders(const std::string& folder) {
    if (folder.empty() || folder[0] != '/') return "not an absolute path";
    struct stat st;
    if (::stat(folder.c_str(), &st) == 0) return S_ISDIR(st.st_mode) ? "" : GSErrorText(ENOTDIR);
    for (size_t slash = folder.find('/', 1);; slash = folder.find('/', slash + 1)) {
        std::string part = folder.substr(0, slash);
        if (!part.empty() && part.back() != '/' && ::mkdir(part.c_str(), 0700) != 0 &&
            errno != EEXIST)
            return GSErrorText(errno);
        if (slash == std::string::npos) break;
    }
    if (::stat(folder.c_str(), &st) != 0) return GSErrorText(errno);
    return S_ISDIR(st.st_mode) ? "" : GSErrorText(ENOTDIR);
}

std::string GSWriteCacheEntry(const std::string& folder, const std::string& name,
                              const std::vector<unsigned char>& bytes) {
    // Private, and not synced: a lost entry is made again on the next visit.
    return GSWriteFileAtomically(folder + "/" + name, bytes.data(), bytes.size(), {0600, false});
}

std::vector<unsigned char> GSMakeFailureEntry(const std::string& uri, long long mtime,
                                              const std::string& software) {
    GSRasterImage image;
    image.width = image.height = 1;
    image.hasAlpha = true;
    image.pixels.assign(1, 0); // fully transparent
    GSPNGText text = {{"Thumb::URI", uri}, {"Thumb::MTime", std::to_string(mtime)}};
    if (!software.empty()) text.emplace_back("Software", software);
    std::vector<unsigned char> png;
    std::string error;
    if (!GSEncodePNG(std::move(image), text, &png, &error)) png.clear();
    return png;
}
