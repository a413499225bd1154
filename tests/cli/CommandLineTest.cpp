// CommandLineTest.cpp - the contract of the ember-tide command line, by running the built tool:
// info, extract, create (with its backups), saves that fail whole, and the usage errors, options
// and help of every command. Every layout create writes is read back in ConvertCommandTest.
#include "RunTool.h"
#include "SampleImages.h"
#include "fileformat/GSTagWrite.h"
#include "thumbnail/EmberTideDocumentWriter.h"

#include <algorithm>
#include <filesystem>
#include <map>
#include <sstream>
#include <sys/stat.h>
#include <tuple>
#include <unistd.h>

using namespace testing_support;

using CommandLine = ToolTest;

TEST_F(CommandLine, InfoDescribesEveryKindOfFile) {
    expectRun("create --version 2.0 @pic.jpg @doc.etd", 0);
    expectRun("create --selection @pic.png @sel.etd", 0);
    expectRun("create --version 3.0 --form long --store record @pic.jpg @v3.etd", 0);
    ToolRun r = expectRun("info --json @doc.etd @sel.etd @v3.etd @pic.jpg @missing.etd", 2,
                          "ember-tide: " + path("missing.etd") + ": cannot open");
    for (const std::string& said :
         {"{\"file\": \"" + path("doc.etd") +
              "\", \"type\": \"document\", \"version\": 512, \"preview\": {\"kind\": 2, "
              "\"format\": \"jpeg\", \"width\": 64, \"height\": 48, \"info\": 0, \"bytes\": " +
              std::to_string(jpeg.size()) + "}, \"objects\": null}\n",
          std::string("\"type\": \"selection\", \"version\": 770, \"preview\": null"),
          std::string("\"objects\": {\"entries\": 1, \"unreadable\": 0, \"classes\": "
                      "{\"GSMemPicData\": 1}}}\n"),
          std::string("\"type\": \"unknown\", \"version\": null, \"preview\": null")})
        EXPECT_NE(r.out.find(said), std::string::npos) << said << " in " << r.out;

    // A class name is shown only as a short, printable identifier: the record's name replaced by
    // a long one, by one with an escape sequence, or by bytes that are no UTF-8, is "<invalid>".
    const Bytes v3 = readFile(path("v3.etd"));
    const std::string known = "GSMemPicData";
    const auto at = std::search(v3.begin(), v3.end(), known.begin(), known.end());
    uint32_t table = 0; // the table lies behind the body, as far as the 4 bytes at 24 say
    for (int i = 24; i < 28; ++i)
        table = table << 8 | v3[static_cast<size_t>(i)];
    for (const std::string& name : {std::string(1 << 20, 'N'), std::string("A\x1b]0;x\x07"),
                                    std::string("\xff\xfe"), std::string(65, 'L')}) {
        Bytes changed(v3.begin(), at);
        changed.insert(changed.end(), name.begin(), name.end());
        changed.insert(changed.end(), at + static_cast<long>(known.size()), v3.end());
        auto put = [&](size_t offset, size_t value) { // big-endian
            for (size_t i = 0; i < 4; ++i)
                changed[offset + i] = static_cast<unsigned char>(value >> (24 - 8 * i));
        };
        put(static_cast<size_t>(at - v3.begin() - 4), name.size() + 1); // its NUL counted
        put(24, table + name.size() - known.size());
        writeFile(path("named.etd"), changed);
        const std::string out = expectRun("info --json -- @named.etd", 0).out;
        EXPECT_EQ(out.substr(std::min(out.size(), out.find("\"objects\""))),
                  "\"objects\": {\"entries\": 1, \"unreadable\": 0, \"classes\": {\"<invalid>\": "
                  "1}}}\n");
    }

    // In text, a file name cannot start a line of its own, nor speak to the terminal.
    std::filesystem::copy_file(path("doc.etd"), path("two\nlines.etd"));
    EXPECT_NE(expectRun({"info", path("two\nlines.etd")}, 0)
                  .out.find("two\\nlines.etd: document, version 2.0, preview jpeg"),
              std::string::npos);
    expectRun(std::vector<std::string>{"info", "a\nb\x1b]0;title\x07\xff.etd"}, 2,
              "a\\nb\\x1b]0;title\\x07\\xff.etd: ");
}

namespace {

// Saves that fail: the document doc.etd stays as it was, and no output or temporary file is left.
class FailedSaves : public ToolTest {
protected:
    // Rows of a command line, its exit status and what its stderr says.
    void expectEach(const std::string& setup,
                    const std::vector<std::tuple<std::string, int, std::string>>& rows) {
        const Bytes document = readFile(path("doc.etd"));
        inputs.insert("doc.etd");
        for (const auto& [line, status, said] : rows) {
            expectRun(line, status, said, setup);
            EXPECT_EQ(readFile(path("doc.etd")), document) << line;
            EXPECT_EQ(strays(), "") << line;
        }
    }
};

} // namespace

TEST_F(FailedSaves, NothingToWriteGivesStatus1) {
    expectRun("create @pic.jpg @doc.etd", 0);
    expectRun("create --selection @pic.jpg @sel.etd", 0);
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
    expectEach("", {{"extract @sel.etd @out.jpg", 1, "sel.etd: "},
                    {"extract @pic.png @out.jpg", 1, "pic.png: "},
                    {"create @text.txt @new.etd", 1, "text.txt: "},
                    {"create @huge.jpg @new.etd", 1, "huge.jpg: "},
                    {"create --backup @text.txt @doc.etd", 1, "text.txt: "},
                    {"convert @empty.etd @doc.etd", 1, "empty.etd: no preview"},
                    {"convert @v4.etd @doc.etd", 1, "v4.etd: version 4."},
                    {"convert @pic.png @new.etd", 1, "pic.png: "}});

    writeFile(path("out.jpg"), {1, 2, 3}); // replaced whole, with nothing left beside it
    expectRun("extract @doc.etd @out.jpg", 0);
    EXPECT_EQ(readFile(path("out.jpg")), jpeg);
    EXPECT_EQ(strays({"out.jpg"}), "");
}

// Under a file-size limit a write fails half-way as any other does (2), in place or not.
TEST_F(FailedSaves, AWriteThatFailsHalfWayGivesStatus2) {
    const Bytes big = samples::encodeJPEG(samples::drawLandscape(800, 600, false), 95);
    ASSERT_GT(big.size(), 16384u) << "must exceed the limit below";
    writeFile(path("big.jpg"), big);
    inputs.insert("big.jpg");
    expectRun("create @big.jpg @doc.etd", 0);
    expectEach("ulimit -f 8", {{"create @big.jpg @new.etd", 2, "File too large"},
                               {"create @big.jpg @doc.etd", 2, "File too large"},
                               {"convert @doc.etd @new.etd", 2, "File too large"},
                               {"convert @doc.etd @doc.etd", 2, "doc.etd: cannot write"},
                               {"extract @doc.etd @new.jpg", 2, "File too large"}});
}

// The backup is the old document under "name~.ext" ("name~" without an extender), byte for byte;
// a standing backup of that name is replaced, the framework's other backup name ("name.extbak")
// is cleared away, and without --backup the backup stands as it was.
TEST_F(CommandLine, CreateBackupKeepsThePreviousDocument) {
    expectRun("create @pic.jpg @doc.etd", 0);
    expectRun("create @pic.jpg @plain", 0);
    writeFile(path("doc.etdbak"), {1, 2, 3});
    Bytes backup;
    for (const auto& [line, name, backupName, backs] :
         {std::tuple{"create --backup --version 2.0 @pic.png @doc.etd", "doc.etd", "doc~.etd",
                     true},
          {"create --backup @pic.jpg @doc.etd", "doc.etd", "doc~.etd", true},
          {"create --version 1.0 @pic.png @doc.etd", "doc.etd", "doc~.etd", false},
          {"create --backup @pic.png @plain", "plain", "plain~", true}}) {
        const Bytes before = readFile(path(name));
        expectRun(line, 0);
        if (backs) backup = before;
        EXPECT_NE(readFile(path(name)), before) << line;
        EXPECT_EQ(readFile(path(backupName)), backup) << line;
    }
    EXPECT_EQ(strays({"doc.etd", "doc~.etd", "plain", "plain~"}), "");
}

// Through a symbolic link the document it leads to is replaced and the link stays a link; a
// dangling link gets the file it names, as `>` would make it, for create and extract.
TEST_F(CommandLine, SavesReplaceTheFileNotTheLinkToIt) {
    expectRun("create @pic.jpg @doc.etd", 0);
    std::filesystem::create_symlink("doc.etd", path("link.etd"));
    std::filesystem::create_symlink("made.etd", path("dangling.etd"));
    std::filesystem::create_symlink("made.png", path("dangling.png"));
    expectRun("create @pic.png @link.etd", 0);
    expectRun("create @pic.png @dangling.etd", 0);
    expectRun("extract @dangling.etd @dangling.png", 0);
    for (const char* link : {"link.etd", "dangling.etd", "dangling.png"})
        EXPECT_TRUE(std::filesystem::is_symlink(path(link))) << link;
    EXPECT_EQ(expectRun("extract @doc.etd -", 0).outBytes(), png);
    EXPECT_EQ(readFile(path("made.png")), png);
}

TEST_F(CommandLine, OptionsFilesAndOutputFailuresAsOtherProgramsHaveThem) {
    expectRun("create @pic.jpg @-odd.etd", 0);
    const std::string in = "cd '" + folder.root() + "'", full = "exec >/dev/full";
    for (const auto& [setup, line, status, said] :
         {std::tuple{in, "thumbnail -s128 -- -odd.etd a.png", 0, ""},
          {in, "thumbnail --si=64 file://@%2Dodd.etd -s 32 b.png", 0, ""},
          {in, "info --json file://localhost@-odd.etd", 0, ""},
          {in, "info https://example.org/x.etd", 2, "only file:// URIs"},
          {in, "extract -odd.etd c.jpg", 2, "unknown option -o"},
          {full, "info @-odd.etd", 2, "write error"},
          {full, "--help", 2, "write error"},
          {full, "cache --help", 2, "write error"}})
        expectRun(line, status, said, setup);
    EXPECT_GT(readFile(path("a.png")).size(), 0u);
    EXPECT_GT(readFile(path("b.png")).size(), 0u);
}

TEST_F(CommandLine, UsageAndInputErrorsGiveStatus2AndWriteNothing) {
    expectRun("create @pic.jpg @doc.etd", 0);
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
        {"DOC", "@doc.etd"},       {"JPG", "@pic.jpg"}, {"OUT", "@out.png"},
        {"MISSING", "@none.etd"},  {"DIR", "@."},       {"NOWHERE", "@no/such/out.png"},
        {"LOCKED", "@locked.etd"}, {"FIFO", "@fifo"}};
    ASSERT_EQ(::mkfifo(path("fifo").c_str(), 0600), 0); // no writer: opening it would wait
    std::istringstream list(cases);
    for (std::string line, args; std::getline(list, line, '|'); args.clear()) {
        std::istringstream words(line);
        for (std::string w; words >> w;)
            args += (files.count(w) ? files.at(w) : w) + " ";
        EXPECT_NE(expectRun(args, 2).err, "") << line << ": no message";
        EXPECT_EQ(strays({"doc.etd", "locked.etd", "fifo"}), "") << line;
    }
}

TEST_F(CommandLine, HelpShowsAnExample) {
    for (std::string command : {"info", "extract", "create", "convert", "thumbnail", "cache"})
        EXPECT_NE(expectRun(command + " --help", 0).out.find("Example: ember-tide " + command),
                  std::string::npos);
    const std::string help = expectRun("--help", 0).out;
    for (const char* said : {"Example", "thumbnail", "cache", "convert"})
        EXPECT_NE(help.find(said), std::string::npos) << help;
    expectRun("--version", 0);
}
