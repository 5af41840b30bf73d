#include "ClientSession.h"

#include <new>
#include <utility>

#include "HexText.h"
#include "IpmiClientActivity.h"
#include "IpmiClientSettings.h"
#include "IpmiCompletionCode.h"
#include "IpmiEventLog.h"
#include "IpmiException.h"

namespace Tolmar {

namespace {

constexpr unsigned long kLocalInterface = 0;
constexpr int kConnectStatusCredentialsRefused = 2;

// The framework client's form of the settings.
IpmiClientSettings clientSettings(const ConnectionSettings& settings) {
    IpmiClientSettings client;
    client.cipherSuite = settings.cipherSuite;
    if (settings.privilege) client.privilegeLevel = static_cast<unsigned char>(*settings.privilege);
    client.bmcKey = settings.bmcKey;
    client.allowCipherSuiteZero = settings.allowCipherSuiteZero;
    client.sessionTimeout = settings.sessionTimeout;
    client.retransmissionTimeout = settings.retransmissionTimeout;
    client.workarounds = settings.workarounds;
    return client;
}

SessionReport sessionReportOf(const IpmiSessionFacts& facts) {
    SessionReport report;
    report.ipmiVersion = facts.ipmiVersion;
    report.offeredCipherSuites.assign(facts.offeredCipherSuites.begin(),
                                      facts.offeredCipherSuites.end());
    if (facts.cipherSuite >= 0) report.cipherSuite = static_cast<std::uint16_t>(facts.cipherSuite);
    if (facts.privilegeLevel != 0)
        report.privilege = static_cast<ConnectionSettings::Privilege>(facts.privilegeLevel);
    report.workarounds = facts.workarounds;
    return report;
}

CallReport reportOf(const IpmiCallRecord& record) {
    CallReport report;
    report.selEntriesRead = record.selEntries;
    report.requestsUnanswered = record.transportFailures;
    report.refusedCompletionCode = record.lastCompletionCode;
    if (record.lastCompletionCode != 0x00) {
        report.refusal = "the BMC answered " + completionCodeText(record.lastCompletionCode);
    }
    report.connectFailure = record.connectFailure;
    report.warning = record.warning;
    report.session = sessionReportOf(record.session);
    return report;
}

}  // namespace

std::string completionCodeText(unsigned char code) {
    return hexText(&code, 1, HexCase::Upper) + "h (" + ipmiCompletionCodeName(code) + ")";
}

class ClientSession::Reporting {
public:
    explicit Reporting(CallReport& report) : report_(report) { startIpmiCallRecord(); }
    ~Reporting() {
        report_ = reportOf(ipmiCallRecord());
        ConnectionScope::Record(report_);
    }
    Reporting(const Reporting&) = delete;
    Reporting& operator=(const Reporting&) = delete;

private:
    CallReport& report_;
};

ClientSession::ClientSession(ClientTarget target, ConnectionSettings settings)
    : target_(std::move(target)), settings_(std::move(settings)) {}

int ClientSession::connectFailureResult(int connectStatus) {
    return connectStatus == kConnectStatusCredentialsRefused ? IpmiEventLog::EL_AUTHTICATION_FAIL
                                                             : IpmiEventLog::EL_CONNECTION_FAIL;
}

IpmiClient* ClientSession::createClient() const {
    // The client takes the settings of the thread's scope when it is constructed.
    const IpmiClientSettingsScope scope(clientSettings(settings_));
    if (target_.remote) {
        return new (std::nothrow) IpmiClient(target_.ip, target_.user, target_.password,
                                             target_.port, target_.cipherSuite);
    }
    return new (std::nothrow) IpmiClient(kLocalInterface);
}

int ClientSession::run(const std::function<int(IpmiClient&)>& read, ExceptionResults onException,
                       const std::function<void()>& afterwards, const Narration& narration) {
    const Reporting reporting(report_);
    IpmiClient* client = createClient();
    if (narration.clientCreated) narration.clientCreated();
    if (client == nullptr) {
        if (narration.noClient) narration.noClient();
        return IpmiEventLog::EL_INTERNAL_FAIL;
    }
    int resultOnException = onException.beforeConnected;
    int result = IpmiEventLog::EL_SUCCESS;
    try {
        const int status = client->connect();
        if (status != 0) {
            result = connectFailureResult(status);
            resultOnException = result;
            if (narration.connectFailed) narration.connectFailed(result);
        } else {
            resultOnException = onException.afterConnected;
            result = read(*client);
            client->disconnect();
            if (afterwards) afterwards();
        }
    } catch (const IpmiException&) {
        client->disconnect();
        delete client;
        return resultOnException;
    }
    delete client;  // a failed connect leaves nothing to disconnect
    return result;
}

int ClientSession::probe() {
    const Reporting reporting(report_);
    IpmiClient* client = createClient();
    if (client == nullptr) return IpmiEventLog::EL_INTERNAL_FAIL;
    return client->connect();
}

}  // namespace Tolmar
