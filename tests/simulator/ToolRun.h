// Runs a shell command line (the tool, mostly) with no input and keeps its standard output,
// standard error and exit status apart.
#pragma once

#include <sys/wait.h>

#include <cstdio>
#include <fstream>
#include <sstream>
#include <string>

#include "ScratchDirectory.h"

namespace bmcsim {

struct ToolRun {
    std::string out;
    std::string err;
    int status;  // -1: killed by a signal
};

// How many times `part` occurs in `text`.
inline std::size_t countOf(const std::string& text, const std::string& part) {
    std::size_t count = 0;
    for (std::size_t at = text.find(part); at != std::string::npos; at = text.find(part, at + 1))
        ++count;
    return count;
}

// Standard error goes through a file in `scratch`.
inline ToolRun runShell(const std::string& commandLine, const ScratchDirectory& scratch) {
    const std::string errors = scratch.file("stderr");
    const std::string command = commandLine + " 2>" + errors + " </dev/null";
    ToolRun run{"", "", 0};
    FILE* pipe = popen(command.c_str(), "r");
    char buffer[4096];
    for (std::size_t n; (n = fread(buffer, 1, sizeof buffer, pipe)) > 0;) run.out.append(buffer, n);
    const int status = pclose(pipe);
    run.status = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    std::ifstream in(errors);
    std::ostringstream text;
    text << in.rdbuf();
    run.err = text.str();
    return run;
}

}  // namespace bmcsim
