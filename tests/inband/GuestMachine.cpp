#include "GuestMachine.h"

#include <fcntl.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <sstream>
#include <stdexcept>
#include <thread>

namespace bmcsim {

namespace {

using namespace std::chrono_literals;
using Clock = std::chrono::steady_clock;

void writeFile(const std::string& path, const std::string& text) {
    std::ofstream out(path);
    out << text;
    if (!out) throw std::runtime_error("cannot write " + path);
}

}  // namespace

GuestMachine::GuestMachine(unsigned short vmPort, const std::string& commands,
                           const std::vector<std::string>& binaries) {
    writeFile(directory_.file("commands"), commands);
    std::vector<std::string> arguments = {GUEST_SCRIPT, directory_.path(), std::to_string(vmPort),
                                          directory_.file("commands")};
    arguments.insert(arguments.end(), binaries.begin(), binaries.end());
    const pid_t parent = getpid();
    pid_ = fork();
    if (pid_ < 0) throw std::runtime_error("cannot fork for the guest");
    if (pid_ == 0) {
        // guest.sh becomes QEMU: it must not outlive a test process that crashed.
        prctl(PR_SET_PDEATHSIG, SIGKILL);
        if (getppid() != parent) _exit(1);
        const std::string output = directory_.file("guest.out");
        const int out = open(output.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0600);
        dup2(out, STDOUT_FILENO);
        dup2(out, STDERR_FILENO);
        std::vector<char*> argv;
        for (std::string& argument : arguments) argv.push_back(argument.data());
        argv.push_back(nullptr);
        execv(GUEST_SCRIPT, argv.data());
        dprintf(out, "cannot run %s: %s\n", GUEST_SCRIPT, strerror(errno));
        _exit(127);
    }
}

GuestMachine::~GuestMachine() { stop(); }

bool GuestMachine::waitForLine(const std::string& line, std::chrono::seconds timeout) {
    const Clock::time_point deadline = Clock::now() + timeout;
    while (Clock::now() < deadline) {
        const std::string results = read("results");
        if (results.find("\n" + line + "\n") != std::string::npos ||
            results.rfind(line + "\n", 0) == 0) {
            return true;
        }
        if (pid_ < 0 || waitpid(pid_, nullptr, WNOHANG) == pid_) {
            pid_ = -1;
            return false;
        }
        std::this_thread::sleep_for(20ms);
    }
    return false;
}

bool GuestMachine::finish(std::chrono::seconds timeout) {
    const Clock::time_point deadline = Clock::now() + timeout;
    int status = 0;
    while (pid_ > 0 && Clock::now() < deadline) {
        if (waitpid(pid_, &status, WNOHANG) == pid_) {
            pid_ = -1;
            break;
        }
        std::this_thread::sleep_for(50ms);
    }
    stop();
    return WIFEXITED(status) && WEXITSTATUS(status) == 0 &&
           read("results").find("@@done\n") != std::string::npos;
}

void GuestMachine::stop() {
    if (pid_ <= 0) return;
    kill(pid_, SIGKILL);
    waitpid(pid_, nullptr, 0);
    pid_ = -1;
}

// "@@result NAME STATUS OUT ERR\n", then OUT bytes of output and ERR of error output.
std::map<std::string, GuestMachine::Result> GuestMachine::results() const {
    const std::string text = read("results");
    std::map<std::string, Result> results;
    const std::string header = "@@result ";
    for (std::size_t at = text.find(header); at != std::string::npos; at = text.find(header, at)) {
        const std::size_t end = text.find('\n', at);
        if (end == std::string::npos) break;
        std::istringstream fields(text.substr(at + header.size(), end - at - header.size()));
        std::string name;
        Result result;
        std::size_t outSize = 0;
        std::size_t errSize = 0;
        if (!(fields >> name >> result.status >> outSize >> errSize) ||
            end + 1 + outSize + errSize > text.size()) {
            break;
        }
        result.out = text.substr(end + 1, outSize);
        result.err = text.substr(end + 1 + outSize, errSize);
        results[name] = result;
        at = end + 1 + outSize + errSize;
    }
    return results;
}

std::string GuestMachine::console() const {
    return read("guest.out") + "--- the guest's console:\n" + read("console.log");
}

std::string GuestMachine::log() const {
    std::istringstream lines(read("results"));
    std::string log;
    for (std::string line; std::getline(lines, line);) {
        if (line.rfind("@@log ", 0) == 0) log += line.substr(6) + "\n";
    }
    return log;
}

std::string GuestMachine::read(const std::string& name) const {
    std::ifstream in(directory_.file(name), std::ios::binary);
    std::ostringstream text;
    text << in.rdbuf();
    return text.str();
}

}  // namespace bmcsim
