#include "RepositoryInfo.h"

#include "ByteReader.h"
#include "CommandExchange.h"
#include "IpmiException.h"

namespace Tolmar {

namespace {

constexpr unsigned char kGetSdrRepositoryInfo = 0x20;
constexpr unsigned char kGetSelInfo = 0x40;
// Both answers: version, record count (2), free space (2), most recent addition (4), most recent
// erase (4), operation support.
constexpr std::size_t kInfoLength = 14;

}  // namespace

bool RepositoryInfo::sel(RepositoryStamps& stamps) { return stampsOf(kGetSelInfo, stamps); }

bool RepositoryInfo::sdrRepository(RepositoryStamps& stamps) {
    return stampsOf(kGetSdrRepositoryInfo, stamps);
}

bool RepositoryInfo::stampsOf(unsigned char command, RepositoryStamps& stamps) {
    try {
        const CommandResponse response = exchange(client_, kNetFnStorage, command, {});
        if (!response.succeeded(kInfoLength)) return false;
        ByteReader info(response.data, 1);  // after the version
        stamps.records = info.u16();
        info.skip(2);  // free space
        stamps.lastAddition = info.u32();
        stamps.lastErase = info.u32();
        return true;
    } catch (const IpmiException&) {
        return false;
    }
}

}  // namespace Tolmar
