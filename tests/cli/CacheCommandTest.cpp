// CacheCommandTest.cpp - `ember-tide cache`: walking trees, keeping the desktop's cache current,
// failures, unreadable files, and stopping half-way, by running the built tool.
#include "EmberTideDocumentWriter.h"
#include "GSThumbnailCache.h"
#include "RunTool.h"
#include "SampleImages.h"
#include "TestSupport.h"

#include <gtest/gtest.h>

#include <chrono>
#include <csignal>
#include <cstdlib>
#include <fcntl.h>
#include <filesystem>
#include <map>
#include <regex>
#include <set>
#include <spawn.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

extern char** environ;

using namespace testing_support;
namespace fs = std::filesystem;

namespace {

struct Summary {
    long written = -1, upToDate = -1, failed = -1, notOurs = -1;
};

Summary summaryOf(const ToolRun& run) {
    Summary s;
    std::sscanf(run.out.c_str(),
                "{\"written\": %ld, \"up_to_date\": %ld, \"failed\": %ld, \"not_ours\": %ld,",
                &s.written, &s.upToDate, &s.failed, &s.notOurs);
    return s;
}

std::string describe(const Summary& s) {
    return std::to_string(s.written) + " written, " + std::to_string(s.upToDate) + " up to date, " +
           std::to_string(s.failed) + " failed, " + std::to_string(s.notOurs) + " not ours";
}

pid_t spawn(const std::vector<std::string>& argv, const std::string& out, const std::string& err) {
    std::vector<char*> args;
    std::vector<std::string> copies = argv;
    for (auto& a : copies)
        args.push_back(a.data());
    args.push_back(nullptr);
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addopen(&actions, 1, out.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
    posix_spawn_file_actions_addopen(&actions, 2, err.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
    pid_t pid = -1;
    if (posix_spawnp(&pid, args[0], &actions, nullptr, args.data(), environ) != 0) pid = -1;
    posix_spawn_file_actions_destroy(&actions);
    return pid;
}

class CacheCommand : public testing::Test {
protected:
    void SetUp() override {
        ::setenv("XDG_CACHE_HOME", path("cache").c_str(), 1);
        jpeg = samples::encodeJPEG(samples::drawLandscape(64, 48, false), 85);
    }

    std::string path(const std::string& name) const { return folder.path(name); }
    std::string large() const { return path("cache/thumbnails/large"); }
    std::string ourFailures() const { return path("cache/thumbnails/fail/ember-tide-" ET_VERSION); }

    void writeDocument(const std::string& name, const Bytes& picture, int kind = 2, int w = 64,
                       int h = 48) {
        EmberTidePreview preview;
        preview.bytes = toDynaArray(picture);
        preview.kind = kind;
        preview.size = {w, h};
        MemoryFile m;
        ASSERT_EQ(EmberTideWriteDocument(&m.file, preview, EmberTideDocumentOptions()), 0);
        fs::create_directories(fs::path(path(name)).parent_path());
        writeFile(path(name), m.bytes());
    }

    ToolRun cache(std::vector<std::string> args) {
        args.insert(args.begin(), {"cache", "--json"});
        return runTool(args);
    }

    static std::string entryFor(const std::string& file) {
        return GSCacheEntryName(GSFileURI(file));
    }

    static std::set<std::string> namesIn(const std::string& dir) {
        std::set<std::string> names;
        if (fs::is_directory(dir))
            for (auto& e : fs::directory_iterator(dir))
                names.insert(e.path().filename().string());
        return names;
    }

    TempFolder folder;
    Bytes jpeg;
};

} // namespace

TEST_F(CacheCommand, WalksTreesRecognisingDocumentsByContent) {
    writeDocument("tree/plain.etd", jpeg);
    writeDocument("tree/a b/\xC3\xA9t\xC3\xA9 \xE5\x86\x99\xE7\x9C\x9F.etd", jpeg);
    writeDocument("tree/deep/er/x.etd", jpeg);
    writeDocument("tree/disguised.jpg", jpeg); // a document, whatever its name
    writeDocument("outside.etd", jpeg);
    writeFile(path("tree/looks.etd"), jpeg); // a picture named like a document
    writeFile(path("tree/short"), {'E', 'm', 'b', 'e', 'r'});
    ASSERT_EQ(
        runTool({"create", "--selection", path("tree/looks.etd"), path("tree/sel.etd")}).status, 0);
    fs::create_directory_symlink("../..", path("tree/deep/er/loop")); // a loop back to tree/
    fs::create_directory_symlink(path(""), path("tree/deep/up"));     // out of the tree
    fs::create_symlink("plain.etd", path("tree/link.etd"));           // a file inside: followed
    fs::create_symlink(path("outside.etd"), path("tree/out.etd"));    // a file outside: not
    fs::create_symlink("missing.etd", path("tree/dangling.etd"));
    const std::vector<std::string> documents = {
        "tree/plain.etd", "tree/a b/\xC3\xA9t\xC3\xA9 \xE5\x86\x99\xE7\x9C\x9F.etd",
        "tree/deep/er/x.etd", "tree/disguised.jpg", "tree/link.etd"};
    std::set<std::string> expected;
    for (const auto& d : documents)
        expected.insert(entryFor(path(d)));

    ToolRun first = cache({"--jobs", "3", path("tree")});
    ASSERT_EQ(first.status, 0) << first.err;
    Summary s = summaryOf(first);
    EXPECT_EQ(describe(s), "5 written, 0 up to date, 0 failed, 3 not ours") << first.out;
    EXPECT_EQ(namesIn(large()), expected);
    for (const auto& d : documents) {
        std::string entry = large() + "/" + entryFor(path(d));
        samples::Picture png = samples::decodePNG(readFile(entry));
        EXPECT_EQ(png.width, 256) << d << ": fitted into 256 x 256";
        EXPECT_EQ(png.height, 192) << d;
        GSPNGText keys;
        ASSERT_TRUE(GSReadPNGTextKeys(entry, &keys)) << d;
        struct stat st;
        ASSERT_EQ(::stat(path(d).c_str(), &st), 0);
        EXPECT_EQ(*GSFindTextKey(keys, "Thumb::URI"), GSFileURI(path(d)));
        EXPECT_EQ(*GSFindTextKey(keys, "Thumb::MTime"), std::to_string(st.st_mtime)) << d;
        EXPECT_EQ(*GSFindTextKey(keys, "Thumb::Size"), std::to_string(st.st_size)) << d;
        EXPECT_EQ(*GSFindTextKey(keys, "Thumb::Mime"), "application/x-ember-tide-document");
        EXPECT_EQ(fs::status(entry).permissions(), fs::perms::owner_read | fs::perms::owner_write)
            << d;
    }
    EXPECT_EQ(fs::status(large()).permissions(), fs::perms::owner_all);
    EXPECT_EQ(fs::status(path("cache/thumbnails")).permissions(), fs::perms::owner_all);

    ToolRun again = cache({path("tree")});
    EXPECT_EQ(describe(summaryOf(again)), "0 written, 5 up to date, 0 failed, 3 not ours")
        << again.err;

    // A changed file, and the same folders named twice over (relative too): nothing is done twice.
    struct stat st;
    ::stat(path("tree/deep/er/x.etd").c_str(), &st);
    fs::last_write_time(path("tree/deep/er/x.etd"),
                        fs::last_write_time(path("tree/deep/er/x.etd")) + std::chrono::seconds(7));
    ASSERT_EQ(::chdir(path("tree").c_str()), 0);
    ToolRun changed = cache({path("tree"), "deep/../deep", "./plain.etd"});
    EXPECT_EQ(describe(summaryOf(changed)), "1 written, 4 up to date, 0 failed, 3 not ours")
        << changed.err;
    GSPNGText keys;
    GSReadPNGTextKeys(large() + "/" + entryFor(path("tree/deep/er/x.etd")), &keys);
    EXPECT_EQ(*GSFindTextKey(keys, "Thumb::MTime"), std::to_string(st.st_mtime + 7));

    ToolRun forced = cache({"--force", "--size", "normal", path("tree")});
    EXPECT_EQ(describe(summaryOf(forced)), "5 written, 0 up to date, 0 failed, 3 not ours")
        << forced.err;
    EXPECT_EQ(namesIn(path("cache/thumbnails/normal")), expected);
    EXPECT_EQ(
        samples::decodePNG(readFile(path("cache/thumbnails/normal/") + *expected.begin())).width,
        128);
    EXPECT_EQ(describe(summaryOf(cache({"--force", path("tree")}))),
              "5 written, 0 up to date, 0 failed, 3 not ours");
}

TEST_F(CacheCommand, DocumentsWithoutAPictureAreRecordedAsFailures) {
    const std::string noise = "no picture in here at all";
    writeDocument("docs/good.etd", jpeg);
    writeDocument("docs/half.etd",
                  Bytes(jpeg.begin(), jpeg.begin() + static_cast<long>(jpeg.size() / 2)));
    writeDocument("docs/words.etd", Bytes(noise.begin(), noise.end()), 3);
    const std::string half = path("docs/half.etd"), words = path("docs/words.etd");

    ToolRun first = cache({path("docs")});
    EXPECT_EQ(first.status, 1) << first.err;
    EXPECT_EQ(describe(summaryOf(first)), "1 written, 0 up to date, 2 failed, 0 not ours");
    for (const std::string& doc : {half, words}) {
        EXPECT_NE(first.err.find("ember-tide: " + doc + ": "), std::string::npos) << first.err;
        struct stat st;
        ::stat(doc.c_str(), &st);
        for (const std::string& failures :
             {ourFailures(), path("cache/thumbnails/fail/gnome-thumbnail-factory")})
            EXPECT_TRUE(
                GSCacheEntryIsCurrent(failures + "/" + entryFor(doc), GSFileURI(doc), st.st_mtime))
                << doc << " in " << failures;
    }
    EXPECT_EQ(namesIn(large()), std::set<std::string>{entryFor(path("docs/good.etd"))});

    ToolRun again = cache({path("docs")});
    EXPECT_EQ(again.status, 1);
    EXPECT_EQ(describe(summaryOf(again)), "0 written, 1 up to date, 2 failed, 0 not ours");
    EXPECT_NE(again.err.find("--force"), std::string::npos) << again.err;

    // Mended later: the thumbnail is made, and the failure no longer stands.
    writeDocument("docs/half.etd", jpeg);
    fs::last_write_time(half, fs::last_write_time(half) + std::chrono::seconds(3));
    ToolRun mended = cache({path("docs")});
    EXPECT_EQ(describe(summaryOf(mended)), "1 written, 1 up to date, 1 failed, 0 not ours")
        << mended.err;
    EXPECT_EQ(namesIn(ourFailures()), std::set<std::string>{entryFor(words)});
}

TEST_F(CacheCommand, UnreadableFilesAndFoldersAreReportedAndNotRecorded) {
    writeDocument("tree/ok.etd", jpeg);
    writeDocument("tree/locked.etd", jpeg);
    writeDocument("tree/closed/inside.etd", jpeg);
    ::chmod(path("tree/locked.etd").c_str(), 0);
    ::chmod(path("tree/closed").c_str(), 0);
    std::vector<std::string> command = {ET_TOOL_PATH, "cache", "--json", path("tree")};
    if (::geteuid() == 0) {
        // Root reads everything: run the tool as nobody, over a tree and cache nobody can reach.
        if (std::system("setpriv --reuid=65534 --regid=65534 --clear-groups true") != 0)
            GTEST_SKIP() << "running as root without setpriv: no file is unreadable to root";
        ::chmod(folder.root().c_str(), 0755);
        ::chmod(path("tree").c_str(), 0755);
        fs::create_directory(path("cache"));
        ::chmod(path("cache").c_str(), 0777);
        command.insert(command.begin(),
                       {"setpriv", "--reuid=65534", "--regid=65534", "--clear-groups"});
    }
    pid_t pid = spawn(command, path("out"), path("err"));
    ASSERT_GT(pid, 0);
    int status = 0;
    ::waitpid(pid, &status, 0);
    ::chmod(path("tree/closed").c_str(), 0755);
    ToolRun run;
    run.status = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    Bytes out = readFile(path("out")), err = readFile(path("err"));
    run.out.assign(out.begin(), out.end());
    run.err.assign(err.begin(), err.end());

    EXPECT_EQ(run.status, 1) << run.err;
    EXPECT_EQ(describe(summaryOf(run)), "1 written, 0 up to date, 2 failed, 0 not ours") << run.err;
    EXPECT_NE(run.err.find(path("tree/locked.etd") + ": cannot read"), std::string::npos)
        << run.err;
    EXPECT_NE(run.err.find(path("tree/closed") + ": cannot read"), std::string::npos) << run.err;
    EXPECT_EQ(namesIn(large()), std::set<std::string>{entryFor(path("tree/ok.etd"))});
    EXPECT_EQ(namesIn(ourFailures()), std::set<std::string>{})
        << "nothing is kept for unreadable files";
}

TEST_F(CacheCommand, InterruptedRunsLeaveOnlyWholeEntriesAndWorkersAgree) {
    // Pictures of several shapes, many documents, the largest size: slow enough to stop half-way.
    const int kShapes = 6, kDocuments = 120;
    std::vector<Bytes> pictures;
    for (int i = 0; i < kShapes; ++i)
        pictures.push_back(
            samples::encodeJPEG(samples::drawLandscape(900 + 150 * i, 700 - 40 * i, false), 90));
    for (int i = 0; i < kDocuments; ++i)
        writeDocument("many/" + std::to_string(i) + ".etd", pictures[i % kShapes], 2,
                      900 + 150 * (i % kShapes), 700 - 40 * (i % kShapes));

    pid_t pid = spawn({ET_TOOL_PATH, "cache", "--size", "xx-large", "--jobs", "2", path("many")},
                      path("out"), path("err"));
    ASSERT_GT(pid, 0);
    const std::string xx = path("cache/thumbnails/xx-large");
    auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(60);
    while (namesIn(xx).size() < 3 && std::chrono::steady_clock::now() < deadline)
        std::this_thread::sleep_for(std::chrono::milliseconds(2));
    ::kill(pid, SIGINT);
    int status = 0;
    ::waitpid(pid, &status, 0);
    EXPECT_TRUE(WIFSIGNALED(status) && WTERMSIG(status) == SIGINT) << "it should die of the signal";
    Bytes err = readFile(path("err"));
    EXPECT_NE(std::string(err.begin(), err.end()).find("stopped after"), std::string::npos)
        << "killed outright instead of stopping its workers";

    std::set<std::string> left = namesIn(xx);
    EXPECT_GT(left.size(), 0u);
    EXPECT_LT(left.size(), static_cast<size_t>(kDocuments))
        << "finished before the signal: nothing was tested";
    const std::regex entryName("[0-9a-f]{32}\\.png");
    for (const std::string& name : left) {
        ASSERT_TRUE(std::regex_match(name, entryName)) << "left behind: " << name;
        GSPNGText keys;
        EXPECT_TRUE(GSReadPNGTextKeys(xx + "/" + name, &keys)) << name << " is not a whole PNG";
    }

    // The rest is made on four workers; every thumbnail equals the one-process thumbnailer's.
    ToolRun rest = cache({"--size", "xx-large", "--jobs", "4", path("many")});
    Summary s = summaryOf(rest);
    EXPECT_EQ(s.written + s.upToDate, kDocuments) << rest.err;
    EXPECT_EQ(s.upToDate, static_cast<long>(left.size()));
    std::vector<samples::Picture> expected;
    for (int i = 0; i < kShapes; ++i) {
        ASSERT_EQ(runTool({"thumbnail", "-s", "1024", path("many/" + std::to_string(i) + ".etd"),
                           path("ref.png")})
                      .status,
                  0);
        expected.push_back(samples::decodePNG(readFile(path("ref.png"))));
    }
    for (int i = 0; i < kDocuments; ++i) {
        samples::Picture got = samples::decodePNG(
            readFile(xx + "/" + entryFor(path("many/" + std::to_string(i) + ".etd"))));
        EXPECT_TRUE(got.width == expected[i % kShapes].width &&
                    got.pixels == expected[i % kShapes].pixels)
            << "document " << i << " differs from its single-threaded thumbnail";
    }
}

TEST_F(CacheCommand, UsageErrors) {
    writeDocument("docs/a.etd", jpeg);
    const std::string docs = path("docs");
    for (const std::vector<std::string>& args : std::vector<std::vector<std::string>>{
             {},
             {"--size", "huge", docs},
             {"--size=256", docs},
             {docs, "--size"},
             {"--jobs", "0", docs},
             {"--jobs", "two", docs},
             {"--jobs=5000", docs},
             {"--bogus", docs},
             {path("missing"), docs},
         }) {
        std::vector<std::string> all = {"cache"};
        all.insert(all.end(), args.begin(), args.end());
        ToolRun r = runTool(all);
        std::string what = args.empty() ? "(none)" : args[0];
        EXPECT_EQ(r.status, 2) << what << ": " << r.err;
        EXPECT_NE(r.err, "") << what;
    }
    EXPECT_FALSE(fs::exists(large())) << "nothing is done after a usage error";

    writeFile(path("plain"), {1});
    ::setenv("XDG_CACHE_HOME", path("plain/cache").c_str(), 1);
    ToolRun blocked = runTool({"cache", docs});
    EXPECT_EQ(blocked.status, 2) << "the cache cannot be made under a file";
    EXPECT_NE(blocked.err.find("cannot make"), std::string::npos) << blocked.err;

    ToolRun help = runTool({"cache", "--help"});
    EXPECT_EQ(help.status, 0);
    EXPECT_NE(help.out.find("Example: ember-tide cache"), std::string::npos) << help.out;
    EXPECT_NE(runTool({"--help"}).out.find("cache"), std::string::npos);
}
