// Runs Debian's ipmi_sim (OpenIPMI's BMC simulator) for a test: a BMC at IPMB address 0x20 with
// its SEL enabled, three LAN users (administrator, operator, user privilege), listening on a free
// UDP port of 127.0.0.1, with a fresh state directory. The simulator is stopped by its PID when
// the object goes, and dies with the process that started it if that process dies first.
#pragma once

#include <sys/types.h>

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "IpmiEventLog.h"
#include "SampleServer.h"
#include "ScratchDirectory.h"

namespace bmcsim {

struct LanUser {
    const char* name;
    const char* password;
    const char* privilege;  // as ipmi_sim names it
};

extern const LanUser kAdministrator;
extern const LanUser kOperator;
extern const LanUser kViewer;  // user privilege: may read, may not change

// Where the simulated BMC answers: its LAN channel always; with `LanAndVm`, also a system
// interface for a virtual machine (QEMU's ipmi-bmc-extern device) on a TCP port of 127.0.0.1.
enum class Interfaces { Lan, LanAndVm };

// The record IDs of the SEL a simulator starts with: from 1 in the order given, or the IDs the
// records themselves hold (real records, kept byte for byte; none may be 0000h or FFFFh, which
// Get SEL Entry takes for the first and the last record).
enum class SelRecordIds { FromOne, AsRecorded };

class BmcSimulator {
public:
    // Starts the simulator and returns once its LAN port is open. `emulation` holds ipmi_sim
    // commands (SDRs, SEL entries) run after the BMC is set up and before it is enabled;
    // `auxiliaryLog` the records its OEM auxiliary log serves, under the enterprise number the
    // library is built with; `sel` the records its SEL holds from the start, with IDs from 1 (or
    // their own: `selIds`) and the last one's time stamp as the last addition; `selCapacity` how
    // many records the SEL holds at most (0: those and 4,000 more; one more than `sel` at least);
    // `selIds` how the records of `sel` are numbered. Throws std::runtime_error, with the
    // simulator's own output, when it does not come up.
    explicit BmcSimulator(const std::string& emulation = "",
                          const std::vector<std::vector<unsigned char>>& auxiliaryLog = {},
                          const std::vector<SelRecord>& sel = {},
                          Interfaces interfaces = Interfaces::Lan, std::size_t selCapacity = 0,
                          SelRecordIds selIds = SelRecordIds::FromOne);
    ~BmcSimulator();
    BmcSimulator(const BmcSimulator&) = delete;
    BmcSimulator& operator=(const BmcSimulator&) = delete;

    static const char* host() { return "127.0.0.1"; }
    unsigned short port() const { return port_; }
    // The TCP port of the virtual machine interface (OpenIPMI's "VM" serial codec); 0 without.
    unsigned short vmPort() const { return vmPort_; }
    pid_t pid() const { return pid_; }

    // Adds the records to the SEL over the LAN with the standard commands, as the administrator:
    // Set SEL Time to each record's time stamp, then Add SEL Entry (the BMC stamps added records
    // with its own clock and assigns their IDs). Throws std::runtime_error when the BMC refuses.
    void addSelRecords(const std::vector<SelRecord>& records) const;
    // Writes the PEF event filter table from filter 1 on, with Set PEF Configuration Parameters.
    void setEventFilters(const std::vector<EventFilter>& filters) const;

    // Stops the simulator now (SIGTERM, then SIGKILL); harmless when already stopped.
    void stop();
    // Stops the simulator and starts it again on the same ports with the SEL it kept and the SDR
    // repository `emulation` loads, as a BMC comes back from a firmware update; again while
    // another program holds a port meanwhile. Throws std::runtime_error when it does not come up.
    void restart(const std::string& emulation);

private:
    bool start(const std::string& emulation, const std::vector<SelRecord>& sel,
               std::size_t selCapacity);
    bool launch();
    // Whether the simulator starts with a record of its own added to `sel`, deleted once it is up.
    bool primed(const std::vector<SelRecord>& sel) const;
    std::string output() const;
    // Sends each request over one administrator session; throws when one is refused.
    struct Request {
        unsigned char netFn;
        unsigned char command;
        std::vector<unsigned char> data;
    };
    void sendAll(const std::vector<Request>& requests) const;
    void deleteSelRecord(std::uint16_t recordId) const;

    ScratchDirectory directory_;
    Interfaces interfaces_;
    SelRecordIds selIds_;
    unsigned short port_ = 0;
    unsigned short vmPort_ = 0;
    std::size_t selCapacity_ = 0;
    pid_t pid_ = -1;
};

// A LAN connection to 127.0.0.1:`port` as the simulator's administrator, cipher suite 3.
Tolmar::TolmarConnection::ConnectionInfo administratorConnection(unsigned short port);

// The sample server's BMC: its sensor records, PEF filters and auxiliary log, with `events` in its
// SEL of `selCapacity` records (as BmcSimulator takes it).
std::unique_ptr<BmcSimulator> sampleServerBmc(const std::vector<SelRecord>& events,
                                              Interfaces interfaces = Interfaces::Lan,
                                              std::size_t selCapacity = 0);

}  // namespace bmcsim
