#include "NewSelRecords.h"

#include <array>
#include <cstring>
#include <optional>
#include <set>

#include "ByteReader.h"
#include "CommandExchange.h"
#include "FollowerState.h"

namespace Tolmar {

namespace {

constexpr unsigned long kFirstRecord = 0x0000;
// Get SEL Entry's completion codes (IPMI v2.0 section 31.5, table 5-2): 81h, erase in progress.
constexpr unsigned char kEraseInProgress = kCompletionCommandSpecific81;
constexpr unsigned char kNotPresent = 0xCB;
// Record types from E0h on carry no time stamp (IPMI v2.0 section 32.3); time stamps below
// 20000000h count from the BMC's start, not from 1970 (section 37), and FFFFFFFFh is unspecified.
constexpr unsigned char kFirstUnstampedType = 0xE0;
constexpr std::uint32_t kFirstAbsoluteTime = 0x20000000;
constexpr std::uint32_t kUnspecifiedTime = 0xFFFFFFFF;

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

NewSelRecords NewSelRecords::read(IpmiEventOperations& events,
                                  const std::vector<RawSelEntry>& recent,
                                  const std::optional<RawSelEntry>& first) {
    NewSelRecords read;
    read.first = first;
    // From the newest record emitted that is still there as it was, which the chain from its ID
    // gives first: the records after it are new.
    for (std::size_t i = recent.size(); i-- > 0;) {
        std::vector<RawSelEntry> chain;
        const SelWalk walk =
            events.walkSel(recent[i].id(), chain, [&](const std::vector<RawSelEntry>& so) {
                return so.size() > 1 || sameRecord(so.front(), recent[i]);
            });
        if (!chain.empty() && sameRecord(chain.front(), recent[i])) {
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
    const SelWalk walk = events.walkSel(kFirstRecord, all, {});
    noteEnding(walk, all.empty(), read);
    all = withoutRepeats(all);
    read.restarted = !recent.empty();
    // Records deleted, the first one kept: those emitted before are told by their time stamps.
    const bool deleted = read.restarted && first && !all.empty() && sameRecord(all.front(), *first);
    for (const RawSelEntry& record : all) {
        if (!deleted || addedAfter(record, recent.back())) read.records.push_back(record);
    }
    read.cleared = read.restarted && !deleted && read.complete;
    if (read.complete) read.first = all.empty() ? std::nullopt : std::optional(all.front());
    // Read to its end, the SEL holds only records emitted now or before; read part way, the
    // records emitted before are remembered still, for the next poll to find its place.
    read.recent = read.complete ? lastRemembered({}, all) : lastRemembered(recent, read.records);
    return read;
}

}  // namespace Tolmar
