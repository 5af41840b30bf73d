#include "IpmiEventLogImp.h"

#include <new>
#include <sstream>

#include "EventLogData.h"
#include "IpmiException.h"
#include "Log.h"
#include "RawSelEntry.h"

namespace Tolmar {

namespace {

constexpr int kConnectionTypeLocal = 0;
constexpr int kConnectionTypeLan = 1;
constexpr unsigned long kLocalInterface = 0;
constexpr int kConnectStatusAuthenticationRefused = 2;

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

int IpmiEventLogImp::connectFailureResult(int connectStatus) {
    return connectStatus == kConnectStatusAuthenticationRefused ? IpmiEventLog::EL_AUTHTICATION_FAIL
                                                                : IpmiEventLog::EL_CONNECTION_FAIL;
}

IpmiClient* IpmiEventLogImp::createClient() const {
    if (remote_) return new (std::nothrow) IpmiClient(ip_, user_, password_, port_, ciphersuite_);
    return new (std::nothrow) IpmiClient(kLocalInterface);
}

template <typename Operation>
int IpmiEventLogImp::runInSession(const Operation& operation, ExceptionResults onException) const {
    IpmiClient* client = createClient();
    if (client == nullptr) return IpmiEventLog::EL_INTERNAL_FAIL;
    bool connected = false;
    int result = IpmiEventLog::EL_SUCCESS;
    try {
        IpmiEventOperations operations(*client);
        const int status = client->connect();
        if (status != 0) {
            result = connectFailureResult(status);  // nothing to disconnect
        } else {
            connected = true;
            result = operation(operations);
            client->disconnect();
        }
    } catch (const IpmiException&) {
        client->disconnect();
        delete client;
        return connected ? onException.afterConnected : onException.beforeConnected;
    }
    // Any other exception leaves with the client undeleted: there is no telling what state the
    // client is in.
    delete client;
    return result;
}

int IpmiEventLogImp::GetConnectStatus() {
    // The probe's client stays connected and is never deleted: the probe leaves its session open
    // by design, and no exception is caught here.
    IpmiClient* client = createClient();
    if (client == nullptr) return IpmiEventLog::EL_INTERNAL_FAIL;
    return client->connect();
}

int IpmiEventLogImp::ResetConn(const TolmarConnection::ConnectionInfo& info) {
    RecostructParameters(info);
    return GetConnectStatus();
}

int IpmiEventLogImp::GetAllIpmiEventLog(std::vector<TolmarAgentless::IPMIEVENT>& events) {
    IpmiClient* client = createClient();
    if (remote_ && logsTraces()) {
        // Never the password.
        Log(4, kLogSource, kClientLogLine).Stream()
            << "vkmip:" << ip_ << " user:" << user_ << " port:" << port_
            << " ciphersuite_:" << ciphersuite_;
    }
    if (client == nullptr) {
        if (logsFailures()) {
            Log(1, kLogSource, kNoClientLogLine).Stream()
                << "GetAllIpmiEventLog IpmiEventLog::EL_INTERNAL_FAIL";
        }
        return IpmiEventLog::EL_INTERNAL_FAIL;
    }
    // Where an IpmiException arises decides the result: while connecting 6, while reporting a
    // failed connect that connect's result, once connected 0 with the events appended so far.
    int resultOnException = IpmiEventLog::EL_INTERNAL_FAIL;
    try {
        IpmiEventOperations eventOperations(*client);
        IpmiSDROperations sdrOperations(*client);
        const int status = client->connect();
        if (status != 0) {
            const int result = connectFailureResult(status);
            resultOnException = result;
            if (logsFailures()) {
                const bool refused = result == IpmiEventLog::EL_AUTHTICATION_FAIL;
                Log(1, kLogSource, refused ? kAuthenticationFailLogLine : kConnectionFailLogLine)
                        .Stream()
                    << (refused ? "GetAllIpmiEventLog IpmiEventLog::EL_AUTHTICATION_FAIL"
                                : "GetAllIpmiEventLog IpmiEventLog::EL_CONNECTION_FAIL");
            }
            delete client;  // nothing to disconnect
            return result;
        }
        resultOnException = IpmiEventLog::EL_SUCCESS;
        EventLogData data;
        data.read(eventOperations, sdrOperations);
        // Everything is read before rendering starts: the session is as short as the reads allow.
        client->disconnect();
        data.appendDecodedEvents(events);
    } catch (const IpmiException&) {
        client->disconnect();
        delete client;
        return resultOnException;
    }
    // Any other exception leaves with the client undeleted.
    delete client;
    return IpmiEventLog::EL_SUCCESS;
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
    const auto readAll = [&entries](IpmiEventOperations& operations) {
        std::vector<RawSelEntry> records;
        operations.getRawSelEntries(records);
        for (const RawSelEntry& record : records) entries.push_back(record.toIpmiSelEntry());
        return static_cast<int>(IpmiEventLog::EL_SUCCESS);
    };
    return runInSession(readAll, {IpmiEventLog::EL_INTERNAL_FAIL, IpmiEventLog::EL_SUCCESS});
}

int IpmiEventLogImp::GetIpmiSelEntryByRecordId(unsigned long recordId, IPMISELENTRY& entry) {
    const auto readOne = [recordId, &entry](IpmiEventOperations& operations) {
        RawSelEntry record{};
        const int result = operations.getSelEntry(recordId, record);
        if (result == IpmiEventLog::EL_SUCCESS) entry = record.toIpmiSelEntry();
        return result;
    };
    // This read reports an IpmiException as "not supported", unlike the commands that change the
    // SEL; callers rely on the difference.
    return runInSession(readOne, {IpmiEventLog::EL_NOT_SUPPORTED, IpmiEventLog::EL_NOT_SUPPORTED});
}

int IpmiEventLogImp::DeleteEventLog(unsigned long recordId) {
    return runInSession(
        [recordId](IpmiEventOperations& operations) { return operations.deleteSEL(recordId); },
        {IpmiEventLog::EL_INTERNAL_FAIL, IpmiEventLog::EL_INTERNAL_FAIL});
}

int IpmiEventLogImp::DeleteAllEventLog() {
    return runInSession([](IpmiEventOperations& operations) { return operations.deleteAllSEL(); },
                        {IpmiEventLog::EL_INTERNAL_FAIL, IpmiEventLog::EL_INTERNAL_FAIL});
}

int IpmiEventLogImp::AddSelEntry(const IPMISELENTRY& entry) {
    return runInSession(
        [&entry](IpmiEventOperations& operations) { return operations.AddSelEntry(entry); },
        {IpmiEventLog::EL_INTERNAL_FAIL, IpmiEventLog::EL_INTERNAL_FAIL});
}

}  // namespace Tolmar
