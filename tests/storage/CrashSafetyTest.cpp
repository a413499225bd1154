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
#include <cstdio>
#include <random>
#include <sys/wait.h>
#include <time.h>
#include <unistd.h>
#include <vector>

using namespace testing_support;
using namespace save_test;

namespace {

using Clock = std::chrono::steady_clock;

// Starts a child that saves `doc` over `path` and exits with 0 when the save succeeded.
pid_t startSave(const std::string& path, int mode, const Bytes& doc) {
    pid_t child = ::fork();
    if (child == 0) ::_exit(saveDocument(path, mode, doc, 64) == 0 ? 0 : 1);
    return child;
}

void sleepFor(std::chrono::nanoseconds delay) {
    struct timespec ts;
    ts.tv_sec = static_cast<time_t>(delay.count() / 1000000000);
    ts.tv_nsec = static_cast<long>(delay.count() % 1000000000);
    while (::nanosleep(&ts, &ts) != 0) {
    }
}

} // namespace

TEST(CrashSafety, AKilledSaveLeavesTheOldOrTheNewDocument) {
    TempFolder tmp;
    const std::string target = tmp.path("doc.etd");
    const Bytes oldDoc = makeDocument(11, 300000), newDoc = makeDocument(12, 310000);

    // The length of one complete save, child process included: the median of five.
    std::vector<Clock::duration> times;
    spill(target, newDoc);
    for (int i = 0; i < 5; ++i) {
        const Bytes& doc = i % 2 ? newDoc : oldDoc;
        Clock::time_point start = Clock::now();
        pid_t child = startSave(target, 1, doc);
        ASSERT_GT(child, 0);
        int status = 0;
        ASSERT_EQ(::waitpid(child, &status, 0), child);
        times.push_back(Clock::now() - start);
        ASSERT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << "a save that runs through";
        ASSERT_TRUE(slurp(target) == doc);
    }
    std::sort(times.begin(), times.end());
    const auto saveTime = std::chrono::duration_cast<std::chrono::nanoseconds>(times[2]);

    // Each save puts the other document over the one in place, so the target never needs
    // rewriting between runs (which would double the disk's work).
    std::mt19937 random(20240611);
    std::uniform_real_distribution<double> within(0.0, 1.0);
    const int kKills = 200, kSpread = 50;
    const Clock::time_point deadline = Clock::now() + std::chrono::seconds(45);
    int kills = 0, finished = 0, keptOld = 0, tookNew = 0, strays = 0;
    const Bytes* inPlace = slurp(target) == oldDoc ? &oldDoc : &newDoc;
    for (int i = 0; kills < kKills && Clock::now() < deadline; ++i) {
        int mode = i % 2 ? 3 : 1;
        const Bytes* saved = inPlace == &oldDoc ? &newDoc : &oldDoc;
        // Delays in kSpread slots from 0 to the save's length, each slot visited in turn.
        double fraction = ((i % kSpread) + within(random)) / kSpread;
        auto delay = std::chrono::nanoseconds(static_cast<long long>(saveTime.count() * fraction));
        pid_t child = startSave(target, mode, *saved);
        ASSERT_GT(child, 0);
        sleepFor(delay);
        ::kill(child, SIGKILL);
        int status = 0;
        ASSERT_EQ(::waitpid(child, &status, 0), child);
        if (WIFSIGNALED(status) && WTERMSIG(status) == SIGKILL)
            ++kills;
        else
            ++finished;

        std::string where = "run " + std::to_string(i) + ", mode " + std::to_string(mode) +
                            ", killed after " + std::to_string(delay.count() / 1000) + " us";
        Bytes now = slurp(target);
        ASSERT_FALSE(now.empty()) << where << ": the target must never be missing or empty";
        bool isOld = now == *inPlace, isNew = now == *saved;
        ASSERT_TRUE(isOld || isNew) << where << ": a torn target of " << now.size() << " bytes";
        keptOld += isOld;
        tookNew += isNew;
        for (const std::string& name : listing(tmp.root())) {
            if (name == "doc.etd") continue;
            if (mode == 3 && name == "doc~.etd") {
                EXPECT_TRUE(slurp(tmp.path(name)) == *inPlace) << where << ": a torn backup";
            } else {
                ASSERT_TRUE(isTemporaryName(name, ".etd")) << where << ": left behind: " << name;
                ++strays;
            }
            std::remove(tmp.path(name).c_str());
        }
        if (isNew) inPlace = saved;
    }
    std::printf("[ saves ] %d killed, %d finished first; %d left the document in place, %d the "
                "saved one; "
                "%d temporary files cleared; one save takes %.1f ms\n",
                kills, finished, keptOld, tookNew, strays, saveTime.count() / 1e6);
    EXPECT_GE(kills, kKills) << "not enough kills within the time bound";
    EXPECT_GT(keptOld, 0) << "no kill came before the exchange";
    EXPECT_GT(tookNew, 0) << "no kill came after the exchange";
}
