// When the SEL and the SDR repository last changed, as Get SEL Info and Get SDR Repository Info
// tell (IPMI v2.0 sections 31.2 and 33.9): the time stamps of the most recent addition and the
// most recent erase, which a BMC updates whenever a record comes or goes, and the record count.
// The stamps count whole seconds, so a record added later in the second a poll read the
// repository leaves them as they were: the count still tells. Equal stamps and counts mean nothing
// to read again.
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

class RepositoryInfo {
public:
    explicit RepositoryInfo(IpmiClient& client) : client_(client) {}

    // False when the BMC gave no stamps (no answer, an error, a short answer).
    bool sel(RepositoryStamps& stamps);
    bool sdrRepository(RepositoryStamps& stamps);

private:
    bool stampsOf(unsigned char command, RepositoryStamps& stamps);

    IpmiClient& client_;
};

}  // namespace Tolmar
