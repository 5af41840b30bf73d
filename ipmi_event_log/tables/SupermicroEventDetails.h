// Supermicro's layouts of OEM system events, as ipmitool (lib/ipmi_sel_supermicrooem.c) and
// FreeIPMI (libfreeipmi/sel/ipmi-sel-string-supermicro-common.c) read them: the BMC reset kind of
// its OEM sensor type D0h, the CPU overheat of OEM type C0h, and the DIMM of memory errors.
#pragma once

#include "EventDataDetails.h"

namespace Tolmar {

// The words Supermicro's layout gives an event; none for an event it does not describe.
VendorWords supermicroEventWords(const EventDataFields& event);

}  // namespace Tolmar
