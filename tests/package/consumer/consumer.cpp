// A program of the management framework's kind, built against the installed library: it reads the
// decoded event log of the BMC named by BMC_HOST, BMC_PORT, BMC_USER and IPMI_PASSWORD, once
// whole and once through two followers kept in a std::vector, one of them with settings of its
// own, and its state carried over as text.
#include <IpmiConnectionSettings.h>
#include <IpmiEventFollower.h>
#include <IpmiEventLog.h>

#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

namespace {

std::string environment(const char* name, const char* fallback) {
    const char* value = std::getenv(name);
    return value != nullptr ? value : fallback;
}

}  // namespace

int main() {
    Tolmar::TolmarConnection::ConnectionInfo info;
    info.connectionType = 1;
    info.ip = environment("BMC_HOST", "");
    info.port = static_cast<std::uint16_t>(std::atoi(environment("BMC_PORT", "623").c_str()));
    info.user = environment("BMC_USER", "");
    info.password = environment("IPMI_PASSWORD", "");
    Tolmar::IpmiEventLog log(info);
    std::vector<Tolmar::TolmarAgentless::IPMIEVENT> events;
    const int result = log.GetAllIpmiEventLog(events);
    std::printf("result %d, %zu events\n", result, events.size());
    if (result != Tolmar::IpmiEventLog::EL_SUCCESS || events.empty()) return 1;

    Tolmar::ConnectionSettings reader;
    reader.privilege = Tolmar::ConnectionSettings::Privilege::User;
    std::vector<Tolmar::IpmiEventFollower> followers;
    followers.emplace_back(info);
    followers.emplace_back(info, reader);
    for (Tolmar::IpmiEventFollower& follower : followers) {
        std::vector<Tolmar::TolmarAgentless::IPMIEVENT> followed;
        const Tolmar::PollResult poll = follower.Poll(followed);
        std::printf("follower: result %d, %zu events%s%s\n", poll.result, followed.size(),
                    poll.failure.empty() ? "" : ": ", poll.failure.c_str());
        if (poll.result != Tolmar::IpmiEventLog::EL_SUCCESS || followed.size() != events.size())
            return 1;
    }
    // A follower restored from the text of another's state finds nothing new.
    Tolmar::IpmiEventFollower restored(info);
    std::string error;
    std::vector<Tolmar::TolmarAgentless::IPMIEVENT> followed;
    if (!restored.LoadStateText(followers.back().StateText(), error) ||
        restored.Poll(followed).result != Tolmar::IpmiEventLog::EL_SUCCESS || !followed.empty()) {
        std::printf("restored follower: %s, %zu events\n", error.c_str(), followed.size());
        return 1;
    }
    return 0;
}
