// CrashSafetyTest.cpp - a safe save killed at any moment leaves the old or the new document.
//
// A child process saves a document of a few hundred KB over an existing one (each run the other
// of two documents), in many small writes, and is killed with SIGKILL after a delay spread over the
// whole length of a save (0 to the measured time of a complete one). After every kill the target
// must be byte for byte the old or the new document, never missing, empty or torn; anything else in
// the folder must be a hidden temporary file (which the test clears away) or, with backups, a whole
// copy of the document saved over under "doc~.etd". The loop is bounded in time so that it fits a
// test run under ASan.
#include "SaveTestSupport.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <csignal>
#include <random>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

using namespace testing_support;
using namespace save_test;

namespace {

using Clock = std::chrono::steady_clock;

// Saves `doc` over `path` in a child and kills it after `delay` (never, when negative): the
// child's wait status.
int saveAndKill(const std::string& path, int mode, const Bytes& doc, Clock::duration delay) {
    pid_t child = ::fork();
    if (child == 0) ::_exit(saveDocument(path, mode, doc, 64) == 0 ? 0 : 1);
    if (delay >= Clock::duration::zero()) {
        std::this_thread::sleep_for(delay);
        ::kill(child, SIGKILL);
    }
    int status = -1;
    ::waitpid(child, &status, 0);
    return status;
}

} // namespace

TEST(CrashSafety, AKilledSaveLeavesTheOldOrTheNewDocument) {
    TempFolder tmp;
    const std::string target = tmp.path("doc.etd");
    const Bytes docs[2] = {makeDocument(11, 300000), makeDocument(12, 310000)};

    // The length of one complete save, child process included: the median of three.
    Clock::duration times[3];
    writeFile(target, docs[1]);
    for (int i = 0; i < 3; ++i) {
        Clock::time_point start = Clock::now();
        ASSERT_EQ(saveAndKill(target, 1, docs[i % 2], Clock::duration(-1)), 0);
        times[i] = Clock::now() - start;
        ASSERT_TRUE(readFile(target) == docs[i % 2]);
    }
    std::sort(times, times + 3);

    // Each save puts the other document over the one in place. Delays fall in kSpread slots from
    // 0 to the save's length, each slot visited in turn.
    std::mt19937 random(20240611);
    std::uniform_real_distribution<double> within(0.0, 1.0);
    const int kKills = 200, kSpread = 50;
    const Clock::time_point deadline = Clock::now() + std::chrono::seconds(45);
    int kills = 0, keptOld = 0, tookNew = 0, inPlace = 0;
    for (int i = 0; kills < kKills && Clock::now() < deadline; ++i) {
        const int mode = i % 2 ? 3 : 1, saved = 1 - inPlace;
        auto delay = std::chrono::duration_cast<Clock::duration>(
            times[1] * (((i % kSpread) + within(random)) / kSpread));
        int status = saveAndKill(target, mode, docs[saved], delay);
        kills += WIFSIGNALED(status) && WTERMSIG(status) == SIGKILL;
        std::string where = "run " + std::to_string(i) + ", mode " + std::to_string(mode);
        Bytes now = readFile(target);
        ASSERT_TRUE(now == docs[0] || now == docs[1]) << where << ": a missing or torn target";
        keptOld += now == docs[inPlace];
        tookNew += now == docs[saved];
        for (const std::string& name : listing(tmp.root())) {
            if (name == "doc.etd") continue;
            if (mode == 3 && name == "doc~.etd")
                EXPECT_TRUE(readFile(tmp.path(name)) == docs[inPlace]) << where << ": torn backup";
            else
                ASSERT_TRUE(isTemporaryName(name, ".etd")) << where << ": left behind: " << name;
            std::remove(tmp.path(name).c_str());
        }
        inPlace = now == docs[0] ? 0 : 1;
    }
    EXPECT_GE(kills, kKills) << "not enough kills within the time bound";
    EXPECT_TRUE(keptOld > 0 && tookNew > 0) << "kills came before and after the exchange";
}
