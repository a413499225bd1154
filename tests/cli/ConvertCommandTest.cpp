// ConvertCommandTest.cpp - `ember-tide convert` (and every layout `create` writes), by running
// the built tool; its failed saves are in CommandLineTest. The results are read back both through
// the tool (extract, info) and with the reader itself, which also tells how the picture was stored
// and in which form.
#include "RunTool.h"
#include "fileformat/GSFile.h"
#include "fileformat/GSFormatNumbers.h"
#include "fileformat/GSTagWrite.h"
#include "thumbnail/EmberTideDocumentWriter.h"
#include "thumbnail/GSGetThumbnail.h"
#include "thumbnail/GSMemPicData.h"

#include <sstream>

using namespace testing_support;

namespace {

// What the reader finds in a file, selections included: "version, form, store, kind, width"
// (form 1 byte, 0 long, -1 no object table, before version 3); `bytes` gets the preview.
std::string readBack(const std::string& path, Bytes* bytes = nullptr) {
    GSFileSpec spec(GSString(path.c_str(), -1, GSString::kUTF8));
    GSDynaArray<unsigned char> preview;
    int kind = 0, info = 0;
    GSTSize<int> size{-1, -1};
    EmberTideDocumentFacts facts;
    if (GSFile file(spec, 0); file.open() == 0)
        EmberTideReadPreview(&file, &preview, &kind, &info, &size, &facts, true);
    if (bytes) bytes->assign(preview.getData(), preview.getData() + preview.getSize());
    GSFile file(spec, 0);
    short version = 0, merging = 0;
    int form = -1;
    if (file.open() == 0 && EmberTideDataReadHeader(&file, &version, &merging, nullptr) == 0 &&
        merging) {
        form = file.getUse64Bit();
        file.stopObjectMergingRead();
    }
    std::ostringstream out;
    out << std::hex << version << std::dec << ", " << form << ", "
        << static_cast<int>(facts.pictureStore) << ", " << kind << ", " << size.width
        << (facts.isSelection ? ", selection" : "");
    return out.str();
}

using ConvertCommand = ToolTest;

} // namespace

TEST_F(ConvertCommand, EveryLayoutConvertsToEveryOtherWithTheSamePreview) {
    const char* layouts[][3] = {{"1.0", "long", "100, -1"}, {"2.0", "long", "200, -1"},
                                {"3.0", "long", "300, 0"},  {"3.0", "byte", "300, 1"},
                                {"3.2", "long", "302, 0"},  {"3.2", "byte", "302, 1"}};
    const char* stores[] = {"inline", "record", "system-record"}; // PictureStore 1, 2, 3
    int n = 0;
    for (const auto& from : layouts)
        for (const auto& to : layouts) {
            // The stores and the two picture formats by turns, so that every pair sees records.
            const int store = n % 3;
            const bool isPNG = (n++ / 3) % 2;
            const std::string pair = std::string(from[0]) + " " + from[1] + " -> " + to[0] + " " +
                                     to[1] + ", " + stores[store] + (isPNG ? ", png" : ", jpeg");
            expectRun({"create", "--version", from[0], "--form", from[1], "--store", stores[store],
                       path(isPNG ? "pic.png" : "pic.jpg"), path("in.etd")},
                      0);
            EXPECT_EQ(expectRun({"convert", "--version", to[0], "--form", to[1], path("in.etd"),
                                 path("out.etd")},
                                0)
                          .err,
                      "");
            EXPECT_EQ(expectRun("extract @out.etd -", 0).outBytes(), isPNG ? png : jpeg) << pair;
            EXPECT_EQ(readBack(path("out.etd")), std::string(to[2]) + ", " +
                                                     std::to_string(store + 1) +
                                                     (isPNG ? ", 3, 40" : ", 2, 64"))
                << pair;
        }

    // Without options: version 3.2 in the byte form, as `create` writes. A selection stays a
    // selection; its preview, never shown, is compared with the reader's help.
    expectRun("convert @in.etd @default.etd", 0);
    EXPECT_EQ(readBack(path("default.etd")).substr(0, 7), "302, 1,");
    expectRun("create --selection --store system-record @pic.png @sel.etd", 0);
    expectRun("convert --version 2.0 @sel.etd @sel2.etd", 0);
    Bytes selected;
    EXPECT_EQ(readBack(path("sel2.etd"), &selected), "200, -1, 3, 3, 40, selection");
    EXPECT_EQ(selected, png);
}

TEST_F(ConvertCommand, KeepsWhatTheDocumentStates) {
    // A stated size that is not the picture's own and an information value are carried over.
    writeDocument(path("stated.etd"), jpeg, 2, 100, 75, 7);
    expectRun("convert --version 3.0 @stated.etd @out.etd", 0);
    EXPECT_NE(expectRun("info --json @out.etd", 0)
                  .out.find("\"width\": 100, \"height\": 75, \"info\": 7"),
              std::string::npos);

    // A document that states no size (no information item) gets the picture's own: the writer
    // always states one, and 0 x 0 would make a one-pixel thumbnail.
    MemoryFile bare;
    ASSERT_EQ(EmberTideDataWriteHeader(&bare.file, 0x0200, false, false), 0);
    {
        GSTagWrite top(&bare.file);
        ASSERT_EQ(top.writeStart(GSTagPreview), 0);
        {
            GSTagWrite chunk(&bare.file);
            GSMemPicData picture;
            picture.kind = GSPreviewPNGAlias; // read as PNG
            picture.dataSize = static_cast<int>(png.size());
            ASSERT_EQ(chunk.writeVersion(GSChunkVersion) || chunk.writeStart(GSPreviewTagInline) ||
                          picture.writeData(&bare.file) ||
                          bare.file.write(png.data(), static_cast<long>(png.size())) ||
                          chunk.writeEnd() || chunk.writeEndTag(),
                      0);
        }
        ASSERT_EQ(top.writeEnd() || top.writeEndTag(), 0);
    }
    writeFile(path("bare.etd"), bare.bytes());
    ASSERT_NE(expectRun("info --json @bare.etd", 0).out.find("\"width\": null"), std::string::npos);
    expectRun("convert @bare.etd @out.etd", 0);
    EXPECT_EQ(expectRun("extract @out.etd -", 0).outBytes(), png);
    EXPECT_NE(expectRun("info --json @out.etd", 0)
                  .out.find("\"kind\": 3, \"format\": \"png\", \"width\": 40, \"height\": 30"),
              std::string::npos);
}

TEST_F(ConvertCommand, InPlaceAndToStandardOutput) {
    expectRun("create --version 3.2 --store record @pic.jpg @d.etd", 0);
    expectRun("convert --version 1.0 @d.etd @d.etd", 0);
    EXPECT_EQ(expectRun("extract @d.etd -", 0).outBytes(), jpeg);
    EXPECT_EQ(readBack(path("d.etd")), "100, -1, 2, 2, 64");
    EXPECT_EQ(strays(), "d.etd ") << "no temporary file or backup is left";
    expectRun("convert --version 3.0 @d.etd @e.etd", 0);
    EXPECT_EQ(expectRun("convert --version 3.0 @d.etd -", 0).outBytes(), readFile(path("e.etd")));

    // A document with items of the editor's own beside its preview is never converted onto
    // itself (they would be lost); to another file it is, and stderr says what was left out.
    const Bytes behind = readFile(ET_SOURCE_DIR "/examples/behind-large-item-v2.etd");
    writeFile(path("own.etd"), behind);
    expectRun("convert @own.etd @own.etd", 2, "besides its preview");
    EXPECT_EQ(readFile(path("own.etd")), behind) << "the document is untouched";
    expectRun("convert @own.etd @preview-only.etd", 0,
              "1 item(s) besides the preview are not carried over");
    EXPECT_EQ(expectRun("extract @preview-only.etd -", 0).outBytes(),
              expectRun("extract @own.etd -", 0).outBytes());
}
