// The sensors an SDR repository describes, found by the generator and sensor number of an event
// (IPMI v2.0 sections 43.1-43.3).
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "SensorReadingConversion.h"

namespace Tolmar {

// A sensor as its SDR names it.
struct SensorIdentity {
    std::string name;
    // Full records with an analog reading format only.
    std::optional<ReadingConversion> conversion;
};

class SensorDirectory {
public:
    // Full (01h), compact (02h) and event-only (03h) records; other and short records are
    // skipped.
    explicit SensorDirectory(const std::vector<std::vector<std::uint8_t>>& sdrs);

    // The sensor whose owner (ID, LUN, channel) is the event's generator, SEL record bytes 7-8,
    // and whose number (or shared range of numbers) holds `sensorNumber`.
    std::optional<SensorIdentity> find(std::uint16_t generatorId, std::uint8_t sensorNumber) const;

private:
    struct Entry {
        std::uint8_t ownerId;  // bit 0: 0 an IPMB slave address, 1 a system software ID
        std::uint8_t lun;
        std::uint8_t channel;
        std::uint8_t firstNumber;
        std::uint8_t count;  // sensors sharing the record, numbered upwards
        bool alphaModifier;  // instance modifier type: numeric or alphabetic
        std::uint8_t modifierOffset;
        std::string name;
        std::optional<ReadingConversion> conversion;
    };

    static std::optional<Entry> parse(const std::vector<std::uint8_t>& sdr);
    static std::string instanceName(const Entry& entry, unsigned instance);

    std::vector<Entry> entries_;
};

}  // namespace Tolmar
