#include "SelChain.h"

#include <set>

#include "IpmiException.h"

namespace Tolmar {

namespace {

constexpr unsigned long kLastRecord = 0xFFFF;  // as a next record ID: the chain ends

}  // namespace

SelChain::SelChain(IpmiClient& client) : events_(client) {}

SelWalk SelChain::walk(unsigned long recordId, std::vector<RawSelEntry>& entries,
                       const std::function<bool(const std::vector<RawSelEntry>&)>& goOn) {
    SelWalk walk;
    try {
        // A chain that comes back to an ID already requested ends there, as if it had ended.
        std::set<unsigned long> requested;
        while (recordId != kLastRecord) {
            if (!requested.insert(recordId).second) {
                logRepeatedRecordId("the SEL's walk", recordId, __LINE__);
                break;
            }
            if (!fetch(recordId, entries, recordId, walk)) return walk;
            if (goOn && !goOn(entries)) {
                walk.end = SelWalk::End::Stopped;
                return walk;
            }
        }
    } catch (const IpmiException&) {
        // The records read so far stay in `entries`.
        walk.end = SelWalk::End::Unanswered;
    }
    return walk;
}

SelWalk SelChain::readRecord(unsigned long recordId, std::vector<RawSelEntry>& entries) {
    SelWalk walk;
    walk.end = SelWalk::End::Stopped;
    unsigned long next = 0;
    try {
        fetch(recordId, entries, next, walk);
    } catch (const IpmiException&) {
        walk.end = SelWalk::End::Unanswered;
    }
    return walk;
}

bool SelChain::fetch(unsigned long recordId, std::vector<RawSelEntry>& entries, unsigned long& next,
                     SelWalk& walk) {
    const CommandResponse response = events_.exchangeGetSelEntry(recordId);
    if (!response.succeeded(IpmiEventOperations::kSelEntryResponseLength)) {
        walk.end = response.status == 0 ? SelWalk::End::Refused : SelWalk::End::Unanswered;
        walk.completionCode = response.completionCode;
        return false;
    }
    next = IpmiEventOperations::nextRecordId(response.data);
    RawSelEntry entry{};
    entry.setValues(response.data);
    entries.push_back(entry);
    ++recordsRead_;
    return true;
}

}  // namespace Tolmar
