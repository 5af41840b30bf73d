/**
 * @file IpmiPlatformExtensions.h
 * @brief What a framework may offer the library beyond IpmiClient, IpmiException and Log.
 *
 * The library reads event logs with nothing but the framework's three platform classes. What it
 * adds beyond them (ConnectionSettings, the CallReport of each call, GetClientActivity,
 * WorkaroundNames, SetLogLevel) needs more of the framework's IPMI client: a client built with
 * per-connection settings, and a record of what the clients of a thread met. A framework offers
 * that by implementing PlatformExtensions and handing it to SetPlatformExtensions once, before
 * the library's first call (for example from a static initialiser of the framework's own code).
 *
 * A framework that offers nothing costs nothing: the described operations work as they always
 * do, and each addition says that it is not available:
 * - a connection whose ConnectionSettings set anything fails with EL_CONNECTION_FAIL, and its
 *   CallReport::connectFailure says why (the settings are never dropped silently);
 * - CallReport::available and ClientActivity::available are false;
 * - WorkaroundNames() is empty and SetLogLevel() returns false.
 */
#pragma once

#include <string>
#include <vector>

#include "IpmiConnectionSettings.h"

class IpmiClient;

namespace Tolmar {

/// The BMC a client is for, as IpmiClient's two constructors take it.
struct ClientTarget {
    bool remote = false;            ///< true: on the LAN; false: the local in-band interface
    std::string address;            ///< LAN only
    std::string user;               ///< LAN only
    std::string password;           ///< LAN only
    std::string port;               ///< LAN only, decimal text
    unsigned long cipherSuite = 0;  ///< LAN only
};

/// The framework's side of the library's additions. Called on the thread of the library call
/// that needs it; the implementation must allow calls from several threads at once.
class PlatformExtensions {
public:
    virtual ~PlatformExtensions() = default;

    /// A new client for @p target, allocated with new (the library deletes it), that opens its
    /// session with @p settings; null when it cannot be allocated.
    virtual IpmiClient* CreateClient(const ClientTarget& target,
                                     const ConnectionSettings& settings) = 0;
    /// Starts recording what the clients used on the calling thread meet.
    virtual void StartCallRecord() = 0;
    /// What they met since StartCallRecord on this thread; `available` set.
    virtual CallReport CallRecord() = 0;
    /// What every client of the process has done so far; `available` set.
    virtual ClientActivity Activity() = 0;
    /// The workaround names the clients take (ConnectionSettings::workarounds).
    virtual std::vector<std::string> WorkaroundNames() = 0;
    /// Sets the level up to which the framework's Log writes (0 none ... 4 traces).
    virtual void SetLogLevel(int level) = 0;
};

/// Offers @p extensions to every later call of the library; null takes the offer back. The
/// object must outlive those calls. Not to be called while calls are running.
void SetPlatformExtensions(PlatformExtensions* extensions);

}  // namespace Tolmar
