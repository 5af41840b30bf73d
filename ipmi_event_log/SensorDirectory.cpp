#include "SensorDirectory.h"

#include <algorithm>
#include <utility>

#include "SdrIdString.h"
#include "ipmi/ByteReader.h"

namespace Tolmar {

namespace {

// Record types (IPMI v2.0 section 43).
constexpr std::uint8_t kFullSensorRecord = 0x01;
constexpr std::uint8_t kCompactSensorRecord = 0x02;
constexpr std::uint8_t kEventOnlyRecord = 0x03;

// Offsets from a record's first byte, its 5-byte header included (tables 43-1, 43-2 and 43-3).
constexpr std::size_t kRecordTypeOffset = 3;
constexpr std::size_t kOwnerIdOffset = 5;  // then owner LUN/channel, sensor number
constexpr std::size_t kFullIdStringOffset = 47;
constexpr std::size_t kCompactSharingOffset = 23;
constexpr std::size_t kCompactIdStringOffset = 31;
constexpr std::size_t kEventOnlySharingOffset = 12;
constexpr std::size_t kEventOnlyIdStringOffset = 16;

// Owner LUN byte and generator ID byte 2: bits 7:4 channel, bits 1:0 LUN.
constexpr std::uint8_t kLunMask = 0x03;
constexpr unsigned kChannelShift = 4;
// Record sharing, first byte: bits 5:4 ID string instance modifier type, bits 3:0 share count;
// second byte: bits 6:0 instance modifier offset.
constexpr std::uint8_t kShareCountMask = 0x0F;
constexpr std::uint8_t kAlphaModifier = 0x10;
constexpr std::uint8_t kModifierOffsetMask = 0x7F;
constexpr unsigned kLetters = 26;

}  // namespace

SensorDirectory::SensorDirectory(const std::vector<std::vector<std::uint8_t>>& sdrs) {
    for (const auto& sdr : sdrs) {
        if (std::optional<Entry> entry = parse(sdr)) entries_.push_back(std::move(*entry));
    }
}

std::optional<SensorDirectory::Entry> SensorDirectory::parse(const std::vector<std::uint8_t>& sdr) {
    ByteReader header(sdr, kRecordTypeOffset);
    const std::uint8_t type = header.u8();
    ByteReader key(sdr, kOwnerIdOffset);
    Entry entry{};
    entry.ownerId = key.u8();
    const std::uint8_t lunChannel = key.u8();
    entry.firstNumber = key.u8();
    entry.lun = lunChannel & kLunMask;
    entry.channel = lunChannel >> kChannelShift;
    entry.count = 1;
    if (!header.ok() || !key.ok()) return std::nullopt;

    std::size_t idStringOffset = kFullIdStringOffset;
    if (type == kFullSensorRecord) {
        entry.conversion = readingConversion(sdr);
    } else if (type == kCompactSensorRecord || type == kEventOnlyRecord) {
        const bool compact = type == kCompactSensorRecord;
        ByteReader sharing(sdr, compact ? kCompactSharingOffset : kEventOnlySharingOffset);
        const std::uint8_t countByte = sharing.u8();
        const std::uint8_t modifierByte = sharing.u8();
        if (!sharing.ok()) return std::nullopt;
        // A share count of 0 means one sensor, as 1 does.
        entry.count = std::max<std::uint8_t>(countByte & kShareCountMask, 1);
        entry.alphaModifier = countByte & kAlphaModifier;
        entry.modifierOffset = modifierByte & kModifierOffsetMask;
        idStringOffset = compact ? kCompactIdStringOffset : kEventOnlyIdStringOffset;
    } else {
        return std::nullopt;
    }
    entry.name = sdrIdString(sdr, idStringOffset);
    return entry;
}

std::optional<SensorIdentity> SensorDirectory::find(std::uint16_t generatorId,
                                                    std::uint8_t sensorNumber) const {
    const std::uint8_t ownerId = generatorId & 0xFF;
    const std::uint8_t lunChannel = generatorId >> 8;
    for (const Entry& entry : entries_) {
        const bool sameOwner = entry.ownerId == ownerId && entry.lun == (lunChannel & kLunMask) &&
                               entry.channel == lunChannel >> kChannelShift;
        const unsigned instance = static_cast<unsigned>(sensorNumber - entry.firstNumber);
        if (!sameOwner || sensorNumber < entry.firstNumber || instance >= entry.count) continue;
        return SensorIdentity{instanceName(entry, instance), entry.conversion};
    }
    return std::nullopt;
}

// A shared record's sensors are told apart by a suffix: the modifier offset plus the instance,
// as a decimal number or as letters (0 "A", 25 "Z", 26 "AA").
std::string SensorDirectory::instanceName(const Entry& entry, unsigned instance) {
    if (entry.count == 1) return entry.name;
    unsigned modifier = entry.modifierOffset + instance;
    if (!entry.alphaModifier) return entry.name + std::to_string(modifier);
    std::string letters;
    do {
        letters.insert(letters.begin(), static_cast<char>('A' + modifier % kLetters));
        modifier = modifier / kLetters;
    } while (modifier-- > 0);
    return entry.name + letters;
}

}  // namespace Tolmar
