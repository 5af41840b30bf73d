// The implementation behind IpmiEventFollower: one session a poll, reading only what changed.
#pragma once

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

    // One poll; its new records' events are appended to `events`, or, without, not decoded; the
    // records themselves to `entries`, when given.
    PollResult Poll(std::vector<TolmarAgentless::IPMIEVENT>* events,
                    std::vector<IPMISELENTRY>* entries = nullptr);
    bool readToEnd() const { return readToEnd_; }
    void clearWhenFull(unsigned percent) { clearAtPercent_ = percent; }
    void setSettings(const ConnectionSettings& settings) { settings_ = settings; }
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
    // The sensor records, read again when the repository changed; and the filters.
    static void readRenderingRecords(IpmiClient& client, FollowerState& state);
    // The auxiliary entries added since the last read; all of them after a restart.
    static void readAuxiliaryLog(IpmiEventOperations& events, FollowerState& state, bool restarted);
    // Takes `loaded` when `read` and it is this BMC's state; otherwise starts afresh.
    bool take(bool read, FollowerState& loaded, std::string& error);

    ClientTarget target_;
    ConnectionSettings settings_;
    FollowerState state_;
    unsigned clearAtPercent_ = 0;  // 0: never
    bool readToEnd_ = false;       // the last poll read the SEL to its end
};

}  // namespace Tolmar
