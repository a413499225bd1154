// CacheCommandTest.cpp - `ember-tide cache`: walking trees, keeping the desktop's cache current,
// failures, unreadable files, and stopping half-way, by running the built tool. Its usage errors
// are in CommandLineTest.
#include "FileTestSupport.h"
#include "RunTool.h"
#include "SampleImages.h"
#include "desktop/GSThumbnailCache.h"

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

class CacheCommand : public ToolTest {
protected:
    std::string large() const { return path("cache/thumbnails/large"); }
    std::string ourFailures() const { return path("cache/thumbnails/fail/ember-tide-" ET_VERSION); }

    static std::string entryFor(const std::string& file) {
        return GSCacheEntryName(GSFileURI(file));
    }
};

} // namespace

// The thumbnails' keys, sizes and staleness are what GNOME's own factory checks
// (desktop/gnome_cache_test.py); here, which files of a tree are taken, and each only once.
TEST_F(CacheCommand, WalksTreesRecognisingDocumentsByContent) {
    const std::vector<std::string> documents = {
        "tree/plain.etd", "tree/a b/\xC3\xA9t\xC3\xA9 \xE5\x86\x99\xE7\x9C\x9F.etd",
        "tree/deep/er/x.etd", "tree/disguised.jpg", "tree/link.etd"};
    for (int i = 0; i < 4; ++i) // the last is a link; disguised.jpg is a document all the same
        writeDocument(path(documents[i]), jpeg);
    writeDocument(path("outside.etd"), jpeg);
    writeFile(path("tree/looks.etd"), jpeg); // a picture named like a document
    writeFile(path("tree/short"), {'E', 'm', 'b', 'e', 'r'});
    expectRun("create --selection @tree/looks.etd @tree/sel.etd", 0);
    fs::create_directory_symlink("../..", path("tree/deep/er/loop")); // a loop back to tree/
    fs::create_directory_symlink(path(""), path("tree/deep/up"));     // out of the tree
    fs::create_symlink("plain.etd", path("tree/link.etd"));           // a file inside: followed
    fs::create_symlink(path("outside.etd"), path("tree/out.etd"));    // a file outside: not
    fs::create_symlink("missing.etd", path("tree/dangling.etd"));
    std::set<std::string> expected;
    for (const auto& d : documents)
        expected.insert(entryFor(path(d)));

    EXPECT_EQ(counts(expectRun("cache --json --jobs 3 @tree", 0)),
              "5 written, 0 up to date, 0 failed, 3 not ours");
    EXPECT_EQ(file_test::listing(large()), expected);
    samples::Picture fitted = samples::decodePNG(readFile(large() + "/" + *expected.begin()));
    EXPECT_TRUE(fitted.width == 256 && fitted.height == 192) << "not fitted into 256 x 256";

    // A changed file, and the same folders named twice over (relative too): nothing is done twice.
    const std::string changed = path("tree/deep/er/x.etd");
    fs::last_write_time(changed, fs::last_write_time(changed) + std::chrono::seconds(7));
    EXPECT_EQ(counts(expectRun("cache --json @tree deep/../deep ./plain.etd", 0, "",
                               "cd " + path("tree"))),
              "1 written, 4 up to date, 0 failed, 3 not ours");
    EXPECT_EQ(counts(expectRun("cache --json --force @tree", 0)),
              "5 written, 0 up to date, 0 failed, 3 not ours");
}

// Documents without a picture are recorded as failures (which GNOME's factory then sees);
// files and folders that cannot be read are reported, and nothing is kept for them.
TEST_F(CacheCommand, FailuresAreRecordedAndUnreadableFilesReported) {
    const std::string noise = "no picture in here at all";
    const std::string half = path("docs/half.etd"), words = path("docs/words.etd");
    writeDocument(path("docs/good.etd"), jpeg);
    writeDocument(half, Bytes(jpeg.begin(), jpeg.begin() + static_cast<long>(jpeg.size() / 2)));
    writeDocument(words, Bytes(noise.begin(), noise.end()), 3);
    writeDocument(path("docs/locked.etd"), jpeg);
    writeDocument(path("docs/closed/inside.etd"), jpeg);
    ::chmod(path("docs/locked.etd").c_str(), 0);
    ::chmod(path("docs/closed").c_str(), 0);
    std::vector<std::string> command = {ET_TOOL_PATH, "cache", "--json", path("docs")};
    if (::geteuid() == 0) {
        // Root reads everything: run the tool as nobody, over a tree and cache nobody can reach.
        if (std::system("setpriv --reuid=65534 --regid=65534 --clear-groups true") != 0)
            GTEST_SKIP() << "running as root without setpriv: no file is unreadable to root";
        for (const std::string& open : {folder.root(), path("docs"), path("cache")}) {
            fs::create_directories(open);
            ::chmod(open.c_str(), open == path("cache") ? 0777 : 0755);
        }
        command.insert(command.begin(),
                       {"setpriv", "--reuid=65534", "--regid=65534", "--clear-groups"});
    }
    auto run = [&] {
        return finishProcess(startProcess(command, path("out"), path("err")), path("out"),
                             path("err"));
    };

    ToolRun first = run();
    EXPECT_EQ(first.status, 1) << first.err;
    EXPECT_EQ(counts(first), "1 written, 0 up to date, 4 failed, 0 not ours") << first.err;
    for (const std::string& said : {half + ": ", words + ": ", path("docs/locked.etd: cannot read"),
                                    path("docs/closed: cannot read")})
        EXPECT_NE(first.err.find("ember-tide: " + said), std::string::npos) << first.err;
    for (const std::string& doc : {half, words}) {
        struct stat st;
        ::stat(doc.c_str(), &st);
        EXPECT_TRUE(
            GSCacheEntryIsCurrent(ourFailures() + "/" + entryFor(doc), GSFileURI(doc), st.st_mtime))
            << doc;
    }
    EXPECT_EQ(file_test::listing(large()), std::set<std::string>{entryFor(path("docs/good.etd"))});
    EXPECT_EQ(file_test::listing(ourFailures()),
              (std::set<std::string>{entryFor(half), entryFor(words)}));

    ToolRun again = run();
    EXPECT_EQ(again.status, 1);
    EXPECT_EQ(counts(again), "0 written, 1 up to date, 4 failed, 0 not ours");
    EXPECT_NE(again.err.find("--force"), std::string::npos) << again.err;

    // Mended later: the thumbnail is made, and the failure no longer stands.
    writeDocument(half, jpeg);
    fs::last_write_time(half, fs::last_write_time(half) + std::chrono::seconds(3));
    ToolRun mended = run();
    EXPECT_EQ(counts(mended), "1 written, 1 up to date, 3 failed, 0 not ours") << mended.err;
    EXPECT_EQ(file_test::listing(ourFailures()), std::set<std::string>{entryFor(words)});
    ::chmod(path("docs/closed").c_str(), 0755);

    // A cache that cannot be made is an I/O error.
    ScopedVariable blockedHome("XDG_CACHE_HOME", path("docs/good.etd/cache"));
    expectRun("cache @docs", 2, "cannot make");
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
    while (file_test::listing(xx).size() < 3 && std::chrono::steady_clock::now() < deadline)
        std::this_thread::sleep_for(std::chrono::milliseconds(2));
    ::kill(pid, SIGINT);
    ToolRun stopped = finishProcess(pid, path("out"), path("err"));
    EXPECT_EQ(stopped.signal, SIGINT) << "it should die of the signal";
    EXPECT_NE(stopped.err.find("stopped after"), std::string::npos)
        << "killed outright instead of stopping its workers";

    std::set<std::string> left = file_test::listing(xx);
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
    EXPECT_EQ(counts(expectRun("cache --json --size xx-large --jobs 4 @many", 0)),
              std::to_string(kDocuments - left.size()) + " written, " +
                  std::to_string(left.size()) + " up to date, 0 failed, 0 not ours");
    std::vector<samples::Picture> expected;
    for (int i = 0; i < kShapes; ++i)
        expected.push_back(samples::decodePNG(
            expectRun({"thumbnail", "-s", "1024", document(i), "-"}, 0).outBytes()));
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
    ScopedVariable budget("EMBER_TIDE_TEST_CPU_SECONDS", "0.2");
    for (auto [hook, says, summary] :
         {std::tuple{"EMBER_TIDE_TEST_SLOW_ON", "given up\n", "2 written, 0 up to date, 1 failed"},
          std::tuple{"EMBER_TIDE_TEST_SPIN_ON", "given up, and the run stops here\n",
                     " 1 failed"}}) {
        fs::remove_all(path("cache"));
        ScopedVariable slowOn(hook, "slow.etd");
        const std::string slow = path("tree/slow.etd");
        // Should the backstop fail, a process-wide limit ends the run instead of the test.
        ToolRun r =
            expectRun("cache --json --jobs 1 @tree", 1,
                      slow + ": more than 0.2 s of processor time; " + says, "ulimit -t 60");
        EXPECT_NE(counts(r).find(summary), std::string::npos) << hook << ": " << r.out;
        EXPECT_EQ(file_test::listing(ourFailures()), std::set<std::string>{entryFor(slow)});
    }
}
