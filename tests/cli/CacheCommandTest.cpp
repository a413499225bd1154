// CacheCommandTest.cpp - `ember-tide cache`: walking trees, keeping the desktop's cache current,
// failures, unreadable files, and stopping half-way, by running the built tool. Its usage errors
// are in CommandLineTest.
#include "GSThumbnailCache.h"
#include "RunTool.h"
#include "SampleImages.h"

#include <gtest/gtest.h>

#include <chrono>
#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <regex>
#include <set>
#include <sys/stat.h>
#include <thread>
#include <tuple>
#include <unistd.h>

using namespace testing_support;
namespace fs = std::filesystem;

namespace {

// The counts of the summary `cache --json` prints.
std::string counts(const ToolRun& run) {
    long n[4] = {-1, -1, -1, -1};
    std::sscanf(run.out.c_str(),
                "{\"written\": %ld, \"up_to_date\": %ld, \"failed\": %ld, \"not_ours\": %ld,",
                &n[0], &n[1], &n[2], &n[3]);
    return std::to_string(n[0]) + " written, " + std::to_string(n[1]) + " up to date, " +
           std::to_string(n[2]) + " failed, " + std::to_string(n[3]) + " not ours";
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
    const std::vector<std::string> documents = {
        "tree/plain.etd", "tree/a b/\xC3\xA9t\xC3\xA9 \xE5\x86\x99\xE7\x9C\x9F.etd",
        "tree/deep/er/x.etd", "tree/disguised.jpg", "tree/link.etd"};
    for (int i = 0; i < 4;
         ++i) // the last is a link; tree/disguised.jpg is a document, whatever its name
        writeDocument(path(documents[i]), jpeg);
    writeDocument(path("outside.etd"), jpeg);
    writeFile(path("tree/looks.etd"), jpeg); // a picture named like a document
    writeFile(path("tree/short"), {'E', 'm', 'b', 'e', 'r'});
    ASSERT_EQ(
        runTool({"create", "--selection", path("tree/looks.etd"), path("tree/sel.etd")}).status, 0);
    fs::create_directory_symlink("../..", path("tree/deep/er/loop")); // a loop back to tree/
    fs::create_directory_symlink(path(""), path("tree/deep/up"));     // out of the tree
    fs::create_symlink("plain.etd", path("tree/link.etd"));           // a file inside: followed
    fs::create_symlink(path("outside.etd"), path("tree/out.etd"));    // a file outside: not
    fs::create_symlink("missing.etd", path("tree/dangling.etd"));
    std::set<std::string> expected;
    for (const auto& d : documents)
        expected.insert(entryFor(path(d)));

    ToolRun first = cache({"--jobs", "3", path("tree")});
    ASSERT_EQ(first.status, 0) << first.err;
    EXPECT_EQ(counts(first), "5 written, 0 up to date, 0 failed, 3 not ours") << first.out;
    EXPECT_EQ(namesIn(large()), expected);
    for (const auto& d : documents) {
        SCOPED_TRACE(d);
        std::string entry = large() + "/" + entryFor(path(d));
        samples::Picture png = samples::decodePNG(readFile(entry));
        EXPECT_TRUE(png.width == 256 && png.height == 192) << "not fitted into 256 x 256";
        GSPNGText keys;
        struct stat st;
        ASSERT_TRUE(GSReadPNGTextKeys(entry, &keys) && ::stat(path(d).c_str(), &st) == 0);
        EXPECT_EQ(*GSFindTextKey(keys, "Thumb::URI"), GSFileURI(path(d)));
        EXPECT_EQ(*GSFindTextKey(keys, "Thumb::MTime"), std::to_string(st.st_mtime));
        EXPECT_EQ(*GSFindTextKey(keys, "Thumb::Size"), std::to_string(st.st_size));
        EXPECT_EQ(*GSFindTextKey(keys, "Thumb::Mimetype"), "application/x-ember-tide-document");
    }
    EXPECT_EQ(counts(cache({path("tree")})), "0 written, 5 up to date, 0 failed, 3 not ours");

    // A changed file, and the same folders named twice over (relative too): nothing is done twice.
    const std::string changed = path("tree/deep/er/x.etd");
    struct stat st;
    ::stat(changed.c_str(), &st);
    fs::last_write_time(changed, fs::last_write_time(changed) + std::chrono::seconds(7));
    ASSERT_EQ(::chdir(path("tree").c_str()), 0);
    ToolRun again = cache({path("tree"), "deep/../deep", "./plain.etd"});
    EXPECT_EQ(counts(again), "1 written, 4 up to date, 0 failed, 3 not ours") << again.err;
    GSPNGText keys;
    GSReadPNGTextKeys(large() + "/" + entryFor(changed), &keys);
    EXPECT_EQ(*GSFindTextKey(keys, "Thumb::MTime"), std::to_string(st.st_mtime + 7));

    EXPECT_EQ(counts(cache({"--size", "normal", path("tree")})),
              "5 written, 0 up to date, 0 failed, 3 not ours");
    EXPECT_EQ(namesIn(path("cache/thumbnails/normal")), expected);
    EXPECT_EQ(
        samples::decodePNG(readFile(path("cache/thumbnails/normal/") + *expected.begin())).width,
        128);
    EXPECT_EQ(counts(cache({"--force", path("tree")})),
              "5 written, 0 up to date, 0 failed, 3 not ours");
}

TEST_F(CacheCommand, DocumentsWithoutAPictureAreRecordedAsFailures) {
    const std::string noise = "no picture in here at all";
    const std::string half = path("docs/half.etd"), words = path("docs/words.etd");
    writeDocument(path("docs/good.etd"), jpeg);
    writeDocument(half, Bytes(jpeg.begin(), jpeg.begin() + static_cast<long>(jpeg.size() / 2)));
    writeDocument(words, Bytes(noise.begin(), noise.end()), 3);

    ToolRun first = cache({path("docs")});
    EXPECT_EQ(first.status, 1) << first.err;
    EXPECT_EQ(counts(first), "1 written, 0 up to date, 2 failed, 0 not ours");
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
    EXPECT_EQ(counts(again), "0 written, 1 up to date, 2 failed, 0 not ours");
    EXPECT_NE(again.err.find("--force"), std::string::npos) << again.err;

    // Mended later: the thumbnail is made, and the failure no longer stands.
    writeDocument(half, jpeg);
    fs::last_write_time(half, fs::last_write_time(half) + std::chrono::seconds(3));
    ToolRun mended = cache({path("docs")});
    EXPECT_EQ(counts(mended), "1 written, 1 up to date, 1 failed, 0 not ours") << mended.err;
    EXPECT_EQ(namesIn(ourFailures()), std::set<std::string>{entryFor(words)});

    // A cache that cannot be made is an I/O error.
    ::setenv("XDG_CACHE_HOME", path("docs/good.etd/cache").c_str(), 1);
    ToolRun blocked = runTool({"cache", path("docs")});
    EXPECT_EQ(blocked.status, 2) << "the cache cannot be made under a file";
    EXPECT_NE(blocked.err.find("cannot make"), std::string::npos) << blocked.err;
}

TEST_F(CacheCommand, UnreadableFilesAndFoldersAreReportedAndNotRecorded) {
    writeDocument(path("tree/ok.etd"), jpeg);
    writeDocument(path("tree/locked.etd"), jpeg);
    writeDocument(path("tree/closed/inside.etd"), jpeg);
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
    ToolRun run =
        finishProcess(startProcess(command, path("out"), path("err")), path("out"), path("err"));
    ::chmod(path("tree/closed").c_str(), 0755);

    EXPECT_EQ(run.status, 1) << run.err;
    EXPECT_EQ(counts(run), "1 written, 0 up to date, 2 failed, 0 not ours") << run.err;
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
    auto document = [&](int i) { return path("many/" + std::to_string(i) + ".etd"); };
    std::vector<Bytes> pictures;
    for (int i = 0; i < kShapes; ++i)
        pictures.push_back(
            samples::encodeJPEG(samples::drawLandscape(900 + 150 * i, 700 - 40 * i, false), 90));
    for (int i = 0; i < kDocuments; ++i)
        writeDocument(document(i), pictures[i % kShapes], 2, 900 + 150 * (i % kShapes),
                      700 - 40 * (i % kShapes));

    pid_t pid =
        startProcess({ET_TOOL_PATH, "cache", "--size", "xx-large", "--jobs", "2", path("many")},
                     path("out"), path("err"));
    ASSERT_GT(pid, 0);
    const std::string xx = path("cache/thumbnails/xx-large");
    auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(60);
    while (namesIn(xx).size() < 3 && std::chrono::steady_clock::now() < deadline)
        std::this_thread::sleep_for(std::chrono::milliseconds(2));
    ::kill(pid, SIGINT);
    ToolRun stopped = finishProcess(pid, path("out"), path("err"));
    EXPECT_EQ(stopped.signal, SIGINT) << "it should die of the signal";
    EXPECT_NE(stopped.err.find("stopped after"), std::string::npos)
        << "killed outright instead of stopping its workers";

    std::set<std::string> left = namesIn(xx);
    EXPECT_GT(left.size(), 0u);
    EXPECT_LT(left.size(), static_cast<size_t>(kDocuments))
        << "finished before the signal: nothing was tested";
    for (const std::string& name : left) {
        ASSERT_TRUE(std::regex_match(name, std::regex("[0-9a-f]{32}\\.png")))
            << "left behind: " << name;
        GSPNGText keys;
        EXPECT_TRUE(GSReadPNGTextKeys(xx + "/" + name, &keys)) << name << " is not a whole PNG";
    }

    // The rest is made on four workers; every thumbnail equals the one-process thumbnailer's.
    ToolRun rest = cache({"--size", "xx-large", "--jobs", "4", path("many")});
    EXPECT_EQ(counts(rest), std::to_string(kDocuments - left.size()) + " written, " +
                                std::to_string(left.size()) + " up to date, 0 failed, 0 not ours");
    std::vector<samples::Picture> expected;
    for (int i = 0; i < kShapes; ++i) {
        ASSERT_EQ(runTool({"thumbnail", "-s", "1024", document(i), path("ref.png")}).status, 0);
        expected.push_back(samples::decodePNG(readFile(path("ref.png"))));
    }
    for (int i = 0; i < kDocuments; ++i) {
        samples::Picture got = samples::decodePNG(readFile(xx + "/" + entryFor(document(i))));
        EXPECT_TRUE(got.width == expected[i % kShapes].width &&
                    got.pixels == expected[i % kShapes].pixels)
            << "document " << i << " differs from its single-threaded thumbnail";
    }
}

// Each file has a budget of processor time (0.2 s here, through the test hooks). Work that
// outlasts it fails alone and the run goes on; work that checks no deadline is given up at twice
// the budget and ends the run. Either way the file is recorded as failed and the summary printed.
TEST_F(CacheCommand, AFileThatTakesTooLongIsRecordedAsFailed) {
#if !defined(ET_TEST_HOOKS)
    GTEST_SKIP() << "ember-tide was built without test hooks (a release build)";
#endif
    for (const char* name : {"a.etd", "slow.etd", "z.etd"})
        writeDocument(path(std::string("tree/") + name), jpeg);
    ::setenv("EMBER_TIDE_TEST_CPU_SECONDS", "0.2", 1);
    for (auto [hook, says, summary] :
         {std::tuple{"EMBER_TIDE_TEST_SLOW_ON", "given up\n", "2 written, 0 up to date, 1 failed"},
          std::tuple{"EMBER_TIDE_TEST_SPIN_ON", "given up, and the run stops here\n",
                     " 1 failed"}}) {
        fs::remove_all(path("cache"));
        ::setenv(hook, "slow.etd", 1);
        // Should the backstop fail, a process-wide limit ends the run instead of the test.
        ToolRun r = runToolAfter("ulimit -t 60", {"cache", "--json", "--jobs", "1", path("tree")});
        ::unsetenv(hook);
        EXPECT_EQ(r.status, 1) << hook << ": signal " << r.signal << ": " << r.err;
        const std::string slow = path("tree/slow.etd");
        EXPECT_NE(r.err.find(slow + ": more than 0.2 s of processor time; " + says),
                  std::string::npos)
            << hook << ": " << r.err;
        EXPECT_NE(counts(r).find(summary), std::string::npos) << hook << ": " << r.out;
        EXPECT_EQ(namesIn(ourFailures()), std::set<std::string>{entryFor(slow)});
    }
    ::unsetenv("EMBER_TIDE_TEST_CPU_SECONDS");
}
