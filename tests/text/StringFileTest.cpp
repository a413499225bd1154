// StringFileTest.cpp - the file form of GSString in the 64-bit and the classic layout.
//
// The 64-bit layout is chosen by the object table of a merging write, so each case writes its
// strings inside one and reads them back from the same file while the table is still there.
#include "AllocationCounter.h"
#include "TestSupport.h"
#include "TextSupport.h"
#include "text/GSString.h"

#include <gtest/gtest.h>

#include <vector>

using bench_support::allocationCount;
using namespace testing_support;

TEST(StringFile, BothLayoutsByteForByteAndBack) {
    const std::string seventy(70, 'x'), seventyHex = toHex(Bytes(seventy.begin(), seventy.end()));
    const struct {
        GSString value;
        std::string hex64, hexClassic;
        int tagRead; // single-byte tags come back in the Mac code page
        std::string textRead;
    } records[] = {
        {GSString::null, "64 00", "00 00", GSString::kUTF8, ""},
        {GSString::withCopyOf(""), "64 01 00", "ff 9b 00 00 00 01 00", GSString::kUTF8, ""},
        {GSString("abc", 3, GSString::kMac), "01 04 61 62 63 00", "ff fe 00 00 00 04 61 62 63 00",
         GSString::kMac, "abc"},
        {GSString("caf\xE9", 4, GSString::kWindows), "00 05 63 61 66 e9 00",
         "ff ff 00 00 00 05 63 61 66 e9 00", GSString::kMac, "caf\x8E"},
        // Tag 2 is single-byte by number but its bytes are read as UTF-8.
        {GSString("\xC3\xA9", 2, 2), "02 03 c3 a9 00", "ff fd 00 00 00 03 c3 a9 00", 1, "\x8E"},
        {GSString("\xE1", 1, 3), "03 02 e1 00", "ff fc 00 00 00 02 e1 00", GSString::kMac, "\xAE"},
        {bytes(units(u"\u00e9A"), GSString::kUTF16), "65 05 e9 00 41 00 00",
         "ff 9a 00 00 00 05 e9 00 41 00 00", GSString::kUTF16, units(u"\u00e9A")},
        // Past the inline form; the count needs two compact bytes.
        {GSString::withCopyOf(seventy.c_str()), "64 87 01 " + seventyHex + " 00",
         "ff 9b 00 00 00 47 " + seventyHex + " 00", GSString::kUTF8, seventy},
    };
    using Read = std::tuple<bool, int, std::string>; // null, tag and text read back
    for (short use64 : {1, 0}) {
        SCOPED_TRACE(use64 ? "64-bit layout" : "classic layout");
        MemoryFile m;
        ASSERT_EQ(m.file.startObjectMergingWrite(use64), 0);
        const long first = m.file.tell();
        std::string hex;
        std::vector<Read> expected, back;
        for (const auto& r : records) {
            ASSERT_EQ(r.value.write(&m.file), 0);
            hex += (hex.empty() ? "" : " ") + (use64 ? r.hex64 : r.hexClassic);
            expected.emplace_back(r.value.isNull(), r.tagRead, r.textRead);
        }
        const long end = m.file.tell();
        const Bytes all = m.bytes();
        EXPECT_EQ(toHex(Bytes(all.begin() + first, all.begin() + end)), hex);
        m.file.seek(first, 0);
        for (size_t i = 0; i < expected.size(); ++i) {
            GSString s = GSString::withCopyOf("previous content");
            ASSERT_EQ(s.read(&m.file), 0);
            back.emplace_back(s.isNull(), s.getEncoding(), text(s));
        }
        EXPECT_EQ(back, expected) << "null and empty stay distinct";
        EXPECT_EQ(m.file.tell(), end);
        m.file.stopObjectMergingWrite();
    }
}

TEST(StringFile, OlderFormsAndCountsTheFileCannotHold) {
    // Rows: bytes, status, text (null: the null string), what they are.
    const std::tuple<const char*, short, const char*, const char*> rows[] = {
        {"00 05 61 62 63 e9 00", 0, "abc\x8E", "a positive marker counts a Windows text"},
        {"ff 9b 00 00 00 03 61 62 63", 0, nullptr, "no NUL at the end: null, not an error"},
        {"ff 9b ff ff ff fb", 0, nullptr, "a count below 1"},
        {"ff 9b 7f ff ff ff 61 00", 1, nullptr, "2^31 - 1 bytes announced, two there"},
        {"ff 9b 00 01 00 00 61 00", 1, nullptr, "65536 bytes announced"},
        {"ff 9b 00 00 00 09 61 62 00", 1, nullptr, "a count that runs past the end"},
        {"ff 9b 00 00", 1, nullptr, "a cut count"},
        {"ff", 1, nullptr, "a cut marker"},
    };
    for (const auto& [hex, status, expected, what] : rows) {
        MemoryFile m(fromHex(hex));
        GSString s = GSString::withCopyOf("x");
        long before = allocationCount();
        short got = s.read(&m.file);
        EXPECT_EQ(std::tuple(got, status ? allocationCount() - before : 0, s.isNull(), text(s)),
                  std::tuple(status, 0L, !expected, std::string(expected ? expected : "")))
            << what;
    }
    // The same in the 64-bit layout, with compact counts up to 2^62.
    for (long announced : {1L << 62, 1L << 40, 70000L, 9L}) {
        MemoryFile m;
        ASSERT_EQ(m.file.startObjectMergingWrite(1), 0);
        long start = m.file.tell();
        ASSERT_EQ(m.file.writeChar(100) || m.file.writeCompactLongLong(announced), 0);
        ASSERT_EQ(m.file.write("ab", 3), 0);
        m.file.seek(start, 0);
        GSString s;
        long before = allocationCount();
        EXPECT_EQ(s.read(&m.file), 1) << announced << " bytes announced";
        EXPECT_EQ(allocationCount() - before, 0) << announced << " bytes announced";
        m.file.stopObjectMergingWrite();
    }
}
