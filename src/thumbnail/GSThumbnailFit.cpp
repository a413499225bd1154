// GSThumbnailFit.cpp - the fit rule.
#include "thumbnail/GSThumbnailFit.h"

#include <cmath>

bool GSFitPreview(double w, double h, double maxWidth, double maxHeight, GSFittedSize* fitted) {
    if (!(w > 0) || !(h > 0) || !(maxWidth > 0) || !(maxHeight > 0)) return false;
    double sx = maxWidth / w, sy = maxHeight / h;
    double s = sx < sy ? sx : sy; // equal ratios take the height's
    fitted->width = s * w;
    fitted->height = s * h;
    return std::isfinite(fitted->width) && std::isfinite(fitted->height);
}

GSTSize<int> GSFittedPixelSize(const GSFittedSize& fitted) {
    auto whole = [](double v) {
        double r = std::round(v);
        return r < 1 ? 1 : r > 1e9 ? 1000000000 : static_cast<int>(r);
    };
    return {whole(fitted.width), whole(fitted.height)};
}
