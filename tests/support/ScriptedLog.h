// The test build of the framework's Log that can fail: it writes nothing, and throws
// IpmiException where a test asks it to, so that a test can make rendering or the event log's own
// reporting fail at a chosen line.
#pragma once

namespace sim {

// The occurrence-th Log constructed from now on with this source and line throws
// IpmiException(0, IPMI_EXCEPTION_UNKNOWN).
void throwFromLog(const char* source, int line, int occurrence);

}  // namespace sim
