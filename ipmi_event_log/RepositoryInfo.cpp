#include "RepositoryInfo.h"

#include "CommandExchange.h"
#include "IpmiException.h"
#include "ipmi/ByteReader.h"

namespace Tolmar {

namespace {

constexpr unsigned char kGetSdrRepositoryInfo = 0x20;
constexpr unsigned char kGetSelInfo = 0x40;
// Both answers: version, record count (2), free space (2), most recent addition (4), most recent
// erase (4), operation support, whose bit 7 is the overflow flag.
constexpr std::size_t kInfoLength = 14;
constexpr unsigned char kOverflowFlag = 0x80;

}  // namespace

bool RepositoryInfo::sel(RepositoryStamps& stamps, SelSpace& space) {
    return read(kGetSelInfo, stamps, space);
}

bool RepositoryInfo::sdrRepository(RepositoryStamps& stamps) {
    SelSpace unused;
    return read(kGetSdrRepositoryInfo, stamps, unused);
}

bool RepositoryInfo::read(unsigned char command, RepositoryStamps& stamps, SelSpace& space) {
    try {
        const CommandResponse response = exchange(client_, kNetFnStorage, command, {});
        if (!response.succeeded(kInfoLength)) return false;
        ByteReader info(response.data, 1);  // after the version
        stamps.records = info.u16();
        space.freeBytes = info.u16();
        stamps.lastAddition = info.u32();
        stamps.lastErase = info.u32();
        space.overflow = (info.u8() & kOverflowFlag) != 0;
        return true;
    } catch (const IpmiException&) {
        return false;
    }
}

}  // namespace Tolmar
