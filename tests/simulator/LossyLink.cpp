#include "LossyLink.h"

#include <arpa/inet.h>
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

namespace bmcsim {

namespace {

using namespace std::chrono_literals;

sockaddr_in loopback(unsigned short port) {
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(port);
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    return address;
}

struct Pending {
    std::chrono::steady_clock::time_point due;
    bool toBmc;
    std::vector<char> bytes;
};

}  // namespace

LossyLink::LossyLink(unsigned short bmcPort, double lossProbability,
                     std::chrono::microseconds delay) {
    clientSide_ = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    bmcSide_ = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    sockaddr_in any = loopback(0);
    const sockaddr_in bmc = loopback(bmcPort);
    if (clientSide_ < 0 || bmcSide_ < 0 ||
        bind(clientSide_, reinterpret_cast<sockaddr*>(&any), sizeof any) != 0 ||
        connect(bmcSide_, reinterpret_cast<const sockaddr*>(&bmc), sizeof bmc) != 0) {
        throw std::runtime_error("cannot set up the lossy link");
    }
    socklen_t length = sizeof any;
    getsockname(clientSide_, reinterpret_cast<sockaddr*>(&any), &length);
    port_ = ntohs(any.sin_port);
    thread_ = std::thread([this, lossProbability, delay] { run(lossProbability, delay); });
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

std::vector<double> LossyLink::takeClientTurnarounds() {
    std::lock_guard<std::mutex> lock(turnaroundsMutex_);
    return std::exchange(turnarounds_, {});
}

void LossyLink::run(double lossProbability, std::chrono::microseconds delay) {
    std::mt19937 random(12345);  // the same losses every run
    std::bernoulli_distribution lost(lossProbability);
    std::deque<Pending> pending;
    sockaddr_in client{};
    bool knowClient = false;
    bool answered = false;  // a datagram went to the client since its last one came in
    std::chrono::steady_clock::time_point answeredAt;
    while (!stopping_) {
        pollfd fds[2] = {{clientSide_, POLLIN, 0}, {bmcSide_, POLLIN, 0}};
        // Wake for the next datagram due, to the microsecond, or after a millisecond at most.
        auto wait = std::chrono::nanoseconds(1ms);
        if (!pending.empty()) {
            wait = std::clamp<std::chrono::nanoseconds>(
                pending.front().due - std::chrono::steady_clock::now(), 0ns, 1ms);
        }
        const timespec timeout{0, static_cast<long>(wait.count())};
        ppoll(fds, 2, &timeout, nullptr);
        char buffer[2048];
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
                pending.push_back(
                    {std::chrono::steady_clock::now() + delay, true, {buffer, buffer + n}});
            } else if (n > 0) {
                ++dropped_;
            }
        }
        if (fds[1].revents & POLLIN) {
            const ssize_t n = recv(bmcSide_, buffer, sizeof buffer, 0);
            if (n > 0 && !lost(random)) {
                pending.push_back(
                    {std::chrono::steady_clock::now() + delay, false, {buffer, buffer + n}});
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
                answered = true;
                answeredAt = std::chrono::steady_clock::now();
            }
            pending.pop_front();
        }
    }
}

}  // namespace bmcsim
