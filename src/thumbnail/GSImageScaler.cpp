// GSImageScaler.cpp - separable Lanczos-3 resampling, one source row at a time.
#include "thumbnail/GSImageScaler.h"

#include "thumbnail/GSWorkDeadline.h"

#include <algorithm>
#include <bit>
#include <cmath>
#include <cstring>
#include <numbers>

namespace {

typedef int32_t Channels __attribute__((vector_size(16)));

constexpr double kLobes = 3; // the identity in lanczos() holds for three lobes only

double lanczos(double x) {
    x = std::fabs(x);
    if (x >= kLobes) return 0;
    if (x < 1e-9) return 1;
    // sin(3t) = sin(t) (3 - 4 sin(t)^2): one sine for both factors.
    const double px = std::numbers::pi * x, s = std::sin(px / kLobes);
    return kLobes * s * (3 - 4 * s * s) * s / (px * px);
}

typedef uint8_t Bytes __attribute__((vector_size(4)));
typedef uint16_t Words __attribute__((vector_size(8)));

// Blue, green, red, alpha; colour multiplied by alpha when `straight` (x / 255 rounded, exactly,
// as (x + 128 + ((x + 128) >> 8)) >> 8, which leaves an opaque pixel as it is). A native
// 0xAARRGGBB lies in memory as those four bytes in that order on a little-endian machine: one
// widening of the bytes then does the unpacking. The products fit in 16 bits, so all four
// channels are multiplied at once, without a branch.
template <bool straight>
Channels unpack(uint32_t p) {
    Words w;
    if constexpr (std::endian::native == std::endian::little) {
        Bytes bytes;
        std::memcpy(&bytes, &p, sizeof p);
        w = __builtin_convertvector(bytes, Words);
    } else {
        w = Words{static_cast<uint16_t>(p & 255), static_cast<uint16_t>(p >> 8 & 255),
                  static_cast<uint16_t>(p >> 16 & 255), static_cast<uint16_t>(p >> 24)};
    }
    if (straight) {
        Words x = w * __builtin_shufflevector(w, w, 3, 3, 3, 3) + 128;
        x = (x + (x >> 8)) >> 8;
        const Words alpha = {0, 0, 0, 0xFFFF};
        w = (x & ~alpha) | (w & alpha);
    }
    return __builtin_convertvector(w, Channels);
}

// The row averaged in groups of `size` pixels into `grouped`; sums in whole numbers, one
// conversion per group; the last group may be short.
template <bool straight>
void groupRow(const uint32_t* row, int width, int size, float (*grouped)[4]) {
    typedef float Pixel __attribute__((vector_size(16)));
    for (int g = 0, x = 0; x < width; ++g) {
        const int end = std::min(width, x + size), count = end - x;
        Channels sum = unpack<straight>(row[x++]);
        for (; x < end; ++x)
            sum += unpack<straight>(row[x]);
        Pixel p = __builtin_convertvector(sum, Pixel);
        if (count > 1) p *= 1.0f / static_cast<float>(count);
        std::memcpy(grouped[g], &p, sizeof p);
    }
}

} // namespace

// Output pixel i covers source pixels [i * scale, (i + 1) * scale); its window reaches three lobes
// either side of that span's centre, each lobe `scale` source pixels wide when shrinking.
GSImageScaler::Axis GSImageScaler::axis(double scale, int sourceSize, int size) {
    const double stretch = std::max(scale, 1.0);
    const double reach = kLobes * stretch;
    Axis result;
    result.windows.resize(static_cast<size_t>(size));
    for (int i = 0; i < size; ++i) {
        Window& w = result.windows[i];
        const double centre = (i + 0.5) * scale;
        w.first = std::max(0, static_cast<int>(std::floor(centre - reach + 0.5)));
        w.count = std::min(sourceSize, static_cast<int>(std::floor(centre + reach + 0.5))) - w.first;
        result.taps = std::max(result.taps, w.count);
    }
    result.weights.assign(static_cast<size_t>(size) * result.taps, 0.0f);
    for (int i = 0; i < size; ++i) {
        const Window& w = result.windows[i];
        const double centre = (i + 0.5) * scale;
        float* weights = result.weights.data() + static_cast<size_t>(i) * result.taps;
        double sum = 0;
        for (int k = 0; k < w.count; ++k)
            sum += weights[k] = static_cast<float>(lanczos((w.first + k + 0.5 - centre) / stretch));
        for (int k = 0; k < w.count; ++k) // the centre tap alone is near 1: sum > 0
            weights[k] = static_cast<float>(weights[k] / sum);
    }
    return result;
}

bool GSImageScaler::begin(int sourceWidth, int sourceHeight, int width, int height, bool hasAlpha,
                          bool straightAlpha) {
    if (sourceWidth < 1 || sourceHeight < 1 || width < 1 || height < 1) return false;
    sourceWidth_ = sourceWidth, sourceHeight_ = sourceHeight, width_ = width, height_ = height;
    hasAlpha_ = hasAlpha;
    straightAlpha_ = hasAlpha && straightAlpha;
    groupX_ = std::max(1, sourceWidth / width / 2);
    groupedWidth_ = (sourceWidth + groupX_ - 1) / groupX_;
    scaleX_ = static_cast<double>(sourceWidth) / groupX_ / width;
    scaleY_ = static_cast<double>(sourceHeight) / height;
    columns_ = axis(scaleX_, groupedWidth_, width);
    rows_ = axis(scaleY_, sourceHeight, height);
    // Both ends of the windows only move down, so the last `ringRows_` source rows (filtered
    // across) hold the window of every output row when its last source row arrives.
    ringRows_ = std::max(1, rows_.taps);
    long taps = 0;
    for (const Window& w : rows_.windows)
        taps += w.count;
    // A source row's work: its groups, its taps across, and its share of the sums down.
    rowWork_ = sourceWidth + static_cast<long>(width) * (columns_.taps + taps / sourceHeight + 1);
    grouped_.assign(static_cast<size_t>(groupedWidth_) * 4, 0.0f);
    ring_.assign(static_cast<size_t>(ringRows_) * width * 4, 0.0f);
    out_.assign(static_cast<size_t>(width) * height, 0);
    sum_.assign(static_cast<size_t>(width) * 4, 0.0f);
    nextSource_ = nextOut_ = 0;
    return true;
}

bool GSImageScaler::addRow(const uint32_t* row) {
    if (GSWorkTimeUp(rowWork_)) return false;
    const int y = nextSource_++;
    group(row);
    const Pixel* grouped = reinterpret_cast<const Pixel*>(grouped_.data());
    Pixel* across = ringRow(y);
    for (int x = 0; x < width_; ++x) {
        const Window& w = columns_.windows[x];
        const float* weights = columns_.weights.data() + static_cast<size_t>(x) * columns_.taps;
        Pixel sum = {0, 0, 0, 0};
        for (int k = 0; k < w.count; ++k)
            sum += weights[k] * grouped[w.first + k];
        across[x] = sum;
    }
    while (nextOut_ < height_ &&
           rows_.windows[nextOut_].first + rows_.windows[nextOut_].count - 1 <= y)
        emit(nextOut_++);
    return true;
}

void GSImageScaler::group(const uint32_t* row) {
    auto* grouped = reinterpret_cast<float(*)[4]>(grouped_.data());
    if (groupX_ == 1 && !straightAlpha_ && std::endian::native == std::endian::little) {
        // Every byte of the row becomes its float: a loop the compiler vectorises.
        const auto* bytes = reinterpret_cast<const unsigned char*>(row);
        float* out = grouped_.data();
        for (size_t i = 0, n = static_cast<size_t>(sourceWidth_) * 4; i < n; ++i)
            out[i] = bytes[i];
    } else if (straightAlpha_)
        groupRow<true>(row, sourceWidth_, groupX_, grouped);
    else
        groupRow<false>(row, sourceWidth_, groupX_, grouped);
}

GSImageScaler::Pixel* GSImageScaler::ringRow(int sourceRow) {
    return reinterpret_cast<Pixel*>(ring_.data()) +
           static_cast<size_t>(sourceRow % ringRows_) * width_;
}

void GSImageScaler::emit(int row) {
    const Window& w = rows_.windows[row];
    const float* weights = rows_.weights.data() + static_cast<size_t>(row) * rows_.taps;
    Pixel* sum = reinterpret_cast<Pixel*>(sum_.data());
    for (int x = 0; x < width_; ++x)
        sum[x] = Pixel{0, 0, 0, 0};
    for (int k = 0; k < w.count; ++k) {
        const float f = weights[k];
        const Pixel* source = ringRow(w.first + k);
        for (int x = 0; x < width_; ++x)
            sum[x] += f * source[x];
    }
    uint32_t* out = out_.data() + static_cast<size_t>(row) * width_;
    auto level = [](float v, float top) {
        return static_cast<uint32_t>(std::clamp(v + 0.5f, 0.0f, top));
    };
    for (int x = 0; x < width_; ++x) {
        const Pixel p = sum[x];
        const uint32_t a = hasAlpha_ ? level(p[3], 255) : 255;
        // Premultiplied: no channel above alpha, though the lobes overshoot at hard edges.
        const float top = static_cast<float>(a);
        out[x] = a << 24 | level(p[2], top) << 16 | level(p[1], top) << 8 | level(p[0], top);
    }
}

void GSImageScaler::finish(GSRasterImage* result) {
    result->width = width_;
    result->height = height_;
    result->hasAlpha = hasAlpha_;
    result->pixels = std::move(out_);
    out_.clear();
}

bool GSScaleImage(const GSRasterImage& source, int width, int height, GSRasterImage* result) {
    if (width == source.width && height == source.height && width > 0 && height > 0) {
        *result = source;
        return true;
    }
    GSImageScaler scaler;
    if (!scaler.begin(source.width, source.height, width, height, source.hasAlpha)) return false;
    for (int y = 0; y < source.height; ++y)
        if (!scaler.addRow(source.pixels.data() + static_cast<size_t>(y) * source.width))
            return false;
    scaler.finish(result);
    return true;
}
