#include "IpmiEventFollowerImp.h"

#include <cstring>

#include "IPMIAuxiliaryLog.h"
#include "IpmiEventOperations.h"
#include "IpmiException.h"
#include "IpmiSDROperations.h"
#include "RepositoryInfo.h"

namespace Tolmar {

namespace {

constexpr int kConnectionTypeLan = 1;
constexpr unsigned long kFirstRecord = 0x0000;

// Whose state a follower keeps: "address:port" over the LAN, "local" in band.
std::string bmcOf(const TolmarConnection::ConnectionInfo& info) {
    return info.connectionType == kConnectionTypeLan ? info.ip + ":" + std::to_string(info.port)
                                                     : "local";
}

bool sameRecord(const RawSelEntry& a, const RawSelEntry& b) {
    return std::memcmp(&a, &b, sizeof a) == 0;
}

// What failed in a poll, in words; empty when nothing did.
std::string failureText(const PollResult& poll) {
    const CallReport& call = poll.call;
    switch (poll.result) {
        case IpmiEventLog::EL_SUCCESS:
            if (poll.complete) return "";
            return "the BMC stopped answering after " + std::to_string(call.selEntriesRead) +
                   " SEL entries";
        case IpmiEventLog::EL_CONNECTION_FAIL:
            return call.connectFailure.empty() ? "no IPMI session could be opened"
                                               : call.connectFailure;
        case IpmiEventLog::EL_AUTHTICATION_FAIL:
            return call.connectFailure.empty() ? "the BMC refused the credentials"
                                               : call.connectFailure;
        default:
            return call.refusal.empty() ? "the client could not be created or lost its session"
                                        : call.refusal;
    }
}

}  // namespace

IpmiEventFollowerImp::IpmiEventFollowerImp(const TolmarConnection::ConnectionInfo& info,
                                           const ConnectionSettings& settings)
    : target_{info.connectionType == kConnectionTypeLan,
              info.ip,
              info.user,
              info.password,
              std::to_string(info.port),
              info.cipherSuite},
      settings_(settings) {
    state_.bmc = bmcOf(info);
}

PollResult IpmiEventFollowerImp::Poll(std::vector<TolmarAgentless::IPMIEVENT>& events) {
    PollResult poll;
    // The state moves on only when the session opened; the reads keep what they got before a
    // failure, as the whole log's do.
    FollowerState next = state_;
    EventLogData data;
    const auto read = [&](IpmiClient& client) {
        try {
            readChanges(client, next, data, poll);
        } catch (const IpmiException&) {
            poll.complete = false;
        }
        return static_cast<int>(IpmiEventLog::EL_SUCCESS);
    };
    ClientSession session(target_, settings_);
    // As for the whole log: 6 for an IpmiException while connecting.
    poll.result = session.run(read, {IpmiEventLog::EL_INTERNAL_FAIL, IpmiEventLog::EL_SUCCESS});
    poll.call = session.report();
    poll.failure = failureText(poll);
    if (poll.result != IpmiEventLog::EL_SUCCESS) return poll;
    state_ = std::move(next);
    poll.entriesRead = data.sel.size();
    try {
        data.appendDecodedEvents(events);
    } catch (const IpmiException&) {
        // As for the whole log: the events rendered so far stay.
    }
    return poll;
}

void IpmiEventFollowerImp::readChanges(IpmiClient& client, FollowerState& state, EventLogData& data,
                                       PollResult& poll) {
    IpmiEventOperations events(client);
    RepositoryInfo info(client);
    RepositoryStamps selNow;
    const bool stamped = info.sel(selNow);
    // Nothing added or erased since the SEL was last read to its end.
    if (stamped && state.sel && *state.sel == selNow) return;
    data.sel = readNewRecords(events, state, poll);
    // A read that ended early is taken up again at the next poll, whatever the stamps say.
    state.sel.reset();
    if (stamped && poll.complete) state.sel = selNow;
    if (data.sel.empty()) return;
    state.lastRecord = data.sel.back();
    readRenderingRecords(client, state);
    readAuxiliaryLog(events, state, poll.restarted);
    data.sdr = state.sensors;
    data.pet = state.filters;
    data.relateRecords();
    data.auxEntries = IPMIAuxiliaryLog().ParseExtendedSELData(
        state.auxiliary.data(), static_cast<unsigned>(state.auxiliary.size()));
}

void IpmiEventFollowerImp::readAuxiliaryLog(IpmiEventOperations& events, FollowerState& state,
                                            bool restarted) {
    // The log grows at its end: only entries after those read before are read. A shorter log, or
    // a SEL read again from its start, reads it all again.
    unsigned int count = 0;
    events.IPMIGetAuxLogStatus(&count);
    if (count < state.auxiliary.size() || restarted) state.auxiliary.clear();
    const auto known = static_cast<unsigned>(state.auxiliary.size());
    state.auxiliary.resize(count);
    if (count > known)
        events.readExtendedDataFrom(known + 1, state.auxiliary.data() + known, count - known);
}

std::vector<RawSelEntry> IpmiEventFollowerImp::readNewRecords(IpmiEventOperations& events,
                                                              const FollowerState& state,
                                                              PollResult& poll) {
    std::vector<RawSelEntry> records;
    if (state.lastRecord) {
        // The chain from the record read last: it comes again first, the new ones after it.
        poll.complete = events.walkSel(state.lastRecord->id(), records);
        if (!records.empty() && sameRecord(records.front(), *state.lastRecord)) {
            records.erase(records.begin());
            return records;
        }
        records.clear();
    }
    // The first poll; or the record read last is gone (the SEL was cleared, or that record
    // deleted) or was read differently: every record is new.
    poll.complete = events.walkSel(kFirstRecord, records);
    poll.restarted = state.lastRecord.has_value() && !records.empty();
    return records;
}

void IpmiEventFollowerImp::readRenderingRecords(IpmiClient& client, FollowerState& state) {
    // Sensor records are read again only when the repository changed (or says nothing): a stale
    // one would name the wrong sensor. Filters carry no stamps; they are few and read each time.
    RepositoryStamps sdrNow;
    const bool stamped = RepositoryInfo(client).sdrRepository(sdrNow);
    if (!stamped || !state.sdr || *state.sdr != sdrNow) {
        state.sensors.clear();
        IpmiSDROperations(client).getTypeOneAndTwoPartialRawSDRs(state.sensors);
        state.sdr.reset();
        if (stamped) state.sdr = sdrNow;
    }
    state.filters.clear();
    IpmiEventOperations(client).getRawPETEntries(state.filters);
}

bool IpmiEventFollowerImp::saveState(const std::string& path, std::string& error) const {
    return state_.save(path, error);
}

bool IpmiEventFollowerImp::loadState(const std::string& path, std::string& error) {
    FollowerState loaded;
    const bool read = FollowerState::load(path, loaded, error);
    const bool taken = take(read, loaded, error);
    if (read && !taken) error = path + ": " + error;
    return taken;
}

bool IpmiEventFollowerImp::loadStateText(const std::string& text, std::string& error) {
    FollowerState loaded;
    return take(FollowerState::fromText(text, loaded, error), loaded, error);
}

bool IpmiEventFollowerImp::take(bool read, FollowerState& loaded, std::string& error) {
    const bool ours = read && loaded.bmc == state_.bmc;
    if (read && !ours) error = "the state of BMC " + loaded.bmc + ", not of " + state_.bmc;
    // Anything else starts afresh: the next poll reads the whole SEL.
    FollowerState fresh;
    fresh.bmc = state_.bmc;
    state_ = ours ? std::move(loaded) : std::move(fresh);
    return ours;
}

}  // namespace Tolmar
