// The implementation behind IpmiEventLog: keeps the connection parameters and runs each request in
// a session of its own.
#pragma once

#include <string>
#include <vector>

#include "IpmiClient.h"
#include "IpmiEventLog.h"
#include "IpmiEventOperations.h"
#include "IpmiSDROperations.h"

namespace Tolmar {

class IpmiEventLogImp {
public:
    explicit IpmiEventLogImp(const TolmarConnection::ConnectionInfo& info);

    // Takes the parameters of `info`. A connection type other than 0 (local) and 1 (LAN) keeps
    // the previous choice of interface and port.
    void RecostructParameters(const TolmarConnection::ConnectionInfo& info);

    int GetConnectStatus();
    int GetAllIpmiEventLog(std::vector<TolmarAgentless::IPMIEVENT>& events);
    int GetIpmiEventLogByRecordId(unsigned long recordId, TolmarAgentless::IPMIEVENT& event);
    int ResetConn(const TolmarConnection::ConnectionInfo& info);
    int GetAllIpmiSelEntry(std::vector<IPMISELENTRY>& entries);
    int GetIpmiSelEntryByRecordId(unsigned long recordId, IPMISELENTRY& entry);
    int DeleteEventLog(unsigned long recordId);
    int DeleteAllEventLog();
    int AddSelEntry(const IPMISELENTRY& entry);

    // A new client for the configured interface, or null when it cannot be allocated.
    IpmiClient* createClient() const;
    // The result of a connect that failed with `connectStatus`: 4 when the credentials were
    // refused (status 2), 3 otherwise.
    static int connectFailureResult(int connectStatus);

private:
    // Results for an IpmiException raised while the session is being opened and once it is open.
    struct ExceptionResults {
        int beforeConnected;
        int afterConnected;
    };

    // Creates a client, connects, runs `operation` (which returns the result), disconnects and
    // deletes the client.
    template <typename Operation>
    int runInSession(const Operation& operation, ExceptionResults onException) const;

    std::string ip_;
    std::string user_;
    std::string password_;
    std::string port_;
    unsigned long ciphersuite_ = 0;
    unsigned long extra1_ = 0;
    bool remote_ = false;
    TolmarConnection::ConnectionInfo connInfo_;
};

}  // namespace Tolmar
