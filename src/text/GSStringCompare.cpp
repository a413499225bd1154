// GSStringCompare.cpp - the orderings and byte searches of GSString.
//
// Two families live side by side. The byte comparisons (compareValueSimple, isEqualCount) are
// for texts known to share an encoding. compareValue orders by code point through the
// decomposing enumerator whenever Unicode text or two different tags are involved, so that a
// Mac and a UTF-8 spelling of one text, or a precomposed letter and its base letter followed by
// the combining mark, compare equal; sorted tables and dictionary keys rely on that order.
#include "text/GSString.h"
#include "text/GSStringUniCharEnumerator.h"

#include <algorithm>
#include <cctype>
#include <climits>

namespace {

// Orderings return differences, not just signs: the first unequal code points or bytes, or the
// lengths, first minus second. Callers only look at the sign, but the values are part of the
// order's contract, so they must not depend on what a C library's memcmp or strcmp happens to
// return (the C standard promises only the sign). Code points from the enumerator are at most
// 31 bits (its longest lenient UTF-8 form), so their difference always fits an int.
int difference(unsigned a, unsigned b) {
    return static_cast<int>(a) - static_cast<int>(b);
}

// a - b of two lengths; only texts beyond 2 GiB would need the clamp, which keeps the sign.
int lengthDifference(long a, long b) {
    return static_cast<int>(std::clamp(a - b, long{INT_MIN}, long{INT_MAX}));
}

// memcmp's order with its value pinned: the first unequal bytes over n, as unsigned chars.
int byteDifference(const char* a, const char* b, long n) {
    const auto* x = reinterpret_cast<const unsigned char*>(a);
    const auto* y = reinterpret_cast<const unsigned char*>(b);
    auto [p, q] = std::mismatch(x, x + n, y);
    return p == x + n ? 0 : difference(*p, *q);
}

// strcmp's order with its value pinned: at the end of the shorter text its NUL is the byte
// compared, so "ab" against "abc" gives -'c'.
int textDifference(const char* a, const char* b) {
    const auto* x = reinterpret_cast<const unsigned char*>(a);
    const auto* y = reinterpret_cast<const unsigned char*>(b);
    while (*x && *x == *y)
        ++x, ++y;
    return difference(*x, *y);
}

// Two texts read as UTF-8 are ordered by their bytes as long as both are ASCII: ASCII decodes
// and decomposes to itself, so up to the first non-ASCII byte the enumerators would deliver
// exactly these bytes. Sets *order and returns true when that settles it.
bool orderByASCIIPrefix(const char* a, long na, const char* b, long nb, int* order) {
    long n = std::min(na, nb);
    long i = 0;
    while (i < n && a[i] == b[i] && static_cast<unsigned char>(a[i]) < 0x80)
        ++i;
    if (i == n) {
        // The shorter one runs out first; the longer still delivers a code point for whatever
        // follows (a lenient read always does), so the order is -1 or 1, never the lengths.
        *order = na == nb ? 0 : (na < nb ? -1 : 1);
        return true;
    }
    auto ca = static_cast<unsigned char>(a[i]);
    auto cb = static_cast<unsigned char>(b[i]);
    if (ca >= 0x80 || cb >= 0x80) return false;
    // A combining mark after either letter would come after it; the letters decide.
    *order = difference(ca, cb);
    return true;
}

// The C runtime's upper case, applied where it is defined (bytes); other code points as they are.
unsigned upper(unsigned code) {
    return code < 256 ? static_cast<unsigned>(std::toupper(static_cast<int>(code))) : code;
}

} // namespace

int GSString::compareValue(const GSString& other) const {
    if (this == &other) return 0;
    long a = getLength();
    long b = other.getLength();
    if (b <= 0 || a == 0) return a > 0 ? 1 : (b > 0 ? -1 : 0);

    const char* pa = getConstAddr();
    const char* pb = other.getConstAddr();
    if (encoding >= kUTF8 || encoding != other.encoding) {
        int order;
        if (encoding == kUTF8 && other.encoding == kUTF8 &&
            orderByASCIIPrefix(pa, a, pb, b, &order))
            return order;
        GSStringUniCharEnumerator first(*this, 1, 0);
        GSStringUniCharEnumerator second(other, 1, 0);
        for (;;) {
            unsigned ca, cb;
            bool hasA = first.getNext(&ca);
            bool hasB = second.getNext(&cb);
            if (!hasA) return hasB ? -1 : 0;
            if (!hasB) return 1;
            if (ca != cb) return difference(ca, cb);
        }
    }
    // Both single-byte with one tag: the bytes, then the lengths.
    int order = byteDifference(pa, pb, std::min(a, b));
    return order != 0 ? order : lengthDifference(a, b);
}

int GSString::compareValueCaseless(const GSString& other) const {
    return compareValueCountCaseless(other, -1);
}

int GSString::compareValueCountCaseless(const GSString& other, long count) const {
    GSStringUniCharEnumerator first(*this, 1, 0);
    GSStringUniCharEnumerator second(other, 1, 0);
    // The count limits the bytes of this string, not characters.
    while (count < 0 || first.getIndex() < count) {
        unsigned ca, cb;
        bool hasA = first.getNext(&ca);
        bool hasB = second.getNext(&cb);
        if (!hasA) return hasB ? -1 : 0;
        if (!hasB) return 1;
        unsigned ua = upper(ca), ub = upper(cb);
        if (ua != ub) return difference(ua, ub);
    }
    return 0;
}

int GSString::compareValueSimple(const char* text) const {
    const char* mine = getConstAddr();
    if (!mine || !text) {
        const char* present = mine ? mine : text;
        if (!present || !*present) return 0;
        return mine ? 1 : -1;
    }
    return textDifference(mine, text);
}

int GSString::compareValueSimple(const GSString& other) const {
    return compareValueSimple(other.getConstAddr());
}

bool GSString::isEqualCount(const GSString& other, long n) const {
    const char* mine = getConstAddr();
    const char* theirs = other.getConstAddr();
    if (!mine || !theirs) return !mine && !theirs;
    if (n < 0) return std::strcmp(mine, theirs) == 0; // as strncmp with the largest count
    return std::strncmp(mine, theirs, static_cast<size_t>(n)) == 0;
}

long GSString::findChar(char c, long from) const {
    const char* p = getConstAddr();
    if (!p || from < 0 || from > getLength()) return -1;
    const char* found = std::strchr(p + from, c);
    return found ? found - p : -1;
}

long GSString::findCharRev(char c) const {
    const char* p = getConstAddr();
    if (!p) return -1;
    const char* found = std::strrchr(p, c);
    return found ? found - p : -1;
}

GSString GSString::getSubstring(long start, long count) const {
    long length = getLength();
    if (count < 0) count = length - start;
    if (start == 0 && count == length) return *this;
    GSString part;
    part.encoding = encoding;
    // Callers stay within the text; a request outside it gives what lies inside.
    start = std::clamp(start, 0L, length);
    count = std::min(count, length - start);
    if (count < 1) return part;
    part.init(getConstAddr() + start, count, encoding);
    return part;
}
