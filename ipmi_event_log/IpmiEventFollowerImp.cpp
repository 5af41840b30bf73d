#include "IpmiEventFollowerImp.h"

#include "IPMIAuxiliaryLog.h"
#include "IpmiEventOperations.h"
#include "IpmiException.h"
#include "IpmiSDROperations.h"
#include "NewSelRecords.h"
#include "RepositoryInfo.h"

namespace Tolmar {

namespace {

constexpr int kConnectionTypeLan = 1;

// Whose state a follower keeps: "address:port" over the LAN, "local" in band.
std::string bmcOf(const TolmarConnection::ConnectionInfo& info) {
    return info.connectionType == kConnectionTypeLan ? info.ip + ":" + std::to_string(info.port)
                                                     : "local";
}

// What failed in a poll, in words; empty when nothing did. `ending` tells how the SEL's read ended.
std::string failureText(const PollResult& poll, const SelWalk& ending) {
    const CallReport& call = poll.call;
    const std::string entries = std::to_string(call.selEntriesRead) + " SEL entries";
    switch (poll.result) {
        case IpmiEventLog::EL_SUCCESS:
            if (poll.complete) return "";
            if (ending.end == SelWalk::End::Refused) {
                return "the BMC answered Get SEL Entry with " +
                       completionCodeText(ending.completionCode) + " after " + entries;
            }
            return "BMC stopped answering after " + entries;
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

PollResult IpmiEventFollowerImp::Poll(std::vector<TolmarAgentless::IPMIEVENT>* events) {
    PollResult poll;
    // The state moves on only when the session opened; the reads keep what they got before a
    // failure, as the whole log's do.
    FollowerState next = state_;
    EventLogData data;
    SelWalk ending;
    const auto read = [&](IpmiClient& client) {
        try {
            readChanges(client, next, data, poll, ending, events != nullptr);
        } catch (const IpmiException&) {
            poll.complete = false;
            ending.end = SelWalk::End::Unanswered;
        }
        return static_cast<int>(IpmiEventLog::EL_SUCCESS);
    };
    ClientSession session(target_, settings_);
    // As for the whole log: 6 for an IpmiException while connecting.
    poll.result = session.run(read, {IpmiEventLog::EL_INTERNAL_FAIL, IpmiEventLog::EL_SUCCESS});
    poll.call = session.report();
    poll.failure = failureText(poll, ending);
    if (poll.result != IpmiEventLog::EL_SUCCESS) return poll;
    state_ = std::move(next);
    poll.entriesRead = data.sel.size();
    if (events == nullptr) return poll;
    try {
        data.appendDecodedEvents(*events);
    } catch (const IpmiException&) {
        // As for the whole log: the events rendered so far stay.
    }
    return poll;
}

void IpmiEventFollowerImp::readChanges(IpmiClient& client, FollowerState& state, EventLogData& data,
                                       PollResult& poll, SelWalk& ending, bool decoding) {
    IpmiEventOperations events(client);
    RepositoryInfo info(client);
    RepositoryStamps selNow;
    const bool stamped = info.sel(selNow);
    // Nothing added or erased since the SEL was last read to its end.
    if (stamped && state.sel && *state.sel == selNow) return;
    // An empty SEL needs no walk to tell.
    NewSelRecords read =
        stamped && selNow.records == 0
            ? NewSelRecords::empty(state.recent)
            : NewSelRecords::read(events, state.recent, state.first,
                                  {stamped ? std::optional(selNow) : std::nullopt, state.sel});
    poll.complete = read.complete;
    poll.restarted = read.restarted;
    poll.cleared = read.cleared;
    ending = read.ending;
    state.recent = std::move(read.recent);
    state.first = read.first;
    data.sel = std::move(read.records);
    // A read that did not reach the SEL's end is taken up again at the next poll, whatever the
    // stamps say.
    state.sel.reset();
    if (stamped && read.settled) state.sel = selNow;
    if (data.sel.empty() || !decoding) return;
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
