// Servers a test or a benchmark starts on a loopback port (Prometheus, our exporter, the
// community's ipmi_exporter, rsyslogd): each with its output in a file of its own, stopped by its
// PID when the object goes, and dead with the process that started it if that process dies first.
#pragma once

#include <sys/types.h>

#include <chrono>
#include <functional>
#include <string>
#include <vector>

#include "BmcSimulator.h"

namespace bmcsim {

// "127.0.0.1:PORT" of a simulated BMC, as an exporter's /ipmi takes it for a target.
std::string targetOf(const BmcSimulator& bmc);
// The value of `series` (its name and labels as written) in a Prometheus text exposition; "" when
// it is not there.
std::string seriesValue(const std::string& metrics, const std::string& series);

// "127.0.0.1:PORT", the port free for TCP when asked (see freeLoopbackPort).
std::string freeLoopbackTcpAddress();
// Asks `condition` every 50 ms until it holds or `limit` has passed; whether it held.
bool waitUntil(const std::function<bool()>& condition, std::chrono::milliseconds limit);

// A server that binds a port of its own choosing and says which on a line of its output: `lead`,
// then "ADDRESS:PORT".
struct SaysItsAddress {
    std::string lead;
};
// What `ipmi-event-log serve --listen 127.0.0.1:0` says.
extern const SaysItsAddress kServeSaysItsAddress;

class ServerProcess {
public:
    // Starts `command` (the program's path first), which is to listen at `address`, with its
    // output in `outputFile`, and returns once it listens there. While it says that the address
    // is in use, it is started again. Throws std::runtime_error, with its output, when it does not
    // listen within `limit`.
    ServerProcess(const std::vector<std::string>& command, std::string address,
                  std::string outputFile,
                  std::chrono::milliseconds limit = std::chrono::seconds(30));
    // Starts the command `command` makes for an address, at a free loopback port, and again at
    // another while it says that the address is in use; as above otherwise.
    ServerProcess(
        const std::function<std::vector<std::string>(const std::string& address)>& command,
        std::string outputFile, std::chrono::milliseconds limit = std::chrono::seconds(30));
    // Starts `command`, which listens where it says as `says` describes, and returns once it has
    // said it. Throws std::runtime_error, with its output, when it has not within `limit`.
    ServerProcess(const std::vector<std::string>& command, std::string outputFile,
                  const SaysItsAddress& says,
                  std::chrono::milliseconds limit = std::chrono::seconds(30));
    ~ServerProcess() { stop(); }
    ServerProcess(const ServerProcess&) = delete;
    ServerProcess& operator=(const ServerProcess&) = delete;

    const std::string& address() const { return address_; }
    pid_t pid() const { return pid_; }
    // What it printed so far.
    std::string output() const;
    // SIGTERM, then SIGKILL when it has not ended within 5 s; harmless when already stopped. Its
    // exit status; -1 when a signal ended it, or it was stopped before.
    int stop();

private:
    enum class Start { Listening, AddressInUse, Failed };
    // Starts `command` with its output in a file of its own.
    void begin(const std::vector<std::string>& command);
    // Starts `command` once and waits, until `deadline`, for it to listen at address_; stopped
    // unless it does.
    Start launch(const std::vector<std::string>& command,
                 std::chrono::steady_clock::time_point deadline);
    [[noreturn]] void fail(const std::vector<std::string>& command) const;

    std::string address_;
    std::string outputFile_;
    pid_t pid_ = -1;
};

// `ipmi-event-log serve` at `address` (port 0: one it chooses and says), /ipmi's module default
// being the simulator's administrator, whose password it takes from IPMI_PASSWORD (-E): the
// environment must have it when the server starts. No -H: what it polls is the targets scraped; the
// local BMC, which it polls in the background without -H, once an hour.
std::vector<std::string> ourExporterCommand(const std::string& tool, const std::string& address);

// The community's ipmi_exporter at `address`, with `configurationFile`, its FreeIPMI from
// /usr/sbin.
std::vector<std::string> ipmiExporterCommand(const std::string& program,
                                             const std::string& configurationFile,
                                             const std::string& address);
// ipmi_exporter's configuration: module default as `user` over LAN 2.0 at the user's privilege,
// with the sel collector only. FreeIPMI needs its workaround "opensesspriv" with ipmi_sim, which
// refuses the privilege FreeIPMI asks for when it opens the session.
std::string ipmiExporterConfiguration(const LanUser& user);

}  // namespace bmcsim
