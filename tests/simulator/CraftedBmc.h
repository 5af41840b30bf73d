// A small RMCP+ BMC of the tests' own, on a free UDP port of 127.0.0.1, for handshakes ipmi_sim
// cannot produce: a BMC key (K_g), a resent RAKP message 3 refused, RAKP message 4 lost, session
// ID 0, forged refusals. One user; in a session it answers Set Session Privilege Level, Get Device
// ID and Close Session, and refuses other commands with C1h.
#pragma once

#include <netinet/in.h>

#include <atomic>
#include <cstdint>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

namespace bmcsim {

struct CraftedBehaviour {
    std::string user = "operator1";
    std::string password = "crafted-secret";
    std::string bmcKey;  // K_g; empty: the SIK is keyed by the user's password
    bool sessionIdZero = false;
    // How many RAKP messages 4 it computes but never sends.
    int rakp4Lost = 0;
    // A RAKP message 3 for a session already active is refused with status 02h (invalid session
    // ID), as some BMCs do.
    bool refuseResentRakp3 = false;
    // Requests in a session are ignored until its RAKP message 4 went out.
    bool ignoreSessionRequestsUntilRakp4 = false;
    // Before each answer of the handshake, a refusal that does not carry the console's session ID:
    // status 0Ah (privilege) as tag and status alone, and 0Dh (name) with another session ID.
    bool forgeRefusals = false;
};

class CraftedBmc {
public:
    explicit CraftedBmc(CraftedBehaviour behaviour);
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
    int openSessionRequests() const { return openSessionRequests_; }
    // The privilege level of the last Set Session Privilege Level it granted.
    int grantedPrivilege() const { return grantedPrivilege_; }

private:
    struct Session;
    using Bytes = std::vector<unsigned char>;

    void run();
    void answer(const Bytes& datagram);
    void answerChannelCapabilities(const Bytes& message);
    void openSession(const Bytes& request);
    void rakp1(const Bytes& request);
    void rakp3(const Bytes& request);
    void inSession(const Bytes& datagram);
    void sendSetup(unsigned char payloadType, const Bytes& payload);
    void reply(const Bytes& packet);
    void forgeRefusal(unsigned char payloadType, unsigned char tag);
    Session* find(std::uint32_t bmcSessionId);

    CraftedBehaviour behaviour_;
    int socket_ = -1;
    sockaddr_in client_{};
    unsigned short port_ = 0;
    std::uint32_t nextSessionId_ = 0x5E550001;
    mutable std::mutex mutex_;
    std::map<std::uint32_t, std::unique_ptr<Session>> sessions_;  // by the BMC's session ID
    std::atomic<int> openSessionRequests_{0};
    std::atomic<int> grantedPrivilege_{0};
    std::atomic<bool> stopping_{false};
    std::thread thread_;
};

}  // namespace bmcsim
