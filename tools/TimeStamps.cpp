#include "TimeStamps.h"

#include <cstdio>

#include "Options.h"

namespace tool {

std::optional<std::time_t> parseEventTime(const std::string& text) {
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

std::time_t parseUserTime(const std::string& text) {
    std::tm utc{};
    char end = 0;
    const int fields =
        std::sscanf(text.c_str(), "%4d-%2d-%2d %2d:%2d:%2d%c", &utc.tm_year, &utc.tm_mon,
                    &utc.tm_mday, &utc.tm_hour, &utc.tm_min, &utc.tm_sec, &end);
    if (fields != 3 && fields != 5 && fields != 6) {
        throw UsageError("time \"" + text + "\" is not YYYY-MM-DD[ HH:MM[:SS]]");
    }
    utc.tm_mon -= 1;
    utc.tm_year -= 1900;
    return timegm(&utc);
}

std::string localTimeText(std::time_t moment) {
    std::tm local{};
    localtime_r(&moment, &local);
    char text[80];  // room for any int the fields could hold
    std::snprintf(text, sizeof text, "%02d/%02d/%d %02d:%02d:%02d", local.tm_mon + 1, local.tm_mday,
                  local.tm_year + 1900, local.tm_hour, local.tm_min, local.tm_sec);
    return text;
}

}  // namespace tool
