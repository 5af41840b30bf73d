#include "IpmiConnectionSettings.h"

#include <string.h>

#include "IpmiClientActivity.h"
#include "IpmiClientSettings.h"
#include "Log.h"

namespace Tolmar {

namespace {

thread_local ConnectionScope* innermost = nullptr;

}  // namespace

ConnectionScope::ConnectionScope(const ConnectionSettings& settings)
    : settings_(settings), outer_(innermost) {
    innermost = this;
}

ConnectionScope::~ConnectionScope() {
    innermost = outer_;
    if (settings_.bmcKey) explicit_bzero(settings_.bmcKey->data(), settings_.bmcKey->size());
}

ConnectionSettings ConnectionScope::Current() {
    return innermost != nullptr ? innermost->settings_ : ConnectionSettings{};
}

void ConnectionScope::Record(const CallReport& report) {
    if (innermost != nullptr) innermost->lastCall_ = report;
}

ClientActivity GetClientActivity() {
    const IpmiClientActivity activity = ipmiClientActivity();
    return {activity.requests, activity.selEntries};
}

std::vector<std::string> WorkaroundNames() { return ipmiWorkaroundNames(); }

void SetLogLevel(int level) { Log::SetMinLogLevel(level); }

}  // namespace Tolmar
