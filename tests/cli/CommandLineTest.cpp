// CommandLineTest.cpp - the contract of the ember-tide command line, by running the built tool:
// create (with its backups), extract and info, and the usage errors and help of every command.
#include "RunTool.h"
#include "SampleImages.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <map>
#include <set>
#include <sstream>
#include <sys/stat.h>
#include <unistd.h>

using namespace testing_support;

namespace {

// A real JPEG and PNG; the desktop's cache is kept inside the folder.
class CommandLine : public testing::Test {
protected:
    void SetUp() override {
        ::setenv("XDG_CACHE_HOME", path("cache").c_str(), 1);
        jpeg = samples::encodeJPEG(samples::drawLandscape(64, 48, false), 80);
        png = samples::encodePNG(samples::drawLandscape(40, 30, true));
        writeFile(path("pic.jpg"), jpeg);
        writeFile(path("pic.png"), png);
    }
    std::string path(const std::string& name) const { return folder.path(name); }
    // The names in the folder that are not in `expected`: outputs or temporary files.
    std::string strays(const std::set<std::string>& expected) const {
        std::string list;
        for (auto& e : std::filesystem::directory_iterator(folder.root()))
            if (!expected.count(e.path().filename().string()))
                list += e.path().filename().string() + " ";
        return list;
    }

    TempFolder folder;
    Bytes jpeg, png;
};

} // namespace

TEST_F(CommandLine, CreateThenExtractGivesTheSameBytesInEveryLayout) {
    bool isJpeg = true; // JPEG and PNG by turns, so each store and form sees both
    for (std::string version : {"1.0", "2.0", "3.0", "3.2"})
        for (std::string form : {"long", "byte"})
            for (std::string store : {"inline", "record", "system-record"}) {
                SCOPED_TRACE(version + " " + form + " " + store + (isJpeg ? " jpeg" : " png"));
                ToolRun c = runTool({"create", "--version", version, "--form", form, "--store",
                                     store, path(isJpeg ? "pic.jpg" : "pic.png"), path("doc.etd")});
                if (form == "byte" && version[0] != '3') {
                    EXPECT_EQ(c.status, 2) << "byte form before version 3 is a usage error";
                    continue;
                }
                ASSERT_EQ(c.status, 0) << c.err;
                ASSERT_EQ(runTool({"extract", path("doc.etd"), path("out.bin")}).status, 0);
                EXPECT_EQ(readFile(path("out.bin")), isJpeg ? jpeg : png);
                ToolRun i = runTool({"info", "--json", path("doc.etd")});
                EXPECT_NE(
                    i.out.find(
                        isJpeg ? "\"kind\": 2, \"format\": \"jpeg\", \"width\": 64, \"height\": 48"
                               : "\"kind\": 3, \"format\": \"png\", \"width\": 40, \"height\": 30"),
                    std::string::npos)
                    << i.out;
                isJpeg = !isJpeg;
            }
}

TEST_F(CommandLine, InfoDescribesEveryKindOfFile) {
    runTool({"create", "--version", "2.0", path("pic.jpg"), path("doc.etd")});
    runTool({"create", "--selection", path("pic.png"), path("sel.etd")});
    ToolRun r = runTool(
        {"info", "--json", path("doc.etd"), path("sel.etd"), path("pic.jpg"), path("missing.etd")});
    EXPECT_EQ(r.status, 2) << "a file that cannot be opened gives status 2";
    EXPECT_NE(
        r.out.find("{\"file\": \"" + path("doc.etd") +
                   "\", \"type\": \"document\", \"version\": 512, \"preview\": {\"kind\": 2, "
                   "\"format\": \"jpeg\", \"width\": 64, \"height\": 48, \"info\": 0, \"bytes\": " +
                   std::to_string(jpeg.size()) + "}, \"objects\": null}\n"),
        std::string::npos)
        << r.out;
    EXPECT_NE(r.out.find("\"type\": \"selection\", \"version\": 770, \"preview\": null"),
              std::string::npos);
    EXPECT_NE(r.out.find("\"type\": \"unknown\", \"version\": null, \"preview\": null"),
              std::string::npos);
    EXPECT_NE(r.err.find("ember-tide: " + path("missing.etd") + ": cannot open"), std::string::npos)
        << r.err;

    // From version 3 on, the object table is taken stock of.
    runTool({"create", "--version", "3.0", "--store", "record", path("pic.jpg"), path("v3.etd")});
    ToolRun v3 = runTool({"info", "--json", path("v3.etd")});
    EXPECT_NE(v3.out.find("\"objects\": {\"entries\": 1, \"unreadable\": 0, \"classes\": "
                          "{\"GSMemPicData\": 1}}}"),
              std::string::npos)
        << v3.out;

    // A class name is shown only as a short, printable identifier: the record's name replaced
    // by a long one, by one with an escape sequence, or by bytes that are no UTF-8.
    runTool({"create", "--version", "3.0", "--form", "long", "--store", "record", path("pic.jpg"),
             path("long.etd")});
    Bytes v3bytes = readFile(path("long.etd"));
    const std::string known = "GSMemPicData";
    const auto at = std::search(v3bytes.begin(), v3bytes.end(), known.begin(), known.end());
    ASSERT_NE(at, v3bytes.end());
    const size_t countAt = static_cast<size_t>(at - v3bytes.begin()) - 4; // big-endian, NUL too
    for (const std::string& name : {std::string(1 << 20, 'N'), std::string("A\x1b]0;x\x07"),
                                    std::string("\xff\xfe"), std::string(65, 'L')}) {
        Bytes changed(v3bytes.begin(), v3bytes.begin() + static_cast<long>(countAt));
        for (int shift = 24; shift >= 0; shift -= 8)
            changed.push_back(static_cast<unsigned char>((name.size() + 1) >> shift));
        changed.insert(changed.end(), name.begin(), name.end());
        changed.insert(changed.end(), at + static_cast<long>(known.size()), v3bytes.end());
        // The table lies behind the body, as far as 4 bytes at 24 say: moved by the difference.
        uint32_t table = 0;
        for (int i = 24; i < 28; ++i)
            table = table << 8 | changed[static_cast<size_t>(i)];
        table += static_cast<uint32_t>(name.size() - known.size());
        for (int i = 27; i >= 24; --i, table >>= 8)
            changed[static_cast<size_t>(i)] = static_cast<unsigned char>(table);
        writeFile(path("named.etd"), changed);
        ToolRun named = runTool({"info", "--json", "--", path("named.etd")});
        EXPECT_LT(named.out.size(), 4096u);
        EXPECT_EQ(named.out.find('\n'), named.out.size() - 1) << named.out.substr(0, 200);
        EXPECT_NE(named.out.find("\"classes\": {\"<invalid>\": 1}}}"), std::string::npos)
            << named.out.substr(0, 200);
    }

    // In text, a file name cannot start a line of its own.
    ToolRun text = runTool({"info", path("doc.etd")});
    EXPECT_EQ(text.status, 0);
    EXPECT_NE(text.out.find("document, version 2.0, preview jpeg"), std::string::npos) << text.out;
    std::filesystem::copy_file(path("doc.etd"), path("two\nlines.etd"));
    EXPECT_NE(runTool({"info", path("two\nlines.etd")}).out.find("two\\nlines.etd: document"),
              std::string::npos);
}

TEST_F(CommandLine, ExtractAndCreateWriteAllOrNothing) {
    runTool({"create", path("pic.jpg"), path("doc.etd")});
    runTool({"create", "--selection", path("pic.jpg"), path("sel.etd")});
    writeFile(path("text.txt"), {'h', 'e', 'l', 'l', 'o'});
    const std::set<std::string> inputs = {"pic.jpg", "pic.png", "doc.etd", "sel.etd", "text.txt"};

    EXPECT_EQ(runTool({"extract", path("sel.etd"), path("out.jpg")}).status, 1) << "no preview";
    EXPECT_EQ(runTool({"extract", path("pic.png"), path("out.jpg")}).status, 1) << "no document";
    EXPECT_EQ(runTool({"create", path("text.txt"), path("new.etd")}).status, 1) << "no picture";
    writeFile(path("huge.jpg"), jpeg); // a JPEG, then more than any preview may hold (sparse)
    std::filesystem::resize_file(path("huge.jpg"), 700 << 20);
    EXPECT_EQ(runTool({"create", path("huge.jpg"), path("new.etd")}).status, 1) << "too large";
    std::filesystem::remove(path("huge.jpg"));
    EXPECT_EQ(strays(inputs), "") << "written although there was nothing to write";

    // Under a file-size limit a write fails as any other (2), and takes its temporary file along.
    for (auto command : {std::vector<std::string>{"create", path("pic.jpg"), path("new.etd")},
                         {"convert", path("doc.etd"), path("new.etd")},
                         {"extract", path("doc.etd"), path("new.jpg")}}) {
        ToolRun r = runToolAfter("ulimit -f 1", command);
        EXPECT_EQ(r.status, 2) << command[0] << ": signal " << r.signal << ": " << r.err;
        EXPECT_NE(r.err.find("File too large"), std::string::npos) << command[0] << ": " << r.err;
        EXPECT_EQ(strays(inputs), "") << command[0];
    }

    ToolRun toStdout = runTool({"extract", path("doc.etd"), "-"});
    EXPECT_EQ(toStdout.status, 0);
    EXPECT_EQ(Bytes(toStdout.out.begin(), toStdout.out.end()), jpeg);

    // Replacing an existing output leaves no temporary file behind.
    writeFile(path("out.jpg"), {1, 2, 3});
    EXPECT_EQ(runTool({"extract", path("doc.etd"), path("out.jpg")}).status, 0);
    EXPECT_EQ(readFile(path("out.jpg")), jpeg);
    EXPECT_EQ(strays({"pic.jpg", "pic.png", "doc.etd", "sel.etd", "text.txt", "out.jpg"}), "");
}

// The backup is the old document under "name~.ext", byte for byte; a standing backup of that name
// is replaced, and the framework's other backup name ("name.extbak") is cleared away.
TEST_F(CommandLine, CreateBackupKeepsThePreviousDocument) {
    ASSERT_EQ(runTool({"create", path("pic.jpg"), path("doc.etd")}).status, 0);
    Bytes first = readFile(path("doc.etd"));
    ToolRun r =
        runTool({"create", "--backup", "--version", "2.0", path("pic.png"), path("doc.etd")});
    ASSERT_EQ(r.status, 0) << r.err;
    EXPECT_EQ(readFile(path("doc~.etd")), first);
    Bytes second = readFile(path("doc.etd"));
    EXPECT_NE(second, first);

    writeFile(path("doc.etdbak"), {1, 2, 3});
    ASSERT_EQ(runTool({"create", "--backup", path("pic.jpg"), path("doc.etd")}).status, 0);
    EXPECT_EQ(readFile(path("doc~.etd")), second) << "the older backup is replaced";
    EXPECT_EQ(strays({"pic.jpg", "pic.png", "doc.etd", "doc~.etd"}), "");

    // Without --backup the old content goes, and the backup stands as it was.
    ASSERT_EQ(runTool({"create", "--version", "1.0", path("pic.png"), path("doc.etd")}).status, 0);
    EXPECT_EQ(readFile(path("doc~.etd")), second);
    EXPECT_EQ(strays({"pic.jpg", "pic.png", "doc.etd", "doc~.etd"}), "");

    // A name without an extender gets its tilde at the end.
    ASSERT_EQ(runTool({"create", path("pic.jpg"), path("plain")}).status, 0);
    Bytes plain = readFile(path("plain"));
    ASSERT_EQ(runTool({"create", "--backup", path("pic.png"), path("plain")}).status, 0);
    EXPECT_EQ(readFile(path("plain~")), plain);
}

TEST_F(CommandLine, CreateReplacesTheDocumentNotWhatLeadsToIt) {
    // A refused picture leaves an existing document as it was.
    ASSERT_EQ(runTool({"create", path("pic.jpg"), path("doc.etd")}).status, 0);
    Bytes old = readFile(path("doc.etd"));
    writeFile(path("text.txt"), {'h', 'e', 'l', 'l', 'o'});
    EXPECT_EQ(runTool({"create", "--backup", path("text.txt"), path("doc.etd")}).status, 1);
    EXPECT_EQ(readFile(path("doc.etd")), old);
    EXPECT_EQ(strays({"pic.jpg", "pic.png", "doc.etd", "text.txt"}), "");

    // Through a symbolic link the document it leads to is replaced; the link stays a link.
    std::filesystem::create_symlink("doc.etd", path("link.etd"));
    ASSERT_EQ(runTool({"create", path("pic.png"), path("link.etd")}).status, 0);
    EXPECT_TRUE(std::filesystem::is_symlink(path("link.etd")));
    ToolRun e = runTool({"extract", path("doc.etd"), "-"});
    EXPECT_EQ(Bytes(e.out.begin(), e.out.end()), png);

    // A dangling link gets the file it names, as `>` would make it, for create and extract.
    std::filesystem::create_symlink("made.etd", path("dangling.etd"));
    std::filesystem::create_symlink("made.png", path("dangling.png"));
    ASSERT_EQ(runTool({"create", path("pic.png"), path("dangling.etd")}).status, 0);
    ASSERT_EQ(runTool({"extract", path("dangling.etd"), path("dangling.png")}).status, 0);
    EXPECT_TRUE(std::filesystem::is_symlink(path("dangling.etd")));
    EXPECT_TRUE(std::filesystem::is_symlink(path("dangling.png")));
    EXPECT_EQ(readFile(path("made.png")), png);
}

TEST_F(CommandLine, OptionsFilesAndOutputFailuresAsOtherProgramsHaveThem) {
    ASSERT_EQ(runTool({"create", path("pic.jpg"), path("-odd.etd")}).status, 0);
    const std::string in = "cd '" + folder.root() + "'", full = "exec >/dev/full";
    struct Row {
        std::string setup;
        std::vector<std::string> args;
        int status;
        std::string said; // in stderr
    } rows[] = {
        {in, {"thumbnail", "-s128", "--", "-odd.etd", "a.png"}, 0, ""},
        {in, {"thumbnail", "--si=64", "file://" + path("%2Dodd.etd"), "-s", "32", "b.png"}, 0, ""},
        {in, {"info", "--json", "file://localhost" + path("-odd.etd")}, 0, ""},
        {in, {"info", "https://example.org/x.etd"}, 2, "only file:// URIs"},
        {in, {"extract", "-odd.etd", "c.jpg"}, 2, "unknown option -o"},
        {full, {"info", path("-odd.etd")}, 2, "write error"},
        {full, {"--help"}, 2, "write error"},
        {full, {"cache", "--help"}, 2, "write error"},
    };
    for (const Row& row : rows) {
        ToolRun r = runToolAfter(row.setup, row.args);
        EXPECT_EQ(r.status, row.status) << row.args[1] << ": " << r.err;
        EXPECT_NE(r.err.find(row.said), std::string::npos) << row.args[1] << ": " << r.err;
    }
    EXPECT_EQ(readFile(path("a.png")).size() > 0, true);
    EXPECT_EQ(readFile(path("b.png")).size() > 0, true);
}

TEST_F(CommandLine, MessagesShowControlCharactersInFileNamesEscaped) {
    ToolRun r = runTool({"info", path("a\nb\x1b]0;title\x07\xff.etd")});
    EXPECT_EQ(r.status, 2);
    EXPECT_NE(r.err.find("a\\nb\\x1b]0;title\\x07\\xff.etd: "), std::string::npos) << r.err;
    EXPECT_EQ(r.err.find('\n'), r.err.size() - 1) << r.err;
}

TEST_F(CommandLine, UsageAndInputErrorsGiveStatus2AndWriteNothing) {
    ASSERT_EQ(runTool({"create", path("pic.jpg"), path("doc.etd")}).status, 0);
    // Cases between bars, the first none at all. Capitals stand for files: DOC a document, JPG a
    // picture, OUT an output, MISSING none, DIR a folder, NOWHERE a path into no folder, FIFO a
    // named pipe.
    std::string cases =
        "|frobnicate|info DIR"
        "|extract DOC|extract --bogus DOC OUT|extract MISSING OUT|extract DOC NOWHERE"
        "|create --version 4.0 JPG OUT|create --version banana JPG OUT"
        "|create --store nowhere JPG OUT|create MISSING OUT|create JPG DIR|create JPG NOWHERE"
        "|create DIR OUT|create FIFO OUT|create /dev/zero OUT"
        "|create --backup JPG -"
        "|convert|convert DOC|convert DOC OUT OUT|convert --bogus DOC OUT|convert --version DOC"
        "|convert --version 4.0 DOC OUT|convert --version 0.9 DOC OUT|convert --form short DOC OUT"
        "|convert --version 2.0 --form byte DOC OUT|convert --backup DOC OUT|convert MISSING OUT"
        "|convert DIR OUT|convert DOC DIR|convert DOC NOWHERE"
        "|thumbnail -s 12px DOC OUT|thumbnail --size=0 DOC OUT|thumbnail DOC OUT -s"
        "|thumbnail DOC|thumbnail DOC OUT OUT|thumbnail --bogus DOC OUT"
        "|thumbnail MISSING OUT|thumbnail DIR OUT|thumbnail DOC NOWHERE"
        "|cache|cache --size huge DOC|cache DOC --size|cache --jobs 0 DOC"
        "|cache --jobs two DOC|cache --jobs=5000 DOC|cache --bogus DOC|cache MISSING DOC";
    if (geteuid() != 0) { // root reads any file
        writeFile(path("locked.etd"), jpeg);
        chmod(path("locked.etd").c_str(), 0);
        cases += "|thumbnail LOCKED OUT";
    }
    const std::map<std::string, std::string> files = {
        {"DOC", path("doc.etd")},       {"JPG", path("pic.jpg")},
        {"OUT", path("out.png")},       {"MISSING", path("missing.etd")},
        {"DIR", folder.root()},         {"NOWHERE", path("no/such/folder/out.png")},
        {"LOCKED", path("locked.etd")}, {"FIFO", path("fifo")}};
    ASSERT_EQ(::mkfifo(path("fifo").c_str(), 0600), 0); // no writer: opening it would wait
    std::istringstream list(cases);
    for (std::string line; std::getline(list, line, '|');) {
        std::vector<std::string> args;
        std::istringstream words(line);
        for (std::string w; words >> w;)
            args.push_back(files.count(w) ? files.at(w) : w);
        ToolRun r = runTool(args);
        EXPECT_EQ(r.status, 2) << line << ": " << r.err;
        EXPECT_NE(r.err, "") << line << ": no message";
        EXPECT_EQ(strays({"pic.jpg", "pic.png", "doc.etd", "locked.etd", "fifo"}), "") << line;
    }
}

TEST_F(CommandLine, HelpShowsAnExample) {
    for (std::string command : {"info", "extract", "create", "convert", "thumbnail", "cache"}) {
        ToolRun r = runTool({command, "--help"});
        EXPECT_EQ(r.status, 0) << command;
        EXPECT_NE(r.out.find("Example: ember-tide " + command), std::string::npos) << r.out;
    }
    ToolRun help = runTool({"--help"});
    EXPECT_EQ(help.status, 0);
    EXPECT_NE(help.out.find("Example"), std::string::npos) << help.out;
    EXPECT_NE(help.out.find("thumbnail"), std::string::npos);
    EXPECT_NE(help.out.find("cache"), std::string::npos);
    EXPECT_NE(help.out.find("convert"), std::string::npos);
    EXPECT_EQ(runTool({"--version"}).status, 0);
}
