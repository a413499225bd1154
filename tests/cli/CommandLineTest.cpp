// CommandLineTest.cpp - the contract of the ember-tide command line, by running the built tool.
#include "RunTool.h"
#include "SampleImages.h"
#include "TestSupport.h"

#include <gtest/gtest.h>

#include <filesystem>

using namespace testing_support;

namespace {

// A real JPEG and PNG, and documents made from them by `create`.
class CommandLine : public testing::Test {
protected:
    void SetUp() override {
        jpeg = samples::encodeJPEG(samples::drawLandscape(64, 48, false), 80);
        png = samples::encodePNG(samples::drawLandscape(40, 30, true));
        writeFile(folder.path("pic.jpg"), jpeg);
        writeFile(folder.path("pic.png"), png);
    }
    std::string path(const std::string& name) const { return folder.path(name); }
    std::vector<std::string> leftovers() const {
        std::vector<std::string> names;
        for (auto& e : std::filesystem::directory_iterator(folder.root()))
            names.push_back(e.path().filename().string());
        return names;
    }

    TempFolder folder;
    Bytes jpeg, png;
};

} // namespace

TEST_F(CommandLine, CreateThenExtractGivesTheSameBytesInEveryLayout) {
    const char* versions[] = {"1.0", "2.0", "3.0", "3.2"};
    for (const char* version : versions)
        for (std::string form : {"long", "byte"})
            for (std::string store : {"inline", "record", "system-record"})
                for (std::string image : {"pic.jpg", "pic.png"}) {
                    bool byteAllowed = version[0] == '3';
                    SCOPED_TRACE(std::string(version) + " " + form + " " + store + " " + image);
                    ToolRun c = runTool({"create", "--version", version, "--form", form, "--store",
                                         store, path(image), path("doc.etd")});
                    if (form == "byte" && !byteAllowed) {
                        EXPECT_EQ(c.status, 2) << "byte form before version 3 is a usage error";
                        continue;
                    }
                    ASSERT_EQ(c.status, 0) << c.err;
                    ToolRun x = runTool({"extract", path("doc.etd"), path("out.bin")});
                    ASSERT_EQ(x.status, 0) << x.err;
                    EXPECT_EQ(readFile(path("out.bin")), image == "pic.jpg" ? jpeg : png);
                    ToolRun i = runTool({"info", "--json", path("doc.etd")});
                    ASSERT_EQ(i.status, 0);
                    bool isJpeg = image == "pic.jpg";
                    std::string expect = std::string("\"preview\": {\"kind\": ") +
                                         (isJpeg ? "2, \"format\": \"jpeg\", \"width\": 64, \"height\": 48"
                                                 : "3, \"format\": \"png\", \"width\": 40, \"height\": 30");
                    EXPECT_NE(i.out.find(expect), std::string::npos) << i.out;
                }
}

TEST_F(CommandLine, InfoDescribesEveryKindOfFile) {
    runTool({"create", "--version", "2.0", path("pic.jpg"), path("doc.etd")});
    runTool({"create", "--selection", path("pic.png"), path("sel.etd")});
    ToolRun r = runTool({"info", "--json", path("doc.etd"), path("sel.etd"), path("pic.jpg"),
                         path("missing.etd")});
    EXPECT_EQ(r.status, 2) << "a file that cannot be opened gives status 2";
    EXPECT_NE(r.out.find("{\"file\": \"" + path("doc.etd") +
                         "\", \"type\": \"document\", \"version\": 512, \"preview\": {\"kind\": 2, "
                         "\"format\": \"jpeg\", \"width\": 64, \"height\": 48, \"info\": 0, \"bytes\": " +
                         std::to_string(jpeg.size()) + "}}\n"),
              std::string::npos)
        << r.out;
    EXPECT_NE(r.out.find("\"type\": \"selection\", \"version\": 770, \"preview\": null"), std::string::npos);
    EXPECT_NE(r.out.find("\"type\": \"unknown\", \"version\": null, \"preview\": null"), std::string::npos);
    EXPECT_NE(r.err.find("ember-tide: " + path("missing.etd") + ": cannot open"), std::string::npos)
        << r.err;

    ToolRun text = runTool({"info", path("doc.etd")});
    EXPECT_EQ(text.status, 0);
    EXPECT_NE(text.out.find("document, version 2.0, preview jpeg"), std::string::npos) << text.out;
    EXPECT_EQ(runTool({"info", folder.root()}).status, 2) << "a folder is not a readable file";
}

TEST_F(CommandLine, ExtractWritesAllOrNothing) {
    runTool({"create", path("pic.jpg"), path("doc.etd")});
    runTool({"create", "--selection", path("pic.jpg"), path("sel.etd")});

    ToolRun none = runTool({"extract", path("sel.etd"), path("out.jpg")});
    EXPECT_EQ(none.status, 1);
    EXPECT_FALSE(std::filesystem::exists(path("out.jpg")));
    EXPECT_EQ(runTool({"extract", path("pic.png"), path("out.jpg")}).status, 1);

    ToolRun toStdout = runTool({"extract", path("doc.etd"), "-"});
    EXPECT_EQ(toStdout.status, 0);
    EXPECT_EQ(Bytes(toStdout.out.begin(), toStdout.out.end()), jpeg);

    EXPECT_EQ(runTool({"extract", path("doc.etd"), path("no/such/folder/out.jpg")}).status, 2);
    EXPECT_EQ(runTool({"extract", path("missing.etd"), path("out.jpg")}).status, 2);
    EXPECT_EQ(runTool({"extract", path("doc.etd")}).status, 2);
    EXPECT_EQ(runTool({"extract", "--bogus", path("doc.etd"), path("x")}).status, 2);

    // Replacing an existing output leaves no temporary file behind.
    writeFile(path("out.jpg"), {1, 2, 3});
    EXPECT_EQ(runTool({"extract", path("doc.etd"), path("out.jpg")}).status, 0);
    EXPECT_EQ(readFile(path("out.jpg")), jpeg);
    for (const auto& name : leftovers())
        EXPECT_TRUE(name == "pic.jpg" || name == "pic.png" || name == "doc.etd" ||
                    name == "sel.etd" || name == "out.jpg")
            << "stray file " << name;
}

TEST_F(CommandLine, CreateRefusesWhatIsNoImage) {
    writeFile(path("text.txt"), {'h', 'e', 'l', 'l', 'o'});
    EXPECT_EQ(runTool({"create", path("text.txt"), path("doc.etd")}).status, 1);
    EXPECT_FALSE(std::filesystem::exists(path("doc.etd")));
    EXPECT_EQ(runTool({"create", "--version", "4.0", path("pic.jpg"), path("doc.etd")}).status, 2);
    EXPECT_EQ(runTool({"create", "--version", "banana", path("pic.jpg"), path("doc.etd")}).status, 2);
    EXPECT_EQ(runTool({"create", "--store", "nowhere", path("pic.jpg"), path("doc.etd")}).status, 2);
    EXPECT_EQ(runTool({"create", path("missing.jpg"), path("doc.etd")}).status, 2);
}

TEST_F(CommandLine, HelpShowsAnExample) {
    for (std::vector<std::string> args : {std::vector<std::string>{"--help"}, {"info", "--help"},
                                          {"extract", "--help"}, {"create", "--help"}}) {
        ToolRun r = runTool(args);
        EXPECT_EQ(r.status, 0) << args[0];
        EXPECT_NE(r.out.find("Example"), std::string::npos) << args[0];
    }
    EXPECT_EQ(runTool({"--version"}).status, 0);
    EXPECT_EQ(runTool({"frobnicate"}).status, 2);
    EXPECT_EQ(runTool({}).status, 2);
}
