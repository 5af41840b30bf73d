#include "GuestMachine.h"

#include <signal.h>
#include <sys/wait.h>

#include <sstream>
#include <thread>

#include "ChildProcess.h"

namespace bmcsim {

namespace {

using namespace std::chrono_literals;
using Clock = std::chrono::steady_clock;

}  // namespace

GuestMachine::GuestMachine(unsigned short vmPort, const std::string& commands,
                           const std::vector<std::string>& binaries) {
    directory_.write("commands", commands);
    std::vector<std::string> arguments = {GUEST_SCRIPT, directory_.path(), std::to_string(vmPort),
                                          directory_.file("commands")};
    arguments.insert(arguments.end(), binaries.begin(), binaries.end());
    // guest.sh becomes QEMU, which then dies with the test process too.
    pid_ = startChild(arguments, directory_.file("guest.out"), "the project's tests/inband");
}

GuestMachine::~GuestMachine() { stop(); }

std::optional<double> GuestMachine::transactionsReachedAfter(const std::string& name,
                                                             unsigned long count) const {
    const std::string prefix = "@@transactions " + name + " ";
    // "@@transactions NAME N C" lines, N growing, C centiseconds; the last may be cut short.
    std::istringstream lines(directory_.read("results"));
    for (std::string line; std::getline(lines, line) && !lines.eof();) {
        if (line.rfind(prefix, 0) != 0) continue;
        std::istringstream fields(line.substr(prefix.size()));
        unsigned long done = 0;
        unsigned long centiseconds = 0;
        if (fields >> done >> centiseconds && done >= count) return centiseconds / 100.0;
    }
    return std::nullopt;
}

bool GuestMachine::waitForTransactions(const std::string& name, unsigned long count,
                                       std::chrono::seconds timeout) {
    const Clock::time_point deadline = Clock::now() + timeout;
    while (Clock::now() < deadline) {
        if (transactionsReachedAfter(name, count)) return true;
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
           directory_.read("results").find("@@done\n") != std::string::npos;
}

void GuestMachine::stop() {
    if (pid_ <= 0) return;
    kill(pid_, SIGKILL);
    waitpid(pid_, nullptr, 0);
    pid_ = -1;
}

// "@@result NAME STATUS OUT ERR\n", then OUT bytes of output and ERR of error output.
std::map<std::string, GuestMachine::Result> GuestMachine::results() const {
    const std::string text = directory_.read("results");
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
    return directory_.read("guest.out") + "--- the guest's console:\n" +
           directory_.read("console.log");
}

std::string GuestMachine::log() const {
    std::istringstream lines(directory_.read("results"));
    std::string log;
    for (std::string line; std::getline(lines, line);) {
        if (line.rfind("@@log ", 0) == 0) log += line.substr(6) + "\n";
    }
    return log;
}

}  // namespace bmcsim
