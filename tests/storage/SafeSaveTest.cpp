// SafeSaveTest.cpp - the stream worker's safe save: temporary files, discarding, backups, locked
// targets, and I/O failures injected at every step.
#include "SaveTestSupport.h"
#include "fileformat/GSFormatNumbers.h"
#include "storage/GSFileWorkerStreamIO.h"

#include <gtest/gtest.h>

using namespace testing_support;
using namespace save_test;

namespace {

// Opens, writes `text` and closes (discarding when asked): nonzero when any step failed.
short save(GSFileWorker* w, const std::string& text, short discard = 0) {
    if (w->open()) return 1;
    bool written = w->writeData(text.data(), long(text.size())) == long(text.size());
    return static_cast<short>(w->close(discard) || !written);
}

// Fails the n-th call of one kind of step (counting from 1) and lets every other call through
// to the real one. A failed write writes half of what it was given, as a full disk does; a
// failed close still closes the stream.
class FaultyIO : public GSFileWorkerStreamIO {
public:
    enum Step { kWrite, kFlush, kSync, kClose, kExchange, kRename, kSteps };
    FaultyIO(int step, int n) : failing(step), failAt(n) { setCurrent(this); }
    ~FaultyIO() override { setCurrent(nullptr); }
    bool fired = false;

    size_t write(const void* bytes, size_t count, std::FILE* stream) override {
        return GSFileWorkerStreamIO::write(bytes, fail(kWrite) ? count / 2 : count, stream);
    }
    int flush(std::FILE* stream) override {
        return fail(kFlush) ? EOF : GSFileWorkerStreamIO::flush(stream);
    }
    int sync(std::FILE* stream) override {
        return fail(kSync) ? -1 : GSFileWorkerStreamIO::sync(stream);
    }
    int close(std::FILE* stream) override {
        bool failed = fail(kClose);
        int status = GSFileWorkerStreamIO::close(stream);
        return failed ? EOF : status;
    }
    short exchange(GSFileSpec* working, const GSFileSpec& target, short removeOld,
                   GSString* detail) override {
        return fail(kExchange) ? 1
                               : GSFileWorkerStreamIO::exchange(working, target, removeOld, detail);
    }
    short rename(GSFileSpec* spec, const GSString& newName, GSString* detail) override {
        return fail(kRename) ? 1 : GSFileWorkerStreamIO::rename(spec, newName, detail);
    }

private:
    bool fail(int step) {
        if (step != failing || ++calls != failAt) return false;
        return fired = true;
    }
    int failing, failAt, calls = 0;
};

} // namespace

TEST(SafeSave, TemporaryFileExchangedOnCloseOrDiscarded) {
    TempFolder tmp;
    const std::string target = tmp.path("report.etd"), fresh = tmp.path("fresh.etd");
    // The spec's safety mode reaches the worker: none means a temporary file; a backup implies one.
    for (auto [given, expected] : {std::pair{-1, 1u}, {0, 0u}, {2, 3u}}) {
        GSFileSpec spec(bytes(target));
        if (given >= 0) putLong(&spec, GSFileSafetyModeKey, given);
        EXPECT_EQ(GSFile(spec, 0).getFileWorker()->getSafetyMode(), expected) << given;
    }
    writeText(target, "old content");

    // While the save runs, only a hidden temporary file beside the target changes.
    auto w = streamWorker(target, "wb", GSSafetyTemporaryFile);
    ASSERT_EQ(w->open(), 0);
    std::string working = text(w->getWorkingFileSpec()->getPathname(GSFullPath));
    EXPECT_TRUE(working.compare(0, tmp.root().size() + 1, tmp.root() + "/") == 0 &&
                isTemporaryName(working.substr(tmp.root().size() + 1), ".etd"))
        << working;
    ASSERT_EQ(w->close(GSCloseDiscard), 0);
    EXPECT_EQ(listing(tmp.root()), std::set<std::string>{"report.etd"}) << "nothing left over";
    ASSERT_EQ(save(w.get(), "discarded", 1), 0) << "a worker opens again after a close";
    EXPECT_EQ(readText(target), "old content") << "discarding throws away the temporary file";
    ASSERT_EQ(save(w.get(), "new content"), 0);
    EXPECT_EQ(readText(target), "new content");

    // Without a target there is nothing to protect: the file is written in place.
    auto first = streamWorker(fresh, "wb", GSSafetyTemporaryFile);
    ASSERT_EQ(first->open(), 0);
    EXPECT_EQ(text(first->getWorkingFileSpec()->getPathname(GSFullPath)), fresh);
    ASSERT_EQ(first->close(GSCloseKeep), 0);
    EXPECT_EQ(listing(tmp.root()), (std::set<std::string>{"report.etd", "fresh.etd"}));

    // Without safe mode a "w" open deletes the old file at once, and a discard deletes the
    // file being written. Reading never deletes, whatever close is asked.
    auto unsafe = streamWorker(target, "wb", 0);
    ASSERT_EQ(unsafe->open(), 0);
    EXPECT_EQ(readText(target), "");
    ASSERT_EQ(unsafe->close(GSCloseDiscard), 0);
    auto reader = streamWorker(fresh, "rb", GSSafetyTemporaryFile);
    ASSERT_FALSE(reader->open() || reader->close(GSCloseDiscard));
    EXPECT_EQ(listing(tmp.root()), std::set<std::string>{"fresh.etd"});
}

// Backups take the first "~" name that can be freed; a locked target is refused before anything
// is touched.
TEST(SafeSave, BackupsAndLockedFiles) {
    TempFolder tmp;
    const std::string target = tmp.path("photo.etd"), backup = tmp.path("photo~.etd");
    ASSERT_TRUE(
        makeItems(tmp.root(), {"photo.etd=v1", "photo~.etd=an older backup",
                               "photo.etdbak=a standard backup", "photo.etdbak1=left alone"}));
    ASSERT_EQ(saveDocument(target, GSSafetyBackup, Bytes{'v', '2', '.', '.'}), 0)
        << "mode 2 alone implies the temporary file";
    EXPECT_EQ(readText(target) + readText(backup), "v2..v1");
    EXPECT_EQ(listing(tmp.root()),
              (std::set<std::string>{"photo.etd", "photo~.etd", "photo.etdbak1"}))
        << "the standard backup is cleared away as well";

    Unlock unlockBackup{backup}, unlockTarget{target};
    if (!setImmutable(backup, true)) GTEST_SKIP() << "the immutable attribute cannot be set here";
    ASSERT_EQ(saveDocument(target, 3, Bytes{'v', '3', '.', '.'}), 0);
    EXPECT_EQ(readText(target) + readText(backup) + readText(tmp.path("photo~~.etd")), "v3..v1v2..")
        << "a backup that cannot be deleted is passed over for one more tilde";

    ASSERT_TRUE(setImmutable(target, true));
    for (unsigned safety : {0u, 1u, 3u})
        EXPECT_EQ(streamWorker(target, "wb", safety)->open(), 1) << "safety mode " << safety;
    auto reader = streamWorker(target, "rb", 0);
    EXPECT_FALSE(reader->open() || reader->close(GSCloseKeep)) << "reading a locked file is fine";
    EXPECT_EQ(readText(target) + std::to_string(listing(tmp.root()).size()), "v3..4");
}

// Fail the 1st, 2nd, ... call of each step of a save in turn, until the save has no n-th call
// left. A failure before the exchange must leave the old file byte for byte and nothing beside
// it; a rename of the old content to its backup name comes after the exchange, so there the new
// file must be whole. Every failure must show in the save's status: the saver closes with
// close(0) whatever its writes returned, so the worker has to notice by itself. Mode -1 is a
// spec without a safety mode, which must mean a temporary file.
TEST(SafeSave, InjectedFailuresNeverDamageTheTarget) {
    TempFolder tmp;
    const std::string target = tmp.path("doc.etd");
    const Bytes before = makeDocument(1, 30000), after = makeDocument(2, 33000);
    int failures = 0;
    for (int mode : {-1, 3}) {
        for (int step = 0; step < FaultyIO::kSteps; ++step) {
            for (int n = 1; step != FaultyIO::kRename || mode == 3; ++n) {
                writeFile(target, before);
                std::remove(tmp.path("doc~.etd").c_str());
                FaultyIO faults(step, n);
                // Pieces of up to 6000 bytes: some pass the stream's buffer, some fill it.
                short status = saveDocument(target, mode, after, 6000);
                std::string where = "step " + std::to_string(step) + ", call " + std::to_string(n) +
                                    ", mode " + std::to_string(mode);
                if (!faults.fired) {
                    ASSERT_TRUE(status == 0 && n > 1 && readFile(target) == after)
                        << where << ": without a failure, a good save; every step taken";
                    break;
                }
                ++failures;
                EXPECT_NE(status, 0) << where << ": the failure must show";
                EXPECT_TRUE(readFile(target) == (step == FaultyIO::kRename ? after : before))
                    << where << ": the old file intact, or after the exchange the new one whole";
                EXPECT_EQ(listing(tmp.root()), std::set<std::string>{"doc.etd"}) << where;
                if (HasFailure()) return;
            }
        }
    }
    EXPECT_GT(failures, 20) << "the loop must have reached the writes";
}
