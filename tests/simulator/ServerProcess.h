// HTTP servers a test or a benchmark starts on a free loopback port (Prometheus, our exporter, the
// community's ipmi_exporter): each with its output in a file of its own, stopped by its PID when
// the object goes, and dead with the process that started it if that process dies first.
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

// "127.0.0.1:PORT", the port free for TCP when asked.
std::string freeLoopbackTcpAddress();
// Whether something accepts TCP connections at `address` ("127.0.0.1:PORT").
bool acceptsConnections(const std::string& address);
// Asks `condition` every 50 ms until it holds or `limit` has passed; whether it held.
bool waitUntil(const std::function<bool()>& condition, std::chrono::milliseconds limit);

class ServerProcess {
public:
    // Starts `command` (the program's path first), which is to listen at `address`, with its
    // output in `outputFile`, and returns once it accepts connections there. Throws
    // std::runtime_error, with its output, when it has not within `limit`.
    ServerProcess(const std::vector<std::string>& command, std::string address,
                  std::string outputFile,
                  std::chrono::milliseconds limit = std::chrono::seconds(10));
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
    std::string address_;
    std::string outputFile_;
    pid_t pid_ = -1;
};

// `ipmi-event-log serve` at `address`, /ipmi's module default being the simulator's administrator,
// whose password it takes from IPMI_PASSWORD (-E): the environment must have it when the server
// starts. No -H: what it polls is the targets scraped; the local BMC, which it polls in the
// background without -H, once an hour.
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
