// GSUTF8.cpp - UTF-8 decoding of one code point.
#include "GSUTF8.h"

long GSUTF8ReadChar(const unsigned char* p, long available, unsigned* code, bool strict) {
    if (available < 1) return 0;
    unsigned b0 = p[0];
    long need;
    unsigned value, min;
    if (b0 < 0x80) {
        *code = b0;
        return 1;
    } else if ((b0 & 0xE0) == 0xC0) {
        need = 2, value = b0 & 0x1F, min = 0x80;
    } else if ((b0 & 0xF0) == 0xE0) {
        need = 3, value = b0 & 0x0F, min = 0x800;
    } else if ((b0 & 0xF8) == 0xF0) {
        need = 4, value = b0 & 0x07, min = 0x10000;
    } else {
        if (strict) return 0;
        *code = b0;
        return 1;
    }
    if (available < need) {
        if (strict) return 0;
        *code = b0;
        return 1;
    }
    for (long i = 1; i < need; ++i) {
        if ((p[i] & 0xC0) != 0x80) {
            if (strict) return 0;
            *code = b0;
            return 1;
        }
        value = (value << 6) | (p[i] & 0x3F);
    }
    if (strict && (value < min || value > 0x10FFFF || (value >= 0xD800 && value <= 0xDFFF)))
        return 0;
    *code = value;
    return need;
}
