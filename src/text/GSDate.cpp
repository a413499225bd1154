// GSDate.cpp - the calendar rules of GSDate and its %-format language.
//
// Format items ("%" and one character):
//   A full weekday name (text 90022 + day of week)   a its first 3 bytes
//   B full month name (text 90009 + month)           b its first 3 bytes
//   d day, m month, H hour, M minute, S second: 2 digits with leading zero
//   Y year, no padding          y year modulo 100, 2 digits      s millisecond, 3 digits
//   I hour on the 12-hour clock (0 and 12 give 12), no padding
//   p text 90003 before noon, text 90004 from noon on
//   U week of year and w day of week (0 Sunday), no padding
//   W X Z c j x z nothing       % a "%"       any other character: that character
// A "%" that ends the pattern is dropped. Abbreviations are cut by bytes, so a name that starts
// with a multi-byte UTF-8 character can be cut inside it; names are looked up in the table
// given, and an empty table gives empty names.
#include "text/GSDate.h"

#include "objects/GSNumericStringTable.h"
#include "text/GSString.h"

#include <algorithm>
#include <cstddef>
#include <ctime>

constinit const GSDate GSDate::invalid;

static_assert(offsetof(GSDate, day) == 0 && offsetof(GSDate, month) == 1 &&
                  offsetof(GSDate, year) == 4 && offsetof(GSDate, hour) == 8 &&
                  offsetof(GSDate, minute) == 9 && offsetof(GSDate, second) == 10 &&
                  offsetof(GSDate, millisecond) == 12,
              "GSDate: field layout");

const GSString GSDate::__weekdayAbbreviations[7] = {"Sun", "Mon", "Tue", "Wed",
                                                    "Thu", "Fri", "Sat"};
const GSString GSDate::__monthAbbreviations[12] = {"Jan", "Feb", "Mar", "Apr", "May", "Jun",
                                                   "Jul", "Aug", "Sep", "Oct", "Nov", "Dec"};

namespace {

// By month 1-12, in a common year.
constexpr int __daysBeforeMonth[12] = {0, 31, 59, 90, 120, 151, 181, 212, 243, 273, 304, 334};
constexpr int __daysInMonth[12] = {31, 28, 31, 30, 31, 30, 31, 31, 30, 31, 30, 31};

// The table index of a month; months outside 1-12 (GSDate::invalid among them) are read as
// December rather than indexing outside the tables.
int monthIndex(int month) {
    return std::clamp(month, 1, 12) - 1;
}

long long dayOfYear(int day, int month, long long year) {
    int m = monthIndex(month);
    return __daysBeforeMonth[m] + (m >= 2 && GSDate::isLeapYear(year) ? 1 : 0) + day - 1;
}

// The day count behind the day of week. The leap-day terms divide (year - 1) truncating toward
// zero, as the rule has always done: exact from year 1 on, a day or two off before it.
int dayOfWeek(int day, int month, long long year) {
    long long n = dayOfYear(day, month, year) + 365 * year + (year - 1) / 4 - (year - 1) / 100 +
                  (year - 1) / 400;
    // 730247 makes 1 January 2000 a Saturday (6).
    int r = static_cast<int>((n - 730247) % 7);
    return r < 0 ? r + 7 : r;
}

int weekOfYear(long long dayOfYearValue, long long year) {
    // Monday-based day of week of 1 January: 0 Monday ... 6 Sunday.
    int w1 = dayOfWeek(1, 1, year);
    int m = w1 == 0 ? 6 : w1 - 1;
    long long v = dayOfYearValue + m;
    if (m < 4) {
        // 1 January is Monday to Thursday: its week is week 1.
        long long week = v / 7 + 1;
        if (week != 53) return static_cast<int>(week);
        // The last days belong to next year's week 1 when 31 December is Monday to Thursday.
        // Thursday included: unlike ISO 8601, such a year has no week 53.
        int last = dayOfWeek(31, 12, year);
        return last >= 1 && last <= 4 ? 1 : 53;
    }
    // 1 January is Friday to Sunday: the days before the first Monday belong to the last week
    // of the previous year.
    if (v < 7) return weekOfYear(dayOfYear(31, 12, year - 1), year - 1);
    return static_cast<int>(v / 7);
}

// Appends the first `bytes` bytes of `name` (all of it when negative), converted to out's
// encoding when the tags differ.
void addName(const GSString& name, long bytes, GSString* out) {
    long n = name.getLength();
    if (bytes >= 0 && bytes < n) n = bytes;
    if (n <= 0) return;
    if (n == name.getLength()) {
        out->add(name);
        return;
    }
    out->add(GSString(name.getConstAddr(), n, name.getEncoding()));
}

} // namespace

GSDate::GSDate(int utc) {
    init(static_cast<long>(std::time(nullptr)), utc);
}

void GSDate::init(long seconds, int utc) {
    // The reentrant forms: dates are made on several threads at once (the cache tool).
    std::time_t t = static_cast<std::time_t>(seconds);
    std::tm parts{};
    if (!(utc ? gmtime_r(&t, &parts) : localtime_r(&t, &parts))) {
        *this = invalid;
        return;
    }
    *this = GSDate(parts.tm_mday, parts.tm_mon + 1, 1900 + parts.tm_year, parts.tm_hour,
                   parts.tm_min, parts.tm_sec, 0);
}

int GSDate::getDaysInMonth(int month, long long year) {
    if (month < 1 || month > 12) return 0;
    return __daysInMonth[month - 1] + (month == 2 && isLeapYear(year) ? 1 : 0);
}

long long GSDate::getDaysSince1970() const {
    // Leap days before 1 January of `y`, with divisions that round down, so that the count is
    // exact for every year of the proleptic calendar (year 0 and before too).
    auto floorDiv = [](long long a, long long b) { return a / b - (a % b < 0 ? 1 : 0); };
    auto leapDaysBefore = [&](long long y) {
        return floorDiv(y - 1, 4) - floorDiv(y - 1, 100) + floorDiv(y - 1, 400);
    };
    return 365 * (static_cast<long long>(year) - 1970) + leapDaysBefore(year) -
           leapDaysBefore(1970) + dayOfYear(day, month, year);
}

int GSDate::getDayOfYear() const {
    return static_cast<int>(dayOfYear(day, month, year));
}

int GSDate::getDayOfWeek() const {
    return dayOfWeek(day, month, year);
}

int GSDate::getWeekOfYear() const {
    return weekOfYear(getDayOfYear(), year);
}

void GSDate::addDays(int days) {
    _addDays(days);
}

void GSDate::_addDays(long long days) {
    long long d = dayOfYear(day, month, year) + days;
    long long y = year;
    // Whole 400-year cycles (146097 days each) first, so that a shift of any size takes a
    // bounded number of steps; the walks below then give the same date they would have.
    constexpr long long kCycleDays = 146097;
    y += 400 * (d / kCycleDays);
    d %= kCycleDays;
    while (d < 0) {
        --y;
        d += getDaysInYear(y);
    }
    while (d >= getDaysInYear(y)) {
        d -= getDaysInYear(y);
        ++y;
    }
    int m = 0;
    while (m < 11) {
        int length = __daysInMonth[m] + (m == 1 && isLeapYear(y) ? 1 : 0);
        if (d < length) break;
        d -= length;
        ++m;
    }
    year = static_cast<std::int32_t>(y); // modular beyond the 32-bit range
    month = static_cast<std::uint8_t>(m + 1);
    day = static_cast<std::uint8_t>(d + 1);
}

void GSDate::addSeconds(long seconds) {
    constexpr long kDay = 86400;
    long q = seconds / kDay;
    if (q != 0) {
        _addDays(q);
        seconds -= kDay * q;
    }
    if (seconds == 0) return;
    long t = seconds + second + 60L * (minute + 60L * hour);
    if (t >= kDay) {
        _addDays(1);
        t -= kDay;
    }
    if (t < 0) {
        _addDays(-1);
        t += kDay;
    }
    hour = static_cast<std::uint8_t>(t / 3600);
    minute = static_cast<std::uint8_t>(t % 3600 / 60);
    second = static_cast<std::uint8_t>(t % 60);
}

short GSDate::writeToStringWithFormat(const GSString& format, GSString* out) const {
    return writeToStringWithFormatAndStringTable(format, 0, GSString::_numericStringTable, out);
}

short GSDate::writeToStringWithFormatAndStringTable(const GSString& format, int formatId,
                                                    const GSNumericStringTable& table,
                                                    GSString* out) const {
    // Id 0 names no text: load() and GSString(int) treat it the same way.
    const GSString& stored = formatId != 0 ? table.getValue(formatId) : GSString::null;
    const GSString& given = stored.isEmpty() ? format : stored;
    // The pattern's characters are copied byte for byte, so both sides must share a tag, and
    // as in GSString::add the higher tag wins: a single-byte output meeting a UTF-8 pattern
    // becomes UTF-8 first; a single-byte pattern meeting a UTF-8 output is read converted.
    if (out->getEncoding() < given.getEncoding()) out->convertEncoding(given.getEncoding());
    GSString converted;
    if (out->getEncoding() > given.getEncoding()) {
        converted = given;
        converted.convertEncoding(out->getEncoding());
    }
    const GSString& pattern = out->getEncoding() > given.getEncoding() ? converted : given;

    long length = pattern.getLength();
    long i = 0;
    while (i < length) {
        if (pattern[i] != '%') {
            i = pattern.addCharToString(i, out); // a UTF-8 character whole
            continue;
        }
        if (i + 1 >= length) break; // a "%" that ends the pattern is dropped
        long item = i + 1;
        i += 2;
        switch (pattern[item]) {
        case 'A':
            addName(table.getValue(kWeekdayNameBaseId + getDayOfWeek()), -1, out);
            break;
        case 'a':
            addName(table.getValue(kWeekdayNameBaseId + getDayOfWeek()), 3, out);
            break;
        case 'B':
            addName(table.getValue(kMonthNameBaseId + month), -1, out);
            break;
        case 'b':
            addName(table.getValue(kMonthNameBaseId + month), 3, out);
            break;
        case 'd':
            out->addLong(day, -2);
            break;
        case 'm':
            out->addLong(month, -2);
            break;
        case 'Y':
            out->addLong(year, 0);
            break;
        case 'y':
            out->addLong((year % 100 + 100) % 100, -2);
            break;
        case 'H':
            out->addLong(hour, -2);
            break;
        case 'I':
            out->addLong(hour % 12 == 0 ? 12 : hour % 12, 0);
            break;
        case 'p':
            addName(table.getValue(hour < 12 ? kBeforeNoonId : kAfterNoonId), -1, out);
            break;
        case 'M':
            out->addLong(minute, -2);
            break;
        case 'S':
            out->addLong(second, -2);
            break;
        case 's':
            out->addLong(millisecond, -3);
            break;
        case 'U':
            out->addLong(getWeekOfYear(), 0);
            break;
        case 'w':
            out->addLong(getDayOfWeek(), 0);
            break;
        case 'W':
        case 'X':
        case 'Z':
        case 'c':
        case 'j':
        case 'x':
        case 'z':
            break;
        case '%':
            out->add('%');
            break;
        default:
            i = pattern.addCharToString(item, out);
            break;
        }
    }
    return 0;
}
