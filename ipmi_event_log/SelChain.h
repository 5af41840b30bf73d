// The follower's walks along the SEL's next-record chain. Unlike the whole-SEL read of
// IpmiEventOperations (getRawSelEntries, which ends quietly at its first failure), a walk starts
// at any record, can be stopped by its caller and tells how it ended, so that a follower can tell
// an empty SEL or a record gone from a BMC that stopped answering.
#pragma once

#include <functional>
#include <vector>

#include "IpmiClient.h"
#include "IpmiEventOperations.h"
#include "RawSelEntry.h"

namespace Tolmar {

// How a walk along the SEL's next-record chain ended.
struct SelWalk {
    enum class End {
        ChainEnd,    // next record FFFFh, or a chain that came back to an ID already read
        Stopped,     // the caller's check stopped it
        Refused,     // the BMC answered with `completionCode` (00h: an answer too short)
        Unanswered,  // no answer, or no session to send in
    };
    End end = End::ChainEnd;
    unsigned char completionCode = 0;
};

class SelChain {
public:
    explicit SelChain(IpmiClient& client);

    // Walks from the record `recordId` (0x0000: the first) and appends every record read. Stops
    // once `goOn`, when given (asked after each record with the records read so far), says no.
    SelWalk walk(unsigned long recordId, std::vector<RawSelEntry>& entries,
                 const std::function<bool(const std::vector<RawSelEntry>&)>& goOn = {});
    // Get SEL Entry for the one record `recordId` (FFFFh: the SEL's last), appended to `entries`:
    // Stopped when it came, or how the read failed, as for a walk.
    SelWalk readRecord(unsigned long recordId, std::vector<RawSelEntry>& entries);
    // The records this chain's walks and reads have brought so far.
    unsigned long recordsRead() const { return recordsRead_; }

private:
    // One Get SEL Entry: appends the record and sets `next` to its next-record ID; false, with the
    // failure told in `walk`, when none came. An IpmiException from the client passes.
    bool fetch(unsigned long recordId, std::vector<RawSelEntry>& entries, unsigned long& next,
               SelWalk& walk);

    IpmiEventOperations events_;
    unsigned long recordsRead_ = 0;
};

}  // namespace Tolmar
