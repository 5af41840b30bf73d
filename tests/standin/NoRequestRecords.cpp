// The stand-in platform keeps no record of the requests its clients send.
#include "RequestRecords.h"

namespace sim {

void recordRequestSent(const IpmiCommandRequest&) {}

void recordRequestAnswered(const IpmiCommandRequest&, int, unsigned char) {}

}  // namespace sim
