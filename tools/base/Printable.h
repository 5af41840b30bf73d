// Text from the network or from files, made safe to show in logs (standard error, the journal),
// in error answers and in syslog messages: no control character or byte beyond ASCII passes.
#pragma once

#include <string>

namespace tool {

// `text` with each byte outside printable ASCII (0x20 to 0x7E) written as `\xNN` (uppercase
// hexadecimal, as the tool's output escapes them). Printable text is unchanged, so escaping twice
// changes nothing.
std::string printable(const std::string& text);

}  // namespace tool
