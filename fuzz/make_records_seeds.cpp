// make_records_seeds.cpp - writes the seed corpus of fuzz_records with our own writer: records
// of every value object and key class, nested dictionaries with shared values, a bare dictionary
// body and array blocks, in each framing a document gives them (no table, a table without
// 64-bit mode, a table with it). Each seed starts with fuzz_records' mode byte.
//
// Usage: make-records-seeds FOLDER   (the corpus is fuzz/corpus/records)
#include "fileformat/GSFile.h"
#include "fileformat/GSFormatNumbers.h"
#include "objects/GSArrayBlock.h"
#include "objects/GSArrayObjects.h"
#include "objects/GSLongDictionaryKey.h"
#include "objects/GSNumberObjects.h"
#include "objects/GSObjectDictionaryObject.h"
#include "objects/GSObjectRef.h"
#include "objects/GSStringDictionaryKey.h"
#include "objects/GSStringObject.h"
#include "storage/GSFileWorker.h"
#include "storage/GSFileWorkerMemory.h"

#include <cstdio>
#include <functional>
#include <string>
#include <vector>

namespace {

enum : unsigned char { kTable = 1, kSkip = 2, kDictionaryBody = 4, kArrayBlock = 8 };
enum Framing { kPlain, kLongTable, kByteTable };

template <class T> GSDynaArray<T> arrayOf(std::initializer_list<T> values) {
    GSDynaArray<T> array;
    for (const T& v : values)
        array.add(v);
    return array;
}

std::vector<GSObjectRef<GSObject>> valueRecords() {
    std::vector<GSObjectRef<GSObject>> records;
    auto add = [&](GSObject* o) { records.emplace_back(o); };
    add(new GSLongObject(-2));
    add(new GSULongObject(4294967295u));
    add(new GSPointerObject(0x0102030405060708));
    add(new GSFloatObject(1.5f));
    add(new GSDoubleObject(0.1));
    add(new GSStringObject("Grüße"));
    add(new GSBufferObject(arrayOf<unsigned char>({1, 2, 3, 255})));
    add(new GSFloatArrayObject(arrayOf({0.5f, -2.0f})));
    add(new GSLongArrayObject(arrayOf({7, -1, 0x7fffffff})));
    add(new GSStringDictionaryKey("GSFileData"));
    add(new GSLongDictionaryKey(7));
    return records;
}

GSObjectRef<GSObjectDictionaryObject> nestedDictionary() {
    GSObjectRef<GSObjectDictionaryObject> top(new GSObjectDictionaryObject());
    GSObjectRef<GSLongObject> shared(new GSLongObject(7));
    top->value.setObjectValue("GSFileData", new GSBufferObject(arrayOf<unsigned char>({9, 8, 7})));
    top->value.setObjectValue("a", shared.get());
    top->value.setObjectValue("A", shared.get());
    GSObjectRef<GSLongDictionaryKey> seven(new GSLongDictionaryKey(7));
    top->value.setValue(seven.get(), new GSStringObject("seven"));
    GSObjectRef<GSObjectDictionaryObject> inner(new GSObjectDictionaryObject());
    inner->value.setObjectValue("deep", new GSFloatArrayObject(arrayOf({1.0f})));
    inner->value.setObjectValue("shared", shared.get());
    top->value.setObjectValue("inner", inner.get());
    return top;
}

bool writeSeed(const std::string& folder, const std::string& name, unsigned char mode,
               Framing framing, const std::function<short(GSFile*)>& write) {
    GSFile file;
    if (file.init(GSGrowDouble, 0)) return false;
    file.getFileWorker()->setAccessMode("wb+");
    if (file.open() || file.putChar(static_cast<char>(mode))) return false;
    // The target reads the bytes after the mode byte: positions in tables count from there.
    file.setOrigin(1);
    if (framing != kPlain && file.startObjectMergingWrite(framing == kByteTable)) return false;
    short status = write(&file);
    if (framing != kPlain) file.stopObjectMergingWrite();
    if (status) return false;
    const auto& bytes = static_cast<GSFileWorkerMemory*>(file.getFileWorker())->getBuffer();
    std::string path = folder + "/" + name;
    std::FILE* out = std::fopen(path.c_str(), "wb");
    bool ok = out && std::fwrite(bytes.getData(), 1, size_t(bytes.getSize()), out) ==
                         size_t(bytes.getSize());
    if (out && std::fclose(out) != 0) ok = false;
    if (!ok) std::fprintf(stderr, "make-records-seeds: %s: cannot write\n", path.c_str());
    return ok;
}

} // namespace

int main(int argc, char** argv) {
    if (argc != 2) {
        std::fprintf(stderr, "Usage: make-records-seeds FOLDER\n");
        return 2;
    }
    const std::string folder = argv[1];
    const auto values = valueRecords();
    const auto dictionary = nestedDictionary();
    auto allValues = [&](GSFile* f) {
        for (const auto& v : values)
            if (f->writeObject(v.get())) return short(1);
        return short(0);
    };
    auto nested = [&](GSFile* f) { return f->writeObject(dictionary.get()); };
    auto body = [&](GSFile* f) { return dictionary->value.write(f); };
    auto merged = [](GSFile* f) { return GSWriteArrayBlock(f, arrayOf({1, -2, 3}), true); };
    auto floats = [](GSFile* f) { return GSWriteArrayBlock(f, arrayOf({0.25f, 4.0f})); };
    const struct {
        const char* name;
        Framing framing;
        unsigned char mode;
        std::function<short(GSFile*)> write;
    } seeds[] = {
        {"values-plain", kPlain, 0, allValues},
        {"values-long-table", kLongTable, kTable, allValues},
        {"values-byte-table", kByteTable, kTable, allValues},
        {"values-skipped", kPlain, kSkip, allValues},
        {"dictionary-plain", kPlain, 0, nested},
        {"dictionary-long-table", kLongTable, kTable, nested},
        {"dictionary-byte-table", kByteTable, kTable, nested},
        {"dictionary-body-byte-table", kByteTable, kTable | kDictionaryBody, body},
        {"array-block-merged-ints", kPlain, kArrayBlock | (2 << 4), merged},
        {"array-block-floats", kPlain, kArrayBlock | (1 << 4), floats},
    };
    for (const auto& seed : seeds)
        if (!writeSeed(folder, seed.name, seed.mode, seed.framing, seed.write)) return 1;
    return 0;
}
