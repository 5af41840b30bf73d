// Intel's layouts of OEM event data in the system events its server boards' BIOS logs (generator
// 01h, BIOS POST; 33h, the BIOS's SMI handler), as Intel's "System Event Log Troubleshooting
// Guide" for its Xeon E5-2600 server boards gives them and FreeIPMI (libfreeipmi/sel,
// ipmi-sel-string-intel-xeon-common.c) reads them: the memory module of ECC and redundancy
// events, the PCI function of PCI and PCIe errors, the POST error code.
#pragma once

#include <cstdint>

#include "EventDataDetails.h"

namespace Tolmar {

// The words Intel's layout gives an event of a BMC with Intel's manufacturer ID and this product
// ID; none for an event it does not describe, or for the products FreeIPMI knows to lay their
// events out otherwise (S5500WB, the Quanta QSSC-S4R, the OCP Windmill).
VendorWords intelEventWords(std::uint16_t productId, const EventDataFields& event);

}  // namespace Tolmar
