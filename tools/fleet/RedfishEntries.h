// How a Redfish LogEntry is made an event of the tool: its Id, its time in UTC, its severity and
// message, its facts as the structured outputs name them, and an IPMI SEL record it carries worded
// as the IPMI source words it; with the few readings of Redfish's JSON the event source shares.
#pragma once

#include <array>
#include <cstdint>
#include <ctime>
#include <functional>
#include <nlohmann/json.hpp>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

#include "fleet/EventSource.h"

namespace tool {

// What an entry lacks or holds wrongly for it to be made an event.
class RedfishEntryError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

// "2024-02-29T12:00:00+02:00" (fractions of a second and "Z" allowed) as the UTC moment it names;
// nothing for another text, or a year before 1900 or after 2199.
std::optional<std::time_t> parseRedfishTime(const std::string& text);

// The text of a message `messageId` ("OpenBMC.0.1.DCPowerOn") names with `args` put in, from the
// messages this source knows; else "MessageId: arg, arg".
std::string redfishMessageText(const std::string& messageId, const std::vector<std::string>& args);

// What the making of an event may ask the service for; each may be left unset, and then the entry
// is taken as it is.
struct RedfishLookups {
    // The text of the message `messageId` names with `args` put in, from the service's message
    // registries; none where they do not have it.
    std::function<std::optional<std::string>(const std::string& messageId,
                                             const std::vector<std::string>& args)>
        message;
    // The 16 bytes of the IPMI SEL record the resource at `uri` (an entry's AdditionalDataURI)
    // holds; none where it holds anything else or cannot be read.
    std::function<std::optional<std::array<std::uint8_t, 16>>(const std::string& uri)> selRecord;
};

// A LogEntry of the log named `log` as an event of the source, its facts named as
// redfishEventColumns names them. Throws RedfishEntryError for an entry without an Id or with a
// member of the wrong type.
SourceEvent redfishEvent(const nlohmann::json& entry, const std::string& log,
                         const RedfishLookups& lookups = {});
const EventColumns& redfishEventColumns();

// The member `key` of `object` where it is text; `otherwise` where it is absent or of another type.
std::string redfishText(const nlohmann::json& object, const char* key,
                        const std::string& otherwise = "");
// A whole number of zero or more, as JSON's parser or a literal gives it; none for anything else.
std::optional<unsigned long> redfishWholeNumber(const nlohmann::json& value);
// The "@odata.id" of the link member `key` ({"@odata.id": "/redfish/v1/..."}); empty where there
// is none.
std::string redfishLink(const nlohmann::json& object, const char* key);
// "%N" placeholders of a message (N from 1, at most two digits) replaced by `args`; one naming no
// argument is kept as it is.
std::string substitutedArgs(const std::string& text, const std::vector<std::string>& args);
// The number an entry's Id names, where it is digits alone (at most 18): "42" but not "1700_1".
std::optional<unsigned long> redfishIdNumber(const std::string& id);
// An IPMI SEL record as a service serves it as a file: its 16 bytes, or its 32 hexadecimal
// digits as text (white space around them allowed); none for anything else.
std::optional<std::array<std::uint8_t, 16>> selRecordOfData(const std::string& data);

}  // namespace tool
