// Tests of ZTime, ZTimeUs, ZDate, ZTimeStamp, ZTimeStampMs.
#include "zdate.h"
#include "ztime.h"
#include "ztimestamp.h"

#include <gtest/gtest.h>

#include <ctime>
#include <string>

namespace {

std::string S(const ZString& s) {
    return std::string(s.retStr());
}

const uint32_t t20240301 = 1709296205u; // 2024-03-01 12:30:05 UTC
const char* const kFormatError = "Time format error\n";

// One setString input. err non-empty: refused with number 1 and that text. Otherwise accepted,
// and getString() then gives out (unless null). The rows run in order on one value, so a time
// alone keeps the date of the row before.
struct SetCase {
    const char* in;
    const char* err;
    const char* out = nullptr;
};

template <class T, size_t N>
void checkSetString(T& t, const SetCase (&cases)[N]) {
    for (const SetCase& c : cases) {
        ZError e = t.setString(c.in);
        std::string got = *c.err ? S(e.string) : c.out ? S(t.getString()) : "";
        EXPECT_EQ(e.number, *c.err ? 1 : 0) << '"' << c.in << "\": " << S(e.string);
        EXPECT_EQ(got, *c.err ? c.err : c.out ? c.out : "") << '"' << c.in << '"';
    }
}

// What ZTime, ZTimeUs and ZTimeStamp all refuse, and with which text.
const SetCase kRefused[] = {{"", kFormatError},
                            {"2024-03-01 12", kFormatError}, // 4 fields
                            {"12", kFormatError},
                            {"2024061", kFormatError}, // an ordinal day needs 5 fields
                            {"2024-13-01", "Month value out of range"},
                            {"01/00/2024", "Month value out of range"},
                            {"2024-01-32", "Day value out of range: 32"},
                            {"2024-01-00", "Day value out of range: 0"},
                            {"2024-01-01 24:00", "Hour value out of range"},
                            {"2024-01-01 23:60:00", "Minute value out of range"},
                            {"12:00:60", "Second value out of range"},
                            {"12:00:-1", "Second value out of range"},
                            {"2024000 00:00:00", "Day value out of range: 0"},
                            {"2023366 00:00:00", "Day value out of range: 366"},
                            {"2024367 00:00:00", "Day value out of range: 367"}};

} // namespace

TEST(ZCalendar, LeapYearsMonthLengthsAndDaySeconds) {
    // {year, month, days}: February has 29 days in the Gregorian leap years only.
    const int months[][3] = {{1600, 2, 29}, {1900, 2, 28}, {2000, 2, 29}, {2100, 2, 28},
                             {2023, 2, 28}, {2023, 4, 30}, {2023, 13, 0}};
    for (auto& m : months) {
        EXPECT_EQ(ZDate::daysInMonth(m[0], m[1]), m[2]) << m[0] << "-" << m[1];
        EXPECT_TRUE(m[1] != 2 || bool(ZDate::isLeap(m[0])) == (m[2] == 29)) << m[0];
    }
    EXPECT_TRUE(ZTime(2000, 6, 1, 0, 0, 0).isLeapYear());
    EXPECT_FALSE(ZTimeStamp(1900, 1, 1, 0, 0, 0).isLeapYear());
    // {year, yday, month, day}: day 59 is Feb 29 only in leap years.
    const int ydays[][4] = {
        {2024, 59, 2, 29}, {2023, 59, 3, 1}, {1900, 59, 3, 1}, {2024, 365, 12, 31}};
    for (auto& r : ydays) {
        ZTimeStamp t;
        t.setYDay(r[0], r[1], 0, 0, 0);
        EXPECT_EQ(t.month() * 100 + t.day(), r[2] * 100 + r[3]) << r[0] << " day " << r[1];
    }
    // {y, m, d, seconds}: both sides of the leap days of 2000 (leap) and 2100 (common).
    const uint32_t days[][4] = {{1970, 1, 1, 0},          {2000, 2, 29, 951782400},
                                {2000, 3, 1, 951868800},  {2023, 12, 31, 1703980800},
                                {2100, 3, 1, 4107542400}, {2106, 2, 7, 4294944000}};
    for (auto& r : days)
        EXPECT_EQ(ZTime(r[0], r[1], r[2], 0, 0, 0).getSeconds(), r[3]) << r[0] << "-" << r[1];
}

TEST(ZTime, SetGetAddNamedFormatsAndStrftimeFallback) {
    ZTime t(2024, 3, 1, 12, 30, 5);
    EXPECT_EQ(t.getSeconds(), t20240301);
    t.addSeconds(86400 - 5);
    EXPECT_EQ(S(t.getString()), "2024-03-02T12:30:00");
    t = ZTime(t20240301);
    const char* const forms[][2] = {{"", "2024-03-01T12:30:05"},
                                    {"iso", "2024-03-01T12:30:05"},
                                    {"isoT", "2024-03-01T12:30:05"},
                                    {"isoSpace", "2024-03-01 12:30:05"},
                                    {"isoUnderscore", "2024-03-01_12:30:05"},
                                    {"isoDate", "2024-03-01"},
                                    {"isoTime", "12:30:05"},
                                    {"filename", "2024-03-01_12-30-05"},
                                    {"filename1", "2024-03-01_123005"},
                                    {"%Y/%m/%d %H.%M.%S %j", "2024/03/01 12.30.05 061"},
                                    {"%a %b", "Fri Mar"}};
    for (auto& f : forms)
        EXPECT_EQ(S(t.getString(f[0])), f[1]) << f[0];
    // strftime output is limited to 64 characters.
    std::string f64(64, 'x'), f65(65, 'x');
    EXPECT_EQ(S(t.getString(f64.c_str())), f64);
    EXPECT_EQ(S(t.getString(f65.c_str())), "");
}

// ZTime and ZTimeUs read the same shapes, and both write them back in the same default form.
TEST(ZTime, SetStringShapesAndErrorTextsAlsoForZTimeUs) {
    const SetCase cases[] = {
        {"2024-03-01T12:30:05", "", "2024-03-01T12:30:05"},
        {"2024-03-02 12:30:05", "", "2024-03-02T12:30:05"},
        {"01/03/2024 12:30:05", "", "2024-03-01T12:30:05"},
        {"2024062 01:02:03", "", "2024-03-02T01:02:03"}, // year and ordinal day
        {"2024-03-01", "", "2024-03-01T00:00:00"},
        {"2024-03-01 12:30", "", "2024-03-01T12:30:00"},
        {"13:14:15", "", "2024-03-01T13:14:15"}, // a time alone keeps the date
        {"13:14", "", "2024-03-01T13:14:00"},
        {"clear", "", "1970-01-01T00:00:00"},
        {"2024366 00:00:00", "", "2024-12-31T00:00:00"},
        {"first", "", "1970-01-01T00:00:00"}};
    ZTime t;
    checkSetString(t, cases);
    checkSetString(t, kRefused);
    ZTimeUs u(uint64_t(7));
    checkSetString(u, cases);
    checkSetString(u, kRefused);
    u.set(2024, 3, 1, 12, 30, 5, 7);
    EXPECT_EQ(u.setString("2024-03-01 12:30:05").number, 0); // the microseconds cleared
    EXPECT_EQ(u.getMicroSeconds(), uint64_t(t20240301) * 1000000u);
}

TEST(ZTimeUs, TextFormsSetAndGet) {
    ZTimeUs t{ZTime(t20240301)};
    t.addMicroSeconds(250000);
    EXPECT_EQ(t.getSeconds(), uint64_t(t20240301));
    for (const char* f : {"", "iso", "isoT", "whatever"})
        EXPECT_EQ(S(t.getString(f)), "2024-03-01T12:30:05") << f;
    EXPECT_EQ(S(t.getString("isoSpace")), "2024-03-01 12:30:05");
    EXPECT_EQ(S(t.getString("filename")), "2024-03-01_123005");
    EXPECT_EQ(S(t.getStringUs()), "2024-03-01T12:30:05.250000");
    EXPECT_EQ(S(t.getStringUs("isoSpace")), "2024-03-01 12:30:05.250000");
    EXPECT_EQ(S(t.getStringUs("filename")), "2024-03-01_123005.250000");
    t.addSeconds(-1);
    EXPECT_EQ(S(t.getStringUs("isoT")), "2024-03-01T12:30:04.250000");
    t.set(2024, 3, 1, 12, 30, 5, 7);
    EXPECT_EQ(t.getMicroSeconds(), uint64_t(t20240301) * 1000000u + 7);
    ZTimeUs u;
    u.set(2200, 1, 1, 0, 0, 0); // 64 bits reach past 2106
    EXPECT_EQ(S(u.getString()), "2200-01-01T00:00:00");
}

TEST(ZDate, SetGetCompareSpecialValuesAndText) {
    ZDate d(2024, 3, 1), e;
    EXPECT_EQ(d.year() * 1000 + d.yday(), 2024060);
    EXPECT_EQ(S(d.getStringFormatted("%d.%m.%Y %j %a")), "01.03.2024 061 Fri");
    e.set(t20240301);
    EXPECT_EQ(e, d);
    EXPECT_EQ(d.getTime().getSeconds(), t20240301 - (12 * 3600 + 30 * 60 + 5));
    e.setYDay(2024, 61);
    EXPECT_TRUE(d.compare(e) < 0 && e.compare(d) > 0 && d.compare(d) == 0);
    e.setLast();
    EXPECT_EQ(e.year() * 1000 + e.yday(), 9999000);
    const SetCase cases[] = {{"2024-03-01", "", "2024-03-01"},
                             {"2024-03-02T10:11:12.000013", "", "2024-03-02"},
                             {"03/04/2024", "", "2024-04-03"}, // day/month/year
                             {"2024/05/06 01:02:03.4", "", "2024-05-06"},
                             {"first", "", "0001-01-01"},
                             {"last", "", "9999-01-01"},
                             {"nonsense", "Time format error: nonsense"},
                             {"2024-03", "Time format error: 2024-03"},
                             {"2024-13-01", "Month value out of range"},
                             {"2024-12-32", "Day value out of range: 32"},
                             {"now", ""}};
    checkSetString(e, cases);
    EXPECT_GE(e.year(), 2024);
}

TEST(ZTimeStamp, TextFormsAndSpecialValues) {
    ZTimeStamp t(2024, 3, 1, 12, 30, 5, 250000), u;
    EXPECT_EQ(S(t.getString(" ")), "2024-03-01 12:30:05.250000");
    EXPECT_EQ(S(t.getString("")), "2024-03-0112:30:05.250000");
    EXPECT_EQ(S(t.getStringNoMs()), "2024-03-01T12:30:05");
    EXPECT_EQ(S(t.getStringNoMs("_")), "2024-03-01_12:30:05");
    EXPECT_EQ(S(t.getStringFormatted("%Y%j %H:%M:%S %a")), "2024061 12:30:05 Fri");
    ZString s;
    EXPECT_EQ(toZString(t, s).number, 0);
    EXPECT_EQ(S(s), "2024-03-01T12:30:05.250000");
    EXPECT_EQ(fromZString(s, u).number, 0);
    EXPECT_EQ(u, t);
    t.clear();
    EXPECT_EQ(t.year() + t.yday() + t.hour() + t.minute() + t.second() + t.microSecond(), 0);
    t.setFirst();
    EXPECT_EQ(S(t.getString()), "0001-01-01T00:00:00.000000");
    t.setLast();
    EXPECT_EQ(S(t.getString()), "9999-01-01T00:00:00.000000"); // not 9999-12-31
}

TEST(ZTimeStamp, SetStringShapesFractionsAndErrorTexts) {
    const SetCase cases[] = {
        {"2024-03-01T12:30:05.25", "", "2024-03-01T12:30:05.250000"},
        {"2024-03-01 12:30:05", "", "2024-03-01T12:30:05.000000"},
        {"2024-03-01 12:30", "", "2024-03-01T12:30:00.000000"}, // 5 fields
        {"01/03/2024T12:30:05.5", "", "2024-03-01T12:30:05.500000"},
        {"2024/03/04", "", "2024-03-04T00:00:00.000000"},
        {"10:20:30.000001", "", "2024-03-04T10:20:30.000001"}, // a time alone keeps the date
        {"11:22", "", "2024-03-04T11:22:00.000000"},
        {"12:00:59.999999", "", "2024-03-04T12:00:59.999999"},
        {"12:00:59.9999999", "", "2024-03-04T12:00:59.999999"},    // never rounds up into 60
        {"2024061 12:30:05.75", "", "2024-03-01T12:30:05.750000"}, // year and ordinal day
        {"2024-02-29", "", "2024-02-29T00:00:00.000000"},          // a leap day alone: midnight
        {"2024-02-31", ""}, // the day may be 1 to 31 whatever the month
        {"first", "", "0001-01-01T00:00:00.000000"},
        {"last", "", "9999-01-01T00:00:00.000000"},
        {"12:00:nan", "Second value out of range"},
        {"now", ""}};
    ZTimeStamp t;
    checkSetString(t, kRefused);
    checkSetString(t, cases);
    EXPECT_GE(t.year(), 2024);
}

TEST(ZTimeStamp, ConvertEpochZTimeAndZTimeUs) {
    ZTimeStamp t, u;
    t.set(int64_t(t20240301), 250000);
    EXPECT_EQ(S(t.getString()), "2024-03-01T12:30:05.250000");
    EXPECT_EQ(t.getTime().getSeconds(), t20240301);
    EXPECT_EQ(t.getTimeUs().getMicroSeconds(), uint64_t(t20240301) * 1000000u + 250000u);
    u.set(t.getTimeUs());
    EXPECT_EQ(u, t);
    u.set(int64_t(0), -1); // carries backwards
    EXPECT_EQ(S(u.getString()), "1969-12-31T23:59:59.999999");
    u.set(int64_t(-86401), 0);
    EXPECT_EQ(S(u.getString()), "1969-12-30T23:59:59.000000");
}

TEST(ZTimeStamp, CompareAddAndDifferenceAcrossYears) {
    ZTimeStamp a(2024, 3, 1, 12, 30, 5, 1), b(2024, 3, 1, 12, 30, 5, 2);
    EXPECT_TRUE(a.compare(b) < 0 && b.compare(a) > 0 && a.compare(a) == 0);
    EXPECT_LT(ZTimeStamp(2023, 12, 31, 23, 59, 59, 999999), ZTimeStamp(2024, 1, 1, 0, 0, 0));
    EXPECT_EQ(a.getYearMicroSeconds(), (60 * 86400 + 12 * 3600 + 30 * 60 + 5) * 1000000LL + 1);
    struct {
        const char* from;
        char unit; // 's', 'm' (milli) or 'u' (micro)
        int n;
        const char* to;
    } const adds[] = {{"2023-12-31 23:59:59.999999", 'u', 1, "2024-01-01T00:00:00.000000"},
                      {"2024-12-31 12:00", 's', 86400, "2025-01-01T12:00:00.000000"},
                      {"2024-01-01 00:00:01.5", 'm', -3000, "2023-12-31T23:59:58.500000"},
                      {"2024-02-28 23:00", 's', 3600, "2024-02-29T00:00:00.000000"},
                      {"1900-02-28 23:00", 's', 3600, "1900-03-01T00:00:00.000000"}};
    for (auto& r : adds) {
        ZTimeStamp t;
        ASSERT_EQ(t.setString(r.from).number, 0) << r.from;
        r.unit == 's'   ? t.addSeconds(r.n)
        : r.unit == 'm' ? t.addMilliSeconds(r.n)
                        : t.addMicroSeconds(r.n);
        EXPECT_EQ(S(t.getString()), r.to) << r.from << " + " << r.n << r.unit;
    }
    ZTimeStamp c(2027, 1, 2, 0, 0, 0), d(2023, 12, 31, 0, 0, 0);
    EXPECT_EQ(ZTimeStamp::difference(c, d), 94867200000000LL); // 1098 days: 2024 is leap
    EXPECT_EQ(ZTimeStamp::difference(d, c), -94867200000000LL);
    ZTimeStamp e(2001, 3, 1, 1, 2, 3, 4), f(1899, 6, 15, 5, 6, 7, 8);
    EXPECT_EQ(ZTimeStamp::difference(e, f), 3209658955999996LL); // over 1900 (common), 2000 (leap)
}
