// GSDecodedRows.cpp - a decoder's rows, streamed or held.
#include "thumbnail/GSDecodedRows.h"

#include <cstddef>
#include <utility>

namespace {

// Decoders give straight alpha (as PNG stores it); the scaler averages premultiplied colour.
void premultiply(uint32_t* pixels, size_t count) {
    for (size_t i = 0; i < count; ++i) {
        const uint32_t p = pixels[i], a = p >> 24;
        if (a == 255) continue;
        auto mul = [a](uint32_t c) { return (c * a + 127) / 255; };
        pixels[i] = a << 24 | mul(p >> 16 & 255) << 16 | mul(p >> 8 & 255) << 8 | mul(p & 255);
    }
}

} // namespace

bool GSDecodedRows::start(int width, int height, bool hasAlpha, bool onePass) {
    streaming_ = streams(onePass);
    hasAlpha_ = hasAlpha;
    if (streaming_) {
        row_.assign(static_cast<size_t>(width), 0xFF000000u);
        return scaler_.begin(width, height, targetWidth_, targetHeight_, hasAlpha, true);
    }
    whole_.width = width;
    whole_.height = height;
    whole_.hasAlpha = hasAlpha;
    whole_.pixels.assign(static_cast<size_t>(width) * height, 0xFF000000u);
    return true;
}

uint32_t* GSDecodedRows::row(int y) {
    return streaming_ ? row_.data() : whole_.pixels.data() + static_cast<size_t>(y) * whole_.width;
}

bool GSDecodedRows::done() {
    // A held row is premultiplied at the end (an interlaced pass may come back to it); the
    // scaler premultiplies a streamed one.
    return !streaming_ || scaler_.addRow(row_.data());
}

bool GSDecodedRows::finish(GSRasterImage* image) {
    if (!streaming_ && hasAlpha_) premultiply(whole_.pixels.data(), whole_.pixels.size());
    if (streaming_) {
        scaler_.finish(image);
        return true;
    }
    if (targetWidth_ < 1 || targetHeight_ < 1 ||
        (targetWidth_ == whole_.width && targetHeight_ == whole_.height)) {
        *image = std::move(whole_);
        return true;
    }
    return GSScaleImage(whole_, targetWidth_, targetHeight_, image);
}
