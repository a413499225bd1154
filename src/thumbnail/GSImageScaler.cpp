// GSImageScaler.cpp - separable-convolution scaling through pixman.
#include "thumbnail/GSImageScaler.h"

#include "thumbnail/GSWorkDeadline.h"

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <memory>
#include <pixman.h>

namespace {

struct ImageDeleter {
    void operator()(pixman_image_t* image) const { pixman_image_unref(image); }
};
using PixmanImage = std::unique_ptr<pixman_image_t, ImageDeleter>;

struct ParamsDeleter {
    void operator()(pixman_fixed_t* params) const { std::free(params); }
};

pixman_image_t* wrap(const GSRasterImage& image, uint32_t* pixels) {
    return pixman_image_create_bits(image.hasAlpha ? PIXMAN_a8r8g8b8 : PIXMAN_x8r8g8b8, image.width,
                                    image.height, pixels, image.width * 4);
}

} // namespace

bool GSScaleImage(const GSRasterImage& source, int width, int height, GSRasterImage* result) {
    if (source.width < 1 || source.height < 1 || width < 1 || height < 1) return false;
    result->width = width;
    result->height = height;
    result->hasAlpha = source.hasAlpha;
    if (width == source.width && height == source.height) {
        result->pixels = source.pixels;
        return true;
    }
    result->pixels.assign(static_cast<size_t>(width) * height, 0);
    PixmanImage src(wrap(source, const_cast<uint32_t*>(source.pixels.data())));
    PixmanImage dst(wrap(*result, result->pixels.data()));
    if (!src || !dst) return false;

    double sx = static_cast<double>(source.width) / width;
    double sy = static_cast<double>(source.height) / height;
    pixman_transform_t transform;
    pixman_transform_init_scale(&transform, pixman_double_to_fixed(sx), pixman_double_to_fixed(sy));
    pixman_image_set_transform(src.get(), &transform);
    pixman_image_set_repeat(src.get(), PIXMAN_REPEAT_PAD);

    // Per axis: shrinking samples with a box as wide as the scale; enlarging reconstructs
    // linearly and samples at a point. Shrinking by a whole number lines the box up with whole
    // source pixels, so it averages exactly s of them: a box reconstruction there would only
    // blur by one pixel more, at 3 taps instead of 2 per axis at half size (twice the time of
    // this step). At other scales the box covers pixels in part, and the wider filter keeps that
    // from showing as aliasing.
    auto reconstruct = [](double s) {
        if (s <= 1) return PIXMAN_KERNEL_LINEAR;
        return s == std::floor(s) ? PIXMAN_KERNEL_IMPULSE : PIXMAN_KERNEL_BOX;
    };
    auto sample = [](double s) { return s > 1 ? PIXMAN_KERNEL_BOX : PIXMAN_KERNEL_IMPULSE; };
    int count = 0;
    std::unique_ptr<pixman_fixed_t, ParamsDeleter> params(
        pixman_filter_create_separable_convolution(&count, pixman_double_to_fixed(sx > 1 ? sx : 1),
                                                   pixman_double_to_fixed(sy > 1 ? sy : 1),
                                                   reconstruct(sx), reconstruct(sy), sample(sx),
                                                   sample(sy), 4, 4));
    if (!params || !pixman_image_set_filter(src.get(), PIXMAN_FILTER_SEPARABLE_CONVOLUTION,
                                            params.get(), count))
        return false;
    // In bands of rows, between which the work's deadline is checked. A band samples the source
    // where the whole picture would (source and destination origins move together), so the
    // result is the same to the bit. A band's work is about the source pixels under it.
    constexpr int kBandRows = 16;
    const long bandUnits =
        static_cast<long>(std::ceil(kBandRows * width * std::max(sx, 1.0) * std::max(sy, 1.0)));
    for (int y = 0; y < height; y += kBandRows) {
        if (GSWorkTimeUp(bandUnits)) return false;
        pixman_image_composite32(PIXMAN_OP_SRC, src.get(), nullptr, dst.get(), 0, y, 0, 0, 0, y,
                                 width, std::min(kBandRows, height - y));
    }
    return true;
}
