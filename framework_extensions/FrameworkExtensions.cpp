#include "FrameworkExtensions.h"

#include <new>

#include "IpmiClient.h"
#include "IpmiClientActivity.h"
#include "IpmiClientSettings.h"
#include "Log.h"
#include "ipmi/CompletionCode.h"

namespace Tolmar {

namespace {

constexpr unsigned long kLocalInterface = 0;

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
    report.available = true;
    report.selEntriesRead = record.selEntries;
    report.requestsUnanswered = record.transportFailures;
    report.refusedCompletionCode = record.lastCompletionCode;
    if (record.lastCompletionCode != 0x00) {
        report.refusal = "the BMC answered " + ipmiCompletionCodeText(record.lastCompletionCode);
    }
    report.connectFailure = record.connectFailure;
    report.warning = record.warning;
    report.session = sessionReportOf(record.session);
    return report;
}

// Offered when the library is loaded (the library's slot is constant-initialised, so the order of
// static initialisation does not matter), and never destroyed: calls made while the process
// exits still find it.
const bool offered = (SetPlatformExtensions(new FrameworkExtensions), true);

}  // namespace

IpmiClient* FrameworkExtensions::CreateClient(const ClientTarget& target,
                                              const ConnectionSettings& settings) {
    // The client takes the settings of the thread's scope when it is constructed.
    const IpmiClientSettingsScope scope(clientSettings(settings));
    if (target.remote) {
        return new (std::nothrow) IpmiClient(target.address, target.user, target.password,
                                             target.port, target.cipherSuite);
    }
    return new (std::nothrow) IpmiClient(kLocalInterface);
}

void FrameworkExtensions::StartCallRecord() { startIpmiCallRecord(); }

CallReport FrameworkExtensions::CallRecord() { return reportOf(ipmiCallRecord()); }

ClientActivity FrameworkExtensions::Activity() {
    const IpmiClientActivity activity = ipmiClientActivity();
    return {true, activity.requests, activity.selEntries};
}

std::vector<std::string> FrameworkExtensions::WorkaroundNames() { return ipmiWorkaroundNames(); }

void FrameworkExtensions::SetLogLevel(int level) { Log::SetMinLogLevel(level); }

}  // namespace Tolmar
