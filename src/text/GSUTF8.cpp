// GSUTF8.cpp - UTF-8 decoding and encoding of one code point.
#include "text/GSUTF8.h"

const unsigned char* GSUTF8ReadChar(const unsigned char* p, long available, short lenient,
                                    unsigned* code) {
    if (available < 1) {
        *code = 0;
        return p + 1;
    }
    unsigned lead = p[0];
    if (lead < 0x80) {
        *code = lead;
        return p + 1;
    }
    long k;
    unsigned value;
    if ((lead & 0xE0) == 0xC0) {
        k = 1, value = lead & 0x1F;
    } else if ((lead & 0xF0) == 0xE0) {
        k = 2, value = lead & 0x0F;
    } else if ((lead & 0xF8) == 0xF0) {
        k = 3, value = lead & 0x07;
    } else if ((lead & 0xFC) == 0xF8) {
        k = 4, value = lead & 0x03;
    } else if ((lead & 0xFE) == 0xFC) {
        k = 5, value = lead & 0x01;
    } else {
        // A continuation byte, 0xFE or 0xFF.
        *code = lenient ? lead : 0;
        return lenient ? p + 1 : nullptr;
    }
    if (!lenient && k > available) {
        *code = value;
        return nullptr;
    }
    long take = lenient && k > available ? available : k;
    for (long i = 1; i <= take; ++i) {
        // The position past the text holds its NUL, which is never a continuation byte.
        unsigned byte = i < available ? p[i] : 0;
        if (!lenient && (byte & 0xC0) != 0x80) {
            *code = value;
            return nullptr;
        }
        value = (value << 6) | (byte & 0x3F);
    }
    *code = value;
    return p + 1 + take;
}

int GSUTF8Encode(unsigned code, char* out) {
    if (code < 0x80) {
        out[0] = static_cast<char>(code);
        return 1;
    }
    char reversed[8];
    int n = 0;
    int limit = -64;
    while (code & static_cast<unsigned>(limit)) {
        reversed[n++] = static_cast<char>(0x80 | (code & 0x3F));
        code >>= 6;
        limit >>= 1;
    }
    // The lead byte: as many high one-bits as the sequence has bytes, then the bits left.
    out[0] = static_cast<char>((static_cast<unsigned>(limit) << 1) | code);
    for (int i = 0; i < n; ++i)
        out[1 + i] = reversed[n - 1 - i];
    return n + 1;
}
