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

int bindLoopback(int type, unsigned short port) {
    const int fd = socket(AF_INET, type | SOCK_CLOEXEC, 0);
    if (fd < 0) return -1;
    const sockaddr_in address = loopbackAddress(port);
    if (bind(fd, reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0) {
        close(fd);
        return -1;
    }
    return fd;
}

unsigned short boundPort(int fd) {
    sockaddr_in address{};
    socklen_t length = sizeof address;
    getsockname(fd, reinterpret_cast<sockaddr*>(&address), &length);
    return ntohs(address.sin_port);
}

unsigned short freeLoopbackPort(int type) {
    const int fd = bindLoopback(type, 0);
    if (fd < 0) throw std::runtime_error("no free port on 127.0.0.1");
    const unsigned short port = boundPort(fd);
    close(fd);
    return port;
}

}  // namespace bmcsim
