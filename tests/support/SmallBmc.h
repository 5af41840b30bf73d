// A small BMC for the tests of the decoded event log: three events, one filter, two sensor records
// and one auxiliary entry, and the events they decode to.
#pragma once

#include <vector>

#include "IpmiEventLog.h"
#include "SampleServer.h"
#include "SimulatedBmc.h"

namespace sim {

// "CPU1 Temp", a full record (ID 0x0001): sensor 0x30, processor 1, degrees C, M = 1.
inline const std::vector<unsigned char> kCpuTemp = {
    0x01, 0x00, 0x51, 0x01, 0x34, 0x20, 0x00, 0x30, 0x03, 0x01, 0x7F, 0x68, 0x01, 0x01, 0x95,
    0x0A, 0x95, 0x0A, 0x3F, 0x3F, 0x00, 0x01, 0x00, 0x00, 0x01, 0x00, 0x00, 0x00, 0x00, 0x00,
    0x07, 0x2D, 0x54, 0x05, 0xFF, 0x00, 0xFF, 0x5F, 0x55, 0x00, 0x00, 0x05, 0x02, 0x02, 0x00,
    0x00, 0x00, 0xC9, 'C',  'P',  'U',  '1',  ' ',  'T',  'e',  'm',  'p'};
// "PS1 Status", a compact record (ID 0x0002): sensor 0x60, power supply 1.
inline const std::vector<unsigned char> kPs1 = {
    0x02, 0x00, 0x51, 0x02, 0x25, 0x20, 0x00, 0x60, 0x0A, 0x01, 0x63, 0x40, 0x08, 0x6F,
    0xFF, 0x7F, 0xFF, 0x7F, 0xFF, 0x7F, 0x00, 0x00, 0x00, 0x01, 0x00, 0x00, 0x00, 0x00,
    0x00, 0x00, 0x00, 0xCA, 'P',  'S',  '1',  ' ',  'S',  't',  'a',  't',  'u',  's'};

// A filter for power supply events (sensor type 0x08), any offset, severity critical (0x10).
inline SimulatedBmc::EventFilter powerSupplyFilter() {
    return {0x80, 0x01, 0x01, 0x10, 0xFF, 0xFF, 0x08, 0xFF, 0xFF, 0xFF,
            0xFF, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00};
}

inline const char* const kMemoryAux =
    "Type: ERROR_CODE Sev: ORV_ERROR_FATAL Class: Computing Sub-Class: Memory Instance: "
    "0x00000003 GUID: 0x000102030405060708090A0B0C0D0E0F Extended Data: 0A 1B FF ";

// A small BMC: three events (upper critical on CPU1 Temp, PS1 failure, a BIOS boot event with no
// SDR), one filter, two sensor records, one auxiliary entry for record 3.
inline void stockSmallBmc(SimulatedBmc& bmc) {
    bmc.storeSelRecord(selRecord(0x0001, {0x02, 0x00, 0x00, 0x00, 0x55, 0x20, 0x00, 0x04, 0x01,
                                          0x30, 0x01, 0x59, 0x5A, 0x50}));
    bmc.storeSelRecord(selRecord(0x0002, {0x02, 0x3C, 0x00, 0x00, 0x55, 0x20, 0x00, 0x04, 0x08,
                                          0x60, 0x6F, 0x01, 0xFF, 0xFF}));
    bmc.storeSelRecord(selRecord(0x0003, {0x02, 0x78, 0x00, 0x00, 0x55, 0x01, 0x00, 0x04, 0x0C,
                                          0x00, 0x6F, 0x01, 0xFF, 0xFF}));
    bmc.addEventFilter(powerSupplyFilter());
    bmc.storeSdr(kCpuTemp);
    bmc.storeSdr(kPs1);
    bmc.addAuxLogEntry(bmcsim::auxLogRecord({0x0003,
                                             0x02,
                                             0x90,
                                             {0x01, 0x0A},
                                             5,
                                             0,
                                             {0x00, 0x00, 0x00, 0x03},
                                             {0x00, 0x01, 0x02, 0x03, 0x04, 0x05, 0x06, 0x07, 0x08,
                                              0x09, 0x0A, 0x0B, 0x0C, 0x0D, 0x0E, 0x0F},
                                             {0x0A, 0x1B, 0xFF}}));
}

// Its events, as the whole log decodes them (its auxiliary entry needs the enterprise number set).
inline std::vector<Tolmar::TolmarAgentless::IPMIEVENT> smallBmcEvents() {
    return {
        {1, "03/11/2015 08:42:40",
         "Processor 1 (Temperature - CPU1 Temp): Assertion: Upper Critical - going high   "
         "Trigger threshold value: 80.00 degrees C.      Trigger reading: 90.00 degrees C.",
         0, "16 (address). IPMB device LUN 0. Channel 0. ", "No Extended Data"},
        {2, "03/11/2015 08:43:40",
         "Power Supply 1 (Power Supply - PS1 Status): Assertion: Power Supply Failure "
         "detected  ",
         2, "16 (address). IPMB device LUN 0. Channel 0. ", "No Extended Data"},
        {3, "03/11/2015 08:44:40",
         " (Memory - ): Assertion: Uncorrectable ECC / other uncorrectable memory error", 0,
         "BIOS. Channel 0. ", kMemoryAux},
    };
}

}  // namespace sim
