// Tests of ZTime, ZTimeUs, ZDate, ZTimeStamp, ZTimeStampMs.
#include "zdate.h"
#include "ztime.h"
#include "ztimestamp.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <ctime>
#include <string>

namespace {

std::string S(const ZString& s) {
    return std::string(s.retStr());
}

const uint32_t t20240301 = 1709296205u; // 2024-03-01 12:30:05 UTC

} // namespace

// ---------------------------------------------------------------- leap years and calendar

TEST(ZCalendar, GregorianLeapYears) {
    EXPECT_FALSE(ztime::isLeap(1900));
    EXPECT_TRUE(ztime::isLeap(2000));
    EXPECT_TRUE(ztime::isLeap(2024));
    EXPECT_FALSE(ztime::isLeap(2023));
    EXPECT_FALSE(ztime::isLeap(2100));
    EXPECT_TRUE(ztime::isLeap(1600));
    EXPECT_FALSE(ZDate::isLeap(1900));
    EXPECT_TRUE(ZDate::isLeap(2000));
    EXPECT_TRUE(ZDate::isLeap(2024));
    EXPECT_EQ(ZDate::daysInMonth(1900, 2), 28);
    EXPECT_EQ(ZDate::daysInMonth(2000, 2), 29);
    EXPECT_EQ(ZDate::daysInMonth(2024, 2), 29);
    EXPECT_EQ(ZDate::daysInMonth(2023, 2), 28);
    EXPECT_EQ(ZDate::daysInMonth(2023, 4), 30);
    EXPECT_EQ(ZDate::daysInMonth(2023, 12), 31);
    EXPECT_EQ(ZDate::daysInMonth(2023, 13), 0);
    EXPECT_TRUE(ZTime(2000, 6, 1, 0, 0, 0).isLeapYear());
    EXPECT_FALSE(ZTime(2023, 6, 1, 0, 0, 0).isLeapYear());
    EXPECT_TRUE(ZTimeStamp(2024, 1, 1, 0, 0, 0).isLeapYear());
    EXPECT_FALSE(ZTimeStamp(1900, 1, 1, 0, 0, 0).isLeapYear());
}

TEST(ZCalendar, MonthAndDayFromYDayOfLeapAndCommonYears) {
    ZTimeStamp t;
    t.setYDay(2024, 59, 0, 0, 0); // 31 + 28 -> Feb 29 in a leap year
    EXPECT_EQ(t.month(), 2);
    EXPECT_EQ(t.day(), 29);
    t.setYDay(2023, 59, 0, 0, 0);
    EXPECT_EQ(t.month(), 3);
    EXPECT_EQ(t.day(), 1);
    t.setYDay(1900, 59, 0, 0, 0); // 1900 is not leap
    EXPECT_EQ(t.month(), 3);
    t.setYDay(2000, 59, 0, 0, 0); // 2000 is
    EXPECT_EQ(t.month(), 2);
    t.setYDay(2024, 365, 0, 0, 0);
    EXPECT_EQ(t.month(), 12);
    EXPECT_EQ(t.day(), 31);
}

// ---------------------------------------------------------------- ZTime

TEST(ZTimeSet, EpochIsExactlyZero) {
    ZTime t(1970, 1, 1, 0, 0, 0);
    EXPECT_EQ(t.getSeconds(), 0u);
}

TEST(ZTimeSet, KnownValues) {
    EXPECT_EQ(ZTime(2024, 3, 1, 12, 30, 5).getSeconds(), t20240301);
    EXPECT_EQ(ZTime(2000, 2, 29, 23, 59, 59).getSeconds(), 951868799u);
    EXPECT_EQ(ZTime(1999, 12, 31, 0, 0, 0).getSeconds(), 946598400u);
    EXPECT_EQ(ZTime(2106, 2, 7, 6, 28, 15).getSeconds(), 0xFFFFFFFFu);
}

TEST(ZTimeSet, FormulaAgreesWithCalendarEveryDay1970To2105) {
    for (int y = 1970; y <= 2105; y++) {
        for (int m = 1; m <= 12; m++) {
            for (int d = 1; d <= ZDate::daysInMonth(y, m); d++) {
                uint32_t want = uint32_t(ztime::daysFromCivil(y, m, d) * 86400);
                ASSERT_EQ(ZTime(y, m, d, 0, 0, 0).getSeconds(), want) << y << "-" << m << "-" << d;
            }
        }
    }
}

TEST(ZTimeSet, GetDateTimeYearDayAndAdd) {
    ZTime t;
    t.set(t20240301);
    int y, mo, d, h, mi, s;
    t.getDate(y, mo, d);
    t.getTime(h, mi, s);
    EXPECT_EQ(y, 2024);
    EXPECT_EQ(mo, 3);
    EXPECT_EQ(d, 1);
    EXPECT_EQ(h, 12);
    EXPECT_EQ(mi, 30);
    EXPECT_EQ(s, 5);
    EXPECT_EQ(t.getYearDay(), 60);
    ZTime u;
    u.setYearDay(2024, 60, 12, 30, 5);
    EXPECT_EQ(u, t);
    t.addSeconds(-5);
    EXPECT_EQ(t.getSeconds(), t20240301 - 5);
    t.addSeconds(86400);
    EXPECT_EQ(S(t.getString()), "2024-03-02T12:30:00");
}

TEST(ZTimeText, NamedFormats) {
    ZTime t(t20240301);
    EXPECT_EQ(S(t.getString()), "2024-03-01T12:30:05");
    EXPECT_EQ(S(t.getString("")), "2024-03-01T12:30:05");
    EXPECT_EQ(S(t.getString("iso")), "2024-03-01T12:30:05");
    EXPECT_EQ(S(t.getString("isoT")), "2024-03-01T12:30:05");
    EXPECT_EQ(S(t.getString("isoSpace")), "2024-03-01 12:30:05");
    EXPECT_EQ(S(t.getString("isoUnderscore")), "2024-03-01_12:30:05");
    EXPECT_EQ(S(t.getString("isoDate")), "2024-03-01");
    EXPECT_EQ(S(t.getString("isoTime")), "12:30:05");
    EXPECT_EQ(S(t.getString("filename")), "2024-03-01_12-30-05");
    EXPECT_EQ(S(t.getString("filename1")), "2024-03-01_123005");
    EXPECT_EQ(S(ZTime(0u).getString()), "1970-01-01T00:00:00");
}

TEST(ZTimeText, StrftimeFallbackAtMost64Characters) {
    ZTime t(t20240301);
    EXPECT_EQ(S(t.getString("%Y/%m/%d %H.%M.%S %j")), "2024/03/01 12.30.05 061");
    EXPECT_EQ(S(t.getString("%a %b")), "Fri Mar");
    std::string f64(64, 'x');
    EXPECT_EQ(S(t.getString(f64.c_str())), f64);
    std::string f65(65, 'x');
    EXPECT_EQ(S(t.getString(f65.c_str())), "");
}

TEST(ZTimeSetString, AcceptedShapes) {
    ZTime t;
    EXPECT_EQ(t.setString("2024-03-01T12:30:05").number, 0);
    EXPECT_EQ(t.getSeconds(), t20240301);
    t.clear();
    EXPECT_EQ(t.setString("2024-03-01 12:30:05").number, 0);
    EXPECT_EQ(t.getSeconds(), t20240301);
    t.clear();
    EXPECT_EQ(t.setString("01/03/2024 12:30:05").number, 0);
    EXPECT_EQ(t.getSeconds(), t20240301);
    t.clear();
    EXPECT_EQ(t.setString("2024061 12:30:05").number, 0); // ordinal day 61 = March 1
    EXPECT_EQ(t.getSeconds(), t20240301);
    EXPECT_EQ(t.setString("2024-03-01").number, 0); // a date alone: midnight
    EXPECT_EQ(S(t.getString()), "2024-03-01T00:00:00");
    EXPECT_EQ(t.setString("2024-03-01 12:30").number, 0); // 5 fields
    EXPECT_EQ(S(t.getString()), "2024-03-01T12:30:00");
    EXPECT_EQ(t.setString("13:14:15").number, 0); // a time alone keeps the date
    EXPECT_EQ(S(t.getString()), "2024-03-01T13:14:15");
    EXPECT_EQ(t.setString("13:14").number, 0);
    EXPECT_EQ(S(t.getString()), "2024-03-01T13:14:00");
    EXPECT_EQ(t.setString("clear").number, 0);
    EXPECT_EQ(t.getSeconds(), 0u);
    t.set(5u);
    EXPECT_EQ(t.setString("first").number, 0);
    EXPECT_EQ(t.getSeconds(), 0u);
}

TEST(ZTimeSetString, ErrorTexts) {
    ZTime t;
    ZError e = t.setString("garbage");
    EXPECT_EQ(e.number, 1);
    EXPECT_EQ(S(e.string), "Time format error\n");
    EXPECT_EQ(S(t.setString("").string), "Time format error\n");
    EXPECT_EQ(S(t.setString("2024-03-01 12").string), "Time format error\n"); // 4 fields
    EXPECT_EQ(S(t.setString("12").string), "Time format error\n");
    EXPECT_EQ(S(t.setString("2024061").string), "Time format error\n"); // yday needs 5 fields
    EXPECT_EQ(S(t.setString("2024-13-01").string), "Month value out of range");
    EXPECT_EQ(S(t.setString("2024-00-01").string), "Month value out of range");
    EXPECT_EQ(S(t.setString("2024-01-32").string), "Day value out of range: 32");
    EXPECT_EQ(S(t.setString("2024-01-00").string), "Day value out of range: 0");
    EXPECT_EQ(S(t.setString("2024-01-01 24:00:00").string), "Hour value out of range");
    EXPECT_EQ(S(t.setString("2024-01-01 23:60:00").string), "Minute value out of range");
    e = t.setString("12:00:60");
    EXPECT_EQ(e.number, 1);
    EXPECT_EQ(S(e.string), "Second value out of range");
    EXPECT_EQ(S(t.setString("2024000 00:00:00").string), "Day value out of range: 0");
    EXPECT_EQ(S(t.setString("2023366 00:00:00").string), "Day value out of range: 366");
    EXPECT_EQ(t.setString("2024366 00:00:00").number, 0);
    EXPECT_EQ(S(t.getString("isoDate")), "2024-12-31");
}

TEST(ZTimeText, RoundTripThroughEveryNamedFormatThatHoldsAllFields) {
    ZTime t(t20240301), u;
    for (const char* f : {"iso", "isoT", "isoSpace"}) {
        u.clear();
        ASSERT_EQ(u.setString(t.getString(f)).number, 0) << f;
        EXPECT_EQ(u, t) << f;
    }
    u.clear();
    ASSERT_EQ(u.setString(t.getString("%Y%j %H:%M:%S")).number, 0);
    EXPECT_EQ(u, t);
}

TEST(ZTimeLocal, UtcAndLocalWithAFixedZone) {
    const char* old = getenv("TZ");
    std::string saved = old ? old : "";
    setenv("TZ", "XST-2", 1); // two hours east of UTC, no daylight saving
    tzset();
    ZTime t(t20240301);
    ZTime l(t);
    l.utcToLocal();
    EXPECT_EQ(l.getSeconds(), t20240301 + 7200);
    l.localToUtc();
    EXPECT_EQ(l, t);
    EXPECT_EQ(S(t.getStringLocal("iso")), "2024-03-01T14:30:05");
    ZTime r;
    EXPECT_EQ(r.setStringLocal("2024-03-01 14:30:05").number, 0);
    EXPECT_EQ(r, t);
    if (old)
        setenv("TZ", saved.c_str(), 1);
    else
        unsetenv("TZ");
    tzset();
}

// ---------------------------------------------------------------- ZTimeUs

TEST(ZTimeUsText, ThreeFormsAndMicroseconds) {
    ZTimeUs t{ZTime(t20240301)};
    EXPECT_EQ(t.getMicroSeconds(), uint64_t(t20240301) * 1000000u);
    t.addMicroSeconds(250000);
    EXPECT_EQ(S(t.getString("isoSpace")), "2024-03-01 12:30:05");
    EXPECT_EQ(S(t.getString("filename")), "2024-03-01_123005");
    EXPECT_EQ(S(t.getString("isoT")), "2024-03-01T12:30:05");
    EXPECT_EQ(S(t.getString("iso")), "2024-03-01T12:30:05");
    EXPECT_EQ(S(t.getString("whatever")), "2024-03-01T12:30:05");
    EXPECT_EQ(S(t.getString()), "2024-03-01T12:30:05");
    EXPECT_EQ(S(t.getStringUs()), "2024-03-01T12:30:05.250000");
    EXPECT_EQ(S(t.getStringUs("isoT")), "2024-03-01T12:30:05.250000");
    EXPECT_EQ(S(t.getStringUs("isoSpace")), "2024-03-01 12:30:05.250000");
    EXPECT_EQ(S(t.getStringUs("filename")), "2024-03-01_123005.250000");
    EXPECT_EQ(t.getSeconds(), uint64_t(t20240301));
    t.addSeconds(-1);
    EXPECT_EQ(S(t.getStringUs()), "2024-03-01T12:30:04.250000");
}

TEST(ZTimeUsSet, SetGetAndSetString) {
    ZTimeUs t;
    t.set(2024, 3, 1, 12, 30, 5, 7);
    EXPECT_EQ(t.getMicroSeconds(), uint64_t(t20240301) * 1000000u + 7);
    int y, mo, d, h, mi, s, us;
    t.getDate(y, mo, d);
    t.getTime(h, mi, s, us);
    EXPECT_EQ(y * 10000 + mo * 100 + d, 20240301);
    EXPECT_EQ(h * 10000 + mi * 100 + s, 123005);
    EXPECT_EQ(us, 7);
    EXPECT_EQ(t.getYearDay(), 60);
    ZTimeUs u;
    u.setYearDay(2024, 60, 12, 30, 5, 7);
    EXPECT_EQ(u, t);
    EXPECT_TRUE(t.isLeapYear());

    EXPECT_EQ(u.setString("2024-03-01T12:30:05").number, 0);
    EXPECT_EQ(u.getMicroSeconds(), uint64_t(t20240301) * 1000000u);
    EXPECT_EQ(u.setString("01/03/2024 12:30:05").number, 0);
    EXPECT_EQ(u.getSeconds(), uint64_t(t20240301));
    EXPECT_EQ(u.setString("08:00").number, 0);
    EXPECT_EQ(S(u.getString()), "2024-03-01T08:00:00");
    EXPECT_EQ(u.setString("clear").number, 0);
    EXPECT_EQ(u.getMicroSeconds(), 0u);
    EXPECT_EQ(S(u.setString("x").string), "Time format error\n");
    EXPECT_EQ(S(u.setString("12:00:60").string), "Second value out of range");
    EXPECT_EQ(S(u.setString("2024-02-30 25:00:00").string), "Hour value out of range");
    // Beyond 2106 too (64-bit).
    u.set(2200, 1, 1, 0, 0, 0);
    EXPECT_EQ(S(u.getString()), "2200-01-01T00:00:00");
}

// ---------------------------------------------------------------- ZDate

TEST(ZDate, SetGetAndSpecialValues) {
    ZDate d(2024, 3, 1);
    EXPECT_EQ(d.year(), 2024);
    EXPECT_EQ(d.yday(), 60);
    EXPECT_EQ(d.month(), 3);
    EXPECT_EQ(d.day(), 1);
    EXPECT_EQ(S(d.getString()), "2024-03-01");
    ZDate e;
    e.set(t20240301);
    EXPECT_EQ(e, d);
    EXPECT_EQ(d.getTime().getSeconds(), t20240301 - (12 * 3600 + 30 * 60 + 5));
    e.setYDay(2024, 61);
    EXPECT_LT(d.compare(e), 0);
    EXPECT_GT(e.compare(d), 0);
    EXPECT_EQ(d.compare(d), 0);
    EXPECT_LT(ZDate(2023, 12, 31), d);
    e.clear();
    EXPECT_EQ(e.year(), 0);
    EXPECT_EQ(e.yday(), 0);
    e.setFirst();
    EXPECT_EQ(S(e.getString()), "0001-01-01");
    e.setLast();
    EXPECT_EQ(e.year(), 9999);
    EXPECT_EQ(e.yday(), 0);
    EXPECT_EQ(S(e.getString()), "9999-01-01");
    EXPECT_EQ(S(d.getStringFormatted("%d.%m.%Y %j %a")), "01.03.2024 061 Fri");
    e.setNow();
    EXPECT_GE(e.year(), 2024);
}

TEST(ZDate, SetStringShapesAndErrors) {
    ZDate d;
    EXPECT_EQ(d.setString("2024-03-01").number, 0);
    EXPECT_EQ(S(d.getString()), "2024-03-01");
    EXPECT_EQ(d.setString("2024-03-02T10:11:12.000013").number, 0);
    EXPECT_EQ(S(d.getString()), "2024-03-02");
    EXPECT_EQ(d.setString("03/04/2024").number, 0); // day/month/year
    EXPECT_EQ(S(d.getString()), "2024-04-03");
    EXPECT_EQ(d.setString("2024/05/06 01:02:03.4").number, 0);
    EXPECT_EQ(S(d.getString()), "2024-05-06");
    EXPECT_EQ(d.setString("first").number, 0);
    EXPECT_EQ(S(d.getString()), "0001-01-01");
    EXPECT_EQ(d.setString("last").number, 0);
    EXPECT_EQ(S(d.getString()), "9999-01-01");
    EXPECT_EQ(d.setString("now").number, 0);
    EXPECT_GE(d.year(), 2024);
    ZError e = d.setString("nonsense");
    EXPECT_EQ(e.number, 1);
    EXPECT_EQ(S(e.string), "Time format error: nonsense");
    EXPECT_EQ(S(d.setString("2024-03").string), "Time format error: 2024-03");
    EXPECT_EQ(S(d.setString("2024-13-01").string), "Month value out of range");
    EXPECT_EQ(S(d.setString("2024-12-32").string), "Day value out of range: 32");
}

// ---------------------------------------------------------------- ZTimeStamp

TEST(ZTimeStampText, GetStringForms) {
    ZTimeStamp t(2024, 3, 1, 12, 30, 5, 250000);
    EXPECT_EQ(S(t.getString()), "2024-03-01T12:30:05.250000");
    EXPECT_EQ(S(t.getString("T")), "2024-03-01T12:30:05.250000");
    EXPECT_EQ(S(t.getString(" ")), "2024-03-01 12:30:05.250000");
    EXPECT_EQ(S(t.getString("")), "2024-03-0112:30:05.250000");
    EXPECT_EQ(S(t.getStringNoMs()), "2024-03-01T12:30:05");
    EXPECT_EQ(S(t.getStringNoMs("_")), "2024-03-01_12:30:05");
    EXPECT_EQ(S(t.getStringFormatted("%Y%j %H:%M:%S %a")), "2024061 12:30:05 Fri");
    ZString s;
    EXPECT_EQ(toZString(t, s).number, 0);
    EXPECT_EQ(S(s), "2024-03-01T12:30:05.250000");
    ZTimeStamp u;
    EXPECT_EQ(fromZString(s, u).number, 0);
    EXPECT_EQ(u, t);
}

TEST(ZTimeStampText, SpecialValues) {
    ZTimeStamp t(2024, 3, 1, 12, 30, 5, 250000);
    t.clear();
    EXPECT_EQ(t.year(), 0);
    EXPECT_EQ(t.yday(), 0);
    EXPECT_EQ(t.hour() + t.minute() + t.second() + t.microSecond(), 0);
    t.setFirst();
    EXPECT_EQ(S(t.getString()), "0001-01-01T00:00:00.000000");
    t.setLast();
    EXPECT_EQ(t.year(), 9999);
    EXPECT_EQ(t.yday(), 0);
    EXPECT_EQ(S(t.getString()), "9999-01-01T00:00:00.000000"); // not 9999-12-31
}

TEST(ZTimeStampSetString, AcceptedShapes) {
    ZTimeStamp t;
    ASSERT_EQ(t.setString("2024-03-01T12:30:05.25").number, 0);
    EXPECT_EQ(S(t.getString()), "2024-03-01T12:30:05.250000");
    ASSERT_EQ(t.setString("2024-03-01 12:30:05").number, 0);
    EXPECT_EQ(S(t.getString()), "2024-03-01T12:30:05.000000");
    ASSERT_EQ(t.setString("2024-03-01 12:30").number, 0); // 5 fields
    EXPECT_EQ(S(t.getString()), "2024-03-01T12:30:00.000000");
    ASSERT_EQ(t.setString("01/03/2024T12:30:05.5").number, 0);
    EXPECT_EQ(S(t.getString()), "2024-03-01T12:30:05.500000");
    ASSERT_EQ(t.setString("2024/03/02 01:02:03").number, 0);
    EXPECT_EQ(S(t.getString()), "2024-03-02T01:02:03.000000");
    ASSERT_EQ(t.setString("2024/03/04").number, 0);
    EXPECT_EQ(S(t.getString()), "2024-03-04T00:00:00.000000");
    ASSERT_EQ(t.setString("10:20:30.000001").number, 0); // a time alone keeps the date
    EXPECT_EQ(S(t.getString()), "2024-03-04T10:20:30.000001");
    ASSERT_EQ(t.setString("11:22").number, 0);
    EXPECT_EQ(S(t.getString()), "2024-03-04T11:22:00.000000");
    ASSERT_EQ(t.setString("2024061 12:30:05.75").number, 0); // year and ordinal day
    EXPECT_EQ(S(t.getString()), "2024-03-01T12:30:05.750000");
    ASSERT_EQ(t.setString("first").number, 0);
    EXPECT_EQ(S(t.getString()), "0001-01-01T00:00:00.000000");
    ASSERT_EQ(t.setString("last").number, 0);
    EXPECT_EQ(S(t.getString()), "9999-01-01T00:00:00.000000");
    ASSERT_EQ(t.setString("now").number, 0);
    EXPECT_GE(t.year(), 2024);
}

TEST(ZTimeStampSetString, LeapDayAloneIsMidnight) {
    ZTimeStamp t;
    t.setNow();
    ZError e = t.setString("2024-02-29");
    EXPECT_EQ(e.number, 0);
    EXPECT_EQ(t.year(), 2024);
    EXPECT_EQ(t.month(), 2);
    EXPECT_EQ(t.day(), 29);
    EXPECT_EQ(t.yday(), 59);
    EXPECT_EQ(S(t.getString()), "2024-02-29T00:00:00.000000");
}

TEST(ZTimeStampSetString, SecondsFractionAndLimit) {
    ZTimeStamp t;
    ZError e = t.setString("12:00:60");
    EXPECT_EQ(e.number, 1);
    EXPECT_EQ(S(e.string), "Second value out of range");
    e = t.setString("12:00:59.999999");
    EXPECT_EQ(e.number, 0);
    EXPECT_EQ(t.second(), 59);
    EXPECT_EQ(t.microSecond(), 999999);
    EXPECT_EQ(t.setString("12:00:59.9999999").number, 0); // never rounds up into 60
    EXPECT_EQ(t.second(), 59);
    EXPECT_EQ(t.microSecond(), 999999);
    EXPECT_EQ(t.setString("12:00:00.000001").number, 0);
    EXPECT_EQ(t.microSecond(), 1);
    EXPECT_EQ(S(t.setString("12:00:-1").string), "Second value out of range");
    EXPECT_EQ(S(t.setString("12:00:nan").string), "Second value out of range");
}

TEST(ZTimeStampSetString, ErrorTexts) {
    ZTimeStamp t;
    ZError e = t.setString("garbage");
    EXPECT_EQ(e.number, 1);
    EXPECT_EQ(S(e.string), "Time format error\n");
    EXPECT_EQ(S(t.setString("").string), "Time format error\n");
    EXPECT_EQ(S(t.setString("2024-03-01 12").string), "Time format error\n"); // 4 fields
    EXPECT_EQ(S(t.setString("12").string), "Time format error\n");
    EXPECT_EQ(S(t.setString("2024061").string), "Time format error\n");
    EXPECT_EQ(S(t.setString("2024-13-01").string), "Month value out of range");
    EXPECT_EQ(S(t.setString("01/00/2024").string), "Month value out of range");
    EXPECT_EQ(S(t.setString("2024-01-32").string), "Day value out of range: 32");
    EXPECT_EQ(S(t.setString("2024/01/00").string), "Day value out of range: 0");
    EXPECT_EQ(S(t.setString("2024-02-31").string), ""); // 1 to 31 whatever the month
    EXPECT_EQ(S(t.setString("2024-01-01 24:00").string), "Hour value out of range");
    EXPECT_EQ(S(t.setString("2024-01-01 23:60").string), "Minute value out of range");
    EXPECT_EQ(S(t.setString("2024-01-01 23:59:60").string), "Second value out of range");
    EXPECT_EQ(S(t.setString("24:00:00").string), "Hour value out of range");
    EXPECT_EQ(S(t.setString("2024367 00:00:00").string), "Day value out of range: 367");
    EXPECT_EQ(S(t.setString("2024000 00:00:00").string), "Day value out of range: 0");
}

TEST(ZTimeStampConvert, EpochZTimeZTimeUsAndMs) {
    ZTimeStamp t;
    t.set(int64_t(t20240301), 250000);
    EXPECT_EQ(S(t.getString()), "2024-03-01T12:30:05.250000");
    EXPECT_EQ(t.getEpochSeconds(), int64_t(t20240301));
    EXPECT_EQ(t.getTime().getSeconds(), t20240301);
    EXPECT_EQ(t.getTimeUs().getMicroSeconds(), uint64_t(t20240301) * 1000000u + 250000u);
    ZTimeStamp u;
    u.set(t.getTimeUs());
    EXPECT_EQ(u, t);
    u.set(ZTime(t20240301));
    EXPECT_EQ(S(u.getString()), "2024-03-01T12:30:05.000000");
    u.set(int64_t(0), -1); // carries backwards
    EXPECT_EQ(S(u.getString()), "1969-12-31T23:59:59.999999");

    ZTimeStamp m(2024, 3, 1, 12, 30, 5, 123456);
    ZTimeStampMs ms(m);
    EXPECT_EQ(ms.omilliSecond, 123);
    ZTimeStamp back;
    back.set(ms);
    EXPECT_EQ(S(back.getString()), "2024-03-01T12:30:05.123000");

    ZTimeStamp now;
    now.setNow();
    ZTimeUs sys;
    sys.setNow();
    int64_t d = int64_t(sys.getMicroSeconds()) - now.getEpochMicroSeconds();
    EXPECT_GE(d, 0);
    EXPECT_LT(d, 5000000);
}

TEST(ZTimeStampArith, CompareAndYearCounts) {
    ZTimeStamp a(2024, 3, 1, 12, 30, 5, 1), b(2024, 3, 1, 12, 30, 5, 2);
    EXPECT_LT(a.compare(b), 0);
    EXPECT_GT(b.compare(a), 0);
    EXPECT_EQ(a.compare(a), 0);
    EXPECT_LT(ZTimeStamp(2023, 12, 31, 23, 59, 59, 999999), ZTimeStamp(2024, 1, 1, 0, 0, 0));
    EXPECT_EQ(a.getYearSeconds(), 60u * 86400u + 12 * 3600 + 30 * 60 + 5);
    EXPECT_EQ(a.getYearMicroSeconds(), int64_t(a.getYearSeconds()) * 1000000 + 1);
}

TEST(ZTimeStampArith, AddCarriesAcrossDaysAndYears) {
    ZTimeStamp t(2023, 12, 31, 23, 59, 59, 999999);
    t.addMicroSeconds(1);
    EXPECT_EQ(S(t.getString()), "2024-01-01T00:00:00.000000");
    t.addMicroSeconds(-1);
    EXPECT_EQ(S(t.getString()), "2023-12-31T23:59:59.999999");
    t.set(2024, 12, 31, 12, 0, 0);
    EXPECT_EQ(t.yday(), 365);
    t.addSeconds(86400);
    EXPECT_EQ(S(t.getString()), "2025-01-01T12:00:00.000000");
    t.set(2024, 1, 1, 0, 0, 0);
    t.addSeconds(366 * 86400);
    EXPECT_EQ(S(t.getString()), "2025-01-01T00:00:00.000000");
    t.addSeconds(-366 * 86400);
    EXPECT_EQ(S(t.getString()), "2024-01-01T00:00:00.000000");
    t.addMilliSeconds(1500);
    EXPECT_EQ(S(t.getString()), "2024-01-01T00:00:01.500000");
    t.addMilliSeconds(-3000);
    EXPECT_EQ(S(t.getString()), "2023-12-31T23:59:58.500000");
    t.set(2024, 2, 28, 23, 0, 0);
    t.addSeconds(3600);
    EXPECT_EQ(S(t.getString()), "2024-02-29T00:00:00.000000");
    t.set(1900, 2, 28, 23, 0, 0);
    t.addSeconds(3600);
    EXPECT_EQ(S(t.getString()), "1900-03-01T00:00:00.000000");
    // Ten thousand years (25 Gregorian cycles of 146097 days) ahead and back again.
    const long tenThousandYears = 25L * 146097L * 86400L * 1000000L;
    t.set(2000, 1, 1, 0, 0, 0);
    t.addMicroSeconds(tenThousandYears);
    EXPECT_EQ(S(t.getString()), "12000-01-01T00:00:00.000000");
    t.addMicroSeconds(-tenThousandYears);
    EXPECT_EQ(S(t.getString()), "2000-01-01T00:00:00.000000");
}

TEST(ZTimeStampArith, DifferenceCountsEveryYearByItsLength) {
    ZTimeStamp a(2027, 1, 2, 0, 0, 0), b(2023, 12, 31, 0, 0, 0);
    EXPECT_EQ(ZTimeStamp::difference(a, b), 94867200000000LL); // 1098 days: 2024 is leap
    EXPECT_EQ(ZTimeStamp::difference(b, a), -94867200000000LL);
    ZTimeStamp c(2001, 3, 1, 1, 2, 3, 4), d(1899, 6, 15, 5, 6, 7, 8);
    EXPECT_EQ(ZTimeStamp::difference(c, d), 3209658955999996LL); // over 1900 (common), 2000 (leap)
    EXPECT_EQ(ZTimeStamp::difference(c, c), 0);
    ZTimeStamp y0(2024, 1, 1, 0, 0, 0), y1(2025, 1, 1, 0, 0, 0), y2(2026, 1, 1, 0, 0, 0);
    EXPECT_EQ(ZTimeStamp::difference(y1, y0), 31622400000000LL);
    EXPECT_EQ(ZTimeStamp::difference(y2, y1), 31536000000000LL);
    // Agrees with the epoch microseconds for a spread of pairs.
    for (int i = 0; i < 200; i++) {
        ZTimeStamp p, q;
        p.set(int64_t(i) * 987654321LL - 50000000000LL, (i * 7919) % 1000000);
        q.set(int64_t(i) * 123456789LL + 1000000000LL, (i * 104729) % 1000000);
        ASSERT_EQ(ZTimeStamp::difference(p, q), p.getEpochMicroSeconds() - q.getEpochMicroSeconds())
            << i;
    }
}
