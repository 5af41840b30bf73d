#include "ServerProcess.h"

#include <signal.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cctype>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <stdexcept>
#include <thread>

#include "ChildProcess.h"
#include "Loopback.h"

namespace bmcsim {

namespace {

using Clock = std::chrono::steady_clock;

unsigned short portOf(const std::string& address) {
    return static_cast<unsigned short>(std::stoi(address.substr(address.rfind(':') + 1)));
}

// Whether `pid` has ended; its wait status in `status` when it has.
bool ended(pid_t pid, int& status) { return waitpid(pid, &status, WNOHANG) == pid; }

int exitStatus(int status) { return WIFEXITED(status) ? WEXITSTATUS(status) : -1; }

}  // namespace

std::string targetOf(const BmcSimulator& bmc) {
    return std::string(BmcSimulator::host()) + ":" + std::to_string(bmc.port());
}

std::string seriesValue(const std::string& metrics, const std::string& series) {
    const std::size_t at = ("\n" + metrics).find("\n" + series + " ");
    if (at == std::string::npos) return "";
    const std::size_t start = at + series.size() + 1;
    return metrics.substr(start, metrics.find('\n', start) - start);
}

std::string freeLoopbackTcpAddress() {
    return "127.0.0.1:" + std::to_string(freeLoopbackPort(SOCK_STREAM));
}

bool waitUntil(const std::function<bool()>& condition, std::chrono::milliseconds limit) {
    const auto deadline = Clock::now() + limit;
    for (;;) {
        if (condition()) return true;
        if (Clock::now() >= deadline) return false;
        std::this_thread::sleep_for(std::chrono::milliseconds(50));
    }
}

const SaysItsAddress kServeSaysItsAddress{"ipmi-event-log: serving /metrics on "};

ServerProcess::ServerProcess(const std::vector<std::string>& command, std::string address,
                             std::string outputFile, std::chrono::milliseconds limit)
    : address_(std::move(address)), outputFile_(std::move(outputFile)) {
    const auto deadline = Clock::now() + limit;
    Start start = Start::AddressInUse;
    while (start == Start::AddressInUse && Clock::now() < deadline)
        start = launch(command, deadline);
    if (start != Start::Listening) fail(command);
}

ServerProcess::ServerProcess(
    const std::function<std::vector<std::string>(const std::string& address)>& command,
    std::string outputFile, std::chrono::milliseconds limit)
    : outputFile_(std::move(outputFile)) {
    const auto deadline = Clock::now() + limit;
    std::vector<std::string> started;
    Start start = Start::AddressInUse;
    while (start == Start::AddressInUse && Clock::now() < deadline) {
        address_ = freeLoopbackTcpAddress();
        started = command(address_);
        start = launch(started, deadline);
    }
    if (start != Start::Listening) fail(started);
}

ServerProcess::ServerProcess(const std::vector<std::string>& command, std::string outputFile,
                             const SaysItsAddress& says, std::chrono::milliseconds limit)
    : outputFile_(std::move(outputFile)) {
    begin(command);
    int status = 0;
    const bool settled = waitUntil(
        [&] {
            const std::string text = output();
            const std::size_t lead = text.find(says.lead);
            const std::size_t end = text.find('\n', lead);
            if (lead != std::string::npos && end != std::string::npos) {
                address_ = text.substr(lead + says.lead.size(), end - lead - says.lead.size());
                return true;
            }
            return ended(pid_, status);
        },
        limit);
    if (address_.empty()) {
        if (settled) pid_ = -1;  // it ended, and was waited for
        stop();
        fail(command);
    }
}

void ServerProcess::begin(const std::vector<std::string>& command) {
    // The child truncates the file only once it runs: what an earlier run said must not be read
    // as its own meanwhile.
    std::error_code absent;
    std::filesystem::remove(outputFile_, absent);
    pid_ = startChild(command, outputFile_, "see the package that installs " + command.front());
}

ServerProcess::Start ServerProcess::launch(const std::vector<std::string>& command,
                                           Clock::time_point deadline) {
    begin(command);
    Start start = Start::Failed;
    int status = 0;
    waitUntil(
        [&] {
            const bool exited = ended(pid_, status);
            if (exited) pid_ = -1;
            std::string text = output();
            std::transform(text.begin(), text.end(), text.begin(),
                           [](unsigned char c) { return std::tolower(c); });
            if (text.find("address already in use") != std::string::npos) {
                start = Start::AddressInUse;
                return true;
            }
            if (!exited && holdsLoopbackPort(pid_, SOCK_STREAM, portOf(address_)))
                start = Start::Listening;
            return exited || start == Start::Listening;
        },
        std::chrono::duration_cast<std::chrono::milliseconds>(deadline - Clock::now()));
    if (start != Start::Listening) stop();
    return start;
}

void ServerProcess::fail(const std::vector<std::string>& command) const {
    throw std::runtime_error(command.front() + " does not listen at " +
                             (address_.empty() ? "any address" : address_) + ":\n" + output());
}

std::string ServerProcess::output() const {
    std::ifstream in(outputFile_);
    std::ostringstream text;
    text << in.rdbuf();
    return text.str();
}

int ServerProcess::stop() {
    if (pid_ <= 0) return -1;
    kill(pid_, SIGTERM);
    int status = 0;
    if (!waitUntil([&] { return ended(pid_, status); }, std::chrono::seconds(5))) {
        kill(pid_, SIGKILL);
        waitpid(pid_, &status, 0);
    }
    pid_ = -1;
    return exitStatus(status);
}

std::vector<std::string> ourExporterCommand(const std::string& tool, const std::string& address) {
    return {tool,   "-U",   kAdministrator.name, "-E", "--listen", address, "--interval",
            "3600", "serve"};
}

std::vector<std::string> ipmiExporterCommand(const std::string& program,
                                             const std::string& configurationFile,
                                             const std::string& address) {
    return {program, "--config.file=" + configurationFile, "--web.listen-address=" + address,
            "--freeipmi.path=/usr/sbin"};
}

std::string ipmiExporterConfiguration(const LanUser& user) {
    return std::string("modules:\n  default:\n") + "    user: \"" + user.name + "\"\n" +
           "    pass: \"" + user.password + "\"\n" + "    driver: LAN_2_0\n" +
           "    privilege: " + user.privilege + "\n" + "    workaround_flags: [opensesspriv]\n" +
           "    collectors: [sel]\n";
}

}  // namespace bmcsim
