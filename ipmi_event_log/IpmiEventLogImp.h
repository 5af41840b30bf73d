// The implementation behind IpmiEventLog: keeps the connection parameters and runs each request in
// a session of its own (ClientSession).
#pragma once

#include <string>
#include <vector>

#include "ClientSession.h"
#include "IpmiEventLog.h"

namespace Tolmar {

class IpmiEventLogImp {
public:
    explicit IpmiEventLogImp(const TolmarConnection::ConnectionInfo& info);

    int GetConnectStatus();
    int GetAllIpmiEventLog(std::vector<TolmarAgentless::IPMIEVENT>& events);
    int GetIpmiEventLogByRecordId(unsigned long recordId, TolmarAgentless::IPMIEVENT& event);
    int ResetConn(const TolmarConnection::ConnectionInfo& info);
    int GetAllIpmiSelEntry(std::vector<IPMISELENTRY>& entries);
    int GetIpmiSelEntryByRecordId(unsigned long recordId, IPMISELENTRY& entry);
    int DeleteEventLog(unsigned long recordId);
    int DeleteAllEventLog();
    int AddSelEntry(const IPMISELENTRY& entry);

    // Takes the parameters of `info`. A connection type other than 0 (local) and 1 (LAN) keeps
    // the previous choice of interface and port.
    void RecostructParameters(const TolmarConnection::ConnectionInfo& info);

private:
    // A session to the configured BMC, with the settings of the calling thread's ConnectionScope.
    ClientSession session() const;

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
