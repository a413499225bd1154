// FitTest.cpp - the fit rule: the exact fitted size, and its whole-pixel form.
#include "GSThumbnailFit.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>

namespace {

GSFittedSize fit(double w, double h, double maxWidth, double maxHeight) {
    GSFittedSize fitted{-1, -1};
    EXPECT_TRUE(GSFitPreview(w, h, maxWidth, maxHeight, &fitted))
        << w << " x " << h << " into " << maxWidth << " x " << maxHeight;
    return fitted;
}

} // namespace

TEST(Fit, KeepsTheAspectAndFillsOneSide) {
    struct Case {
        double w, h, maxWidth, maxHeight, width, height;
    } cases[] = {
        {320, 240, 128, 128, 128, 96},  // wide: the width decides
        {100, 400, 512, 512, 128, 512}, // tall and small: scaled up, the height decides
        {300, 200, 150, 100, 150, 100}, // equal ratios
        {640, 480, 1000, 100, 133.33333333333334, 100},
        {7, 3, 256, 256, 256, 109.71428571428571},
        {1, 1, 48, 96, 48, 48},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(testing::Message()
                     << c.w << " x " << c.h << " into " << c.maxWidth << " x " << c.maxHeight);
        GSFittedSize fitted = fit(c.w, c.h, c.maxWidth, c.maxHeight);
        EXPECT_DOUBLE_EQ(fitted.width, c.width);
        EXPECT_DOUBLE_EQ(fitted.height, c.height);
        EXPECT_LE(fitted.width, c.maxWidth * (1 + 1e-12)) << "wider than the bounds";
        EXPECT_LE(fitted.height, c.maxHeight * (1 + 1e-12)) << "taller than the bounds";
    }
}

TEST(Fit, WholePixelsRoundAndNeverVanish) {
    struct Case {
        double w, h;
        int max;
        int width, height;
    } cases[] = {
        {320, 240, 128, 128, 96},  {640, 481, 256, 256, 192}, // 192.4 rounds down
        {640, 483, 256, 256, 193},                            // 193.2: to the nearest
        {800, 601, 100, 100, 75},                             // 75.125
        {3, 1, 256, 256, 85},                                 // 85.33
        {2, 1, 5, 5, 3},                                      // 2.5 rounds away from zero
        {1000, 1, 256, 256, 1}, // 0.256 would be 0: a line of one pixel
        {1, 100000, 64, 1, 64},    {5, 5, 1, 1, 1},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(testing::Message() << c.w << " x " << c.h << " into " << c.max);
        GSTSize<int> pixels = GSFittedPixelSize(fit(c.w, c.h, c.max, c.max));
        EXPECT_EQ(pixels.width, c.width);
        EXPECT_EQ(pixels.height, c.height);
    }
}

TEST(Fit, EmptyOrNegativeSizesDoNotFit) {
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
        bool fits = GSFitPreview(c.w, c.h, c.maxWidth, c.maxHeight, &fitted);
        EXPECT_FALSE(fits) << c.w << " x " << c.h << " into " << c.maxWidth << " x " << c.maxHeight
                           << " gave " << fitted.width << " x " << fitted.height;
    }
}
