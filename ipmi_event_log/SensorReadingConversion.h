// Raw sensor readings to values and units, by a full sensor record's conversion fields (IPMI v2.0
// section 36.3 and table 43-1).
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "IpmiSelDecoding.h"

namespace Tolmar {

// A full sensor record's factors: y = L[(M * x + B * 10^Bexp) * 10^Rexp].
struct ReadingConversion {
    enum class AnalogFormat { Unsigned, OnesComplement, TwosComplement };

    AnalogFormat format = AnalogFormat::Unsigned;
    std::uint8_t linearization = 0;  // byte 23 bits 6:0
    int m = 1;                       // 10-bit two's complement
    int b = 0;                       // 10-bit two's complement
    int bExponent = 0;               // 4-bit two's complement
    int rExponent = 0;               // 4-bit two's complement
    std::string units;

    // The value of `raw`; none for an OEM or reserved linearization, or outside the function's
    // domain (the logarithm of 0, 1/0).
    std::optional<SensorValue> convert(std::uint8_t raw) const;
};

// The conversion of full record `sdr`; none when its analog data format (byte 20 bits 7:6) is 11b,
// "no analog reading", or the record is too short.
std::optional<ReadingConversion> readingConversion(const std::vector<std::uint8_t>& sdr);

// The unit text of sensor units bytes 1-3 (full record bytes 20-22, compact record bytes 20-22).
std::string unitsText(std::uint8_t units1, std::uint8_t baseUnit, std::uint8_t modifierUnit);

}  // namespace Tolmar
