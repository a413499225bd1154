// ThumbnailCommandTest.cpp - `ember-tide thumbnail`, the desktop thumbnailer's contract, by
// running the built tool. Its usage errors are in CommandLineTest.
#include "RunTool.h"
#include "SampleImages.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <set>

using namespace testing_support;

namespace {

// doc.etd: a 64 x 48 JPEG, made by `create`; alpha.etd: a transparent 40 x 30 PNG.
class ThumbnailCommand : public testing::Test {
protected:
    void SetUp() override {
        jpeg = samples::encodeJPEG(samples::drawLandscape(64, 48, false), 85);
        png = samples::encodePNG(samples::drawLandscape(40, 30, true));
        writeFile(path("pic.jpg"), jpeg);
        writeFile(path("pic.png"), png);
        ASSERT_EQ(runTool({"create", path("pic.jpg"), path("doc.etd")}).status, 0);
        ASSERT_EQ(runTool({"create", path("pic.png"), path("alpha.etd")}).status, 0);
    }

    std::string path(const std::string& name) const { return folder.path(name); }
    void addDocument(const std::string& name, const Bytes& picture, int kind, int w, int h) {
        writeDocument(path(name), picture, kind, w, h);
        inputs.insert(name);
    }

    // Everything in the folder besides the inputs: no output, no temporary file.
    std::string strays() const {
        std::string list;
        for (auto& e : std::filesystem::directory_iterator(folder.root()))
            if (!inputs.count(e.path().filename().string()))
                list += e.path().filename().string() + " ";
        return list;
    }

    TempFolder folder;
    Bytes jpeg, png;
    std::set<std::string> inputs = {"pic.jpg", "pic.png", "doc.etd", "alpha.etd"};
};

} // namespace

TEST_F(ThumbnailCommand, SizeFollowsTheDocument) {
    addDocument("tall.etd", jpeg, 2, 100, 400);
    addDocument("unsized.etd", png, 3, 0, 0);
    struct Case {
        std::vector<std::string> options;
        const char* file;
        int width, height;
        bool alpha;
    } cases[] = {
        {{}, "doc.etd", 256, 192, false}, // the default size; a small picture grows
        {{"--size=64"}, "doc.etd", 64, 48, false}, {{"-s", "100"}, "alpha.etd", 100, 75, true},
        {{}, "tall.etd", 64, 256, false},    // the document's shape, not the picture's
        {{}, "unsized.etd", 256, 192, true}, // no stated size: the picture's own
    };
    for (const Case& c : cases) {
        std::vector<std::string> args = {"thumbnail"};
        args.insert(args.end(), c.options.begin(), c.options.end());
        args.insert(args.end(), {path(c.file), path("out.png")});
        SCOPED_TRACE(c.file + (c.options.empty() ? "" : " " + c.options[0]));
        ToolRun r = runTool(args);
        ASSERT_EQ(r.status, 0) << r.err;
        EXPECT_EQ(r.err, "");
        samples::Picture out = samples::decodePNG(readFile(path("out.png")));
        EXPECT_EQ(out.width, c.width) << "(0: not a whole PNG)";
        EXPECT_EQ(out.height, c.height);
        EXPECT_EQ(out.channels, c.alpha ? 4 : 3) << "RGB for opaque pictures, else RGBA";
        std::filesystem::remove(path("out.png"));
    }
    EXPECT_EQ(strays(), "") << "left beside the output";

    ToolRun toStdout = runTool({"thumbnail", "--size", "32", path("doc.etd"), "-"});
    EXPECT_EQ(toStdout.status, 0) << toStdout.err;
    samples::Picture out = samples::decodePNG(Bytes(toStdout.out.begin(), toStdout.out.end()));
    EXPECT_EQ(out.width, 32) << "stdout holds no whole PNG";
    EXPECT_EQ(out.height, 24);
}

TEST_F(ThumbnailCommand, NoPictureMeansNoOutput) {
    // Undecodable pictures of either kind; which bytes a decoder refuses is RendererTest's part.
    ASSERT_EQ(runTool({"create", "--selection", path("pic.jpg"), path("sel.etd")}).status, 0);
    inputs.insert("sel.etd");
    const std::string noise = "this is no picture at all, only words";
    addDocument("words-as-png.etd", Bytes(noise.begin(), noise.end()), 3, 64, 48);
    addDocument("half-a-jpeg.etd", Bytes(jpeg.begin(), jpeg.begin() + jpeg.size() / 2), 2, 64, 48);
    writeFile(path("out.png"), {1, 2, 3}); // an existing OUT is left as it was
    inputs.insert("out.png");
    for (const char* file : {"sel.etd", "pic.png", "words-as-png.etd", "half-a-jpeg.etd"}) {
        ToolRun r = runTool({"thumbnail", path(file), path("out.png")});
        EXPECT_EQ(r.status, 1) << file << ": " << r.err;
        EXPECT_NE(r.err.find("ember-tide: " + path(file) + ": "), std::string::npos)
            << file << ": the message names the file: " << r.err;
        EXPECT_EQ(readFile(path("out.png")), (Bytes{1, 2, 3})) << file;
        EXPECT_EQ(strays(), "") << file << ": written although there was no picture";
    }
}
