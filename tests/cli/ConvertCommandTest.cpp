// ConvertCommandTest.cpp - `ember-tide convert`, and the safe save it shares with `create`, by
// running the built tool. The results are read back both through the tool (extract, info) and
// with the reader itself, which also tells how the picture was stored and in which form.
#include "EmberTideDocumentWriter.h"
#include "GSFile.h"
#include "GSGetThumbnail.h"
#include "GSMemPicData.h"
#include "GSTagWrite.h"
#include "RunTool.h"
#include "SampleImages.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <regex>
#include <set>

using namespace testing_support;

namespace {

// What the reader finds in a file, selections included.
struct ReadBack {
    Bytes bytes;
    int kind = 0;
    int info = -1;
    GSTSize<int> size{-1, -1};
    EmberTideDocumentFacts facts;
    int byteForm = -1; // 1 byte form, 0 long form, -1 no object table (before version 3)
};

ReadBack readBack(const std::string& path) {
    ReadBack r;
    GSFileSpec spec(GSString(path.c_str(), -1, GSString::kUTF8));
    {
        GSFile file(spec, 0);
        if (file.open()) return r;
        GSDynaArray<unsigned char> bytes;
        EmberTideReadPreview(&file, &bytes, &r.kind, &r.info, &r.size, &r.facts, true);
        r.bytes.assign(bytes.getData(), bytes.getData() + bytes.getSize());
    }
    GSFile file(spec, 0);
    short version = 0, merging = 0;
    if (file.open() == 0 && EmberTideDataReadHeader(&file, &version, &merging, nullptr) == 0 &&
        merging) {
        r.byteForm = file.getUse64Bit();
        file.stopObjectMergingRead();
    }
    return r;
}

const char* storeName(EmberTideDocumentFacts::PictureStore store) {
    switch (store) {
    case EmberTideDocumentFacts::kInline:
        return "inline";
    case EmberTideDocumentFacts::kRecord:
        return "record";
    case EmberTideDocumentFacts::kSystemRecord:
        return "system-record";
    default:
        return "none";
    }
}

// "type" and "version" of `info --json`, as "document 770".
std::string typeAndVersion(const std::string& path) {
    ToolRun r = runTool({"info", "--json", path});
    std::smatch m;
    if (!std::regex_search(r.out, m, std::regex("\"type\": \"(\\w+)\", \"version\": (\\w+)")))
        return "no info: " + r.out + r.err;
    return m[1].str() + " " + m[2].str();
}

// Runs the tool with writes limited to `blocks` blocks of the shell's ulimit unit and the
// signal of an oversized write ignored, so that a write beyond the limit fails with EFBIG.
ToolRun runToolWithFileSizeLimit(int blocks, const std::vector<std::string>& args) {
    TempFolder folder;
    std::vector<std::string> argv = {
        "sh", "-c", "trap '' XFSZ; ulimit -f " + std::to_string(blocks) + " && exec \"$@\"", "sh",
        ET_TOOL_PATH};
    argv.insert(argv.end(), args.begin(), args.end());
    return finishProcess(startProcess(argv, folder.path("out"), folder.path("err")),
                         folder.path("out"), folder.path("err"));
}

class ConvertCommand : public testing::Test {
protected:
    void SetUp() override {
        jpeg = samples::encodeJPEG(samples::drawLandscape(64, 48, false), 80);
        png = samples::encodePNG(samples::drawLandscape(40, 30, true));
        writeFile(path("pic.jpg"), jpeg);
        writeFile(path("pic.png"), png);
    }
    std::string path(const std::string& name) const { return folder.path(name); }
    // The names in the folder, apart from the pictures: outputs, backups or temporary files.
    std::string names() const {
        std::set<std::string> sorted;
        for (auto& e : std::filesystem::directory_iterator(folder.root()))
            sorted.insert(e.path().filename().string());
        std::string list;
        for (auto& n : sorted)
            if (n != "pic.jpg" && n != "pic.png") list += n + " ";
        return list;
    }
    Bytes extracted(const std::string& file) {
        ToolRun r = runTool({"extract", file, "-"});
        EXPECT_EQ(r.status, 0) << file << ": " << r.err;
        return Bytes(r.out.begin(), r.out.end());
    }

    TempFolder folder;
    Bytes jpeg, png;
};

struct Layout {
    const char* version;
    const char* form;
    int number;
    int byteForm;
};
const Layout kLayouts[] = {{"1.0", "long", 0x0100, -1}, {"2.0", "long", 0x0200, -1},
                           {"3.0", "long", 0x0300, 0},  {"3.0", "byte", 0x0300, 1},
                           {"3.2", "long", 0x0302, 0},  {"3.2", "byte", 0x0302, 1}};

} // namespace

TEST_F(ConvertCommand, EveryLayoutConvertsToEveryOtherWithTheSamePreview) {
    const char* stores[] = {"inline", "record", "system-record"};
    int n = 0;
    for (const Layout& from : kLayouts)
        for (const Layout& to : kLayouts) {
            // The stores and the two picture formats by turns, so that every pair sees records.
            std::string store = stores[n % 3];
            bool isPNG = (n / 3) % 2;
            ++n;
            SCOPED_TRACE(std::string(from.version) + " " + from.form + " -> " + to.version + " " +
                         to.form + ", " + store + (isPNG ? ", png" : ", jpeg"));
            ASSERT_EQ(runTool({"create", "--version", from.version, "--form", from.form, "--store",
                               store, path(isPNG ? "pic.png" : "pic.jpg"), path("in.etd")})
                          .status,
                      0);
            Bytes before = extracted(path("in.etd"));
            ToolRun c = runTool({"convert", "--version", to.version, "--form", to.form,
                                 path("in.etd"), path("out.etd")});
            ASSERT_EQ(c.status, 0) << c.err;
            EXPECT_EQ(c.err, "");
            EXPECT_EQ(extracted(path("out.etd")), before);
            EXPECT_EQ(before, isPNG ? png : jpeg);
            EXPECT_EQ(typeAndVersion(path("out.etd")), "document " + std::to_string(to.number));
            ReadBack r = readBack(path("out.etd"));
            EXPECT_EQ(storeName(r.facts.pictureStore), store) << "the picture's store is kept";
            EXPECT_EQ(r.byteForm, to.byteForm) << "the form asked for";
            EXPECT_EQ(r.kind, isPNG ? 3 : 2);
            EXPECT_EQ(r.size.width, isPNG ? 40 : 64);
        }

    // Without options: version 3.2 in the byte form, as `create` writes.
    ASSERT_EQ(runTool({"convert", path("in.etd"), path("default.etd")}).status, 0);
    EXPECT_EQ(typeAndVersion(path("default.etd")), "document 770");
    EXPECT_EQ(readBack(path("default.etd")).byteForm, 1);
}

TEST_F(ConvertCommand, KeepsWhatTheDocumentStates) {
    // A stated size that is not the picture's own and an information value are carried over
    // as they are.
    EmberTidePreview preview;
    preview.bytes = toDynaArray(jpeg);
    preview.infoValue = 7;
    preview.size = {100, 75};
    MemoryFile m;
    ASSERT_EQ(EmberTideWriteDocument(&m.file, preview, EmberTideDocumentOptions()), 0);
    writeFile(path("stated.etd"), m.bytes());
    ASSERT_EQ(runTool({"convert", "--version", "3.0", path("stated.etd"), path("out.etd")}).status,
              0);
    ToolRun i = runTool({"info", "--json", path("out.etd")});
    EXPECT_NE(i.out.find("\"width\": 100, \"height\": 75, \"info\": 7"), std::string::npos)
        << i.out;

    // A document that states no size (no information item) gets the picture's own: the writer
    // always states one, and 0 x 0 would make a one-pixel thumbnail.
    MemoryFile bare;
    ASSERT_EQ(EmberTideDataWriteHeader(&bare.file, 0x0200, false, false), 0);
    {
        GSTagWrite top(&bare.file);
        ASSERT_EQ(top.writeStart(13), 0);
        {
            GSTagWrite chunk(&bare.file);
            GSMemPicData picture;
            picture.kind = GSMemPicData::kPNGAlias; // read as PNG
            picture.dataSize = static_cast<int>(png.size());
            ASSERT_EQ(chunk.writeVersion(256), 0);
            ASSERT_EQ(chunk.writeStart(6), 0);
            ASSERT_EQ(picture.writeData(&bare.file), 0);
            ASSERT_EQ(bare.file.write(png.data(), static_cast<long>(png.size())), 0);
            ASSERT_EQ(chunk.writeEnd(), 0);
            ASSERT_EQ(chunk.writeEndTag(), 0);
        }
        ASSERT_EQ(top.writeEnd(), 0);
        ASSERT_EQ(top.writeEndTag(), 0);
    }
    writeFile(path("bare.etd"), bare.bytes());
    ToolRun before = runTool({"info", "--json", path("bare.etd")});
    ASSERT_NE(before.out.find("\"kind\": 3, \"format\": \"png\", \"width\": null"),
              std::string::npos)
        << before.out;
    ASSERT_EQ(runTool({"convert", path("bare.etd"), path("out.etd")}).status, 0);
    EXPECT_EQ(extracted(path("out.etd")), png);
    ToolRun after = runTool({"info", "--json", path("out.etd")});
    EXPECT_NE(after.out.find("\"kind\": 3, \"format\": \"png\", \"width\": 40, \"height\": 30"),
              std::string::npos)
        << after.out;
}

TEST_F(ConvertCommand, ASelectionStaysASelection) {
    ASSERT_EQ(runTool({"create", "--selection", "--store", "system-record", path("pic.png"),
                       path("sel.etd")})
                  .status,
              0);
    ASSERT_EQ(runTool({"convert", "--version", "2.0", path("sel.etd"), path("sel2.etd")}).status,
              0);
    EXPECT_EQ(typeAndVersion(path("sel2.etd")), "selection 512");
    // A selection's preview is never shown, so it is compared with the reader's help.
    ReadBack r = readBack(path("sel2.etd"));
    EXPECT_TRUE(r.facts.isSelection);
    EXPECT_EQ(r.bytes, png);
    EXPECT_EQ(r.facts.pictureStore, EmberTideDocumentFacts::kSystemRecord);
    EXPECT_EQ(runTool({"extract", path("sel2.etd"), path("x.png")}).status, 1)
        << "still never shown";
}

TEST_F(ConvertCommand, NothingToConvertGivesStatus1AndWritesNothing) {
    // A document without a preview, a version no reader takes, and a picture.
    MemoryFile empty;
    ASSERT_EQ(EmberTideDataWriteHeader(&empty.file, 0x0200, false, false), 0);
    {
        GSTagWrite top(&empty.file);
        ASSERT_EQ(top.writeEndTag(), 0);
    }
    writeFile(path("empty.etd"), empty.bytes());
    ASSERT_EQ(runTool({"create", "--version", "2.0", path("pic.jpg"), path("v4.etd")}).status, 0);
    Bytes v4 = readFile(path("v4.etd"));
    ASSERT_EQ(v4[20], 2) << "the version follows the identifier and its NUL";
    v4[20] = 4;
    writeFile(path("v4.etd"), v4);
    writeFile(path("kept.etd"), {1, 2, 3});

    for (std::string in : {"empty.etd", "v4.etd", "pic.png"}) {
        for (std::string out : {"new.etd", "kept.etd"}) {
            ToolRun r = runTool({"convert", path(in), path(out)});
            EXPECT_EQ(r.status, 1) << in << ": " << r.err;
            EXPECT_NE(r.err.find("ember-tide: " + path(in) + ": "), std::string::npos) << r.err;
        }
    }
    EXPECT_EQ(names(), "empty.etd kept.etd v4.etd ");
    EXPECT_EQ(readFile(path("kept.etd")), Bytes({1, 2, 3}));
    EXPECT_NE(runTool({"convert", path("v4.etd"), path("x.etd")}).err.find("version 4.0"),
              std::string::npos);
}

TEST_F(ConvertCommand, InPlaceAndToStandardOutput) {
    ASSERT_EQ(
        runTool({"create", "--version", "3.2", "--store", "record", path("pic.jpg"), path("d.etd")})
            .status,
        0);
    ToolRun c = runTool({"convert", "--version", "1.0", path("d.etd"), path("d.etd")});
    ASSERT_EQ(c.status, 0) << c.err;
    EXPECT_EQ(extracted(path("d.etd")), jpeg);
    EXPECT_EQ(typeAndVersion(path("d.etd")), "document 256");
    EXPECT_EQ(readBack(path("d.etd")).facts.pictureStore, EmberTideDocumentFacts::kRecord);
    EXPECT_EQ(names(), "d.etd ") << "no temporary file or backup is left";

    // A document with items of the editor's own beside its preview is never converted onto
    // itself (they would be lost); to another file it is, and stderr says what was left out.
    const std::string behind = std::string(ET_SOURCE_DIR) + "/examples/behind-large-item-v2.etd";
    writeFile(path("own.etd"), readFile(behind));
    ToolRun refused = runTool({"convert", path("own.etd"), path("own.etd")});
    EXPECT_EQ(refused.status, 2);
    EXPECT_NE(refused.err.find("besides its preview"), std::string::npos) << refused.err;
    EXPECT_EQ(readFile(path("own.etd")), readFile(behind)) << "the document is untouched";
    ToolRun elsewhere = runTool({"convert", path("own.etd"), path("preview-only.etd")});
    EXPECT_EQ(elsewhere.status, 0) << elsewhere.err;
    EXPECT_NE(elsewhere.err.find("1 item(s) besides the preview are not carried over"),
              std::string::npos)
        << elsewhere.err;
    EXPECT_EQ(extracted(path("preview-only.etd")), extracted(path("own.etd")));
    ::unlink(path("own.etd").c_str());
    ::unlink(path("preview-only.etd").c_str());

    ToolRun toStdout = runTool({"convert", "--version", "3.0", path("d.etd"), "-"});
    ASSERT_EQ(toStdout.status, 0) << toStdout.err;
    ASSERT_EQ(runTool({"convert", "--version", "3.0", path("d.etd"), path("e.etd")}).status, 0);
    EXPECT_EQ(Bytes(toStdout.out.begin(), toStdout.out.end()), readFile(path("e.etd")));
}

// Writes that fail half-way (a file-size limit) must leave the old file as it was and nothing
// beside it: the new document goes to a temporary file that is only exchanged in when complete.
TEST_F(ConvertCommand, AFailedSaveLeavesTheOldFileAsItWas) {
    Bytes big = samples::encodeJPEG(samples::drawLandscape(800, 600, false), 95);
    ASSERT_GT(big.size(), 16384u) << "must exceed the limit below";
    writeFile(path("big.jpg"), big);
    ASSERT_EQ(runTool({"create", "--version", "2.0", path("big.jpg"), path("d.etd")}).status, 0);
    Bytes old = readFile(path("d.etd"));

    ToolRun c = runToolWithFileSizeLimit(8, {"convert", path("d.etd"), path("d.etd")});
    EXPECT_EQ(c.status, 2) << c.err;
    EXPECT_NE(c.err.find("ember-tide: " + path("d.etd") + ": cannot write"), std::string::npos)
        << c.err;
    EXPECT_EQ(readFile(path("d.etd")), old) << "convert in place";
    EXPECT_EQ(names(), "big.jpg d.etd ");

    ToolRun create = runToolWithFileSizeLimit(8, {"create", path("big.jpg"), path("d.etd")});
    EXPECT_EQ(create.status, 2) << create.err;
    EXPECT_EQ(readFile(path("d.etd")), old) << "create over an existing document";
    EXPECT_EQ(names(), "big.jpg d.etd ");

    ToolRun fresh = runToolWithFileSizeLimit(8, {"create", path("big.jpg"), path("new.etd")});
    EXPECT_EQ(fresh.status, 2) << fresh.err;
    EXPECT_EQ(names(), "big.jpg d.etd ") << "a new document that failed is removed";
}
