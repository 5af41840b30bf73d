#include "CraftedBmc.h"

#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <chrono>
#include <stdexcept>
#include <vector>

#include "Loopback.h"

namespace bmcsim {

CraftedBmc::CraftedBmc(CraftedBehaviour behaviour)
    : responder_(behaviour), socket_(bindLoopback(SOCK_DGRAM, 0)) {
    if (socket_ < 0) throw std::runtime_error("cannot open the crafted BMC's UDP port");
    answerSocket_ = behaviour.answerFromAnotherPort ? bindLoopback(SOCK_DGRAM, 0) : socket_;
    if (answerSocket_ < 0) {
        close(socket_);
        throw std::runtime_error("cannot open the crafted BMC's second UDP port");
    }
    port_ = boundPort(socket_);
    thread_ = std::thread([this] { run(); });
}

CraftedBmc::~CraftedBmc() {
    stopping_ = true;
    thread_.join();
    if (answerSocket_ != socket_) close(answerSocket_);
    close(socket_);
}

std::string CraftedBmc::rakp1UserName() const {
    std::lock_guard<std::mutex> lock(mutex_);
    return responder_.rakp1UserName();
}

int CraftedBmc::openSessions() const {
    std::lock_guard<std::mutex> lock(mutex_);
    return responder_.openSessions();
}

bool CraftedBmc::settlesAt(int count) const {
    for (int waited = 0; waited < 100 && openSessions() != count; ++waited) {
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
    return openSessions() == count;
}

void CraftedBmc::run() {
    std::vector<unsigned char> datagram(2048);
    while (!stopping_) {
        pollfd readable{socket_, POLLIN, 0};
        if (poll(&readable, 1, 10) <= 0) continue;
        sockaddr_in client{};
        socklen_t length = sizeof client;
        const ssize_t size = recvfrom(socket_, datagram.data(), datagram.size(), 0,
                                      reinterpret_cast<sockaddr*>(&client), &length);
        if (size <= 0) continue;
        std::lock_guard<std::mutex> lock(mutex_);
        // Answers go back where the last datagram came from: one client at a time.
        responder_.answer(answerSocket_, client, {datagram.begin(), datagram.begin() + size});
    }
}

}  // namespace bmcsim
