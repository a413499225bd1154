// GSPNGWriter.h - encodes a raster image as PNG (RGB, or RGBA when the image can be transparent).
//
// Thumbnails are written once and read many times by a file manager, but the encoder is most of
// a thumbnailer's time: the zlib level and the row filter are chosen for speed with a small file.
// Text keys (key, value pairs) go into tEXt chunks before the image data.
#pragma once

#include "thumbnail/GSRasterImage.h"

#include <string>
#include <utility>
#include <vector>

using GSPNGText = std::vector<std::pair<std::string, std::string>>;

bool GSEncodePNG(const GSRasterImage& image, const GSPNGText& text, std::vector<unsigned char>* out,
                 std::string* error);
