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

std::uint32_t littleEndian32(const std::vector<unsigned char>& bytes, std::size_t at) {
    return bytes[at] | bytes[at + 1] << 8 | bytes[at + 2] << 16 |
           static_cast<std::uint32_t>(bytes[at + 3]) << 24;
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
        stamps.lastAddition = littleEndian32(response.data, kLastAdditionAt);
        stamps.lastErase = littleEndian32(response.data, kLastEraseAt);
        stamps.records = static_cast<std::uint16_t>(response.data[kRecordsAt] |
                                                    response.data[kRecordsAt + 1] << 8);
        return true;
    } catch (const IpmiException&) {
        return false;
    }
}

}  // namespace Tolmar
