// The event source of a BMC reached over IPMI (RMCP+ on the LAN, or this machine's in band): an
// IpmiEventFollower of the library, its records worded as the settings ask and given with what
// their bytes mean in IPMI v2.0.
#pragma once

#include <IpmiEventFollower.h>
#include <IpmiEventLog.h>

#include <string>
#include <vector>

#include "fleet/ConnectionProfile.h"
#include "fleet/EventSource.h"

namespace tool {

// The library's view of a profile: where the BMC is, and how its sessions are opened.
Tolmar::TolmarConnection::ConnectionInfo ipmiConnection(const ConnectionProfile& profile);
Tolmar::ConnectionSettings ipmiSettings(const ConnectionProfile& profile);

// The failure a library result code stands for.
Failure failureOf(int result);
// One line naming the host, why the request failed (as the call's report tells) and what to check.
std::string ipmiFailureText(const std::string& host, int result, const Tolmar::CallReport& call);

// A followed record as an event of the source: worded in `rendering`, with the facts its bytes
// give (ipmiEventColumns' names).
SourceEvent ipmiEvent(const Tolmar::FollowedEvent& followed, Rendering rendering);
const EventColumns& ipmiEventColumns();

// "PreInit +5s", "Unspecified", or the record's moment, "2022-12-14 13:40:44 UTC" (in this
// machine's local time with its zone's abbreviation when `localTime`).
std::string recordTimeText(const Tolmar::DecodedSelRecord& record, bool localTime);

class IpmiEventSource : public EventSource {
public:
    IpmiEventSource(const ConnectionProfile& profile, const ReadSettings& settings);

    std::string hostName() const override;
    std::string kind() const override { return "ipmi"; }
    SourcePoll poll(bool skipping) override;
    SourcePoll readWhole() override;
    void reconfigure(const ConnectionProfile& profile, const ReadSettings& settings) override;
    std::string loadState(const std::string& path) override;
    std::string saveState(const std::string& path) const override;

    // The SEL's entries as the BMC gave them, read whole as readWhole reads it.
    SourcePoll readWholeRaw(std::vector<Tolmar::IPMISELENTRY>& entries);

private:
    // `raw`: the entries are given as read, and lack nothing an incomplete read leaves out.
    SourcePoll outcome(const Tolmar::PollResult& poll, std::vector<Tolmar::FollowedEvent> events,
                       bool raw);
    SourcePoll wholeRead(const Tolmar::PollResult& poll, std::vector<Tolmar::FollowedEvent> events,
                         bool raw);

    std::string host_;
    Tolmar::TolmarConnection::ConnectionInfo connection_;  // the follower's
    Rendering rendering_;
    Tolmar::IpmiEventFollower follower_;
};

}  // namespace tool
