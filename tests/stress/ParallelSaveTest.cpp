// ParallelSaveTest.cpp - saves beside other saves, as `xargs -P` and a shared folder make them:
// in-place converts of one document by 2 and 8 processes at once, 64 documents of one folder
// converted at once, round after round; and, in a sticky world-writable folder, links planted
// and pulled again at the hidden names that a save will try, as another user would.
//
// After every round each document is its old or its new self (it holds its own picture, never
// another document's or none) and no hidden temporary file is left. ET_STRESS_ROUNDS sets the
// number of rounds (200 by default).
#include "FileTestSupport.h"
#include "RunTool.h"
#include "SampleImages.h"
#include "storage/GSFileSpec.h"
#include "thumbnail/GSGetThumbnail.h"

#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

using namespace testing_support;

namespace {

int rounds() {
    const char* text = std::getenv("ET_STRESS_ROUNDS");
    return text && std::atoi(text) > 0 ? std::atoi(text) : 200;
}

// A preview of its own for document n: what it must hold after every round.
Bytes pictureOf(int n) {
    Bytes bytes = fromHex("ff d8 ff e0 00 10 4a 46 49 46 00 01");
    for (int shift = 0; shift < 32; shift += 8)
        bytes.push_back(static_cast<unsigned char>(n >> shift));
    return bytes;
}

Bytes previewIn(const std::string& path) {
    GSDynaArray<unsigned char> bytes;
    int kind = 0, info = 0;
    GSTSize<int> size;
    GSGetThumbnail(GSFileSpec(GSString(path.c_str(), -1, GSString::kUTF8)), &bytes, &kind, &info,
                   &size);
    return Bytes(bytes.getData(), bytes.getData() + bytes.getSize());
}

// Hidden items of a folder, but for `except`.
std::vector<std::string> hiddenItems(const std::string& folder,
                                     const std::set<std::string>& except = {}) {
    std::vector<std::string> names;
    for (const std::string& name : file_test::listing(folder))
        if (name[0] == '.' && !except.count(name)) names.push_back(name);
    return names;
}

// Runs every argument list at once and checks that each exits with status 0.
void runAtOnce(const std::vector<std::vector<std::string>>& commands, const TempFolder& logs) {
    std::vector<pid_t> pids;
    for (const auto& command : commands) {
        std::vector<std::string> argv = {ET_TOOL_PATH};
        argv.insert(argv.end(), command.begin(), command.end());
        std::string out = logs.path(std::to_string(pids.size()));
        pids.push_back(startProcess(argv, out, out + ".err"));
    }
    for (size_t i = 0; i < pids.size(); ++i) {
        std::string out = logs.path(std::to_string(i));
        ToolRun run = finishProcess(pids[i], out, out + ".err");
        EXPECT_EQ(run.status, 0) << run.err;
    }
}

} // namespace

// Two and eight in-place converts of one document at once; 64 documents of one folder at once.
TEST(ParallelSaves, EveryDocumentEndsAsItsOldOrNewSelf) {
    for (auto [documentCount, processesPerDocument] : {std::pair{1, 2}, {1, 8}, {64, 1}}) {
        SCOPED_TRACE(std::to_string(documentCount) + " x " + std::to_string(processesPerDocument));
        TempFolder folder, logs;
        std::vector<std::string> documents;
        for (int d = 0; d < documentCount; ++d) {
            documents.push_back(folder.path("doc" + std::to_string(d) + ".etd"));
            writeDocument(documents.back(), pictureOf(d));
        }
        for (int round = 0; round < rounds() && !HasFailure(); ++round) {
            std::vector<std::vector<std::string>> commands;
            for (int d = 0; d < documentCount; ++d)
                for (int p = 0; p < processesPerDocument; ++p)
                    commands.push_back({"convert", "--version", (round + p) % 2 ? "2.0" : "3.0",
                                        documents[d], documents[d]});
            runAtOnce(commands, logs);
            for (int d = 0; d < documentCount; ++d)
                EXPECT_EQ(previewIn(documents[d]), pictureOf(d)) << "round " << round;
            EXPECT_EQ(hiddenItems(folder.root()), std::vector<std::string>()) << "round " << round;
        }
    }
}

TEST(ParallelSaves, LinksPlantedAtTheHiddenNamesAreNeverFollowedOrRemoved) {
    if (::geteuid() != 0) GTEST_SKIP() << "needs root, to plant the links as another user";
    TempFolder shared, elsewhere, logs;
    ASSERT_EQ(::chmod(shared.root().c_str(), 01777), 0); // as /tmp is
    const std::string document = shared.path("doc.etd");
    const std::string victim = elsewhere.path("victim"); // a file the saver may write, others not
    const std::string absent = elsewhere.path("absent"); // a file that must not come to be
    const std::string image = elsewhere.path("image.jpg");
    writeDocument(document, pictureOf(1));
    writeFile(victim, fromHex("76 69 63 74 69 6d"));
    writeFile(image, samples::encodeJPEG(samples::drawFlat(8, 8, {10, 20, 30}), 90));

    // The working file's names and the backup's (which have no extender): while the saves run,
    // another user makes links appear at them and go again, so that some are there when a name
    // is opened and some when it is probed. The sticky bit keeps that user from deleting ours.
    std::vector<std::string> names;
    for (int n = 0; n < 6; ++n) {
        std::string name = "." + text(GSFileSpec::getTemporaryFilename());
        names.insert(names.end(), {name + ".etd", name});
    }
    pid_t planter = ::fork();
    ASSERT_GE(planter, 0);
    if (planter == 0) {
        if (::setgid(65534) != 0 || ::setuid(65534) != 0) ::_exit(1);
        for (unsigned n = 0;; ++n) {
            const std::string link = shared.path(names[n % names.size()]);
            (void)::symlink((n / names.size()) % 2 ? victim.c_str() : absent.c_str(), link.c_str());
            if (n % 3 == 0) ::unlink(link.c_str());
        }
    }
    for (int round = 0; round < rounds() / 2 && !HasFailure(); ++round)
        runAtOnce({{"convert", "--version", round % 2 ? "2.0" : "3.0", document, document},
                   {"create", "--backup", image, shared.path("new.etd")}},
                  logs);
    ::kill(planter, SIGKILL);
    ::waitpid(planter, nullptr, 0);

    EXPECT_EQ(readFile(victim), fromHex("76 69 63 74 69 6d"));
    EXPECT_FALSE(std::filesystem::exists(std::filesystem::symlink_status(absent)));
    EXPECT_EQ(previewIn(document), pictureOf(1));
    EXPECT_EQ(hiddenItems(shared.root(), {names.begin(), names.end()}), std::vector<std::string>());
    for (const std::string& name : names) {
        struct stat facts;
        EXPECT_TRUE(::lstat(shared.path(name).c_str(), &facts) != 0 || S_ISLNK(facts.st_mode))
            << name << " was replaced";
    }
}
