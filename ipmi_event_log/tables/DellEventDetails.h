// Dell's layouts of OEM event data in the system events of its BMCs (iDRAC), as Dell contributed
// them to ipmitool (lib/ipmi_sel_delloem.c): processor, memory, PCI and POST errors whose event
// data 1 marks event data 2 or 3 as OEM codes (IPMI v2.0 table 29-6), and Dell's sensor types
// C1h-C3h.
#pragma once

#include "EventDataDetails.h"

namespace Tolmar {

// The words Dell's layout gives a sensor-specific (6Fh) event; none for an event it does not
// describe.
VendorWords dellEventWords(const EventDataFields& event);

}  // namespace Tolmar
