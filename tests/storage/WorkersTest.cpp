// WorkersTest.cpp - access modes, text operations, the open/close protocol, the memory and
// stream workers, and memory file specs opened through GSFile.
#include "SaveTestSupport.h"
#include "fileformat/GSFormatNumbers.h"
#include "objects/GSArrayObjects.h"
#include "objects/GSRuntimeClass.h"
#include "objects/GSStringDictionaryKey.h"
#include "storage/GSFileWorkerMemory.h"

#include <gtest/gtest.h>

#include <climits>

using namespace testing_support;
using namespace save_test;

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
    return std::string(reinterpret_cast<const char*>(w.getBuffer().getData()),
                       w.getBuffer().getSize());
}

} // namespace

// "r+b" is not binary: the "+" is found before the "b" would be looked for.
TEST(FileWorker, AccessModes) {
    const std::tuple<const char*, const char*, unsigned> cases[] = {
        {"r", "rb", 1},    {"rb", "rb", 5},  {"r+b", "rb+", 3}, {"rt+", "rb+", 3},
        {"rb+", "rb+", 7}, {"wt", "wb", 10}, {"wb", "wb", 14},  {"w+", "wb+", 11},
        {"a", "ab", 2},    {"ab+", "ab+", 7}};
    GSObjectRef<GSFileWorkerMemory> w(new GSFileWorkerMemory());
    for (const auto& [argument, mode, flags] : cases) {
        w->setAccessMode(argument);
        EXPECT_EQ(w->getAccessMode() + std::to_string(w->getAccessFlags()),
                  mode + std::to_string(flags))
            << argument;
    }
}

// In text mode every line break (CR, CR LF, LF, LF CR) reads as one newline, on both workers
// (the stream steps back with a relative seek after a single CR or LF). getString reads in text
// mode even on a binary worker, keeps the newline, and gives 1 at the end of the data.
TEST(FileWorker, TextReading) {
    TempFolder folder;
    const std::string runs = "a\r\r\n\n\rb\n\xff\r";
    writeText(folder.path("runs.txt"), runs);
    auto stream = streamWorker(folder.path("runs.txt"), "r");
    auto memory = memoryWorker(runs, "r");
    ASSERT_EQ(stream->open(), 0);
    for (GSFileWorker* w :
         {static_cast<GSFileWorker*>(memory.get()), static_cast<GSFileWorker*>(stream.get())}) {
        std::string got;
        for (short c; (c = w->getChar()) != -1;)
            got += std::to_string(c) + " ";
        EXPECT_EQ(got, "97 10 10 10 98 10 255 10 ");
        EXPECT_EQ(w->eof(), 1);
    }
    EXPECT_EQ(stream->close(GSCloseKeep), 0);
    EXPECT_EQ(memoryWorker("\r\n", "rb")->getChar(), 13);

    // At most maxLength - 1 characters; no final newline: the rest, and result 1; a line that is
    // no UTF-8 is Latin 1 (tag 0). The access flags are restored after each line.
    GSString s;
    auto w = memoryWorker("abcdefg\r\nx\xff", "rb");
    std::string lines;
    for (long maxLength : {5, 0, 0, 0}) {
        short result = w->getString(&s, maxLength);
        lines += std::to_string(result) + text(s) + "|" + std::to_string(s.getEncoding()) +
                 std::to_string(w->getAccessFlags()) + " ";
    }
    EXPECT_EQ(lines, "0abcd|1005 0efg\n|1005 1x\xff|05 1|05 ");
}

// The base putChar writes CR LF in text mode; the stream worker writes bare LF.
TEST(FileWorker, PutLongPutStringAndTheOpenCloseProtocol) {
    TempFolder folder;
    auto stream = streamWorker(folder.path("notes.txt"), "w");
    auto text = memoryWorker("", "w"), binary = memoryWorker("", "wb");
    ASSERT_EQ(stream->open(), 0);
    for (GSFileWorker* w :
         {static_cast<GSFileWorker*>(text.get()), static_cast<GSFileWorker*>(binary.get()),
          static_cast<GSFileWorker*>(stream.get())})
        EXPECT_FALSE(w->putLong(-42, 5) || w->putLong(INT_MIN, 0) || w->putLong(7, 0) ||
                     w->putFloat(3.25f, 2) || w->putFloat(0.125f, 1) || w->putString("a\nb", 1));
    ASSERT_EQ(stream->close(GSCloseKeep), 0);
    EXPECT_EQ(contents(*text), "-00042-214748364873.250.1a\r\nb\r\n") << "no trailing zeros";
    EXPECT_EQ(contents(*binary), "-00042-214748364873.250.1a\nb\n");
    EXPECT_EQ(readText(folder.path("notes.txt")), contents(*binary));

    EXPECT_EQ(binary->open(), 1) << "open on an open worker";
    ASSERT_EQ(binary->close(GSCloseKeep), 0);
    EXPECT_EQ(binary->close(GSCloseKeep) + stream->close(GSCloseKeep), 2)
        << "close on a closed worker";
    EXPECT_EQ(binary->putString("x", 0) + binary->putLong(1, 0) + binary->putFloat(1.0f, 0), 3)
        << "a closed worker writes nothing";
    GSObjectRef<GSFileWorkerStream> unnamed(new GSFileWorkerStream());
    EXPECT_EQ(unnamed->open(), 1) << "no file to open";
    EXPECT_EQ(streamWorker(folder.path("no/such/file"), "wb")->open(), 1);
}

// A worker over the caller's array writes into its own copy; seeks clamp to the data, reads stop
// at its end.
TEST(MemoryWorker, CopiesSeeksAndReads) {
    GSDynaArray<unsigned char> caller = toDynaArray(fromHex("30 31 32 33 34 35 36 37 38 39"));
    GSObjectRef<GSFileWorkerMemory> w(new GSFileWorkerMemory(caller)),
        emptied(new GSFileWorkerMemory(caller));
    emptied->setAccessMode("wb");
    ASSERT_FALSE(w->open() || w->seek(4, 0) || emptied->open());
    EXPECT_EQ(w->writeData("ABCDEFGHIJ", 10), 10);
    EXPECT_EQ(contents(*w) + "|" + contents(*emptied), "0123ABCDEFGHIJ|") << "\"wb\" empties";
    EXPECT_EQ(toHex(Bytes(caller.getData(), caller.getData() + caller.getSize())),
              "30 31 32 33 34 35 36 37 38 39");
    // Whence, offset, status, position after.
    const long cases[][4] = {
        {2, 5, 1, 14}, {0, 2, 0, 2}, {1, -3, 1, 0}, {1, LONG_MAX, 1, 14}, {2, -4, 0, 10}};
    for (const auto& c : cases) {
        EXPECT_EQ(w->seek(c[1], short(c[0])), c[2]) << c[0] << ", " << c[1];
        EXPECT_EQ(w->tell(), c[3]) << c[0] << ", " << c[1];
    }
    char buffer[8] = {};
    long first = w->readData(buffer, 8), second = w->readData(buffer + 4, 4);
    EXPECT_EQ(std::to_string(first) + buffer + std::to_string(second) + std::to_string(w->eof()),
              "4GHIJ01");

    // Created by class name, as documents name their workers; a growth step without a capacity
    // is the first capacity.
    GSObjectRef<GSObject> made(GSRuntimeClass::createObjectForName("GSFileWorkerMemory"));
    EXPECT_EQ(made->getRuntimeClass(), &GSFileWorkerMemory::gsClassGSFileWorkerMemory);
    EXPECT_EQ(GSFileWorkerMemory(16, 0).getBuffer().getCapacity(), 16);
}

// A memory file spec opens a memory worker through GSFile: the same code that saves a
// document to a file saves it to memory, and reads it back from bytes in the dictionary.
TEST(MemoryWorker, MemoryFileSpecsOpenThroughGSFile) {
    TempFolder folder;
    const Bytes doc = makeDocument(5, 70000);
    for (bool byID : {false, true}) {
        GSFileSpec spec(bytes(folder.path(byID ? "by-id" : "by-flag")));
        if (byID)
            put(&spec, GSFileDataIDKey, new GSStringDictionaryKey(bytes("doc")));
        else
            putLong(&spec, GSFileSaveToMemoryKey, 1);
        putLong(&spec, GSFileFormatVersionKey, 770);
        GSFile file(spec, 0);
        EXPECT_EQ(text(file.getFileSpec().getFilename(1)) + std::to_string(file.getFormatVersion()),
                  byID ? "by-id770" : "by-flag770");
        ASSERT_EQ(file.getFileWorker()->isMemoryWorker(), 1);
        file.getFileWorker()->setAccessMode("wb");
        ASSERT_FALSE(file.open() || writeDocument(&file, doc, 4096));
        auto* bytes = static_cast<unsigned char*>(file.getFileWorker()->getMemoryAddress());
        EXPECT_TRUE(Bytes(bytes, bytes + file.getLength()) == doc) << byID;
    }
    GSFile plain(GSFileSpec(bytes(folder.path("x"))), 0); // any other spec: a stream worker
    EXPECT_FALSE(plain.getFileWorker()->isMemoryWorker() ||
                 plain.getFileWorker()->getMemoryAddress());
    EXPECT_EQ(listing(folder.root()), std::set<std::string>{}) << "no file was made";

    GSFileSpec source(bytes(folder.path("none.etd")));
    put(&source, GSFileDataKey, new GSBufferObject(toDynaArray(doc)));
    GSFile reader(source, 0);
    Bytes back(doc.size());
    ASSERT_FALSE(reader.open() || reader.read(back.data(), long(back.size())));
    EXPECT_TRUE(back == doc);
    EXPECT_EQ(reader.getLength(), long(doc.size()));
}
