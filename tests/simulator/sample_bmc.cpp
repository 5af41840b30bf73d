// Runs the sample server's BMC (sensors, PEF filters, auxiliary log and event log) on a free
// loopback port for as long as a command runs:
//   sample_bmc [--vm] COMMAND [ARGS...]
// The command finds the BMC in its environment: BMC_HOST, BMC_PORT, BMC_USER and IPMI_PASSWORD
// (the administrator account), and with --vm BMC_VM_PORT, the TCP port of its interface for a
// virtual machine's KCS device. The simulator is stopped when the command ends; the command's
// exit status is returned.
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <exception>
#include <string>

#include "BmcSimulator.h"
#include "SampleServer.h"

int main(int argc, char** argv) {
    const bool vm = argc > 1 && std::string(argv[1]) == "--vm";
    char** command = argv + (vm ? 2 : 1);
    if (*command == nullptr) {
        std::fprintf(stderr, "usage: sample_bmc [--vm] COMMAND [ARGS...]\n");
        return 2;
    }
    try {
        const auto sample = bmcsim::sampleServerBmc(
            bmcsim::sampleEventLog(), vm ? bmcsim::Interfaces::LanAndVm : bmcsim::Interfaces::Lan);
        const bmcsim::BmcSimulator& bmc = *sample;
        std::fprintf(stderr, "sample BMC (ipmi_sim, pid %d) listening on %s:%u\n", bmc.pid(),
                     bmcsim::BmcSimulator::host(), bmc.port());
        const pid_t child = fork();
        if (child == 0) {
            setenv("BMC_HOST", bmcsim::BmcSimulator::host(), 1);
            setenv("BMC_PORT", std::to_string(bmc.port()).c_str(), 1);
            setenv("BMC_USER", bmcsim::kAdministrator.name, 1);
            setenv("IPMI_PASSWORD", bmcsim::kAdministrator.password, 1);
            if (vm) setenv("BMC_VM_PORT", std::to_string(bmc.vmPort()).c_str(), 1);
            execvp(command[0], command);
            std::perror(command[0]);
            _exit(127);
        }
        int status = 0;
        waitpid(child, &status, 0);
        return WIFEXITED(status) ? WEXITSTATUS(status) : 1;
    } catch (const std::exception& e) {
        std::fprintf(stderr, "sample_bmc: %s\n", e.what());
        return 1;
    }
}
