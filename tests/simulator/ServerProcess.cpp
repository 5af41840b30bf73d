#include "ServerProcess.h"

#include <signal.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

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

bool acceptsConnections(const std::string& address) {
    const int fd = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    if (fd < 0) return false;
    const sockaddr_in peer = loopbackAddress(portOf(address));
    const bool connected = connect(fd, reinterpret_cast<const sockaddr*>(&peer), sizeof peer) == 0;
    close(fd);
    return connected;
}

bool waitUntil(const std::function<bool()>& condition, std::chrono::milliseconds limit) {
    const auto deadline = Clock::now() + limit;
    for (;;) {
        if (condition()) return true;
        if (Clock::now() >= deadline) return false;
        std::this_thread::sleep_for(std::chrono::milliseconds(50));
    }
}

ServerProcess::ServerProcess(const std::vector<std::string>& command, std::string address,
                             std::string outputFile, std::chrono::milliseconds limit)
    : address_(std::move(address)), outputFile_(std::move(outputFile)) {
    pid_ = startChild(command, outputFile_, "see the package that installs " + command.front());
    bool exited = false;
    int status = 0;
    const bool settled = waitUntil(
        [&] { return (exited = ended(pid_, status)) || acceptsConnections(address_); }, limit);
    if (exited) pid_ = -1;
    if (!settled || exited) {
        stop();
        throw std::runtime_error(command.front() + " does not listen at " + address_ + ":\n" +
                                 output());
    }
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
