// StringFileTest.cpp - the file form of GSString in the 64-bit and the classic layout.
//
// The 64-bit layout is chosen by the object table of a merging write, so each case writes its
// strings inside one and reads them back from the same file while the table is still there.
#include "AllocationCounter.h"
#include "GSString.h"
#include "TestSupport.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

using bench_support::allocationCount;
using namespace testing_support;

namespace {

std::string text(const GSString& s) {
    return s.getConstAddr() ? std::string(s.getConstAddr(), static_cast<size_t>(s.getLength()))
                            : std::string();
}

struct Record {
    GSString value;
    const char* hex64; // 64-bit layout
    const char* hexClassic;
    int tagRead; // single-byte tags come back in the Mac code page
    std::string textRead;
};

std::string hexOfText(const std::string& s) {
    return toHex(Bytes(s.begin(), s.end()));
}

} // namespace

TEST(StringFile, BothLayoutsByteForByteAndBack) {
    const std::string seventy(70, 'x');
    const std::string seventyHex = hexOfText(seventy);
    GSString emptyUTF8 = GSString::withCopyOf("");
    GSString utf16(reinterpret_cast<const char*>(u"\u00e9A"), 4, GSString::kUTF16);
    std::vector<Record> records = {
        {GSString::null, "64 00", "00 00", GSString::kUTF8, ""},
        {emptyUTF8, "64 01 00", "ff 9b 00 00 00 01 00", GSString::kUTF8, ""},
        {GSString("abc", 3, GSString::kMac), "01 04 61 62 63 00", "ff fe 00 00 00 04 61 62 63 00",
         GSString::kMac, "abc"},
        {GSString("caf\xE9", 4, GSString::kWindows), "00 05 63 61 66 e9 00",
         "ff ff 00 00 00 05 63 61 66 e9 00", GSString::kMac, "caf\x8E"},
        // Tag 2 is single-byte by number but its bytes are read as UTF-8.
        {GSString("\xC3\xA9", 2, GSString::kWindowsTable), "02 03 c3 a9 00",
         "ff fd 00 00 00 03 c3 a9 00", GSString::kMac, "\x8E"},
        {GSString("\xE1", 1, GSString::kPostScript), "03 02 e1 00", "ff fc 00 00 00 02 e1 00",
         GSString::kMac, "\xAE"},
        {utf16, "65 05 e9 00 41 00 00", "ff 9a 00 00 00 05 e9 00 41 00 00", GSString::kUTF16,
         std::string("\xE9\0A\0", 4)},
        {GSString::withCopyOf(seventy.c_str()), nullptr, nullptr, GSString::kUTF8, seventy},
    };
    // The 70-byte text has a buffer, not the inline form; its count needs two compact bytes.
    const std::string long64 = "64 87 01 " + seventyHex + " 00";
    const std::string longClassic = "ff 9b 00 00 00 47 " + seventyHex + " 00";

    for (short use64 : {1, 0}) {
        SCOPED_TRACE(use64 ? "64-bit layout" : "classic layout");
        MemoryFile m;
        ASSERT_EQ(m.file.startObjectMergingWrite(use64), 0);
        ASSERT_EQ(m.file.getUse64Bit(), use64);
        const long first = m.file.tell();
        for (const Record& r : records) {
            long start = m.file.tell();
            ASSERT_EQ(r.value.write(&m.file), 0);
            Bytes all = m.bytes();
            std::string written = toHex(Bytes(all.begin() + start, all.begin() + m.file.tell()));
            const char* expected = use64 ? r.hex64 : r.hexClassic;
            EXPECT_EQ(written, expected ? expected : (use64 ? long64 : longClassic))
                << "writing " << hexOfText(r.textRead);
        }
        long end = m.file.tell();
        m.file.seek(first, 0);
        for (const Record& r : records) {
            GSString back = GSString::withCopyOf("previous content");
            ASSERT_EQ(back.read(&m.file), 0);
            EXPECT_EQ(back.isNull(), r.value.isNull()) << "null and empty stay distinct";
            EXPECT_EQ(back.getEncoding(), r.tagRead);
            EXPECT_EQ(text(back), r.textRead);
        }
        EXPECT_EQ(m.file.tell(), end);
        m.file.stopObjectMergingWrite();
    }
}

TEST(StringFile, OlderClassicFormAndUnterminatedText) {
    // A positive marker is itself the count of a Windows text.
    MemoryFile old(fromHex("00 05 61 62 63 e9 00"));
    GSString s;
    ASSERT_EQ(s.read(&old.file), 0);
    EXPECT_EQ(text(s), "abc\x8E");
    EXPECT_EQ(s.getEncoding(), GSString::kMac);

    // A text whose last byte is not NUL reads as the null string, and that is not an error.
    MemoryFile unterminated(fromHex("ff 9b 00 00 00 03 61 62 63"));
    s = GSString::withCopyOf("x");
    EXPECT_EQ(s.read(&unterminated.file), 0);
    EXPECT_TRUE(s.isNull());

    // A count of 0 or less is the null string too.
    MemoryFile negative(fromHex("ff 9b ff ff ff fb"));
    EXPECT_EQ(s.read(&negative.file), 0);
    EXPECT_TRUE(s.isNull());
}

TEST(StringFile, CountsTheFileCannotHoldFailWithoutAllocating) {
    struct Case {
        const char* hex;
        const char* what;
    };
    const Case cases[] = {
        {"ff 9b 7f ff ff ff 61 00", "2^31 - 1 bytes announced, two there"},
        {"ff 9b 00 01 00 00 61 00", "65536 bytes announced"},
        {"ff 9b 00 00 00 09 61 62 00", "a count that runs past the end"},
        {"ff 9b 00 00", "a cut count"},
        {"ff", "a cut marker"},
    };
    for (const Case& c : cases) {
        MemoryFile m(fromHex(c.hex));
        GSString s;
        long before = allocationCount();
        EXPECT_EQ(s.read(&m.file), 1) << c.what;
        EXPECT_EQ(allocationCount() - before, 0) << c.what;
        EXPECT_TRUE(s.isNull()) << c.what;
    }

    // The same in the 64-bit layout, with compact counts up to 2^62.
    for (long announced : {1L << 62, 1L << 40, 70000L, 9L}) {
        MemoryFile m;
        ASSERT_EQ(m.file.startObjectMergingWrite(1), 0);
        long start = m.file.tell();
        ASSERT_EQ(m.file.writeChar(100), 0);
        ASSERT_EQ(m.file.writeCompactLongLong(announced), 0);
        ASSERT_EQ(m.file.write("ab", 3), 0);
        m.file.seek(start, 0);
        GSString s;
        long before = allocationCount();
        EXPECT_EQ(s.read(&m.file), 1) << announced << " bytes announced";
        EXPECT_EQ(allocationCount() - before, 0) << announced << " bytes announced";
        m.file.stopObjectMergingWrite();
    }
}
