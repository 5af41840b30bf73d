/**
 * @file IpmiSelDecoding.h
 * @brief What the 16 bytes of a SEL record mean in IPMI v2.0, as `ipmi-sel -vv` and
 * `ipmitool sel get` show them.
 *
 * Pure decoding: the bytes of one record and the SDR repository in, a structured event out. No
 * BMC is asked anything, so records read earlier (or canned in tests) decode the same way.
 * This rendering stands beside the library's own event text (IpmiEventLog) and does not change it.
 */
#pragma once

#include <array>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace Tolmar {

class SensorDirectory;

/// A reading or threshold converted by its sensor's SDR (IPMI v2.0 section 36.3).
struct SensorValue {
    double value = 0.0;
    /// The unit as ipmitool prints it: "Volts", "degrees C", "RPM"; "% " before a percentage;
    /// a modifier unit as "Watts per hour" (base per modifier) or "Amps * Volts" (base times
    /// modifier); a rate unit after it, "RPM per minute".
    std::string units;
};

/// One SEL record in IPMI v2.0 terms (section 32, tables 32-1 to 32-3 and 29-6).
struct DecodedSelRecord {
    /// The record type's class (byte 2).
    enum class Kind {
        SystemEvent,        ///< 02h
        TimestampedOem,     ///< C0h-DFh
        NonTimestampedOem,  ///< E0h-FFh
        Unknown             ///< any other type
    };
    /// What the time stamp (bytes 3-6) means.
    enum class Time {
        Unspecified,  ///< FFFFFFFFh, or a record type without a time stamp
        PreInit,      ///< 00000000h-20000000h: seconds since the BMC's initialisation
        Absolute      ///< seconds since 1970-01-01 00:00:00 UTC
    };

    std::uint16_t recordId = 0;   ///< bytes 0-1, least significant byte first
    std::uint8_t recordType = 0;  ///< byte 2
    Kind kind = Kind::Unknown;
    Time time = Time::Unspecified;
    std::uint32_t timestamp = 0xFFFFFFFF;  ///< bytes 3-6; FFFFFFFFh where there is none

    // System event records (Kind::SystemEvent) only; zero or empty otherwise.
    std::uint16_t generatorId = 0;  ///< bytes 7-8, least significant byte first
    std::uint8_t sensorType = 0;    ///< byte 10
    std::string sensorTypeName;     ///< IPMI v2.0 table 42-3
    std::uint8_t sensorNumber = 0;  ///< byte 11
    /// The ID string of the sensor's SDR (instance modifier included for shared records), when
    /// the repository holds one for this generator and sensor number.
    std::optional<std::string> sensorName;
    std::uint8_t eventType = 0;               ///< event/reading type code, byte 12 bits 6:0
    bool assertion = true;                    ///< byte 12 bit 7 clear
    std::uint8_t offset = 0;                  ///< event data 1 bits 3:0
    std::array<std::uint8_t, 3> eventData{};  ///< bytes 13-15
    /// The offset's text: a threshold crossing ("Upper Critical going high"), a generic state
    /// (IPMI v2.0 table 42-2) or a sensor-specific one (table 42-3); OEM and unspecified
    /// offsets say so.
    std::string event;
    /// Event data 2 and 3 in words, where table 29-6 or 42-3 gives them a meaning: previous state
    /// and severity, OEM codes, memory module, user and channel, ...; OEM codes in the layout of
    /// the BMC's manufacturer when the decoder knows it (BmcIdentity). For OEM records, what the
    /// OEM bytes say where their layout is public (Linux's kernel panic record, F0h).
    std::vector<std::string> details;
    /// For threshold events whose event data 1 says that byte 2 holds the trigger reading and
    /// byte 3 the trigger threshold, converted when the sensor's full SDR gives readings.
    std::optional<SensorValue> reading;
    std::optional<SensorValue> threshold;

    // OEM and unknown records only; zero or empty otherwise.
    /// Bytes 7-9 of a timestamped OEM record, least significant byte first.
    std::uint32_t manufacturerId = 0;
    /// The IANA enterprise's name, for the well-known numbers.
    std::optional<std::string> manufacturer;
    /// Timestamped OEM: bytes 10-15; non-timestamped OEM and unknown types: bytes 3-15.
    std::vector<std::uint8_t> oemData;

    /// What the record comes from, for a person: the sensor's type and name ("Voltage SYS_12V",
    /// or "Voltage #0x30" without an SDR), "OEM record DFh", "Unknown record type 05h".
    std::string source;
    /// What happened, for a person: the offset's text, assertion and details of a system event
    /// ("Upper Critical going high | Asserted | Trigger reading = 10.16 Volts ; ..."); the
    /// manufacturer and OEM bytes of an OEM record, then its details.
    std::string description;
    /// One line for a person, like ipmi-sel's: the time stamp (UTC), source and description.
    std::string message;
};

/// A record's time stamp for a person: "2022-12-14 13:40:44 UTC", "PreInit +256s" (seconds after
/// the BMC's initialisation) or "Unspecified".
std::string selTimeText(const DecodedSelRecord& record);

/// The BMC a SEL comes from, as Get Device ID (IPMI v2.0 section 20.1) names it. A system event's
/// OEM codes (event data 1 bits 7:6 or 5:4 10b) and OEM sensor types (C0h-FFh) mean what the
/// BMC's manufacturer says they do; the decoder reads those of Dell (674), Intel (343) and
/// Supermicro (10876; also 47488, 10437 and 5593, which its BMCs answer with) in their layouts.
struct BmcIdentity {
    std::uint32_t manufacturerId = 0;  ///< IANA enterprise number, response bytes 8-10 (20 bits)
    std::uint16_t productId = 0;       ///< response bytes 11-12, least significant byte first
};

/// Decodes SEL records against one BMC's SDR repository.
class SelDecoder {
public:
    /// `sdrs`: the repository's records, each whole (its 5-byte header included). Records other
    /// than full (01h), compact (02h) and event-only (03h) sensor records, and records too short
    /// for their fields, are ignored. OEM codes of system events are given as numbers.
    explicit SelDecoder(std::vector<std::vector<std::uint8_t>> sdrs);
    /// The same, for a BMC known by Get Device ID: OEM codes of its manufacturer are given in
    /// words where its layout is known, as numbers otherwise.
    SelDecoder(std::vector<std::vector<std::uint8_t>> sdrs, BmcIdentity bmc);

    /// `record`: the 16 bytes Get SEL Entry returns after the next record ID.
    DecodedSelRecord decode(const std::array<std::uint8_t, 16>& record) const;

private:
    // The repository's sensor records, parsed once; shared by copies of the decoder.
    std::shared_ptr<const SensorDirectory> sensors_;
    std::optional<BmcIdentity> bmc_;
};

}  // namespace Tolmar
