// GSDecodedRows.h - where a decoder puts its rows: straight into the scaler, or into the whole
// picture.
//
// A picture decoded top to bottom in one pass (a JPEG, a PNG that is not interlaced) goes row by
// row into a GSImageScaler and is never held whole: its memory is one source row and a few output
// rows. An interlaced PNG revisits its rows in seven passes and is held whole, and so is a picture
// decoded without a target size; either is scaled to the target (when there is one) at the end.
// The decoders own nothing that needs destroying (they leave by longjmp): this object, made by
// their caller, owns every buffer.
#pragma once

#include "thumbnail/GSImageScaler.h"
#include "thumbnail/GSRasterImage.h"

#include <vector>

class GSDecodedRows {
public:
    // targetWidth/Height: the size wanted (0: the picture's own).
    GSDecodedRows(int targetWidth, int targetHeight)
        : targetWidth_(targetWidth), targetHeight_(targetHeight) {}

    // Whether a picture of that many rows, read once each top to bottom, would be streamed.
    bool streams(bool onePass) const { return onePass && targetWidth_ > 0 && targetHeight_ > 0; }
    // Takes the picture's decoded size before the first row; allocates the row or the picture.
    bool start(int width, int height, bool hasAlpha, bool onePass);
    // Where row `y` is to be decoded: native ARGB, width pixels.
    uint32_t* row(int y);
    // The row last asked for is complete (straight alpha). False once the work's deadline has
    // passed.
    bool done();
    // The picture at the target size (or its own): false when its scaling ran out of time.
    bool finish(GSRasterImage* image);

    std::vector<unsigned char> scratch; // a decoder's own row, in another layout (CMYK)

private:
    int targetWidth_, targetHeight_;
    bool streaming_ = false, hasAlpha_ = false;
    GSImageScaler scaler_;
    std::vector<uint32_t> row_;
    GSRasterImage whole_;
};
