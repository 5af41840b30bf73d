// Which SEL records are new to a follower, whatever happened to the SEL since it last looked:
// - the records after the newest one it emitted that is still in the SEL as it was;
// - when none of those it remembers is left but the SEL's first record is the one it was (records
//   were deleted, not cleared), or Get SEL Info counts as many records as at the last complete read
//   or more with the erase stamp unmoved (a full SEL overwrote its oldest records), the records
//   whose time stamps are later than the newest emitted; when the BMC's clock went back since (the
//   addition stamp is earlier than then), also those from where the stamps step back along the SEL;
// - otherwise (the SEL was cleared), every record.
// A chain that ended is checked against the SEL's last record (Get SEL Entry for FFFFh) unless Get
// SEL Info's count accounts for every record up to it; records past a gap, as BMCs whose next
// record is the ID plus one leave, are found by trying the IDs after it.
// A BMC's empty SEL (CBh for the first record) and an erase in progress (81h) are complete reads
// with nothing new.
#pragma once

#include <optional>
#include <vector>

#include "RawSelEntry.h"
#include "RepositoryInfo.h"
#include "SelChain.h"

namespace Tolmar {

// What Get SEL Info said now and when the SEL was last read to its end; either is absent when not
// known (no answer, or no complete read yet).
struct SelInfoSeen {
    std::optional<RepositoryStamps> now;
    std::optional<RepositoryStamps> lastRead;
};

struct NewSelRecords {
    std::vector<RawSelEntry> records;  // new, in SEL order, each once
    std::vector<RawSelEntry> recent;   // what to remember next (FollowerState::recent)
    std::optional<RawSelEntry> first;  // and the SEL's first record (FollowerState::first)
    bool complete = true;    // nothing failed: the SEL was read to its end, or is empty or erasing
    bool settled = true;     // the SEL was read to its end, so that its stamps tell the next change
    bool restarted = false;  // read from the first record although records had been emitted
    bool cleared = false;    // every record emitted before is gone
    SelWalk ending;          // how the last walk ended

    // What is new since `recent`, the last records emitted (oldest first), when `first` was the
    // SEL's first record.
    static NewSelRecords read(SelChain& walks, const std::vector<RawSelEntry>& recent,
                              const std::optional<RawSelEntry>& first,
                              const SelInfoSeen& info = {});
    // An empty SEL, as Get SEL Info's record count tells, after `recent` were emitted.
    static NewSelRecords empty(const std::vector<RawSelEntry>& recent);
};

}  // namespace Tolmar
