// One request's IPMI session, alike for every operation of the event log and the follower: an
// IpmiClient is created (with the connection's settings, where the framework offers a way to give
// them), connected (a refused connection gives EL_AUTHTICATION_FAIL, another failure
// EL_CONNECTION_FAIL), used, disconnected and deleted; an IpmiException is turned into the
// operation's result; what the session met is reported, where the framework reports it.
#pragma once

#include <functional>

#include "IpmiClient.h"
#include "IpmiConnectionSettings.h"
#include "IpmiPlatformExtensions.h"

namespace Tolmar {

class ClientSession {
public:
    // Results for an IpmiException raised while the session opens and once it is open.
    struct ExceptionResults {
        int beforeConnected;
        int afterConnected;
    };
    // Log lines an operation writes about its session; each may be empty.
    struct Narration {
        std::function<void()> clientCreated;  // also when no client could be allocated
        std::function<void()> noClient;
        std::function<void(int result)> connectFailed;
    };

    ClientSession(ClientTarget target, ConnectionSettings settings);

    // Creates and connects a client, runs `read` in the open session (it returns the result),
    // disconnects, runs `afterwards` and deletes the client. An IpmiException from the connect or
    // from the log line of a failed connect gives that failed connect's result, else
    // `onException.beforeConnected`; one raised later, `onException.afterConnected`. Any other
    // exception leaves with the client undeleted: there is no telling what state it is in.
    int run(const std::function<int(IpmiClient&)>& read, ExceptionResults onException,
            const std::function<void()>& afterwards = {}, const Narration& narration = {});
    // Connects a client and leaves it connected, never deleted: the connection probe. Returns
    // the client's connect status (1, a failure, for settings that cannot be given).
    int probe();

    // What the last run or probe met; also kept in the calling thread's ConnectionScope.
    const CallReport& report() const { return report_; }

    // EL_AUTHTICATION_FAIL for connect status 2 (credentials refused), else EL_CONNECTION_FAIL.
    static int connectFailureResult(int connectStatus);

private:
    // Whether the settings ask for something the framework offers no way to give. Such a
    // connection is refused, with the reason in the report, rather than opened without them.
    bool settingsUnavailable() const;
    // That refusal: the reason reported, EL_CONNECTION_FAIL returned.
    int refuseSettings();
    // A new client built with the settings, or null when it cannot be allocated.
    IpmiClient* createClient() const;
    // Starts the thread's call record; keeps it as the report when destroyed.
    class Reporting;

    ClientTarget target_;
    ConnectionSettings settings_;
    CallReport report_;
};

}  // namespace Tolmar
