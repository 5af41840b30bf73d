#include "base/HostPort.h"

#include <arpa/inet.h>
#include <netinet/in.h>

#include <algorithm>
#include <cctype>

#include "base/Printable.h"

namespace tool {

namespace {

std::string quoted(const std::string& text) { return "\"" + printable(text) + "\""; }

// inet_pton(3) knows no zone ("fe80::1%eth0"), which getaddrinfo(3) takes for a link-local
// address: the zone is checked for being there, the address before it by inet_pton.
bool isIpv6Address(const std::string& text) {
    const std::size_t percent = text.find('%');
    if (percent != std::string::npos && percent + 1 == text.size()) return false;
    const std::string address = text.substr(0, percent);
    in6_addr parsed{};
    return ::inet_pton(AF_INET6, address.c_str(), &parsed) == 1;
}

unsigned short portOf(const std::string& text, PortZero zero) {
    if (text.empty()) throw HostPortError("no port after \":\"");
    const unsigned long lowest = zero == PortZero::Allowed ? 0 : 1;
    // Decimal digits only: strtoul would take a sign, spaces or 0x, which no address spells.
    const bool decimal = text.size() <= 5 && std::all_of(text.begin(), text.end(), [](char c) {
                             return std::isdigit(static_cast<unsigned char>(c));
                         });
    const unsigned long port = decimal ? std::stoul(text) : 65536;
    if (port < lowest || port > 65535) {
        throw HostPortError(quoted(text) + " is not a port from " + std::to_string(lowest) +
                            " to 65535");
    }
    return static_cast<unsigned short>(port);
}

HostPort bracketed(const std::string& text, PortZero zero) {
    const std::size_t close = text.find(']');
    if (close == std::string::npos) throw HostPortError("no \"]\" after the IPv6 address");
    HostPort address;
    address.host = text.substr(1, close - 1);
    address.ipv6 = true;
    if (address.host.empty()) throw HostPortError("no address between \"[\" and \"]\"");
    if (!isIpv6Address(address.host))
        throw HostPortError(quoted(address.host) + " is not an IPv6 address");
    const std::string rest = text.substr(close + 1);
    if (rest.empty()) return address;
    if (rest.front() != ':') throw HostPortError("only \":PORT\" may follow \"]\"");
    address.port = portOf(rest.substr(1), zero);
    return address;
}

}  // namespace

HostPort parseHostPort(const std::string& text, PortZero zero) {
    if (text.empty()) throw HostPortError("no host");
    if (text.front() == '[') return bracketed(text, zero);
    const std::size_t colon = text.find(':');
    HostPort address;
    if (colon == std::string::npos) {
        address.host = text;
        return address;
    }
    // A second colon: an IPv6 address, whose own colons leave no room for a port.
    if (text.find(':', colon + 1) != std::string::npos) {
        if (!isIpv6Address(text)) {
            throw HostPortError(
                "is not an IPv6 address; a port follows an IPv6 address in brackets: "
                "[ADDRESS]:PORT");
        }
        address.host = text;
        address.ipv6 = true;
        return address;
    }
    if (colon == 0) throw HostPortError("no host before the port");
    address.host = text.substr(0, colon);
    address.port = portOf(text.substr(colon + 1), zero);
    return address;
}

std::string joinHostPort(const HostPort& address) {
    if (!address.port) return address.host;
    const std::string host = address.ipv6 ? "[" + address.host + "]" : address.host;
    return host + ":" + std::to_string(*address.port);
}

}  // namespace tool
