// ThumbnailCacheTest.cpp - entry names, URIs, reading entries back and writing them safely.
#include "GSThumbnailCache.h"
#include "SampleImages.h"
#include "TestSupport.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <sys/stat.h>
#include <unistd.h>

using namespace testing_support;

namespace {

std::string md5(const std::string& text) {
    return GSMD5Hex(text.data(), text.size());
}

int modeOf(const std::string& path) {
    struct stat st;
    return ::stat(path.c_str(), &st) == 0 ? static_cast<int>(st.st_mode & 07777) : -1;
}

std::vector<std::string> namesIn(const std::string& folder) {
    std::vector<std::string> names;
    for (auto& e : std::filesystem::directory_iterator(folder))
        names.push_back(e.path().filename().string());
    return names;
}

// An entry of noise (which does not compress) with the keys of `uri`, mtime 1700000000.
Bytes encodeEntry(int width, int height, const std::string& uri) {
    GSRasterImage image;
    image.width = width, image.height = height;
    uint32_t state = 12345;
    for (int i = 0; i < width * height; ++i) {
        state = state * 1103515245u + 12345u;
        image.pixels.push_back(0xFF000000u | (state >> 8));
    }
    Bytes png;
    std::string error;
    EXPECT_TRUE(
        GSEncodePNG(image, {{"Thumb::URI", uri}, {"Thumb::MTime", "1700000000"}, {"Software", "x"}},
                    &png, &error))
        << error;
    return png;
}

// The same PNG with its tEXt chunks moved just before IEND.
Bytes moveTextToTheEnd(const Bytes& png) {
    Bytes front(png.begin(), png.begin() + 8), text, end;
    for (size_t at = 8; at + 12 <= png.size();) {
        size_t length = (size_t(png[at]) << 24) | (size_t(png[at + 1]) << 16) |
                        (size_t(png[at + 2]) << 8) | png[at + 3];
        std::string type(png.begin() + static_cast<long>(at) + 4,
                         png.begin() + static_cast<long>(at) + 8);
        Bytes& into = type == "tEXt" ? text : type == "IEND" ? end : front;
        into.insert(into.end(), png.begin() + static_cast<long>(at),
                    png.begin() + static_cast<long>(at + 12 + length));
        at += 12 + length;
    }
    front.insert(front.end(), text.begin(), text.end());
    front.insert(front.end(), end.begin(), end.end());
    return front;
}

// Restores an environment variable when the test ends.
struct SavedVariable {
    explicit SavedVariable(const char* name) : name(name) {
        if (const char* v = std::getenv(name)) value = v, set = true;
    }
    ~SavedVariable() { set ? ::setenv(name, value.c_str(), 1) : ::unsetenv(name); }
    const char* name;
    std::string value;
    bool set = false;
};

} // namespace

TEST(ThumbnailCacheNames, MD5AndURIsMatchWhatDesktopsCompute) {
    // From RFC 1321's test suite: empty, one block, and more than one block (the padding past 56
    // bytes, a whole block of data).
    EXPECT_EQ(md5(""), "d41d8cd98f00b204e9800998ecf8427e");
    EXPECT_EQ(md5("abc"), "900150983cd24fb0d6963f7d28e17f72");
    EXPECT_EQ(md5("ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789"),
              "d174ab98d277d9f5a5611c2c9f419d9f");
    EXPECT_EQ(md5("1234567890123456789012345678901234567890123456789012345678901234567890123456"
                  "7890"),
              "57edf4a22be3c955ac49da2e2107b67a");
    // The freedesktop standard's own example.
    EXPECT_EQ(GSFileURI("/home/jens/photos/me.png"), "file:///home/jens/photos/me.png");
    EXPECT_EQ(GSCacheEntryName("file:///home/jens/photos/me.png"),
              "c6ee772d9e49320e97ec29a7eb5b1697.png");

    // GLib's escaping: what it keeps stays, every other byte is %XX in upper case.
    EXPECT_EQ(GSFileURI("/a b/\xC3\xA9t\xC3\xA9.etd"), "file:///a%20b/%C3%A9t%C3%A9.etd");
    EXPECT_EQ(GSFileURI("/!$&'()*+,-.:=@_~"), "file:///!$&'()*+,-.:=@_~");
    EXPECT_EQ(GSFileURI("/100%#?;[]\"<>\\^`{|}"),
              "file:///100%25%23%3F%3B%5B%5D%22%3C%3E%5C%5E%60%7B%7C%7D");
    EXPECT_EQ(GSFileURI("/\x01\x7F\xFF"), "file:///%01%7F%FF");

    ASSERT_NE(GSFindCacheSize("x-large"), nullptr);
    EXPECT_EQ(GSFindCacheSize("normal")->pixels, 128);
    EXPECT_EQ(GSFindCacheSize("xx-large")->pixels, 1024);
    EXPECT_EQ(GSFindCacheSize("huge"), nullptr);
    EXPECT_EQ(GSFindCacheSize("Large"), nullptr);
}

TEST(ThumbnailCacheRoot, FollowsTheXDGRules) {
    SavedVariable cache("XDG_CACHE_HOME"), home("HOME");
    ::setenv("HOME", "/home/someone", 1);
    ::setenv("XDG_CACHE_HOME", "/var/cache/me", 1);
    EXPECT_EQ(GSThumbnailCacheRoot(), "/var/cache/me/thumbnails");
    ::setenv("XDG_CACHE_HOME", "relative/cache", 1); // not absolute: ignored
    EXPECT_EQ(GSThumbnailCacheRoot(), "/home/someone/.cache/thumbnails");
    ::setenv("XDG_CACHE_HOME", "", 1);
    EXPECT_EQ(GSThumbnailCacheRoot(), "/home/someone/.cache/thumbnails");
    ::unsetenv("XDG_CACHE_HOME");
    ::setenv("HOME", "/home/someone/", 1);
    EXPECT_EQ(GSThumbnailCacheRoot(), "/home/someone/.cache/thumbnails");
}

TEST(ThumbnailCacheEntries, OnlyWholeEntriesWithTheRightKeysAreCurrent) {
    TempFolder folder;
    const std::string uri = "file:///photos/a%20b.etd";
    // A tiny entry (read in one go), a large one of noise (its start and end are read apart),
    // and the large one with its keys moved behind the image data, as other writers may put them.
    const Bytes small = encodeEntry(3, 2, uri), large = encodeEntry(200, 150, uri);
    ASSERT_GT(large.size(), 64u * 1024) << "too small to be read in parts";
    const Bytes keysLast = moveTextToTheEnd(large);
    for (const Bytes* png : {&small, &large, &keysLast}) {
        std::string what = png == &small ? "small" : png == &large ? "large" : "keys last";
        writeFile(folder.path("whole.png"), *png);
        GSPNGText keys;
        ASSERT_TRUE(GSReadPNGTextKeys(folder.path("whole.png"), &keys)) << what;
        ASSERT_EQ(keys.size(), 3u) << what;
        EXPECT_EQ(*GSFindTextKey(keys, "Thumb::URI"), uri);
        EXPECT_EQ(GSFindTextKey(keys, "Thumb::Size"), nullptr);
        EXPECT_TRUE(GSCacheEntryIsCurrent(folder.path("whole.png"), uri, 1700000000)) << what;
        EXPECT_FALSE(GSCacheEntryIsCurrent(folder.path("whole.png"), uri, 1700000001))
            << what << ": the file changed";
        EXPECT_FALSE(GSCacheEntryIsCurrent(folder.path("whole.png"), uri + "x", 1700000000))
            << what << ": another file";

        // An entry cut anywhere (a writer that died half-way) is never current.
        for (size_t cut : {size_t(0), size_t(7), size_t(8), size_t(40), size_t(9000),
                           png->size() / 2, png->size() - 1}) {
            if (cut >= png->size()) continue;
            writeFile(folder.path("cut.png"),
                      Bytes(png->begin(), png->begin() + static_cast<long>(cut)));
            EXPECT_FALSE(GSReadPNGTextKeys(folder.path("cut.png"), &keys))
                << what << " cut at " << cut;
            EXPECT_FALSE(GSCacheEntryIsCurrent(folder.path("cut.png"), uri, 1700000000))
                << what << " cut at " << cut;
        }
    }
    GSPNGText keys;
    EXPECT_FALSE(GSCacheEntryIsCurrent(folder.path("missing.png"), uri, 1700000000));
    // A chunk length that points far past the end.
    Bytes lying = small;
    lying[8] = 0x7F;
    writeFile(folder.path("lying.png"), lying);
    EXPECT_FALSE(GSReadPNGTextKeys(folder.path("lying.png"), &keys));
    EXPECT_FALSE(GSCacheEntryIsCurrent(folder.path("lying.png"), uri, 1700000000));
    EXPECT_FALSE(GSReadPNGTextKeys(folder.root(), &keys)) << "a folder";

    // The failure entry is a whole, decodable PNG that names the file.
    Bytes failure = GSMakeFailureEntry(uri, -5, "ember-tide test");
    samples::Picture picture = samples::decodePNG(failure);
    EXPECT_EQ(picture.width, 1);
    EXPECT_EQ(picture.height, 1);
    writeFile(folder.path("fail.png"), failure);
    EXPECT_TRUE(GSCacheEntryIsCurrent(folder.path("fail.png"), uri, -5));
}

TEST(ThumbnailCacheEntries, WritesArePrivateAndLeaveNothingBehind) {
    TempFolder folder;
    const std::string cache = folder.path("cache/thumbnails/large");
    ASSERT_EQ(GSMakePrivateFolders(cache), "");
    for (const char* made : {"cache", "cache/thumbnails", "cache/thumbnails/large"})
        EXPECT_EQ(modeOf(folder.path(made)), 0700) << made;
    EXPECT_EQ(GSMakePrivateFolders(cache), "") << "existing folders are fine";

    mode_t old = ::umask(0277); // would leave the file unwritable and unreadable by the group
    EXPECT_EQ(GSWriteCacheEntry(cache, "entry.png", {1, 2, 3}), "");
    EXPECT_EQ(GSWriteCacheEntry(cache, "entry.png", {4, 5}), "") << "replacing an entry";
    ::umask(old);
    EXPECT_EQ(modeOf(cache + "/entry.png"), 0600);
    EXPECT_EQ(readFile(cache + "/entry.png"), (Bytes{4, 5}));
    EXPECT_EQ(namesIn(cache), std::vector<std::string>{"entry.png"}) << "a temporary file was left";

    // An entry is replaced by a rename, never rewritten in place (where a reader could see half
    // of it): a second name of the old entry keeps the old bytes.
    ASSERT_EQ(::link((cache + "/entry.png").c_str(), folder.path("old-entry").c_str()), 0);
    EXPECT_EQ(GSWriteCacheEntry(cache, "entry.png", {6, 7, 8}), "");
    EXPECT_EQ(readFile(folder.path("old-entry")), (Bytes{4, 5}));
    EXPECT_EQ(readFile(cache + "/entry.png"), (Bytes{6, 7, 8}));

    EXPECT_NE(GSWriteCacheEntry(folder.path("nowhere"), "entry.png", {1}), "");
    writeFile(folder.path("plain"), {1});
    EXPECT_NE(GSMakePrivateFolders(folder.path("plain")), "") << "a file, not a folder";
    EXPECT_NE(GSMakePrivateFolders(folder.path("plain/below")), "");
    EXPECT_NE(GSMakePrivateFolders("relative/path"), "");
}
