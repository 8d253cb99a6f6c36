// Dates of certificates to seconds and seconds to text, without the system's calendar: its range
// ends in 2038 on some, and its zone is none of ours.
#include "net/x509/X509Time.h"

#include "base/DateTime.h"

namespace tv::x509 {
namespace {

constexpr int64_t kSecondsPerDay = 86400;

// Days from 1970-01-01 to a date of the proleptic Gregorian calendar. Years begin in March, so that
// the leap day comes last; 153 days are five months from March on, 146097 an era of 400 years, and
// 719468 lie between 0000-03-01 and 1970-01-01.
int64_t daysFromDate(int64_t year, int64_t month, int64_t day) {
    year -= month <= 2;
    const int64_t era = (year >= 0 ? year : year - 399) / 400;
    const int64_t yearOfEra = year - era * 400;
    const int64_t dayOfYear = (153 * (month + (month > 2 ? -3 : 9)) + 2) / 5 + day - 1;
    const int64_t dayOfEra = yearOfEra * 365 + yearOfEra / 4 - yearOfEra / 100 + dayOfYear;
    return era * 146097 + dayOfEra - 719468;
}

bool isLeap(int year) {
    return year % 4 == 0 && (year % 100 != 0 || year % 400 == 0);
}

int daysInMonth(int year, int month) {
    constexpr int kDays[] = {31, 28, 31, 30, 31, 30, 31, 31, 30, 31, 30, 31};
    return month == 2 && isLeap(year) ? 29 : kDays[month - 1];
}

// A number of exactly this many digits off the front; -1 where there is none.
int takeDigits(Bytes& text, size_t count) {
    if (text.size() < count) return -1;
    int value = 0;
    for (const uint8_t c : text.first(count)) {
        if (c < '0' || c > '9') return -1;
        value = value * 10 + (c - '0');
    }
    text = text.subspan(count);
    return value;
}

}  // namespace

bool parseTime(const DerItem& item, int64_t& seconds) {
    Bytes text = item.content;
    int year = -1;
    if (item.tag == der::kUtcTime) {
        year = takeDigits(text, 2);
        if (year >= 0) year += year < 50 ? 2000 : 1900;  // RFC 5280, 4.1.2.5.1
    } else if (item.tag == der::kGeneralizedTime) {
        year = takeDigits(text, 4);
    }
    const int month = takeDigits(text, 2);
    const int day = takeDigits(text, 2);
    const int hour = takeDigits(text, 2);
    const int minute = takeDigits(text, 2);
    const int second = takeDigits(text, 2);
    if (text.size() != 1 || text[0] != 'Z' || year < 0) return false;
    if (month < 1 || month > 12 || day < 1 || day > daysInMonth(year, month)) return false;
    if (hour < 0 || hour > 23 || minute < 0 || minute > 59 || second < 0 || second > 59) {
        return false;
    }
    const int secondOfDay = (hour * 60 + minute) * 60 + second;
    seconds = daysFromDate(year, month, day) * kSecondsPerDay + secondOfDay;
    return true;
}

std::string timeText(int64_t seconds) {
    int64_t days = seconds / kSecondsPerDay;
    int64_t rest = seconds % kSecondsPerDay;
    if (rest < 0) {
        rest += kSecondsPerDay;
        --days;
    }
    plat::CivilTime time;
    int& year = time.year;
    int& month = time.month;
    while (days < 0 || days >= (isLeap(year) ? 366 : 365)) {
        if (days < 0) {
            --year;
            days += isLeap(year) ? 366 : 365;
        } else {
            days -= isLeap(year) ? 366 : 365;
            ++year;
        }
    }
    while (days >= daysInMonth(year, month)) {
        days -= daysInMonth(year, month);
        ++month;
    }
    time.day = static_cast<int>(days + 1);
    time.hour = static_cast<int>(rest / 3600);
    time.minute = static_cast<int>(rest / 60 % 60);
    time.second = static_cast<int>(rest % 60);
    return utcDate(time);
}

}  // namespace tv::x509
