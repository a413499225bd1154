// GSRasterImage.h - decoded pixels as the renderer passes them along.
//
// 32-bit pixels holding 0xAARRGGBB as one native integer, alpha premultiplied, so that scaling
// filters average colour correctly at transparent edges. `hasAlpha` says whether the source could
// be transparent at all; opaque images are written as RGB.
#pragma once

#include <cstdint>
#include <vector>

struct GSRasterImage {
    int width = 0;
    int height = 0;
    bool hasAlpha = false;
    std::vector<uint32_t> pixels; // width * height, rows top to bottom
};

