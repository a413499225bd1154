// ThumbnailCommandTest.cpp - `ember-tide thumbnail`, the desktop thumbnailer's contract, by
// running the built tool. Its usage errors are in CommandLineTest.
#include "RunTool.h"
#include "SampleImages.h"

#include <fcntl.h>
#include <filesystem>
#include <sys/stat.h>
#include <unistd.h>

using namespace testing_support;

namespace {

// doc.etd: the 64 x 48 JPEG, made by `create`; alpha.etd: the transparent 40 x 30 PNG.
class ThumbnailCommand : public ToolTest {
protected:
    void SetUp() override {
        expectRun("create @pic.jpg @doc.etd", 0);
        expectRun("create @pic.png @alpha.etd", 0);
        inputs.insert({"doc.etd", "alpha.etd"});
    }
};

} // namespace

TEST_F(ThumbnailCommand, SizeFollowsTheDocument) {
    writeDocument(path("tall.etd"), jpeg, 2, 100, 400);
    writeDocument(path("unsized.etd"), png, 3, 0, 0);
    inputs.insert({"tall.etd", "unsized.etd"});
    // Width, height and channels (RGB for opaque pictures, else RGBA; 0 x 0: not a whole PNG).
    for (const auto& [line, expected] :
         {std::pair{"@doc.etd", "256 192 3"}, // the default size; a small picture grows
          {"--size=64 @doc.etd", "64 48 3"},
          {"-s 100 @alpha.etd", "100 75 4"},
          {"@tall.etd", "64 256 3"},        // the document's shape, not the picture's
          {"@unsized.etd", "256 192 4"}}) { // no stated size: the picture's own
        ToolRun r = expectRun("thumbnail " + std::string(line) + " @out.png", 0);
        EXPECT_EQ(r.err, "");
        samples::Picture out = samples::decodePNG(readFile(path("out.png")));
        EXPECT_EQ(std::to_string(out.width) + " " + std::to_string(out.height) + " " +
                      std::to_string(out.channels),
                  expected)
            << line;
        std::filesystem::remove(path("out.png"));
    }
    EXPECT_EQ(strays(), "") << "left beside the output";
}

TEST_F(ThumbnailCommand, NoPictureLeavesAnExistingOutEmptyAndMakesNoNewOne) {
    // Undecodable pictures of either kind; which bytes a decoder refuses is RendererTest's part.
    expectRun("create --selection @pic.jpg @sel.etd", 0);
    const std::string noise = "this is no picture at all, only words";
    writeDocument(path("words-as-png.etd"), Bytes(noise.begin(), noise.end()), 3);
    writeDocument(path("half-a-jpeg.etd"), Bytes(jpeg.begin(), jpeg.begin() + jpeg.size() / 2));
    inputs.insert({"sel.etd", "words-as-png.etd", "half-a-jpeg.etd", "out.png"});
    for (const char* file : {"sel.etd", "pic.png", "words-as-png.etd", "half-a-jpeg.etd"}) {
        writeFile(path("out.png"), {1, 2, 3}); // no older picture may stay beside a failure
        // The message names the file; OUT is emptied, and a new OUT is not made.
        expectRun({"thumbnail", path(file), path("out.png")}, 1,
                  "ember-tide: " + path(file) + ": ");
        expectRun({"thumbnail", path(file), path("new.png")}, 1);
        EXPECT_EQ(readFile(path("out.png")), Bytes{}) << file;
        EXPECT_EQ(strays(), "") << file << ": a file beside OUT";
    }
    // OUT naming FILE would empty the document: refused, FILE untouched.
    const Bytes document = readFile(path("doc.etd"));
    std::filesystem::create_hard_link(path("doc.etd"), path("same.etd"));
    expectRun("thumbnail @doc.etd @same.etd", 2);
    EXPECT_EQ(readFile(path("doc.etd")), document);
}

// As `>` writes it: through the inode that OUT names, which a reader that opened OUT before the
// run (a thumbnail service does) then reads; what OUT is stays what it was.
TEST_F(ThumbnailCommand, OutIsWrittenInPlace) {
    writeFile(path("kept.png"), {1, 2, 3});
    ::chmod(path("kept.png").c_str(), 0604);
    writeFile(path("target.png"), {});
    std::filesystem::create_symlink(path("target.png"), path("link.png"));
    ASSERT_EQ(::mkfifo(path("fifo").c_str(), 0600), 0);
    const mode_t umask = ::umask(027);
    struct Case {
        const char* out;
        const char* reader; // opened before the run (where it exists), read after it
        mode_t mode;        // OUT's type and permissions afterwards; 0: OUT is standard output
    } cases[] = {
        {"kept.png", "kept.png", S_IFREG | 0604},   // mode and inode kept
        {"link.png", "target.png", S_IFLNK | 0777}, // the link stays, its target gets the PNG
        {"fifo", "fifo", S_IFIFO | 0600},           // written to, not replaced
        {"new.png", "new.png", S_IFREG | 0640},     // 0666 less the umask
        {"-", "", 0},                               // standard output itself
        {"/dev/stdout", "", 0},                     // likewise, never reopened
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.out);
        const std::string out = c.mode ? path(c.out) : c.out;
        int reader = c.mode ? ::open(path(c.reader).c_str(), O_RDONLY | O_NONBLOCK) : -1;
        ToolRun r = expectRun({"thumbnail", "-s", "32", path("doc.etd"), out}, 0);
        if (c.mode && reader < 0) reader = ::open(path(c.reader).c_str(), O_RDONLY);
        Bytes written(r.out.begin(), r.out.end());
        if (reader >= 0) {
            written.resize(65536); // a pipe's buffer holds the small PNG whole
            written.resize(static_cast<size_t>(std::max(0L, ::read(reader, &written[0], 65536))));
            ::close(reader);
        }
        EXPECT_EQ(samples::decodePNG(written).width, 32) << "(0: no whole PNG)";
        struct stat st {};
        EXPECT_EQ(c.mode ? ::lstat(out.c_str(), &st) : 0, 0);
        EXPECT_EQ(st.st_mode, c.mode);
    }
    ::umask(umask);
}
