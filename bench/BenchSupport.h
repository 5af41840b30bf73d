// What the benchmarks share: running a program in a process of its own and taking its CPU time and
// peak memory.
#pragma once

#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <fstream>
#include <iterator>
#include <sstream>
#include <string>
#include <vector>

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

// User and system time of a process (its threads, those that ended too) and of the children it
// waited for, from /proc/PID/stat. The kernel gives each as its precise total truncated to clock
// ticks (10 ms): a difference is right within a tick.
struct CpuSeconds {
    double own = 0;
    double children = 0;
};

inline CpuSeconds processCpuSeconds(pid_t pid) {
    std::ifstream in("/proc/" + std::to_string(pid) + "/stat");
    std::string text((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
    // The fields after the command's name, which is in parentheses and may hold spaces: the
    // state is field 3; utime, stime, cutime and cstime are fields 14 to 17.
    std::istringstream fields(text.substr(text.rfind(')') + 2));
    std::vector<std::string> field(std::istream_iterator<std::string>(fields), {});
    if (field.size() < 15) return {};
    const auto seconds = [&](std::size_t user, std::size_t system) {
        return (std::stod(field[user]) + std::stod(field[system])) /
               static_cast<double>(sysconf(_SC_CLK_TCK));
    };
    return {seconds(11, 12), seconds(13, 14)};
}

// A field of /proc/PID/status as a number ("VmRSS:" in kilobytes, "Threads:"); 0 when it cannot be
// read.
inline long statusField(pid_t pid, const std::string& field) {
    std::ifstream in("/proc/" + std::to_string(pid) + "/status");
    for (std::string line; std::getline(in, line);) {
        if (line.rfind(field, 0) == 0) return std::stol(line.substr(field.size()));
    }
    return 0;
}

// The resident memory of a running process now, in kilobytes; 0 when it cannot be read.
inline long residentKilobytes(pid_t pid) { return statusField(pid, "VmRSS:"); }

}  // namespace bench
