#include "IpmiEventLogImp.h"

#include <sstream>

#include "EventLogData.h"
#include "IpmiEventOperations.h"
#include "IpmiSDROperations.h"
#include "Log.h"
#include "RawSelEntry.h"

namespace Tolmar {

namespace {

constexpr int kConnectionTypeLocal = 0;
constexpr int kConnectionTypeLan = 1;
// The commands that change the SEL fail with EL_INTERNAL_FAIL on an IpmiException.
constexpr ClientSession::ExceptionResults kChangeExceptionResults = {
    IpmiEventLog::EL_INTERNAL_FAIL, IpmiEventLog::EL_INTERNAL_FAIL};

const char* const kLogSource = "ipmi_event_log/IpmiEventLogImp";
// Line numbers the event log's messages have always carried; log readers key on them.
constexpr int kClientLogLine = 81;
constexpr int kNoClientLogLine = 88;
constexpr int kAuthenticationFailLogLine = 221;
constexpr int kConnectionFailLogLine = 224;

bool logsFailures() { return Log::GetMinLogLevel() != 0; }
bool logsTraces() { return Log::GetMinLogLevel() > 3; }

}  // namespace

IpmiEventLogImp::IpmiEventLogImp(const TolmarConnection::ConnectionInfo& info) {
    RecostructParameters(info);
}

void IpmiEventLogImp::RecostructParameters(const TolmarConnection::ConnectionInfo& info) {
    connInfo_ = info;
    ip_ = info.ip;
    user_ = info.user;
    password_ = info.password;
    extra1_ = info.extra1;
    ciphersuite_ = info.cipherSuite;
    std::ostringstream port;
    port << info.port;
    if (info.connectionType == kConnectionTypeLan || info.connectionType == kConnectionTypeLocal) {
        port_ = port.str();
        remote_ = info.connectionType == kConnectionTypeLan;
    }
}

ClientSession IpmiEventLogImp::session() const {
    return ClientSession({remote_, ip_, user_, password_, port_, ciphersuite_},
                         ConnectionScope::Current());
}

int IpmiEventLogImp::GetConnectStatus() {
    // The probe's client stays connected and is never deleted: the probe leaves its session open
    // by design, and no exception is caught here.
    return session().probe();
}

int IpmiEventLogImp::ResetConn(const TolmarConnection::ConnectionInfo& info) {
    RecostructParameters(info);
    return GetConnectStatus();
}

int IpmiEventLogImp::GetAllIpmiEventLog(std::vector<TolmarAgentless::IPMIEVENT>& events) {
    ClientSession::Narration narration;
    narration.clientCreated = [this] {
        if (!remote_ || !logsTraces()) return;
        // Never the password.
        Log(4, kLogSource, kClientLogLine).Stream()
            << "vkmip:" << ip_ << " user:" << user_ << " port:" << port_
            << " ciphersuite_:" << ciphersuite_;
    };
    narration.noClient = [] {
        if (!logsFailures()) return;
        Log(1, kLogSource, kNoClientLogLine).Stream()
            << "GetAllIpmiEventLog IpmiEventLog::EL_INTERNAL_FAIL";
    };
    narration.connectFailed = [](int result) {
        if (!logsFailures()) return;
        const bool refused = result == IpmiEventLog::EL_AUTHTICATION_FAIL;
        Log(1, kLogSource, refused ? kAuthenticationFailLogLine : kConnectionFailLogLine).Stream()
            << (refused ? "GetAllIpmiEventLog IpmiEventLog::EL_AUTHTICATION_FAIL"
                        : "GetAllIpmiEventLog IpmiEventLog::EL_CONNECTION_FAIL");
    };
    EventLogData data;
    const auto read = [&data](IpmiClient& client) {
        IpmiEventOperations eventOperations(client);
        IpmiSDROperations sdrOperations(client);
        data.read(eventOperations, sdrOperations);
        return static_cast<int>(IpmiEventLog::EL_SUCCESS);
    };
    // Everything is read before rendering starts: the session is as short as the reads allow.
    // Once connected, an IpmiException keeps the events appended so far and counts as success.
    return session().run(
        read, {IpmiEventLog::EL_INTERNAL_FAIL, IpmiEventLog::EL_SUCCESS},
        [&data, &events] { data.appendDecodedEvents(events); }, narration);
}

int IpmiEventLogImp::GetIpmiEventLogByRecordId(unsigned long recordId,
                                               TolmarAgentless::IPMIEVENT& event) {
    std::vector<TolmarAgentless::IPMIEVENT> all;
    const int result = GetAllIpmiEventLog(all);
    if (result != IpmiEventLog::EL_SUCCESS) return result;
    // Every match is taken, so the last one wins; only these four fields are written.
    bool found = false;
    for (const TolmarAgentless::IPMIEVENT& candidate : all) {
        if (candidate.recordId != recordId) continue;
        event.recordId = recordId;
        event.timeStamp = candidate.timeStamp;
        event.message = candidate.message;
        event.severity = candidate.severity;
        found = true;
    }
    return found ? IpmiEventLog::EL_SUCCESS : IpmiEventLog::EL_NOT_FOUND;
}

int IpmiEventLogImp::GetAllIpmiSelEntry(std::vector<IPMISELENTRY>& entries) {
    // Once connected, an exception keeps what has been appended and still counts as success.
    const auto readAll = [&entries](IpmiClient& client) {
        std::vector<RawSelEntry> records;
        IpmiEventOperations(client).getRawSelEntries(records);
        for (const RawSelEntry& record : records) entries.push_back(record.toIpmiSelEntry());
        return static_cast<int>(IpmiEventLog::EL_SUCCESS);
    };
    return session().run(readAll, {IpmiEventLog::EL_INTERNAL_FAIL, IpmiEventLog::EL_SUCCESS});
}

int IpmiEventLogImp::GetIpmiSelEntryByRecordId(unsigned long recordId, IPMISELENTRY& entry) {
    const auto readOne = [recordId, &entry](IpmiClient& client) {
        RawSelEntry record{};
        const int result = IpmiEventOperations(client).getSelEntry(recordId, record);
        if (result == IpmiEventLog::EL_SUCCESS) entry = record.toIpmiSelEntry();
        return result;
    };
    // This read reports an IpmiException as "not supported", unlike the commands that change the
    // SEL; callers rely on the difference.
    return session().run(readOne, {IpmiEventLog::EL_NOT_SUPPORTED, IpmiEventLog::EL_NOT_SUPPORTED});
}

int IpmiEventLogImp::DeleteEventLog(unsigned long recordId) {
    return session().run(
        [recordId](IpmiClient& client) { return IpmiEventOperations(client).deleteSEL(recordId); },
        kChangeExceptionResults);
}

int IpmiEventLogImp::DeleteAllEventLog() {
    return session().run(
        [](IpmiClient& client) { return IpmiEventOperations(client).deleteAllSEL(); },
        kChangeExceptionResults);
}

int IpmiEventLogImp::AddSelEntry(const IPMISELENTRY& entry) {
    return session().run(
        [&entry](IpmiClient& client) { return IpmiEventOperations(client).AddSelEntry(entry); },
        kChangeExceptionResults);
}

}  // namespace Tolmar
