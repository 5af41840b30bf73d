// A UDP forwarder between an IPMI client and a BMC on loopback that loses and delays datagrams,
// standing in for a poor network path (this machine's kernel has no netem). The client talks to
// port(); datagrams in both directions are dropped with the given probability and delayed.
#pragma once

#include <array>
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <functional>
#include <mutex>
#include <optional>
#include <thread>
#include <vector>

namespace bmcsim {

// What the link does to the datagrams it forwards.
struct LinkFaults {
    double lossProbability = 0.0;        // of each datagram, both ways
    std::chrono::microseconds delay{0};  // of each datagram, both ways
    // How much later still each datagram from the BMC goes on to the client; none drops it.
    // Called on the link's thread.
    std::function<std::optional<std::chrono::microseconds>(
        const std::vector<unsigned char>& datagram)>
        answerDelay;
};

// The RMCP+ payload type of a datagram (Open Session answer 11h, RAKP 2 13h, RAKP 4 15h, ...),
// or none for other datagrams.
std::optional<unsigned char> rmcpPlusPayloadType(const std::vector<unsigned char>& datagram);

class LossyLink {
public:
    LossyLink(unsigned short bmcPort, LinkFaults faults);
    LossyLink(unsigned short bmcPort, double lossProbability, std::chrono::microseconds delay)
        : LossyLink(bmcPort, LinkFaults{lossProbability, delay, {}}) {}
    ~LossyLink();
    LossyLink(const LossyLink&) = delete;
    LossyLink& operator=(const LossyLink&) = delete;

    unsigned short port() const { return port_; }
    // Calls `action` (once) when the client has sent its `count`-th datagram through the link.
    void afterClientDatagrams(unsigned long count, std::function<void()> action);
    unsigned long clientDatagrams() const { return clientDatagrams_; }
    unsigned long dropped() const { return dropped_; }
    // Returns once the link has taken in, and counted, every datagram the client sent it before
    // the call: the link works on a thread of its own.
    void catchUp();
    // Datagrams of RMCP+ payload type `payloadType` (see rmcpPlusPayloadType) passed on to the
    // client.
    unsigned long passedToClient(unsigned char payloadType) const {
        return passedToClient_[payloadType & 0x3F];
    }
    // The client's own time for each exchange since the last call, in seconds: from an answer
    // leaving the link towards the client to the client's next datagram arriving. Its processing
    // of the answer, the next request, and the loopback hops both ways.
    std::vector<double> takeClientTurnarounds();

private:
    void run(const LinkFaults& faults);

    int clientSide_ = -1;  // bound to port_, where the client sends
    int bmcSide_ = -1;     // connected to the BMC
    unsigned short port_ = 0;
    std::atomic<bool> stopping_{false};
    std::atomic<unsigned long> clientDatagrams_{0};
    std::atomic<unsigned long> dropped_{0};
    std::array<std::atomic<unsigned long>, 64> passedToClient_{};
    std::mutex catchUpMutex_;
    std::condition_variable caughtUp_;
    unsigned long catchUpsAsked_ = 0;
    unsigned long catchUpsDone_ = 0;
    unsigned long actionAt_ = 0;
    std::function<void()> action_;
    std::mutex turnaroundsMutex_;
    std::vector<double> turnarounds_;
    std::thread thread_;
};

}  // namespace bmcsim
