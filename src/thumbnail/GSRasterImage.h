// GSRasterImage.h - decoded pixels as the renderer passes them along.
//
// 32-bit pixels in the machine's native ARGB order (pixman's a8r8g8b8), alpha premultiplied, so
// that scaling filters average colour correctly at transparent edges. `hasAlpha` says whether the
// source could be transparent at all; opaque images are written as RGB.
#pragma once

#include <cstdint>
#include <vector>

struct GSRasterImage {
    int width = 0;
    int height = 0;
    bool hasAlpha = false;
    std::vector<uint32_t> pixels; // width * height, rows top to bottom
};

// Budgets that bound what one preview may cost, checked before anything is decoded.
inline constexpr long kMaxDeclaredPixels = 100L * 1000 * 1000; // as the image's header states
inline constexpr long kMaxDecodedPixels = 24L * 1024 * 1024;   // after DCT scaling, or held whole
