// The SDR repository commands of the Storage network function, over one connected client.
#pragma once

#include "IpmiClient.h"

namespace Tolmar {

class IpmiSDROperations {
public:
    explicit IpmiSDROperations(IpmiClient& client);

    // Reserve SDR Repository. False on any failure; nothing is thrown to the caller.
    bool reservationSDR(unsigned char& low, unsigned char& high);

private:
    IpmiClient& client_;
};

}  // namespace Tolmar
