#include "follow/SyslogSender.h"

#include <fcntl.h>
#include <netdb.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

namespace tool {

namespace {

// How long a connection or a send may take before the server counts as unreachable.
constexpr int kTimeoutMs = 5000;

std::string systemReason(int error) { return std::strerror(error); }

void setSendTimeout(int fd) {
    timeval limit{kTimeoutMs / 1000, 0};
    setsockopt(fd, SOL_SOCKET, SO_SNDTIMEO, &limit, sizeof limit);
}

// connect() within kTimeoutMs; errno says why not.
bool connectWithin(int fd, const sockaddr* address, socklen_t length) {
    const int flags = fcntl(fd, F_GETFL);
    fcntl(fd, F_SETFL, flags | O_NONBLOCK);
    if (::connect(fd, address, length) != 0) {
        if (errno != EINPROGRESS) return false;
        pollfd waiting{fd, POLLOUT, 0};
        if (poll(&waiting, 1, kTimeoutMs) != 1) {
            errno = ETIMEDOUT;
            return false;
        }
        int error = 0;
        socklen_t size = sizeof error;
        getsockopt(fd, SOL_SOCKET, SO_ERROR, &error, &size);
        if (error != 0) {
            errno = error;
            return false;
        }
    }
    fcntl(fd, F_SETFL, flags);
    return true;
}

// Writes all of `bytes`; errno says why not.
bool writeAll(int fd, const std::string& bytes) {
    for (std::size_t done = 0; done < bytes.size();) {
        const ssize_t n = ::send(fd, bytes.data() + done, bytes.size() - done, MSG_NOSIGNAL);
        if (n < 0 && errno == EINTR) continue;
        if (n <= 0) return false;
        done += static_cast<std::size_t>(n);
    }
    return true;
}

}  // namespace

void PendingMessages::add(std::string message) {
    if (bound_ == 0) {
        ++dropped_;
        return;
    }
    if (messages_.size() == bound_) {
        messages_.pop_front();
        ++dropped_;
    }
    messages_.push_back(std::move(message));
}

std::size_t PendingMessages::takeDropped() {
    const std::size_t dropped = dropped_;
    dropped_ = 0;
    return dropped;
}

SyslogSender::SyslogSender(SyslogAddress address, std::size_t bound)
    : address_(std::move(address)), bound_(bound), pending_(bound) {}

SyslogSender::~SyslogSender() { disconnect(); }

std::string SyslogSender::deliver(std::vector<std::string> messages) {
    std::string reason;
    bool reached = sendPending(reason);
    for (std::string& message : messages) {
        if (reached) reached = sendOne(message, reason);
        if (!reached) pending_.add(std::move(message));
    }
    std::string notes;
    if (!reached && !unreachable_) {
        notes = "ipmi-event-log: syslog: cannot send to " + address_.text + ": " + reason +
                "; keeping the events (at most " + std::to_string(bound_) +
                ") and trying again at each poll\n";
    } else if (reached && unreachable_) {
        notes = "ipmi-event-log: syslog: " + address_.text + " reached again\n" + droppedNote();
    }
    unreachable_ = !reached;
    return notes;
}

std::string SyslogSender::finish() {
    std::string notes = droppedNote();
    if (!pending_.empty()) {
        notes += "ipmi-event-log: syslog: " + std::to_string(pending_.size()) +
                 " events not sent: " + address_.text + " could not be reached\n";
    }
    return notes;
}

std::string SyslogSender::droppedNote() {
    const std::size_t dropped = pending_.takeDropped();
    if (dropped == 0) return "";
    return "ipmi-event-log: syslog: " + std::to_string(dropped) + " events dropped while " +
           address_.text + " could not be reached\n";
}

bool SyslogSender::sendPending(std::string& reason) {
    // A server that restarted since the last poll closed this end's connection.
    if (fd_ >= 0 && stream_ && peerClosed()) disconnect();
    while (!pending_.empty()) {
        if (!sendOne(pending_.oldest(), reason)) return false;
        pending_.removeOldest();
    }
    return true;
}

bool SyslogSender::sendOne(const std::string& message, std::string& reason) {
    if (fd_ < 0 && !connect(reason)) return false;
    std::string bytes = message;
    if (stream_ && address_.transport == SyslogTransport::Tcp) bytes = octetCountedFrame(message);
    if (stream_ && address_.transport == SyslogTransport::Unix) bytes.push_back('\0');
    if (!writeAll(fd_, bytes)) {
        reason = systemReason(errno);
        disconnect();
        return false;
    }
    // Over UDP, the host of a server that is down answers with an ICMP port unreachable, which
    // a loopback delivers before send() returns: the datagram went nowhere.
    const int error = address_.transport == SyslogTransport::Udp ? pendingError() : 0;
    if (error != 0) {
        reason = systemReason(error);
        disconnect();
        return false;
    }
    return true;
}

bool SyslogSender::connect(std::string& reason) {
    const bool connected =
        address_.transport == SyslogTransport::Unix ? connectUnix(reason) : connectInet(reason);
    if (connected) setSendTimeout(fd_);
    return connected;
}

bool SyslogSender::connectUnix(std::string& reason) {
    sockaddr_un peer{};
    peer.sun_family = AF_UNIX;
    if (address_.path.size() >= sizeof peer.sun_path) {
        reason = "the socket's path is too long";
        return false;
    }
    std::memcpy(peer.sun_path, address_.path.c_str(), address_.path.size() + 1);
    // A datagram socket, as /dev/log mostly is; a stream socket when the path is one.
    for (const int type : {SOCK_DGRAM, SOCK_STREAM}) {
        fd_ = socket(AF_UNIX, type | SOCK_CLOEXEC, 0);
        if (fd_ < 0) break;
        if (::connect(fd_, reinterpret_cast<const sockaddr*>(&peer), sizeof peer) == 0) {
            stream_ = type == SOCK_STREAM;
            return true;
        }
        const int error = errno;
        disconnect();
        errno = error;
        if (error != EPROTOTYPE) break;
    }
    reason = systemReason(errno);
    return false;
}

bool SyslogSender::connectInet(std::string& reason) {
    addrinfo hints{};
    hints.ai_family = AF_UNSPEC;
    stream_ = address_.transport == SyslogTransport::Tcp;
    hints.ai_socktype = stream_ ? SOCK_STREAM : SOCK_DGRAM;
    addrinfo* found = nullptr;
    const int resolved = getaddrinfo(address_.host.c_str(), address_.port.c_str(), &hints, &found);
    if (resolved != 0) {
        reason = gai_strerror(resolved);
        return false;
    }
    for (const addrinfo* a = found; a != nullptr && fd_ < 0; a = a->ai_next) {
        fd_ = socket(a->ai_family, a->ai_socktype | SOCK_CLOEXEC, a->ai_protocol);
        if (fd_ >= 0 && !connectWithin(fd_, a->ai_addr, a->ai_addrlen)) {
            reason = systemReason(errno);
            disconnect();
        }
    }
    freeaddrinfo(found);
    return fd_ >= 0;
}

bool SyslogSender::peerClosed() const {
    pollfd state{fd_, POLLIN | POLLRDHUP, 0};
    if (poll(&state, 1, 0) != 1) return false;
    if (state.revents & (POLLHUP | POLLRDHUP | POLLERR)) return true;
    char byte;
    return recv(fd_, &byte, 1, MSG_PEEK | MSG_DONTWAIT) == 0;
}

int SyslogSender::pendingError() const {
    int error = 0;
    socklen_t size = sizeof error;
    getsockopt(fd_, SOL_SOCKET, SO_ERROR, &error, &size);
    return error;
}

void SyslogSender::disconnect() {
    if (fd_ >= 0) close(fd_);
    fd_ = -1;
}

}  // namespace tool
