// FileSpecTest.cpp - file specs: names, paths and extenders, options and the memory-file rule,
// and links.
#include "SaveTestSupport.h"
#include "fileformat/GSFormatNumbers.h"
#include "objects/GSArrayObjects.h"
#include "objects/GSStringDictionaryKey.h"

#include <gtest/gtest.h>

using namespace testing_support;
using namespace save_test;

TEST(FileSpec, NamesPathsAndExtenders) {
    // Path; name; name without extender; folder; extender. A folder is named through its item
    // "a"; a "." in a folder's name or before the last ")" starts no extender.
    // clang-format off
    const char* cases[][5] = {
        {"/x/y/", "a", "a", "/x/y/", ""}, {"/d.x/file", "file", "file", "/d.x/", ""},
        {"/d/file.tar.gz", "file.tar.gz", "file.tar", "/d/", ".gz"},
        {"/home/u/.profile", ".profile", "", "/home/u/", ".profile"},
        {"/p/report.final (copy)", "report.final (copy)", "report.final (copy)", "/p/", ".final (copy)"},
        {"/B/caf\xC3\xA9/na\xC3\xAFve.jpeg", "na\xC3\xAFve.jpeg", "na\xC3\xAFve", "/B/caf\xC3\xA9/", ".jpeg"}};
    // clang-format on
    for (const auto& c : cases) {
        GSFileSpec s(bytes(c[0]));
        EXPECT_EQ(text(s.getFilename(1)) + "|" + text(s.getFilename(0)) + "|" +
                      text(s.getPathname(GSFolderPath)) + "|" + text(s.getExtender()),
                  std::string(c[1]) + "|" + c[2] + "|" + c[3] + "|" + c[4]);
    }
    // File-type lists: "*.ext:Description" entries separated by ";"; the first gives the extender.
    const GSString list = bytes("*.ext:Kind A;*.alt:Kind B");
    EXPECT_EQ(text(GSFileSpec::getExtenderListFromString(list)), "*.ext;*.alt");
    GSFileSpec renamed(bytes("/d/letter.txt"));
    renamed.setExtender(list);
    EXPECT_EQ(text(renamed.getPathname(GSFullPath)), "/d/letter.ext");
    renamed.setFilename(bytes("other name.doc"));
    EXPECT_EQ(text(renamed.getPathname(GSFullPath)), "/d/other name.doc") << "the folder stays";
    EXPECT_EQ(text(renamed.getParent().getPathname(GSFullPath)), "/d");
}

// Options are read by value class. Memory files: data present, an identifier, and saving to
// memory switched on or off, as isMemoryFileSpec's three modes see them.
TEST(FileSpec, OptionsAndTheMemoryFileRule) {
    GSFileSpec s(bytes("/tmp/x.etd"));
    EXPECT_EQ(s.getDictionaryLong(GSFileSafetyModeKey, 3) + s.isMemoryFileSpec(0), 3);
    EXPECT_EQ(text(s.getDictionaryString(GSFileDataIDKey)), "") << "no dictionary";
    put(&s, GSFileSafetyModeKey, new GSStringDictionaryKey(bytes("2")));
    EXPECT_EQ(s.getDictionaryLong(GSFileSafetyModeKey, 3), 3) << "a text is no number";
    GSFileSpec bare;
    s.copyData(&bare, 0);
    EXPECT_EQ(bare.getDictionary(), nullptr) << "a copy without the options";
    struct {
        bool data;
        const char* id;
        int saveToMemory; // -1: not set
        const char* modes;
    } cases[] = {{false, "", -1, "000"},   {false, "", 1, "101"},   {true, "", 0, "010"},
                 {false, "id", -1, "101"}, {false, "id", 0, "000"}, {true, "id", 0, "011"},
                 {true, "id", 1, "111"}};
    for (const auto& c : cases) {
        GSFileSpec m(bytes("/memory"));
        m.getOrCreateDictionary();
        if (c.data) put(&m, GSFileDataKey, new GSBufferObject(toDynaArray({1})));
        if (*c.id) put(&m, GSFileDataIDKey, new GSStringDictionaryKey(bytes(c.id)));
        if (c.saveToMemory >= 0) putLong(&m, GSFileSaveToMemoryKey, c.saveToMemory);
        std::string modes;
        for (short mode = 0; mode < 3; ++mode)
            modes += char('0' + m.isMemoryFileSpec(mode));
        EXPECT_EQ(modes, c.modes) << c.data << " \"" << c.id << "\" " << c.saveToMemory;
    }
}

TEST(FileSpec, LinksLeadToFilesAndFolders) {
    TempFolder folder;
    const std::string root = folder.root();
    ASSERT_TRUE(makeItems(
        root, {"real.etd=x", "sub/", "file-link->real.etd", "folder-link->" + root + "/sub"}));
    std::string links;
    for (const char* name : {"/file-link", "/folder-link", "/real.etd"}) {
        GSFileSpec target;
        short isFolder = 7;
        short isLink = GSFileSpec(bytes(root + name)).isLink(&target, 0, &isFolder);
        links += std::to_string(isLink) + text(target.getPathname(GSFullPath)) +
                 std::to_string(isFolder) + " ";
    }
    EXPECT_EQ(links, "1" + root + "/real.etd0 1" + root + "/sub/a1 07 ") << "a folder's item";
}
