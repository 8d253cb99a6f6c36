// The date of a message header out of a civil time; the words are English in every locale.
#include "base/DateTime.h"

#include <cstdio>
#include <cstdlib>

namespace tv {

std::string mailDate(const plat::CivilTime& time) {
    static constexpr char kDays[] = "SunMonTueWedThuFriSat";
    static constexpr char kMonths[] = "JanFebMarAprMayJunJulAugSepOctNovDec";
    const size_t day = static_cast<unsigned>(time.weekday) % 7;
    const size_t month = static_cast<unsigned>(time.month - 1) % 12;
    const int offset = std::abs(time.utcOffsetMinutes);
    // A date takes 31 characters. The rest is for fields as wide as an int, so that no value from
    // the system's clock can be cut off.
    char text[96];
    std::snprintf(text, sizeof text, "%.3s, %02d %.3s %04d %02d:%02d:%02d %c%02d%02d",
                  kDays + 3 * day, time.day, kMonths + 3 * month, time.year, time.hour, time.minute,
                  time.second, time.utcOffsetMinutes < 0 ? '-' : '+', offset / 60, offset % 60);
    return text;
}

}  // namespace tv
