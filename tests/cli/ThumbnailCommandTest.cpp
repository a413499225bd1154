// ThumbnailCommandTest.cpp - `ember-tide thumbnail`, the desktop thumbnailer's contract, by
// running the built tool.
#include "EmberTideDocumentWriter.h"
#include "RunTool.h"
#include "SampleImages.h"
#include "TestSupport.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <set>
#include <sys/stat.h>
#include <unistd.h>

using namespace testing_support;

namespace {

// doc.etd: a 64 x 48 JPEG, made by `create`; alpha.etd: a transparent 40 x 30 PNG.
class ThumbnailCommand : public testing::Test {
protected:
    void SetUp() override {
        jpeg = samples::encodeJPEG(samples::drawLandscape(64, 48, false), 85);
        writeFile(path("pic.jpg"), jpeg);
        writeFile(path("pic.png"), samples::encodePNG(samples::drawLandscape(40, 30, true)));
        ASSERT_EQ(runTool({"create", path("pic.jpg"), path("doc.etd")}).status, 0);
        ASSERT_EQ(runTool({"create", path("pic.png"), path("alpha.etd")}).status, 0);
        inputs = names();
    }

    std::string path(const std::string& name) const { return folder.path(name); }

    // A document whose stated size is `size`, whatever the picture's own.
    void writeDocument(const std::string& name, const Bytes& picture, int kind, GSTSize<int> size) {
        EmberTidePreview preview;
        preview.bytes = toDynaArray(picture);
        preview.kind = kind;
        preview.size = size;
        MemoryFile m;
        ASSERT_EQ(EmberTideWriteDocument(&m.file, preview, EmberTideDocumentOptions()), 0);
        writeFile(path(name), m.bytes());
        inputs.insert(name);
    }

    std::set<std::string> names() const {
        std::set<std::string> all;
        for (auto& e : std::filesystem::directory_iterator(folder.root()))
            all.insert(e.path().filename().string());
        return all;
    }

    // Everything in the folder besides the inputs: no output, no temporary file.
    std::string strays() const {
        std::string list;
        for (const auto& name : names())
            if (!inputs.count(name)) list += name + " ";
        return list;
    }

    TempFolder folder;
    Bytes jpeg;
    std::set<std::string> inputs;
};

} // namespace

TEST_F(ThumbnailCommand, SizeFollowsTheDocument) {
    writeDocument("tall.etd", jpeg, 2, {100, 400});
    writeDocument("line.etd", jpeg, 2, {1000, 1});
    writeDocument("unsized.etd", samples::encodePNG(samples::drawLandscape(40, 30, true)), 3,
                  {0, 0});
    struct Case {
        std::vector<std::string> options;
        const char* file;
        int width, height;
        bool alpha;
    } cases[] = {
        {{}, "doc.etd", 256, 192, false}, // the default size; a small picture grows
        {{"-s", "128"}, "doc.etd", 128, 96, false},
        {{"--size=64"}, "doc.etd", 64, 48, false},
        {{"--size", "100"}, "alpha.etd", 100, 75, true},
        {{}, "tall.etd", 64, 256, false},    // the document's shape, not the picture's
        {{}, "line.etd", 256, 1, false},     // never less than one pixel
        {{}, "unsized.etd", 256, 192, true}, // no stated size: the picture's own
    };
    for (const Case& c : cases) {
        std::vector<std::string> args = {"thumbnail"};
        args.insert(args.end(), c.options.begin(), c.options.end());
        args.insert(args.end(), {path(c.file), path("out.png")});
        std::string what = c.file + (c.options.empty() ? "" : " " + c.options[0]);
        ToolRun r = runTool(args);
        ASSERT_EQ(r.status, 0) << what << ": " << r.err;
        EXPECT_EQ(r.err, "") << what;
        samples::Picture png = samples::decodePNG(readFile(path("out.png")));
        EXPECT_EQ(png.width, c.width) << what << " (0: not a whole PNG)";
        EXPECT_EQ(png.height, c.height) << what;
        EXPECT_EQ(png.channels, c.alpha ? 4 : 3) << what << ": RGB for opaque pictures, else RGBA";
        std::filesystem::remove(path("out.png"));
    }
    EXPECT_EQ(strays(), "") << "left beside the output";

    ToolRun toStdout = runTool({"thumbnail", "-s", "32", path("doc.etd"), "-"});
    EXPECT_EQ(toStdout.status, 0) << toStdout.err;
    samples::Picture png = samples::decodePNG(Bytes(toStdout.out.begin(), toStdout.out.end()));
    EXPECT_EQ(png.width, 32) << "stdout holds no whole PNG";
    EXPECT_EQ(png.height, 24);
}

TEST_F(ThumbnailCommand, NoPictureMeansNoOutput) {
    ASSERT_EQ(runTool({"create", "--selection", path("pic.jpg"), path("sel.etd")}).status, 0);
    inputs.insert("sel.etd");
    writeFile(path("text.txt"), {'E', 'm', 'b', 'e', 'r', '\n'});
    inputs.insert("text.txt");
    const std::string noise = "this is no picture at all, only words";
    writeDocument("words-as-jpeg.etd", Bytes(noise.begin(), noise.end()), 2, {64, 48});
    writeDocument("words-as-png.etd", Bytes(noise.begin(), noise.end()), 3, {64, 48});
    writeDocument("jpeg-as-png.etd", jpeg, 3, {64, 48});
    writeDocument("half-a-jpeg.etd", Bytes(jpeg.begin(), jpeg.begin() + jpeg.size() / 2), 2,
                  {64, 48});

    for (const char* file : {"sel.etd", "pic.png", "text.txt", "words-as-jpeg.etd",
                             "words-as-png.etd", "jpeg-as-png.etd", "half-a-jpeg.etd"}) {
        ToolRun r = runTool({"thumbnail", path(file), path("out.png")});
        EXPECT_EQ(r.status, 1) << file << ": " << r.err;
        EXPECT_NE(r.err.find("ember-tide: " + path(file) + ": "), std::string::npos)
            << file << ": the message names the file: " << r.err;
        EXPECT_EQ(strays(), "") << file << ": written although there was no picture";
    }

    // An existing OUT is left as it was.
    writeFile(path("out.png"), {1, 2, 3});
    inputs.insert("out.png");
    EXPECT_EQ(runTool({"thumbnail", path("half-a-jpeg.etd"), path("out.png")}).status, 1);
    EXPECT_EQ(readFile(path("out.png")), (Bytes{1, 2, 3}));
    EXPECT_EQ(strays(), "");
}

TEST_F(ThumbnailCommand, UsageAndInputErrors) {
    const std::string doc = path("doc.etd"), out = path("out.png");
    std::vector<std::vector<std::string>> usage = {
        {"-s", "0", doc, out},
        {"-s", "abc", doc, out},
        {"-s", "12px", doc, out},
        {"-s", "-5", doc, out},
        {"--size=", doc, out},
        {"--size=0", doc, out},
        {doc, out, "-s"},
        {doc},
        {},
        {doc, out, path("extra")},
        {"--bogus", doc, out},
        {path("missing.etd"), out},
        {folder.root(), out},
        {doc, path("no/such/folder/out.png")},
    };
    if (geteuid() != 0) { // root reads any file
        writeFile(path("locked.etd"), readFile(doc));
        inputs.insert("locked.etd");
        chmod(path("locked.etd").c_str(), 0);
        usage.push_back({path("locked.etd"), out});
    }
    for (const auto& args : usage) {
        std::vector<std::string> all = {"thumbnail"};
        all.insert(all.end(), args.begin(), args.end());
        std::string what;
        for (const auto& a : args)
            what += a + " ";
        ToolRun r = runTool(all);
        EXPECT_EQ(r.status, 2) << what << r.err;
        EXPECT_NE(r.err, "") << what << ": no message";
        EXPECT_EQ(strays(), "") << what;
    }

    ToolRun help = runTool({"thumbnail", "--help"});
    EXPECT_EQ(help.status, 0);
    EXPECT_NE(help.out.find("Example"), std::string::npos) << help.out;
}
