// AllocationCounter.h - counts the calls to the global operator new in a benchmark program.
//
// A benchmark that claims a path allocates nothing reads the count before and after the path;
// AllocationCounter.cpp, linked into that program only, replaces every form of the global
// operator new (plain, array, nothrow, aligned) with one that counts and then calls malloc.
#pragma once

namespace bench_support {

// The number of calls to any global operator new since the program started.
long allocationCount();

} // namespace bench_support
