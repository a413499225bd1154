// FileSystemTest.cpp - the POSIX file-system layer against real files in a private folder.
#include "FileTestSupport.h"
#include "fileformat/GSFormatNumbers.h"
#include "storage/GSFileSpec.h"
#include "storage/GSURL.h"

#include <gtest/gtest.h>

#include <atomic>
#include <climits>
#include <cstdio>
#include <sys/stat.h>
#include <thread>
#include <vector>

using namespace testing_support;
using namespace file_test;

namespace {

// Holds a URL made from a path or URL string; empty when none was made.
GSIdPointer url(const std::string& path, short isDirectory = 0, short resolveFolder = 0) {
    GSIdPointer held;
    held = GSURLCreateWithFilePath(bytes(path), isDirectory, resolveFolder);
    return held;
}

std::string pathOf(const GSIdPointer& held) {
    return text(GSURLGetPathname(held.get()));
}

bool same(const GSIdPointer& a, const GSIdPointer& b) {
    return GSURLIsEqual(a.get(), b.get()) == 1;
}

std::string describe(const GSDate& d) {
    char text[64];
    std::snprintf(text, sizeof text, "%04d-%02d-%02d %02d:%02d:%02d.%03d", d.year, d.month, d.day,
                  d.hour, d.minute, d.second, d.millisecond);
    return text;
}

GSFileState stateOf(const std::string& path) {
    GSFileState state;
    EXPECT_EQ(GSURLFillFileState(url(path).get(), &state), 0) << path;
    return state;
}

} // namespace

TEST(FileSystem, URLsFromPathsAndStrings) {
    char cwd[PATH_MAX];
    ASSERT_NE(::getcwd(cwd, sizeof cwd), nullptr);
    // A URL string is percent-decoded (either case of hex), its query and fragment dropped.
    // clang-format off
    const std::pair<const char*, std::string> paths[] = {
        {"/a//b/./c/", "/a/b/c"}, {"rel/x", std::string(cwd) + "/rel/x"},
        {"file:///tmp/x", "/tmp/x"}, {"file://localhost/tmp/a%20b", "/tmp/a b"},
        {"file:///tmp/%c3%A9", "/tmp/\xc3\xa9"}, {"file:///tmp/a%23b#fragment", "/tmp/a#b"},
        {"file:///tmp/a?query", "/tmp/a"}, {"file:///%FF%fe%20", "/\xff\xfe "}, {"", ""}, {"file://elsewhere/tmp/a", ""},
        {"file:///tmp/a%2", ""}, {"file:///tmp/a%zz", ""}, {"file:///a%00b", ""}};
    // clang-format on
    for (const auto& [given, expected] : paths)
        EXPECT_EQ(pathOf(url(given)), expected) << given;

    // A URL says whether it names a folder.
    EXPECT_FALSE(same(url("/tmp/x"), url("/tmp/x", 1)));
    EXPECT_TRUE(same(url("file:///tmp/x/"), url("/tmp//x", 1)));
    GSIdPointer file = url("/a/b/c.txt"), parent, deleted, appended, root = url("/"), top;
    EXPECT_EQ(text(GSURLGetLastPathComponent(file.get())), "c.txt");
    parent = GSURLCreateParentURL(file.get());
    deleted = GSURLCreateByDeletingLastPathComponent(file.get());
    EXPECT_TRUE(same(parent, url("/a/b", 1)) && same(deleted, parent)) << pathOf(parent);
    appended = GSURLCreateByAppending(parent.get(), GSString("d/e.txt"));
    EXPECT_EQ(pathOf(appended), "/a/b/d/e.txt");
    EXPECT_EQ(GSURLCreateByAppending(parent.get(), GSString("")), nullptr);

    // The root: no parent, "/" as its last component, an empty path; "/a" has it as parent.
    top = GSURLCreateParentURL(url("/a").get());
    EXPECT_EQ(GSURLIsRoot(root.get()) + GSURLIsRoot(top.get()) + GSURLIsRoot(parent.get()), 2);
    EXPECT_EQ(GSURLCreateParentURL(root.get()), nullptr);
    EXPECT_EQ(text(GSURLGetLastPathComponent(root.get())) + pathOf(root), "/");

    // A handle of another kind is no URL, and counting leaves it alone.
    unsigned foreign[4] = {7, 0, 0, 0};
    EXPECT_EQ(GSURLIsEqual(foreign, nullptr) + GSURLIsEqual(root.get(), nullptr), 1);
    GSIdRelease(foreign);
    EXPECT_EQ(foreign[0], 7u);

    // Single-byte texts reach the file system as UTF-8, as on Apple platforms.
    GSIdPointer windows, mac;
    windows = GSURLCreateWithFilePath(GSString("/caf\xe9", -1, GSString::kWindows), 0, 0);
    mac = GSURLCreateWithFilePath(GSString("/caf\x8e", -1, GSString::kMac), 0, 0);
    EXPECT_EQ(pathOf(windows) + pathOf(mac), "/caf\xc3\xa9/caf\xc3\xa9");
}

// `operator=(void*)` adopts Create's reference (twice the same object: no change), `attach` and
// copies share; counting is atomic, so threads that copy and drop leave the count where it was.
TEST(FileSystem, HandlesCountTheirReferences) {
    void* made = GSURLCreateWithFilePath(GSString("/tmp/counted"), 0, 0);
    GSIdPointer adopted, shared, assigned;
    adopted = made;
    adopted = made;
    shared.attach(made);
    assigned = shared;
    assigned = assigned;
    std::vector<std::thread> threads;
    for (int t = 0; t < 4; ++t)
        threads.emplace_back([&adopted] {
            for (int i = 0; i < 20000; ++i) {
                GSIdPointer copy(adopted), other;
                other.attach(copy.get());
            }
        });
    for (auto& thread : threads)
        thread.join();
    EXPECT_EQ(GSIdGetRetainCount(made), 3);
}

TEST(FileSystem, FileStates) {
    TempFolder tmp;
    const std::string root = tmp.root(), plain = root + "/plain.txt";
    ASSERT_TRUE(makeItems(
        root, {"plain.txt=12345", ".hidden=", "folder/", "link->folder", "dangling->missing"}));

    // 2001-02-03 04:05:06 UTC is 981173106; milliseconds round up from .51 of a millisecond.
    // Before 1970 the seconds are negative and the fraction still counts forward.
    const std::pair<timespec, const char*> dates[] = {
        {{981173106, 1509999}, "2001-02-03 04:05:06.001"},
        {{981173106, 1510000}, "2001-02-03 04:05:06.002"},
        {{981173106, 999510000}, "2001-02-03 04:05:07.000"},
        {{-86401, 999000000}, "1969-12-30 23:59:59.999"}};
    for (const auto& [time, expected] : dates) {
        timespec times[2] = {{time.tv_sec - 60, time.tv_nsec}, time};
        ASSERT_EQ(::utimensat(AT_FDCWD, plain.c_str(), times, 0), 0);
        GSFileState state = stateOf(plain);
        EXPECT_EQ(describe(state.modificationDate), expected) << time.tv_nsec << " ns";
        EXPECT_EQ(describe(state.accessDate).substr(17), std::string(expected).substr(17))
            << "the access date, a minute earlier";
    }

    // Flags: valid; bits 2, 4 and 16 cleared on a plain file. A link is not the folder it names,
    // and a dangling one is still an item.
    GSFileState state;
    state.flags = GSFileState::kCleared | GSFileState::kPackage | GSFileState::kHidden;
    ASSERT_EQ(GSURLFillFileState(url(plain).get(), &state), 0);
    std::string flags = std::to_string(state.valid + state.flags);
    for (const char* name : {".hidden", "folder", "link", "dangling"})
        flags += " " + std::to_string(stateOf(root + "/" + name).flags);
    EXPECT_EQ(flags, "1 " + std::to_string(GSFileState::kHidden) + " " +
                         std::to_string(GSFileState::kFolder) + " 0 0");
    EXPECT_EQ(GSURLFillFileState(url(root + "/missing").get(), &state), 1);
    EXPECT_EQ(state.valid, 0);

    // procfs keeps no birth time: the creation date is then the access date read before it.
    // Where there is one, it is the creation date: the file was born now, its other dates are old.
    GSFileState proc = stateOf("/proc/version");
    EXPECT_EQ(describe(proc.creationDate), describe(proc.accessDate));
    EXPECT_GT(stateOf(plain).creationDate.year, 2020);
}

// Dates are written as UTC to the millisecond; a date that is no calendar date is left as it
// was. A locked item still takes new dates through the layer, but refuses removal.
TEST(FileSystem, SettingStatesAndLocking) {
    TempFolder tmp;
    const std::string path = tmp.root() + "/dated.txt";
    writeText(path, "x");
    Unlock unlock{path};
    GSIdPointer item = url(path);
    GSFileState state = stateOf(path);
    state.accessDate = GSDate(31, 12, 1999, 23, 59, 59, 1);
    state.modificationDate = GSDate(3, 2, 2001, 4, 5, 6, 789);
    state.flags |= GSFileState::kHidden; // the name decides; not an error
    GSString detail;
    ASSERT_EQ(GSURLSetFileState(item.get(), state, &detail), 0) << text(detail);
    struct stat facts;
    ASSERT_EQ(::stat(path.c_str(), &facts), 0);
    EXPECT_EQ(facts.st_mtim.tv_sec * 1000 + facts.st_mtim.tv_nsec / 1000000, 981173106789);
    GSFileState after = stateOf(path);
    EXPECT_EQ(describe(after.accessDate) + " " + std::to_string(after.flags),
              "1999-12-31 23:59:59.001 0");

    state.flags |= GSFileState::kLocked;
    for (const GSDate& date : {GSDate(30, 2, 2023, 12, 0, 0, 0), GSDate(2, 6, 2010, 10, 0, 0, 0)}) {
        state.accessDate = GSDate(29, 2, 2024, 12, 0, 0, 500);
        state.modificationDate = date;
        if (GSURLSetFileState(item.get(), state, &detail) != 0)
            GTEST_SKIP() << "the immutable attribute cannot be set here: " << text(detail);
        after = stateOf(path);
        EXPECT_EQ(after.flags, GSFileState::kLocked);
        EXPECT_EQ(describe(after.accessDate), "2024-02-29 12:00:00.500");
    }
    EXPECT_EQ(describe(after.modificationDate), "2010-06-02 10:00:00.000");
    EXPECT_EQ(GSURLSetFileState(item.get(), state, &detail), 0) << "already locked";
    EXPECT_EQ(GSURLRemove(item.get(), &detail), 1);
    EXPECT_EQ(text(detail), path + ": Operation not permitted");
    state.flags &= ~GSFileState::kLocked;
    ASSERT_EQ(GSURLSetFileState(item.get(), state, &detail), 0) << text(detail);
    EXPECT_EQ(GSURLRemove(item.get(), &detail), 0) << text(detail);
    EXPECT_EQ(GSURLSetFileState(item.get(), state, &detail), 1) << "no item";
}

TEST(FileSystem, LinksResolved) {
    TempFolder tmp;
    const std::string root = tmp.root(), file = root + "/real/file.txt";
    ASSERT_TRUE(makeItems(root, {"real/", "real/file.txt=content", "folderlink->real",
                                 "filelink->real/file.txt", "chain->filelink",
                                 "real/updown->../real/./file.txt", "loop1->loop2", "loop2->loop1",
                                 "dangling->nowhere/x", "absolute->" + root + "/real"}));
    // clang-format off
    const std::tuple<const char*, std::string, short> cases[] = { // empty: not a link
        {"real", "", 7}, {"chain", file, 0}, {"real/updown", file, 0},
        {"folderlink", root + "/real", 1}, {"absolute", root + "/real", 1},
        {"folderlink/../real/file.txt", file, 0}, {"loop1", "", 7},
        {"dangling", root + "/nowhere/x", 0}, {"absent", "", 7}};
    // clang-format on
    for (const auto& [name, expected, expectedIsFolder] : cases) {
        GSIdPointer resolved = url("/tmp"); // emptied by the call when nothing is resolved
        short isFolder = 7;
        EXPECT_EQ(GSURLResolveLinkOrAlias(url(root + "/" + name).get(), 1, &resolved, &isFolder),
                  0);
        EXPECT_EQ(pathOf(resolved) + " " + std::to_string(isFolder),
                  expected + " " + std::to_string(expectedIsFolder))
            << name;
    }
    EXPECT_EQ(GSURLResolveLinkOrAlias(nullptr, 0, nullptr, nullptr), 1);

    // Making a URL with its folder resolved keeps a link in the last place; appending asks the
    // disk whether the result is a folder.
    EXPECT_EQ(pathOf(url(root + "/folderlink/file.txt", 0, 1)), file);
    EXPECT_EQ(pathOf(url(root + "/real/updown", 0, 1)), root + "/real/updown");
    GSIdPointer folder;
    folder = GSURLCreateByAppending(url(root, 1).get(), GSString("folderlink"));
    EXPECT_TRUE(same(folder, url(root + "/folderlink", 1)));
}

// Moves and replacements with renameat2's flags and without them (the path of file systems
// that lack them).
class Replacing : public ::testing::TestWithParam<bool> {
protected:
    void SetUp() override { GSURLAllowRenameFlags(GetParam()); }
    void TearDown() override { GSURLAllowRenameFlags(true); }
};

// A file spec's rename never replaces; its exchange puts the new file in the target's place
// and either deletes the old content or leaves it under the new file's former name.
TEST_P(Replacing, MovesExchangesAndReplacements) {
    TempFolder tmp;
    const std::string root = tmp.root();
    GSString detail;
    EXPECT_EQ(GSFileSpec().remove(&detail), 1) << "a spec without a URL";
    ASSERT_TRUE(
        makeItems(root, {"a.txt=a", "b.txt=b", ".hidden.cfg=old", "fresh.cfg=new", "dir/"}));
    GSFileSpec spec(bytes(root + "/a.txt")), folder(bytes(root + "/dir"));
    EXPECT_EQ(spec.rename(bytes("b.txt"), &detail), 1);
    EXPECT_EQ(text(detail), root + "/b.txt: File exists");
    EXPECT_EQ(folder.rename(bytes("b.txt"), &detail), 1) << "a folder onto a file";
    EXPECT_EQ(GSFileSpec(bytes(root + "/absent")).rename(bytes("x"), &detail), 1);
    EXPECT_EQ(text(detail), root + "/absent: No such file or directory");
    EXPECT_EQ(text(spec.getPathname(GSFullPath)), root + "/a.txt")
        << "a failed rename leaves the spec";
    ASSERT_EQ(spec.rename(bytes("c.txt"), &detail) + folder.rename(bytes("moved"), &detail), 0);
    EXPECT_EQ(text(spec.getPathname(GSFullPath)), root + "/c.txt") << "the spec follows the item";
    ASSERT_EQ(spec.remove(&detail), 0);
    EXPECT_EQ(spec.remove(&detail), 1) << "nothing left to remove";

    GSFileSpec fresh(bytes(root + "/fresh.cfg")), hidden(bytes(root + "/.hidden.cfg"));
    ASSERT_EQ(fresh.exchangeWith(hidden, 0, &detail), 0) << text(detail);
    EXPECT_EQ(readText(root + "/.hidden.cfg") + readText(root + "/fresh.cfg"), "newold");
    ASSERT_EQ(fresh.exchangeWith(hidden, 1, &detail), 0) << text(detail);
    EXPECT_EQ(readText(root + "/.hidden.cfg"), "old");
    EXPECT_EQ(listing(root), (std::set<std::string>{".hidden.cfg", "b.txt", "moved"}));
    writeText(root + "/fresh.cfg", "new");
    EXPECT_EQ(fresh.exchangeWith(GSFileSpec(bytes(root + "/missing")), 0, &detail), 1);
    EXPECT_EQ(listing(root), (std::set<std::string>{".hidden.cfg", "b.txt", "fresh.cfg", "moved"}))
        << "a failed exchange moves nothing";

    // Replacement keeps the old file's permissions, takes folders with their contents, and
    // refuses a missing item or a backup name that is no bare name.
    ASSERT_TRUE(makeItems(root, {"doc.txt=old", ".tmpnew=new", "bundle/", "bundle/in=1", ".tmpb1/",
                                 ".tmpb1/in=2", ".tmpb2/", ".tmpb2/in=3"}));
    ASSERT_EQ(::chmod((root + "/doc.txt").c_str(), 0640), 0);
    GSIdPointer target = url(root + "/doc.txt"), other = url(root + "/.tmpnew");
    EXPECT_EQ(GSURLReplaceWithURL(target.get(), url(root + "/.absent").get(), GSString(), &detail),
              1);
    EXPECT_EQ(text(detail), root + "/.absent: No such file or directory");
    EXPECT_EQ(GSURLReplaceWithURL(url(root + "/gone").get(), other.get(), GSString(), &detail), 1);
    EXPECT_EQ(GSURLReplaceWithURL(target.get(), other.get(), bytes("a/b"), &detail), 1);
    ASSERT_EQ(GSURLReplaceWithURL(target.get(), other.get(), bytes(".tmpold"), &detail), 0);
    EXPECT_EQ(readText(root + "/doc.txt") + readText(root + "/.tmpold"), "newold");
    struct stat facts;
    ASSERT_EQ(::stat((root + "/doc.txt").c_str(), &facts), 0);
    EXPECT_EQ(facts.st_mode & 07777, 0640u);

    GSIdPointer bundle = url(root + "/bundle");
    ASSERT_EQ(
        GSURLReplaceWithURL(bundle.get(), url(root + "/.tmpb1").get(), bytes("bundle~"), &detail),
        0);
    ASSERT_EQ(GSURLReplaceWithURL(bundle.get(), url(root + "/.tmpb2").get(), GSString(), &detail),
              0);
    EXPECT_EQ(readText(root + "/bundle/in") + readText(root + "/bundle~/in"), "31");
    EXPECT_EQ(listing(root), (std::set<std::string>{".hidden.cfg", "b.txt", "fresh.cfg", "moved",
                                                    "doc.txt", ".tmpold", "bundle", "bundle~"}))
        << "nothing left of the replacements";
}

// A reader that opens the target over and over never finds the name empty or a file half made.
TEST_P(Replacing, TheTargetNameNeverGoesMissing) {
    TempFolder tmp;
    const std::string root = tmp.root(), target = root + "/watched.txt";
    writeText(target, "version 0");
    std::atomic<bool> done{false};
    std::atomic<int> bad{0}, reads{0};
    std::thread reader([&] {
        for (; !done; ++reads) {
            std::string text = readText(target);
            if (text.size() < 9 || text.compare(0, 8, "version ") != 0) ++bad;
        }
    });
    GSIdPointer targetURL = url(target);
    int failures = 0;
    for (int i = 1; i <= 300; ++i) {
        std::string next = root + "/.tmp" + std::to_string(i);
        writeText(next, "version " + std::to_string(i));
        failures += GSURLReplaceWithURL(targetURL.get(), url(next).get(),
                                        bytes(i % 2 ? ".tmpbackup" : ""), nullptr);
    }
    done = true;
    reader.join();
    EXPECT_EQ(std::to_string(failures) + " " + std::to_string(bad.load()), "0 0")
        << "failed replacements; reads that found no file or a torn one";
    EXPECT_GT(reads.load(), 0);
    EXPECT_EQ(readText(target) + readText(root + "/.tmpbackup"), "version 300version 298");
}

INSTANTIATE_TEST_SUITE_P(FileSystem, Replacing, ::testing::Values(true, false),
                         [](const ::testing::TestParamInfo<bool>& info) {
                             return info.param ? "RenameFlags" : "WithoutRenameFlags";
                         });

// Links in a tree are removed, never followed; an item that refuses removal (locked) is named in
// the failure and the rest of its folder stays.
TEST(FileSystem, RemovingFoldersWithContents) {
    TempFolder tmp;
    const std::string root = tmp.root();
    std::string deep = "tree";
    for (int i = 0; i < 20; ++i, deep += "/level")
        ASSERT_TRUE(makeItems(root, {deep + "/", deep + "/.hidden=x"}));
    ASSERT_TRUE(makeItems(root, {"outside/", "outside/precious=keep",
                                 "tree/out->" + root + "/outside", "tree/p->../outside/precious",
                                 "shut/", "shut/inner/", "shut/inner/file=x"}));
    ASSERT_EQ(::mkfifo((root + "/tree/fifo").c_str(), 0600), 0);
    GSString detail;
    EXPECT_EQ(GSURLRemove(url(root + "/tree").get(), &detail), 0) << text(detail);
    EXPECT_EQ(listing(root), (std::set<std::string>{"outside", "shut"}));
    EXPECT_EQ(readText(root + "/outside/precious"), "keep");

    const std::string locked = root + "/shut/inner/file";
    Unlock unlock{locked};
    if (!setImmutable(locked, true)) GTEST_SKIP() << "the immutable attribute cannot be set here";
    EXPECT_EQ(GSURLRemove(url(root + "/shut").get(), &detail), 1);
    EXPECT_EQ(text(detail) + " " + readText(locked), locked + ": Operation not permitted x");
}
