// Names of IANA private enterprise numbers, the manufacturer IDs of IPMI: the makers of servers
// and BMCs whose OEM SEL records are common.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

namespace Tolmar {

// The enterprise's name; none for a number not in the table.
std::optional<std::string> manufacturerName(std::uint32_t enterpriseNumber);

}  // namespace Tolmar
