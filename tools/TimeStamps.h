// Time stamps between the library's text ("MM/DD/YYYY hh:mm:ss", UTC) and what people type.
#pragma once

#include <ctime>
#include <optional>
#include <string>

namespace tool {

// The moment of a library time stamp; nothing for "Unspecified".
std::optional<std::time_t> parseEventTime(const std::string& text);
// "YYYY-MM-DD", "YYYY-MM-DD HH:MM" or "YYYY-MM-DD HH:MM:SS", in UTC. Throws UsageError.
std::time_t parseUserTime(const std::string& text);
// The library's format, in this machine's local time.
std::string localTimeText(std::time_t moment);

}  // namespace tool
