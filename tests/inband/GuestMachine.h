// A small Linux virtual machine (QEMU, booted by guest.sh) whose BMC is an ipmi_sim of the test's:
// the guest reaches it through the kernel's IPMI driver and a KCS interface, and runs commands in
// band. Each command's exit status, output and error output come back through a serial port. The
// guest is bounded in time and stopped by its PID; it never outlives the test.
#pragma once

#include <sys/types.h>

#include <chrono>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "ScratchDirectory.h"

namespace bmcsim {

class GuestMachine {
public:
    struct Result {
        int status = -1;
        std::string out;
        std::string err;
    };

    // Boots the guest. `commands` is shell the guest sources, one `run NAME COMMAND...` a command;
    // `binaries` are copied to the guest's /bin with their libraries. `vmPort` is the simulator's
    // VM interface. Throws std::runtime_error when the guest cannot be started.
    GuestMachine(unsigned short vmPort, const std::string& commands,
                 const std::vector<std::string>& binaries);
    ~GuestMachine();
    GuestMachine(const GuestMachine&) = delete;
    GuestMachine& operator=(const GuestMachine&) = delete;

    // Whether the command `name` completed at least `count` transactions with the BMC while it
    // ran, as the guest reports them, within `timeout`; false when the guest ended first.
    bool waitForTransactions(const std::string& name, unsigned long count,
                             std::chrono::seconds timeout);
    // When, in seconds after it started, the command `name` had completed `count` transactions,
    // by the guest's clock; none before it has.
    std::optional<double> transactionsReachedAfter(const std::string& name,
                                                   unsigned long count) const;
    // Waits up to `timeout` for the guest to power off, then stops it. True when it powered off
    // by itself after running every command.
    bool finish(std::chrono::seconds timeout);

    // The commands' results so far, by name.
    std::map<std::string, Result> results() const;
    // What guest.sh and QEMU said, with the kernel's console; and the guest's own log lines
    // (boot and command times). For failure messages.
    std::string console() const;
    std::string log() const;

private:
    void stop();

    ScratchDirectory directory_;
    pid_t pid_ = -1;
};

}  // namespace bmcsim
