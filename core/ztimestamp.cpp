#include "ztimestamp.h"

#include <cmath>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <sys/time.h>

namespace {

const int64_t usPerDay = 86400LL * 1000000LL;

int64_t yearMicroSeconds(int year) {
    return int64_t(ztime::daysInYear(year)) * usPerDay;
}

} // namespace

void ZTimeStampMs::set(const ZTimeStamp& t) {
    oyear = t.oyear;
    oyday = t.oyday;
    ohour = t.ohour;
    ominute = t.ominute;
    osecond = t.osecond;
    omilliSecond = uint16_t(t.omicroSecond / 1000);
}

void ZTimeStamp::clear() {
    oyear = 0;
    oyday = 0;
    ohour = ominute = osecond = 0;
    omicroSecond = 0;
}

void ZTimeStamp::setFirst() {
    clear();
    oyear = 1;
}

void ZTimeStamp::setLast() {
    clear();
    oyear = 9999;
}

void ZTimeStamp::set(int year, int month, int day, int hour, int minute, int second,
                     int microSecond) {
    setYDay(year, ztime::daysBeforeMonth(year, month) + day - 1, hour, minute, second, microSecond);
}

void ZTimeStamp::setYDay(int year, int yday, int hour, int minute, int second, int microSecond) {
    oyear = int16_t(year);
    oyday = int16_t(yday);
    setTime(hour, minute, second, microSecond);
}

void ZTimeStamp::setTime(int hour, int minute, int second, int microSecond) {
    ohour = uint8_t(hour);
    ominute = uint8_t(minute);
    osecond = uint8_t(second);
    omicroSecond = microSecond;
}

void ZTimeStamp::set(int64_t secondsSinceEpoch, int32_t microSeconds) {
    int64_t days = secondsSinceEpoch / 86400;
    int64_t rest = secondsSinceEpoch % 86400;
    if (rest < 0) {
        rest += 86400;
        days--;
    }
    int64_t y;
    int m, d;
    ztime::civilFromDays(days, y, m, d);
    set(int(y), m, d, int(rest / 3600), int(rest / 60 % 60), int(rest % 60), 0);
    addMicroSeconds(microSeconds);
}

void ZTimeStamp::set(const ZTimeStampMs& t) {
    setYDay(t.oyear, t.oyday, t.ohour, t.ominute, t.osecond, int(t.omilliSecond) * 1000);
}

void ZTimeStamp::set(const ZTimeUs& t) {
    set(int64_t(t.microSeconds / 1000000u), int32_t(t.microSeconds % 1000000u));
}

void ZTimeStamp::setNow() {
    struct timeval tv;
    gettimeofday(&tv, nullptr);
    set(int64_t(tv.tv_sec), int32_t(tv.tv_usec));
}

ZTimeStamp ZTimeStamp::now() {
    ZTimeStamp t;
    t.setNow();
    return t;
}

int ZTimeStamp::month() const {
    int m, d;
    ztime::monthDayFromYDay(oyear, oyday, m, d);
    return m;
}

int ZTimeStamp::day() const {
    int m, d;
    ztime::monthDayFromYDay(oyear, oyday, m, d);
    return d;
}

uint32_t ZTimeStamp::getYearSeconds() const {
    return uint32_t(oyday) * 86400u + uint32_t(ohour) * 3600u + uint32_t(ominute) * 60u +
           uint32_t(osecond);
}

int64_t ZTimeStamp::getYearMicroSeconds() const {
    return (int64_t(oyday) * 86400 + int64_t(ohour) * 3600 + int64_t(ominute) * 60 + osecond) *
               1000000 +
           omicroSecond;
}

int64_t ZTimeStamp::getEpochSeconds() const {
    int64_t days = ztime::daysFromCivil(oyear, 1, 1) + oyday;
    return days * 86400 + int64_t(ohour) * 3600 + int64_t(ominute) * 60 + osecond;
}

int64_t ZTimeStamp::getEpochMicroSeconds() const {
    return getEpochSeconds() * 1000000 + omicroSecond;
}

int ZTimeStamp::compare(const ZTimeStamp& o) const {
    if (oyear != o.oyear)
        return oyear < o.oyear ? -1 : 1;
    if (oyday != o.oyday)
        return oyday < o.oyday ? -1 : 1;
    if (ohour != o.ohour)
        return ohour < o.ohour ? -1 : 1;
    if (ominute != o.ominute)
        return ominute < o.ominute ? -1 : 1;
    if (osecond != o.osecond)
        return osecond < o.osecond ? -1 : 1;
    if (omicroSecond != o.omicroSecond)
        return omicroSecond < o.omicroSecond ? -1 : 1;
    return 0;
}

void ZTimeStamp::addMicroSeconds(long us) {
    int year = oyear;
    int64_t t = getYearMicroSeconds() + int64_t(us);
    // Whole 400-year cycles first (146097 days each) so that huge steps stay cheap.
    const int64_t cycle = 146097LL * usPerDay;
    if (t >= cycle || t <= -cycle) {
        int64_t k = t / cycle;
        year += int(k * 400);
        t -= k * cycle;
    }
    while (t < 0) {
        year--;
        t += yearMicroSeconds(year);
    }
    while (t >= yearMicroSeconds(year)) {
        t -= yearMicroSeconds(year);
        year++;
    }
    int64_t s = t / 1000000;
    oyear = int16_t(year);
    oyday = int16_t(s / 86400);
    s %= 86400;
    ohour = uint8_t(s / 3600);
    ominute = uint8_t(s / 60 % 60);
    osecond = uint8_t(s % 60);
    omicroSecond = int32_t(t % 1000000);
}

int64_t ZTimeStamp::difference(const ZTimeStamp& a, const ZTimeStamp& b) {
    int64_t d = a.getYearMicroSeconds() - b.getYearMicroSeconds();
    if (a.oyear >= b.oyear) {
        for (int y = b.oyear; y < a.oyear; y++)
            d += yearMicroSeconds(y);
    } else {
        for (int y = a.oyear; y < b.oyear; y++)
            d -= yearMicroSeconds(y);
    }
    return d;
}

ZString ZTimeStamp::getString(const ZString& separator) const {
    int m, d;
    ztime::monthDayFromYDay(oyear, oyday, m, d);
    ZString s;
    s.printf("%04d-%02d-%02d%s%02d:%02d:%02d.%06d", oyear, m, d, separator.retStr(), ohour, ominute,
             osecond, omicroSecond);
    return s;
}

ZString ZTimeStamp::getStringNoMs(const ZString& separator) const {
    int m, d;
    ztime::monthDayFromYDay(oyear, oyday, m, d);
    ZString s;
    s.printf("%04d-%02d-%02d%s%02d:%02d:%02d", oyear, m, d, separator.retStr(), ohour, ominute,
             osecond);
    return s;
}

ZString ZTimeStamp::getStringFormatted(const ZString& format) const {
    return ztime::formatDay(oyear, oyday, ohour, ominute, osecond, format.retStr());
}

ZError ZTimeStamp::setString(const ZString& text) {
    if (text == "first") {
        setFirst();
        return ZError();
    }
    if (text == "last") {
        setLast();
        return ZError();
    }
    if (text == "now") {
        setNow();
        return ZError();
    }
    const char* s = text.retStr();
    unsigned year = 0, month = 1, day = 1, hour = 0, minute = 0;
    double second = 0;
    bool timeOnly = false, ydayForm = false;
    int n;
    if (((n = sscanf(s, "%04u-%02u-%02u%*[ T]%02u:%02u:%lf", &year, &month, &day, &hour, &minute,
                     &second)) == 3) ||
        n == 5 || n == 6) {
    } else if (((n = sscanf(s, "%02u/%02u/%04u%*[ T]%02u:%02u:%lf", &day, &month, &year, &hour,
                            &minute, &second)) == 3) ||
               n == 5 || n == 6) {
    } else if (((n = sscanf(s, "%04u/%02u/%02u%*[ T]%02u:%02u:%lf", &year, &month, &day, &hour,
                            &minute, &second)) == 3) ||
               n == 5 || n == 6) {
    } else if (((n = sscanf(s, "%02u:%02u:%lf", &hour, &minute, &second)) == 2) || n == 3) {
        timeOnly = true;
    } else if ((n = sscanf(s, "%04u%3u%*[ T]%02u:%02u:%lf", &year, &day, &hour, &minute,
                           &second)) == 5) {
        ydayForm = true;
    } else {
        return ZError(1, "Time format error\n");
    }
    if (ydayForm) {
        if (day < 1 || day > unsigned(ztime::daysInYear(int(year))))
            return ZError(1, ZString("Day value out of range: ") + ZString(day));
    } else {
        if (month < 1 || month > 12)
            return ZError(1, "Month value out of range");
        if (day < 1 || day > 31)
            return ZError(1, ZString("Day value out of range: ") + ZString(day));
    }
    if (hour > 23)
        return ZError(1, "Hour value out of range");
    if (minute > 59)
        return ZError(1, "Minute value out of range");
    if (!(second >= 0.0 && second < 60.0))
        return ZError(1, "Second value out of range");

    int whole = int(second);
    long us = lround((second - whole) * 1e6);
    if (us > 999999)
        us = 999999;
    if (us < 0)
        us = 0;
    if (timeOnly)
        setTime(int(hour), int(minute), whole, int(us));
    else if (ydayForm)
        setYDay(int(year), int(day) - 1, int(hour), int(minute), whole, int(us));
    else
        set(int(year), int(month), int(day), int(hour), int(minute), whole, int(us));
    return ZError();
}

ZError toZString(const ZTimeStamp& t, ZString& text) {
    text = t.getString("T");
    return ZError();
}

ZError fromZString(const ZString& text, ZTimeStamp& t) {
    return t.setString(text);
}
