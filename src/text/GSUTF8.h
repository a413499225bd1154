// GSUTF8.h - reading and writing one UTF-8 encoded code point.
//
// The framework's UTF-8 is the original one of up to six bytes: lead bytes 110xxxxx to
// 1111110x announce one to five continuation bytes, and neither overlong forms nor surrogate
// code points are refused. Texts are NUL-terminated, and the reader behaves as if the byte at
// p[available] were that NUL: it never looks at p[available] or beyond, so a caller may pass a
// block of exactly `available` bytes without a terminator.
#pragma once

// Reads the character at p. `available` is the number of bytes from p to the end of the text,
// the lead byte included. Returns the address just past the character, or null when a strict
// read fails. Strict: a continuation byte, 0xFE or 0xFF as lead byte fails with code 0; a
// sequence longer than `available` fails with the payload bits read so far, as does the first
// byte that is not a continuation byte (the text's NUL ends a truncated sequence). Lenient
// (`lenient` nonzero): never fails; a bad lead byte is a code point of its own value, a
// truncated sequence takes min(k, available) continuation bytes (the terminating NUL counting
// as one, so the result may lie one past the NUL), and any byte in a continuation position
// gives its low six bits. With `available` below 1 the lead byte is the NUL: code 0, p + 1.
const unsigned char* GSUTF8ReadChar(const unsigned char* p, long available, short lenient,
                                    unsigned* code);

// Writes the UTF-8 form of `code` into out (at least 8 bytes) and returns its byte count.
// Continuation bytes take six bits each from the low end while the bits left overlap a limit
// that starts at -64 and shifts right arithmetically per byte; the rest forms the lead byte.
// This gives the standard forms up to U+1FFFFF, five and six bytes up to 0x7FFFFFFF, and seven
// bytes (lead 0xFE) above.
int GSUTF8Encode(unsigned code, char* out);
