// SampleImages.h - pictures drawn by the project itself, encoded as JPEG or PNG.
//
// The sample documents and the tests need real, decodable previews; these are drawn from
// arithmetic (a sky, a sun, hills) so that nothing is copied from elsewhere.
#pragma once

#include <string>
#include <vector>

namespace samples {

// Grey (1 channel), grey and alpha (2), RGB (3) or RGBA (4) pixels, rows top to bottom.
struct Picture {
    int width = 0;
    int height = 0;
    int channels = 3;
    std::vector<unsigned char> pixels;
};

Picture drawLandscape(int width, int height, bool withAlpha);
// Every pixel the same: `sample` gives the channels (1 to 4 values).
Picture drawFlat(int width, int height, const std::vector<unsigned char>& sample);

// A 1-channel picture becomes a greyscale JPEG, any other an RGB one (alpha is dropped);
// progressive: in libjpeg's standard scans (6 for grey, 10 for colour).
std::vector<unsigned char> encodeJPEG(const Picture& picture, int quality,
                                      bool progressive = false);
// The picture's RGB as CMYK. adobeInverted: the samples stored inverted (255 is no ink) under an
// Adobe marker, as Adobe's writers do; otherwise plain ink amounts without the marker.
std::vector<unsigned char> encodeCMYKJPEG(const Picture& picture, int quality, bool adobeInverted);
std::vector<unsigned char> encodePNG(const Picture& picture);

// PNG layouts beyond what the simplified writer makes.
struct PNGLayout {
    enum Colour { kGrey, kGreyAlpha, kRGB, kRGBA, kPalette };
    Colour colour = kRGB; // must match the picture's channels; kPalette takes RGB or RGBA
    int bitDepth = 8;     // 8, or 16 for the non-palette colours
    bool interlaced = false;
};
// kPalette: one entry per distinct colour (at most 256), with tRNS when any is transparent.
std::vector<unsigned char> encodePNG(const Picture& picture, const PNGLayout& layout);

// Reads a PNG back, as RGB or (when it has alpha) RGBA; width 0 when the bytes are no whole PNG.
Picture decodePNG(const std::vector<unsigned char>& bytes);

} // namespace samples
