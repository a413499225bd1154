// ConfinementTest.cpp - `thumbnail` and `cache` confine themselves, and a thumbnail that spins is
// given up, seen from outside by running the built tool (the cache's own time budget is tested
// in CacheCommandTest).
//
// The tool's test hooks (compiled into debug builds only) do the looking: with
// EMBER_TIDE_TEST_PROBE=FILE the confined process tries to read FILE, to write it, to create a
// file beside it and each call that it must not make, and prints how each ended; with
// EMBER_TIDE_TEST_SPIN_ON=NAME it spins on the file NAME, with EMBER_TIDE_TEST_CRASH_ON=NAME it
// crashes there.
// Where the kernel has no Landlock or seccomp, the tests that need them are skipped, not passed.
#include "RunTool.h"
#include "SampleImages.h"
#include "desktop/GSThumbnailCache.h"

#include <cerrno>
#include <chrono>
#include <fcntl.h>
#include <filesystem>
#include <map>
#include <sstream>
#include <sys/prctl.h>
#include <sys/syscall.h>
#include <tuple>
#include <unistd.h>

using namespace testing_support;
namespace fs = std::filesystem;

namespace {

#if defined(__SANITIZE_ADDRESS__)
constexpr bool kSanitizerBuild = true;
#else
constexpr bool kSanitizerBuild = false;
#endif

// Both mechanisms in the kernel: Landlock (its ABI version asked for) and seccomp (without it,
// asking for the mode fails with EINVAL).
bool kernelConfines() {
#if !defined(SYS_landlock_create_ruleset)
#define SYS_landlock_create_ruleset 444
#endif
    return ::syscall(SYS_landlock_create_ruleset, nullptr, 0, 1u) > 0 &&
           (::prctl(PR_GET_SECCOMP, 0, 0, 0, 0) >= 0 || errno != EINVAL);
}

// The tool's probe line as key=value pairs (empty when it printed none).
std::map<std::string, std::string> probe(const ToolRun& run) {
    std::map<std::string, std::string> values;
    const std::string marker = "ember-tide: probe: ";
    size_t at = run.err.find(marker);
    if (at == std::string::npos) return values;
    std::istringstream line(run.err.substr(at + marker.size(), run.err.find('\n', at) - at));
    for (std::string pair; line >> pair;)
        if (size_t eq = pair.find('='); eq != std::string::npos)
            values[pair.substr(0, eq)] = pair.substr(eq + 1);
    return values;
}

class Confinement : public ToolTest {
protected:
    void SetUp() override {
#if !defined(ET_TEST_HOOKS)
        GTEST_SKIP() << "ember-tide was built without test hooks (a release build)";
#endif
        writeDocument(path("in/doc.etd"), jpeg);
        for (const char* name : {"elsewhere", "out"})
            fs::create_directories(path(name));
        for (const char* name : {"in/sibling.txt", "elsewhere/secret.txt", "out/placed.txt"})
            writeFile(path(name), {'s'});
    }
    static void expectPNG(const std::string& file, int width, int height) {
        samples::Picture picture = samples::decodePNG(readFile(file));
        EXPECT_EQ(picture.width, width) << file << " (0: no whole PNG)";
        EXPECT_EQ(picture.height, height) << file;
    }
};

} // namespace

// What the confined thumbnailer tries to read, and how that ends; writing it or making a file
// beside it fails, and so does each call it must not make, with a terminal as standard input.
TEST_F(Confinement, ThumbnailReadsItsFileOnlyAndIsDeniedEachEscape) {
    if (!kernelConfines()) GTEST_SKIP() << "no Landlock or no seccomp in this kernel";
    const int terminal = ::posix_openpt(O_RDWR | O_NOCTTY);
    ASSERT_GE(terminal, 0);
    ASSERT_EQ(::unlockpt(terminal), 0);
    const std::string fromTerminal = std::string("exec <") + ::ptsname(terminal);
    const std::vector<std::string> absolute = {"thumbnail", "-s", "32", path("in/doc.etd"),
                                               path("out/t.png")};
    const std::vector<std::string> relative = {"thumbnail", "-s", "32", "doc.etd", "t.png"};
    // FILE's rule is made from the path as given: relative paths too.
    for (const auto& [probed, expected, args] :
         {std::tuple{"elsewhere/secret.txt", "EACCES", absolute},
          {"in/sibling.txt", "EACCES", absolute}, // FILE's rule: FILE only
          {"out/placed.txt", "EACCES", absolute}, // OUT: its descriptor only
          {"in/doc.etd", "ok", absolute},         // what it may do, it can
          {"elsewhere/secret.txt", "EACCES", relative}}) {
        SCOPED_TRACE(probed + std::string(args == relative ? ", relative" : ""));
        ScopedVariable hook("EMBER_TIDE_TEST_PROBE", path(probed));
        ToolRun r =
            expectRun(args, 0, "", fromTerminal + (args == relative ? " && cd " + path("in") : ""));
        auto seen = probe(r);
        EXPECT_EQ(seen["open"] + " " + seen["write"] + " " + seen["create"],
                  expected + std::string(" EACCES EACCES"))
            << r.err;
        for (const char* call :
             {"socket", "fork",
              "io_uring",          // a ring's socket and connect operations pass no filter
              "tiocsti",           // type into the terminal
              "tioclinux",         // paste a console's selection
              "unshare", "clone"}) // a user namespace, all-powerful inside
            EXPECT_EQ(seen[call], "EPERM") << call << ": " << r.err;
        expectPNG(args == relative ? path("in/t.png") : path("out/t.png"), 32, 24);
    }
    ::close(terminal);
}

TEST_F(Confinement, CacheReadsItsTreesAndWritesTheCacheOnly) {
    if (!kernelConfines()) GTEST_SKIP() << "no Landlock or no seccomp in this kernel";
    writeDocument(path("a/one.etd"), jpeg);
    writeDocument(path("a/deep/two.etd"), jpeg);
    writeDocument(path("b/three.etd"), jpeg);
    fs::create_directories(path("cache/thumbnails"));
    writeFile(path("cache/thumbnails/placed.txt"), {'s'});
    // What the confined process tries to read, how that ends, and how writing it or beside it does.
    for (const auto& [probed, open, write] :
         {std::tuple{"elsewhere/secret.txt", "EACCES", "EACCES"},
          {"in/doc.etd", "EACCES", "EACCES"},
          {"a/deep/two.etd", "ok", "EACCES"},
          {"b/three.etd", "ok", "EACCES"},
          {"cache/thumbnails/placed.txt", "ok", "ok"}}) {
        SCOPED_TRACE(probed);
        ScopedVariable hook("EMBER_TIDE_TEST_PROBE", path(probed));
        // Two workers: threads must still be possible in the confined process.
        ToolRun r = expectRun("cache --json --force --jobs 2 @a @b", 0);
        EXPECT_EQ(r.out.rfind("{\"written\": 3,", 0), 0u) << r.out;
        auto seen = probe(r);
        EXPECT_EQ(seen["open"] + " " + seen["write"] + " " + seen["create"] + " " + seen["socket"] +
                      seen["fork"] + seen["io_uring"],
                  open + std::string(" ") + write + " " + write + " EPERMEPERMEPERM")
            << r.err;
    }
    for (const char* file : {"a/one.etd", "a/deep/two.etd", "b/three.etd"})
        expectPNG(path("cache/thumbnails/large/") + GSCacheEntryName(GSFileURI(path(file))), 256,
                  192);
}

// The limits hold with or without Landlock; the ones a caller set lower are kept.
TEST_F(Confinement, ThumbnailLimits) {
    ScopedVariable hook("EMBER_TIDE_TEST_PROBE", path("elsewhere/secret.txt"));
    // (The sanitizers' shadow memory needs more address space than any limit would leave.)
    for (const auto& [setup, limits] :
         {std::pair{std::string(), kSanitizerBuild ? "15 none" : "15 1073741824"},
          {kSanitizerBuild ? "ulimit -S -t 5" : "ulimit -S -t 5 && ulimit -S -v 524288",
           kSanitizerBuild ? "5 none" : "5 536870912"}}) {
        auto seen = probe(expectRun("thumbnail @in/doc.etd @out/l.png", 0, "", setup));
        EXPECT_EQ(seen["cpu"] + " " + seen["as"], limits) << setup;
    }
}

// Given up on processor time, not on the wall clock, or at once on a crash; an existing OUT is
// emptied before FILE is read and a missing one is never made, whichever process made the picture.
TEST_F(Confinement, AThumbnailThatSpinsOrCrashesIsGivenUp) {
    ScopedVariable seconds("EMBER_TIDE_TEST_CPU_SECONDS", "1");
    for (const auto& [hook, why] :
         {std::pair{"EMBER_TIDE_TEST_SPIN_ON", "more than 1 s of processor time; given up"},
          {"EMBER_TIDE_TEST_CRASH_ON", "given up (the decoder was stopped by signal 11)"}}) {
        // (The sanitizers report a crash themselves, in their own way.)
        if (kSanitizerBuild && std::string(hook).find("CRASH") != std::string::npos) continue;
        ScopedVariable misbehave(hook, "doc.etd");
        for (bool existing : {true, false}) {
            SCOPED_TRACE(hook + std::string(existing ? ", existing OUT" : ", new OUT"));
            if (existing) writeFile(path("out/s.png"), {1, 2, 3});
            const auto start = std::chrono::steady_clock::now();
            ToolRun r = expectRun("thumbnail @in/doc.etd @out/s.png", 1);
            EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(30));
            EXPECT_EQ(r.err, "ember-tide: " + path("in/doc.etd") + ": " + why + "\n");
            EXPECT_EQ(fs::exists(path("out/s.png")), existing) << "a missing OUT is never made";
            EXPECT_EQ(readFile(path("out/s.png")), Bytes{}) << "emptied before FILE was read";
            fs::remove(path("out/s.png"));
        }
    }
}
