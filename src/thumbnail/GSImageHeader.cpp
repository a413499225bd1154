// GSImageHeader.cpp - PNG IHDR and JPEG frame headers.
#include "thumbnail/GSImageHeader.h"

#include <cstring>

namespace {

unsigned long big32(const unsigned char* p) {
    return (static_cast<unsigned long>(p[0]) << 24) | (static_cast<unsigned long>(p[1]) << 16) |
           (static_cast<unsigned long>(p[2]) << 8) | p[3];
}

unsigned big16(const unsigned char* p) {
    return (static_cast<unsigned>(p[0]) << 8) | p[1];
}

// Frame markers (start of frame) are C0-CF except C4 (Huffman tables), C8 (reserved) and
// CC (arithmetic conditioning).
bool isFrameMarker(unsigned char m) {
    return m >= 0xC0 && m <= 0xCF && m != 0xC4 && m != 0xC8 && m != 0xCC;
}

void readJPEG(const unsigned char* p, long n, GSImageHeader* header) {
    header->format = GSImageFormat::kJPEG;
    long i = 2;
    while (i + 4 <= n) {
        if (p[i] != 0xFF) return; // not at a marker: the header is damaged
        unsigned char marker = p[i + 1];
        if (marker == 0xFF) { // fill byte
            ++i;
            continue;
        }
        if (marker == 0xD8 || marker == 0x01 || (marker >= 0xD0 && marker <= 0xD7)) {
            i += 2; // markers without a length
            continue;
        }
        if (marker == 0xD9 || marker == 0xDA) return; // end of image, or scan data before a frame
        unsigned length = big16(p + i + 2);
        if (length < 2) return;
        if (isFrameMarker(marker)) {
            if (i + 9 > n || length < 7) return;
            header->height = big16(p + i + 5);
            header->width = big16(p + i + 7);
            header->sizeKnown = true;
            return;
        }
        i += 2 + static_cast<long>(length);
    }
}

} // namespace

GSImageHeader GSReadImageHeader(const unsigned char* p, long n) {
    GSImageHeader header;
    static const unsigned char pngSignature[8] = {0x89, 'P', 'N', 'G', '\r', '\n', 0x1A, '\n'};
    if (n >= 24 && std::memcmp(p, pngSignature, 8) == 0 && std::memcmp(p + 12, "IHDR", 4) == 0) {
        header.format = GSImageFormat::kPNG;
        header.width = static_cast<long>(big32(p + 16));
        header.height = static_cast<long>(big32(p + 20));
        header.sizeKnown = true;
    } else if (n >= 3 && p[0] == 0xFF && p[1] == 0xD8 && p[2] == 0xFF) {
        readJPEG(p, n, &header);
    }
    return header;
}
