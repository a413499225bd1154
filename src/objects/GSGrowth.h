// GSGrowth.h - the one growth rule shared by GSArray and GSDynaArray.
//
// A growth parameter g >= 0 adds g elements. A negative g is a percentage of the requested
// count c: the step is -g*c/100, or 8 when that product is within (-100, 100). The default -100
// thus doubles a request (an array that needs 1 element gets capacity 2).
#pragma once

inline long GSGrowthStep(long grow, long c) {
    if (grow >= 0) return grow;
    // grow * c cannot meaningfully overflow for real sizes; clamp to stay defined anyway.
    if (c > (1L << 40)) c = 1L << 40;
    long p = grow * c;
    if (p >= -99 && p <= 99) return 8;
    return (-p) / 100;
}
