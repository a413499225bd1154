// SampleImages.h - pictures drawn by the project itself, encoded as JPEG or PNG.
//
// The sample documents and the tests need real, decodable previews; these are drawn from
// arithmetic (a sky, a sun, hills) so that nothing is copied from elsewhere.
#pragma once

#include <string>
#include <vector>

namespace samples {

// RGB or RGBA pixels, rows top to bottom.
struct Picture {
    int width = 0;
    int height = 0;
    int channels = 3;
    std::vector<unsigned char> pixels;
};

Picture drawLandscape(int width, int height, bool withAlpha);
std::vector<unsigned char> encodeJPEG(const Picture& picture, int quality);
std::vector<unsigned char> encodePNG(const Picture& picture);

} // namespace samples
