// MalformedInputTest.cpp - crafted bytes that a hostile document could hold: lengths that point
// backwards or far beyond the data, truncated numbers and headers, endless compact integers.
// Every case runs on a memory file and on a real file: the stdio worker seeks past the end where
// the memory worker refuses, so a reader must not rely on the seek to fail.
#include "GSTagRead.h"
#include "TestSupport.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <climits>
#include <csignal>
#include <cstdlib>
#include <functional>
#include <string>
#include <unistd.h>

using namespace testing_support;

namespace {

// A reader that loops forever would hang the whole suite: end the process with a message instead.
struct Watchdog {
    Watchdog() {
        std::signal(SIGALRM, [](int) {
            const char message[] = "\nfileformat_tests: a reader did not come back within 20 s\n";
            (void)!::write(2, message, sizeof message - 1);
            std::_Exit(1);
        });
        ::alarm(20);
    }
    ~Watchdog() { ::alarm(0); }
};

// Runs `check` on `bytes` in a memory file and in a file on disk. With `byteForm`, the bytes are
// preceded by the smallest object table with 64-bit positions (version 512, offset 0, no entries),
// which is what selects the byte form, and `check` starts after it.
void onMemoryAndDisk(const Bytes& bytes, bool byteForm, const std::function<void(GSFile&)>& check) {
    Watchdog watchdog;
    Bytes content = byteForm ? fromHex("02 00 00 00 00 00 00 00 00 00 00 00 00 00") : Bytes();
    content.insert(content.end(), bytes.begin(), bytes.end());
    auto run = [&](GSFile& f) {
        if (byteForm) {
            ASSERT_EQ(f.startObjectMergingRead(), 0);
            ASSERT_EQ(f.getUse64Bit(), 1);
            ASSERT_EQ(f.seek(4, 1), 0); // past the entry count
        }
        check(f);
    };
    {
        SCOPED_TRACE("memory file");
        MemoryFile m(content);
        run(m.file);
    }
    SCOPED_TRACE("file on disk");
    TempFolder folder;
    std::string path = folder.path("input.etd");
    writeFile(path, content);
    GSFile f(GSFileSpec(GSString(path.c_str(), -1, GSString::kUTF8)), 0);
    ASSERT_EQ(f.open(), 0);
    run(f);
}

template <typename T> short readInto(GSFile& f, short (GSFile::*read)(T*)) {
    T value{};
    return (f.*read)(&value);
}

} // namespace

// An item length that points backwards would put the reader onto the same header again, and one
// far beyond the data must not overflow the position arithmetic. Skipping either must fail, or
// (on a real file, where seeking past the end is allowed) leave the reader where no header can be
// read; so both a plain item walk and readVersion's own walk over a too-new chunk end.
TEST(MalformedInput, BadLengthsEndTheWalk) {
    struct Case {
        const char* hex; // a chunk of version 1.0 with one item of tag 5
        bool byteForm;
        long length;
    };
    // clang-format off
    const Case cases[] = {
        {"01 00 00 00 00 05 ff ff ff f8 ff ff ff ff", false, -8},
        {"01 00 00 00 00 05 ff ff ff ff 00 00 00 00", false, -1},
        {"01 00 00 00 00 05 7f ff ff ff 61 62 ff ff ff ff", false, INT_MAX},
        {"10 85 ff ff ff ff ff ff ff f7 7f", true, -9},
        {"10 85 40 00 00 00 00 00 00 00 61 62 7f", true, 1L << 62},
        {"10 85 7f ff ff ff ff ff ff ff 61 7f", true, LONG_MAX},
    };
    // clang-format on
    for (const Case& c : cases) {
        SCOPED_TRACE(c.hex);
        Bytes bytes = fromHex(c.hex);
        onMemoryAndDisk(bytes, c.byteForm, [&](GSFile& f) {
            GSTagRead r(&f);
            ASSERT_EQ(r.readVersion(0x0100, nullptr), 0);
            ASSERT_EQ(r.read(), 5);
            EXPECT_EQ(r.getLength(), c.length) << "lengths are signed";
            if (r.skip() == 0) {
                EXPECT_GT(r.getLength(), 0) << "a skip backwards must fail";
                EXPECT_NE(r.getLength(), LONG_MAX) << "the body's end overflows: skip must fail";
                EXPECT_EQ(r.read(), GSTagRead::kBadTag) << "nothing can be read out there";
            }
        });
        SCOPED_TRACE("as a too-new chunk");
        bytes[0] = c.byteForm ? 0x40 : 0x04;
        onMemoryAndDisk(bytes, c.byteForm, [](GSFile& f) {
            short version = 0;
            EXPECT_EQ(GSTagRead(&f).readVersion(0x0302, &version), 1);
            EXPECT_EQ(version, 0x0400);
        });
    }
}

TEST(MalformedInput, CountsAreCheckedAgainstTheBytesLeft) {
    onMemoryAndDisk(Bytes(5000, 0), false, [](GSFile& f) {
        ASSERT_EQ(f.seek(100, 0), 0);
        EXPECT_TRUE(f.fitsInFile(4900));
        EXPECT_FALSE(f.fitsInFile(4901));
        EXPECT_FALSE(f.fitsInFile(1L << 62));
        EXPECT_FALSE(f.fitsInFile(-1));
        EXPECT_EQ(f.tell(), 100) << "checking the bytes left must not move the reader";
    });
}

// Data that ends inside a number or a header is a failed read, never a read beyond the data; so
// is a compact long long with more than the nine continuation bytes that 64 bits can need.
TEST(MalformedInput, TruncatedOrOverlongDataIsAFailedRead) {
    using Read = std::function<short(GSFile&)>;
    // clang-format off
    const std::pair<const char*, Read> cases[] = {
        {"01 02 03 04 05 06 07", [](GSFile& f) { return readInto(f, &GSFile::readLongLong); }},
        {"20 00 00 00 00", [](GSFile& f) { return readInto(f, &GSFile::readFloat); }},
        {"20 00 00 00 01", [](GSFile& f) { return readInto(f, &GSFile::readDouble); }},
        {"00 00 01", [](GSFile& f) { return readInto(f, &GSFile::readArrayCount); }},
        {"80 ff", [](GSFile& f) { return readInto(f, &GSFile::readCompactLongLong); }},
        {"80 ff ff ff ff ff ff ff ff ff 01",
         [](GSFile& f) { return readInto(f, &GSFile::readCompactLongLong); }},
        {"00 03", [](GSFile& f) { return GSTagRead(&f).readVersion(0x0300, nullptr); }},
        {"00 00 00 05 00 00",
         [](GSFile& f) { return short(GSTagRead(&f).read() == GSTagRead::kBadTag); }},
        {"61 62 63 64", [](GSFile& f) {
             unsigned char buffer[16];
             std::fill(buffer, buffer + 16, 0xEE);
             short status = f.read(buffer, 10);
             EXPECT_EQ(buffer[4], 0xEE) << "written beyond the data";
             return status;
         }},
    };
    // clang-format on
    for (const auto& [hex, read] : cases) {
        SCOPED_TRACE(hex);
        onMemoryAndDisk(fromHex(hex), false, [&](GSFile& f) { EXPECT_NE(read(f), 0); });
    }
    for (const char* header : {"05", "85 00 00 00 01"}) {
        SCOPED_TRACE(std::string("byte-form header ") + header);
        onMemoryAndDisk(fromHex(header), true,
                        [](GSFile& f) { EXPECT_EQ(GSTagRead(&f).read(), GSTagRead::kBadTag); });
    }
}
