#include "CraftedBmc.h"

#include <arpa/inet.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <chrono>
#include <stdexcept>
#include <vector>

#include "Loopback.h"

namespace bmcsim {

namespace {

// A UDP socket on 127.0.0.2, another address of the loopback interface, at any free port.
int bindOtherLoopbackAddress() {
    const int fd = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    sockaddr_in address = loopbackAddress(0);
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK + 1);
    if (fd >= 0 && bind(fd, reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0) {
        close(fd);
        return -1;
    }
    return fd;
}

// The socket answers go from: `socket` itself, or one of another port or address.
int answeringSocket(const CraftedBehaviour& behaviour, int socket, int family) {
    if (behaviour.answerFromAnotherAddress) return bindOtherLoopbackAddress();
    if (behaviour.answerFromAnotherPort) return bindLoopback(SOCK_DGRAM, 0, family);
    return socket;
}

}  // namespace

CraftedBmc::CraftedBmc(CraftedBehaviour behaviour, CommandAnswerer answerer)
    : responder_(behaviour, std::move(answerer)),
      family_(behaviour.ipv6 ? AF_INET6 : AF_INET),
      socket_(bindLoopback(SOCK_DGRAM, 0, family_)) {
    if (socket_ < 0) throw std::runtime_error("cannot open the crafted BMC's UDP port");
    answerSocket_ = answeringSocket(behaviour, socket_, family_);
    if (answerSocket_ < 0) {
        close(socket_);
        throw std::runtime_error("cannot open the crafted BMC's answering UDP port");
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

std::vector<int> CraftedBmc::proposedCipherSuites() const {
    std::lock_guard<std::mutex> lock(mutex_);
    return responder_.proposedCipherSuites();
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
        sockaddr_storage client{};
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
