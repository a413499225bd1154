// ObjectModelTest.cpp - the class registry, and copying through a memory file.
#include "fileformat/GSFormatNumbers.h"
#include "objects/GSObject.h"
#include "objects/GSRuntimeClass.h"
#include "thumbnail/GSMemPicData.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <deque>
#include <string>

namespace {

struct Probe : GSObject {
    short writeStatus = 0, readStatus = 0;
    short write(GSFile*) const override { return writeStatus; }
    short read(GSFile*) override { return readStatus; }
};

} // namespace

TEST(RuntimeClass, ClassesStayFindableAndSortedAndMakeObjects) {
    // Records are never removed, so a repeated run adds new ones under new names. 65 of them,
    // registered out of name order, make the registry grow past its first blocks.
    static std::deque<GSRuntimeClass> records;
    static int round = 0;
    ++round;
    const std::string prefixes[] = {"AA", "GSFileWorker", "GSN", "zz", "GSMemPicDataX"};
    std::vector<std::string> names, listed;
    for (int i = 0; i < 65; ++i) {
        int k = (i * 29) % 65;
        names.push_back(prefixes[k % 5] + std::to_string(round) + "_" + std::to_string(100 + k));
        records.emplace_back(GSString::withCopyOf(names.back().c_str()), &GSObject::gsClassGSObject,
                             nullptr);
    }
    const GSRuntimeClass::Registry& registry = GSRuntimeClass::registry();
    for (long i = 0; i < registry.getCount(); ++i)
        listed.push_back(registry[i]->getName().getConstAddr());
    EXPECT_TRUE(std::is_sorted(listed.begin(), listed.end()));
    for (int i = 0; i < 65; ++i)
        EXPECT_EQ(GSRuntimeClass::getRuntimeClassForName(names[i].c_str()),
                  &records[records.size() - 65 + i])
            << names[i];
    EXPECT_EQ(GSRuntimeClass::getRuntimeClassForName("GSObject"), &GSObject::gsClassGSObject);
    // No factory, abstract classes, unknown names.
    for (const char* none : {"GSObject", "GSFileWorker", "GSObjectDictionaryKey", "GSNoSuchClass"})
        EXPECT_EQ(GSRuntimeClass::createObjectForName(none), nullptr) << none;
    GSObject* made = GSRuntimeClass::createObjectForName("GSMemPicData");
    ASSERT_NE(made, nullptr);
    EXPECT_TRUE(made->isKindOfRuntimeClass(GSMemPicData::gsClassGSMemPicData));
    EXPECT_EQ(made->getReferenceCount(), 0);
    delete made;
}

TEST(ObjectModel, CopyContentGoesThroughAMemoryFile) {
    GSMemPicData source, target;
    source.kind = GSPreviewPNG;
    source.dataSize = 4;
    source.infoValue = 7;
    source.size = {120, 80};
    source.bytes.setSize(4);
    ASSERT_EQ(source.copyContentTo(&target), 0);
    // Reading stops where the encoded bytes begin: they stay in the file, not in the object.
    EXPECT_EQ(std::tuple(target.kind, target.dataSize, target.infoValue, target.size.width,
                         target.size.height, target.bytes.getSize()),
              std::tuple(GSPreviewPNG, 4, 7, 120, 80, 0L));
    GSSystemPicData other;
    other.infoValue = 3;
    EXPECT_EQ(std::pair(source.copyContentTo(&other), other.infoValue), std::pair(short(1), 3))
        << "different classes: refused, the target untouched";
    // A write failure comes back unchanged, a read failure is folded to 1.
    for (auto [write, read, expected] : {std::tuple(3, 0, 3), std::tuple(0, 5, 1)}) {
        Probe writer, reader;
        writer.writeStatus = short(write);
        reader.readStatus = short(read);
        EXPECT_EQ(writer.copyContentTo(&reader), expected);
    }
}
