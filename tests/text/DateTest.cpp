// DateTest.cpp - GSDate's calendar against the C library, its week rule against ISO 8601 weeks,
// and the %-format language.
#include "GSDate.h"
#include "GSLog.h"
#include "GSNumericStringTable.h"
#include "GSString.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <cstdio>
#include <ctime>
#include <random>
#include <string>

namespace {

std::string text(const GSString& s) {
    return s.isNull() ? std::string() : s.getConstAddr();
}

std::tm utcParts(std::time_t t) {
    std::tm parts{};
    if (!gmtime_r(&t, &parts)) ADD_FAILURE() << "gmtime_r failed for " << t;
    return parts;
}

std::time_t utcTime(int year, int month, int day, int hour = 0, int minute = 0, int second = 0) {
    std::tm parts{};
    parts.tm_year = year - 1900;
    parts.tm_mon = month - 1;
    parts.tm_mday = day;
    parts.tm_hour = hour;
    parts.tm_min = minute;
    parts.tm_sec = second;
    return timegm(&parts);
}

GSDate dateOf(const std::tm& parts, int millisecond = 0) {
    return GSDate(parts.tm_mday, parts.tm_mon + 1, parts.tm_year + 1900, parts.tm_hour,
                  parts.tm_min, parts.tm_sec, millisecond);
}

std::string show(const GSDate& d) {
    char buffer[64];
    std::snprintf(buffer, sizeof buffer, "%d-%02d-%02d %02d:%02d:%02d.%03d", d.year, d.month, d.day,
                  d.hour, d.minute, d.second, d.millisecond);
    return buffer;
}

// The day of week counts leap days with (year - 1) / 4 - (year - 1) / 100 + (year - 1) / 400
// truncated toward zero; from year 1 on that is exact. For earlier years each truncated term
// differs from the floored one (the proleptic calendar's) by one whenever year - 1 is negative
// and not a multiple of its divisor: this is how far the weekday moves from the C library's.
int weekdayDrift(long long year) {
    long long x = year - 1;
    auto off = [x](long long k) { return x < 0 && x % k != 0 ? 1 : 0; };
    return off(4) - off(100) + off(400);
}

int isoWeekdayOfDecember31(int year) {
    return utcParts(utcTime(year, 12, 31)).tm_wday;
}

// A numeric table with English names under the formatter's ids.
GSNumericStringTable englishNames() {
    static const char* const months[] = {"January",   "February", "March",    "April",
                                         "May",       "June",     "July",     "August",
                                         "September", "October",  "November", "December"};
    static const char* const days[] = {"Sunday",   "Monday", "Tuesday", "Wednesday",
                                       "Thursday", "Friday", "Saturday"};
    GSNumericStringTable table;
    for (int m = 0; m < 12; ++m)
        table.setValue(GSDate::kMonthNameBaseId + 1 + m, months[m]);
    for (int d = 0; d < 7; ++d)
        table.setValue(GSDate::kWeekdayNameBaseId + d, days[d]);
    table.setValue(GSDate::kBeforeNoonId, "am");
    table.setValue(GSDate::kAfterNoonId, "pm");
    return table;
}

std::string format(const GSDate& date, const char* pattern, const GSNumericStringTable& table) {
    GSString out;
    EXPECT_EQ(date.writeToStringWithFormatAndStringTable(GSString(pattern), 0, table, &out), 0);
    return text(out);
}

} // namespace

TEST(Date, CalendarOperationsStayInsideTheirTablesOnTheInvalidDate) {
    const GSDate& none = GSDate::invalid;
    EXPECT_EQ(GSDate(), GSDate::invalid);
    (void)none.getDayOfYear();
    (void)none.getWeekOfYear();
    GSDate shifted = none;
    shifted.addSeconds(100000);
}

TEST(Date, InitBreaksDownPosixTime) {
    for (long t : {0L, 86399L, -1L, 951782400L /* 2000-02-29 */, -62135596800L /* 0001-01-01 */,
                   4102444799L}) {
        GSDate d;
        d.init(t, 1);
        EXPECT_EQ(show(d), show(dateOf(utcParts(t)))) << t;
        std::time_t tt = t;
        std::tm local{};
        ASSERT_TRUE(localtime_r(&tt, &local));
        d.init(t, 0);
        EXPECT_EQ(show(d), show(dateOf(local))) << t;
    }
    std::time_t before = std::time(nullptr);
    GSDate now(1);
    std::time_t after = std::time(nullptr);
    EXPECT_TRUE(show(now) >= show(dateOf(utcParts(before))) &&
                show(now) <= show(dateOf(utcParts(after))))
        << show(now);
}

TEST(Date, DayOfYearAndDayOfWeekAgreeWithTheCLibrary) {
    EXPECT_EQ(GSDate(1, 1, 2000, 0, 0, 0, 0).getDayOfYear(), 0);
    EXPECT_EQ(GSDate(1, 1, 2000, 0, 0, 0, 0).getDayOfWeek(), 6);
    EXPECT_EQ(GSDate(1, 3, 2000, 0, 0, 0, 0).getDayOfYear(), 60);
    EXPECT_EQ(GSDate(1, 3, 1900, 0, 0, 0, 0).getDayOfYear(), 59);
    EXPECT_EQ(GSDate(1, 1, 1, 0, 0, 0, 0).getDayOfWeek(), 1);

    // Every third day from -400 to 4000, at a random time of day.
    std::mt19937_64 random(20240305);
    const std::time_t first = utcTime(-400, 1, 1), last = utcTime(4000, 12, 31);
    int failures = 0;
    long checked = 0, drifted = 0;
    for (std::time_t t = first; t <= last && failures < 5; t += 3 * 86400) {
        std::tm parts = utcParts(t + static_cast<long>(random() % 86400));
        GSDate d = dateOf(parts);
        int expectedWeekday = (parts.tm_wday + weekdayDrift(d.year)) % 7;
        drifted += expectedWeekday != parts.tm_wday;
        if (d.getDayOfYear() != parts.tm_yday || d.getDayOfWeek() != expectedWeekday) {
            ++failures;
            ADD_FAILURE() << show(d) << ": day of year " << d.getDayOfYear() << " (C library "
                          << parts.tm_yday << "), day of week " << d.getDayOfWeek() << " (expected "
                          << expectedWeekday << ")";
        }
        ++checked;
    }
    EXPECT_GT(checked, 500000);
    EXPECT_GT(drifted, 0) << "years before 1 were not reached";
}

TEST(Date, AddDaysAndAddSecondsAgreeWithTheCLibrary) {
    // The edge cases first.
    GSDate d(1, 1, 2001, 12, 0, 0, 0);
    d.addDays(-1);
    EXPECT_EQ(show(d), "2000-12-31 12:00:00.000");
    d = GSDate(1, 1, 2000, 0, 0, 0, 0);
    d.addDays(366);
    EXPECT_EQ(show(d), "2001-01-01 00:00:00.000");
    d = GSDate(1, 3, 2024, 0, 0, 0, 7);
    d.addSeconds(-1);
    EXPECT_EQ(show(d), "2024-02-29 23:59:59.007") << "milliseconds are kept";
    d.addSeconds(1);
    EXPECT_EQ(show(d), "2024-03-01 00:00:00.007");
    d = GSDate(31, 12, 1999, 23, 59, 59, 0);
    d.addSeconds(86400 + 1);
    EXPECT_EQ(show(d), "2000-01-02 00:00:00.000");

    // Random dates from -400 to 4000 shifted by random amounts, from a second to millennia,
    // both ways; whole days included, where the time of day must not move.
    std::mt19937_64 random(424242);
    const std::time_t first = utcTime(-400, 1, 1), last = utcTime(4000, 12, 31);
    std::uniform_int_distribution<std::time_t> when(first, last);
    const long scales[] = {2, 86400, 86400L * 40, 86400L * 800, 86400L * 400000};
    int failures = 0;
    for (int i = 0; i < 200000 && failures < 5; ++i) {
        std::time_t t = when(random);
        long scale = scales[random() % 5];
        long shift = static_cast<long>(random() % (2 * scale + 1)) - scale;
        if (i % 4 == 0) shift -= shift % 86400; // whole days

        GSDate seconds = dateOf(utcParts(t), 123);
        seconds.addSeconds(shift);
        GSDate expected = dateOf(utcParts(t + shift), 123);
        if (seconds != expected) {
            ++failures;
            ADD_FAILURE() << show(dateOf(utcParts(t))) << " + " << shift << " s: " << show(seconds)
                          << ", expected " << show(expected);
        }

        int days = static_cast<int>(shift / 86400);
        GSDate shifted = dateOf(utcParts(t));
        shifted.addDays(days);
        expected = dateOf(utcParts(t + 86400L * days));
        if (shifted != expected) {
            ++failures;
            ADD_FAILURE() << show(dateOf(utcParts(t))) << " + " << days
                          << " days: " << show(shifted) << ", expected " << show(expected);
        }
    }

    // A walk in small steps over the whole range, each day visited at least every 7 days.
    GSDate walk(1, 1, -400, 6, 30, 0, 0);
    std::time_t t = utcTime(-400, 1, 1, 6, 30);
    while (walk.year <= 4000 && failures < 5) {
        int step = 1 + static_cast<int>(random() % 7);
        walk.addDays(step);
        t += 86400L * step;
        if (walk != dateOf(utcParts(t))) {
            ++failures;
            ADD_FAILURE() << "walk: " << show(walk) << ", expected " << show(dateOf(utcParts(t)));
        }
    }
}

TEST(Date, WeekOfYearIsIsoExceptAtYearsEndingOnThursday) {
    // The documented cases.
    EXPECT_EQ(GSDate(4, 1, 2021, 0, 0, 0, 0).getWeekOfYear(), 1);
    EXPECT_EQ(GSDate(1, 1, 2021, 0, 0, 0, 0).getWeekOfYear(), 1) << "inherits 2020-12-31";
    EXPECT_EQ(GSDate(31, 12, 2020, 0, 0, 0, 0).getWeekOfYear(), 1) << "ISO: 53";
    EXPECT_EQ(GSDate(31, 12, 2015, 0, 0, 0, 0).getWeekOfYear(), 1) << "ISO: 53";
    EXPECT_EQ(GSDate(1, 1, 2016, 0, 0, 0, 0).getWeekOfYear(), 1) << "ISO: 2015-W53";
    EXPECT_EQ(GSDate(31, 12, 2026, 0, 0, 0, 0).getWeekOfYear(), 1) << "ISO: 53";
    EXPECT_EQ(GSDate(28, 12, 2026, 0, 0, 0, 0).getWeekOfYear(), 1) << "ISO: 53";
    EXPECT_EQ(GSDate(27, 12, 2026, 0, 0, 0, 0).getWeekOfYear(), 52);
    EXPECT_EQ(GSDate(31, 12, 2012, 0, 0, 0, 0).getWeekOfYear(), 53) << "ISO: 2013-W01";
    EXPECT_EQ(GSDate(31, 12, 2024, 0, 0, 0, 0).getWeekOfYear(), 1) << "a Tuesday, as ISO";
    EXPECT_EQ(GSDate(1, 1, 2023, 0, 0, 0, 0).getWeekOfYear(), 52) << "a Sunday, as ISO";

    // Every day from year 2 to 4000 (from year 2 on, the day of week of the year and of the one
    // before it is exact) against strftime's ISO week (%V) and ISO year (%G). Where they differ
    // the rule must be one of its two known departures:
    // - ISO week 53 of a year whose 31 December is a Thursday is week 1 here (its last four
    //   days, and 1-3 January after it, which take the week of that 31 December);
    // - 31 December of a leap year that begins on a Sunday (a Monday, ISO week 1 of the next
    //   year) is week 53 here: counted from 1 January it is day 371 of Monday-based weeks.
    int failures = 0;
    long thursdayYears = 0, sundayLeapYears = 0;
    const std::time_t first = utcTime(2, 1, 1), last = utcTime(4000, 12, 31);
    for (std::time_t t = first; t <= last && failures < 5; t += 86400) {
        std::tm parts = utcParts(t);
        char iso[16];
        std::strftime(iso, sizeof iso, "%G %V", &parts);
        int isoYear = 0, isoWeek = 0;
        std::sscanf(iso, "%d %d", &isoYear, &isoWeek);
        GSDate d = dateOf(parts);
        int expected = isoWeek;
        if (isoWeek == 53 && isoWeekdayOfDecember31(isoYear) == 4) {
            expected = 1;
            thursdayYears += parts.tm_mon == 11 && parts.tm_mday == 31;
        }
        if (parts.tm_mon == 11 && parts.tm_mday == 31 && GSDate::isLeapYear(d.year) &&
            parts.tm_wday == 1) {
            expected = 53;
            ++sundayLeapYears;
        }
        if (d.getWeekOfYear() != expected) {
            ++failures;
            ADD_FAILURE() << show(d) << ": week " << d.getWeekOfYear() << ", expected " << expected
                          << " (ISO " << iso << ")";
        }
    }
    EXPECT_GT(thursdayYears, 500);
    EXPECT_GT(sundayLeapYears, 100);
}

TEST(Date, FormatsEveryItem) {
    GSNumericStringTable names = englishNames();
    GSDate d(5, 3, 2024, 7, 8, 9, 42); // a Tuesday, ISO week 10
    EXPECT_EQ(format(d, "%d.%m.%Y %H:%M:%S.%s", names), "05.03.2024 07:08:09.042");
    EXPECT_EQ(format(d, "%A %a %B %b", names), "Tuesday Tue March Mar");
    EXPECT_EQ(format(d, "%y|%U|%w|%I%p", names), "24|10|2|7am");
    EXPECT_EQ(format(d, "[%W%X%Z%c%j%x%z]", names), "[]");
    EXPECT_EQ(format(d, "%q %% 100%", names), "q % 100");
    EXPECT_EQ(format(GSDate(9, 1, 2005, 0, 0, 0, 5), "%y %s %U", names), "05 005 1");
    EXPECT_EQ(format(GSDate(1, 1, 905, 0, 0, 0, 0), "%Y|%y", names), "905|05");

    // The 12-hour clock: 0 and 12 are 12, the marker switches at noon.
    EXPECT_EQ(format(GSDate(1, 1, 2024, 0, 30, 0, 0), "%I%p", names), "12am");
    EXPECT_EQ(format(GSDate(1, 1, 2024, 11, 59, 0, 0), "%I%p", names), "11am");
    EXPECT_EQ(format(GSDate(1, 1, 2024, 12, 0, 0, 0), "%I%p", names), "12pm");
    EXPECT_EQ(format(GSDate(1, 1, 2024, 13, 0, 0, 0), "%I%p", names), "1pm");

    // Without names every name item gives nothing.
    EXPECT_EQ(format(d, "<%A%a%B%b%p>", GSNumericStringTable::null), "<>");

    // UTF-8 in the pattern is copied whole, after "%" too; abbreviations are cut by bytes.
    EXPECT_EQ(format(d, "%d\xE2\x80\xA2%\xC3\xA9", names), "05\xE2\x80\xA2\xC3\xA9");
    GSNumericStringTable umlauts;
    umlauts.setValue(GSDate::kMonthNameBaseId + 3, "\xC3\x84\xC3\x96rz");
    EXPECT_EQ(format(d, "%b|%B", umlauts), "\xC3\x84\xC3|\xC3\x84\xC3\x96rz");
}

TEST(Date, FormatPatternIdEncodingAndAppending) {
    GSDate d(5, 3, 2024, 7, 8, 9, 42);
    GSNumericStringTable table = englishNames();
    table.setValue(5000, "%Y-%m");

    // The table's text for the id wins over the format; an id without text uses the format.
    GSString out = GSString::withCopyOf("x: ");
    EXPECT_EQ(d.writeToStringWithFormatAndStringTable(GSString("%d"), 5000, table, &out), 0);
    EXPECT_EQ(text(out), "x: 2024-03") << "appended, not replaced";
    out.clear();
    d.writeToStringWithFormatAndStringTable(GSString("%d"), 5001, table, &out);
    EXPECT_EQ(text(out), "05");

    // A Mac-encoded output meeting a UTF-8 pattern becomes UTF-8 first: its own é (0x8E in the
    // Mac code page) is converted, then the pattern's é is copied as it is.
    GSString mac("caf\x8E ", 5, GSString::kMac);
    d.writeToStringWithFormatAndStringTable(GSString("\xC3\xA9%d"), 0, table, &mac);
    EXPECT_EQ(mac.getEncoding(), GSString::kUTF8);
    EXPECT_EQ(text(mac), "caf\xC3\xA9 \xC3\xA9"
                         "05");
    // An output of a higher tag keeps it, and the pattern's characters arrive converted.
    GSString utf8 = GSString::withCopyOf("\xC3\xA9 ");
    d.writeToStringWithFormatAndStringTable(GSString("caf\x8E%d", 6, GSString::kMac), 0, table,
                                            &utf8);
    EXPECT_EQ(utf8.getEncoding(), GSString::kUTF8);
    EXPECT_EQ(text(utf8), "\xC3\xA9 caf\xC3\xA9"
                          "05");

    // writeToStringWithFormat takes its names from the process-wide table; numbers need none.
    GSString plain;
    EXPECT_EQ(d.writeToStringWithFormat(GSString("%Y %m %d %H %M %S %s"), &plain), 0);
    EXPECT_EQ(text(plain), "2024 03 05 07 08 09 042");
}
