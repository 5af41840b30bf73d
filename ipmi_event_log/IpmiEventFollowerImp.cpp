#include "IpmiEventFollowerImp.h"

#include <array>
#include <cstring>

#include "CommandExchange.h"
#include "IPMIAuxiliaryLog.h"
#include "IpmiEventOperations.h"
#include "IpmiException.h"
#include "NewSelRecords.h"
#include "RepositoryInfo.h"
#include "SdrRepositoryRead.h"
#include "ipmi/ByteReader.h"
#include "ipmi/CompletionCode.h"

namespace Tolmar {

namespace {

constexpr int kConnectionTypeLan = 1;

// Whose state a follower keeps: "address:port" over the LAN, "local" in band.
std::string bmcOf(const TolmarConnection::ConnectionInfo& info) {
    return info.connectionType == kConnectionTypeLan ? info.ip + ":" + std::to_string(info.port)
                                                     : "local";
}

constexpr unsigned char kReserveSel = 0x42;
constexpr std::size_t kReservationIdLength = 2;
// Clear SEL's completion code for a reservation that a change to the SEL cancelled.
constexpr unsigned char kReservationCancelled = 0xC5;
// Some BMCs refuse Reserve SEL below the operator level, which Clear SEL needs anyway.
constexpr unsigned char kInsufficientPrivilege = 0xD4;
// Clears tried in one poll while records keep arriving.
constexpr int kClearAttempts = 3;

// What failed in a poll, in words; empty when nothing did. `ending` tells how the SEL's read ended,
// after `recordsRead` records; `clearFailure` why a complete read's clear failed.
std::string failureText(const PollResult& poll, const SelWalk& ending, unsigned long recordsRead,
                        const std::string& clearFailure) {
    const CallReport& call = poll.call;
    const std::string entries = std::to_string(recordsRead) + " SEL entries";
    switch (poll.result) {
        case IpmiEventLog::EL_SUCCESS: {
            // An erase the BMC began after records were read leaves the poll complete (the next
            // looks again) but the read short of the SEL's end.
            const bool erasedPartWay = ending.end == SelWalk::End::Refused &&
                                       ending.completionCode == kCompletionCommandSpecific81 &&
                                       recordsRead != 0;
            if (poll.complete && !erasedPartWay) return clearFailure;
            // Completion code 00h with fewer bytes than a record.
            if (ending.end == SelWalk::End::Refused && ending.completionCode == kCompletionOk)
                return "the BMC answered Get SEL Entry short after " + entries;
            if (ending.end == SelWalk::End::Refused) {
                return "the BMC answered Get SEL Entry with " +
                       ipmiCompletionCodeText(ending.completionCode) + " after " + entries;
            }
            return "BMC stopped answering after " + entries;
        }
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

// Why Reserve SEL gave no reservation, for a clear that could not be made.
std::string reservationFailureText(const CommandResponse& reserved) {
    if (reserved.status != 0) return "the SEL was not cleared: the BMC did not answer Reserve SEL";
    if (reserved.completionCode == kCompletionOk)
        return "the SEL was not cleared: the BMC answered Reserve SEL without a reservation ID";
    std::string text = "the SEL was not cleared: the BMC answered Reserve SEL with " +
                       ipmiCompletionCodeText(reserved.completionCode);
    if (reserved.completionCode == kInsufficientPrivilege)
        text += "; clearing the SEL needs the operator privilege level";
    return text;
}

// `record`'s event in IPMI v2.0 terms. Severity and auxiliary details are those IpmiEventLog found
// (`described`): the matching PEF filter's, of which OEM records have none, and the auxiliary
// log's.
TolmarAgentless::IPMIEVENT ipmiRendering(const DecodedSelRecord& record,
                                         const TolmarAgentless::IPMIEVENT& described) {
    TolmarAgentless::IPMIEVENT event;
    event.recordId = record.recordId;
    event.timeStamp = selTimeText(record);
    event.message = record.description;
    event.source = record.source;
    event.severity = record.kind == DecodedSelRecord::Kind::SystemEvent ? described.severity : 0;
    event.auxLog = described.auxLog;
    return event;
}

SelHealth healthOf(bool answered, const RepositoryStamps& stamps, const SelSpace& space) {
    SelHealth health;
    if (!answered) return health;
    health.known = true;
    health.entries = stamps.records;
    health.freeBytes = space.freeBytes;
    health.overflow = space.overflow;
    return health;
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

PollResult IpmiEventFollowerImp::Poll(const Outputs& outputs) {
    PollResult poll;
    readToEnd_ = false;
    // The state moves on only when the session opened; the reads keep what they got before a
    // failure, as the whole log's do.
    FollowerState next = state_;
    EventLogData data;
    SelWalk ending;
    unsigned long recordsRead = 0;
    std::string clearFailure;
    const bool decoding = outputs.events != nullptr || outputs.followed != nullptr;
    const auto read = [&](IpmiClient& client) {
        SelChain walks(client);
        try {
            readSelChanges(client, walks, next, data.sel, poll, ending);
            // Records only skipped were never shown: they are not cleared away.
            if (decoding && poll.complete && clearAtPercent_ != 0 &&
                poll.sel.FullTo(clearAtPercent_))
                clearReadSel(client, walks, next, data.sel, poll, ending, clearFailure);
            if (decoding && !data.sel.empty())
                readRenderingData(client, next, data, poll.restarted);
            if (outputs.followed != nullptr && !data.sel.empty() && !bmcAsked_)
                askBmcIdentity(client);
        } catch (const IpmiException&) {
            poll.complete = false;
            ending.end = SelWalk::End::Unanswered;
        }
        recordsRead = walks.recordsRead();
        return static_cast<int>(IpmiEventLog::EL_SUCCESS);
    };
    ClientSession session(target_, settings_);
    // As for the whole log: 6 for an IpmiException while connecting.
    poll.result = session.run(read, {IpmiEventLog::EL_INTERNAL_FAIL, IpmiEventLog::EL_SUCCESS});
    poll.call = session.report();
    poll.failure = failureText(poll, ending, recordsRead, clearFailure);
    if (poll.result != IpmiEventLog::EL_SUCCESS) return poll;
    state_ = std::move(next);
    poll.entriesRead = data.sel.size();
    // An erase in progress ends a walk as a complete one, to be looked at again.
    readToEnd_ = poll.complete && !(ending.end == SelWalk::End::Refused &&
                                    ending.completionCode == kCompletionCommandSpecific81);
    if (outputs.entries != nullptr) {
        for (const RawSelEntry& record : data.sel)
            outputs.entries->push_back(record.toIpmiSelEntry());
    }
    if (!decoding) return poll;
    std::vector<TolmarAgentless::IPMIEVENT> described;
    try {
        data.appendDecodedEvents(described);
    } catch (const IpmiException&) {
        // As for the whole log: the events rendered so far stay.
    }
    if (outputs.followed != nullptr) appendFollowed(data.sel, described, *outputs.followed);
    if (outputs.events != nullptr)
        outputs.events->insert(outputs.events->end(), described.begin(), described.end());
    return poll;
}

void IpmiEventFollowerImp::appendFollowed(const std::vector<RawSelEntry>& records,
                                          const std::vector<TolmarAgentless::IPMIEVENT>& described,
                                          std::vector<FollowedEvent>& followed) const {
    const SelDecoder decoder = bmc_ ? SelDecoder(state_.sdrs, *bmc_) : SelDecoder(state_.sdrs);
    for (std::size_t i = 0; i < described.size() && i < records.size(); ++i) {
        FollowedEvent event;
        event.entry = records[i].toIpmiSelEntry();
        std::array<std::uint8_t, sizeof event.entry> bytes;
        std::memcpy(bytes.data(), &event.entry, bytes.size());
        event.record = decoder.decode(bytes);
        event.event = rendering_ == EventRendering::Described
                          ? described[i]
                          : ipmiRendering(event.record, described[i]);
        followed.push_back(std::move(event));
    }
}

void IpmiEventFollowerImp::askBmcIdentity(IpmiClient& client) {
    // Get Device ID (IPMI v2.0 section 20.1): the manufacturer ID in bytes 7-9 (20 bits, least
    // significant byte first) and the product ID in bytes 10-11 of the data.
    constexpr unsigned char netFnApp = 0x06;
    constexpr unsigned char getDeviceId = 0x01;
    constexpr std::size_t manufacturerAt = 6;
    constexpr std::size_t productAt = 9;
    constexpr std::size_t length = 11;
    const CommandResponse answer = exchange(client, netFnApp, getDeviceId, {});
    // A BMC that answered, whatever it said, is not asked again; one that did not answer is.
    bmcAsked_ = answer.status == 0;
    if (!answer.succeeded(length)) return;
    ByteReader reader(answer.data, manufacturerAt);
    BmcIdentity bmc;
    bmc.manufacturerId = reader.u24() & 0xFFFFF;
    bmc.productId = ByteReader(answer.data, productAt).u16();
    bmc_ = bmc;
}

void IpmiEventFollowerImp::readSelChanges(IpmiClient& client, SelChain& walks, FollowerState& state,
                                          std::vector<RawSelEntry>& records, PollResult& poll,
                                          SelWalk& ending) {
    RepositoryStamps selNow;
    SelSpace space;
    const bool stamped = RepositoryInfo(client).sel(selNow, space);
    poll.sel = healthOf(stamped, selNow, space);
    // Nothing added or erased since the SEL was last read to its end.
    if (stamped && state.sel && *state.sel == selNow) return;
    // An empty SEL needs no walk to tell.
    NewSelRecords read =
        stamped && selNow.records == 0
            ? NewSelRecords::empty(state.recent)
            : NewSelRecords::read(walks, state.recent, state.first,
                                  {stamped ? std::optional(selNow) : std::nullopt, state.sel});
    poll.complete = read.complete;
    poll.restarted = poll.restarted || read.restarted;
    poll.cleared = poll.cleared || read.cleared;
    ending = read.ending;
    state.recent = std::move(read.recent);
    state.first = read.first;
    records.insert(records.end(), read.records.begin(), read.records.end());
    // A read that did not reach the SEL's end is taken up again at the next poll, whatever the
    // stamps say.
    state.sel.reset();
    if (stamped && read.settled) state.sel = selNow;
}

void IpmiEventFollowerImp::clearReadSel(IpmiClient& client, SelChain& walks, FollowerState& state,
                                        std::vector<RawSelEntry>& records, PollResult& poll,
                                        SelWalk& ending, std::string& failure) {
    IpmiEventOperations events(client);
    for (int attempt = 0; attempt < kClearAttempts; ++attempt) {
        // The reservation comes before the last read: a record the BMC adds after that read
        // cancels it (IPMI v2.0 section 31.4), and the clear is refused rather than losing it.
        const CommandResponse reserved = exchange(client, kNetFnStorage, kReserveSel, {});
        if (!reserved.succeeded(kReservationIdLength)) {
            failure = reservationFailureText(reserved);
            return;
        }
        readSelChanges(client, walks, state, records, poll, ending);
        if (!poll.complete) return;
        const CommandResponse answer = events.clearSel(reserved.data[0], reserved.data[1]);
        if (answer.status != 0) answer.raise();
        if (answer.completionCode == kCompletionOk) {
            poll.emptied = true;
            RepositoryStamps after;
            SelSpace space;
            const bool stamped = RepositoryInfo(client).sel(after, space);
            poll.sel = healthOf(stamped, after, space);
            // The records emitted are forgotten once the SEL shows empty, or erasing (which
            // refuses Get SEL Info with 81h); a SEL that still shows records keeps them, to be
            // found again, as a BMC that did not clear would.
            if (!stamped || after.records == 0) {
                state.recent.clear();
                state.first.reset();
            }
            state.sel.reset();
            return;
        }
        if (answer.completionCode != kReservationCancelled) {
            failure = "the SEL was not cleared: the BMC answered Clear SEL with " +
                      ipmiCompletionCodeText(answer.completionCode);
            return;
        }
    }
    failure = "the SEL was not cleared: records kept arriving through " +
              std::to_string(kClearAttempts) + " attempts";
}

void IpmiEventFollowerImp::readRenderingData(IpmiClient& client, FollowerState& state,
                                             EventLogData& data, bool restarted) {
    IpmiEventOperations events(client);
    readRenderingRecords(client, state);
    readAuxiliaryLog(events, state, restarted);
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
    if (count <= known) return;
    // Only entries read to their end are kept: the rest are read again at the next poll.
    unsigned whole = 0;
    state.auxiliary.resize(count);
    events.readExtendedDataFrom(known + 1, state.auxiliary.data() + known, count - known, &whole);
    state.auxiliary.resize(known + whole);
}

void IpmiEventFollowerImp::readRenderingRecords(IpmiClient& client, FollowerState& state) {
    // The repository is read again, whole, only when it changed (or says nothing): a stale record
    // would name the wrong sensor; one read part way is read again at the next poll. Filters
    // carry no stamps; they are few and read each time.
    RepositoryStamps sdrNow;
    const bool stamped = RepositoryInfo(client).sdrRepository(sdrNow);
    if (!stamped || !state.sdr || *state.sdr != sdrNow) {
        const bool whole = SdrRepositoryRead(client).readAll(state.sdrs);
        state.sensors = sensorImagesOf(state.sdrs);
        state.sdr.reset();
        if (stamped && whole) state.sdr = sdrNow;
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
