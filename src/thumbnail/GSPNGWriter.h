// GSPNGWriter.h - encodes a raster image as PNG (RGB, or RGBA when the image can be transparent).
//
// Thumbnails are written once and read many times by a file manager, but the encoder was most of
// a small thumbnail's time: the row filter and the compressor are chosen for speed with a small
// file. Text keys (key, value pairs) go into tEXt chunks before the image data: keys of 1 to 79
// Latin-1 characters, neither part with a NUL (the callers' keys are fixed names, their values
// URIs, numbers and names). The pictures are thumbnails and contact sheets, far below the 2 GiB
// that one image-data chunk can hold.
//
// The image is taken, and its pixels are released once the rows are filtered: the peak is then
// the filtered rows and the compressed output, not the picture as well (a sixth less memory
// for the whole thumbnailer at the largest size).
#pragma once

#include "thumbnail/GSRasterImage.h"

#include <string>
#include <utility>
#include <vector>

using GSPNGText = std::vector<std::pair<std::string, std::string>>;

bool GSEncodePNG(GSRasterImage image, const GSPNGText& text, std::vector<unsigned char>* out,
                 std::string* error);
