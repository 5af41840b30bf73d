// A small RMCP+ BMC of the tests' own, on a free UDP port of 127.0.0.1 (or ::1), for handshakes
// ipmi_sim cannot produce: a BMC key (K_g), a resent RAKP message 3 refused, RAKP message 4 lost,
// session ID 0, forged refusals, and the departures from IPMI v2.0 real BMCs were seen with
// (CraftedBehaviour). One user; in a session it answers Set Session Privilege Level, Get Device
// ID and Close Session, and other commands through its command answerer (an in-memory BMC's, say),
// or refuses them with C1h without one.
#pragma once

#include <atomic>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "RmcpPlusResponder.h"

namespace bmcsim {

class CraftedBmc {
public:
    explicit CraftedBmc(CraftedBehaviour behaviour, CommandAnswerer answerer = nullptr);
    ~CraftedBmc();
    CraftedBmc(const CraftedBmc&) = delete;
    CraftedBmc& operator=(const CraftedBmc&) = delete;

    unsigned short port() const { return port_; }
    // Sessions opened and neither closed nor refused: half-open and active ones.
    int openSessions() const;
    // Whether the count comes to `count` within a second: a client's last datagram may still be
    // on its way when the client returns.
    bool settlesAt(int count) const;
    // Open Session requests received: one per handshake the client started.
    int openSessionRequests() const { return responder_.openSessionRequests(); }
    // The privilege level of the last Set Session Privilege Level it granted.
    int grantedPrivilege() const { return responder_.grantedPrivilege(); }
    // Reserve SEL requests refused for the session's privilege level.
    int reservationsRefused() const { return responder_.reservationsRefused(); }
    // Get Channel Cipher Suites requests received.
    int cipherSuiteRequests() const { return responder_.cipherSuiteRequests(); }
    // The cipher suite each Open Session proposed, in order; -1 for no known suite.
    std::vector<int> proposedCipherSuites() const;
    // The requested maximum privilege level of the last Open Session request.
    int openSessionPrivilege() const { return responder_.openSessionPrivilege(); }
    // The user name of the last RAKP message 1, as it came.
    std::string rakp1UserName() const;

private:
    void run();

    RmcpPlusResponder responder_;
    int family_;  // AF_INET: on 127.0.0.1; AF_INET6: on ::1
    int socket_ = -1;
    unsigned short port_ = 0;
    int answerSocket_ = -1;  // socket_, or another port's with answerFromAnotherPort
    mutable std::mutex mutex_;
    std::atomic<bool> stopping_{false};
    std::thread thread_;
};

}  // namespace bmcsim
