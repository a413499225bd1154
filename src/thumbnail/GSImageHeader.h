// GSImageHeader.h - the format and pixel size of an encoded image, from its header alone.
//
// Used where an image must be described without decoding it: writing a document around a
// picture, and refusing absurd dimensions before a decoder allocates anything. Reads only the
// bytes given and never more than the markers it walks.
#pragma once

enum class GSImageFormat { kUnknown, kJPEG, kPNG };

struct GSImageHeader {
    GSImageFormat format = GSImageFormat::kUnknown;
    long width = 0;
    long height = 0;
    bool sizeKnown = false; // a JPEG whose frame header was not found has a format but no size
};

GSImageHeader GSReadImageHeader(const unsigned char* bytes, long count);
