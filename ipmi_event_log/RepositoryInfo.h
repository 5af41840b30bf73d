// When the SEL and the SDR repository last changed, as Get SEL Info and Get SDR Repository Info
// tell (IPMI v2.0 sections 31.2 and 33.9): the time stamps of the most recent addition and the
// most recent erase, which a BMC updates whenever a record comes or goes, and the record count.
// The stamps count whole seconds, so a record added later in the second a poll read the
// repository leaves them as they were: the count still tells. Equal stamps and counts mean nothing
// to read again. Of the SEL, the answer also tells its free space and overflow flag.
#pragma once

#include <cstdint>

#include "IpmiClient.h"

namespace Tolmar {

struct RepositoryStamps {
    std::uint32_t lastAddition = 0;
    std::uint32_t lastErase = 0;
    std::uint16_t records = 0;

    bool operator==(const RepositoryStamps& other) const {
        return lastAddition == other.lastAddition && lastErase == other.lastErase &&
               records == other.records;
    }
    bool operator!=(const RepositoryStamps& other) const { return !(*this == other); }
};

// What Get SEL Info tells beside the stamps: how full the SEL is.
struct SelSpace {
    std::uint16_t freeBytes = 0;  // FFFFh: 65535 bytes or more
    bool overflow = false;        // the BMC dropped events for lack of space
};

class RepositoryInfo {
public:
    explicit RepositoryInfo(IpmiClient& client) : client_(client) {}

    // False when the BMC gave no answer to take (no answer, an error, a short answer).
    bool sel(RepositoryStamps& stamps, SelSpace& space);
    bool sdrRepository(RepositoryStamps& stamps);

private:
    // Both answers share a layout; the SDR repository's free space and flags are not kept.
    bool read(unsigned char command, RepositoryStamps& stamps, SelSpace& space);

    IpmiClient& client_;
};

}  // namespace Tolmar
