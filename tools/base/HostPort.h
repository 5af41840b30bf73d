// A host and its port as one text, the way every address of the tool is written: -H's hosts,
// --syslog's servers, serve's --listen and /ipmi's targets. One parser, so that an IPv6 address
// is taken alike everywhere.
#pragma once

#include <optional>
#include <stdexcept>
#include <string>

namespace tool {

struct HostPort {
    std::string host;  // as given; an IPv6 address without its brackets
    std::optional<unsigned short> port;
    bool ipv6 = false;  // the host is an IPv6 address (with or without brackets in the text)
};

// Why a text is no host and port, without the whole text, so that each caller names it in its own
// words: `host "bmc1:": no port after ":"`, `target "[::1": no "]" after the IPv6 address`.
struct HostPortError : std::runtime_error {
    using std::runtime_error::runtime_error;
};

// Port 0 asks the system for a free port: only a listening socket may take it.
enum class PortZero { Refused, Allowed };

// "HOST", "HOST:PORT", "[IPv6]", "[IPv6]:PORT", or an IPv6 address without brackets (more than
// one colon: the whole text is the host, and there is no port). A port is decimal, 1 to 65535
// (0 too where `zero` allows it). An IPv6 address, bracketed or bare, must be one (a zone such as
// "%eth0" may follow it); a host name is not checked beyond being there. Throws HostPortError.
HostPort parseHostPort(const std::string& text, PortZero zero = PortZero::Refused);

// The text parseHostPort reads back: "HOST:PORT", an IPv6 address in brackets only when a port
// follows ("[::1]:623", "::1"); the host alone without a port.
std::string joinHostPort(const HostPort& address);

}  // namespace tool
