// MalformedInputTest.cpp - crafted bytes that a hostile document could hold: lengths that point
// backwards or far beyond the data, truncated numbers and headers, endless compact integers.
// Every case runs on a memory file and on a real file: the stdio worker seeks past the end where
// the memory worker refuses, so a reader must not rely on the seek to fail.
#include "GSTagRead.h"
#include "TestSupport.h"

#include <gtest/gtest.h>

#include <climits>
#include <csignal>
#include <cstdlib>
#include <functional>
#include <string>
#include <unistd.h>

using namespace testing_support;

namespace {

// Runs `check` on `bytes` in a memory file and in a file on disk. With `byteForm`, the bytes are
// preceded by the smallest object table with 64-bit positions (version 512, offset 0, no entries),
// which is what selects the byte form, and `check` starts after it. A reader that loops forever
// would hang the whole suite: an alarm ends the process with a message instead.
void onMemoryAndDisk(const Bytes& bytes, bool byteForm, const std::function<void(GSFile&)>& check) {
    std::signal(SIGALRM, [](int) {
        const char message[] = "\nfileformat_tests: a reader did not come back within 20 s\n";
        (void)!::write(2, message, sizeof message - 1);
        std::_Exit(1);
    });
    ::alarm(20);
    struct Disarm {
        ~Disarm() { ::alarm(0); }
    } disarm;
    Bytes content = byteForm ? fromHex("02 00 00 00 00 00 00 00 00 00 00 00 00 00") : Bytes();
    content.insert(content.end(), bytes.begin(), bytes.end());
    TempFolder folder;
    writeFile(folder.path("input.etd"), content);
    MemoryFile m(content);
    GSFile disk(GSFileSpec(GSString(folder.path("input.etd").c_str(), -1, GSString::kUTF8)), 0);
    ASSERT_EQ(disk.open(), 0);
    for (GSFile* f : {&m.file, &disk}) {
        SCOPED_TRACE(f == &disk ? "file on disk" : "memory file");
        // Past the table's header and its entry count.
        if (byteForm) {
            ASSERT_FALSE(f->startObjectMergingRead() || !f->getUse64Bit() || f->seek(4, 1));
        }
        check(*f);
    }
}

template <typename T> std::function<short(GSFile&)> reading(short (GSFile::*read)(T*)) {
    return [read](GSFile& f) {
        T value{};
        return (f.*read)(&value);
    };
}

} // namespace

// An item length that points backwards would put the reader onto the same header again, and one
// far beyond the data must not overflow the position arithmetic. Skipping either must fail, or
// (on a real file, where seeking past the end is allowed) leave the reader where no header can be
// read; so both a plain item walk and readVersion's own walk over a too-new chunk end.
TEST(MalformedInput, BadLengthsEndTheWalk) {
    // A chunk of version 1.0 with one item of tag 5 and the given length.
    // clang-format off
    const std::tuple<const char*, bool, long> cases[] = {
        {"01 00 00 00 00 05 ff ff ff f8 ff ff ff ff", false, -8},
        {"01 00 00 00 00 05 ff ff ff ff 00 00 00 00", false, -1},
        {"01 00 00 00 00 05 7f ff ff ff 61 62 ff ff ff ff", false, INT_MAX},
        {"10 85 ff ff ff ff ff ff ff f7 7f", true, -9},
        {"10 85 40 00 00 00 00 00 00 00 61 62 7f", true, 1L << 62},
        {"10 85 7f ff ff ff ff ff ff ff 61 7f", true, LONG_MAX}};
    // clang-format on
    for (const auto& [hex, byteForm, length] : cases) {
        SCOPED_TRACE(hex);
        Bytes bytes = fromHex(hex);
        onMemoryAndDisk(bytes, byteForm, [&](GSFile& f) {
            GSTagRead r(&f);
            ASSERT_EQ(r.readVersion(0x0100, nullptr), 0);
            ASSERT_EQ(r.read(), 5);
            EXPECT_EQ(r.getLength(), length) << "lengths are signed";
            if (r.skip() == 0) {
                EXPECT_GT(r.getLength(), 0) << "a skip backwards must fail";
                EXPECT_NE(r.getLength(), LONG_MAX) << "the body's end overflows: skip must fail";
                EXPECT_EQ(r.read(), GSTagRead::kBadTag) << "nothing can be read out there";
            }
        });
        bytes[0] = byteForm ? 0x40 : 0x04; // as a too-new chunk
        onMemoryAndDisk(bytes, byteForm, [](GSFile& f) {
            short version = 0;
            EXPECT_EQ(GSTagRead(&f).readVersion(0x0302, &version), 1);
            EXPECT_EQ(version, 0x0400);
        });
    }
}

// Data that ends inside a number or a header is a failed read, never a read beyond the data; so
// is a compact long long with more than the nine continuation bytes that 64 bits can need. A
// count is checked against the bytes left without moving the reader.
TEST(MalformedInput, TruncatedOrOverlongDataIsAFailedRead) {
    // clang-format off
    const std::tuple<const char*, bool, std::function<short(GSFile&)>> cases[] = {
        {"01 02 03 04 05 06 07", false, reading(&GSFile::readLongLong)},
        {"20 00 00 00 00", false, reading(&GSFile::readFloat)},
        {"20 00 00 00 01", false, reading(&GSFile::readDouble)},
        {"00 00 01", false, reading(&GSFile::readArrayCount)},
        {"80 ff", false, reading(&GSFile::readCompactLongLong)},
        {"80 ff ff ff ff ff ff ff ff ff 01", false, reading(&GSFile::readCompactLongLong)},
        {"00 03", false, [](GSFile& f) { return GSTagRead(&f).readVersion(0x0300, nullptr); }},
        {"00 00 00 05 00 00", false, [](GSFile& f) { return short(GSTagRead(&f).read() == GSTagRead::kBadTag); }},
        {"05", true, [](GSFile& f) { return short(GSTagRead(&f).read() == GSTagRead::kBadTag); }},
        {"85 00 00 00 01", true, [](GSFile& f) { return short(GSTagRead(&f).read() == GSTagRead::kBadTag); }},
        {"61 62 63 64", false, [](GSFile& f) {
             unsigned char buffer[16] = {};
             short status = f.read(buffer, 10);
             return short(status && buffer[4] == 0); // nothing written beyond the data
         }}};
    // clang-format on
    for (const auto& [hex, byteForm, read] : cases) {
        SCOPED_TRACE(hex);
        onMemoryAndDisk(fromHex(hex), byteForm, [&](GSFile& f) { EXPECT_NE(read(f), 0); });
    }
    onMemoryAndDisk(Bytes(5000, 0), false, [](GSFile& f) {
        ASSERT_EQ(f.seek(100, 0), 0);
        EXPECT_TRUE(f.fitsInFile(4900));
        EXPECT_FALSE(f.fitsInFile(4901) || f.fitsInFile(1L << 62) || f.fitsInFile(-1));
        EXPECT_EQ(f.tell(), 100) << "checking the bytes left must not move the reader";
    });
}
