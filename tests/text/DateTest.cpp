// DateTest.cpp - GSDate's calendar against the C library, its week rule against ISO 8601 weeks,
// and the %-format language.
#include "TextSupport.h"
#include "objects/GSNumericStringTable.h"
#include "text/GSDate.h"
#include "text/GSString.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <ctime>
#include <random>

using testing_support::text;

namespace {

std::tm utcParts(std::time_t t) {
    std::tm parts{};
    gmtime_r(&t, &parts);
    return parts;
}

std::time_t utcTime(int year, int month, int day) {
    std::tm parts{};
    parts.tm_year = year - 1900, parts.tm_mon = month - 1, parts.tm_mday = day;
    return timegm(&parts);
}

GSDate dateOf(const std::tm& parts, int millisecond = 0) {
    return GSDate(parts.tm_mday, parts.tm_mon + 1, parts.tm_year + 1900, parts.tm_hour,
                  parts.tm_min, parts.tm_sec, millisecond);
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

// strftime's ISO week, but for the rule's two known departures:
// - ISO week 53 of a year whose 31 December is a Thursday is week 1 (its last four days, and
//   1-3 January after it, which take the week of that 31 December);
// - 31 December of a leap year that begins on a Sunday (a Monday, ISO week 1 of the next year)
//   is week 53: counted from 1 January it is day 371 of Monday-based weeks.
int expectedWeek(const std::tm& parts) {
    char iso[16];
    std::strftime(iso, sizeof iso, "%G %V", &parts);
    int isoYear = 0, week = 0;
    std::sscanf(iso, "%d %d", &isoYear, &week);
    bool december31 = parts.tm_mon == 11 && parts.tm_mday == 31;
    if (week == 53 && utcParts(utcTime(isoYear, 12, 31)).tm_wday == 4) week = 1;
    if (december31 && GSDate::isLeapYear(parts.tm_year + 1900) && parts.tm_wday == 1) week = 53;
    return week;
}

} // namespace

// Every day from -400 to 4000: day of year, day of week (with its drift before year 1) and,
// from year 2 on (where the day of week of the year and of the one before it is exact), week of
// year; a date walked there one addDays(1) at a time; and every eighth day a random time, broken
// down by init and shifted by a random amount, from a second to millennia, both ways, by
// addSeconds and by addDays.
TEST(Date, CalendarAgreesWithTheCLibrary) {
    std::mt19937_64 random(20240305);
    const long scales[] = {2, 86400, 86400L * 40, 86400L * 800, 86400L * 400000};
    int failures = 0;
    long drifted = 0, day = 0;
    GSDate walk(1, 1, -400, 0, 0, 0, 0);
    for (std::time_t t = utcTime(-400, 1, 1); t <= utcTime(4000, 12, 31) && failures < 5;
         t += 86400, ++day, walk.addDays(1)) {
        std::tm parts = utcParts(t);
        GSDate d = dateOf(parts);
        int weekday = (parts.tm_wday + weekdayDrift(d.year)) % 7;
        drifted += weekday != parts.tm_wday;
        int week = d.year >= 2 ? expectedWeek(parts) : -1;
        bool shifting = day % 8 == 0;
        std::time_t start = t + (shifting ? static_cast<long>(random() % 86400) : 0);
        long scale = scales[random() % 5];
        long shift = shifting ? static_cast<long>(random() % (2 * scale + 1)) - scale : 0;
        if (day % 32 == 0) shift -= shift % 86400; // whole days: the time of day must not move
        std::tm startParts = shifting ? utcParts(start) : parts;
        GSDate seconds = dateOf(startParts, 123), days = dateOf(startParts), broken;
        seconds.addSeconds(shift);
        days.addDays(static_cast<int>(shift / 86400));
        broken.init(start, 1);
        GSDate expectedSeconds = shifting ? dateOf(utcParts(start + shift), 123) : seconds;
        GSDate expectedDays = shifting ? dateOf(utcParts(start + 86400L * (shift / 86400))) : days;
        auto got = std::tuple(d.getDayOfYear(), d.getDayOfWeek(), week < 0 ? -1 : d.getWeekOfYear(),
                              walk, seconds, days, broken);
        auto expected = std::tuple(parts.tm_yday, weekday, week, d, expectedSeconds, expectedDays,
                                   dateOf(startParts));
        if (got != expected && ++failures) {
            EXPECT_EQ(got, expected) << "day of year, of week, week, walked, shifted by " << shift
                                     << " s, by whole days, broken down";
        }
    }
    EXPECT_GT(drifted, 0) << "years before 1 were not reached";

    // Local time, the present, and the invalid date, whose calendar operations stay inside
    // their tables.
    std::time_t now = std::time(nullptr);
    std::tm local{};
    ASSERT_TRUE(localtime_r(&now, &local));
    GSDate d;
    d.init(now, 0);
    EXPECT_EQ(d, dateOf(local));
    EXPECT_GE(GSDate(1).year, local.tm_year + 1899);
    GSDate invalid;
    invalid.getWeekOfYear();
    invalid.addSeconds(100000);
}

// Rows: date, pattern, id of a pattern in the table (its text wins when it has one), names,
// the output before (appended to), after.
TEST(Date, FormatsEveryItem) {
    GSNumericStringTable names, umlauts;
    names.setValue(GSDate::kMonthNameBaseId + 3, "March");
    names.setValue(GSDate::kWeekdayNameBaseId + 2, "Tuesday");
    names.setValue(GSDate::kBeforeNoonId, "am");
    names.setValue(GSDate::kAfterNoonId, "pm");
    names.setValue(5000, "%Y-%m");
    umlauts.setValue(GSDate::kMonthNameBaseId + 3, "\xC3\x84\xC3\x96rz");
    const GSDate d(5, 3, 2024, 7, 8, 9, 42); // a Tuesday, ISO week 10
    const GSString mac("caf\x8E ", 5, GSString::kMac), macPattern("caf\x8E%d", 6, GSString::kMac);
    const GSNumericStringTable& none = GSNumericStringTable::null;
    const std::tuple<GSDate, GSString, int, const GSNumericStringTable&, GSString, std::string>
        rows[] = {
            {d, "%d.%m.%Y %H:%M:%S.%s", 0, names, "", "05.03.2024 07:08:09.042"},
            {d, "%A %a %B %b", 0, names, "", "Tuesday Tue March Mar"},
            {d, "%y|%U|%w|%I%p", 0, names, "", "24|10|2|7am"},
            {d, "[%W%X%Z%c%j%x%z]", 0, names, "", "[]"},
            {d, "%q %% 100%", 0, names, "", "q % 100"},
            {GSDate(9, 1, 2005, 0, 0, 0, 5), "%y %s %U", 0, names, "", "05 005 1"},
            {GSDate(1, 1, 905, 0, 0, 0, 0), "%Y|%y", 0, names, "", "905|05"},
            // The 12-hour clock: 0 and 12 are 12, the marker switches at noon.
            {GSDate(1, 1, 2024, 0, 30, 0, 0), "%I%p", 0, names, "", "12am"},
            {GSDate(1, 1, 2024, 12, 0, 0, 0), "%I%p", 0, names, "", "12pm"},
            {GSDate(1, 1, 2024, 13, 0, 0, 0), "%I%p", 0, names, "", "1pm"},
            {d, "<%A%a%B%b%p>", 0, none, "", "<>"}, // no names, nothing
            // UTF-8 in the pattern is copied whole, after "%" too; abbreviations are cut by bytes.
            {d, "%d\xE2\x80\xA2%\xC3\xA9", 0, names, "", "05\xE2\x80\xA2\xC3\xA9"},
            {d, "%b|%B", 0, umlauts, "", "\xC3\x84\xC3|\xC3\x84\xC3\x96rz"},
            {d, "%d", 5000, names, "x: ", "x: 2024-03"},
            {d, "%d", 5001, names, "x: ", "x: 05"},
            // A Mac output meeting a UTF-8 pattern becomes UTF-8 first, then the pattern's é is
            // copied as it is; a pattern of a lower tag arrives converted.
            {d, "\xC3\xA9%d", 0, names, mac, "caf\xC3\xA9 \xC3\xA9\x30\x35"},
            {d, macPattern, 0, names, "\xC3\xA9 ", "\xC3\xA9 caf\xC3\xA9\x30\x35"},
        };
    for (const auto& [date, pattern, id, table, before, expected] : rows) {
        GSString out = before;
        EXPECT_EQ(date.writeToStringWithFormatAndStringTable(pattern, id, table, &out), 0);
        EXPECT_EQ(text(out), expected) << text(pattern);
    }
    // writeToStringWithFormat takes its names from the process-wide table; numbers need none.
    GSString plain;
    EXPECT_EQ(d.writeToStringWithFormat(GSString("%Y %m %d %H %M %S %s"), &plain), 0);
    EXPECT_EQ(text(plain), "2024 03 05 07 08 09 042");
}
