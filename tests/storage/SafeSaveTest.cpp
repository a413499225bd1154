// SafeSaveTest.cpp - removing, renaming and exchanging files, and the stream worker's safe save:
// temporary files, discarding, backups, locked targets, and I/O failures injected at every step.
#include "GSFileState.h"
#include "GSFileWorkerStream.h"
#include "GSFileWorkerStreamIO.h"
#include "GSObjectRef.h"
#include "SaveTestSupport.h"

#include <gtest/gtest.h>

#include <fcntl.h>
#include <linux/fs.h>
#include <sys/ioctl.h>
#include <unistd.h>

using namespace testing_support;
using namespace save_test;

namespace {

std::string read(const std::string& path) {
    Bytes b = readFile(path);
    return std::string(b.begin(), b.end());
}

void write(const std::string& path, const std::string& text) {
    writeFile(path, Bytes(text.begin(), text.end()));
}

bool exists(const std::string& path) {
    return ::access(path.c_str(), F_OK) == 0;
}

// Sets or clears the immutable attribute; false where the file system or our rights refuse.
bool setImmutable(const std::string& path, bool on) {
    int fd = ::open(path.c_str(), O_RDONLY | O_NONBLOCK);
    if (fd < 0) return false;
    int attributes = 0;
    bool ok = ::ioctl(fd, FS_IOC_GETFLAGS, &attributes) == 0;
    if (ok) {
        attributes = on ? attributes | FS_IMMUTABLE_FL : attributes & ~FS_IMMUTABLE_FL;
        ok = ::ioctl(fd, FS_IOC_SETFLAGS, &attributes) == 0;
    }
    ::close(fd);
    return ok;
}

// Clears the attribute again however the test ends, so that the folder can go.
struct Unlock {
    std::string path;
    ~Unlock() { setImmutable(path, false); }
};

// A stream worker on `path` with the given mode and safety mode.
GSObjectRef<GSFileWorkerStream> streamWorker(const std::string& path, const char* mode,
                                             unsigned safety) {
    GSObjectRef<GSFileWorkerStream> w(new GSFileWorkerStream());
    w->setAccessMode(mode);
    w->setFileSpec(GSFileSpec(gs(path)));
    w->setSafetyMode(safety);
    return w;
}

short put(GSFileWorker* w, const std::string& text) {
    return w->writeData(text.data(), static_cast<long>(text.size())) ==
                   static_cast<long>(text.size())
               ? 0
               : 1;
}

// Fails the n-th call of one kind of step (counting from 1) and lets every other call through
// to the real one. A failed write writes half of what it was given, as a full disk does; a
// failed close still closes the stream.
class FaultyIO : public GSFileWorkerStreamIO {
public:
    enum Step { kWrite, kFlush, kSync, kClose, kExchange, kRename, kSteps };
    static constexpr const char* kNames[kSteps] = {"write", "flush",    "sync",
                                                   "close", "exchange", "rename"};

    FaultyIO(Step step, int n) : failing(step), failAt(n) { setCurrent(this); }
    ~FaultyIO() override { setCurrent(nullptr); }
    FaultyIO(const FaultyIO&) = delete;
    FaultyIO& operator=(const FaultyIO&) = delete;

    bool fired = false;

    size_t write(const void* bytes, size_t count, std::FILE* stream) override {
        if (fail(kWrite)) return GSFileWorkerStreamIO::write(bytes, count / 2, stream);
        return GSFileWorkerStreamIO::write(bytes, count, stream);
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
        if (fail(kExchange)) return 1;
        return GSFileWorkerStreamIO::exchange(working, target, removeOld, detail);
    }
    short rename(GSFileSpec* spec, const GSString& newName, GSString* detail) override {
        if (fail(kRename)) return 1;
        return GSFileWorkerStreamIO::rename(spec, newName, detail);
    }

private:
    bool fail(Step step) {
        if (step != failing || ++calls != failAt) return false;
        fired = true;
        return true;
    }
    Step failing;
    int failAt;
    int calls = 0;
};

} // namespace

TEST(FileChanges, RemoveRenameAndExchange) {
    TempFolder tmp;
    GSString detail = gs("stale");
    EXPECT_EQ(GSFileSpec().remove(&detail), 1) << "a spec without a URL";
    EXPECT_EQ(str(detail), "") << "...has no error text to give";

    const std::string a = tmp.path("a.txt"), b = tmp.path("b.txt");
    write(a, "first");
    write(b, "second");
    GSFileSpec spec(gs(a));
    EXPECT_EQ(spec.rename(gs("b.txt"), &detail), 1) << "a name that is taken";
    EXPECT_NE(str(detail), "");
    EXPECT_EQ(str(spec.getPathname(1)), a) << "a failed rename leaves the spec alone";
    EXPECT_EQ(read(b), "second");
    ASSERT_EQ(spec.rename(gs("c.txt"), &detail), 0) << str(detail);
    EXPECT_EQ(str(detail), "");
    EXPECT_EQ(str(spec.getPathname(1)), tmp.path("c.txt")) << "the spec follows the item";
    EXPECT_EQ(read(tmp.path("c.txt")), "first");
    EXPECT_FALSE(exists(a));

    ASSERT_EQ(spec.remove(&detail), 0);
    EXPECT_FALSE(exists(tmp.path("c.txt")));
    std::remove(b.c_str());
    EXPECT_EQ(spec.remove(&detail), 1) << "nothing left to remove";
    EXPECT_NE(str(detail), "");

    // Discarding the old content: the new file takes the target's place, hidden or not, and
    // its own name is gone.
    const std::string hidden = tmp.path(".hidden.cfg"), fresh = tmp.path("fresh.cfg");
    write(hidden, "old");
    write(fresh, "new");
    GSFileSpec replacement(gs(fresh));
    ASSERT_EQ(replacement.exchangeWith(GSFileSpec(gs(hidden)), 1, &detail), 0) << str(detail);
    EXPECT_EQ(read(hidden), "new");
    EXPECT_FALSE(exists(fresh));
    GSFileState state;
    ASSERT_EQ(GSFileSpec(gs(hidden)).fillState(&state), 0);
    EXPECT_TRUE(state.flags & GSFileState::kHidden);

    // Keeping it: the two files have exchanged places, and nothing else is left behind.
    write(fresh, "newer");
    ASSERT_EQ(replacement.exchangeWith(GSFileSpec(gs(hidden)), 0, &detail), 0) << str(detail);
    EXPECT_EQ(read(hidden), "newer");
    EXPECT_EQ(read(fresh), "new");
    EXPECT_EQ(listing(tmp.root()), (std::set<std::string>{".hidden.cfg", "fresh.cfg"}));

    EXPECT_EQ(replacement.exchangeWith(GSFileSpec(gs(tmp.path("missing"))), 0, &detail), 1);
    EXPECT_NE(str(detail), "");
    EXPECT_EQ(read(fresh), "new") << "a failed exchange leaves the new file where it was";
}

TEST(SafeSave, TemporaryFileExchangedOnCloseOrDiscarded) {
    TempFolder tmp;
    const std::string target = tmp.path("report.etd");
    write(target, "old content");

    // While the save runs, only a hidden temporary file with the target's extender changes.
    auto w = streamWorker(target, "wb", GSSafetyTemporaryFile);
    ASSERT_EQ(w->open(), 0);
    ASSERT_EQ(put(w.get(), "new content"), 0);
    std::string working = str(w->getWorkingFileSpec()->getFilename(1));
    EXPECT_TRUE(isTemporaryName(working, ".etd")) << working;
    EXPECT_EQ(str(w->getWorkingFileSpec()->getPathname(0)), tmp.root() + "/")
        << "in the target's folder";
    EXPECT_EQ(read(target), "old content") << "the target is untouched until close";
    ASSERT_EQ(w->close(0), 0);
    EXPECT_EQ(read(target), "new content");
    EXPECT_EQ(listing(tmp.root()), std::set<std::string>{"report.etd"});
    EXPECT_TRUE(w->getWorkingFileSpec()->getPathname(1).isEmpty()) << "reset after close";

    // Discarding throws away only the temporary file.
    ASSERT_EQ(w->open(), 0) << "a worker opens again after a close";
    ASSERT_EQ(put(w.get(), "discarded"), 0);
    ASSERT_EQ(w->close(1), 0);
    EXPECT_EQ(read(target), "new content");
    EXPECT_EQ(listing(tmp.root()), std::set<std::string>{"report.etd"});

    // Without a target there is nothing to protect: the file is written in place.
    const std::string fresh = tmp.path("fresh.etd");
    auto first = streamWorker(fresh, "wb", GSSafetyTemporaryFile);
    ASSERT_EQ(first->open(), 0);
    EXPECT_EQ(str(first->getWorkingFileSpec()->getPathname(1)), fresh);
    ASSERT_EQ(put(first.get(), "x") + first->close(0), 0);
    EXPECT_EQ(read(fresh), "x");

    // Without safe mode a "w" open deletes the old file at once, and a discard deletes the
    // file being written. Reading never deletes, whatever close is asked.
    auto unsafe = streamWorker(target, "wb", 0);
    ASSERT_EQ(unsafe->open(), 0);
    EXPECT_EQ(read(target), "");
    ASSERT_EQ(unsafe->close(1), 0);
    EXPECT_FALSE(exists(target));
    auto reader = streamWorker(fresh, "rb", GSSafetyTemporaryFile);
    ASSERT_EQ(reader->open(), 0);
    ASSERT_EQ(reader->close(1), 0);
    EXPECT_EQ(read(fresh), "x");
}

TEST(SafeSave, BackupsTakeTheFirstFreeTildeName) {
    TempFolder tmp;
    const std::string target = tmp.path("photo.etd");
    write(target, "v1");
    write(tmp.path("photo~.etd"), "an older backup");
    write(tmp.path("photo.etdbak"), "a standard backup");
    write(tmp.path("photo.etdbak1"), "left alone");

    ASSERT_EQ(saveDocument(target, GSSafetyBackup, Bytes{'v', '2'}), 0)
        << "mode 2 alone implies the temporary file";
    EXPECT_EQ(read(target), "v2");
    EXPECT_EQ(read(tmp.path("photo~.etd")), "v1") << "the old backup gives way to the new one";
    EXPECT_EQ(listing(tmp.root()),
              (std::set<std::string>{"photo.etd", "photo~.etd", "photo.etdbak1"}))
        << "the standard backup is cleared away as well";

    ASSERT_EQ(saveDocument(target, 3, Bytes{'v', '3'}), 0);
    EXPECT_EQ(read(target), "v3");
    EXPECT_EQ(read(tmp.path("photo~.etd")), "v2");

    // A backup that cannot be deleted is passed over for one more tilde.
    Unlock unlock{tmp.path("photo~.etd")};
    if (!setImmutable(unlock.path, true))
        GTEST_SKIP() << "the immutable attribute cannot be set here";
    ASSERT_EQ(saveDocument(target, 3, Bytes{'v', '4'}), 0);
    EXPECT_EQ(read(target), "v4");
    EXPECT_EQ(read(tmp.path("photo~.etd")), "v2");
    EXPECT_EQ(read(tmp.path("photo~~.etd")), "v3");
}

TEST(SafeSave, LockedTargetIsRefusedBeforeAnythingIsTouched) {
    TempFolder tmp;
    const std::string target = tmp.path("locked.etd");
    write(target, "keep");
    Unlock unlock{target};
    if (!setImmutable(target, true)) GTEST_SKIP() << "the immutable attribute cannot be set here";
    for (unsigned safety : {0u, 1u, 3u}) {
        auto w = streamWorker(target, "wb", safety);
        EXPECT_EQ(w->open(), 1) << "safety mode " << safety;
        EXPECT_EQ(w->isOpened(), 0);
    }
    auto reader = streamWorker(target, "rb", 0);
    EXPECT_EQ(reader->open(), 0) << "reading a locked file is fine";
    EXPECT_EQ(reader->close(0), 0);
    EXPECT_EQ(read(target), "keep");
    EXPECT_EQ(listing(tmp.root()), std::set<std::string>{"locked.etd"}) << "nothing created";
}

TEST(SafeSave, TheFileTakesItsSafetyModeFromTheSpec) {
    TempFolder tmp;
    const std::string path = tmp.path("doc.etd");
    struct Case {
        int given; // -1: no entry
        int expected;
    } cases[] = {{-1, 1}, {0, 0}, {1, 1}, {2, 3}, {3, 3}};
    for (const Case& c : cases) {
        GSFile file(specWithMode(path, c.given), 0);
        EXPECT_EQ(file.getSafetyMode(), c.expected) << "entry " << c.given;
        EXPECT_EQ(file.getFileWorker()->getSafetyMode(), static_cast<unsigned>(c.expected))
            << "entry " << c.given;
    }
    GSFileSpec versioned(gs(path));
    putLong(&versioned, GSFileFormatVersionKey, 770);
    GSFile file(versioned, 0);
    EXPECT_EQ(file.getFormatVersion(), 770);
}

TEST(SafeSave, AFailedCloseLeavesTheWorkerOpenUntilClosedAgain) {
    TempFolder tmp;
    const std::string target = tmp.path("doc.etd");
    write(target, "old");
    FaultyIO faults(FaultyIO::kClose, 1);
    auto w = streamWorker(target, "wb", GSSafetyTemporaryFile);
    ASSERT_EQ(w->open(), 0);
    ASSERT_EQ(put(w.get(), "new"), 0);
    EXPECT_EQ(w->close(0), 1);
    EXPECT_EQ(w->isOpened(), 1) << "a failed close leaves the worker marked open";
    EXPECT_EQ(w->close(0), 0) << "...and a second close has nothing left to do";
    EXPECT_EQ(w->isOpened(), 0);
    EXPECT_EQ(read(target), "old");
    EXPECT_EQ(listing(tmp.root()), std::set<std::string>{"doc.etd"});
}

// SQLite's way: fail the 1st, 2nd, ... call of each step of a save in turn, until the save has
// no n-th call left. A failure before the exchange must leave the old file byte for byte and
// nothing beside it; a rename of the old content to its backup name comes after the exchange,
// so there the new file must be whole. Every failure must show in the save's status: the saver
// closes with close(0) whatever its writes returned, so the worker has to notice by itself.
TEST(SafeSave, InjectedFailuresNeverDamageTheTarget) {
    TempFolder tmp;
    const std::string target = tmp.path("doc.etd");
    const Bytes before = makeDocument(1, 30000), after = makeDocument(2, 33000);
    int failures = 0;
    for (int mode : {1, 3}) {
        for (int step = 0; step < FaultyIO::kSteps; ++step) {
            if (step == FaultyIO::kRename && mode == 1) continue; // no backup, no rename
            for (int n = 1;; ++n) {
                spill(target, before);
                std::remove(tmp.path("doc~.etd").c_str());
                short status;
                bool fired;
                {
                    FaultyIO faults(static_cast<FaultyIO::Step>(step), n);
                    // Pieces of up to 6000 bytes: some pass the stream's buffer, some fill it.
                    status = saveDocument(target, mode, after, 6000);
                    fired = faults.fired;
                }
                std::string where = std::string(FaultyIO::kNames[step]) + " " + std::to_string(n) +
                                    ", mode " + std::to_string(mode);
                if (!fired) {
                    ASSERT_EQ(status, 0) << where << ": no failure, a good save";
                    EXPECT_GT(n, 1) << where << ": every step is taken at least once";
                    EXPECT_TRUE(slurp(target) == after) << where;
                    break;
                }
                ++failures;
                EXPECT_NE(status, 0) << where << ": the failure must show";
                std::set<std::string> expected{"doc.etd"};
                if (step == FaultyIO::kRename) {
                    EXPECT_TRUE(slurp(target) == after) << where << ": the new file, whole";
                } else {
                    EXPECT_TRUE(slurp(target) == before) << where << ": the old file, intact";
                }
                EXPECT_EQ(listing(tmp.root()), expected) << where;
                if (HasFailure()) return;
            }
        }
    }
    EXPECT_GT(failures, 20) << "the loop must have reached the writes";
}
