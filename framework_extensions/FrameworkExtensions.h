// Our framework's offer of the event log library's additions (IpmiPlatformExtensions.h): clients
// built with per-connection settings (IpmiClientSettingsScope), the call records and activity
// counts its IpmiClient keeps, its workaround names and its Log's level. Built into our build of
// the library, which it offers itself to when the library is loaded; a framework of another maker
// brings its own, or none.
#pragma once

#include "IpmiPlatformExtensions.h"

namespace Tolmar {

class FrameworkExtensions : public PlatformExtensions {
public:
    IpmiClient* CreateClient(const ClientTarget& target,
                             const ConnectionSettings& settings) override;
    void StartCallRecord() override;
    CallReport CallRecord() override;
    ClientActivity Activity() override;
    std::vector<std::string> WorkaroundNames() override;
    void SetLogLevel(int level) override;
};

}  // namespace Tolmar
