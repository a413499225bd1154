// TextSupport.h - GSString as std::string and back, for the tests that compare texts.
//
// Header-only: the text and object suites use it, and it needs nothing but GSString.
#pragma once

#include "text/GSString.h"

#include <string>

namespace testing_support {

// The bytes of `s` ("" for the null string: tests that care ask isNull themselves).
inline std::string text(const GSString& s) {
    return s.isNull() ? std::string() : std::string(s.getConstAddr(), size_t(s.getLength()));
}

// A string of exactly these bytes (NULs included) under `tag`; no bytes give the null string.
inline GSString bytes(const std::string& b, int tag = GSString::kUTF8) {
    return GSString(b.data(), static_cast<long>(b.size()), tag);
}

// UTF-16 units as they lie in memory, in machine order.
inline std::string units(const std::u16string& u) {
    return std::string(reinterpret_cast<const char*>(u.data()), 2 * u.size());
}

} // namespace testing_support
