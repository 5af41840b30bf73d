// A program of the management framework's kind, built against the installed library: it reads the
// decoded event log of the BMC named by BMC_HOST, BMC_PORT, BMC_USER and IPMI_PASSWORD.
#include <IpmiEventLog.h>

#include <cstdio>
#include <cstdlib>
#include <vector>

int main() {
    Tolmar::TolmarConnection::ConnectionInfo info;
    info.connectionType = 1;
    info.ip = std::getenv("BMC_HOST") ? std::getenv("BMC_HOST") : "";
    info.port = static_cast<std::uint16_t>(
        std::atoi(std::getenv("BMC_PORT") ? std::getenv("BMC_PORT") : "623"));
    info.user = std::getenv("BMC_USER") ? std::getenv("BMC_USER") : "";
    info.password = std::getenv("IPMI_PASSWORD") ? std::getenv("IPMI_PASSWORD") : "";
    Tolmar::IpmiEventLog log(info);
    std::vector<Tolmar::TolmarAgentless::IPMIEVENT> events;
    const int result = log.GetAllIpmiEventLog(events);
    std::printf("result %d, %zu events\n", result, events.size());
    return result == Tolmar::IpmiEventLog::EL_SUCCESS && !events.empty() ? 0 : 1;
}
