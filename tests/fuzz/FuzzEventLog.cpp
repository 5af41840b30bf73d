// GetAllIpmiEventLog against a BMC whose every answer comes from the fuzz input.
#include "FuzzedClient.h"
#include "IpmiEventLog.h"
#include "Log.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    Log::SetMinLogLevel(0);
    fuzz::Input input(data, size);
    fuzz::answerFrom(&input);
    Tolmar::IpmiEventLog log(Tolmar::TolmarConnection::ConnectionInfo{});
    std::vector<Tolmar::TolmarAgentless::IPMIEVENT> events;
    log.GetAllIpmiEventLog(events);
    fuzz::answerFrom(nullptr);
    return 0;
}
