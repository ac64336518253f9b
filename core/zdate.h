#ifndef ZDATE_H
#define ZDATE_H

#include "zerror.h"
#include "zstring.h"
#include "ztime.h"

#include <cstdint>

// A calendar day in UTC: the full year and the day of the year from 0.
// The fields are named oyear/oyday because year() and yday() are the accessors.
class ZDate {
public:
    ZDate() : oyear(0), oyday(0) {}
    ZDate(int year, int month, int day) : oyear(0), oyday(0) { set(year, month, day); }

    void clear() { oyear = 0, oyday = 0; }
    void setFirst() { oyear = 1, oyday = 0; }
    // Year 9999, day 0: the first day of that year, deliberately not its last.
    void setLast() { oyear = 9999, oyday = 0; }

    // month and day from 1; a month outside 1..12 is clamped into that range.
    void set(int year, int month, int day);
    // The day that holds this many seconds since the epoch.
    void set(uint32_t secondsSinceEpoch);
    void set(const ZTime& t) { set(t.seconds); }
    void setNow();
    void setYDay(int year, int yday) { oyear = int16_t(year), oyday = int16_t(yday); }

    int year() const { return oyear; }
    int yday() const { return oyday; }
    int month() const;
    int day() const;
    void getDate(int& y, int& m, int& d) const;
    // Midnight of the day as a ZTime.
    ZTime getTime() const;

    static int daysInMonth(int year, int month) { return ztime::daysInMonth(year, month); }
    static int isLeap(int year) { return ztime::isLeap(year); }

    // Negative, 0 or positive by date order.
    int compare(const ZDate& other) const;
    bool operator==(const ZDate& o) const { return compare(o) == 0; }
    bool operator!=(const ZDate& o) const { return compare(o) != 0; }
    bool operator<(const ZDate& o) const { return compare(o) < 0; }
    bool operator<=(const ZDate& o) const { return compare(o) <= 0; }
    bool operator>(const ZDate& o) const { return compare(o) > 0; }
    bool operator>=(const ZDate& o) const { return compare(o) >= 0; }

    // "%04d-%02d-%02d"
    ZString getString() const;
    // strftime format on the day at 00:00:00 UTC, at most 64 characters (empty when longer).
    ZString getStringFormatted(const ZString& format) const;
    // "first", "last", "now", then "%04u-%02u-%02u%*[ T]%02u:%02u:%02u.%06u",
    // "%02u/%02u/%04u%*[ T]%02u:%02u:%02u.%06u", "%04u/%02u/%02u%*[ T]%02u:%02u:%02u.%06u",
    // each accepted when at least the 3 date fields were read (the time is ignored);
    // otherwise number 1 "Time format error: " + text. Then "Month value out of range" and
    // "Day value out of range: <value>" (day 1 to 31).
    ZError setString(const ZString& text);

    int16_t oyear;
    int16_t oyday;
};

#endif
