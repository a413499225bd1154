// ConfinementTest.cpp - `thumbnail` and `cache` confine themselves, and a thumbnail that spins is
// given up, seen from outside by running the built tool (the cache's own time budget is tested
// in CacheCommandTest).
//
// The tool's test hooks (compiled into debug builds only) do the looking: with
// EMBER_TIDE_TEST_PROBE=FILE the confined process tries to read FILE, to write it, to create a
// file beside it and each call that it must not make, and prints how each ended; with
// EMBER_TIDE_TEST_SPIN_ON=NAME it spins on the file NAME.
// Where the kernel has no Landlock or seccomp, the tests that need them are skipped, not passed.
#include "GSThumbnailCache.h"
#include "RunTool.h"
#include "SampleImages.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <chrono>
#include <cstdlib>
#include <fcntl.h>
#include <filesystem>
#include <map>
#include <sstream>
#include <sys/prctl.h>
#include <sys/syscall.h>
#include <unistd.h>

using namespace testing_support;
namespace fs = std::filesystem;

namespace {

#if defined(__SANITIZE_ADDRESS__)
constexpr bool kSanitizerBuild = true;
#else
constexpr bool kSanitizerBuild = false;
#endif

int landlockABI() {
#if defined(SYS_landlock_create_ruleset)
    long abi = ::syscall(SYS_landlock_create_ruleset, nullptr, 0, 1u);
#else
    long abi = ::syscall(444, nullptr, 0, 1u);
#endif
    return abi > 0 ? static_cast<int>(abi) : 0;
}

bool seccompFilters() {
    // Without seccomp in the kernel, asking for the mode fails with EINVAL.
    return ::prctl(PR_GET_SECCOMP, 0, 0, 0, 0) >= 0 || errno != EINVAL;
}

// Sets an environment variable for the tools started while it lives.
class ScopedVariable {
public:
    ScopedVariable(const char* name, const std::string& value) : name(name) {
        ::setenv(name, value.c_str(), 1);
    }
    ~ScopedVariable() { ::unsetenv(name); }

private:
    const char* name;
};

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

class Confinement : public testing::Test {
protected:
    void SetUp() override {
#if !defined(ET_TEST_HOOKS)
        GTEST_SKIP() << "ember-tide was built without test hooks (a release build)";
#endif
        jpeg = samples::encodeJPEG(samples::drawLandscape(64, 48, false), 85);
        writeDocument(path("in/doc.etd"), jpeg);
        for (const char* name : {"elsewhere", "out"})
            fs::create_directories(path(name));
        for (const char* name : {"in/sibling.txt", "elsewhere/secret.txt", "out/placed.txt"})
            writeFile(path(name), {'s'});
    }

    // The confinement tests need both mechanisms in the kernel.
    static bool kernelConfines() {
        return landlockABI() > 0 && seccompFilters();
    }

    std::string path(const std::string& name) const {
        return folder.path(name);
    }

    static void expectPNG(const std::string& file, int width, int height) {
        samples::Picture picture = samples::decodePNG(readFile(file));
        EXPECT_EQ(picture.width, width) << file << " (0: no whole PNG)";
        EXPECT_EQ(picture.height, height) << file;
    }

    TempFolder folder;
    Bytes jpeg;
};

} // namespace

TEST_F(Confinement, ThumbnailReadsItsFileOnlyAndWritesNowhere) {
    if (!kernelConfines()) GTEST_SKIP() << "no Landlock or no seccomp in this kernel";
    // What the confined process tries to read, and how that ends; writing it or beside it fails.
    for (const auto& [probed, expected] : {std::pair{"elsewhere/secret.txt", "EACCES"},
                                           {"in/sibling.txt", "EACCES"}, // FILE's rule: FILE only
                                           {"out/placed.txt", "EACCES"}, // OUT: its descriptor
                                           {"in/doc.etd", "ok"}}) {      // what it may do, it can
        SCOPED_TRACE(probed);
        ScopedVariable hook("EMBER_TIDE_TEST_PROBE", path(probed));
        ToolRun r = runTool({"thumbnail", "-s", "32", path("in/doc.etd"), path("out/t.png")});
        ASSERT_EQ(r.status, 0) << r.err;
        auto seen = probe(r);
        EXPECT_EQ(seen["open"], expected) << r.err;
        EXPECT_EQ(seen["write"] + seen["create"], "EACCESEACCES") << r.err;
        expectPNG(path("out/t.png"), 32, 24);
    }
}

// Each thing that the confined thumbnailer must not do, tried from inside it with a terminal as
// standard input and OUT's folder beside it.
TEST_F(Confinement, ThumbnailIsDeniedEachEscape) {
    if (!kernelConfines()) GTEST_SKIP() << "no Landlock or no seccomp in this kernel";
    const int terminal = ::posix_openpt(O_RDWR | O_NOCTTY);
    ASSERT_GE(terminal, 0);
    ASSERT_EQ(::unlockpt(terminal), 0);
    ScopedVariable hook("EMBER_TIDE_TEST_PROBE", path("out/placed.txt"));
    ToolRun r = runToolAfter(std::string("exec <") + ::ptsname(terminal),
                             {"thumbnail", path("in/doc.etd"), path("out/t.png")});
    ::close(terminal);
    ASSERT_EQ(r.status, 0) << r.err;
    auto seen = probe(r);
    const std::pair<const char*, const char*> cases[] = {
        {"write", "EACCES"},    {"create", "EACCES"}, // rewrite or make a file beside OUT
        {"socket", "EPERM"},    {"fork", "EPERM"},
        {"io_uring", "EPERM"},  // a ring's socket and connect operations pass no filter
        {"tiocsti", "EPERM"},   // type into the terminal
        {"tioclinux", "EPERM"}, // paste a console's selection
        {"unshare", "EPERM"},   {"clone", "EPERM"}, // a user namespace, all-powerful inside
    };
    for (const auto& [call, expected] : cases)
        EXPECT_EQ(seen[call], expected) << call << ": " << r.err;
}

// Relative paths: FILE's rule is made from the path as given.
TEST_F(Confinement, ThumbnailWithRelativePaths) {
    if (!kernelConfines()) GTEST_SKIP() << "no Landlock or no seccomp in this kernel";
    ScopedVariable hook("EMBER_TIDE_TEST_PROBE", path("elsewhere/secret.txt"));
    ToolRun r = runToolAfter("cd " + path("in"), {"thumbnail", "doc.etd", "r.png"});
    ASSERT_EQ(r.status, 0) << r.err;
    EXPECT_EQ(probe(r)["open"], "EACCES") << r.err;
    expectPNG(path("in/r.png"), 256, 192);
}

TEST_F(Confinement, CacheReadsItsTreesAndWritesTheCacheOnly) {
    if (!kernelConfines()) GTEST_SKIP() << "no Landlock or no seccomp in this kernel";
    writeDocument(path("a/one.etd"), jpeg);
    writeDocument(path("a/deep/two.etd"), jpeg);
    writeDocument(path("b/three.etd"), jpeg);
    ScopedVariable cacheHome("XDG_CACHE_HOME", path("cache"));
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
        ToolRun r = runTool({"cache", "--json", "--force", "--jobs", "2", path("a"), path("b")});
        ASSERT_EQ(r.status, 0) << r.err;
        EXPECT_EQ(r.out.rfind("{\"written\": 3,", 0), 0u) << r.out;
        auto seen = probe(r);
        EXPECT_EQ(seen["open"], open) << r.err;
        EXPECT_EQ(seen["write"] + seen["create"], std::string(write) + write) << r.err;
        EXPECT_EQ(seen["socket"] + seen["fork"] + seen["io_uring"], "EPERMEPERMEPERM") << r.err;
    }
    for (const char* file : {"a/one.etd", "a/deep/two.etd", "b/three.etd"})
        expectPNG(path("cache/thumbnails/large/") + GSCacheEntryName(GSFileURI(path(file))), 256,
                  192);
}

// The limits hold with or without Landlock; the ones a caller set lower are kept.
TEST_F(Confinement, ThumbnailLimits) {
    ScopedVariable hook("EMBER_TIDE_TEST_PROBE", path("elsewhere/secret.txt"));
    const std::vector<std::string> args = {"thumbnail", path("in/doc.etd"), path("out/l.png")};
    ToolRun own = runTool(args);
    ASSERT_EQ(own.status, 0) << own.err;
    auto limits = probe(own);
    EXPECT_EQ(limits["cpu"], "15") << own.err;
    EXPECT_EQ(limits["as"], kSanitizerBuild ? "none" : "1073741824") << own.err;

    // (The sanitizers' shadow memory needs more address space than any limit would leave.)
    ToolRun lower = runToolAfter(
        kSanitizerBuild ? "ulimit -S -t 5" : "ulimit -S -t 5 && ulimit -S -v 524288", args);
    ASSERT_EQ(lower.status, 0) << lower.err;
    limits = probe(lower);
    EXPECT_EQ(limits["cpu"], "5") << lower.err;
    EXPECT_EQ(limits["as"], kSanitizerBuild ? "none" : "536870912") << lower.err;
}

TEST_F(Confinement, AThumbnailThatSpinsIsGivenUp) {
    ScopedVariable seconds("EMBER_TIDE_TEST_CPU_SECONDS", "1");
    ScopedVariable spin("EMBER_TIDE_TEST_SPIN_ON", "doc.etd");
    writeFile(path("out/s.png"), {1, 2, 3});
    const auto start = std::chrono::steady_clock::now();
    ToolRun r = runTool({"thumbnail", path("in/doc.etd"), path("out/s.png")});
    const double elapsed =
        std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    EXPECT_EQ(r.status, 1) << "signal " << r.signal << ": " << r.err;
    EXPECT_EQ(r.err, "ember-tide: " + path("in/doc.etd") +
                         ": more than 1 s of processor time; given up\n");
    EXPECT_EQ(readFile(path("out/s.png")), Bytes{}) << "emptied before FILE was read";
    EXPECT_LT(elapsed, 30) << "given up on processor time, not on the wall clock";
}
