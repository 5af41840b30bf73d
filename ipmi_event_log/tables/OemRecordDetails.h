// The OEM bytes of OEM SEL records (IPMI v2.0 section 32.2 and 32.3) in words, where their layout
// is public: the non-timestamped record F0h that Linux's IPMI driver logs a kernel panic's text
// in (drivers/char/ipmi/ipmi_msghandler.c; ipmitool and FreeIPMI read it the same way).
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace Tolmar {

// `oemData`: bytes 10-15 of a timestamped OEM record (C0h-DFh), bytes 3-15 of a non-timestamped
// one (E0h-FFh). None for a layout that is not known.
std::vector<std::string> oemRecordDetails(std::uint8_t recordType,
                                          const std::vector<std::uint8_t>& oemData);

}  // namespace Tolmar
