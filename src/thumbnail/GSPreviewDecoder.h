// GSPreviewDecoder.h - decodes an encoded preview (JPEG or PNG) into a GSRasterImage of the
// thumbnail's size.
//
// JPEG is decoded with libjpeg-turbo at the smallest DCT scale (n/8) that leaves twice the target
// size, which makes large previews cheap and leaves the sharpness to the scaler's filter;
// greyscale, RGB and CMYK (also the inverted CMYK that some writers use) become ARGB. PNG of every
// colour type, bit depth and interlacing is decoded with libpng. Pictures read in one pass go row
// by row into the scaler and are never held whole (GSDecodedRows). Images whose declared size
// exceeds the pixel budget are refused before decoding, and so are JPEGs of more scans than real
// encoders write and progressive ones whose coefficients outgrow the memory budget; truncated or
// corrupt data is an error, never a grey picture (a JPEG missing only its end-of-image marker is
// whole, and decodes). Decoding stops, as a failure, once the calling thread's GSWorkDeadline has
// passed.
#pragma once

#include "thumbnail/GSRasterImage.h"

#include <string>

// Decodes `count` bytes of kind 3 (PNG) or anything else (JPEG) and scales them to exactly
// targetWidth x targetHeight (0: the picture's own size). Returns false with `error` set on
// failure, leaving `image` untouched.
bool GSDecodePreview(const unsigned char* bytes, long count, int kind, int targetWidth,
                     int targetHeight, GSRasterImage* image, std::string* error);
