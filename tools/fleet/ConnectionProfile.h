// How to reach one host and read its log: the settings that travel with each connection, built
// once from the command line or from an exporter's module, whatever the transport.
#pragma once

#include <chrono>
#include <optional>
#include <string>
#include <vector>

namespace tool {

// How events are worded: what their bytes mean in IPMI v2.0, or the library's described texts.
enum class Rendering { Ipmi, Described };

// "admin", "operator" or "user" for a privilege level as ipmitool and FreeIPMI name them
// (ADMINISTRATOR, OPERATOR, USER, in any case); none for another name.
std::optional<std::string> privilegeName(std::string text);

// A host as the tool names it in what it says: "the local BMC" for the in-band interface ("").
std::string hostName(const std::string& host);

struct ConnectionProfile {
    // The host as named, "HOST", "HOST:PORT", "[IPv6]:PORT" or a bare IPv6 address; empty: this
    // machine's BMC, in band.
    std::string host;
    unsigned short port = 623;  // where the host names none
    std::string user;
    std::string password;
    std::optional<std::string> bmcKey;          // the BMC key K_g; none: the password's
    std::optional<unsigned short> cipherSuite;  // none: the strongest the BMC offers
    bool allowCipherSuiteZero = false;          // no authentication at all
    std::string privilege;  // "admin", "operator", "user"; empty: the highest the BMC grants
    std::vector<std::string> workarounds;
    std::optional<std::chrono::milliseconds> sessionTimeout;  // none: the default
    // A Redfish service's ("https://HOST[:PORT]", "http://..."); IPMI has no use for them.
    std::string caFile;  // the authorities its certificate is checked against; empty: the system's
    bool insecure = false;  // its certificate is not checked at all
    // The logs read, by Id or name; empty: the hardware event logs the service has.
    std::vector<std::string> logs;
};

// How a host's log is read and its events worded, whatever the host.
struct ReadSettings {
    Rendering rendering = Rendering::Ipmi;
    unsigned clearWhenFull = 0;  // clear the log once this percent full, read first; 0: never
};

}  // namespace tool
