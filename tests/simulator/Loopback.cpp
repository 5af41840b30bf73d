#include "Loopback.h"

#include <arpa/inet.h>
#include <sys/socket.h>
#include <unistd.h>

#include <stdexcept>

namespace bmcsim {

sockaddr_in loopbackAddress(unsigned short port) {
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(port);
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    return address;
}

int bindLoopback(int type, unsigned short port, int family) {
    const int fd = socket(family, type | SOCK_CLOEXEC, 0);
    if (fd < 0) return -1;
    const sockaddr_in address = loopbackAddress(port);
    sockaddr_in6 address6{};
    address6.sin6_family = AF_INET6;
    address6.sin6_port = htons(port);
    address6.sin6_addr = in6addr_loopback;
    const bool bound =
        family == AF_INET6
            ? bind(fd, reinterpret_cast<const sockaddr*>(&address6), sizeof address6) == 0
            : bind(fd, reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0;
    if (!bound) {
        close(fd);
        return -1;
    }
    return fd;
}

unsigned short boundPort(int fd) {
    sockaddr_storage address{};
    socklen_t length = sizeof address;
    getsockname(fd, reinterpret_cast<sockaddr*>(&address), &length);
    // Both families keep the port at the same place.
    return ntohs(reinterpret_cast<const sockaddr_in&>(address).sin_port);
}

unsigned short freeLoopbackPort(int type) {
    const int fd = bindLoopback(type, 0);
    if (fd < 0) throw std::runtime_error("no free port on 127.0.0.1");
    const unsigned short port = boundPort(fd);
    close(fd);
    return port;
}

}  // namespace bmcsim
