// FitTest.cpp - the fit rule: the exact fitted size, its whole-pixel form, and the sizes that
// have no fit. The shapes the thumbnailer gives whole documents are in tests/cli.
#include "thumbnail/GSThumbnailFit.h"

#include <gtest/gtest.h>

#include <limits>

// Empty, negative (both too: their product is positive) or unbounded sizes have no fit (rows
// without a fitted width).
TEST(Fit, KeepsTheAspectFillsOneSideAndRoundsToWholePixels) {
    const double nan = std::numeric_limits<double>::quiet_NaN();
    const double inf = std::numeric_limits<double>::infinity();
    struct Case {
        double w, h, maxWidth, maxHeight, width = 0, height = 0;
        int pixelWidth = 0, pixelHeight = 0;
    } cases[] = {
        {320, 240, 128, 128, 128, 96, 128, 96},   // wide: the width decides
        {100, 400, 512, 512, 128, 512, 128, 512}, // tall and small: scaled up, the height decides
        {640, 480, 1000, 100, 133.33333333333334, 100, 133, 100},
        {7, 3, 256, 256, 256, 109.71428571428571, 256, 110}, // to the nearest
        {2, 1, 5, 5, 5, 2.5, 5, 3},                          // 2.5 rounds away from zero
        {1000, 1, 256, 256, 256, 0.256, 256, 1},             // 0 would vanish: a line of one pixel
        {1, 100000, 64, 64, 0.00064, 64, 1, 64},
        {0, 240, 128, 128},
        {320, 0, 128, 128},
        {-320, 240, 128, 128},
        {320, -240, 128, 128},
        {-320, -240, 128, 128},
        {320, 240, 0, 128},
        {320, 240, 128, -1},
        {nan, 240, 128, 128},
        {320, 240, nan, 128},
        {inf, 240, 128, 128},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(testing::Message()
                     << c.w << " x " << c.h << " into " << c.maxWidth << " x " << c.maxHeight);
        GSFittedSize fitted;
        ASSERT_EQ(GSFitPreview(c.w, c.h, c.maxWidth, c.maxHeight, &fitted), c.width > 0);
        if (c.width == 0) continue;
        EXPECT_DOUBLE_EQ(fitted.width, c.width);
        EXPECT_DOUBLE_EQ(fitted.height, c.height);
        EXPECT_EQ(GSFittedPixelSize(fitted), (GSTSize<int>{c.pixelWidth, c.pixelHeight}));
    }
}
