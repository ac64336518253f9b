#include "ztime.h"

#include <cstdio>
#include <cstring>
#include <ctime>
#include <sys/time.h>

namespace ztime {

static const int monthStart[2][13] = {
    {0, 31, 59, 90, 120, 151, 181, 212, 243, 273, 304, 334, 365},
    {0, 31, 60, 91, 121, 152, 182, 213, 244, 274, 305, 335, 366},
};

int daysBeforeMonth(int year, int month) {
    if (month < 1)
        month = 1;
    if (month > 12)
        month = 12;
    return monthStart[isLeap(year)][month - 1];
}

int daysInMonth(int year, int month) {
    if (month < 1 || month > 12)
        return 0;
    const int* s = monthStart[isLeap(year)];
    return s[month] - s[month - 1];
}

void monthDayFromYDay(int year, int yday, int& month, int& day) {
    const int* s = monthStart[isLeap(year)];
    int m = 1;
    while (m < 12 && yday >= s[m])
        m++;
    month = m;
    day = yday - s[m - 1] + 1;
}

// Howard Hinnant's days_from_civil / civil_from_days.
int64_t daysFromCivil(int64_t y, int m, int d) {
    y -= m <= 2;
    const int64_t era = (y >= 0 ? y : y - 399) / 400;
    const int64_t yoe = y - era * 400;
    const int64_t doy = (153 * (m + (m > 2 ? -3 : 9)) + 2) / 5 + d - 1;
    const int64_t doe = yoe * 365 + yoe / 4 - yoe / 100 + doy;
    return era * 146097 + doe - 719468;
}

void civilFromDays(int64_t z, int64_t& year, int& month, int& day) {
    z += 719468;
    const int64_t era = (z >= 0 ? z : z - 146096) / 146097;
    const int64_t doe = z - era * 146097;
    const int64_t yoe = (doe - doe / 1460 + doe / 36524 - doe / 146096) / 365;
    const int64_t doy = doe - (365 * yoe + yoe / 4 - yoe / 100);
    const int64_t mp = (5 * doy + 2) / 153;
    day = int(doy - (153 * mp + 2) / 5 + 1);
    month = int(mp < 10 ? mp + 3 : mp - 9);
    year = yoe + era * 400 + (month <= 2);
}

} // namespace ztime

namespace {

// The shapes shared by ZTime::setString and ZTimeUs::setString. On success fills the fields
// and sets timeOnly when only a time of day was given, and ydayForm when year and day of the
// year were given (day then holds the ordinal day 1..366).
struct Parsed {
    unsigned year = 1970, month = 1, day = 1, hour = 0, minute = 0, second = 0;
    bool timeOnly = false;
    bool ydayForm = false;
};

ZError parseWhole(const ZString& text, Parsed& p) {
    const char* s = text.retStr();
    int n;
    if (((n = sscanf(s, "%04u-%02u-%02u%*[ T]%02u:%02u:%02u", &p.year, &p.month, &p.day, &p.hour,
                     &p.minute, &p.second)) == 3) ||
        n == 5 || n == 6) {
    } else if (((n = sscanf(s, "%02u/%02u/%04u%*[ T]%02u:%02u:%02u", &p.day, &p.month, &p.year,
                            &p.hour, &p.minute, &p.second)) == 3) ||
               n == 5 || n == 6) {
    } else if (((n = sscanf(s, "%02u:%02u:%02u", &p.hour, &p.minute, &p.second)) == 2) || n == 3) {
        p.timeOnly = true;
    } else if ((n = sscanf(s, "%04u%3u%*[ T]%02u:%02u:%02u", &p.year, &p.day, &p.hour, &p.minute,
                           &p.second)) == 5) {
        p.ydayForm = true;
    } else {
        return ZError(1, "Time format error\n");
    }
    if (p.ydayForm) {
        if (p.day < 1 || p.day > unsigned(ztime::daysInYear(int(p.year))))
            return ZError(1, ZString("Day value out of range: ") + ZString(p.day));
    } else {
        if (p.month < 1 || p.month > 12)
            return ZError(1, "Month value out of range");
        if (p.day < 1 || p.day > 31)
            return ZError(1, ZString("Day value out of range: ") + ZString(p.day));
    }
    if (p.hour > 23)
        return ZError(1, "Hour value out of range");
    if (p.minute > 59)
        return ZError(1, "Minute value out of range");
    if (p.second >= 60)
        return ZError(1, "Second value out of range");
    return ZError();
}

struct Fields {
    int year, month, day, hour, minute, second;
};

Fields fieldsOf(uint64_t seconds) {
    Fields f;
    int64_t y;
    ztime::civilFromDays(int64_t(seconds / 86400), y, f.month, f.day);
    f.year = int(y);
    uint32_t r = uint32_t(seconds % 86400);
    f.hour = int(r / 3600);
    f.minute = int(r / 60 % 60);
    f.second = int(r % 60);
    return f;
}

ZString strftimeUtc(int64_t seconds, const char* format) {
    time_t t = time_t(seconds);
    struct tm tm;
    memset(&tm, 0, sizeof(tm));
    gmtime_r(&t, &tm);
    char buf[65];
    size_t n = strftime(buf, sizeof(buf), format, &tm);
    if (n == 0)
        return ZString();
    return ZString(buf, int(n));
}

} // namespace

namespace ztime {
ZString formatDay(int year, int yday, int hour, int minute, int second, const char* format) {
    int month, day;
    monthDayFromYDay(year, yday, month, day);
    struct tm tm;
    memset(&tm, 0, sizeof(tm));
    tm.tm_year = year - 1900;
    tm.tm_mon = month - 1;
    tm.tm_mday = day;
    tm.tm_yday = yday;
    tm.tm_hour = hour;
    tm.tm_min = minute;
    tm.tm_sec = second;
    int64_t days = daysFromCivil(year, 1, 1) + yday;
    tm.tm_wday = int(((days % 7) + 7 + 4) % 7); // 1970-01-01 was a Thursday
    char buf[65];
    size_t n = strftime(buf, sizeof(buf), format, &tm);
    if (n == 0)
        return ZString();
    return ZString(buf, int(n));
}
} // namespace ztime

namespace {

long localOffset(time_t t) {
    tzset(); // follow changes of TZ
    struct tm tm;
    memset(&tm, 0, sizeof(tm));
    localtime_r(&t, &tm);
    return tm.tm_gmtoff;
}

} // namespace

// ---------------- ZTime ----------------

void ZTime::set(int year, int month, int day, int hour, int minute, int second) {
    uint32_t y = uint32_t(year);
    uint32_t days = ((y - 1969u) / 4u) + y * 365u + uint32_t(day) + (y - 1601u) / 400u -
                    (y - 1901u) / 100u + uint32_t(ztime::daysBeforeMonth(year, month));
    seconds = days * 86400u + uint32_t(hour) * 3600u + uint32_t(minute) * 60u + uint32_t(second) -
              0x76FFA080u;
}

void ZTime::setYearDay(int year, int yday, int hour, int minute, int second) {
    set(year, 1, 1, hour, minute, second);
    seconds += uint32_t(yday) * 86400u;
}

void ZTime::setNow() {
    seconds = uint32_t(::time(nullptr));
}

ZTime ZTime::now() {
    ZTime t;
    t.setNow();
    return t;
}

void ZTime::getDate(int& year, int& month, int& day) const {
    Fields f = fieldsOf(seconds);
    year = f.year, month = f.month, day = f.day;
}

void ZTime::getTime(int& hour, int& minute, int& second) const {
    Fields f = fieldsOf(seconds);
    hour = f.hour, minute = f.minute, second = f.second;
}

int ZTime::getYearDay() const {
    Fields f = fieldsOf(seconds);
    return ztime::daysBeforeMonth(f.year, f.month) + f.day - 1;
}

int ZTime::isLeapYear() const {
    return ztime::isLeap(fieldsOf(seconds).year);
}

ZString ZTime::getString(const ZString& format) const {
    Fields f = fieldsOf(seconds);
    const char* fmt = nullptr;
    if (format.isEmpty() || format == "iso" || format == "isoT")
        fmt = "%04d-%02d-%02dT%02d:%02d:%02d";
    else if (format == "isoSpace")
        fmt = "%04d-%02d-%02d %02d:%02d:%02d";
    else if (format == "isoUnderscore")
        fmt = "%04d-%02d-%02d_%02d:%02d:%02d";
    else if (format == "filename")
        fmt = "%04d-%02d-%02d_%02d-%02d-%02d";
    else if (format == "filename1")
        fmt = "%04d-%02d-%02d_%02d%02d%02d";
    ZString s;
    if (fmt)
        s.printf(fmt, f.year, f.month, f.day, f.hour, f.minute, f.second);
    else if (format == "isoDate")
        s.printf("%04d-%02d-%02d", f.year, f.month, f.day);
    else if (format == "isoTime")
        s.printf("%02d:%02d:%02d", f.hour, f.minute, f.second);
    else
        s = strftimeUtc(int64_t(seconds), format.retStr());
    return s;
}

ZError ZTime::setString(const ZString& text) {
    if (text == "clear" || text == "first") {
        seconds = 0;
        return ZError();
    }
    Parsed p;
    ZError err = parseWhole(text, p);
    if (err)
        return err;
    if (p.timeOnly)
        seconds = seconds - seconds % 86400u + p.hour * 3600u + p.minute * 60u + p.second;
    else if (p.ydayForm)
        setYearDay(int(p.year), int(p.day) - 1, int(p.hour), int(p.minute), int(p.second));
    else
        set(int(p.year), int(p.month), int(p.day), int(p.hour), int(p.minute), int(p.second));
    return ZError();
}

ZTime& ZTime::utcToLocal() {
    seconds = uint32_t(int64_t(seconds) + localOffset(time_t(seconds)));
    return *this;
}

ZTime& ZTime::localToUtc() {
    // The offset in force at the local time: first guess with the offset at the value taken as
    // UTC, then correct once (right across daylight-saving changes except in the skipped hour).
    long off = localOffset(time_t(seconds));
    long off2 = localOffset(time_t(int64_t(seconds) - off));
    seconds = uint32_t(int64_t(seconds) - off2);
    return *this;
}

ZString ZTime::getStringLocal(const ZString& format) const {
    ZTime t(*this);
    t.utcToLocal();
    return t.getString(format);
}

ZError ZTime::setStringLocal(const ZString& text) {
    if (text == "clear" || text == "first") {
        seconds = 0;
        return ZError();
    }
    utcToLocal(); // so that a time alone keeps the local date
    ZError err = setString(text);
    localToUtc();
    return err;
}

// ---------------- ZTimeUs ----------------

void ZTimeUs::set(int year, int month, int day, int hour, int minute, int second, int microSecond) {
    int64_t days = ztime::daysFromCivil(year, 1, 1) + ztime::daysBeforeMonth(year, month) + day - 1;
    int64_t s = days * 86400 + int64_t(hour) * 3600 + int64_t(minute) * 60 + second;
    microSeconds = uint64_t(s * 1000000 + microSecond);
}

void ZTimeUs::setYearDay(int year, int yday, int hour, int minute, int second, int microSecond) {
    int64_t days = ztime::daysFromCivil(year, 1, 1) + yday;
    int64_t s = days * 86400 + int64_t(hour) * 3600 + int64_t(minute) * 60 + second;
    microSeconds = uint64_t(s * 1000000 + microSecond);
}

void ZTimeUs::setNow() {
    struct timeval tv;
    gettimeofday(&tv, nullptr);
    microSeconds = uint64_t(tv.tv_sec) * 1000000u + uint64_t(tv.tv_usec);
}

ZTimeUs ZTimeUs::now() {
    ZTimeUs t;
    t.setNow();
    return t;
}

void ZTimeUs::getDate(int& year, int& month, int& day) const {
    Fields f = fieldsOf(getSeconds());
    year = f.year, month = f.month, day = f.day;
}

void ZTimeUs::getTime(int& hour, int& minute, int& second) const {
    Fields f = fieldsOf(getSeconds());
    hour = f.hour, minute = f.minute, second = f.second;
}

void ZTimeUs::getTime(int& hour, int& minute, int& second, int& microSecond) const {
    getTime(hour, minute, second);
    microSecond = int(getMicroSecondPart());
}

int ZTimeUs::getYearDay() const {
    Fields f = fieldsOf(getSeconds());
    return ztime::daysBeforeMonth(f.year, f.month) + f.day - 1;
}

int ZTimeUs::isLeapYear() const {
    return ztime::isLeap(fieldsOf(getSeconds()).year);
}

ZString ZTimeUs::getString(const ZString& format) const {
    Fields f = fieldsOf(getSeconds());
    const char* fmt = "%04d-%02d-%02dT%02d:%02d:%02d";
    if (format == "isoSpace")
        fmt = "%04d-%02d-%02d %02d:%02d:%02d";
    else if (format == "filename")
        fmt = "%04d-%02d-%02d_%02d%02d%02d";
    ZString s;
    s.printf(fmt, f.year, f.month, f.day, f.hour, f.minute, f.second);
    return s;
}

ZString ZTimeUs::getStringUs(const ZString& format) const {
    Fields f = fieldsOf(getSeconds());
    const char* fmt = "%04d-%02d-%02dT%02d:%02d:%02d.%06u";
    if (format == "isoSpace")
        fmt = "%04d-%02d-%02d %02d:%02d:%02d.%06u";
    else if (format == "filename")
        fmt = "%04d-%02d-%02d_%02d%02d%02d.%06u";
    ZString s;
    s.printf(fmt, f.year, f.month, f.day, f.hour, f.minute, f.second, getMicroSecondPart());
    return s;
}

ZError ZTimeUs::setString(const ZString& text) {
    if (text == "clear" || text == "first") {
        microSeconds = 0;
        return ZError();
    }
    Parsed p;
    ZError err = parseWhole(text, p);
    if (err)
        return err;
    if (p.timeOnly) {
        uint64_t s = getSeconds();
        s = s - s % 86400u + p.hour * 3600u + p.minute * 60u + p.second;
        microSeconds = s * 1000000u;
    } else if (p.ydayForm) {
        setYearDay(int(p.year), int(p.day) - 1, int(p.hour), int(p.minute), int(p.second));
    } else {
        set(int(p.year), int(p.month), int(p.day), int(p.hour), int(p.minute), int(p.second));
    }
    return ZError();
}
