#include "zdate.h"

#include <cstdio>
#include <cstring>
#include <ctime>

void ZDate::set(int year, int month, int day) {
    oyear = int16_t(year);
    oyday = int16_t(ztime::daysBeforeMonth(year, month) + day - 1);
}

void ZDate::set(uint32_t secondsSinceEpoch) {
    int64_t y;
    int m, d;
    ztime::civilFromDays(int64_t(secondsSinceEpoch / 86400u), y, m, d);
    set(int(y), m, d);
}

void ZDate::setNow() {
    set(uint32_t(::time(nullptr)));
}

int ZDate::month() const {
    int m, d;
    ztime::monthDayFromYDay(oyear, oyday, m, d);
    return m;
}

int ZDate::day() const {
    int m, d;
    ztime::monthDayFromYDay(oyear, oyday, m, d);
    return d;
}

void ZDate::getDate(int& y, int& m, int& d) const {
    y = oyear;
    ztime::monthDayFromYDay(oyear, oyday, m, d);
}

ZTime ZDate::getTime() const {
    int64_t days = ztime::daysFromCivil(oyear, 1, 1) + oyday;
    return ZTime(uint32_t(days * 86400));
}

int ZDate::compare(const ZDate& other) const {
    if (oyear != other.oyear)
        return oyear < other.oyear ? -1 : 1;
    if (oyday != other.oyday)
        return oyday < other.oyday ? -1 : 1;
    return 0;
}

ZString ZDate::getString() const {
    int y, m, d;
    getDate(y, m, d);
    ZString s;
    s.printf("%04d-%02d-%02d", y, m, d);
    return s;
}

ZString ZDate::getStringFormatted(const ZString& format) const {
    return ztime::formatDay(oyear, oyday, 0, 0, 0, format.retStr());
}

ZError ZDate::setString(const ZString& text) {
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
    unsigned year = 0, month = 1, day = 1, hour = 0, minute = 0, second = 0, us = 0;
    if (sscanf(s, "%04u-%02u-%02u%*[ T]%02u:%02u:%02u.%06u", &year, &month, &day, &hour, &minute,
               &second, &us) >= 3) {
    } else if (sscanf(s, "%02u/%02u/%04u%*[ T]%02u:%02u:%02u.%06u", &day, &month, &year, &hour,
                      &minute, &second, &us) >= 3) {
    } else if (sscanf(s, "%04u/%02u/%02u%*[ T]%02u:%02u:%02u.%06u", &year, &month, &day, &hour,
                      &minute, &second, &us) >= 3) {
    } else {
        return ZError(1, ZString("Time format error: ") + text);
    }
    if (month < 1 || month > 12)
        return ZError(1, "Month value out of range");
    if (day < 1 || day > 31)
        return ZError(1, ZString("Day value out of range: ") + ZString(day));
    set(int(year), int(month), int(day));
    return ZError();
}
