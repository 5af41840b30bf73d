// Sockets on 127.0.0.1 for the tests' own servers and forwarders, and ports for the programs they
// start.
#pragma once

#include <netinet/in.h>

namespace bmcsim {

sockaddr_in loopbackAddress(unsigned short port);
// A socket of `type` (SOCK_DGRAM, SOCK_STREAM) bound to 127.0.0.1:`port` (0: any free port), or
// with `family` AF_INET6 to [::1]:`port`; or -1 with errno set.
int bindLoopback(int type, unsigned short port, int family = AF_INET);
// The port a bound socket of either family has.
unsigned short boundPort(int fd);
// A port of 127.0.0.1 free for `type` when asked; throws std::runtime_error when there is none.
unsigned short freeLoopbackPort(int type);

}  // namespace bmcsim
