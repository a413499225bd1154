// GSUTF8.h - reading one UTF-8 encoded code point.
#pragma once

// Reads the code point at `p` (at most `available` bytes). Returns the number of bytes used, or
// 0 when the sequence is malformed (strict: overlong forms, surrogates, values above 10FFFF and
// truncated sequences are refused) or nothing is available. Lenient mode takes a malformed lead
// byte as one character of its own value.
long GSUTF8ReadChar(const unsigned char* p, long available, unsigned* code, bool strict);
