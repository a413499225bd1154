// CommandLineTest.cpp - the contract of the ember-tide command line, by running the built tool:
// info, extract, create (with its backups), saves that fail whole, and the usage errors, options
// and help of every command. Every layout create writes is read back in ConvertCommandTest.
#include "EmberTideDocumentWriter.h"
#include "GSTagWrite.h"
#include "RunTool.h"
#include "SampleImages.h"

#include <algorithm>
#include <filesystem>
#include <map>
#include <sstream>
#include <sys/stat.h>
#include <unistd.h>

using namespace testing_support;

using CommandLine = ToolTest;

TEST_F(CommandLine, InfoDescribesEveryKindOfFile) {
    runTool({"create", "--version", "2.0", path("pic.jpg"), path("doc.etd")});
    runTool({"create", "--selection", path("pic.png"), path("sel.etd")});
    ToolRun r = runTool(
        {"info", "--json", path("doc.etd"), path("sel.etd"), path("pic.jpg"), path("missing.etd")});
    EXPECT_EQ(r.status, 2) << "a file that cannot be opened gives status 2";
    for (const std::string& said :
         {"{\"file\": \"" + path("doc.etd") +
              "\", \"type\": \"document\", \"version\": 512, \"preview\": {\"kind\": 2, "
              "\"format\": \"jpeg\", \"width\": 64, \"height\": 48, \"info\": 0, \"bytes\": " +
              std::to_string(jpeg.size()) + "}, \"objects\": null}\n",
          std::string("\"type\": \"selection\", \"version\": 770, \"preview\": null"),
          std::string("\"type\": \"unknown\", \"version\": null, \"preview\": null")})
        EXPECT_NE(r.out.find(said), std::string::npos) << said << " in " << r.out;
    EXPECT_NE(r.err.find("ember-tide: " + path("missing.etd") + ": cannot open"), std::string::npos)
        << r.err;

    // From version 3 on, the object table is taken stock of. A class name is shown only as a
    // short, printable identifier: the record's name replaced by a long one, by one with an
    // escape sequence, or by bytes that are no UTF-8, counts as "<invalid>".
    runTool({"create", "--version", "3.0", "--form", "long", "--store", "record", path("pic.jpg"),
             path("v3.etd")});
    EXPECT_NE(runTool({"info", "--json", path("v3.etd")})
                  .out.find("\"objects\": {\"entries\": 1, \"unreadable\": 0, \"classes\": "
                            "{\"GSMemPicData\": 1}}}"),
              std::string::npos);
    const Bytes v3 = readFile(path("v3.etd"));
    const std::string known = "GSMemPicData";
    const auto at = std::search(v3.begin(), v3.end(), known.begin(), known.end());
    ASSERT_NE(at, v3.end());
    const long countAt = at - v3.begin() - 4; // big-endian, its NUL counted
    for (const std::string& name : {std::string(1 << 20, 'N'), std::string("A\x1b]0;x\x07"),
                                    std::string("\xff\xfe"), std::string(65, 'L')}) {
        Bytes changed(v3.begin(), v3.begin() + countAt);
        for (int shift = 24; shift >= 0; shift -= 8)
            changed.push_back(static_cast<unsigned char>((name.size() + 1) >> shift));
        changed.insert(changed.end(), name.begin(), name.end());
        changed.insert(changed.end(), at + static_cast<long>(known.size()), v3.end());
        // The table lies behind the body, as far as the big-endian 4 bytes at 24 say: moved.
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
    std::filesystem::copy_file(path("doc.etd"), path("two\nlines.etd"));
    ToolRun text = runTool({"info", path("two\nlines.etd")});
    EXPECT_EQ(text.status, 0);
    EXPECT_NE(text.out.find("two\\nlines.etd: document, version 2.0, preview jpeg"),
              std::string::npos)
        << text.out;
}

namespace {

// Saves that fail: the document doc.etd stays as it was, and no output or temporary file is left.
class FailedSaves : public ToolTest {
protected:
    struct Row {
        std::vector<std::string> args;
        int status;
        std::string said; // in stderr
    };
    void expectEach(const std::string& setup, const std::vector<Row>& rows) {
        const Bytes document = readFile(path("doc.etd"));
        inputs.insert("doc.etd");
        for (const Row& row : rows) {
            ToolRun r = runToolAfter(setup, row.args);
            const std::string line = row.args[0] + " " + row.args[1] + " " + row.args[2];
            EXPECT_EQ(r.status, row.status) << line << ": signal " << r.signal << ": " << r.err;
            EXPECT_NE(r.err.find(row.said), std::string::npos) << line << ": " << r.err;
            EXPECT_EQ(readFile(path("doc.etd")), document) << line;
            EXPECT_EQ(strays(), "") << line;
        }
    }
};

} // namespace

TEST_F(FailedSaves, NothingToWriteGivesStatus1) {
    runTool({"create", path("pic.jpg"), path("doc.etd")});
    runTool({"create", "--selection", path("pic.jpg"), path("sel.etd")});
    writeFile(path("text.txt"), {'h', 'e', 'l', 'l', 'o'});
    writeFile(path("huge.jpg"), jpeg); // a JPEG, then more than any preview may hold (sparse)
    std::filesystem::resize_file(path("huge.jpg"), 700 << 20);
    MemoryFile empty; // a document without a preview
    ASSERT_EQ(EmberTideDataWriteHeader(&empty.file, 0x0200, false, false), 0);
    ASSERT_EQ(GSTagWrite(&empty.file).writeEndTag(), 0);
    writeFile(path("empty.etd"), empty.bytes());
    Bytes v4 = readFile(path("doc.etd")); // a version no reader takes
    ASSERT_EQ(v4[20], 3) << "the version follows the identifier and its NUL";
    v4[20] = 4;
    writeFile(path("v4.etd"), v4);
    inputs.insert({"sel.etd", "text.txt", "huge.jpg", "empty.etd", "v4.etd"});
    expectEach("", {{{"extract", path("sel.etd"), path("out.jpg")}, 1, path("sel.etd") + ": "},
                    {{"extract", path("pic.png"), path("out.jpg")}, 1, path("pic.png") + ": "},
                    {{"create", path("text.txt"), path("new.etd")}, 1, path("text.txt") + ": "},
                    {{"create", path("huge.jpg"), path("new.etd")}, 1, path("huge.jpg") + ": "},
                    {{"create", "--backup", path("text.txt"), path("doc.etd")}, 1, "text.txt: "},
                    {{"convert", path("empty.etd"), path("doc.etd")}, 1, "empty.etd: no preview"},
                    {{"convert", path("v4.etd"), path("doc.etd")}, 1, "v4.etd: version 4."},
                    {{"convert", path("pic.png"), path("new.etd")}, 1, path("pic.png") + ": "}});

    EXPECT_EQ(runTool({"extract", path("doc.etd"), "-"}).outBytes(), jpeg);
    writeFile(path("out.jpg"), {1, 2, 3}); // replaced whole, with nothing left beside it
    EXPECT_EQ(runTool({"extract", path("doc.etd"), path("out.jpg")}).status, 0);
    EXPECT_EQ(readFile(path("out.jpg")), jpeg);
    EXPECT_EQ(strays({"out.jpg"}), "");
}

// Under a file-size limit a write fails half-way as any other does (2), in place or not.
TEST_F(FailedSaves, AWriteThatFailsHalfWayGivesStatus2) {
    const Bytes big = samples::encodeJPEG(samples::drawLandscape(800, 600, false), 95);
    ASSERT_GT(big.size(), 16384u) << "must exceed the limit below";
    writeFile(path("big.jpg"), big);
    inputs.insert("big.jpg");
    ASSERT_EQ(runTool({"create", path("big.jpg"), path("doc.etd")}).status, 0);
    expectEach("ulimit -f 8",
               {{{"create", path("big.jpg"), path("new.etd")}, 2, "File too large"},
                {{"create", path("big.jpg"), path("doc.etd")}, 2, "File too large"},
                {{"convert", path("doc.etd"), path("new.etd")}, 2, "File too large"},
                {{"convert", path("doc.etd"), path("doc.etd")}, 2, "doc.etd: cannot write"},
                {{"extract", path("doc.etd"), path("new.jpg")}, 2, "File too large"}});
}

// The backup is the old document under "name~.ext", byte for byte; a standing backup of that name
// is replaced, and the framework's other backup name ("name.extbak") is cleared away.
TEST_F(CommandLine, CreateBackupKeepsThePreviousDocument) {
    ASSERT_EQ(runTool({"create", path("pic.jpg"), path("doc.etd")}).status, 0);
    const Bytes first = readFile(path("doc.etd"));
    ToolRun r =
        runTool({"create", "--backup", "--version", "2.0", path("pic.png"), path("doc.etd")});
    ASSERT_EQ(r.status, 0) << r.err;
    EXPECT_EQ(readFile(path("doc~.etd")), first);
    const Bytes second = readFile(path("doc.etd"));
    EXPECT_NE(second, first);

    writeFile(path("doc.etdbak"), {1, 2, 3});
    ASSERT_EQ(runTool({"create", "--backup", path("pic.jpg"), path("doc.etd")}).status, 0);
    EXPECT_EQ(readFile(path("doc~.etd")), second) << "the older backup is replaced";
    // Without --backup the old content goes, and the backup stands as it was.
    ASSERT_EQ(runTool({"create", "--version", "1.0", path("pic.png"), path("doc.etd")}).status, 0);
    EXPECT_EQ(readFile(path("doc~.etd")), second);
    EXPECT_EQ(strays({"doc.etd", "doc~.etd"}), "");

    // A name without an extender gets its tilde at the end.
    ASSERT_EQ(runTool({"create", path("pic.jpg"), path("plain")}).status, 0);
    const Bytes plain = readFile(path("plain"));
    ASSERT_EQ(runTool({"create", "--backup", path("pic.png"), path("plain")}).status, 0);
    EXPECT_EQ(readFile(path("plain~")), plain);
}

// Through a symbolic link the document it leads to is replaced and the link stays a link; a
// dangling link gets the file it names, as `>` would make it, for create and extract.
TEST_F(CommandLine, SavesReplaceTheFileNotTheLinkToIt) {
    ASSERT_EQ(runTool({"create", path("pic.jpg"), path("doc.etd")}).status, 0);
    std::filesystem::create_symlink("doc.etd", path("link.etd"));
    ASSERT_EQ(runTool({"create", path("pic.png"), path("link.etd")}).status, 0);
    EXPECT_EQ(runTool({"extract", path("doc.etd"), "-"}).outBytes(), png);

    std::filesystem::create_symlink("made.etd", path("dangling.etd"));
    std::filesystem::create_symlink("made.png", path("dangling.png"));
    ASSERT_EQ(runTool({"create", path("pic.png"), path("dangling.etd")}).status, 0);
    ASSERT_EQ(runTool({"extract", path("dangling.etd"), path("dangling.png")}).status, 0);
    for (const char* link : {"link.etd", "dangling.etd", "dangling.png"})
        EXPECT_TRUE(std::filesystem::is_symlink(path(link))) << link;
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
        {in, {"info", "a\nb\x1b]0;title\x07\xff.etd"}, 2, "a\\nb\\x1b]0;title\\x07\\xff.etd: "},
        {full, {"info", path("-odd.etd")}, 2, "write error"},
        {full, {"--help"}, 2, "write error"},
        {full, {"cache", "--help"}, 2, "write error"},
    };
    for (const Row& row : rows) {
        ToolRun r = runToolAfter(row.setup, row.args);
        EXPECT_EQ(r.status, row.status) << row.args[1] << ": " << r.err;
        EXPECT_NE(r.err.find(row.said), std::string::npos) << row.args[1] << ": " << r.err;
    }
    EXPECT_GT(readFile(path("a.png")).size(), 0u);
    EXPECT_GT(readFile(path("b.png")).size(), 0u);
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
        "|create --version 2.0 --form byte JPG OUT|create --store nowhere JPG OUT"
        "|create MISSING OUT|create JPG DIR|create JPG NOWHERE"
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
        "|cache --jobs two DOC|cache --jobs=1025 DOC|cache --bogus DOC|cache MISSING DOC";
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
        EXPECT_EQ(strays({"doc.etd", "locked.etd", "fifo"}), "") << line;
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
    for (const char* said : {"Example", "thumbnail", "cache", "convert"})
        EXPECT_NE(help.out.find(said), std::string::npos) << help.out;
    EXPECT_EQ(runTool({"--version"}).status, 0);
}
