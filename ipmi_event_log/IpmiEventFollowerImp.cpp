#include "IpmiEventFollowerImp.h"

#include <cstring>
#include <memory>

#include "IPMIAuxiliaryLog.h"
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

unsigned long recordIdOf(const RawSelEntry& record) {
    return record.recordId[0] | record.recordId[1] << 8;
}

bool sameRecord(const RawSelEntry& a, const RawSelEntry& b) {
    return std::memcmp(&a, &b, sizeof a) == 0;
}

}  // namespace

IpmiEventFollowerImp::IpmiEventFollowerImp(const TolmarConnection::ConnectionInfo& info)
    : connection_(info) {
    state_.bmc = bmcOf(info);
}

int IpmiEventFollowerImp::Poll(std::vector<TolmarAgentless::IPMIEVENT>& events) {
    restarted_ = false;
    complete_ = true;
    const std::unique_ptr<IpmiClient> client(connection_.createClient());
    if (!client) return IpmiEventLog::EL_INTERNAL_FAIL;
    // The state moves on only when the session opened; the reads keep what they got before a
    // failure, as the whole log's do.
    FollowerState next = state_;
    EventLogData data;
    bool connected = false;
    try {
        const int status = client->connect();
        if (status != 0) return IpmiEventLogImp::connectFailureResult(status);
        connected = true;
        readChanges(*client, next, data);
        client->disconnect();
    } catch (const IpmiException&) {
        client->disconnect();
        // As for the whole log: 6 while connecting; once connected, what was read is kept.
        if (!connected) return IpmiEventLog::EL_INTERNAL_FAIL;
        complete_ = false;
    }
    state_ = std::move(next);
    try {
        data.appendDecodedEvents(events);
    } catch (const IpmiException&) {
        // As for the whole log: the events rendered so far stay.
    }
    return IpmiEventLog::EL_SUCCESS;
}

void IpmiEventFollowerImp::readChanges(IpmiClient& client, FollowerState& state,
                                       EventLogData& data) {
    IpmiEventOperations events(client);
    RepositoryInfo info(client);
    RepositoryStamps selNow;
    const bool stamped = info.sel(selNow);
    // Nothing added or erased since the SEL was last read to its end.
    if (stamped && state.sel && *state.sel == selNow) return;
    data.sel = readNewRecords(events, state);
    // A read that ended early is taken up again at the next poll, whatever the stamps say.
    state.sel.reset();
    if (stamped && complete_) state.sel = selNow;
    if (data.sel.empty()) return;
    state.lastRecord = data.sel.back();
    readRenderingRecords(client, state);
    readAuxiliaryLog(events, state);
    data.sdr = state.sensors;
    data.pet = state.filters;
    data.relateRecords();
    data.auxEntries = IPMIAuxiliaryLog().ParseExtendedSELData(
        state.auxiliary.data(), static_cast<unsigned>(state.auxiliary.size()));
}

void IpmiEventFollowerImp::readAuxiliaryLog(IpmiEventOperations& events, FollowerState& state) {
    // The log grows at its end: only entries after those read before are read. A shorter log, or
    // a SEL read again from its start, reads it all again.
    unsigned int count = 0;
    events.IPMIGetAuxLogStatus(&count);
    if (count < state.auxiliary.size() || restarted_) state.auxiliary.clear();
    const auto known = static_cast<unsigned>(state.auxiliary.size());
    state.auxiliary.resize(count);
    if (count > known)
        events.readExtendedDataFrom(known + 1, state.auxiliary.data() + known, count - known);
}

std::vector<RawSelEntry> IpmiEventFollowerImp::readNewRecords(IpmiEventOperations& events,
                                                              const FollowerState& state) {
    std::vector<RawSelEntry> records;
    if (state.lastRecord) {
        // The chain from the record read last: it comes again first, the new ones after it.
        complete_ = events.walkSel(recordIdOf(*state.lastRecord), records);
        if (!records.empty() && sameRecord(records.front(), *state.lastRecord)) {
            records.erase(records.begin());
            return records;
        }
        records.clear();
    }
    // The first poll; or the record read last is gone (the SEL was cleared, or that record
    // deleted) or was read differently: every record is new.
    complete_ = events.walkSel(kFirstRecord, records);
    restarted_ = state.lastRecord.has_value() && !records.empty();
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
    if (read && loaded.bmc != state_.bmc) {
        error = path + ": the state of BMC " + loaded.bmc + ", not of " + state_.bmc;
    }
    const bool taken = read && loaded.bmc == state_.bmc;
    // Anything else starts afresh: the next poll reads the whole SEL.
    FollowerState fresh;
    fresh.bmc = state_.bmc;
    state_ = taken ? std::move(loaded) : std::move(fresh);
    return taken;
}

}  // namespace Tolmar
