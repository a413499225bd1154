// AllocationCount.h - counts the calls to the global operator new in the text tests.
//
// AllocationCount.cpp replaces every form of the global operator new in this test program with
// one that counts and then calls malloc, so that a test can prove a path allocates nothing.
#pragma once

namespace text_testing {

// The number of calls to any global operator new since the program started.
long allocations();

// Allocations made while an instance lives.
class AllocationsSince {
public:
    AllocationsSince() : start(allocations()) {}
    long count() const { return allocations() - start; }

private:
    long start;
};

} // namespace text_testing
