// ObjectModelTest.cpp - reference counting, exact-class tests, the class registry and copying.
#include "GSMemPicData.h"
#include "GSObject.h"
#include "GSRuntimeClass.h"

#include <gtest/gtest.h>

#include <cstring>
#include <deque>
#include <string>

namespace {

struct Probe : GSObject {
    short writeStatus = 0, readStatus = 0;
    short write(GSFile*) const override { return writeStatus; }
    short read(GSFile*) override { return readStatus; }
};

} // namespace

// A release at count 1 destroys: ContainersTest's ObjectArray case.
TEST(ObjectModel, ReleaseAtCountZeroAndKindOfTheExactClassOnly) {
    auto* fresh = new Probe;
    fresh->release();
    EXPECT_EQ(fresh->getReferenceCount(), -1) << "not destroyed";
    delete fresh;
    GSMemPicData mem;
    GSSystemPicData system;
    EXPECT_TRUE(system.isKindOfRuntimeClass(GSSystemPicData::gsClassGSSystemPicData));
    EXPECT_EQ(GSObjectCast<GSMemPicData>(&system, GSMemPicData::gsClassGSMemPicData), nullptr)
        << "the base chain must not be walked";
    EXPECT_FALSE(mem.isKindOfRuntimeClass(GSObject::gsClassGSObject));
}

TEST(RuntimeClass, ClassesStayFindableAndSortedAndMakeObjects) {
    // Records are never removed, so a repeated run adds new ones under new names.
    static std::deque<GSRuntimeClass> records;
    static int round = 0;
    ++round;
    const GSRuntimeClass::Registry& registry = GSRuntimeClass::registry();
    long before = registry.getCount();
    const char* prefixes[] = {"AA", "GSFileWorker", "GSN", "zz", "GSMemPicDataX"};
    std::vector<std::string> names;
    for (int i = 0; i < 65; ++i) {
        int k = (i * 29) % 65; // registration order differs from name order
        names.push_back(prefixes[k % 5] + std::to_string(round) + "_" + std::to_string(100 + k));
        records.emplace_back(GSString::withCopyOf(names.back().c_str()), &GSObject::gsClassGSObject,
                             nullptr);
    }
    ASSERT_EQ(registry.getCount(), before + 65) << "a registration was lost";
    for (long i = 1; i < registry.getCount(); ++i)
        ASSERT_LE(std::strcmp(registry[i - 1]->getName().getConstAddr(),
                              registry[i]->getName().getConstAddr()),
                  0)
            << "registry out of order at " << i;
    for (int i = 0; i < 65; ++i)
        EXPECT_EQ(GSRuntimeClass::getRuntimeClassForName(names[i].c_str()),
                  &records[records.size() - 65 + i])
            << names[i];
    EXPECT_EQ(GSRuntimeClass::getRuntimeClassForName("GSObject"), &GSObject::gsClassGSObject);
    EXPECT_EQ(GSRuntimeClass::createObjectForName("GSObject"), nullptr) << "no factory";
    EXPECT_EQ(GSRuntimeClass::createObjectForName("GSFileWorker"), nullptr) << "abstract";
    EXPECT_EQ(GSRuntimeClass::createObjectForName("GSNoSuchClass"), nullptr);
    GSObject* made = GSRuntimeClass::createObjectForName("GSMemPicData");
    ASSERT_NE(made, nullptr);
    EXPECT_TRUE(made->isKindOfRuntimeClass(GSMemPicData::gsClassGSMemPicData));
    EXPECT_EQ(made->getReferenceCount(), 0);
    delete made;
}

TEST(ObjectModel, CopyContentGoesThroughAMemoryFile) {
    GSMemPicData source, target;
    source.kind = GSMemPicData::kPNG;
    source.dataSize = 4;
    source.infoValue = 7;
    source.size = {120, 80};
    source.bytes.setSize(4);
    ASSERT_EQ(source.copyContentTo(&target), 0);
    EXPECT_EQ(std::tuple(target.kind, target.dataSize, target.infoValue, target.size.width,
                         target.size.height),
              std::tuple(GSMemPicData::kPNG, 4, 7, 120, 80));
    // Reading stops where the encoded bytes begin: they stay in the file, not in the object.
    EXPECT_EQ(target.bytes.getSize(), 0);

    GSSystemPicData other;
    other.infoValue = 3;
    EXPECT_EQ(source.copyContentTo(&other), 1) << "different classes";
    EXPECT_EQ(other.infoValue, 3) << "the target must stay untouched";
    Probe writer, reader;
    writer.writeStatus = 3;
    EXPECT_EQ(writer.copyContentTo(&reader), 3) << "a write failure comes back unchanged";
    writer.writeStatus = 0;
    reader.readStatus = 5;
    EXPECT_EQ(writer.copyContentTo(&reader), 1) << "a read failure is folded to 1";
}
