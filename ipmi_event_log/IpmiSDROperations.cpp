#include "IpmiSDROperations.h"

#include "CommandExchange.h"

namespace Tolmar {

namespace {

constexpr unsigned char kReserveSdrRepository = 0x22;  // IPMI v2.0 section 33.11

}  // namespace

IpmiSDROperations::IpmiSDROperations(IpmiClient& client) : client_(client) {}

bool IpmiSDROperations::reservationSDR(unsigned char& low, unsigned char& high) {
    return reserve(client_, kReserveSdrRepository, low, high);
}

}  // namespace Tolmar
