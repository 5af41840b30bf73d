#include "Loopback.h"

#include <arpa/inet.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cstdio>
#include <filesystem>
#include <fstream>
#include <set>
#include <sstream>
#include <stdexcept>
#include <string>

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

bool holdsLoopbackPort(pid_t pid, int type, unsigned short port) {
    // The sockets of that address, as the kernel lists them: "sl local remote st queues timer
    // retransmits uid timeout inode ...", addresses in hexadecimal; 0A is TCP's LISTEN state.
    char local[16];
    std::snprintf(local, sizeof local, "0100007F:%04X", port);
    std::ifstream table(type == SOCK_STREAM ? "/proc/net/tcp" : "/proc/net/udp");
    std::set<std::string> sockets;
    std::string line;
    std::getline(table, line);  // the header
    while (std::getline(table, line)) {
        std::istringstream fields(line);
        std::string slot, address, remote, state, queues, timer, retransmits, uid, timeout, inode;
        fields >> slot >> address >> remote >> state >> queues >> timer >> retransmits >> uid >>
            timeout >> inode;
        if (address == local && (type != SOCK_STREAM || state == "0A"))
            sockets.insert("socket:[" + inode + "]");
    }
    // Whether one of them is among the process's descriptors; none when it is gone.
    std::error_code gone;
    for (const auto& entry :
         std::filesystem::directory_iterator("/proc/" + std::to_string(pid) + "/fd", gone)) {
        std::error_code closed;
        if (sockets.count(std::filesystem::read_symlink(entry.path(), closed).string()) != 0)
            return true;
    }
    return false;
}

}  // namespace bmcsim
