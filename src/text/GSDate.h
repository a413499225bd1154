// GSDate.h - a calendar date and time of day with millisecond resolution.
//
// A broken-down date in the proleptic Gregorian calendar: file dates and text stamps. It is
// filled from the system clock, shifted by days and seconds, asked for its day of year, day of
// week and week of year, and written into a GSString through a small %-format language whose
// names (months, weekdays, the noon markers) come from a GSNumericStringTable.
//
// Fields are stored as given, without validation; GSDate::invalid (day and month 255, year -1)
// stands for no date at all. The calendar operations never index outside their tables, whatever
// the fields hold, but only valid dates give meaningful answers.
//
// Two quirks of the calendar rules are kept on purpose, because stored texts and callers rely
// on them:
// - the day of week counts leap days with divisions that truncate toward zero, which is exact
//   from year 1 on; for years 0 and before it drifts from the proleptic calendar by a day or two;
// - the week of year (Monday weeks, ISO-like) puts the last days of a year whose 31 December is
//   a Thursday into week 1 instead of week 53, and so do 1-3 January that follow such a year;
//   and 31 December of a leap year that begins on a Sunday (a Monday) is week 53, not week 1.
#pragma once

#include <cstdint>

class GSString;
class GSNumericStringTable;

class GSDate {
public:
    // String-table ids of the formatter's texts.
    enum : int {
        kBeforeNoonId = 90003,
        kAfterNoonId = 90004,
        kMonthNameBaseId = 90009,   // + month 1-12
        kWeekdayNameBaseId = 90022, // + day of week 0 (Sunday) - 6
    };

    // GSDate::invalid.
    constexpr GSDate() noexcept = default;
    constexpr GSDate(int day, int month, int year, int hour, int minute, int second,
                     int millisecond) noexcept
        : day(static_cast<std::uint8_t>(day)), month(static_cast<std::uint8_t>(month)), year(year),
          hour(static_cast<std::uint8_t>(hour)), minute(static_cast<std::uint8_t>(minute)),
          second(static_cast<std::uint8_t>(second)),
          millisecond(static_cast<std::uint16_t>(millisecond)) {}
    // Now, in UTC when `utc` is non-zero, else in local time.
    explicit GSDate(int utc);

    static const GSDate invalid;

    // Breaks POSIX time `seconds` down, in UTC when `utc` is non-zero, else in local time;
    // millisecond 0. A time the C library cannot break down gives GSDate::invalid.
    void init(long seconds, int utc);

    // 0 for 1 January.
    int getDayOfYear() const;
    // 0 Sunday, 1 Monday ... 6 Saturday.
    int getDayOfWeek() const;
    // Weeks starting on Monday, week 1 holding the year's first Thursday, with the departures
    // described above.
    int getWeekOfYear() const;

    // Signed shifts; days move the date only, seconds carry into the date.
    void addDays(int days);
    void addSeconds(long seconds);

    // Appends the date to `out` as `format` says (see GSDate.cpp); names come from
    // GSString::_numericStringTable. Returns 0.
    short writeToStringWithFormat(const GSString& format, GSString* out) const;
    // The same with the pattern looked up as text `formatId` of `table` (`format` when that
    // text is empty or the id is 0) and names from `table`. Returns 0.
    short writeToStringWithFormatAndStringTable(const GSString& format, int formatId,
                                                const GSNumericStringTable& table,
                                                GSString* out) const;

    static bool isLeapYear(long long year) {
        return year % 4 == 0 && (year % 100 != 0 || year % 400 == 0);
    }
    static int getDaysInYear(long long year) { return isLeapYear(year) ? 366 : 365; }
    // 28 to 31 for months 1-12; 0 for any other month.
    static int getDaysInMonth(int month, long long year);
    // Days from 1970-01-01 to this date in the proleptic Gregorian calendar (negative before);
    // fields outside their ranges give no meaningful answer.
    long long getDaysSince1970() const;

    bool operator==(const GSDate&) const = default;

    // English abbreviations, Sunday first and January first. Kept for applications that want
    // them; the formatter takes its names from the string table only.
    static const GSString __weekdayAbbreviations[7];
    static const GSString __monthAbbreviations[12];

    std::uint8_t day = 255;   // 1-31
    std::uint8_t month = 255; // 1-12
    std::int32_t year = -1;   // full year, astronomical (0 is 1 BC)
    std::uint8_t hour = 0;    // 0-23
    std::uint8_t minute = 0;  // 0-59
    std::uint8_t second = 0;  // 0-59
    std::uint16_t millisecond = 0;

private:
    void _addDays(long long days);
};

static_assert(sizeof(GSDate) == 16, "GSDate: day, month, year, hour, minute, second, millisecond");
