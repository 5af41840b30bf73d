// Programs a test starts (ipmi_sim, QEMU): they die with the test process, even one that crashed
// or was killed, so that nothing a test started outlives it.
#pragma once

#include <sys/types.h>

#include <string>
#include <vector>

namespace bmcsim {

// Starts `arguments` (the program's path first) with its output and error output in `outputFile`;
// a program that cannot be run says so there, with `missing` (what to install, say). Returns its
// PID; throws std::runtime_error when there is no process for it.
pid_t startChild(const std::vector<std::string>& arguments, const std::string& outputFile,
                 const std::string& missing);

}  // namespace bmcsim
