// PrintableText.h - text from strangers made safe to show on a terminal.
//
// File names and names read from documents are bytes that someone else chose. Printed as they
// are, a newline starts a line that a script takes for another file, and an escape sequence
// moves the cursor, retitles the window or worse. Everything that prints such text to a
// terminal or a log line goes through printable(); JSON output has its own escaping.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace tool {

// The byte count of a well-formed UTF-8 character at text[i] (no overlong forms, surrogates or
// code points above U+10FFFF), or 0.
size_t wellFormedUTF8(std::string_view text, size_t i);

// `text` with control characters (C0, DEL, and C1 written in UTF-8) and bytes that are not
// well-formed UTF-8 escaped as \n, \r, \t or \xNN; everything else as it is.
std::string printable(std::string_view text);

// Whether a name read from a file can be shown as it is: at most `maxBytes` bytes of
// well-formed UTF-8 without control characters. Names that fail are counted, not shown.
bool isPlainName(std::string_view name, size_t maxBytes = 64);

} // namespace tool
