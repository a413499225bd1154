// FileSpecTest.cpp - file specs: names, paths and extenders, temporary names, options,
// equality and copies, links, and the file form.
#include "GSArrayObjects.h"
#include "GSFile.h"
#include "GSFileSpec.h"
#include "GSFileSpecKeys.h"
#include "GSLongDictionaryKey.h"
#include "GSNumberObjects.h"
#include "GSObjectDictionary.h"
#include "GSStringDictionaryKey.h"
#include "TestSupport.h"

#include <gtest/gtest.h>

#include <set>
#include <string>
#include <unistd.h>

using namespace testing_support;

namespace {

std::string str(const GSString& s) {
    return s.getConstAddr() ? std::string(s.getConstAddr(), static_cast<size_t>(s.getLength()))
                            : std::string();
}

GSString gs(const std::string& text) {
    return GSString(text.c_str(), -1, GSString::kUTF8);
}

GSFileSpec spec(const std::string& path) {
    return GSFileSpec(gs(path));
}

void putLong(GSFileSpec* s, const GSString& key, int value) {
    s->getOrCreateDictionary()->setObjectValue(key, new GSLongDictionaryKey(value));
}

void putString(GSFileSpec* s, const GSString& key, const char* value) {
    s->getOrCreateDictionary()->setObjectValue(key, new GSStringDictionaryKey(gs(value)));
}

} // namespace

TEST(FileSpec, NamesPathsAndExtenders) {
    struct Case {
        const char* path;
        const char* name;
        const char* bareName;
        const char* folder;
        const char* extender;
    };
    const Case cases[] = {
        {"/x/y/", "a", "a", "/x/y/", ""}, // a folder is named through its item "a"
        {"/", "a", "a", "/", ""},
        {"/d.x/file", "file", "file", "/d.x/", ""},
        {"/d/file.tar.gz", "file.tar.gz", "file.tar", "/d/", ".gz"},
        {"/home/u/.profile", ".profile", "", "/home/u/", ".profile"},
        {"/p/report.final (copy)", "report.final (copy)", "report.final (copy)", "/p/",
         ".final (copy)"},
        {"/Bilder/caf\xC3\xA9/na\xC3\xAFve.jpeg", "na\xC3\xAFve.jpeg", "na\xC3\xAFve",
         "/Bilder/caf\xC3\xA9/", ".jpeg"},
    };
    for (const Case& c : cases) {
        GSFileSpec s = spec(c.path);
        EXPECT_EQ(s.isValid(), 1) << c.path;
        EXPECT_EQ(str(s.getFilename(1)), c.name) << c.path;
        EXPECT_EQ(str(s.getFilename(0)), c.bareName) << c.path;
        EXPECT_EQ(str(s.getPathname(0)), c.folder) << c.path;
        EXPECT_EQ(str(s.getExtender()), c.extender) << c.path;
    }
    EXPECT_EQ(str(spec("/x/y/").getPathname(1)), "/x/y/a");

    // In a path string a "." before the last ")" starts no extender either.
    GSString name = gs("photo.jpg");
    GSFile::changeFileExtender(&name, gs(".png"));
    EXPECT_EQ(str(name), "photo.png");
    name = gs("photo");
    GSFile::changeFileExtender(&name, gs(".png"));
    EXPECT_EQ(str(name), "photo.png");
    name = gs("report.final (copy)");
    GSFile::changeFileExtender(&name, gs(".txt"));
    EXPECT_EQ(str(name), "report.final (copy).txt");

    const GSString list = gs("*.ext:Kind A;*.alt:Kind B");
    EXPECT_EQ(str(GSFileSpec::getExtenderListFromString(list)), "*.ext;*.alt");
    EXPECT_EQ(str(GSFileSpec::getExtenderFromString(list)), ".ext");
    EXPECT_EQ(str(GSFileSpec::getExtenderFromString(gs("*.one"))), ".one");
    GSFileSpec renamed = spec("/d/letter.txt");
    renamed.setExtender(list);
    EXPECT_EQ(str(renamed.getPathname(1)), "/d/letter.ext");
    renamed.setFilename(gs("other name.doc"));
    EXPECT_EQ(str(renamed.getPathname(1)), "/d/other name.doc") << "the folder stays";
    EXPECT_EQ(str(renamed.getParent().getPathname(1)), "/d");
}

TEST(FileSpec, TemporaryNamesAreFreshHiddenAndKeepTheExtender) {
    for (int i = 0; i < 100; ++i) {
        std::string name = str(GSFileSpec::getTemporaryFilename());
        ASSERT_EQ(name.size(), 13u) << name;
        EXPECT_EQ(name.substr(0, 3), "tmp");
        for (char c : name.substr(3))
            EXPECT_TRUE((c >= '0' && c <= '9') || (c >= 'a' && c <= 'z')) << name;
    }

    TempFolder folder;
    std::set<std::string> names;
    for (int i = 0; i < 50; ++i) {
        GSFileSpec s = spec(folder.path("document.etd"));
        s.createTemporaryFilename(gs(".etd"));
        std::string name = str(s.getFilename(1));
        EXPECT_EQ(name[0], '.') << name;
        EXPECT_EQ(name.substr(name.size() - 4), ".etd") << name;
        EXPECT_EQ(str(s.getPathname(0)), folder.root() + "/");
        EXPECT_FALSE(s.exists());
        EXPECT_TRUE(names.insert(name).second) << "name given twice: " << name;
        writeFile(str(s.getPathname(1)), {1}); // taken from now on
        EXPECT_TRUE(s.exists());
    }
}

TEST(FileSpec, OptionsAreReadByValueClass) {
    GSFileSpec s = spec("/tmp/x.etd");
    EXPECT_EQ(s.getDictionaryLong(GSFileSafetyModeKey, 3), 3) << "no dictionary";
    EXPECT_EQ(str(s.getDictionaryString(GSFileDataIDKey)), "");
    EXPECT_EQ(s.isMemoryFileSpec(0), 0);

    putString(&s, GSFileSafetyModeKey, "2");
    EXPECT_EQ(s.getDictionaryLong(GSFileSafetyModeKey, 3), 3) << "a text is no number";
    putLong(&s, GSFileSafetyModeKey, 2);
    EXPECT_EQ(s.getDictionaryLong(GSFileSafetyModeKey, 3), 2);
    putString(&s, GSFileDataNameKey, "clipboard");
    EXPECT_EQ(str(s.getDictionaryString(GSFileDataNameKey)), "clipboard");

    // Memory files: data present, an identifier, and saving to memory switched on or off.
    struct Case {
        bool data;
        const char* id;
        int saveToMemory; // -1: not set
        short mode0, mode1, mode2;
    };
    const Case cases[] = {
        {false, "", -1, 0, 0, 0}, {false, "", 1, 1, 0, 1},    {true, "", -1, 0, 1, 0},
        {true, "", 0, 0, 1, 0},   {false, "id", -1, 1, 0, 1}, {false, "id", 0, 0, 0, 0},
        {true, "id", 0, 0, 1, 1}, {true, "id", 1, 1, 1, 1},
    };
    for (const Case& c : cases) {
        GSFileSpec m = spec("/memory");
        m.getOrCreateDictionary();
        if (c.data) {
            auto* buffer = new GSBufferObject;
            buffer->value.setSize(4);
            m.getOrCreateDictionary()->setObjectValue(GSFileDataKey, buffer);
        }
        if (*c.id) putString(&m, GSFileDataIDKey, c.id);
        if (c.saveToMemory >= 0) putLong(&m, GSFileSaveToMemoryKey, c.saveToMemory);
        SCOPED_TRACE(std::string("data ") + (c.data ? "yes" : "no") + ", id \"" + c.id +
                     "\", save to memory " + std::to_string(c.saveToMemory));
        EXPECT_EQ(m.isMemoryFileSpec(0), c.mode0);
        EXPECT_EQ(m.isMemoryFileSpec(1), c.mode1);
        EXPECT_EQ(m.isMemoryFileSpec(2), c.mode2);
    }
}

TEST(FileSpec, EqualityCopiesAndTheFileForm) {
    GSFileSpec a = spec("/srv/share/a.etd");
    GSFileSpec b = spec("/srv/share/./a.etd");
    EXPECT_TRUE(a == b) << "two specs of one path";
    EXPECT_FALSE(a == spec("/srv/share/b.etd"));
    EXPECT_TRUE(GSFileSpec() == GSFileSpec::null);

    putLong(&a, GSFileFormatVersionKey, 770);
    GSFileSpec copy = a;
    EXPECT_TRUE(copy == a);
    putLong(&copy, GSFileFormatVersionKey, 512);
    EXPECT_EQ(a.getDictionaryLong(GSFileFormatVersionKey, 0), 770) << "the copy's own dictionary";
    EXPECT_EQ(copy.getDictionaryLong(GSFileFormatVersionKey, 0), 512);
    EXPECT_TRUE(copy == a) << "dictionaries play no part in equality";
    GSFileSpec bare;
    a.copyData(&bare, 0);
    EXPECT_EQ(bare.getDictionary(), nullptr);
    EXPECT_TRUE(bare == a);

    // The file form is the full path; the dictionary is not stored.
    MemoryFile m;
    ASSERT_EQ(a.write(&m.file), 0);
    ASSERT_EQ(GSFileSpec().write(&m.file), 0);
    m.file.seek(0, 0);
    GSFileSpec back, empty = spec("/x");
    ASSERT_EQ(back.read(&m.file), 0);
    EXPECT_TRUE(back == a);
    EXPECT_EQ(back.getDictionary(), nullptr);
    ASSERT_EQ(empty.read(&m.file), 0);
    EXPECT_EQ(empty.isValid(), 0) << "an empty path names nothing";
}

TEST(FileSpec, LinksLeadToFilesAndFolders) {
    TempFolder folder;
    writeFile(folder.path("real.etd"), {1, 2});
    ASSERT_EQ(::mkdir(folder.path("sub").c_str(), 0700), 0);
    ASSERT_EQ(::symlink("real.etd", folder.path("file-link").c_str()), 0);
    ASSERT_EQ(::symlink(folder.path("sub").c_str(), folder.path("folder-link").c_str()), 0);

    GSFileSpec target;
    short isFolder = 7;
    EXPECT_EQ(spec(folder.path("file-link")).isLink(&target, 0, &isFolder), 1);
    EXPECT_EQ(isFolder, 0);
    EXPECT_TRUE(target == spec(folder.path("real.etd")));
    EXPECT_EQ(spec(folder.path("folder-link")).isLink(&target, 0, &isFolder), 1);
    EXPECT_EQ(isFolder, 1);
    EXPECT_EQ(str(target.getPathname(1)), folder.path("sub") + "/a");
    EXPECT_EQ(spec(folder.path("real.etd")).isLink(&target, 0, nullptr), 0);
    EXPECT_TRUE(spec(folder.path("real.etd")).exists());
    EXPECT_FALSE(spec(folder.path("missing.etd")).exists());
}
