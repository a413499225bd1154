// ContainersTest.cpp - shared storage, growth and index rules of the framework's arrays.
#include "GSArray.h"
#include "GSDynaArray.h"
#include "GSFixArray.h"
#include "GSObject.h"

#include <gtest/gtest.h>

#include <cstring>
#include <utility>
#include <vector>

namespace {

// Counts every construction and destruction, so that copy-on-write and reallocation can be
// checked for leaks and double destruction. A destroyed element is marked -1.
struct Counted {
    static inline long constructed = 0, destroyed = 0;
    int value = 0;
    Counted() { ++constructed; }
    Counted(int v) : value(v) { ++constructed; }
    Counted(const Counted& other) : value(other.value) { ++constructed; }
    Counted& operator=(const Counted&) = default;
    ~Counted() {
        value = -1;
        ++destroyed;
    }
};

std::vector<int> values(const GSDynaArray<Counted>& a) {
    std::vector<int> out;
    for (long i = 0; i < a.getSize(); ++i)
        out.push_back(a[i].value);
    return out;
}

std::vector<int> ints(const GSArray& a) {
    std::vector<int> out(static_cast<size_t>(a.getCount()));
    for (long i = 0; i < a.getCount(); ++i)
        std::memcpy(&out[static_cast<size_t>(i)], a.getElement(i), sizeof(int));
    return out;
}

// The capacity after adding `adds` elements to GSArray(sizeof(int), capacity, grow).
long capacityAfter(long capacity, long grow, int adds) {
    GSArray a(sizeof(int), capacity, grow);
    for (int i = 0; i < adds; ++i)
        EXPECT_EQ(a.add(&i), 0);
    return a.getCapacity();
}

} // namespace

TEST(DynaArray, CopiesShareStorageUntilOneIsWritten) {
    long before = Counted::constructed - Counted::destroyed;
    {
        GSDynaArray<Counted> a;
        for (int i = 0; i < 5; ++i)
            ASSERT_EQ(a.add(Counted(i)), 0);
        GSDynaArray<Counted> b(a), c;
        c = a;
        EXPECT_EQ(b.getArrayData(), a.getArrayData()) << "a copy must share the storage";
        EXPECT_EQ(a.getArrayData()->getReferenceCount(), 3);

        b[2].value = 99; // write access through the copy
        EXPECT_NE(b.getArrayData(), a.getArrayData()) << "the written copy needs its own storage";
        EXPECT_EQ(values(a), (std::vector<int>{0, 1, 2, 3, 4})) << "the original must not change";
        EXPECT_EQ(values(b), (std::vector<int>{0, 1, 99, 3, 4}));
        EXPECT_EQ(a.getArrayData()->getReferenceCount(), 2);

        ASSERT_EQ(c.add(Counted(5)), 0);
        ASSERT_EQ(c.setSize(2), 0);
        EXPECT_EQ(values(a), (std::vector<int>{0, 1, 2, 3, 4})) << "add/setSize on a sharer";
        EXPECT_EQ(values(c), (std::vector<int>{0, 1}));

        GSDynaArray<Counted> d(a);
        ASSERT_EQ(d.empty(), 0);
        EXPECT_EQ(d.getSize(), 0);
        EXPECT_EQ(a.getSize(), 5) << "emptying a sharer must leave the others intact";

        // An element taken from the array itself survives the reallocation that adding causes.
        while (a.getSize() < a.getCapacity())
            ASSERT_EQ(a.add(Counted(7)), 0);
        ASSERT_EQ(a.add(std::as_const(a)[1]), 0);
        EXPECT_EQ(std::as_const(a)[a.getSize() - 1].value, 1);
    }
    EXPECT_EQ(Counted::constructed - Counted::destroyed, before)
        << "elements leaked or freed twice";
}

TEST(DynaArray, GrowthReserveAndBadIndex) {
    GSDynaArray<int> a;
    for (int i = 1; i <= 3; ++i) {
        ASSERT_EQ(a.add(i), 0);
        EXPECT_EQ(a.getCapacity(), i < 3 ? 2 : 6) << "default -100 doubles the request";
    }
    // Reserving never loses the elements of a private storage that is large enough.
    EXPECT_EQ(a.reserve(2), 0);
    EXPECT_EQ(a.reserve(0), 0);
    EXPECT_EQ(a.getSize(), 3) << "reserve must not drop the elements";
    EXPECT_EQ(a.getCapacity(), 6);

    EXPECT_THROW(a[3], std::bad_index);
    EXPECT_THROW(a[-1], std::bad_index);
    EXPECT_THROW((void)std::as_const(a)[7], std::bad_index);
    EXPECT_STREQ(std::bad_index().what(), "Bad Index");
}

TEST(GSArray, GrowthRule) {
    EXPECT_EQ(capacityAfter(0, -100, 1), 8) << "a product within (-100, 100) steps by 8";
    EXPECT_EQ(capacityAfter(0, -100, 8), 8);
    EXPECT_EQ(capacityAfter(0, -100, 9), 16);
    EXPECT_EQ(capacityAfter(0, -100, 17), 32) << "-100 doubles";
    EXPECT_EQ(capacityAfter(1, -50, 2), 9) << "-50 with c = 1: step 8";
    EXPECT_EQ(capacityAfter(1, -99, 2), 9) << "-99 is still in the small range";
    EXPECT_EQ(capacityAfter(0, 3, 1), 3) << "a positive grow is a fixed step";
}

TEST(GSArray, InsertAndRemoveOutsideTheCountChangeNothing) {
    GSArray a(sizeof(int), 0, -100);
    for (int i : {10, 20, 30})
        ASSERT_EQ(a.add(&i), 0);
    int x = 99;
    EXPECT_EQ(a.insertAt(5, &x), 0);
    EXPECT_EQ(a.removeAt(3), 0);
    EXPECT_EQ(a.removeAt(-1), 0);
    EXPECT_EQ(ints(a), (std::vector<int>{10, 20, 30}));
    ASSERT_EQ(a.insertAt(1, &x), 0);
    EXPECT_EQ(ints(a), (std::vector<int>{10, 99, 20, 30}));

    // setSize below the count must not let the next insertion write past the storage.
    while (a.getCount() < a.getCapacity())
        ASSERT_EQ(a.add(&x), 0);
    ASSERT_EQ(a.setSize(2), 0);
    ASSERT_EQ(a.add(&x), 0);
    EXPECT_GE(a.getCapacity(), a.getCount());
    EXPECT_EQ(ints(a)[2], 20);
}

TEST(FixArray, MovesToTheHeapPastItsInPlaceElements) {
    GSFixArray<long, 64> f;
    for (long i = 0; i < 64; ++i)
        ASSERT_EQ(f.add(i), 0);
    EXPECT_FALSE(f.isOnHeap());
    EXPECT_EQ(f.getCapacity(), 64);
    ASSERT_EQ(f.add(64), 0);
    EXPECT_TRUE(f.isOnHeap());
    EXPECT_EQ(f.getCapacity(), 130);
    ASSERT_EQ(f.getCount(), 65);
    for (long i = 0; i < 65; ++i)
        ASSERT_EQ(f[i], i) << "at " << i;

    // Elements taken from the array itself, while the insertion moves it (in place -> heap,
    // then heap -> larger heap).
    GSFixArray<int, 64> g;
    std::vector<int> expected;
    for (int i = 0; i < 64; ++i)
        ASSERT_EQ(g.add(i), 0);
    auto all = [&] { return std::vector<int>(g.getElements(), g.getElements() + g.getCount()); };
    expected = all();
    ASSERT_EQ(g.insert(0, g.getElements() + 60, 4), 0);
    expected.insert(expected.begin(), expected.begin() + 60, expected.end());
    EXPECT_EQ(all(), expected);
    EXPECT_EQ(g.getCapacity(), 136);
    ASSERT_EQ(g.insert(-1, g.getElements(), 68), 0); // fills the heap block exactly
    expected.insert(expected.end(), expected.begin(), expected.end());
    ASSERT_EQ(g.insert(1, g.getElements() + 130, 6), 0);
    expected.insert(expected.begin() + 1, expected.begin() + 130, expected.end());
    EXPECT_EQ(g.getCapacity(), 2 * (136 + 6));
    EXPECT_EQ(all(), expected);
}

namespace {

struct Probe : GSObject {
    static inline int destroyed = 0;
    ~Probe() override { ++destroyed; }
};

} // namespace

TEST(ObjectArray, HoldsOneReferencePerStoredPointer) {
    int destroyedBefore = Probe::destroyed;
    auto* a = new Probe;
    auto* b = new Probe;
    a->addReference(); // the test's own references
    b->addReference();
    {
        ObjectArray array;
        for (GSObject* o : {a, b, a, static_cast<Probe*>(nullptr)})
            ASSERT_EQ(array.add(o), 0);
        EXPECT_EQ(a->getReferenceCount(), 3);
        EXPECT_EQ(array.insertAt(9, a), 0);
        EXPECT_EQ(a->getReferenceCount(), 3) << "an insertion that stored nothing took a reference";

        ASSERT_EQ(array.removeAt(0), 0);
        EXPECT_EQ(a->getReferenceCount(), 2);
        EXPECT_EQ(array.getObjectAt(0), b);

        ObjectArray copy;
        ASSERT_EQ(copy.add(b), 0);
        const ObjectArray& alias = copy;
        copy = array;
        copy = alias;
        EXPECT_EQ(copy.getCount(), 3);
        EXPECT_EQ(b->getReferenceCount(), 3) << "assignment: old contents released, new taken";
        copy.empty();
        EXPECT_EQ(b->getReferenceCount(), 2) << "empty releases";
    }
    EXPECT_EQ(a->getReferenceCount(), 1) << "destroying the array releases its references";
    EXPECT_EQ(b->getReferenceCount(), 1);
    EXPECT_EQ(Probe::destroyed, destroyedBefore);
    a->release();
    b->release();
    EXPECT_EQ(Probe::destroyed, destroyedBefore + 2);
}
