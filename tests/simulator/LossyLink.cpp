#include "LossyLink.h"

#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <deque>
#include <random>
#include <stdexcept>
#include <utility>
#include <vector>

#include "Loopback.h"

namespace bmcsim {

namespace {

using namespace std::chrono_literals;

struct Pending {
    std::chrono::steady_clock::time_point due;
    bool toBmc;
    std::vector<unsigned char> bytes;
};

// Datagrams in the order they are due: the two directions may be delayed differently.
void schedule(std::deque<Pending>& pending, Pending datagram) {
    const auto later = std::upper_bound(
        pending.begin(), pending.end(), datagram.due,
        [](std::chrono::steady_clock::time_point due, const Pending& p) { return due < p.due; });
    pending.insert(later, std::move(datagram));
}

}  // namespace

std::optional<unsigned char> rmcpPlusPayloadType(const std::vector<unsigned char>& datagram) {
    // RMCP header (4 bytes), then authentication type 06h for RMCP+ and the payload type.
    constexpr unsigned char rmcpPlus = 0x06;
    if (datagram.size() < 6 || datagram[4] != rmcpPlus) return std::nullopt;
    return datagram[5] & 0x3F;
}

LossyLink::LossyLink(unsigned short bmcPort, LinkFaults faults) {
    clientSide_ = bindLoopback(SOCK_DGRAM, 0);
    bmcSide_ = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    const sockaddr_in bmc = loopbackAddress(bmcPort);
    if (clientSide_ < 0 || bmcSide_ < 0 ||
        connect(bmcSide_, reinterpret_cast<const sockaddr*>(&bmc), sizeof bmc) != 0) {
        throw std::runtime_error("cannot set up the lossy link");
    }
    port_ = boundPort(clientSide_);
    thread_ = std::thread([this, faults = std::move(faults)] { run(faults); });
}

LossyLink::~LossyLink() {
    stopping_ = true;
    thread_.join();
    close(clientSide_);
    close(bmcSide_);
}

void LossyLink::afterClientDatagrams(unsigned long count, std::function<void()> action) {
    actionAt_ = count;
    action_ = std::move(action);
}

void LossyLink::catchUp() {
    std::unique_lock<std::mutex> lock(catchUpMutex_);
    const unsigned long asked = ++catchUpsAsked_;
    caughtUp_.wait(lock, [&] { return catchUpsDone_ >= asked; });
}

std::vector<double> LossyLink::takeClientTurnarounds() {
    std::lock_guard<std::mutex> lock(turnaroundsMutex_);
    return std::exchange(turnarounds_, {});
}

void LossyLink::run(const LinkFaults& faults) {
    std::mt19937 random(12345);  // the same losses every run
    std::bernoulli_distribution lost(faults.lossProbability);
    std::deque<Pending> pending;
    sockaddr_in client{};
    bool knowClient = false;
    bool answered = false;  // a datagram went to the client since its last one came in
    std::chrono::steady_clock::time_point answeredAt;
    while (!stopping_) {
        // A datagram on loopback is queued by the time its sender returns: when none is waiting
        // at this poll, the link has taken every one sent before the catch-ups asked so far.
        unsigned long catchUpsAsked = 0;
        {
            std::lock_guard<std::mutex> lock(catchUpMutex_);
            catchUpsAsked = catchUpsAsked_;
        }
        pollfd fds[2] = {{clientSide_, POLLIN, 0}, {bmcSide_, POLLIN, 0}};
        // Wake for the next datagram due, to the microsecond, or after a millisecond at most.
        auto wait = std::chrono::nanoseconds(1ms);
        if (!pending.empty()) {
            wait = std::clamp<std::chrono::nanoseconds>(
                pending.front().due - std::chrono::steady_clock::now(), 0ns, 1ms);
        }
        const timespec timeout{0, static_cast<long>(wait.count())};
        ppoll(fds, 2, &timeout, nullptr);
        if (!(fds[0].revents & POLLIN)) {
            std::lock_guard<std::mutex> lock(catchUpMutex_);
            catchUpsDone_ = catchUpsAsked;
            caughtUp_.notify_all();
        }
        unsigned char buffer[2048];
        if (fds[0].revents & POLLIN) {
            socklen_t length = sizeof client;
            const ssize_t n = recvfrom(clientSide_, buffer, sizeof buffer, 0,
                                       reinterpret_cast<sockaddr*>(&client), &length);
            knowClient = true;
            if (n > 0 && answered) {
                std::lock_guard<std::mutex> lock(turnaroundsMutex_);
                turnarounds_.push_back(
                    std::chrono::duration<double>(std::chrono::steady_clock::now() - answeredAt)
                        .count());
                answered = false;
            }
            if (n > 0 && ++clientDatagrams_ == actionAt_ && action_) action_();
            if (n > 0 && !lost(random)) {
                schedule(
                    pending,
                    {std::chrono::steady_clock::now() + faults.delay, true, {buffer, buffer + n}});
            } else if (n > 0) {
                ++dropped_;
            }
        }
        if (fds[1].revents & POLLIN) {
            const ssize_t n = recv(bmcSide_, buffer, sizeof buffer, 0);
            const std::vector<unsigned char> datagram(buffer, buffer + std::max<ssize_t>(n, 0));
            const std::optional<std::chrono::microseconds> later =
                faults.answerDelay ? faults.answerDelay(datagram) : 0us;
            if (n > 0 && !lost(random) && later) {
                schedule(pending, {std::chrono::steady_clock::now() + faults.delay + *later, false,
                                   datagram});
            } else if (n > 0) {
                ++dropped_;
            }
        }
        const auto now = std::chrono::steady_clock::now();
        while (!pending.empty() && pending.front().due <= now) {
            const Pending& p = pending.front();
            if (p.toBmc) {
                send(bmcSide_, p.bytes.data(), p.bytes.size(), 0);
            } else if (knowClient) {
                sendto(clientSide_, p.bytes.data(), p.bytes.size(), 0,
                       reinterpret_cast<const sockaddr*>(&client), sizeof client);
                if (const auto type = rmcpPlusPayloadType(p.bytes)) ++passedToClient_[*type];
                answered = true;
                answeredAt = std::chrono::steady_clock::now();
            }
            pending.pop_front();
        }
    }
}

}  // namespace bmcsim
