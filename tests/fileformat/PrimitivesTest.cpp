// PrimitivesTest.cpp - byte-exact encodings of GSFile's numbers and identifiers.
#include "TestSupport.h"

#include <gtest/gtest.h>

using namespace testing_support;

TEST(Primitives, IntegersAreBigEndian) {
    MemoryFile m;
    ASSERT_EQ(m.file.writeShort(-2), 0);
    ASSERT_EQ(m.file.writeLongLong(0x0102030405060708L), 0);
    EXPECT_EQ(toHex(m.bytes()), "ff fe 01 02 03 04 05 06 07 08");
}
