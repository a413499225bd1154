// WorkersTest.cpp - access modes, text operations, the open/close protocol, the memory and
// stream workers, and memory file specs opened through GSFile.
#include "GSArrayObjects.h"
#include "GSFileWorkerMemory.h"
#include "GSFileWorkerStream.h"
#include "GSObjectRef.h"
#include "GSRuntimeClass.h"
#include "GSStringDictionaryKey.h"
#include "SaveTestSupport.h"

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

TEST(FileWorker, TextReadingFromAFile) {
    // The stream steps back with a relative seek when a break is a single CR or LF.
    TempFolder folder;
    writeFile(folder.path("runs.txt"), fromHex("61 0d 0d 0a 0a 0d 62 0a"));
    GSObjectRef<GSFileWorkerStream> w(new GSFileWorkerStream());
    w->setAccessMode("r");
    w->setFileSpec(GSFileSpec(GSString(folder.path("runs.txt").c_str(), -1, GSString::kUTF8)));
    ASSERT_EQ(w->open(), 0);
    std::vector<int> got;
    for (int i = 0; i < 6; ++i)
        got.push_back(w->getChar());
    EXPECT_EQ(got, (std::vector<int>{'a', 10, 10, 10, 'b', 10})) << "CR, CR LF, LF CR, final LF";
    EXPECT_EQ(w->getChar(), -1);
    EXPECT_EQ(w->eof(), 1);
    ASSERT_EQ(w->seek(0, 0), 0);
    GSString line;
    EXPECT_EQ(w->getString(&line, 0), 0);
    EXPECT_EQ(asString(line), "a\n");
    EXPECT_EQ(w->close(0), 0);
    EXPECT_EQ(readFile(folder.path("runs.txt")), fromHex("61 0d 0d 0a 0a 0d 62 0a"))
        << "reading changes nothing";
}

TEST(FileWorker, PutLongPutStringAndTheOpenCloseProtocol) {
    auto w = memoryWorker("", "wb");
    EXPECT_EQ(w->putLong(-42, 5), 0);
    EXPECT_EQ(w->putLong(7, 0), 0);
    EXPECT_EQ(w->putLong(INT_MIN, 0), 0);
    EXPECT_EQ(w->putFloat(3.25f, 2) + w->putFloat(-2.0f, 3) + w->putFloat(0.125f, 1), 0);
    EXPECT_EQ(contents(*w), "-000427-21474836483.25-20.1") << "no trailing zeros";
    EXPECT_EQ(w->open(), 1) << "open on an open worker";
    ASSERT_EQ(w->close(0), 0);
    EXPECT_EQ(w->close(0), 1) << "close on a closed worker";
    EXPECT_EQ(contents(*w), "-000427-21474836483.25-20.1")
        << "closing a memory worker keeps its bytes";
    EXPECT_EQ(w->putString("x", 0) + w->putLong(1, 0) + w->putFloat(1.0f, 0), 3)
        << "a closed worker writes nothing";

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
    EXPECT_EQ(stream->close(0), 1) << "close on a closed stream worker";

    GSObjectRef<GSFileWorkerStream> unnamed(new GSFileWorkerStream());
    EXPECT_EQ(unnamed->open(), 1) << "no file to open";
    EXPECT_EQ(unnamed->isOpened(), 0);
    EXPECT_EQ(unnamed->close(0), 1);
    GSObjectRef<GSFileWorkerStream> missing(new GSFileWorkerStream());
    missing->setFileSpec(
        GSFileSpec(GSString(folder.path("no/such/file").c_str(), -1, GSString::kUTF8)));
    missing->setAccessMode("wb");
    EXPECT_EQ(missing->open(), 1) << "a folder that does not exist";
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

TEST(MemoryWorker, RegisteredByNameAndCreatable) {
    GSObject* made = GSRuntimeClass::createObjectForName("GSFileWorkerMemory");
    ASSERT_NE(made, nullptr);
    GSObjectRef<GSObject> held(made);
    auto* w = GSObjectCast<GSFileWorkerMemory>(made, GSFileWorkerMemory::gsClassGSFileWorkerMemory);
    ASSERT_NE(w, nullptr);
    EXPECT_EQ(w->isMemoryWorker(), 1);
    EXPECT_EQ(w->getBuffer().getCapacity(), 32768);
    EXPECT_EQ(GSRuntimeClass::createObjectForName("GSFileWorker"), nullptr) << "abstract";
    GSObjectRef<GSFileWorkerStream> stream(new GSFileWorkerStream());
    EXPECT_EQ(stream->getRuntimeClass(), &GSFileWorker::gsClassGSFileWorker);
    EXPECT_EQ(stream->isMemoryWorker(), 0);
    EXPECT_EQ(stream->getMemoryAddress(), nullptr);
    EXPECT_EQ(GSFileWorkerMemory(16, 0).getBuffer().getCapacity(), 16);
    EXPECT_EQ(GSFileWorkerMemory(-50, 0).getBuffer().getCapacity(), 8192);
}

// A memory file spec opens a memory worker through GSFile: the same code that saves a
// document to a file saves it to memory, and reads it back from bytes in the dictionary.
TEST(MemoryWorker, MemoryFileSpecsOpenThroughGSFile) {
    using namespace save_test;
    TempFolder folder;
    const Bytes doc = makeDocument(5, 70000);
    const std::string path = folder.path("doc.etd");
    ASSERT_EQ(saveDocument(path, 1, doc), 0);
    ASSERT_TRUE(slurp(path) == doc);

    for (int form = 0; form < 2; ++form) {
        GSFileSpec spec(gs(folder.path(form ? "by-id" : "by-flag")));
        if (form) {
            spec.getOrCreateDictionary()->setObjectValue(GSFileDataIDKey,
                                                         new GSStringDictionaryKey(gs("doc")));
        } else {
            putLong(&spec, GSFileSaveToMemoryKey, 1);
        }
        GSFile file(spec, 0);
        auto* memory = GSObjectCast<GSFileWorkerMemory>(
            file.getFileWorker(), GSFileWorkerMemory::gsClassGSFileWorkerMemory);
        ASSERT_NE(memory, nullptr) << "form " << form;
        EXPECT_EQ(str(file.getFileSpec().getFilename(1)), form ? "by-id" : "by-flag");
        file.getFileWorker()->setAccessMode("wb");
        ASSERT_EQ(file.open(), 0);
        EXPECT_EQ(writeDocument(&file, doc, 4096), 0);
        ASSERT_EQ(file.close(0), 0);
        const auto& bytes = memory->getBuffer();
        EXPECT_TRUE(Bytes(bytes.getData(), bytes.getData() + bytes.getSize()) == doc)
            << "form " << form << ": the bytes a file would hold";
        EXPECT_EQ(memory->getMemoryAddress(), bytes.getData());
    }
    EXPECT_EQ(listing(folder.root()), std::set<std::string>{"doc.etd"}) << "no file was made";

    GSFileSpec source(gs(folder.path("none.etd")));
    auto* buffer = new GSBufferObject(toDynaArray(doc));
    source.getOrCreateDictionary()->setObjectValue(GSFileDataKey, buffer);
    GSFile reader(source, 0);
    ASSERT_EQ(reader.getFileWorker()->isMemoryWorker(), 1);
    ASSERT_EQ(reader.open(), 0);
    EXPECT_EQ(reader.getLength(), static_cast<long>(doc.size()));
    Bytes back(doc.size());
    ASSERT_EQ(reader.read(back.data(), static_cast<long>(back.size())), 0);
    EXPECT_TRUE(back == doc);
    EXPECT_EQ(reader.close(0), 0);
    EXPECT_EQ(buffer->value.getSize(), static_cast<long>(doc.size())) << "the dictionary's bytes";
}
