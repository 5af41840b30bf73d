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
#include <vector>

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

namespace {

// A socket of 127.0.0.1 as the kernel lists it in /proc/net/tcp or /proc/net/udp.
struct ListedSocket {
    std::string state;       // TCP's: 01 established, 0A listening
    unsigned long received;  // bytes in its receive queue, not yet read
    std::string node;        // "socket:[INODE]", as a process's descriptor links to it
};

// The sockets of `type` bound to 127.0.0.1:`port`. Each line: "sl local remote st
// tx_queue:rx_queue timer retransmits uid timeout inode ...", addresses in hexadecimal.
std::vector<ListedSocket> socketsOf(int type, unsigned short port) {
    char local[16];
    std::snprintf(local, sizeof local, "0100007F:%04X", port);
    std::ifstream table(type == SOCK_STREAM ? "/proc/net/tcp" : "/proc/net/udp");
    std::vector<ListedSocket> sockets;
    std::string line;
    std::getline(table, line);  // the header
    while (std::getline(table, line)) {
        std::istringstream fields(line);
        std::string slot, address, remote, state, queues, timer, retransmits, uid, timeout, inode;
        fields >> slot >> address >> remote >> state >> queues >> timer >> retransmits >> uid >>
            timeout >> inode;
        if (address != local) continue;
        const std::size_t colon = queues.find(':');
        const unsigned long received =
            colon == std::string::npos ? 0 : std::stoul(queues.substr(colon + 1), nullptr, 16);
        sockets.push_back({state, received, "socket:[" + inode + "]"});
    }
    return sockets;
}

// The sockets among process `pid`'s descriptors; none when it is gone.
std::set<std::string> socketsHeldBy(pid_t pid) {
    std::set<std::string> held;
    std::error_code gone;
    for (const auto& entry :
         std::filesystem::directory_iterator("/proc/" + std::to_string(pid) + "/fd", gone)) {
        std::error_code closed;
        held.insert(std::filesystem::read_symlink(entry.path(), closed).string());
    }
    return held;
}

}  // namespace

bool holdsLoopbackPort(pid_t pid, int type, unsigned short port) {
    const std::set<std::string> held = socketsHeldBy(pid);
    for (const ListedSocket& socket : socketsOf(type, port)) {
        if ((type != SOCK_STREAM || socket.state == "0A") && held.count(socket.node) != 0)
            return true;
    }
    return false;
}

unsigned long connectionsReadThrough(unsigned short port) {
    unsigned long read = 0;
    for (const ListedSocket& socket : socketsOf(SOCK_STREAM, port))
        read += socket.state == "01" && socket.received == 0;
    return read;
}

unsigned long connectionsHeldAt(unsigned short port) {
    unsigned long held = 0;
    // 01: established; 08: close wait, the client's end closed.
    for (const ListedSocket& socket : socketsOf(SOCK_STREAM, port))
        held += socket.state == "01" || socket.state == "08";
    return held;
}

}  // namespace bmcsim
