// GSImageScaler.h - scales a picture to an exact pixel size with a Lanczos-3 windowed sinc, row by
// row as the decoder delivers it.
//
// Each axis is filtered on its own (separable): every output pixel is the normalised sum of the
// source pixels within three lobes of its centre, the lobes widened by the scale when shrinking
// (so every source pixel counts and nothing aliases) and one source pixel wide when enlarging.
// Taps beyond the picture's edge are left out and the rest renormalised, so a flat picture stays
// flat to its edges. Width and height scale independently, so a document whose stated size has
// another aspect than its picture is drawn as the document says.
//
// Source rows are pushed top to bottom and never kept: each is filtered across at once into a ring
// of rows of the output's width, as many as one output row's vertical window spans, and each
// output row is summed from the ring once its window's last row is in. A row more than four times
// the output's width is first averaged across in whole groups of pixels that leave at least twice
// the output's width (as a JPEG's DCT scale does): the sinc then needs a few taps per output pixel
// instead of dozens, and the groups, far narrower than its lobes, change the picture by less than a
// level in most pixels. Alpha is premultiplied throughout (rows may come with straight alpha, as
// PNG stores it, and are premultiplied as they arrive); the sinc's ringing is clamped so that
// colour never exceeds alpha. Work is counted against the calling thread's GSWorkDeadline, and a
// row pushed after it has passed fails.
#pragma once

#include "thumbnail/GSRasterImage.h"

#include <vector>

class GSImageScaler {
public:
    // False (nothing allocated) when a size is below 1. straightAlpha: the rows' colour is not
    // yet multiplied by their alpha.
    bool begin(int sourceWidth, int sourceHeight, int width, int height, bool hasAlpha,
               bool straightAlpha = false);
    // The next source row: sourceWidth pixels of native ARGB. False once the deadline has passed.
    bool addRow(const uint32_t* row);
    // After the last source row: the scaled picture (this scaler is then spent).
    void finish(GSRasterImage* result);

private:
    // Four channels in one vector register (GCC and Clang): the loops run on all four at once.
    typedef float Pixel __attribute__((vector_size(16)));
    struct Window {
        int first = 0, count = 0; // source pixels [first, first + count)
    };
    // One axis: the window of each of `size` output pixels, and their normalised weights, `taps`
    // per output pixel (the widest window's count; narrower ones padded with zeros).
    struct Axis {
        std::vector<Window> windows;
        std::vector<float> weights;
        int taps = 0;
    };
    static Axis axis(double scale, int sourceSize, int size);
    void group(const uint32_t* row);
    Pixel* ringRow(int sourceRow);
    void emit(int row);

    int sourceWidth_ = 0, sourceHeight_ = 0, width_ = 0, height_ = 0;
    bool hasAlpha_ = false, straightAlpha_ = false;
    int groupX_ = 1, groupedWidth_ = 0; // source pixels averaged into one, and how many result
    double scaleX_ = 1, scaleY_ = 1;    // grouped (source) pixels per output pixel
    std::vector<float> grouped_;        // the row averaged in groups: groupedWidth_ * 4
    Axis columns_, rows_;
    std::vector<float> ring_; // the last ringRows_ source rows filtered across: width_ * 4 each
    int ringRows_ = 0;
    std::vector<float> sum_; // one output row being summed: width_ * 4
    int nextSource_ = 0, nextOut_ = 0;
    long rowWork_ = 0; // units of GSWorkTimeUp a source row costs
    std::vector<uint32_t> out_;
};

// The whole picture at once: `source` scaled to width x height (a copy at its own size).
bool GSScaleImage(const GSRasterImage& source, int width, int height, GSRasterImage* result);
