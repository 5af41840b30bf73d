// The implementation behind IpmiEventFollower: one session a poll, reading only what changed.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "ClientSession.h"
#include "EventLogData.h"
#include "FollowerState.h"
#include "IpmiEventFollower.h"
#include "IpmiEventOperations.h"
#include "SelChain.h"

namespace Tolmar {

class IpmiEventFollowerImp {
public:
    IpmiEventFollowerImp(const TolmarConnection::ConnectionInfo& info,
                         const ConnectionSettings& settings);

    // What one poll gives of its new records; each, when given.
    struct Outputs {
        std::vector<TolmarAgentless::IPMIEVENT>* events = nullptr;  // as IpmiEventLog words them
        std::vector<IPMISELENTRY>* entries = nullptr;               // as the BMC gave them
        std::vector<FollowedEvent>* followed = nullptr;             // all three ways
    };
    // One poll; the records are decoded only for `events` or `followed`.
    PollResult Poll(const Outputs& outputs);
    bool readToEnd() const { return readToEnd_; }
    void clearWhenFull(unsigned percent) { clearAtPercent_ = percent; }
    void setSettings(const ConnectionSettings& settings) { settings_ = settings; }
    void setRendering(EventRendering rendering) { rendering_ = rendering; }
    bool saveState(const std::string& path, std::string& error) const;
    bool loadState(const std::string& path, std::string& error);
    std::string stateText() const { return state_.text(); }
    bool loadStateText(const std::string& text, std::string& error);

private:
    // Reads, in the open session, with `walks`, the SEL records added since `state` into
    // `records`, and moves `state` on; notes in `poll` how the read went and how full the SEL is,
    // in `ending` how the SEL's read ended.
    static void readSelChanges(IpmiClient& client, SelChain& walks, FollowerState& state,
                               std::vector<RawSelEntry>& records, PollResult& poll,
                               SelWalk& ending);
    // Clears the SEL once every record in it is in `records`; says in `failure` why it could not.
    static void clearReadSel(IpmiClient& client, SelChain& walks, FollowerState& state,
                             std::vector<RawSelEntry>& records, PollResult& poll, SelWalk& ending,
                             std::string& failure);
    // What the records read are rendered with, into `data`.
    static void readRenderingData(IpmiClient& client, FollowerState& state, EventLogData& data,
                                  bool restarted);
    // The SDR repository, read again when it changed; and the filters.
    static void readRenderingRecords(IpmiClient& client, FollowerState& state);
    // The auxiliary entries added since the last read; all of them after a restart.
    static void readAuxiliaryLog(IpmiEventOperations& events, FollowerState& state, bool restarted);
    // Each of `records` decoded, with `described`, the events IpmiEventLog's words gave for them
    // (fewer when rendering failed part way), in this follower's rendering, to `followed`.
    void appendFollowed(const std::vector<RawSelEntry>& records,
                        const std::vector<TolmarAgentless::IPMIEVENT>& described,
                        std::vector<FollowedEvent>& followed) const;
    // The BMC's manufacturer and product, whose layouts of OEM codes the decoder may know.
    void askBmcIdentity(IpmiClient& client);
    // Takes `loaded` when `read` and it is this BMC's state; otherwise starts afresh.
    bool take(bool read, FollowerState& loaded, std::string& error);

    ClientTarget target_;
    ConnectionSettings settings_;
    FollowerState state_;
    unsigned clearAtPercent_ = 0;  // 0: never
    EventRendering rendering_ = EventRendering::Ipmi;
    bool bmcAsked_ = false;           // Get Device ID was answered
    std::optional<BmcIdentity> bmc_;  // what it said
    bool readToEnd_ = false;          // the last poll read the SEL to its end
};

}  // namespace Tolmar
