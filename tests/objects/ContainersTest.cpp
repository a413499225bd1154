// ContainersTest.cpp - shared storage, growth and index rules of the framework's arrays.
#include "objects/GSArray.h"
#include "objects/GSDynaArray.h"
#include "objects/GSFixArray.h"
#include "objects/GSObject.h"

#include <gtest/gtest.h>

#include <cstring>
#include <utility>
#include <vector>

namespace {

// Counts every construction and destruction, so that copy-on-write and reallocation can be
// checked for leaks and double destruction. A destroyed element is marked -1.
struct Counted {
    static inline long alive = 0;
    int value = 0;
    Counted(int v = 0) : value(v) { ++alive; }
    Counted(const Counted& other) : value(other.value) { ++alive; }
    Counted& operator=(const Counted&) = default;
    ~Counted() { value = -1, --alive; }
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

struct Probe : GSObject {
    static inline int destroyed = 0;
    ~Probe() override { ++destroyed; }
};

} // namespace

TEST(DynaArray, CopiesShareStorageUntilOneIsWritten) {
    const long before = Counted::alive;
    {
        GSDynaArray<Counted> a, c;
        for (int i = 0; i < 5; ++i)
            ASSERT_EQ(a.add(Counted(i)), 0);
        GSDynaArray<Counted> b(a), d(a);
        ASSERT_EQ(c.add(Counted(9)), 0);
        c = a; // lets go of its own storage
        EXPECT_EQ(a.getArrayData()->getReferenceCount(), 4) << "copies share the storage";
        b[2].value = 99; // write access through a copy
        ASSERT_EQ(c.add(Counted(5)), 0);
        ASSERT_EQ(c.setSize(2), 0);
        ASSERT_EQ(d.empty(), 0);
        EXPECT_EQ(values(a), (std::vector<int>{0, 1, 2, 3, 4})) << "the original must not change";
        EXPECT_EQ(values(b), (std::vector<int>{0, 1, 99, 3, 4}));
        EXPECT_EQ(values(c), (std::vector<int>{0, 1}));
        EXPECT_EQ(d.getSize(), 0);
        EXPECT_EQ(a.getArrayData()->getReferenceCount(), 1);

        // An element taken from the array itself survives the reallocation that adding causes.
        while (a.getSize() < a.getCapacity())
            ASSERT_EQ(a.add(Counted(7)), 0);
        ASSERT_EQ(a.add(std::as_const(a)[1]), 0);
        EXPECT_EQ(std::as_const(a)[a.getSize() - 1].value, 1);
    }
    EXPECT_EQ(Counted::alive, before) << "elements leaked or freed twice";
}

TEST(DynaArray, GrowthReserveAndBadIndex) {
    GSDynaArray<int> a;
    std::vector<long> capacities;
    for (int i = 1; i <= 3; ++i)
        capacities.push_back((a.add(i), a.getCapacity()));
    EXPECT_EQ(capacities, (std::vector<long>{2, 2, 6})) << "-100 doubles the request";
    EXPECT_EQ(a.reserve(2) + a.reserve(0), 0);
    EXPECT_EQ(std::pair(a.getSize(), a.getCapacity()), std::pair(3L, 6L)) << "reserve kept all";
    for (long outside : {-1L, 3L}) {
        EXPECT_THROW(a[outside], std::bad_index);
        EXPECT_THROW((void)std::as_const(a)[outside], std::bad_index);
    }
    EXPECT_STREQ(std::bad_index().what(), "Bad Index");
}

TEST(GSArray, GrowthInsertAndRemove) {
    // Rows: capacity, grow, elements added, capacity after. A product of grow and count within
    // (-100, 100) steps by 8, -100 doubles, a positive grow is a fixed step.
    const long rows[][4] = {{0, -100, 1, 8}, {0, -100, 8, 8}, {0, -100, 9, 16}, {0, -100, 17, 32},
                            {1, -50, 2, 9},  {1, -99, 2, 9},  {0, 3, 1, 3}};
    for (const auto& [capacity, grow, adds, after] : rows) {
        GSArray a(sizeof(int), capacity, grow);
        for (int i = 0; i < adds; ++i)
            ASSERT_EQ(a.add(&i), 0);
        EXPECT_EQ(a.getCapacity(), after) << capacity << " " << grow << " " << adds;
    }
    GSArray a(sizeof(int), 0, -100);
    int x = 99;
    for (int i : {10, 20, 30})
        ASSERT_EQ(a.add(&i), 0);
    EXPECT_EQ(a.insertAt(5, &x) + a.removeAt(3) + a.removeAt(-1), 0) << "outside: no change";
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
    // Elements taken from the array itself while the insertion moves it (in place -> heap, then
    // heap -> larger heap).
    GSFixArray<int, 64> g;
    std::vector<int> expected;
    for (int i = 0; i < 64; ++i)
        ASSERT_EQ(g.add(i), 0);
    EXPECT_FALSE(g.isOnHeap());
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
    EXPECT_EQ(std::pair(all(), g.getCapacity()), std::pair(expected, 2L * (136 + 6)));
    EXPECT_EQ(g[1], expected[1]);
    EXPECT_THROW(g[-1], std::bad_index);
}

TEST(ObjectArray, HoldsOneReferencePerStoredPointer) {
    int destroyedBefore = Probe::destroyed;
    auto* a = new Probe;
    auto* b = new Probe;
    a->addReference(); // the test's own references
    b->addReference();
    {
        ObjectArray array, copy;
        for (GSObject* o : {a, b, a, static_cast<Probe*>(nullptr)})
            ASSERT_EQ(array.add(o), 0);
        EXPECT_EQ(array.insertAt(9, a) + array.removeAt(0), 0);
        EXPECT_EQ(std::pair(a->getReferenceCount(), array.getObjectAt(0)),
                  std::pair(2, (GSObject*)b))
            << "an insertion that stored nothing took none, a removal released";
        ASSERT_EQ(copy.add(b), 0);
        const ObjectArray& alias = copy;
        copy = array;
        copy = alias;
        EXPECT_EQ(std::pair(copy.getCount(), b->getReferenceCount()), std::pair(3L, 3))
            << "assignment: old contents released, new taken";
        copy.empty();
        EXPECT_EQ(b->getReferenceCount(), 2) << "empty releases";
    }
    EXPECT_EQ(a->getReferenceCount() + b->getReferenceCount(), 2) << "the array released both";
    EXPECT_EQ(Probe::destroyed, destroyedBefore);
    Probe fresh;
    fresh.release(); // a new object has no reference yet: releasing it destroys nothing
    a->release();
    b->release();
    EXPECT_EQ(Probe::destroyed, destroyedBefore + 2) << "a release at count 1 destroys";
}
