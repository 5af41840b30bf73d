// Moments in the texts the tool reads and writes.
#pragma once

#include <ctime>
#include <optional>
#include <string>

namespace tool {

// "MM/DD/YYYY hh:mm:ss", in UTC; nothing for another text ("Unspecified").
std::optional<std::time_t> parseMonthDayYear(const std::string& text);
// The same format, in this machine's local time.
std::string monthDayYearLocalText(std::time_t moment);
// "2022-12-14T13:40:44Z": ISO 8601 (RFC 3339), UTC, to the second.
std::string isoUtcText(std::time_t moment);
// "2022-12-14 13:40:44 UTC": as the tool's tables show a moment in UTC.
std::string utcTimeText(std::time_t moment);
// "2022-12-14 14:40:44 CET": this machine's local time and its zone's abbreviation.
std::string zonedLocalTimeText(std::time_t moment);
// "YYYY-MM-DD", "YYYY-MM-DD HH:MM" or "YYYY-MM-DD HH:MM:SS", in UTC; nothing for another text.
std::optional<std::time_t> parseDayTime(const std::string& text);

}  // namespace tool
