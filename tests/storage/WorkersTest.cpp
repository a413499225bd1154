// WorkersTest.cpp - access modes, text operations, and the memory and stream workers.
#include "GSFileWorkerMemory.h"
#include "GSFileWorkerStream.h"
#include "GSObjectRef.h"
#include "TestSupport.h"

#include <gtest/gtest.h>

#include <climits>
#include <string>

using namespace testing_support;

namespace {

// A memory worker over `content`, opened in `mode`; held by reference like any GSObject.
GSObjectRef<GSFileWorkerMemory> memoryWorker(const std::string& content, const char* mode) {
    GSObjectRef<GSFileWorkerMemory> w(
        new GSFileWorkerMemory(toDynaArray(Bytes(content.begin(), content.end()))));
    w->setAccessMode(mode);
    EXPECT_EQ(w->open(), 0);
    return w;
}

std::string contents(const GSFileWorkerMemory& w) {
    const auto& b = w.getBuffer();
    return std::string(reinterpret_cast<const char*>(b.getData()), b.getSize());
}

std::string asString(const GSString& s) {
    return std::string(s.getConstAddr(), s.getLength());
}

} // namespace

TEST(FileWorker, AccessModes) {
    struct {
        const char *argument, *mode;
        unsigned flags;
    } cases[] = {{"r", "rb", 1},     {"rt", "rb", 1},   {"rb", "rb", 5},   {"r+", "rb+", 3},
                 {"rt+", "rb+", 3},  {"r+b", "rb+", 3}, {"rb+", "rb+", 7}, {"w", "wb", 10},
                 {"wt", "wb", 10},   {"wb", "wb", 14},  {"w+", "wb+", 11}, {"wt+", "wb+", 11},
                 {"wb+", "wb+", 15}, {"a", "ab", 2},    {"at", "ab", 2},   {"ab", "ab", 6},
                 {"a+", "ab+", 3},   {"ab+", "ab+", 7}};
    GSObjectRef<GSFileWorkerMemory> w(new GSFileWorkerMemory());
    EXPECT_STREQ(w->getAccessMode(), "rb") << "a fresh worker";
    EXPECT_EQ(w->getAccessFlags(), 5u);
    for (const auto& c : cases) {
        w->setAccessMode(c.argument);
        EXPECT_STREQ(w->getAccessMode(), c.mode) << c.argument;
        EXPECT_EQ(w->getAccessFlags(), c.flags) << c.argument;
    }
}

TEST(FileWorker, TextReading) {
    auto text = memoryWorker("a\r\nb\n\r\r", "r");
    std::vector<int> got;
    for (int i = 0; i < 6; ++i)
        got.push_back(text->getChar());
    EXPECT_EQ(got, (std::vector<int>{'a', 10, 'b', 10, 10, -1}))
        << "every line break is one newline";
    auto binary = memoryWorker("\r\n\xff", "rb");
    EXPECT_EQ(binary->getChar(), 13);
    EXPECT_EQ(binary->getChar(), 10);
    EXPECT_EQ(binary->getChar(), 255) << "bytes above 127 must not come back negative";

    GSString s;
    auto w = memoryWorker("abcdefg\n", "rb");
    EXPECT_EQ(w->getString(&s, 5), 0);
    EXPECT_EQ(asString(s), "abcd") << "at most maxLength - 1 characters";
    EXPECT_EQ(w->getString(&s, 0), 0);
    EXPECT_EQ(asString(s), "efg\n") << "the newline stays in the string";
    EXPECT_EQ(w->getString(&s, 0), 1) << "at the end";
    EXPECT_EQ(asString(s), "");
    auto lines = memoryWorker("one\r\ntwo", "rb");
    EXPECT_EQ(lines->getString(&s, 0), 0);
    EXPECT_EQ(asString(s), "one\n") << "a binary worker still translates line breaks here";
    EXPECT_EQ(lines->getAccessFlags(), 5u) << "the access flags must be restored";
    EXPECT_EQ(lines->getString(&s, 0), 1);
    EXPECT_EQ(asString(s), "two") << "no final newline: the rest, and result 1";
}

TEST(FileWorker, PutLongPutStringAndTheOpenCloseProtocol) {
    auto w = memoryWorker("", "wb");
    EXPECT_EQ(w->putLong(-42, 5), 0);
    EXPECT_EQ(w->putLong(7, 0), 0);
    EXPECT_EQ(w->putLong(INT_MIN, 0), 0);
    EXPECT_EQ(contents(*w), "-000427-2147483648");
    EXPECT_EQ(w->open(), 1) << "open on an open worker";
    ASSERT_EQ(w->close(0), 0);
    EXPECT_EQ(w->close(0), 1) << "close on a closed worker";
    EXPECT_EQ(contents(*w), "-000427-2147483648") << "closing a memory worker keeps its bytes";
    EXPECT_EQ(w->putString("x", 0) + w->putLong(1, 0), 2) << "a closed worker writes nothing";

    auto text = memoryWorker("", "w");
    EXPECT_EQ(text->putString("a\nb", 1), 0);
    EXPECT_EQ(contents(*text), "a\r\nb\r\n") << "text mode writes CR LF";
    auto binary = memoryWorker("", "wb");
    EXPECT_EQ(binary->putString("a\nb", 1), 0);
    EXPECT_EQ(contents(*binary), "a\nb\n");

    // A stream worker writes bare LF even in text mode, and "w" replaces the old content.
    TempFolder folder;
    writeFile(folder.path("notes.txt"), Bytes(20, 'x'));
    GSObjectRef<GSFileWorkerStream> stream(new GSFileWorkerStream());
    stream->setAccessMode("w");
    stream->setFileSpec(
        GSFileSpec(GSString(folder.path("notes.txt").c_str(), -1, GSString::kUTF8)));
    ASSERT_EQ(stream->open(), 0);
    EXPECT_EQ(stream->putString("a\nb", 1) + stream->putLong(-42, 5), 0);
    ASSERT_EQ(stream->close(0), 0);
    EXPECT_EQ(readFile(folder.path("notes.txt")), fromHex("61 0a 62 0a 2d 30 30 30 34 32"));
}

TEST(MemoryWorker, WritingNeverChangesTheCallersArray) {
    GSDynaArray<unsigned char> caller = toDynaArray(fromHex("00 01 02 03 04 05 06 07 08 09"));
    GSObjectRef<GSFileWorkerMemory> w(new GSFileWorkerMemory(caller));
    ASSERT_EQ(w->open(), 0);
    ASSERT_EQ(w->seek(4, 0), 0);
    EXPECT_EQ(w->writeData("ABCDEFGHIJ", 10), 10);
    EXPECT_EQ(w->tell(), 14);
    EXPECT_EQ(contents(*w), std::string("\0\1\2\3ABCDEFGHIJ", 14));
    EXPECT_EQ(toHex(Bytes(caller.getData(), caller.getData() + caller.getSize())),
              "00 01 02 03 04 05 06 07 08 09");

    GSObjectRef<GSFileWorkerMemory> truncated(new GSFileWorkerMemory(caller));
    truncated->setAccessMode("wb");
    ASSERT_EQ(truncated->open(), 0);
    EXPECT_EQ(truncated->getBuffer().getSize(), 0) << "\"wb\" gives an empty file";
    EXPECT_EQ(caller.getSize(), 10) << "...without emptying the caller's array";
}

TEST(MemoryWorker, SeekClampsAndReadStopsAtTheEnd) {
    auto w = memoryWorker("0123456789", "rb");
    EXPECT_EQ(w->seek(5, 2), 1);
    EXPECT_EQ(w->tell(), 10);
    ASSERT_EQ(w->seek(2, 0), 0);
    EXPECT_EQ(w->seek(-3, 1), 1);
    EXPECT_EQ(w->tell(), 0);
    EXPECT_EQ(w->seek(LONG_MAX, 1), 1) << "an overflowing target";
    EXPECT_EQ(w->tell(), 10);
    ASSERT_EQ(w->seek(-4, 2), 0);
    char buffer[8] = {};
    EXPECT_EQ(w->readData(buffer, 8), 4);
    EXPECT_EQ(std::string(buffer, 4), "6789");
    EXPECT_EQ(w->readData(buffer, 8), 0);
    EXPECT_EQ(w->eof(), 1);
}
