#include "RepositoryInfo.h"

#include "CommandExchange.h"
#include "IpmiException.h"

namespace Tolmar {

namespace {

constexpr unsigned char kGetSdrRepositoryInfo = 0x20;
constexpr unsigned char kGetSelInfo = 0x40;
// Both answers: version, record count (2), free space (2), most recent addition (4), most recent
// erase (4), operation support; time stamps least significant byte first.
constexpr std::size_t kInfoLength = 14;
constexpr std::size_t kRecordsAt = 1;
constexpr std::size_t kLastAdditionAt = 5;
constexpr std::size_t kLastEraseAt = 9;

// The `size`-byte number at `at`, least significant byte first.
std::uint32_t littleEndian(const std::vector<unsigned char>& bytes, std::size_t at,
                           std::size_t size) {
    std::uint32_t value = 0;
    for (std::size_t i = size; i-- > 0;) value = value << 8 | bytes[at + i];
    return value;
}

}  // namespace

bool RepositoryInfo::sel(RepositoryStamps& stamps) { return stampsOf(kGetSelInfo, stamps); }

bool RepositoryInfo::sdrRepository(RepositoryStamps& stamps) {
    return stampsOf(kGetSdrRepositoryInfo, stamps);
}

bool RepositoryInfo::stampsOf(unsigned char command, RepositoryStamps& stamps) {
    try {
        const CommandResponse response = exchange(client_, kNetFnStorage, command, {});
        if (!response.succeeded(kInfoLength)) return false;
        stamps.lastAddition = littleEndian(response.data, kLastAdditionAt, 4);
        stamps.lastErase = littleEndian(response.data, kLastEraseAt, 4);
        stamps.records = static_cast<std::uint16_t>(littleEndian(response.data, kRecordsAt, 2));
        return true;
    } catch (const IpmiException&) {
        return false;
    }
}

}  // namespace Tolmar
