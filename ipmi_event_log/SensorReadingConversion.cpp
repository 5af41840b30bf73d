#include "SensorReadingConversion.h"

#include <cmath>

#include "ipmi/ByteReader.h"

namespace Tolmar {

namespace {

// Full sensor record (IPMI v2.0 table 43-1), offsets from the record's first byte.
// Sensor units 1, base unit, modifier unit, then linearization (23), M, B, accuracy, exponents.
constexpr std::size_t kUnitsOffset = 20;
constexpr std::uint8_t kLinearizationMask = 0x7F;
constexpr unsigned kAnalogFormatShift = 6;
constexpr std::uint8_t kNoAnalogReading = 3;

// Unit type codes (IPMI v2.0 table 43-15), as ipmitool names them.
const char* const kUnitNames[] = {"unspecified",
                                  "degrees C",
                                  "degrees F",
                                  "degrees K",
                                  "Volts",
                                  "Amps",
                                  "Watts",
                                  "Joules",
                                  "Coulombs",
                                  "VA",
                                  "Nits",
                                  "lumen",
                                  "lux",
                                  "Candela",
                                  "kPa",
                                  "PSI",
                                  "Newton",
                                  "CFM",
                                  "RPM",
                                  "Hz",
                                  "microsecond",
                                  "millisecond",
                                  "second",
                                  "minute",
                                  "hour",
                                  "day",
                                  "week",
                                  "mil",
                                  "inches",
                                  "feet",
                                  "cu in",
                                  "cu feet",
                                  "mm",
                                  "cm",
                                  "m",
                                  "cu cm",
                                  "cu m",
                                  "liters",
                                  "fluid ounce",
                                  "radians",
                                  "steradians",
                                  "revolutions",
                                  "cycles",
                                  "gravities",
                                  "ounce",
                                  "pound",
                                  "ft-lb",
                                  "oz-in",
                                  "gauss",
                                  "gilberts",
                                  "henry",
                                  "millihenry",
                                  "farad",
                                  "microfarad",
                                  "ohms",
                                  "siemens",
                                  "mole",
                                  "becquerel",
                                  "PPM",
                                  "reserved",
                                  "Decibels",
                                  "DbA",
                                  "DbC",
                                  "gray",
                                  "sievert",
                                  "color temp deg K",
                                  "bit",
                                  "kilobit",
                                  "megabit",
                                  "gigabit",
                                  "byte",
                                  "kilobyte",
                                  "megabyte",
                                  "gigabyte",
                                  "word",
                                  "dword",
                                  "qword",
                                  "line",
                                  "hit",
                                  "miss",
                                  "retry",
                                  "reset",
                                  "overflow",
                                  "underrun",
                                  "collision",
                                  "packets",
                                  "messages",
                                  "characters",
                                  "error",
                                  "correctable error",
                                  "uncorrectable error",
                                  "fatal error",
                                  "grams"};

// Rate units, sensor units 1 bits 5:3: none, per microsecond ... per day; 7 is reserved.
const char* const kRateNames[] = {"", "us", "ms", "s", "minute", "hour", "day", ""};

// Sensor units 1 bits 2:1: how the modifier unit combines with the base unit.
enum ModifierUse : std::uint8_t { kNoModifier = 0, kDividedBy = 1, kTimes = 2 };

std::string unitName(std::uint8_t code) {
    constexpr std::size_t count = sizeof kUnitNames / sizeof kUnitNames[0];
    return code < count ? kUnitNames[code] : "unknown";
}

// `value`'s low `bits` bits as a two's complement number.
int signExtend(unsigned value, unsigned bits) {
    const unsigned sign = 1u << (bits - 1);
    value &= (1u << bits) - 1;
    return static_cast<int>(value ^ sign) - static_cast<int>(sign);
}

double rawValue(ReadingConversion::AnalogFormat format, std::uint8_t raw) {
    switch (format) {
        case ReadingConversion::AnalogFormat::OnesComplement:
            return raw & 0x80 ? -static_cast<double>(static_cast<std::uint8_t>(~raw)) : raw;
        case ReadingConversion::AnalogFormat::TwosComplement:
            return static_cast<std::int8_t>(raw);
        default:
            return raw;
    }
}

// The linearization functions of table 43-1 (byte 24): 00h linear to 0Bh cube root. 70h-7Fh are
// OEM non-linear curves, only the maker's software knows them, and the rest are reserved.
std::optional<double> linearize(std::uint8_t function, double x) {
    switch (function) {
        case 0x00:
            return x;
        case 0x01:
            return x > 0 ? std::optional<double>(std::log(x)) : std::nullopt;
        case 0x02:
            return x > 0 ? std::optional<double>(std::log10(x)) : std::nullopt;
        case 0x03:
            return x > 0 ? std::optional<double>(std::log2(x)) : std::nullopt;
        case 0x04:
            return std::exp(x);
        case 0x05:
            return std::pow(10.0, x);
        case 0x06:
            return std::exp2(x);
        case 0x07:
            return x != 0 ? std::optional<double>(1.0 / x) : std::nullopt;
        case 0x08:
            return x * x;
        case 0x09:
            return x * x * x;
        case 0x0A:
            return x >= 0 ? std::optional<double>(std::sqrt(x)) : std::nullopt;
        case 0x0B:
            return std::cbrt(x);
        default:
            return std::nullopt;
    }
}

}  // namespace

std::optional<SensorValue> ReadingConversion::convert(std::uint8_t raw) const {
    const double x = rawValue(format, raw);
    const double linear = (m * x + b * std::pow(10.0, bExponent)) * std::pow(10.0, rExponent);
    const std::optional<double> value = linearize(linearization, linear);
    if (!value || !std::isfinite(*value)) return std::nullopt;
    return SensorValue{*value, units};
}

std::optional<ReadingConversion> readingConversion(const std::vector<std::uint8_t>& sdr) {
    ByteReader reader(sdr, kUnitsOffset);
    const std::uint8_t units1 = reader.u8();
    const std::uint8_t baseUnit = reader.u8();
    const std::uint8_t modifierUnit = reader.u8();
    const std::uint8_t linearization = reader.u8() & kLinearizationMask;
    // M and B: 8 low bits, then 2 high bits in bits 7:6 of the next byte (tolerance and
    // accuracy share those bytes).
    const std::uint8_t mLow = reader.u8();
    const std::uint8_t mHigh = reader.u8();
    const std::uint8_t bLow = reader.u8();
    const std::uint8_t bHigh = reader.u8();
    reader.skip(1);  // accuracy and its exponent
    const std::uint8_t exponents = reader.u8();
    const std::uint8_t format = units1 >> kAnalogFormatShift;
    if (!reader.ok() || format == kNoAnalogReading) return std::nullopt;

    ReadingConversion conversion;
    conversion.format = static_cast<ReadingConversion::AnalogFormat>(format);
    conversion.linearization = linearization;
    conversion.m = signExtend(mLow | (mHigh >> 6) << 8, 10);
    conversion.b = signExtend(bLow | (bHigh >> 6) << 8, 10);
    conversion.rExponent = signExtend(exponents >> 4, 4);
    conversion.bExponent = signExtend(exponents & 0x0F, 4);
    conversion.units = unitsText(units1, baseUnit, modifierUnit);
    return conversion;
}

std::string unitsText(std::uint8_t units1, std::uint8_t baseUnit, std::uint8_t modifierUnit) {
    const bool percentage = units1 & 0x01;
    const std::uint8_t rate = (units1 >> 3) & 0x07;
    const std::uint8_t modifierUse = (units1 >> 1) & 0x03;
    std::string text = percentage ? "% " : "";
    text += unitName(baseUnit);
    if (modifierUse == kDividedBy) text += " per " + unitName(modifierUnit);
    if (modifierUse == kTimes) text += " * " + unitName(modifierUnit);
    if (*kRateNames[rate] != '\0') text += std::string(" per ") + kRateNames[rate];
    return text;
}

}  // namespace Tolmar
