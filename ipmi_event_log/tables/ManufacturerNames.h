// Names of IANA private enterprise numbers, the manufacturer IDs of IPMI: the makers of servers
// and BMCs whose OEM SEL records are common.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

namespace Tolmar {

// Enterprise numbers whose OEM SEL layouts are read (EventDataDetails).
constexpr std::uint32_t kIntelEnterprise = 343;
constexpr std::uint32_t kDellEnterprise = 674;
constexpr std::uint32_t kSupermicroEnterprise = 10876;
// Numbers Supermicro BMCs also answer Get Device ID with, as FreeIPMI and ipmitool know them:
// 47488 (a "workaround" number of later boards), Peppercon's 10437 (early boards' BMC maker)
// and Magnum Technologies' 5593 (a rebranded board).
constexpr std::uint32_t kSupermicroAlternateEnterprise = 47488;
constexpr std::uint32_t kPepperconEnterprise = 10437;
constexpr std::uint32_t kMagnumTechnologiesEnterprise = 5593;

// The enterprise's name; none for a number not in the table.
std::optional<std::string> manufacturerName(std::uint32_t enterpriseNumber);

}  // namespace Tolmar
