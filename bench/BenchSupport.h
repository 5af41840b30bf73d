// What the benchmarks share: running a program in a process of its own and taking its CPU time and
// peak memory.
#pragma once

#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <string>

namespace bench {

// CPU time and peak memory of a program that ran in a process of its own.
struct ProcessUsage {
    double cpuSeconds;
    long peakKilobytes;
};

inline double cpuSecondsOf(const rusage& usage) {
    return usage.ru_utime.tv_sec + usage.ru_stime.tv_sec +
           (usage.ru_utime.tv_usec + usage.ru_stime.tv_usec) / 1e6;
}

// Runs a shell command with its output discarded; the child's CPU time and peak memory. A command
// that fails is said on standard error.
inline ProcessUsage runCommand(const std::string& command) {
    const pid_t child = fork();
    if (child == 0) {
        execl("/bin/sh", "sh", "-c", ("exec " + command + " >/dev/null 2>&1").c_str(),
              static_cast<char*>(nullptr));
        _exit(127);
    }
    int status = 0;
    rusage usage{};
    wait4(child, &status, 0, &usage);
    if (!WIFEXITED(status) || WEXITSTATUS(status) != 0) {
        std::fprintf(stderr, "failed (%d): %s\n", status, command.c_str());
    }
    return {cpuSecondsOf(usage), usage.ru_maxrss};
}

}  // namespace bench
