// FitTest.cpp - the fit rule: the exact fitted size, and its whole-pixel form. The shapes the
// thumbnailer gives whole documents are in tests/cli.
#include "GSThumbnailFit.h"

#include <gtest/gtest.h>

#include <limits>

TEST(Fit, KeepsTheAspectFillsOneSideAndRoundsToWholePixels) {
    struct Case {
        double w, h, maxWidth, maxHeight, width, height;
        int pixelWidth, pixelHeight;
    } cases[] = {
        {320, 240, 128, 128, 128, 96, 128, 96},   // wide: the width decides
        {100, 400, 512, 512, 128, 512, 128, 512}, // tall and small: scaled up, the height decides
        {640, 480, 1000, 100, 133.33333333333334, 100, 133, 100},
        {7, 3, 256, 256, 256, 109.71428571428571, 256, 110}, // to the nearest
        {2, 1, 5, 5, 5, 2.5, 5, 3},                          // 2.5 rounds away from zero
        {1000, 1, 256, 256, 256, 0.256, 256, 1},             // 0 would vanish: a line of one pixel
        {1, 100000, 64, 64, 0.00064, 64, 1, 64},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(testing::Message()
                     << c.w << " x " << c.h << " into " << c.maxWidth << " x " << c.maxHeight);
        GSFittedSize fitted{-1, -1};
        ASSERT_TRUE(GSFitPreview(c.w, c.h, c.maxWidth, c.maxHeight, &fitted));
        EXPECT_DOUBLE_EQ(fitted.width, c.width);
        EXPECT_DOUBLE_EQ(fitted.height, c.height);
        GSTSize<int> pixels = GSFittedPixelSize(fitted);
        EXPECT_EQ(pixels.width, c.pixelWidth);
        EXPECT_EQ(pixels.height, c.pixelHeight);
    }
}

TEST(Fit, EmptyNegativeOrUnboundedSizesDoNotFit) {
    const double nan = std::numeric_limits<double>::quiet_NaN();
    const double inf = std::numeric_limits<double>::infinity();
    struct Case {
        double w, h, maxWidth, maxHeight;
    } cases[] = {
        {0, 240, 128, 128},     {320, 0, 128, 128},   {-320, 240, 128, 128}, {320, -240, 128, 128},
        {-320, -240, 128, 128}, {320, 240, 0, 128},   {320, 240, 128, -1},   {nan, 240, 128, 128},
        {320, 240, nan, 128},   {inf, 240, 128, 128},
    };
    for (const Case& c : cases) {
        GSFittedSize fitted{-7, -7};
        EXPECT_FALSE(GSFitPreview(c.w, c.h, c.maxWidth, c.maxHeight, &fitted))
            << c.w << " x " << c.h << " into " << c.maxWidth << " x " << c.maxHeight << " gave "
            << fitted.width << " x " << fitted.height;
    }
}
