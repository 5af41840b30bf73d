#include "ChildProcess.h"

#include <fcntl.h>
#include <signal.h>
#include <sys/prctl.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <stdexcept>

namespace bmcsim {

pid_t startChild(const std::vector<std::string>& arguments, const std::string& outputFile,
                 const std::string& missing) {
    std::vector<std::string> copies = arguments;
    std::vector<char*> argv;
    for (std::string& argument : copies) argv.push_back(argument.data());
    argv.push_back(nullptr);
    const pid_t parent = getpid();
    const pid_t pid = fork();
    if (pid < 0) throw std::runtime_error("cannot fork for " + arguments.front());
    if (pid > 0) return pid;
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    if (getppid() != parent) _exit(1);  // the parent died before the line above
    const int out = open(outputFile.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0600);
    dup2(out, STDOUT_FILENO);
    dup2(out, STDERR_FILENO);
    execv(argv[0], argv.data());
    dprintf(STDERR_FILENO, "cannot run %s (%s): %s\n", argv[0], missing.c_str(), strerror(errno));
    _exit(127);
}

}  // namespace bmcsim
