// Sockets on 127.0.0.1 for the tests' own servers and forwarders, and ports for the programs they
// start.
#pragma once

#include <netinet/in.h>
#include <sys/types.h>

namespace bmcsim {

sockaddr_in loopbackAddress(unsigned short port);
// A socket of `type` (SOCK_DGRAM, SOCK_STREAM) bound to 127.0.0.1:`port` (0: any free port), or
// with `family` AF_INET6 to [::1]:`port`; or -1 with errno set.
int bindLoopback(int type, unsigned short port, int family = AF_INET);
// The port a bound socket of either family has.
unsigned short boundPort(int fd);
// A port of 127.0.0.1 free for `type` when asked; throws std::runtime_error when there is none.
// Another program may take it before the one it is meant for binds it: a program started on it
// must be started again when it says that the address is in use.
unsigned short freeLoopbackPort(int type);
// Whether process `pid` has a socket of `type` bound to 127.0.0.1:`port`, listening for
// SOCK_STREAM; found in /proc without touching the port.
bool holdsLoopbackPort(pid_t pid, int type, unsigned short port);
// How many TCP connections to 127.0.0.1:`port` have nothing left in their receive queues there:
// what their clients sent and the kernel delivered, the server has accepted and read. (A
// connection not yet accepted keeps what was sent to it.)
unsigned long connectionsReadThrough(unsigned short port);
// How many TCP connections to 127.0.0.1:`port` its server holds open: established (accepted or
// waiting to be), or closed by the client and not yet by the server. Read from /proc/net/tcp, so
// it needs no access to the server's descriptors (a process that is not dumpable keeps them from
// other users, its own included).
unsigned long connectionsHeldAt(unsigned short port);

}  // namespace bmcsim
