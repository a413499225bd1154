// PrintableText.cpp - escaping control characters and broken UTF-8 for the terminal.
#include "PrintableText.h"

namespace tool {

namespace {

// U+0080 to U+009F are C2 80 to C2 9F.
bool byte2IsC1(std::string_view text, size_t i) {
    return static_cast<unsigned char>(text[i + 1]) < 0xA0;
}

} // namespace

size_t wellFormedUTF8(std::string_view text, size_t i) {
    auto byte = [&](size_t k) { return static_cast<unsigned char>(text[k]); };
    unsigned char c = byte(i);
    size_t n = c >= 0xF0 ? 4 : c >= 0xE0 ? 3 : c >= 0xC2 ? 2 : 0;
    if (c > 0xF4 || n == 0 || i + n > text.size()) return 0;
    for (size_t k = 1; k < n; ++k)
        if ((byte(i + k) & 0xC0) != 0x80) return 0;
    unsigned next = byte(i + 1);
    if ((c == 0xE0 && next < 0xA0) || (c == 0xED && next >= 0xA0) || (c == 0xF0 && next < 0x90) ||
        (c == 0xF4 && next >= 0x90))
        return 0;
    return n;
}

std::string printable(std::string_view text) {
    static const char* hex = "0123456789abcdef";
    std::string out;
    out.reserve(text.size());
    auto escape = [&](unsigned char c) {
        out += "\\x";
        out.push_back(hex[c >> 4]);
        out.push_back(hex[c & 15]);
    };
    for (size_t i = 0; i < text.size();) {
        auto c = static_cast<unsigned char>(text[i]);
        if (c == '\n' || c == '\r' || c == '\t') {
            out.push_back('\\');
            out.push_back(c == '\n' ? 'n' : c == '\r' ? 'r' : 't');
            ++i;
        } else if (c < 0x20 || c == 0x7F) {
            escape(c);
            ++i;
        } else if (c < 0x80) {
            out.push_back(static_cast<char>(c));
            ++i;
        } else if (size_t n = wellFormedUTF8(text, i); n && !(c == 0xC2 && byte2IsC1(text, i))) {
            out.append(text.substr(i, n));
            i += n;
        } else {
            escape(c); // a stray byte, or a C1 control in its UTF-8 form (U+0080 to U+009F)
            ++i;
        }
    }
    return out;
}

bool isPlainName(std::string_view name, size_t maxBytes) {
    return !name.empty() && name.size() <= maxBytes && printable(name) == name &&
           name.find('\\') == std::string_view::npos;
}

} // namespace tool
