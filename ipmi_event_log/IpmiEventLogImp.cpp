#include "IpmiEventLogImp.h"

#include <new>
#include <sstream>

#include "IpmiEventOperations.h"
#include "IpmiException.h"
#include "RawSelEntry.h"

namespace Tolmar {

namespace {

constexpr int kConnectionTypeLocal = 0;
constexpr int kConnectionTypeLan = 1;
constexpr unsigned long kLocalInterface = 0;
constexpr int kConnectStatusAuthenticationRefused = 2;

int connectFailureResult(int connectStatus) {
    return connectStatus == kConnectStatusAuthenticationRefused ? IpmiEventLog::EL_AUTHTICATION_FAIL
                                                                : IpmiEventLog::EL_CONNECTION_FAIL;
}

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
