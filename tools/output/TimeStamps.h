// Time stamps between the library's text ("MM/DD/YYYY hh:mm:ss", UTC), a SEL record's own time
// stamp and what people type.
#pragma once

#include <IpmiSelDecoding.h>

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

// The moment a record's time stamp names; nothing for one that is unspecified or counts from the
// BMC's initialisation (or a record without a time stamp).
std::optional<std::time_t> absoluteTime(const Tolmar::DecodedSelRecord& record);
// "2022-12-14T13:40:44Z": ISO 8601 (RFC 3339), UTC, to the second.
std::string isoUtcText(std::time_t moment);
// A record's time stamp as the IPMI rendering shows it: "2022-12-14 13:40:44 UTC" (in local time
// with its zone's abbreviation, "2022-12-14 14:40:44 CET", when `localTime`), "PreInit +5s" for
// seconds since the BMC's initialisation, "Unspecified" for none.
std::string recordTimeText(const Tolmar::DecodedSelRecord& record, bool localTime);

}  // namespace tool
