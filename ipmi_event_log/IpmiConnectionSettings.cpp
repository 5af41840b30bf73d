#include "IpmiConnectionSettings.h"

#include <string.h>

#include "PlatformExtensions.h"

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
    PlatformExtensions* extensions = offeredPlatformExtensions();
    return extensions != nullptr ? extensions->Activity() : ClientActivity{};
}

std::vector<std::string> WorkaroundNames() {
    PlatformExtensions* extensions = offeredPlatformExtensions();
    return extensions != nullptr ? extensions->WorkaroundNames() : std::vector<std::string>{};
}

bool SetLogLevel(int level) {
    PlatformExtensions* extensions = offeredPlatformExtensions();
    if (extensions == nullptr) return false;
    extensions->SetLogLevel(level);
    return true;
}

}  // namespace Tolmar
