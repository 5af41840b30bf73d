#include "base/TimeText.h"

#include <cstdio>

namespace tool {

std::optional<std::time_t> parseMonthDayYear(const std::string& text) {
    std::tm utc{};
    char end = 0;
    if (std::sscanf(text.c_str(), "%2d/%2d/%4d %2d:%2d:%2d%c", &utc.tm_mon, &utc.tm_mday,
                    &utc.tm_year, &utc.tm_hour, &utc.tm_min, &utc.tm_sec, &end) != 6) {
        return std::nullopt;
    }
    utc.tm_mon -= 1;
    utc.tm_year -= 1900;
    return timegm(&utc);
}

std::string monthDayYearLocalText(std::time_t moment) {
    std::tm local{};
    localtime_r(&moment, &local);
    char text[80];  // room for any int the fields could hold
    std::snprintf(text, sizeof text, "%02d/%02d/%d %02d:%02d:%02d", local.tm_mon + 1, local.tm_mday,
                  local.tm_year + 1900, local.tm_hour, local.tm_min, local.tm_sec);
    return text;
}

namespace {

// `moment` in UTC as strftime's `format` (of at most 79 characters) writes it.
std::string utcText(std::time_t moment, const char* format) {
    std::tm utc{};
    gmtime_r(&moment, &utc);
    char text[80];
    std::strftime(text, sizeof text, format, &utc);
    return text;
}

}  // namespace

std::string isoUtcText(std::time_t moment) { return utcText(moment, "%Y-%m-%dT%H:%M:%SZ"); }

std::string utcTimeText(std::time_t moment) { return utcText(moment, "%Y-%m-%d %H:%M:%S UTC"); }

std::string zonedLocalTimeText(std::time_t moment) {
    std::tm fields{};
    localtime_r(&moment, &fields);
    char text[80];
    std::strftime(text, sizeof text, "%Y-%m-%d %H:%M:%S %Z", &fields);
    return text;
}

std::optional<std::time_t> parseDayTime(const std::string& text) {
    std::tm utc{};
    char end = 0;
    const int fields =
        std::sscanf(text.c_str(), "%4d-%2d-%2d %2d:%2d:%2d%c", &utc.tm_year, &utc.tm_mon,
                    &utc.tm_mday, &utc.tm_hour, &utc.tm_min, &utc.tm_sec, &end);
    if (fields != 3 && fields != 5 && fields != 6) return std::nullopt;
    utc.tm_mon -= 1;
    utc.tm_year -= 1900;
    return timegm(&utc);
}

}  // namespace tool
