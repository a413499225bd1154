// GSThumbnailFit.h - the one fit rule of every thumbnail, on every platform.
//
// A preview of w x h fitted into W x H is scaled by s = min(W / w, H / h), taking H / h when the
// two are equal: the aspect ratio is kept and a small preview is scaled up. The exact fitted size
// (s * w, s * h) is what a drawing context receives; a raster thumbnail rounds it to whole pixels,
// never below 1.
#pragma once

#include "objects/GSTSize.h"

struct GSFittedSize {
    double width = 0;
    double height = 0;
};

// False when the preview or the bounds are empty (no meaningful fit exists).
bool GSFitPreview(double w, double h, double maxWidth, double maxHeight, GSFittedSize* fitted);
// The fitted size in whole pixels: max(1, round(s * w)) x max(1, round(s * h)).
GSTSize<int> GSFittedPixelSize(const GSFittedSize& fitted);
