#ifndef ZTIME_H
#define ZTIME_H

#include "zerror.h"
#include "zstring.h"

#include <cstdint>

// Points in time, all in UTC.
//
// ZTime   - unsigned 32-bit seconds since 1970-01-01 00:00:00 UTC (4 bytes, its memory image
//           is its wire image).
// ZTimeUs - unsigned 64-bit microseconds since the same epoch (8 bytes).
//
// Months and days of the month count from 1, days of the year (yday) from 0.
// setString() of both accepts, in this order:
//   "clear" (0), "first" (0, the epoch: the first time ZTime can hold),
//   "%04u-%02u-%02u%*[ T]%02u:%02u:%02u"   (3, 5 or 6 fields),
//   "%02u/%02u/%04u%*[ T]%02u:%02u:%02u"   (day/month/year; 3, 5 or 6 fields),
//   "%02u:%02u:%02u"                       (a time alone, 2 or 3 fields; the date already held
//                                           is kept),
//   "%04u%3u%*[ T]%02u:%02u:%02u"          (year and ordinal day of the year 1..366 as strftime
//                                           "%j" writes it; exactly 5 fields),
// otherwise number 1 "Time format error\n". Then the range checks with number 1:
// "Month value out of range", "Day value out of range: <value>", "Hour value out of range",
// "Minute value out of range", "Second value out of range".
class ZTime {
public:
    ZTime() : seconds(0) {}
    explicit ZTime(uint32_t secs) : seconds(secs) {}
    ZTime(int year, int month, int day, int hour, int minute, int second) : seconds(0) {
        set(year, month, day, hour, minute, second);
    }

    void clear() { seconds = 0; }
    void set(uint32_t secs) { seconds = secs; }
    // Day-count formula in unsigned 32-bit arithmetic; meaningful for 1970 to 2106.
    void set(int year, int month, int day, int hour, int minute, int second);
    // yday from 0.
    void setYearDay(int year, int yday, int hour, int minute, int second);
    // The system clock, whole seconds.
    void setNow();
    static ZTime now();

    void getDate(int& year, int& month, int& day) const;
    void getTime(int& hour, int& minute, int& second) const;
    int getYearDay() const; // from 0
    uint32_t getSeconds() const { return seconds; }
    void addSeconds(int s) { seconds += uint32_t(s); }
    int isLeapYear() const;

    // format: "" / "iso" / "isoT", "isoSpace", "isoUnderscore", "isoDate", "isoTime",
    // "filename", "filename1"; anything else is a strftime format on the UTC time, the
    // result at most 64 characters (an empty text when it would not fit).
    ZString getString(const ZString& format = ZString()) const;
    ZError setString(const ZString& text);

    // Shift by the local time zone's offset (at that time) and back.
    ZTime& utcToLocal();
    ZTime& localToUtc();
    ZString getStringLocal(const ZString& format = ZString()) const;
    ZError setStringLocal(const ZString& text);

    int compare(const ZTime& o) const {
        return seconds < o.seconds ? -1 : (seconds > o.seconds ? 1 : 0);
    }
    bool operator==(const ZTime& o) const { return seconds == o.seconds; }
    bool operator!=(const ZTime& o) const { return seconds != o.seconds; }
    bool operator<(const ZTime& o) const { return seconds < o.seconds; }
    bool operator<=(const ZTime& o) const { return seconds <= o.seconds; }
    bool operator>(const ZTime& o) const { return seconds > o.seconds; }
    bool operator>=(const ZTime& o) const { return seconds >= o.seconds; }

    uint32_t seconds;
};

class ZTimeUs {
public:
    ZTimeUs() : microSeconds(0) {}
    explicit ZTimeUs(uint64_t us) : microSeconds(us) {}
    explicit ZTimeUs(const ZTime& t) : microSeconds(uint64_t(t.seconds) * 1000000u) {}

    void clear() { microSeconds = 0; }
    void set(uint64_t us) { microSeconds = us; }
    void set(const ZTime& t) { microSeconds = uint64_t(t.seconds) * 1000000u; }
    void set(int year, int month, int day, int hour, int minute, int second, int microSecond = 0);
    void setYearDay(int year, int yday, int hour, int minute, int second, int microSecond = 0);
    // The system clock with microseconds.
    void setNow();
    static ZTimeUs now();

    void getDate(int& year, int& month, int& day) const;
    void getTime(int& hour, int& minute, int& second) const;
    void getTime(int& hour, int& minute, int& second, int& microSecond) const;
    int getYearDay() const; // from 0
    uint64_t getSeconds() const { return microSeconds / 1000000u; }
    uint64_t getMicroSeconds() const { return microSeconds; }
    // The fraction of the second, 0 to 999999.
    uint32_t getMicroSecondPart() const { return uint32_t(microSeconds % 1000000u); }
    ZTime getTime() const { return ZTime(uint32_t(microSeconds / 1000000u)); }
    void addSeconds(long s) { microSeconds += uint64_t(s) * 1000000u; }
    void addMicroSeconds(long us) { microSeconds += uint64_t(us); }
    int isLeapYear() const;

    // "isoSpace" "%04d-%02d-%02d %02d:%02d:%02d", "filename" "%04d-%02d-%02d_%02d%02d%02d",
    // anything else "%04d-%02d-%02dT%02d:%02d:%02d".
    ZString getString(const ZString& format = ZString()) const;
    // The same with ".%06u" microseconds.
    ZString getStringUs(const ZString& format = ZString()) const;
    // As ZTime::setString; the microseconds become 0.
    ZError setString(const ZString& text);

    int compare(const ZTimeUs& o) const {
        return microSeconds < o.microSeconds ? -1 : (microSeconds > o.microSeconds ? 1 : 0);
    }
    bool operator==(const ZTimeUs& o) const { return microSeconds == o.microSeconds; }
    bool operator!=(const ZTimeUs& o) const { return microSeconds != o.microSeconds; }
    bool operator<(const ZTimeUs& o) const { return microSeconds < o.microSeconds; }
    bool operator<=(const ZTimeUs& o) const { return microSeconds <= o.microSeconds; }
    bool operator>(const ZTimeUs& o) const { return microSeconds > o.microSeconds; }
    bool operator>=(const ZTimeUs& o) const { return microSeconds >= o.microSeconds; }

    uint64_t microSeconds;
};

static_assert(sizeof(ZTime) == 4, "ZTime is 4 bytes");
static_assert(sizeof(ZTimeUs) == 8, "ZTimeUs is 8 bytes");

// Calendar helpers shared by the time types (Gregorian).
namespace ztime {
// 1 for a leap year: divisible by 4, except centuries not divisible by 400.
inline int isLeap(int year) {
    return (year % 4 == 0 && year % 100 != 0) || year % 400 == 0;
}
inline int daysInYear(int year) {
    return isLeap(year) ? 366 : 365;
}
// Days before month m (1..12; clamped into that range) in a year.
int daysBeforeMonth(int year, int month);
// Days in month m (1..12) of a year; 0 for a month out of range.
int daysInMonth(int year, int month);
// Month (1..12) and day (1..) of a day of the year (from 0).
void monthDayFromYDay(int year, int yday, int& month, int& day);
// Days since 1970-01-01 of a Gregorian date (proleptic; negative before 1970), and back.
int64_t daysFromCivil(int64_t year, int month, int day);
void civilFromDays(int64_t days, int64_t& year, int& month, int& day);
// strftime of a day of the year and a time of day, into at most 64
// characters; empty when the result would be longer.
ZString formatDay(int year, int yday, int hour, int minute, int second, const char* format);
} // namespace ztime

#endif
