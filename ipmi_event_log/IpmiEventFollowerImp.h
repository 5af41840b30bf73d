// The implementation behind IpmiEventFollower: one session a poll, reading only what changed.
#pragma once

#include <string>
#include <vector>

#include "EventLogData.h"
#include "FollowerState.h"
#include "IpmiEventLog.h"
#include "IpmiEventLogImp.h"

namespace Tolmar {

class IpmiEventFollowerImp {
public:
    explicit IpmiEventFollowerImp(const TolmarConnection::ConnectionInfo& info);

    int Poll(std::vector<TolmarAgentless::IPMIEVENT>& events);
    bool restarted() const { return restarted_; }
    bool complete() const { return complete_; }
    bool saveState(const std::string& path, std::string& error) const;
    bool loadState(const std::string& path, std::string& error);

private:
    // Reads, in the open session, what changed since `state` and what the new records are
    // rendered with into `data`, and moves `state` on.
    void readChanges(IpmiClient& client, FollowerState& state, EventLogData& data);
    // The records after `state.lastRecord`, or from the first when that one is gone.
    std::vector<RawSelEntry> readNewRecords(IpmiEventOperations& events,
                                            const FollowerState& state);
    // The sensor records, read again when the repository changed; and the filters.
    static void readRenderingRecords(IpmiClient& client, FollowerState& state);
    // The auxiliary entries added since the last read.
    void readAuxiliaryLog(IpmiEventOperations& events, FollowerState& state);

    IpmiEventLogImp connection_;  // how to reach the BMC, as IpmiEventLog does
    FollowerState state_;
    bool restarted_ = false;
    bool complete_ = true;
};

}  // namespace Tolmar
