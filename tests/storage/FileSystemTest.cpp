// FileSystemTest.cpp - the POSIX file-system layer against real files in a private folder.
#include "GSURL.h"
#include "TestSupport.h"

#include <gtest/gtest.h>

#include <atomic>
#include <cctype>
#include <climits>
#include <cstdio>
#include <cstring>
#include <dirent.h>
#include <fcntl.h>
#include <linux/fs.h>
#include <set>
#include <string>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>
#include <vector>

using namespace testing_support;

namespace {

std::string str(const GSString& s) {
    return s.getConstAddr() ? std::string(s.getConstAddr(), s.getLength()) : std::string();
}

// A UTF-8 string with its own copy of `bytes`, valid UTF-8 or not.
GSString gs(const std::string& bytes) {
    return GSString(bytes.data(), static_cast<long>(bytes.size()), GSString::kUTF8);
}

// Holds a URL made from a path or URL string; empty when none was made.
GSIdPointer url(const std::string& path, short isDirectory = 0, short resolveFolder = 0) {
    GSIdPointer held;
    held = GSURLCreateWithFilePath(gs(path), isDirectory, resolveFolder);
    return held;
}

std::string pathOf(const GSIdPointer& held) {
    return str(GSURLGetPathname(held.get()));
}

// "file://" and the path with every byte but the unreserved ones and "/" escaped.
std::string fileURLString(const std::string& path) {
    std::string out = "file://";
    for (unsigned char c : path) {
        if (std::isalnum(c) || (c && std::strchr("/-._~", c))) {
            out.push_back(static_cast<char>(c));
        } else {
            out.push_back('%');
            out.push_back("0123456789ABCDEF"[c >> 4]);
            out.push_back("0123456789ABCDEF"[c & 15]);
        }
    }
    return out;
}

// The temporary folder's real path (the layer resolves links), searchable by everyone.
std::string realRoot(const TempFolder& folder) {
    char buffer[PATH_MAX];
    std::string root = ::realpath(folder.root().c_str(), buffer) ? buffer : folder.root();
    ::chmod(root.c_str(), 0755);
    return root;
}

void write(const std::string& path, const std::string& text) {
    writeFile(path, Bytes(text.begin(), text.end()));
}

std::string read(const std::string& path) {
    Bytes b = readFile(path);
    return std::string(b.begin(), b.end());
}

std::set<std::string> listing(const std::string& folder) {
    std::set<std::string> names;
    if (DIR* d = ::opendir(folder.c_str())) {
        while (dirent* e = ::readdir(d))
            if (std::strcmp(e->d_name, ".") != 0 && std::strcmp(e->d_name, "..") != 0)
                names.insert(e->d_name);
        ::closedir(d);
    }
    return names;
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

// Clears the immutable attribute behind the layer's back, so that the folder can go.
void forceUnlock(const std::string& path) {
    int fd = ::open(path.c_str(), O_RDONLY | O_NONBLOCK);
    int attributes = 0;
    if (fd >= 0 && ::ioctl(fd, FS_IOC_GETFLAGS, &attributes) == 0) {
        attributes &= ~FS_IMMUTABLE_FL;
        ::ioctl(fd, FS_IOC_SETFLAGS, &attributes);
    }
    if (fd >= 0) ::close(fd);
}

// Runs `body` (returning a status byte) as user nobody, in a child that drops root; -1 when
// this process is not root (the test's files are then its own) or the child cannot run.
template <class Body> int runUnprivileged(Body body) {
    if (::geteuid() != 0) return -1;
    pid_t child = ::fork();
    if (child == 0) {
        if (::setresgid(65534, 65534, 65534) != 0 || ::setresuid(65534, 65534, 65534) != 0)
            ::_exit(255);
        ::_exit(body());
    }
    int status = 0;
    if (child < 0 || ::waitpid(child, &status, 0) != child || !WIFEXITED(status)) return -1;
    return WEXITSTATUS(status) == 255 ? -1 : WEXITSTATUS(status);
}

} // namespace

TEST(FileSystem, URLsFromPathsAndTheirParts) {
    EXPECT_EQ(GSURLCreateWithFilePath(GSString(""), 0, 0), nullptr) << "empty path";
    EXPECT_EQ(pathOf(url("file:///tmp/x")), "/tmp/x") << "a URL string";
    EXPECT_EQ(pathOf(url("/a//b/./c/")), "/a/b/c") << "tidied, no trailing /";
    char cwd[PATH_MAX];
    ASSERT_NE(::getcwd(cwd, sizeof cwd), nullptr);
    EXPECT_EQ(pathOf(url("rel/x")), std::string(cwd) + "/rel/x") << "relative to the cwd";

    // A URL says whether it names a folder: "/tmp/x" as a file and as a folder differ.
    EXPECT_EQ(GSURLIsEqual(url("/tmp/x").get(), url("/tmp/x", 1).get()), 0);
    EXPECT_EQ(GSURLIsEqual(url("file:///tmp/x/").get(), url("/tmp//x", 1).get()), 1);
    EXPECT_EQ(GSURLIsEqual(nullptr, nullptr), 1);
    EXPECT_EQ(GSURLIsEqual(url("/tmp").get(), nullptr), 0);

    GSIdPointer file = url("/a/b/c.txt"), parent, deleted, appended, top;
    EXPECT_EQ(str(GSURLGetLastPathComponent(file.get())), "c.txt");
    parent = GSURLCreateParentURL(file.get());
    EXPECT_EQ(GSURLIsEqual(parent.get(), url("/a/b", 1).get()), 1) << pathOf(parent);
    deleted = GSURLCreateByDeletingLastPathComponent(file.get());
    EXPECT_EQ(GSURLIsEqual(deleted.get(), parent.get()), 1);
    appended = GSURLCreateByAppending(parent.get(), GSString("d/e.txt"));
    EXPECT_EQ(pathOf(appended), "/a/b/d/e.txt");
    EXPECT_EQ(GSURLCreateByAppending(parent.get(), GSString("")), nullptr);

    // The root: no parent, "/" as its last component, an empty path.
    GSIdPointer root = url("/");
    EXPECT_EQ(GSURLIsRoot(root.get()), 1);
    EXPECT_EQ(GSURLIsRoot(parent.get()), 0);
    EXPECT_EQ(GSURLCreateParentURL(root.get()), nullptr);
    EXPECT_EQ(str(GSURLGetLastPathComponent(root.get())), "/");
    EXPECT_TRUE(GSURLGetPathname(root.get()).isEmpty());
    top = GSURLCreateParentURL(url("/a").get());
    EXPECT_EQ(GSURLIsRoot(top.get()), 1);

    // A handle of another kind is no URL, and counting leaves it alone.
    unsigned foreign[4] = {7, 0, 0, 0};
    EXPECT_EQ(GSURLIsEqual(foreign, nullptr), 1);
    GSIdRelease(foreign);
    EXPECT_EQ(foreign[0], 7u);
}

TEST(FileSystem, URLStringsAndPathsRoundTrip) {
    TempFolder tmp;
    const std::string root = realRoot(tmp);
    for (std::string name : {"with space", "100%", "a#b?c", "caf\xc3\xa9", "\xe6\x97\xa5", "%41%zz",
                             "\xff\xfe not UTF-8"}) {
        std::string path = root + "/" + name;
        write(path, name);
        GSIdPointer fromPath = url(path), fromString = url(fileURLString(path));
        EXPECT_EQ(pathOf(fromString), path) << fileURLString(path);
        EXPECT_EQ(GSURLIsEqual(fromPath.get(), fromString.get()), 1) << name;
        EXPECT_EQ(str(GSURLGetLastPathComponent(fromPath.get())), name);
        GSFileState state;
        EXPECT_EQ(GSURLFillFileState(fromString.get(), &state), 0) << "the file itself: " << name;
    }

    EXPECT_EQ(pathOf(url("file://localhost/tmp/a%20b")), "/tmp/a b");
    EXPECT_EQ(pathOf(url("file:///tmp/%c3%a9")), "/tmp/\xc3\xa9") << "lower-case hex";
    EXPECT_EQ(pathOf(url("file:///tmp/a%23b#fragment")), "/tmp/a#b");
    EXPECT_EQ(pathOf(url("file:///tmp/a?query")), "/tmp/a");
    for (const char* refused :
         {"file://elsewhere/tmp/a", "file:///tmp/a%2", "file:///tmp/a%zz", "file:///a%00b"})
        EXPECT_TRUE(url(refused).isEmpty()) << refused;

    // Single-byte texts reach the file system as UTF-8, as on Apple platforms.
    GSIdPointer windows, mac;
    windows = GSURLCreateWithFilePath(GSString("/caf\xe9", -1, GSString::kWindows), 0, 0);
    mac = GSURLCreateWithFilePath(GSString("/caf\x8e", -1, GSString::kMac), 0, 0);
    EXPECT_EQ(pathOf(windows), "/caf\xc3\xa9");
    EXPECT_EQ(pathOf(mac), "/caf\xc3\xa9");
}

TEST(FileSystem, HandlesCountTheirReferences) {
    void* made = GSURLCreateWithFilePath(GSString("/tmp/counted"), 0, 0);
    ASSERT_EQ(GSIdGetRetainCount(made), 1) << "Create hands out one reference";
    {
        GSIdPointer adopted;
        adopted = made; // takes over Create's reference
        adopted = made; // the same object again: nothing changes
        EXPECT_EQ(GSIdGetRetainCount(made), 1) << "operator=(void*) adopts";
        {
            GSIdPointer shared, assigned;
            shared.attach(made);
            shared.attach(made);
            EXPECT_EQ(GSIdGetRetainCount(made), 2) << "attach shares";
            GSIdPointer copy(shared);
            assigned = copy;
            assigned = assigned;
            EXPECT_EQ(GSIdGetRetainCount(made), 4) << "copies share, self-assignment does not";
            assigned = nullptr;
            adopted.retain(); // for a receiver that releases it
            GSIdRelease(made);
            EXPECT_EQ(GSIdGetRetainCount(made), 3);
        }
        EXPECT_EQ(GSIdGetRetainCount(made), 1) << "destructors released";

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
        EXPECT_EQ(GSIdGetRetainCount(made), 1) << "counting is atomic";

        GSIdPointer second, keeper(adopted);
        second = GSURLCreateWithFilePath(GSString("/tmp/second"), 0, 0);
        adopted = second;
        EXPECT_EQ(GSIdGetRetainCount(made), 1) << "the old object was released";
        EXPECT_EQ(GSIdGetRetainCount(second.get()), 2);
    }
}

TEST(FileSystem, FileStates) {
    TempFolder tmp;
    const std::string root = realRoot(tmp), plain = root + "/plain.txt";
    write(plain, "12345");
    write(root + "/.hidden", "");
    ASSERT_EQ(::mkdir((root + "/folder").c_str(), 0755), 0);
    ASSERT_EQ(::symlink("folder", (root + "/link").c_str()), 0);
    ASSERT_EQ(::symlink("missing", (root + "/dangling").c_str()), 0);

    // 2001-02-03 04:05:06 UTC is 981173106; milliseconds round up from .51 of a millisecond.
    // Before 1970 the seconds are negative and the fraction still counts forward.
    struct {
        timespec time;
        const char* expected;
    } dates[] = {{{981173106, 1509999}, "2001-02-03 04:05:06.001"},
                 {{981173106, 1510000}, "2001-02-03 04:05:06.002"},
                 {{981173106, 999509999}, "2001-02-03 04:05:06.999"},
                 {{981173106, 999510000}, "2001-02-03 04:05:07.000"},
                 {{-86401, 999000000}, "1969-12-30 23:59:59.999"}};
    for (const auto& d : dates) {
        timespec times[2] = {{d.time.tv_sec - 60, d.time.tv_nsec}, d.time};
        ASSERT_EQ(::utimensat(AT_FDCWD, plain.c_str(), times, 0), 0);
        GSFileState state = stateOf(plain);
        EXPECT_EQ(describe(state.modificationDate), d.expected) << d.time.tv_nsec << " ns";
        EXPECT_EQ(describe(state.accessDate).substr(17), std::string(d.expected).substr(17))
            << "the access date, a minute earlier";
    }

    GSFileState state;
    state.flags = GSFileState::kCleared | GSFileState::kPackage | GSFileState::kHidden;
    ASSERT_EQ(GSURLFillFileState(url(plain).get(), &state), 0);
    EXPECT_EQ(state.valid, 1);
    EXPECT_EQ(state.flags, 0) << "bits 2, 4 and 16 cleared; not a folder, not locked";
    EXPECT_EQ(stateOf(root + "/.hidden").flags, GSFileState::kHidden);
    EXPECT_EQ(stateOf(root + "/folder").flags, GSFileState::kFolder);
    EXPECT_EQ(stateOf(root + "/link").flags, 0) << "a link is not the folder it names";
    EXPECT_EQ(stateOf(root + "/dangling").valid, 1) << "a dangling link is still an item";
    EXPECT_EQ(GSURLFillFileState(url(root + "/missing").get(), &state), 1);
    EXPECT_EQ(state.valid, 0);

    // procfs keeps no birth time: the creation date is then the access date read before it.
    struct statx facts;
    if (::statx(AT_FDCWD, "/proc/version", 0, STATX_BASIC_STATS | STATX_BTIME, &facts) == 0 &&
        !(facts.stx_mask & STATX_BTIME)) {
        GSFileState proc = stateOf("/proc/version");
        EXPECT_EQ(describe(proc.creationDate), describe(proc.accessDate));
    }
    // Where there is one, it is the creation date (the file is younger than its dates above).
    if (::statx(AT_FDCWD, plain.c_str(), 0, STATX_BTIME, &facts) == 0 &&
        (facts.stx_mask & STATX_BTIME)) {
        long seconds = static_cast<long>(facts.stx_btime.tv_sec);
        int milliseconds = static_cast<int>((facts.stx_btime.tv_nsec + 490000) / 1000000);
        if (milliseconds == 1000) ++seconds, milliseconds = 0;
        GSDate born(1, 1, 1970, 0, 0, 0, milliseconds);
        born.addSeconds(seconds);
        EXPECT_EQ(describe(stateOf(plain).creationDate), describe(born));
    }
}

TEST(FileSystem, SettingStatesReadsBackToTheMillisecond) {
    TempFolder tmp;
    const std::string path = realRoot(tmp) + "/dated.txt";
    write(path, "x");
    GSIdPointer item = url(path);
    GSFileState before = stateOf(path), state = before;
    state.accessDate = GSDate(31, 12, 1999, 23, 59, 59, 1);
    state.modificationDate = GSDate(3, 2, 2001, 4, 5, 6, 789);
    state.creationDate = GSDate(1, 1, 1980, 0, 0, 0, 0);
    state.flags |= GSFileState::kHidden; // the name decides; not an error
    GSString detail;
    ASSERT_EQ(GSURLSetFileState(item.get(), state, &detail), 0) << str(detail);

    struct stat facts;
    ASSERT_EQ(::stat(path.c_str(), &facts), 0);
    EXPECT_EQ(facts.st_mtim.tv_sec, 981173106) << "written as UTC";
    EXPECT_EQ(facts.st_mtim.tv_nsec, 789000000);
    EXPECT_EQ(facts.st_atim.tv_sec, 946684799);
    EXPECT_EQ(facts.st_atim.tv_nsec, 1000000);
    GSFileState after = stateOf(path);
    EXPECT_EQ(describe(after.modificationDate), "2001-02-03 04:05:06.789");
    EXPECT_EQ(describe(after.accessDate), "1999-12-31 23:59:59.001");
    EXPECT_EQ(describe(after.creationDate), describe(before.creationDate))
        << "no birth time can be set on Linux";
    EXPECT_EQ(after.flags & GSFileState::kHidden, 0);

    // A date that is no calendar date is left as it was; the other one is still set.
    state.accessDate = GSDate(29, 2, 2024, 12, 0, 0, 500);
    state.modificationDate = GSDate(30, 2, 2023, 12, 0, 0, 0);
    ASSERT_EQ(GSURLSetFileState(item.get(), state, &detail), 0);
    after = stateOf(path);
    EXPECT_EQ(describe(after.accessDate), "2024-02-29 12:00:00.500");
    EXPECT_EQ(describe(after.modificationDate), "2001-02-03 04:05:06.789");
    state.accessDate = GSDate::invalid;
    EXPECT_EQ(GSURLSetFileState(url(path + "-missing").get(), state, &detail), 1);

    // Someone else's file refuses new dates, with the platform's reason.
    int refused = runUnprivileged([&] {
        GSString why;
        return GSURLSetFileState(item.get(), before, &why) == 1 &&
                       str(why) == path + ": Operation not permitted"
                   ? 0
                   : 1;
    });
    if (refused < 0) GTEST_SKIP() << "cannot run as another user (needs root)";
    EXPECT_EQ(refused, 0);
}

TEST(FileSystem, LockedItems) {
    TempFolder tmp;
    const std::string path = realRoot(tmp) + "/locked.txt";
    write(path, "keep");
    struct Unlock {
        std::string path;
        ~Unlock() { forceUnlock(path); }
    } unlock{path};
    GSIdPointer item = url(path);
    GSFileState state = stateOf(path);
    state.flags |= GSFileState::kLocked;
    state.modificationDate = GSDate(1, 6, 2010, 10, 0, 0, 0);
    GSString detail;
    if (GSURLSetFileState(item.get(), state, &detail) != 0)
        GTEST_SKIP() << "the immutable attribute cannot be set here: " << str(detail);
    GSFileState locked = stateOf(path);
    EXPECT_EQ(locked.flags, GSFileState::kLocked);
    EXPECT_EQ(describe(locked.modificationDate), "2010-06-01 10:00:00.000") << "set, then locked";

    // Dates of a locked item still change through the layer; removal is refused.
    state.modificationDate = GSDate(2, 6, 2010, 10, 0, 0, 0);
    ASSERT_EQ(GSURLSetFileState(item.get(), state, &detail), 0) << str(detail);
    locked = stateOf(path);
    EXPECT_EQ(describe(locked.modificationDate), "2010-06-02 10:00:00.000");
    EXPECT_EQ(locked.flags, GSFileState::kLocked);
    EXPECT_EQ(GSURLRemove(item.get(), &detail), 1);
    EXPECT_EQ(str(detail), path + ": Operation not permitted");

    state.flags &= ~GSFileState::kLocked;
    ASSERT_EQ(GSURLSetFileState(item.get(), state, &detail), 0) << str(detail);
    EXPECT_EQ(stateOf(path).flags, 0);
    EXPECT_EQ(GSURLRemove(item.get(), &detail), 0) << str(detail);
}

TEST(FileSystem, LinksResolved) {
    TempFolder tmp;
    const std::string root = realRoot(tmp);
    ASSERT_EQ(::mkdir((root + "/real").c_str(), 0755), 0);
    write(root + "/real/file.txt", "content");
    const char* links[][2] = {{"real", "folderlink"},   {"real/file.txt", "filelink"},
                              {"filelink", "chain"},    {"../real/./file.txt", "real/updown"},
                              {"loop2", "loop1"},       {"loop1", "loop2"},
                              {"nowhere/x", "dangling"}};
    for (auto& link : links)
        ASSERT_EQ(::symlink(link[0], (root + "/" + link[1]).c_str()), 0);
    ASSERT_EQ(::symlink((root + "/real").c_str(), (root + "/absolute").c_str()), 0);

    const std::string file = root + "/real/file.txt";
    struct {
        const char* name;
        std::string expected; // empty: not a link
        short isFolder;
    } cases[] = {{"real/file.txt", "", 0},
                 {"real", "", 0},
                 {"filelink", file, 0},
                 {"chain", file, 0},
                 {"real/updown", file, 0},
                 {"folderlink", root + "/real", 1},
                 {"absolute", root + "/real", 1},
                 {"folderlink/file.txt", file, 0},
                 {"folderlink/../real/file.txt", file, 0},
                 {"loop1", "", 0},
                 {"dangling", root + "/nowhere/x", 0},
                 {"absent", "", 0}};
    for (const auto& c : cases) {
        GSIdPointer resolved = url("/tmp"); // emptied by the call when nothing is resolved
        short isFolder = 7;
        EXPECT_EQ(GSURLResolveLinkOrAlias(url(root + "/" + c.name).get(), 1, &resolved, &isFolder),
                  0);
        EXPECT_EQ(pathOf(resolved), c.expected) << c.name;
        EXPECT_EQ(isFolder, c.expected.empty() ? 7 : c.isFolder) << c.name;
    }
    EXPECT_EQ(GSURLResolveLinkOrAlias(nullptr, 0, nullptr, nullptr), 1);

    // Making a URL with its folder resolved keeps a link in the last place.
    EXPECT_EQ(pathOf(url(root + "/folderlink/file.txt", 0, 1)), file);
    EXPECT_EQ(pathOf(url(root + "/real/updown", 0, 1)), root + "/real/updown");
    // Appending asks the disk whether the result is a folder.
    GSIdPointer folder;
    folder = GSURLCreateByAppending(url(root, 1).get(), GSString("folderlink"));
    EXPECT_EQ(GSURLIsEqual(folder.get(), url(root + "/folderlink", 1).get()), 1);
}

// Moves and replacements with renameat2's flags and without them (the path of file systems
// that lack them).
class Replacing : public ::testing::TestWithParam<bool> {
protected:
    void SetUp() override { GSURLAllowRenameFlags(GetParam()); }
    void TearDown() override { GSURLAllowRenameFlags(true); }
};

TEST_P(Replacing, FilesAndFoldersWithAndWithoutBackup) {
    TempFolder tmp;
    const std::string root = realRoot(tmp);
    write(root + "/doc.txt", "old");
    ASSERT_EQ(::chmod((root + "/doc.txt").c_str(), 0640), 0);
    write(root + "/.tmpnew", "new");
    GSIdPointer target = url(root + "/doc.txt");
    GSString detail;
    ASSERT_EQ(GSURLReplaceWithURL(target.get(), url(root + "/.tmpnew").get(), GSString(".tmpold"),
                                  &detail),
              0)
        << str(detail);
    EXPECT_EQ(read(root + "/doc.txt"), "new");
    EXPECT_EQ(read(root + "/.tmpold"), "old") << "the backup holds the old content";
    EXPECT_EQ(listing(root), (std::set<std::string>{"doc.txt", ".tmpold"}));
    struct stat facts;
    ASSERT_EQ(::stat((root + "/doc.txt").c_str(), &facts), 0);
    EXPECT_EQ(facts.st_mode & 07777, 0640u) << "the old file's permissions";

    write(root + "/.tmpnewer", "newer");
    ASSERT_EQ(
        GSURLReplaceWithURL(target.get(), url(root + "/.tmpnewer").get(), GSString(), &detail), 0)
        << str(detail);
    EXPECT_EQ(read(root + "/doc.txt"), "newer");
    EXPECT_EQ(listing(root), (std::set<std::string>{"doc.txt", ".tmpold"})) << "nothing left";

    // Failures leave both as they were.
    write(root + "/.tmpother", "other");
    GSIdPointer other = url(root + "/.tmpother");
    EXPECT_EQ(GSURLReplaceWithURL(target.get(), url(root + "/.absent").get(), GSString(), &detail),
              1);
    EXPECT_EQ(str(detail), root + "/.absent: No such file or directory");
    EXPECT_EQ(GSURLReplaceWithURL(url(root + "/gone").get(), other.get(), GSString(), &detail), 1);
    EXPECT_EQ(GSURLReplaceWithURL(target.get(), other.get(), GSString("a/b"), &detail), 1);
    EXPECT_EQ(read(root + "/doc.txt"), "newer");
    EXPECT_EQ(read(root + "/.tmpother"), "other");

    // Folders with contents, with a backup and then without.
    for (const char* name : {"bundle", ".tmpb1", ".tmpb2"}) {
        ASSERT_EQ(::mkdir((root + "/" + name).c_str(), 0755), 0);
        write(root + "/" + name + "/in-" + name, name);
    }
    GSIdPointer bundle = url(root + "/bundle");
    ASSERT_EQ(GSURLReplaceWithURL(bundle.get(), url(root + "/.tmpb1").get(), GSString("bundle~"),
                                  &detail),
              0)
        << str(detail);
    EXPECT_EQ(listing(root + "/bundle"), std::set<std::string>{"in-.tmpb1"});
    EXPECT_EQ(listing(root + "/bundle~"), std::set<std::string>{"in-bundle"});
    ASSERT_EQ(GSURLReplaceWithURL(bundle.get(), url(root + "/.tmpb2").get(), GSString(), &detail),
              0)
        << str(detail);
    EXPECT_EQ(listing(root + "/bundle"), std::set<std::string>{"in-.tmpb2"});
    EXPECT_EQ(listing(root),
              (std::set<std::string>{"doc.txt", ".tmpold", ".tmpother", "bundle", "bundle~"}));
}

TEST_P(Replacing, TheTargetNameNeverGoesMissing) {
    TempFolder tmp;
    const std::string root = realRoot(tmp), target = root + "/watched.txt";
    write(target, "version 0");
    std::atomic<bool> done{false};
    std::atomic<int> missing{0}, torn{0}, reads{0};
    std::thread reader([&] {
        while (!done) {
            int fd = ::open(target.c_str(), O_RDONLY);
            if (fd < 0) {
                ++missing;
                continue;
            }
            char buffer[64];
            ssize_t n = ::read(fd, buffer, sizeof buffer);
            ::close(fd);
            if (n < 9 || std::string(buffer, 8) != "version ") ++torn;
            ++reads;
        }
    });
    GSIdPointer targetURL = url(target);
    int failures = 0;
    for (int i = 1; i <= 300; ++i) {
        std::string next = root + "/.tmp" + std::to_string(i);
        write(next, "version " + std::to_string(i));
        GSString backup = gs(i % 2 ? ".tmpbackup" : "");
        failures += GSURLReplaceWithURL(targetURL.get(), url(next).get(), backup, nullptr);
    }
    done = true;
    reader.join();
    EXPECT_EQ(failures, 0);
    EXPECT_EQ(missing.load(), 0) << "the name held no file during a replacement";
    EXPECT_EQ(torn.load(), 0);
    EXPECT_GT(reads.load(), 0);
    EXPECT_EQ(read(target), "version 300");
    EXPECT_EQ(read(root + "/.tmpbackup"), "version 298");
}

TEST_P(Replacing, MovesAcrossNames) {
    TempFolder tmp;
    const std::string root = realRoot(tmp);
    write(root + "/a", "a");
    write(root + "/b", "b");
    ASSERT_EQ(::mkdir((root + "/dir").c_str(), 0755), 0);
    write(root + "/dir/inside", "i");
    GSString detail;
    EXPECT_EQ(GSURLMoveToURL(url(root + "/a").get(), url(root + "/c").get(), &detail), 0);
    EXPECT_EQ(GSURLMoveToURL(url(root + "/dir").get(), url(root + "/moved").get(), &detail), 0);
    EXPECT_EQ(listing(root), (std::set<std::string>{"b", "c", "moved"}));
    EXPECT_EQ(read(root + "/moved/inside"), "i");

    EXPECT_EQ(GSURLMoveToURL(url(root + "/c").get(), url(root + "/b").get(), &detail), 1);
    EXPECT_EQ(str(detail), root + "/b: File exists");
    EXPECT_EQ(GSURLMoveToURL(url(root + "/moved").get(), url(root + "/b").get(), &detail), 1);
    EXPECT_EQ(GSURLMoveToURL(url(root + "/absent").get(), url(root + "/x").get(), &detail), 1);
    EXPECT_EQ(read(root + "/c"), "a");
    EXPECT_EQ(read(root + "/b"), "b");
}

INSTANTIATE_TEST_SUITE_P(FileSystem, Replacing, ::testing::Values(true, false),
                         [](const ::testing::TestParamInfo<bool>& info) {
                             return info.param ? "RenameFlags" : "WithoutRenameFlags";
                         });

TEST(FileSystem, RemovingFoldersWithContents) {
    TempFolder tmp;
    const std::string root = realRoot(tmp);
    ASSERT_EQ(::mkdir((root + "/outside").c_str(), 0755), 0);
    write(root + "/outside/precious", "keep");
    std::string deep = root + "/tree";
    for (int i = 0; i < 20; ++i, deep += "/level" + std::to_string(i)) {
        ASSERT_EQ(::mkdir(deep.c_str(), 0700), 0);
        write(deep + "/file", "x");
        write(deep + "/.hidden", "x");
    }
    ASSERT_EQ(::symlink((root + "/outside").c_str(), (root + "/tree/out").c_str()), 0);
    ASSERT_EQ(::symlink("../outside/precious", (root + "/tree/p").c_str()), 0);
    ASSERT_EQ(::mkfifo((root + "/tree/fifo").c_str(), 0600), 0);
    GSString detail;
    EXPECT_EQ(GSURLRemove(url(root + "/tree").get(), &detail), 0) << str(detail);
    EXPECT_EQ(listing(root), std::set<std::string>{"outside"});
    EXPECT_EQ(read(root + "/outside/precious"), "keep") << "links are removed, not followed";

    EXPECT_EQ(GSURLRemove(url(root + "/absent").get(), &detail), 1);
    EXPECT_EQ(str(detail), root + "/absent: No such file or directory");

    // A folder the user may not change: the failure names the item, the rest stays.
    ASSERT_EQ(::mkdir((root + "/shut").c_str(), 0755), 0);
    ASSERT_EQ(::mkdir((root + "/shut/inner").c_str(), 0755), 0);
    write(root + "/shut/inner/file", "x");
    int refused = runUnprivileged([&] {
        GSString why;
        if (GSURLRemove(url(root + "/shut").get(), &why) != 1) return 1;
        return str(why) == root + "/shut/inner/file: Permission denied" ? 0 : 2;
    });
    if (refused < 0) GTEST_SKIP() << "cannot run as another user (needs root)";
    EXPECT_EQ(refused, 0);
    EXPECT_EQ(read(root + "/shut/inner/file"), "x");
}
