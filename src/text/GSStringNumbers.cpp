// GSStringNumbers.cpp - integers and decimal fractions written into text, integers read back.
//
// The framework's own rules, kept exactly because stored texts and formats depend on them: a
// field width counts digits only and its sign picks the padding (zeros after the sign, spaces
// before it); compact fractions lose their trailing zeros and round by 0.49 units of the last
// place, not by one half; the integer reader stops accumulating near the 32-bit limit without
// saying so. Everything written is ASCII, so it is valid text in every encoding.
#include "text/GSString.h"

#include <cmath>
#include <cstdlib>
#include <limits>

namespace {

// Appends `count` copies of c in a few inserts rather than one per byte.
void addRun(GSString* s, char c, long long count) {
    char block[64];
    std::memset(block, c, sizeof block);
    while (count > 0) {
        long n = count < 64 ? static_cast<long>(count) : 64;
        s->_insert(s->getLength(), block, n);
        count -= n;
    }
}

// Decimal output of either width. The digits come from the magnitude as an unsigned value,
// so that the most negative value prints its digits like any other.
void addInteger(GSString* s, long long value, int width) {
    unsigned long long magnitude = value < 0 ? 0ULL - static_cast<unsigned long long>(value)
                                             : static_cast<unsigned long long>(value);
    char digits[20];
    int n = 0;
    do {
        digits[sizeof digits - 1 - n++] = static_cast<char>('0' + magnitude % 10);
        magnitude /= 10;
    } while (magnitude != 0);
    long long field = std::llabs(static_cast<long long>(width));
    if (value < 0 && width < 0) s->add('-');
    if (field > n) addRun(s, width < 0 ? '0' : ' ', field - n);
    if (value < 0 && width >= 0) s->add('-');
    s->_insert(s->getLength(), digits + sizeof digits - n, n);
}

bool isWhiteSpace(unsigned code) {
    switch (code) {
    case 3:
    case 7:
    case 9:
    case 10:
    case 12:
    case 13:
    case 32:
    case 0x200B:
        return true;
    default:
        return false;
    }
}

// A double as a long long for the integer and fraction digits: values beyond the range (and
// NaN, as 0) are held at its ends instead of converting with undefined behaviour.
long long toLongLong(double d) {
    if (!(d == d)) return 0;
    if (d >= 9.2e18) return std::numeric_limits<long long>::max();
    return static_cast<long long>(d);
}

} // namespace

short GSString::addLong(int value, int width) {
    addInteger(this, value, width);
    return 0;
}

short GSString::addLongLong(long long value, int width) {
    addInteger(this, value, width);
    return 0;
}

void GSString::setLongValue(int value) {
    clear();
    addLong(value, 0);
}

short GSString::addCompactDouble(double value, int decimals, int* scale) {
    bool ok = true;
    if (value < 0) {
        ok = add('-') == 0;
        value = -value;
    }
    double r = decimals <= 0 ? 0.49 : 0.49 * std::pow(0.1, decimals);
    double whole = std::floor(value + r);
    double f = value + r - whole;
    if (!(f == f) || std::isinf(whole)) f = 0; // NaN and infinities carry no fraction
    if (ok) addLongLong(toLongLong(whole), 0);

    double eps = decimals <= 0 ? 1.0 : std::pow(0.1, decimals);
    int k0 = 0;
    for (int k = decimals; decimals != 0 && k >= 1; --k) {
        if (f - std::floor(f) <= eps) {
            k0 = k;
            break;
        }
        f *= 10;
    }
    long long d = toLongLong(f);
    if (scale) *scale = 0;
    if (!ok) return 1;
    if (d == 0) return 0;

    short failed = add('.');
    if (!failed) addLongLong(d, k0 - decimals);
    removeTrailingChar('0');
    if (scale) *scale = k0 - decimals;
    return failed ? 1 : 0;
}

short GSString::addCompactFloat(float value, int decimals, int* scale) {
    return addCompactDouble(static_cast<double>(value), decimals, scale);
}

void GSString::removeTrailingChar(char c) {
    long length = getLength();
    long end = length;
    const char* p = getConstAddr();
    while (end > 0 && p[end - 1] == c)
        --end;
    if (end < length) remove(end, -1);
    if (c != '.') return;

    // The ellipsis character counts as trailing dots too: U+2026 in UTF-8, byte 0xC9 in the
    // Mac code page. Dots left in front of a removed ellipsis stay.
    if (encoding == kUTF8) {
        for (length = getLength(); length > 0; length = getLength()) {
            long start = getValidStartIndexForIndexBasic(length - 1);
            if (getUnicodeChar(start, nullptr) != 0x2026) break;
            remove(start, -1);
        }
    } else if (encoding == kMac) {
        p = getConstAddr();
        length = getLength();
        end = length;
        while (end > 0 && static_cast<unsigned char>(p[end - 1]) == 0xC9)
            --end;
        if (end < length) remove(end, -1);
    }
}

long GSString::skipWhiteSpace(long index) const {
    long length = getLength();
    if (index < 0) index = 0;
    while (index < length && isWhiteSpace(getUnicodeChar(index, nullptr))) {
        long next = getValidEndIndexForIndex(index, 1) + 1;
        index = next > index ? next : index + 1;
    }
    return index;
}

int GSString::getBasicLongValue(long index, long* end, long* digitsEnd) const {
    const char* p = getConstAddr();
    long length = getLength();
    if (!p || index < 0 || index >= length) {
        if (end) *end = index;
        if (digitsEnd) *digitsEnd = index;
        return 0;
    }
    long i = index;
    bool negative = p[i] == '-';
    if (negative) ++i;
    if (i < length && p[i] == '+') ++i;
    int acc = 0;
    long added = -1;
    for (; i < length && p[i] >= '0' && p[i] <= '9'; ++i) {
        if (acc < 214748364) {
            acc = acc * 10 + (p[i] - '0');
            added = i + 1;
        }
    }
    if (end) *end = i;
    if (digitsEnd) *digitsEnd = added < 0 ? i : added;
    return negative ? -acc : acc;
}

int GSString::getLongValue(long index, long* end) const {
    return getBasicLongValue(skipWhiteSpace(index), end, nullptr);
}
