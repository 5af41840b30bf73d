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

#include <memory>
#include <string>
#include <vector>

#include "IpmiConnectionSettings.h"
#include "IpmiEventLog.h"
#include "IpmiSelDecoding.h"

namespace Tolmar {

class IpmiEventFollowerImp;

/// How full the SEL is, as Get SEL Info told at a poll.
struct SelHealth {
    bool known = false;      ///< false when the BMC did not answer Get SEL Info
    unsigned entries = 0;    ///< records in the SEL
    unsigned freeBytes = 0;  ///< free space; 65535 means 65535 bytes or more
    bool overflow = false;   ///< the BMC dropped events for lack of space
    /// The share of the SEL its records take, from 0 to 1: their 16 bytes each against those
    /// and the free space. 0 when unknown or empty.
    double FillRatio() const;
    /// Whether that share is at least @p percent (1 to 100); false when unknown.
    bool FullTo(unsigned percent) const;
};

/// What came of one poll.
struct PollResult {
    /// A code of IpmiEventLog::ResultCode: EL_CONNECTION_FAIL or EL_AUTHTICATION_FAIL when no
    /// session opened, which leaves the follower's state as it was.
    int result = IpmiEventLog::EL_SUCCESS;
    /// Whether the SEL was read to its end. False when the BMC stopped answering part way: the
    /// events read are appended, and the next poll goes on from the last of them.
    bool complete = true;
    /// Whether the SEL was read from its first record although an earlier poll had read it: the
    /// SEL was cleared, or the record read to is gone.
    bool restarted = false;
    /// Whether every record emitted before is gone: the SEL was cleared since the last poll.
    bool cleared = false;
    /// Whether this poll cleared the SEL, after reading every record in it (ClearWhenFull).
    bool emptied = false;
    SelHealth sel;  ///< how full the SEL was when the poll looked (after its clear, if it made one)
    unsigned long entriesRead = 0;  ///< SEL records new to this poll
    /// What failed, in words, empty when nothing did: why the read ended early (an erase the BMC
    /// began after records were read included, which leaves the poll complete), or why the SEL
    /// could not be cleared when full (the read being complete).
    std::string failure;
    CallReport call;  ///< what the poll's session met
};

/// How a follower words the events it reads (FollowedEvent::event).
enum class EventRendering {
    /// What the record's bytes mean in IPMI v2.0 (DecodedSelRecord): the time stamp as
    /// "YYYY-MM-DD hh:mm:ss UTC", "PreInit +Ns" or "Unspecified"; the source and description of
    /// DecodedSelRecord; severity and auxiliary details from the matching PEF filter and auxiliary
    /// log for system events, none for OEM records, which no filter is about.
    Ipmi,
    /// Exactly as IpmiEventLog::GetAllIpmiEventLog words them.
    Described
};

/// One new SEL record of a poll, three ways.
struct FollowedEvent {
    IPMISELENTRY entry{};              ///< as the BMC gave it
    DecodedSelRecord record;           ///< what its bytes mean in IPMI v2.0
    TolmarAgentless::IPMIEVENT event;  ///< in the follower's rendering (SetRendering)
};

/// The new events of one BMC, poll after poll. Movable, not copyable.
class IpmiEventFollower {
public:
    /// Keeps copies of @p info and @p settings (see IpmiConnectionSettings.h); nothing is sent
    /// until Poll is called.
    explicit IpmiEventFollower(const TolmarConnection::ConnectionInfo& info,
                               const ConnectionSettings& settings = {});
    ~IpmiEventFollower();
    IpmiEventFollower(IpmiEventFollower&& other) noexcept;
    IpmiEventFollower& operator=(IpmiEventFollower&& other) noexcept;
    IpmiEventFollower(const IpmiEventFollower&) = delete;
    IpmiEventFollower& operator=(const IpmiEventFollower&) = delete;

    /// One poll, in one session: appends to @p events the decoded events of the SEL records added
    /// since the last poll, in SEL order (at the first poll, every record's).
    PollResult Poll(std::vector<TolmarAgentless::IPMIEVENT>& events);
    /// The same poll, giving each new record with what it means in IPMI v2.0 (decoded against
    /// the whole SDR repository, read again when it changed) and its event in the follower's
    /// rendering.
    PollResult Poll(std::vector<FollowedEvent>& events);
    /// A poll that takes every record there is as emitted, without decoding it: the next poll
    /// brings only what is added after it (a first start without the backlog).
    PollResult SkipToEnd();
    /// A poll that appends to @p entries the SEL records added since the last poll as the BMC
    /// gave them, in SEL order, without decoding them: nothing but the SEL is read, and the SEL is
    /// never cleared.
    PollResult PollRaw(std::vector<IPMISELENTRY>& entries);
    /// Whether the last poll read the SEL to its end, or found it empty or unchanged. False before
    /// the first poll, after a poll that opened no session or was not complete, and after one that
    /// met an erase in progress (81h), which the next poll looks at again: a poll that read records
    /// before the erase answered ended before the SEL's end, although it is complete.
    bool ReadToEnd() const;
    /// From now on, a Poll that finds the SEL at least @p percent full (1 to 100; 0, the default,
    /// never) clears it, once every record in it has been read: under a reservation taken before
    /// the last read, so that a record the BMC adds meanwhile cancels the clear, is read, and the
    /// clear is tried again. Clear SEL needs the operator privilege level.
    void ClearWhenFull(unsigned percent);
    /// The settings of the polls from now on, in place of those it was made with: a shorter
    /// session timeout for a poll that must end sooner, a configuration read again.
    void SetSettings(const ConnectionSettings& settings);
    /// How Poll(std::vector<FollowedEvent>&) words events from now on; EventRendering::Ipmi until
    /// told otherwise. Poll(std::vector<IPMIEVENT>&) always words them as IpmiEventLog does.
    void SetRendering(EventRendering rendering);

    /// Writes the state to @p path (replacing the file in one piece). False, with the reason in
    /// @p error, when it cannot.
    bool SaveState(const std::string& path, std::string& error) const;
    /// Takes the state saved in @p path. False, with the reason in @p error, for a file that is
    /// missing, damaged, of another version or of another BMC: the follower then starts afresh,
    /// and its next poll reads the whole SEL.
    bool LoadState(const std::string& path, std::string& error);
    /// The state as text, for a program that keeps it in a store of its own.
    std::string StateText() const;
    /// Takes a state that StateText gave; false, with the reason in @p error, as LoadState.
    bool LoadStateText(const std::string& text, std::string& error);

private:
    std::unique_ptr<IpmiEventFollowerImp> imp_;
};

}  // namespace Tolmar
