// Dates out of a civil time; the words are English in every locale.
#include "base/DateTime.h"

#include <algorithm>
#include <cstdlib>

namespace tv {
namespace {

void append(std::string_view before, int number, size_t leastDigits, std::string& out) {
    const std::string digits = std::to_string(number);
    out += before;
    out.append(leastDigits - std::min(leastDigits, digits.size()), '0');
    out += digits;
}

// The date; the time of the day behind some text; the offset from UTC with some text in its middle.
void appendDay(const plat::CivilTime& time, std::string& out) {
    append("", time.year, 4, out);
    append("-", time.month, 2, out);
    append("-", time.day, 2, out);
}

void appendClock(std::string_view before, const plat::CivilTime& time, std::string& out) {
    append(before, time.hour, 2, out);
    append(":", time.minute, 2, out);
    append(":", time.second, 2, out);
}

void appendOffset(const plat::CivilTime& time, std::string_view middle, std::string& out) {
    const int offset = std::abs(time.utcOffsetMinutes);
    append(time.utcOffsetMinutes < 0 ? "-" : "+", offset / 60, 2, out);
    append(middle, offset % 60, 2, out);
}

}  // namespace

std::string mailDate(const plat::CivilTime& time) {
    constexpr std::string_view kDays = "SunMonTueWedThuFriSat";
    constexpr std::string_view kMonths = "JanFebMarAprMayJunJulAugSepOctNovDec";
    const size_t day = static_cast<unsigned>(time.weekday) % 7;
    const size_t month = static_cast<unsigned>(time.month - 1) % 12;
    std::string out;
    out.reserve(31);  // what a date takes in a year of four digits
    out += kDays.substr(3 * day, 3);
    append(", ", time.day, 2, out);
    out += ' ';
    out += kMonths.substr(3 * month, 3);
    append(" ", time.year, 4, out);
    appendClock(" ", time, out);
    out += ' ';
    appendOffset(time, "", out);
    return out;
}

std::string logDate(const plat::CivilTime& time) {
    std::string out;
    appendDay(time, out);
    appendClock("T", time, out);
    appendOffset(time, ":", out);
    return out;
}

std::string utcDate(const plat::CivilTime& time) {
    std::string out;
    appendDay(time, out);
    appendClock(" ", time, out);
    out += " UTC";
    return out;
}

}  // namespace tv
