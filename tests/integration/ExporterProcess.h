// `ipmi-event-log serve` as the end-to-end tests run it: started with the arguments a test gives on
// a loopback port it chooses and says, its output in the scratch directory's serve.out, scraped
// with curl, signalled, and stopped by its PID (SIGTERM) when the object goes. The test target
// defines TOOL_PATH (the tool) and CURL (curl's path).
#pragma once

#include <netinet/in.h>
#include <signal.h>
#include <sys/socket.h>
#include <unistd.h>

#include <chrono>
#include <memory>
#include <string>
#include <vector>

#include "Loopback.h"
#include "ScratchDirectory.h"
#include "ServerProcess.h"
#include "ToolRun.h"

namespace bmcsim {

class ExporterProcess {
public:
    // `ipmi-event-log --listen 127.0.0.1:0 ARGUMENTS serve`. `url`: how curl reaches it, "http://"
    // or "https://", and its options ("--cacert FILE").
    ExporterProcess(const std::vector<std::string>& arguments, const ScratchDirectory& scratch,
                    const std::string& url = "http://", const std::string& curlOptions = "")
        : scratch_(scratch), url_(url), curlOptions_(curlOptions) {
        std::vector<std::string> command{TOOL_PATH, "--listen", "127.0.0.1:0"};
        command.insert(command.end(), arguments.begin(), arguments.end());
        command.push_back("serve");
        server_ = std::make_unique<ServerProcess>(command, scratch.file("serve.out"),
                                                  kServeSaysItsAddress);
    }

    // GET `path` with curl and `options`: its output, error output and exit status.
    ToolRun get(const std::string& path, const std::string& options = "") const {
        return runShell(CURL " --silent --show-error --max-time 10 " + curlOptions_ + " " +
                            options + " '" + url_ + listen() + path + "'",
                        scratch_);
    }
    // The value of `series` in /metrics once the fleet's poll, which runs beside the scrapes, has
    // set it; "" when it has not within a minute.
    std::string fleetSeries(const std::string& series) const {
        std::string value;
        waitUntil(
            [&] {
                value = seriesValue(get("/metrics").out, series);
                return !value.empty();
            },
            std::chrono::seconds(60));
        return value;
    }
    // Stops it; its exit status (-1 when a signal ended it).
    int stop() { return server_->stop(); }
    const std::string& listen() const { return server_->address(); }
    unsigned short port() const {
        return static_cast<unsigned short>(std::stoi(listen().substr(listen().rfind(':') + 1)));
    }
    void signal(int number) const { kill(server_->pid(), number); }
    pid_t pid() const { return server_->pid(); }
    // A TCP connection to it, or -1.
    int connect() const {
        const int fd = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
        const sockaddr_in address = loopbackAddress(port());
        if (fd >= 0 &&
            ::connect(fd, reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0) {
            close(fd);
            return -1;
        }
        return fd;
    }

private:
    const ScratchDirectory& scratch_;
    std::string url_;
    std::string curlOptions_;
    std::unique_ptr<ServerProcess> server_;
};

}  // namespace bmcsim
