/**
 * @file IpmiEventFollower.h
 * @brief Follows the IPMI event log of a BMC: each poll reads only what was added since the last.
 *
 * Beside Tolmar::IpmiEventLog, which reads everything at every call, a follower keeps between
 * polls how far it has read the SEL, when the SEL and the SDR repository last changed, and the
 * sensor records and event filters it read. A poll that finds nothing added or erased costs one
 * session and one Get SEL Info; one that finds k new records, about k requests more. Events are
 * decoded exactly as IpmiEventLog::GetAllIpmiEventLog decodes them, always against the sensor
 * records the BMC has now.
 */
#pragma once

#include <string>
#include <vector>

#include "IpmiEventLog.h"

namespace Tolmar {

class IpmiEventFollowerImp;

/// The new events of one BMC, poll after poll.
class IpmiEventFollower {
public:
    /// Keeps a copy of @p info; nothing is sent until Poll is called.
    explicit IpmiEventFollower(const TolmarConnection::ConnectionInfo& info);
    ~IpmiEventFollower();
    IpmiEventFollower(const IpmiEventFollower&) = delete;
    IpmiEventFollower& operator=(const IpmiEventFollower&) = delete;

    /// One poll, in one session: appends to @p events the decoded events of the SEL records added
    /// since the last poll, in SEL order (at the first poll, every record's). Returns a code of
    /// IpmiEventLog::ResultCode: EL_CONNECTION_FAIL or EL_AUTHTICATION_FAIL when no session
    /// opened, which leaves the state as it was.
    int Poll(std::vector<TolmarAgentless::IPMIEVENT>& events);
    /// Whether the last poll read the SEL from its first record although an earlier poll had
    /// read it: the SEL was cleared, or the record read to is gone.
    bool Restarted() const;
    /// Whether the last poll read the SEL to its end. False when the BMC stopped answering part
    /// way: the events read are appended, and the next poll goes on from the last of them.
    bool Complete() const;

    /// Writes the state to @p path (replacing the file in one piece). False, with the reason in
    /// @p error, when it cannot.
    bool SaveState(const std::string& path, std::string& error) const;
    /// Takes the state saved in @p path. False, with the reason in @p error, for a file that is
    /// missing, damaged, of another version or of another BMC: the follower then starts afresh,
    /// and its next poll reads the whole SEL.
    bool LoadState(const std::string& path, std::string& error);

private:
    IpmiEventFollowerImp* imp_;
};

}  // namespace Tolmar
