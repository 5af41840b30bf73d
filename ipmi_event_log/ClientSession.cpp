#include "ClientSession.h"

#include <new>
#include <utility>

#include "IpmiEventLog.h"
#include "IpmiException.h"
#include "PlatformExtensions.h"

namespace Tolmar {

namespace {

constexpr unsigned long kLocalInterface = 0;
constexpr int kConnectStatusCredentialsRefused = 2;
constexpr int kConnectStatusFailed = 1;

bool anySet(const ConnectionSettings& settings) {
    return settings.cipherSuite || settings.privilege || settings.bmcKey ||
           settings.allowCipherSuiteZero || settings.sessionTimeout ||
           settings.retransmissionTimeout || !settings.workarounds.empty();
}

}  // namespace

// Starts the thread's call record where the framework keeps one; hands what it holds to the
// session's report, and to the thread's ConnectionScope, when destroyed.
class ClientSession::Reporting {
public:
    explicit Reporting(CallReport& report)
        : report_(report), extensions_(offeredPlatformExtensions()) {
        if (extensions_ != nullptr) extensions_->StartCallRecord();
    }
    ~Reporting() {
        report_ = extensions_ != nullptr ? extensions_->CallRecord() : CallReport{};
        ConnectionScope::Record(report_);
    }
    Reporting(const Reporting&) = delete;
    Reporting& operator=(const Reporting&) = delete;

private:
    CallReport& report_;
    PlatformExtensions* extensions_;
};

ClientSession::ClientSession(ClientTarget target, ConnectionSettings settings)
    : target_(std::move(target)), settings_(std::move(settings)) {}

int ClientSession::connectFailureResult(int connectStatus) {
    return connectStatus == kConnectStatusCredentialsRefused ? IpmiEventLog::EL_AUTHTICATION_FAIL
                                                             : IpmiEventLog::EL_CONNECTION_FAIL;
}

bool ClientSession::settingsUnavailable() const {
    return offeredPlatformExtensions() == nullptr && anySet(settings_);
}

int ClientSession::refuseSettings() {
    report_ = CallReport{};
    report_.connectFailure =
        "the framework's IPMI client takes no connection settings: connect without them";
    ConnectionScope::Record(report_);
    return IpmiEventLog::EL_CONNECTION_FAIL;
}

IpmiClient* ClientSession::createClient() const {
    if (PlatformExtensions* extensions = offeredPlatformExtensions())
        return extensions->CreateClient(target_, settings_);
    if (target_.remote) {
        return new (std::nothrow) IpmiClient(target_.address, target_.user, target_.password,
                                             target_.port, target_.cipherSuite);
    }
    return new (std::nothrow) IpmiClient(kLocalInterface);
}

int ClientSession::run(const std::function<int(IpmiClient&)>& read, ExceptionResults onException,
                       const std::function<void()>& afterwards, const Narration& narration) {
    if (settingsUnavailable()) {
        const int result = refuseSettings();
        if (narration.connectFailed) narration.connectFailed(result);
        return result;
    }
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
    if (settingsUnavailable()) {
        refuseSettings();
        return kConnectStatusFailed;
    }
    const Reporting reporting(report_);
    IpmiClient* client = createClient();
    if (client == nullptr) return IpmiEventLog::EL_INTERNAL_FAIL;
    return client->connect();
}

}  // namespace Tolmar
