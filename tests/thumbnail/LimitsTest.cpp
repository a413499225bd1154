// LimitsTest.cpp - the limits in force are read where they bite, and can only be tightened.
#include "SampleImages.h"
#include "TestSupport.h"
#include "fileformat/GSFormatNumbers.h"
#include "fileformat/GSLimits.h"
#include "thumbnail/GSThumbnailRenderer.h"

#include <gtest/gtest.h>

TEST(Limits, TighterBudgetsRefusePicturesThatTheDefaultsTake) {
    using samples::drawLandscape;
    const auto jpeg =
        testing_support::toDynaArray(samples::encodeJPEG(drawLandscape(64, 48, false), 90));
    const auto png = testing_support::toDynaArray(samples::encodePNG(drawLandscape(64, 48, true)));
    auto status = [](const GSDynaArray<unsigned char>& bytes, int kind) {
        return GSRenderPreview(bytes, kind, nullptr, 16, {}).status;
    };
    ASSERT_EQ(status(jpeg, GSPreviewJPEG), GSThumbnailStatus::kOK);
    ASSERT_EQ(status(png, GSPreviewPNG), GSThumbnailStatus::kOK);
    GSLimits looser;
    looser.declaredPixels *= 2;
    looser.objectDepth = 1000;
    GSTightenLimits(looser);
    EXPECT_EQ(std::pair(GSCurrentLimits().declaredPixels, GSCurrentLimits().objectDepth),
              std::pair(GSLimits().declaredPixels, GSLimits().objectDepth));
    GSLimits tighter;
    tighter.declaredPixels = 64 * 48 - 1;
    GSTightenLimits(tighter);
    EXPECT_EQ(status(jpeg, GSPreviewJPEG), GSThumbnailStatus::kUndecodable);
    EXPECT_EQ(status(png, GSPreviewPNG), GSThumbnailStatus::kUndecodable);
}
