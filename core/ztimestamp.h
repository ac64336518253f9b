#ifndef ZTIMESTAMP_H
#define ZTIMESTAMP_H

#include "zerror.h"
#include "zstring.h"
#include "ztime.h"

#include <cstdint>

class ZTimeStamp;

// Millisecond variant of ZTimeStamp, used only for conversion.
class ZTimeStampMs {
public:
    ZTimeStampMs() : oyear(0), oyday(0), ohour(0), ominute(0), osecond(0), omilliSecond(0) {}
    explicit ZTimeStampMs(const ZTimeStamp& t) { set(t); }
    // The microseconds are truncated to milliseconds.
    void set(const ZTimeStamp& t);

    int16_t oyear;
    int16_t oyday;
    uint8_t ohour;
    uint8_t ominute;
    uint8_t osecond;
    uint16_t omilliSecond; // 0 to 999
};

// A broken-down UTC date and time with microseconds. Month and day of the
// month are not stored; they are computed from the day of the year (from 0). The fields are
// named o* because year(), hour() ... are the accessors.
// Serialised form (ZBufferStore): year 16, yday 16, hour 8, minute 8, second 8,
// microSecond 32 bits: 11 bytes.
class ZTimeStamp {
public:
    ZTimeStamp() { clear(); }
    ZTimeStamp(int year, int month, int day, int hour, int minute, int second,
               int microSecond = 0) {
        set(year, month, day, hour, minute, second, microSecond);
    }

    // Year 0, everything else 0.
    void clear();
    // Year 1, day 0, 00:00:00.000000.
    void setFirst();
    // Year 9999, day 0, 00:00:00.000000: the first day of that year, deliberately not its last.
    void setLast();

    // month and day from 1 (a month outside 1..12 is clamped into that range).
    void set(int year, int month, int day, int hour, int minute, int second, int microSecond = 0);
    // yday from 0.
    void setYDay(int year, int yday, int hour, int minute, int second, int microSecond = 0);
    // Only the time of day; the date is kept.
    void setTime(int hour, int minute, int second, int microSecond = 0);
    // Seconds since 1970-01-01 00:00:00 UTC (negative before) and the microseconds.
    void set(int64_t secondsSinceEpoch, int32_t microSeconds);
    void set(const ZTimeStampMs& t);
    void set(const ZTime& t) { set(int64_t(t.seconds), 0); }
    void set(const ZTimeUs& t);
    // The system clock's time of day in UTC with microseconds.
    void setNow();
    static ZTimeStamp now();

    int year() const { return oyear; }
    int yday() const { return oyday; }
    int month() const;
    int day() const;
    int hour() const { return ohour; }
    int minute() const { return ominute; }
    int second() const { return osecond; }
    int microSecond() const { return omicroSecond; }
    int isLeapYear() const { return ztime::isLeap(oyear); }

    // Seconds (microseconds) since the start of the year.
    uint32_t getYearSeconds() const;
    int64_t getYearMicroSeconds() const;
    // Seconds / microseconds since 1970-01-01 00:00:00 UTC (negative before).
    int64_t getEpochSeconds() const;
    int64_t getEpochMicroSeconds() const;
    ZTime getTime() const { return ZTime(uint32_t(getEpochSeconds())); }
    ZTimeUs getTimeUs() const { return ZTimeUs(uint64_t(getEpochMicroSeconds())); }

    // Negative, 0 or positive by time order.
    int compare(const ZTimeStamp& other) const;
    bool operator==(const ZTimeStamp& o) const { return compare(o) == 0; }
    bool operator!=(const ZTimeStamp& o) const { return compare(o) != 0; }
    bool operator<(const ZTimeStamp& o) const { return compare(o) < 0; }
    bool operator<=(const ZTimeStamp& o) const { return compare(o) <= 0; }
    bool operator>(const ZTimeStamp& o) const { return compare(o) > 0; }
    bool operator>=(const ZTimeStamp& o) const { return compare(o) >= 0; }

    // Carry across seconds, days and years, forwards and backwards.
    void addSeconds(int s) { addMicroSeconds(long(s) * 1000000L); }
    void addMilliSeconds(int ms) { addMicroSeconds(long(ms) * 1000L); }
    void addMicroSeconds(long us);

    // a - b in microseconds: every whole year from b's year up to a's year by its own length
    // (31536000000000 common, 31622400000000 leap) plus the difference of
    // getYearMicroSeconds().
    static int64_t difference(const ZTimeStamp& a, const ZTimeStamp& b);

    // "%04d-%02d-%02d%s%02d:%02d:%02d.%06d" with the separator between date and time.
    ZString getString(const ZString& separator = "T") const;
    // The same without the fraction.
    ZString getStringNoMs(const ZString& separator = "T") const;
    // strftime format on the time, at most 64 characters (an empty text when longer).
    ZString getStringFormatted(const ZString& format) const;
    // "first", "last", "now";
    // "%04u-%02u-%02u%*[ T]%02u:%02u:%lf", "%02u/%02u/%04u%*[ T]%02u:%02u:%lf",
    // "%04u/%02u/%02u%*[ T]%02u:%02u:%lf" (3, 5 or 6 fields);
    // "%02u:%02u:%lf" (a time alone, 2 or 3 fields; the date already held is kept);
    // "%04u%3u%*[ T]%02u:%02u:%lf" (year and ordinal day 1..366 as strftime "%j" writes it;
    // exactly 5 fields); otherwise number 1 "Time format error\n". Then the range checks of
    // month, day (1 to 31), hour, minute and second (0 <= s < 60), each number 1. The fraction
    // of the seconds becomes microSecond.
    ZError setString(const ZString& text);

    int16_t oyear;
    int16_t oyday;
    uint8_t ohour;
    uint8_t ominute;
    uint8_t osecond;
    int32_t omicroSecond;
};

// Text form of a time stamp: getString("T"); and back through setString.
ZError toZString(const ZTimeStamp& t, ZString& text);
ZError fromZString(const ZString& text, ZTimeStamp& t);

#endif
