#include "NewSelRecords.h"

#include <array>
#include <cstring>
#include <optional>
#include <set>

#include "CommandExchange.h"
#include "FollowerState.h"
#include "ipmi/ByteReader.h"

namespace Tolmar {

namespace {

constexpr unsigned long kFirstRecord = 0x0000;
constexpr unsigned long kLastRecord = 0xFFFF;  // Get SEL Entry's name for the SEL's last record
// Get SEL Entry's completion codes (IPMI v2.0 section 31.5, table 5-2): 81h, erase in progress.
constexpr unsigned char kEraseInProgress = kCompletionCommandSpecific81;
constexpr unsigned char kNotPresent = 0xCB;
// Record types from E0h on carry no time stamp (IPMI v2.0 section 32.3); time stamps below
// 20000000h count from the BMC's start, not from 1970 (section 37), and FFFFFFFFh is unspecified.
constexpr unsigned char kFirstUnstampedType = 0xE0;
constexpr std::uint32_t kFirstAbsoluteTime = 0x20000000;
constexpr std::uint32_t kUnspecifiedTime = 0xFFFFFFFF;
// Absent IDs tried past a chain that ended early, at most, in one poll: a BMC with wide gaps costs
// a bounded number of requests; the read is then incomplete and the next poll goes on from there.
constexpr unsigned kMostAbsentIdsTried = 64;

// The bytes that make a record the one it is: its ID, type, time stamp, generator and sensor. The
// event bytes are left out: a BMC that marks an event resolved by rewriting it in place (an
// assertion turned into a deassertion) has logged no new event.
constexpr std::size_t kIdentityLength = 12;

bool sameRecord(const RawSelEntry& a, const RawSelEntry& b) {
    return std::memcmp(&a, &b, kIdentityLength) == 0;
}

// The record's time stamp when it counts seconds from 1970.
std::optional<std::uint32_t> absoluteTime(const RawSelEntry& record) {
    if (record.recordType >= kFirstUnstampedType) return std::nullopt;
    const std::uint32_t time = ByteReader(record.timestamp, sizeof record.timestamp).u32();
    if (time < kFirstAbsoluteTime || time == kUnspecifiedTime) return std::nullopt;
    return time;
}

// Whether `record` came after `newest` by their time stamps; true when either cannot tell.
bool addedAfter(const RawSelEntry& record, const RawSelEntry& newest) {
    const auto time = absoluteTime(record);
    const auto newestTime = absoluteTime(newest);
    return !time || !newestTime || *time > *newestTime;
}

// Whether the BMC's clock went back since the SEL was last read to its end: its newest addition is
// stamped earlier than the newest one then.
bool clockWentBack(const SelInfoSeen& info) {
    return info.now && info.lastRead && info.lastRead->lastAddition != kUnspecifiedTime &&
           info.now->lastAddition < info.lastRead->lastAddition;
}

// Where the time stamps along `records` last step back (a record stamped earlier than the one
// before it): where the BMC's clock went back. records.size() when they never do.
std::size_t lastStepBack(const std::vector<RawSelEntry>& records) {
    for (std::size_t i = records.size(); i-- > 1;) {
        const auto time = absoluteTime(records[i]);
        const auto before = absoluteTime(records[i - 1]);
        if (time && before && *time < *before) return i;
    }
    return records.size();
}

// Of `all`, the SEL read from its first record once every remembered record is gone, those added
// after `newest` was emitted: stamped later than it, or, when the clock went back since the last
// complete read, from the place where the stamps step back on.
std::vector<RawSelEntry> addedSince(const std::vector<RawSelEntry>& all, const RawSelEntry& newest,
                                    bool clockBack) {
    const std::size_t step = clockBack ? lastStepBack(all) : all.size();
    std::vector<RawSelEntry> added;
    for (std::size_t i = 0; i < all.size(); ++i) {
        if (i >= step || addedAfter(all[i], newest)) added.push_back(all[i]);
    }
    return added;
}

// Whether the SEL overwrote its oldest records rather than being cleared: it holds as many records
// as when last read to its end, or more, and nothing was erased since (a clear leaves fewer and
// moves the erase stamp of BMCs that keep one).
bool overwroteOldest(const SelInfoSeen& info) {
    return info.now && info.lastRead && info.now->records >= info.lastRead->records &&
           info.now->lastErase == info.lastRead->lastErase;
}

bool nothingAddedSince(const SelInfoSeen& info) {
    return info.lastRead && info.now->lastAddition == info.lastRead->lastAddition &&
           info.now->records <= info.lastRead->records;
}

bool nothingErasedSince(const SelInfoSeen& info) {
    return info.lastRead && info.now->lastErase == info.lastRead->lastErase &&
           info.now->lastErase != kUnspecifiedTime;
}

// Whether a chain from a remembered record (`newest`: the newest remembered, the SEL's last record
// at the last complete read), which ended `after` records past it, may have ended before the SEL's
// last record. Get SEL Info rules it out when nothing was added since the last complete read (any
// records past a gap are old ones), or when nothing was erased either and the count is no more
// than the records then and those after `newest`. Without Get SEL Info the chain is taken as it is.
bool mayEndEarlyFromRemembered(const SelInfoSeen& info, bool newest, std::size_t after) {
    if (!info.now || nothingAddedSince(info)) return false;
    if (!newest || !nothingErasedSince(info)) return true;
    return info.now->records > info.lastRead->records + after;
}

// Whether a chain from the SEL's first record, which gave `walked` records, may have ended before
// the SEL's last: Get SEL Info counts more.
bool mayEndEarlyFromFirst(const SelInfoSeen& info, std::size_t walked) {
    return info.now && info.now->records > walked;
}

bool absent(const SelWalk& walk) {
    return walk.end == SelWalk::End::Refused && walk.completionCode == kNotPresent;
}

// Some BMCs give a record's ID plus one as its next-record ID, and FFFFh where no record has that
// ID: their chain ends at the first deleted record. Get SEL Entry for FFFFh, the SEL's last record,
// tells whether `walk`, which read `records`, ended early; if so, the IDs after its end are tried
// upward (CBh: absent) up to the last record's, and the chain of each record found is read on.
SelWalk readOnPastGaps(SelChain& walks, std::vector<RawSelEntry>& records, SelWalk walk) {
    if (walk.end != SelWalk::End::ChainEnd || records.empty()) return walk;
    std::vector<RawSelEntry> last;
    const SelWalk lastRead = walks.readRecord(kLastRecord, last);
    if (last.empty()) return lastRead;
    unsigned absentTried = 0;
    unsigned long id = records.back().id() + 1;
    while (!sameRecord(records.back(), last.front()) && id <= last.front().id()) {
        const std::size_t before = records.size();
        walk = walks.walk(id, records);
        const bool found = records.size() > before;
        if (found ? walk.end != SelWalk::End::ChainEnd : !absent(walk)) return walk;
        if (!found && ++absentTried > kMostAbsentIdsTried) return walk;
        id = found ? records.back().id() + 1 : id + 1;
    }
    return SelWalk{};
}

// `records` but those already among them or in `emitted`: a record that a BMC returned for two
// IDs comes once.
std::vector<RawSelEntry> withoutRepeats(const std::vector<RawSelEntry>& records,
                                        const std::vector<RawSelEntry>& emitted = {}) {
    using Bytes = std::array<unsigned char, sizeof(RawSelEntry)>;
    const auto bytesOf = [](const RawSelEntry& record) {
        Bytes bytes;
        std::memcpy(bytes.data(), &record, sizeof record);
        return bytes;
    };
    std::set<Bytes> seen;
    for (const RawSelEntry& record : emitted) seen.insert(bytesOf(record));
    std::vector<RawSelEntry> once;
    for (const RawSelEntry& record : records) {
        if (seen.insert(bytesOf(record)).second) once.push_back(record);
    }
    return once;
}

// `kept`, then `added`, of which the last kRemembered.
std::vector<RawSelEntry> lastRemembered(std::vector<RawSelEntry> kept,
                                        const std::vector<RawSelEntry>& added) {
    kept.insert(kept.end(), added.begin(), added.end());
    if (kept.size() > FollowerState::kRemembered)
        kept.erase(kept.begin(), kept.end() - FollowerState::kRemembered);
    return kept;
}

// Notes how a walk ended: whether nothing failed, and whether the SEL was read to its end. CBh
// for the first record (`atFirst`, nothing read) is an empty SEL.
void noteEnding(const SelWalk& walk, bool atFirst, NewSelRecords& read) {
    read.ending = walk;
    const bool refused = walk.end == SelWalk::End::Refused;
    const bool empty = refused && atFirst && walk.completionCode == kNotPresent;
    const bool erasing = refused && walk.completionCode == kEraseInProgress;
    read.complete = !refused && walk.end != SelWalk::End::Unanswered;
    read.complete = read.complete || empty || erasing;
    read.settled = read.complete && !erasing;
}

}  // namespace

NewSelRecords NewSelRecords::empty(const std::vector<RawSelEntry>& recent) {
    NewSelRecords read;
    read.cleared = !recent.empty();
    return read;  // no first record
}

NewSelRecords NewSelRecords::read(SelChain& walks, const std::vector<RawSelEntry>& recent,
                                  const std::optional<RawSelEntry>& first,
                                  const SelInfoSeen& info) {
    NewSelRecords read;
    read.first = first;
    // From the newest record emitted that is still there as it was, which the chain from its ID
    // gives first: the records after it are new.
    for (std::size_t i = recent.size(); i-- > 0;) {
        std::vector<RawSelEntry> chain;
        SelWalk walk = walks.walk(recent[i].id(), chain, [&](const std::vector<RawSelEntry>& so) {
            return so.size() > 1 || sameRecord(so.front(), recent[i]);
        });
        if (!chain.empty() && sameRecord(chain.front(), recent[i])) {
            if (mayEndEarlyFromRemembered(info, i + 1 == recent.size(), chain.size() - 1))
                walk = readOnPastGaps(walks, chain, walk);
            noteEnding(walk, false, read);
            const std::vector<RawSelEntry> kept(recent.begin(), recent.begin() + i + 1);
            read.records = withoutRepeats({chain.begin() + 1, chain.end()}, kept);
            read.recent = lastRemembered(kept, read.records);
            return read;
        }
        // Gone, or its ID holds another record now (IDs start again after a clear): an older one
        // may be there still. Anything else ends the poll.
        const bool gone = walk.end == SelWalk::End::Stopped ||
                          (walk.end == SelWalk::End::Refused && walk.completionCode == kNotPresent);
        if (!gone) {
            noteEnding(walk, false, read);
            read.recent = recent;
            return read;
        }
    }
    // None of them is left, or none was emitted yet: the SEL from its first record.
    std::vector<RawSelEntry> all;
    SelWalk walk = walks.walk(kFirstRecord, all);
    if (mayEndEarlyFromFirst(info, all.size())) walk = readOnPastGaps(walks, all, walk);
    noteEnding(walk, all.empty(), read);
    all = withoutRepeats(all);
    read.restarted = !recent.empty();
    // Records deleted, the first one kept, or the oldest overwritten by a full SEL: those emitted
    // before are told by their time stamps.
    const bool deleted = read.restarted && first && !all.empty() && sameRecord(all.front(), *first);
    const bool overwritten = read.restarted && !deleted && !all.empty() && overwroteOldest(info);
    const bool byTime = deleted || overwritten;
    read.records = byTime ? addedSince(all, recent.back(), clockWentBack(info)) : all;
    read.cleared = read.restarted && !byTime && read.complete;
    if (read.complete) read.first = all.empty() ? std::nullopt : std::optional(all.front());
    // Read to its end, the SEL holds only records emitted now or before; read part way, the
    // records emitted before are remembered still, for the next poll to find its place.
    read.recent = read.complete ? lastRemembered({}, all) : lastRemembered(recent, read.records);
    return read;
}

}  // namespace Tolmar
