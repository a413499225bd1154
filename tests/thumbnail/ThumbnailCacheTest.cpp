// ThumbnailCacheTest.cpp - entry names, URIs, reading entries back and writing them safely.
#include "SampleImages.h"
#include "TestSupport.h"
#include "desktop/GSThumbnailCache.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <sys/stat.h>
#include <unistd.h>

using namespace testing_support;
namespace fs = std::filesystem;

namespace {

// An entry of noise (which does not compress), with `keys` before the image data.
Bytes encodeEntry(int width, int height, const GSPNGText& keys) {
    GSRasterImage image{width, height, false, {}};
    uint32_t state = 12345;
    for (int i = 0; i < width * height; ++i)
        image.pixels.push_back(0xFF000000u | ((state = state * 1103515245u + 12345u) >> 8));
    Bytes png;
    std::string error;
    EXPECT_TRUE(GSEncodePNG(image, keys, &png, &error)) << error;
    return png;
}

} // namespace

TEST(ThumbnailCacheNames, MD5AndURIsMatchWhatDesktopsCompute) {
    // The freedesktop standard's own example.
    EXPECT_EQ(GSCacheEntryName(GSFileURI("/home/jens/photos/me.png")),
              "c6ee772d9e49320e97ec29a7eb5b1697.png");
    // GLib's escaping: what it keeps stays, every other byte is %XX in upper case.
    for (auto [path, uri] :
         {std::pair{"/a b/\xC3\xA9t\xC3\xA9.etd", "file:///a%20b/%C3%A9t%C3%A9.etd"},
          {"/!$&'()*+,-.:=@_~", "file:///!$&'()*+,-.:=@_~"},
          {"/100%#?;[]\"<>\\^`{|}", "file:///100%25%23%3F%3B%5B%5D%22%3C%3E%5C%5E%60%7B%7C%7D"},
          {"/\x01\x7F\xFF", "file:///%01%7F%FF"}})
        EXPECT_EQ(GSFileURI(path), uri);

    EXPECT_EQ(GSFindCacheSize("xx-large")->pixels, 1024);
    EXPECT_EQ(GSFindCacheSize("Large"), nullptr);
}

TEST(ThumbnailCacheRoot, FollowsTheXDGRules) {
    const char *savedCache = std::getenv("XDG_CACHE_HOME"), *savedHome = std::getenv("HOME");
    const std::string cache = savedCache ? savedCache : "", home = savedHome ? savedHome : "";
    ::setenv("HOME", "/home/someone/", 1); // the slash at its end is dropped
    const char* fallback = "/home/someone/.cache/thumbnails";
    // XDG_CACHE_HOME counts when it is an absolute path.
    for (auto [xdg, root] : {std::pair{"/var/cache/me", "/var/cache/me/thumbnails"},
                             {"relative/cache", fallback},
                             {"", fallback},
                             {nullptr, fallback}}) {
        xdg ? ::setenv("XDG_CACHE_HOME", xdg, 1) : ::unsetenv("XDG_CACHE_HOME");
        EXPECT_EQ(GSThumbnailCacheRoot(), root) << (xdg ? xdg : "unset");
    }
    ::setenv("HOME", "/home/someone", 1);
    EXPECT_EQ(GSThumbnailCacheRoot(), fallback) << "HOME without the slash";
    savedCache ? ::setenv("XDG_CACHE_HOME", cache.c_str(), 1) : ::unsetenv("XDG_CACHE_HOME");
    savedHome ? ::setenv("HOME", home.c_str(), 1) : ::unsetenv("HOME");
}

TEST(ThumbnailCacheEntries, OnlyWholeEntriesWithTheRightKeysAreCurrent) {
    TempFolder folder;
    const std::string uri = "file:///photos/a%20b.etd", entry = folder.path("entry.png");
    // A tiny entry (read in one go), a large one of noise (its start and end are read apart),
    // and the large one with its keys moved behind the image data, as other writers put them
    // (ours puts them right after the 33 bytes of signature and header).
    const GSPNGText text = {{"Thumb::URI", uri}, {"Thumb::MTime", "1700000000"}, {"Software", "x"}};
    const Bytes small = encodeEntry(3, 2, text), large = encodeEntry(200, 150, text);
    ASSERT_GT(large.size(), 64u * 1024) << "too small to be read in parts";
    Bytes keysLast = encodeEntry(200, 150, {});
    keysLast.insert(keysLast.end() - 12, large.begin() + 33,
                    large.begin() + 33 + static_cast<long>(large.size() - keysLast.size()));
    Bytes lying = small;
    lying[8] = 0x7F; // a chunk length that points far past the end
    GSPNGText keys;
    for (const Bytes& png : {small, large, keysLast, lying}) {
        SCOPED_TRACE(png.size());
        writeFile(entry, png);
        bool good = png != lying;
        EXPECT_EQ(GSReadPNGTextKeys(entry, &keys), good);
        EXPECT_EQ(GSCacheEntryIsCurrent(entry, uri, 1700000000), good);
        if (!good) continue;
        EXPECT_EQ(keys, text);
        EXPECT_FALSE(GSCacheEntryIsCurrent(entry, uri, 1700000001)) << "the file changed";
        EXPECT_FALSE(GSCacheEntryIsCurrent(entry, uri + "x", 1700000000)) << "another file";

        // An entry cut anywhere (a writer that died half-way) is never current.
        for (size_t cut : {0ul, 7ul, 8ul, 40ul, 9000ul, png.size() / 2, png.size() - 1}) {
            if (cut >= png.size()) continue;
            writeFile(entry, Bytes(png.begin(), png.begin() + static_cast<long>(cut)));
            EXPECT_FALSE(GSReadPNGTextKeys(entry, &keys)) << "cut at " << cut;
            EXPECT_FALSE(GSCacheEntryIsCurrent(entry, uri, 1700000000)) << "cut at " << cut;
        }
    }
    EXPECT_FALSE(GSCacheEntryIsCurrent(folder.path("missing.png"), uri, 1700000000));
    EXPECT_FALSE(GSReadPNGTextKeys(folder.root(), &keys)) << "a folder";

    // The failure entry is a whole, decodable PNG of one pixel that names the file.
    writeFile(entry, GSMakeFailureEntry(uri, -5, "ember-tide test"));
    EXPECT_EQ(samples::decodePNG(readFile(entry)).width, 1);
    EXPECT_TRUE(GSCacheEntryIsCurrent(entry, uri, -5));
}

TEST(ThumbnailCacheEntries, WritesArePrivateAndLeaveNothingBehind) {
    TempFolder folder;
    const std::string cache = folder.path("cache/thumbnails/large");
    ASSERT_EQ(GSMakePrivateFolders(cache), "");
    for (const char* made : {"cache", "cache/thumbnails", "cache/thumbnails/large"})
        EXPECT_EQ(fs::status(folder.path(made)).permissions(), fs::perms(0700)) << made;
    EXPECT_EQ(GSMakePrivateFolders(cache), "") << "existing folders are fine";

    mode_t old = ::umask(0277); // would leave the file unwritable and unreadable by the group
    EXPECT_EQ(GSWriteCacheEntry(cache, "entry.png", {4, 5}), "");
    ::umask(old);
    EXPECT_EQ(fs::status(cache + "/entry.png").permissions(), fs::perms(0600));

    // An entry is replaced by a rename, never rewritten in place (where a reader could see half
    // of it): a second name of the old entry keeps the old bytes, and no temporary file is left.
    ASSERT_EQ(::link((cache + "/entry.png").c_str(), folder.path("old-entry").c_str()), 0);
    EXPECT_EQ(GSWriteCacheEntry(cache, "entry.png", {6, 7, 8}), "");
    EXPECT_EQ(readFile(folder.path("old-entry")), (Bytes{4, 5}));
    EXPECT_EQ(readFile(cache + "/entry.png"), (Bytes{6, 7, 8}));
    EXPECT_EQ(std::distance(fs::directory_iterator(cache), {}), 1);

    EXPECT_NE(GSWriteCacheEntry(folder.path("nowhere"), "entry.png", {1}), "");
    writeFile(folder.path("plain"), {1});
    for (const char* notAFolder : {"plain", "plain/below"})
        EXPECT_NE(GSMakePrivateFolders(folder.path(notAFolder)), "") << notAFolder;
    EXPECT_NE(GSMakePrivateFolders("relative/path"), "");
}
