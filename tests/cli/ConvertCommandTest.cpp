// ConvertCommandTest.cpp - `ember-tide convert` (and every layout `create` writes), by running
// the built tool; its failed saves are in CommandLineTest. The results are read back both through
// the tool (extract, info) and with the reader itself, which also tells how the picture was stored
// and in which form.
#include "EmberTideDocumentWriter.h"
#include "GSFile.h"
#include "GSGetThumbnail.h"
#include "GSMemPicData.h"
#include "GSTagWrite.h"
#include "RunTool.h"

using namespace testing_support;

namespace {

// What the reader finds in a file, selections included.
struct ReadBack {
    Bytes bytes;
    int kind = 0;
    int info = -1;
    GSTSize<int> size{-1, -1};
    EmberTideDocumentFacts facts;
    short version = 0;
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
    short merging = 0;
    if (file.open() == 0 && EmberTideDataReadHeader(&file, &r.version, &merging, nullptr) == 0 &&
        merging) {
        r.byteForm = file.getUse64Bit();
        file.stopObjectMergingRead();
    }
    return r;
}

using ConvertCommand = ToolTest;

Bytes extracted(const std::string& file) {
    ToolRun r = runTool({"extract", file, "-"});
    EXPECT_EQ(r.status, 0) << file << ": " << r.err;
    return r.outBytes();
}

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
    const char* stores[] = {"inline", "record", "system-record"}; // PictureStore 1, 2, 3
    int n = 0;
    for (const Layout& from : kLayouts)
        for (const Layout& to : kLayouts) {
            // The stores and the two picture formats by turns, so that every pair sees records.
            const int store = n % 3;
            const bool isPNG = (n++ / 3) % 2;
            SCOPED_TRACE(std::string(from.version) + " " + from.form + " -> " + to.version + " " +
                         to.form + ", " + stores[store] + (isPNG ? ", png" : ", jpeg"));
            ASSERT_EQ(runTool({"create", "--version", from.version, "--form", from.form, "--store",
                               stores[store], path(isPNG ? "pic.png" : "pic.jpg"), path("in.etd")})
                          .status,
                      0);
            EXPECT_EQ(extracted(path("in.etd")), isPNG ? png : jpeg);
            ToolRun c = runTool({"convert", "--version", to.version, "--form", to.form,
                                 path("in.etd"), path("out.etd")});
            ASSERT_EQ(c.status, 0) << c.err;
            EXPECT_EQ(c.err, "");
            EXPECT_EQ(extracted(path("out.etd")), isPNG ? png : jpeg);
            ReadBack r = readBack(path("out.etd"));
            EXPECT_EQ(r.version, to.number);
            EXPECT_FALSE(r.facts.isSelection);
            EXPECT_EQ(r.facts.pictureStore, store + 1) << "the picture's store is kept";
            EXPECT_EQ(r.byteForm, to.byteForm) << "the form asked for";
            EXPECT_EQ(r.kind, isPNG ? 3 : 2);
            EXPECT_EQ(r.size.width, isPNG ? 40 : 64);
        }

    // Without options: version 3.2 in the byte form, as `create` writes.
    ASSERT_EQ(runTool({"convert", path("in.etd"), path("default.etd")}).status, 0);
    EXPECT_EQ(readBack(path("default.etd")).version, 0x0302);
    EXPECT_EQ(readBack(path("default.etd")).byteForm, 1);

    // A selection stays a selection; its preview, never shown, is compared with the reader's help.
    ASSERT_EQ(runTool({"create", "--selection", "--store", "system-record", path("pic.png"),
                       path("sel.etd")})
                  .status,
              0);
    ASSERT_EQ(runTool({"convert", "--version", "2.0", path("sel.etd"), path("sel2.etd")}).status,
              0);
    const ReadBack selection = readBack(path("sel2.etd"));
    EXPECT_EQ(selection.version, 0x0200);
    EXPECT_TRUE(selection.facts.isSelection);
    EXPECT_EQ(selection.bytes, png);
    EXPECT_EQ(selection.facts.pictureStore, EmberTideDocumentFacts::kSystemRecord);
}

TEST_F(ConvertCommand, KeepsWhatTheDocumentStates) {
    // A stated size that is not the picture's own and an information value are carried over.
    EmberTidePreview preview;
    preview.bytes = toDynaArray(jpeg);
    preview.infoValue = 7;
    preview.size = {100, 75};
    MemoryFile m;
    ASSERT_EQ(EmberTideWriteDocument(&m.file, preview, EmberTideDocumentOptions()), 0);
    writeFile(path("stated.etd"), m.bytes());
    ASSERT_EQ(runTool({"convert", "--version", "3.0", path("stated.etd"), path("out.etd")}).status,
              0);
    EXPECT_NE(runTool({"info", "--json", path("out.etd")})
                  .out.find("\"width\": 100, \"height\": 75, \"info\": 7"),
              std::string::npos);

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
            ASSERT_EQ(chunk.writeVersion(256) || chunk.writeStart(6) ||
                          picture.writeData(&bare.file) ||
                          bare.file.write(png.data(), static_cast<long>(png.size())) ||
                          chunk.writeEnd() || chunk.writeEndTag(),
                      0);
        }
        ASSERT_EQ(top.writeEnd() || top.writeEndTag(), 0);
    }
    writeFile(path("bare.etd"), bare.bytes());
    ASSERT_NE(runTool({"info", "--json", path("bare.etd")}).out.find("\"width\": null"),
              std::string::npos);
    ASSERT_EQ(runTool({"convert", path("bare.etd"), path("out.etd")}).status, 0);
    EXPECT_EQ(extracted(path("out.etd")), png);
    ToolRun after = runTool({"info", "--json", path("out.etd")});
    EXPECT_NE(after.out.find("\"kind\": 3, \"format\": \"png\", \"width\": 40, \"height\": 30"),
              std::string::npos)
        << after.out;
}

TEST_F(ConvertCommand, InPlaceAndToStandardOutput) {
    ASSERT_EQ(
        runTool({"create", "--version", "3.2", "--store", "record", path("pic.jpg"), path("d.etd")})
            .status,
        0);
    ToolRun c = runTool({"convert", "--version", "1.0", path("d.etd"), path("d.etd")});
    ASSERT_EQ(c.status, 0) << c.err;
    EXPECT_EQ(extracted(path("d.etd")), jpeg);
    EXPECT_EQ(readBack(path("d.etd")).version, 0x0100);
    EXPECT_EQ(readBack(path("d.etd")).facts.pictureStore, EmberTideDocumentFacts::kRecord);
    EXPECT_EQ(strays(), "d.etd ") << "no temporary file or backup is left";

    ToolRun toStdout = runTool({"convert", "--version", "3.0", path("d.etd"), "-"});
    ASSERT_EQ(toStdout.status, 0) << toStdout.err;
    ASSERT_EQ(runTool({"convert", "--version", "3.0", path("d.etd"), path("e.etd")}).status, 0);
    EXPECT_EQ(toStdout.outBytes(), readFile(path("e.etd")));

    // A document with items of the editor's own beside its preview is never converted onto
    // itself (they would be lost); to another file it is, and stderr says what was left out.
    const Bytes behind = readFile(ET_SOURCE_DIR "/examples/behind-large-item-v2.etd");
    writeFile(path("own.etd"), behind);
    ToolRun refused = runTool({"convert", path("own.etd"), path("own.etd")});
    EXPECT_EQ(refused.status, 2);
    EXPECT_NE(refused.err.find("besides its preview"), std::string::npos) << refused.err;
    EXPECT_EQ(readFile(path("own.etd")), behind) << "the document is untouched";
    ToolRun elsewhere = runTool({"convert", path("own.etd"), path("preview-only.etd")});
    EXPECT_EQ(elsewhere.status, 0) << elsewhere.err;
    EXPECT_NE(elsewhere.err.find("1 item(s) besides the preview are not carried over"),
              std::string::npos)
        << elsewhere.err;
    EXPECT_EQ(extracted(path("preview-only.etd")), extracted(path("own.etd")));
}
