#include "SensorTypeCodeOffsetTable.h"

#include "TableLookup.h"

SensorTypeCodeOffsetTable SensorTypeCodeOffsetTable::table;

SensorTypeCodeOffsetTable* SensorTypeCodeOffsetTable::getSensorTypeCodeOffsetTable() {
    return &table;
}

namespace {

// Sensor types whose only entry, at offset 0x00, answers for every offset: the threshold-based
// types 0x01-0x04 (with their names), 0x00 ("Reserved") and the types that define no offsets
// (with the empty text).
bool hasOneTextForAllOffsets(unsigned char sensorType) {
    switch (sensorType) {
        case 0x00:
        case 0x01:
        case 0x02:
        case 0x03:
        case 0x04:
        case 0x0A:
        case 0x0B:
        case 0x0E:
        case 0x15:
        case 0x16:
        case 0x17:
        case 0x18:
        case 0x1A:
        case 0x1C:
        case 0x26:
            return true;
        default:
            return false;
    }
}

}  // namespace

// Uneven capitalisation and punctuation, the doubled "Unknown" of 0x22 and the "Reserved" entries
// of 0x23 are printed as they stand.
SensorTypeCodeOffsetTable::SensorTypeCodeOffsetTable()
    : descriptions_{
          {0x00,
           {
               {0x00, "Reserved"},
           }},
          {0x01,
           {
               {0x00, "Temperature"},
           }},
          {0x02,
           {
               {0x00, "Voltage"},
           }},
          {0x03,
           {
               {0x00, "Current"},
           }},
          {0x04,
           {
               {0x00, "Fan"},
           }},
          {0x05,
           {
               {0x00, "General Chassis Intrusion"},
               {0x01, "Drive Bay intrusion"},
               {0x02, "I/O Card area intrusion"},
               {0x03, "Processor area intrusion"},
               {0x04, "LAN Leash Lost (system is unplugged from LAN)"},
               {0x05, "Unauthorized dock"},
               {0x06, "FAN area intrusion (supports detection of hot plug fan tampering)"},
           }},
          {0x06,
           {
               {0x00, "Secure Mode (Front Panel Lockout) Violation attempt"},
               {0x01, "Pre-boot Password Violation - user password"},
               {0x02, "Pre-boot Password Violation attempt - setup password"},
               {0x03, "Pre-boot Password Violation - network boot password"},
               {0x04, "Other pre-boot Password Violation"},
               {0x05, "Out-of-band Access Password Violation"},
           }},
          {0x07,
           {
               {0x00, "IERR"},
               {0x01, "Thermal Trip"},
               {0x02, "FRB1/BIST failure"},
               {0x03, "FRB2/Hang in POST failure"},
               {0x04, "FRB3/Processor Startup/Initialization failure (CPU didn't start)"},
               {0x05, "Configuration Error"},
               {0x06, "SM BIOS 'Uncorrectable CPU-complex Error'"},
               {0x07, "Processor Presence detected"},
               {0x08, "Processor disabled"},
               {0x09, "Terminator Presence Detected"},
               {0x0A, "Processor Automatically Throttled"},
               {0x0B, "Machine Check Exception (Uncorrectable)"},
               {0x0C, "Correctable Machine Check Error"},
           }},
          {0x08,
           {
               {0x00, "Presence detected"},
               {0x01, "Power Supply Failure detected"},
               {0x02, "Predictive Failure"},
               {0x03, "Power Supply input lost (AC/DC)"},
               {0x04, "Power Supply input lost or out-of-range"},
               {0x05, "Power Supply input out-of-range, but present"},
               {0x06, "Configuration error"},
           }},
          {0x09,
           {
               {0x00, "Power Off / Power Down"},
               {0x01, "Power Cycle"},
               {0x02, "240VA Power Down"},
               {0x03, "Interlock Power Down"},
               {0x04, "AC lost / Power input lost"},
               {0x05, "Soft Power Control Failure"},
               {0x06, "Power Unit Failure detected"},
               {0x07, "Predictive Failure"},
           }},
          {0x0A,
           {
               {0x00, ""},
           }},
          {0x0B,
           {
               {0x00, ""},
           }},
          {0x0C,
           {
               {0x00, "Correctable ECC / other correctable memory error"},
               {0x01, "Uncorrectable ECC / other uncorrectable memory error"},
               {0x02, "Parity"},
               {0x03, "Memory Scrub Failed (stuck bit)"},
               {0x04, "Memory Device Disabled"},
               {0x05, "Correctable ECC / other correctable memory error logging limit reached"},
               {0x06, "Presence detected"},
               {0x07, "Configuration error"},
               {0x08, "Spare"},
               {0x09, "Memory Automatically Throttled"},
               {0x0A, "Critical Overtemperature"},
           }},
          {0x0D,
           {
               {0x00, "Drive Presence"},
               {0x01, "Drive Fault"},
               {0x02, "Predictive Failure"},
               {0x03, "Hot Spare"},
               {0x04, "Consistency Check / Parity Check in progress"},
               {0x05, "In Critical Array"},
               {0x06, "In Failed Array"},
               {0x07, "Rebuild/Remap in progress"},
               {0x08, "Rebuild/Remap Aborted (was not completed normally)"},
           }},
          {0x0E,
           {
               {0x00, ""},
           }},
          {0x0F,
           {
               {0x00, "System Firmware Error (POST Error)"},
               {0x01, "System Firmware Hang"},
               {0x02, "System Firmware Progress"},
           }},
          {0x10,
           {
               {0x00, "Correctable Memory Error Logging Disabled"},
               {0x01, "Event 'Type' Logging Disabled"},
               {0x02, "Log Area Reset/Cleared"},
               {0x03, "All Event Logging Disabled"},
               {0x04, "SEL Full"},
               {0x05, "SEL Almost Full"},
               {0x06, "Correctable Machine Check Error Logging Disabled"},
           }},
          {0x11,
           {
               {0x00, "BIOS Watchdog Reset"},
               {0x01, "OS Watchdog Reset"},
               {0x02, "OS Watchdog Shut Down"},
               {0x03, "OS Watchdog Power Down"},
               {0x04, "OS Watchdog Power Cycle"},
               {0x05, "OS Watchdog NMI / Diagnostic Interrupt"},
               {0x06, "OS Watchdog Expired, status only"},
               {0x07, "OS Watchdog pre-timeout Interrupt, non-NMI"},
           }},
          {0x12,
           {
               {0x00, "System Reconfigured"},
               {0x01, "OEM System Boot Event"},
               {0x02, "Undetermined system hardware failure"},
               {0x03, "Entry added to Auxiliary Log"},
               {0x04, "PEF Action"},
               {0x05, "Timestamp Clock Synch"},
           }},
          {0x13,
           {
               {0x00, "Front Panel NMI / Diagnostic Interrupt"},
               {0x01, "Bus Timeout"},
               {0x02, "I/O channel check NMI"},
               {0x03, "Software NMI"},
               {0x04, "PCI PERR"},
               {0x05, "PCI SERR"},
               {0x06, "EISA Fail Safe Timeout"},
               {0x07, "Bus Correctable Error"},
               {0x08, "Bus Uncorrectable Error"},
               {0x09, "Fatal NMI (port 61h, bit 7)"},
               {0x0A, "Bus Fatal Error"},
               {0x0B, "Bus Degraded (bus operating in a degraded performance state)"},
           }},
          {0x14,
           {
               {0x00, "Power Button pressed"},
               {0x01, "Sleep Button pressed"},
               {0x02, "Reset Button pressed"},
               {0x03, "FRU latch open"},
               {0x04, "FRU service request button"},
           }},
          {0x15,
           {
               {0x00, ""},
           }},
          {0x16,
           {
               {0x00, ""},
           }},
          {0x17,
           {
               {0x00, ""},
           }},
          {0x18,
           {
               {0x00, ""},
           }},
          {0x19,
           {
               {0x00, "Soft Power Control Failure"},
               {0x01, "Thermal Trip"},
           }},
          {0x1A,
           {
               {0x00, ""},
           }},
          {0x1B,
           {
               {0x00, "Cable/Interconnect is connected"},
               {0x01, "Configuration Error"},
           }},
          {0x1C,
           {
               {0x00, ""},
           }},
          {0x1D,
           {
               {0x00, "Initiated by power up"},
               {0x01, "Initiated by hard reset"},
               {0x02, "Initiated by warm reset"},
               {0x03, "User requested PXE boot"},
               {0x04, "Automatic boot to diagnostic"},
               {0x05, "OS / run-time software initiated hard reset"},
               {0x06, "OS / run-time software initiated warm reset"},
               {0x07, "System Restart"},
           }},
          {0x1E,
           {
               {0x00, "No bootable media"},
               {0x01, "Non-bootable diskette left in drive"},
               {0x02, "PXE Server not found"},
               {0x03, "Invalid boot sector"},
               {0x04, "Timeout waiting for user selection of boot source"},
           }},
          {0x1F,
           {
               {0x00, "A: boot completed"},
               {0x01, "C: boot completed"},
               {0x02, "PXE boot completed"},
               {0x03, "Diagnostic boot completed"},
               {0x04, "CD-ROM boot completed"},
               {0x05, "ROM boot completed"},
               {0x06, "boot completed - boot device not specified"},
           }},
          {0x20,
           {
               {0x00, "Critical stop during OS load / initialization"},
               {0x01, "Run-time Critical Stop (a.k.a. 'core dump', 'blue screen')"},
               {0x02, "OS Graceful Stop"},
               {0x03, "OS Graceful Shutdown (system graceful power down by OS)"},
               {0x04, "Soft Shutdown initiated by PEF"},
               {0x05, "Agent Not Responding"},
           }},
          {0x21,
           {
               {0x00, "Fault Status asserted"},
               {0x01, "Identify Status asserted"},
               {0x02, "Slot / Connector Device installed/attached"},
               {0x03, "Slot / Connector Ready for Device Installation"},
               {0x04, "Slot/Connector Ready for Device Removal"},
               {0x05, "Slot Power is Off"},
               {0x06, "Slot / Connector Device Removal Request"},
               {0x07, "Interlock asserted"},
               {0x08, "Slot is Disabled"},
               {0x09, "Slot holds spare device"},
           }},
          {0x22,
           {
               {0x00, "S0 / G0 \"working\""},
               {0x01, "S1 \"sleeping with system h/w & processor context maintained\""},
               {0x02, "S2 \"sleeping, processor context lost\""},
               {0x03, "S3 \"sleeping, processor & h/w context lost, memory retained.\""},
               {0x04, "S4 \"non-volatile sleep / suspend-to disk\""},
               {0x05, "S5 / G2 \"soft-off\""},
               {0x06, "S4 / S5 soft-off, particular S4 / S5 state cannot be determined"},
               {0x07, "G3 / Mechanical Off"},
               {0x08, "Sleeping in an S1, S2, or S3 states"},
               {0x09, "G1 sleeping (S1-S4 state cannot be determined)"},
               {0x0A, "S5 entered by override"},
               {0x0B, "Legacy ON state"},
               {0x0C, "Legacy OFF state"},
               {0x0D, "Unknown"},
               {0x0E, "Unknown"},
           }},
          {0x23,
           {
               {0x00, "Timer expired, status only (no action, no interrupt)"},
               {0x01, "Hard Reset"},
               {0x02, "Power Down"},
               {0x03, "Power Cycle"},
               {0x04, "Reserved"},
               {0x05, "Reserved"},
               {0x06, "Reserved"},
               {0x07, "Reserved"},
               {0x08, "Timer interrupt"},
           }},
          {0x24,
           {
               {0x00, "platform generated page"},
               {0x01, "platform generated LAN alert"},
               {0x02, "Platform Event Trap generated, formatted per IPMI PET specification"},
               {0x03, "platform generated SNMP trap, OEM format"},
           }},
          {0x25,
           {
               {0x00, "Entity Present"},
               {0x01, "Entity Absent"},
               {0x02, "Entity Disabled"},
           }},
          {0x26,
           {
               {0x00, ""},
           }},
          {0x27,
           {
               {0x00, "LAN Heartbeat Lost"},
               {0x01, "LAN Heartbeat"},
           }},
          {0x28,
           {
               {0x00, "sensor access degraded or unavailable"},
               {0x01, "controller access degraded or unavailable"},
               {0x02, "management controller off-line"},
               {0x03, "management controller unavailable"},
               {0x04, "Sensor failure"},
               {0x05, "FRU failure"},
           }},
          {0x29,
           {
               {0x00, "battery low (predictive failure)"},
               {0x01, "battery failed"},
               {0x02, "battery presence detected"},
           }},
          {0x2A,
           {
               {0x00, "Session Activated"},
               {0x01, "Session Deactivated"},
               {0x02, "Invalid Username or Password"},
               {0x03, "Invalid password disable"},
           }},
          {0x2B,
           {
               {0x00, "Hardware change detected with associated Entity"},
               {0x01, "Firmware or software change detected with associated Entity"},
               {0x02, "Hardware incompatibility detected with associated Entity"},
               {0x03, "Firmware or software incompatibility detected with associated Entity"},
               {0x04, "Entity is of an invalid or unsupported hardware version"},
               {0x05, "Entity contains an invalid or unsupported firmware or software version"},
               {0x06, "Hardware Change detected with associated Entity was successful"},
               {0x07, "Software or F/W Change detected with associated Entity was successful"},
           }},
          {0x2C,
           {
               {0x00, "FRU Not Installed"},
               {0x01, "FRU Inactive (in standby or 'hot spare' state)"},
               {0x02, "FRU Activation Requested"},
               {0x03, "FRU Activation In Progress"},
               {0x04, "FRU Active"},
               {0x05, "FRU Deactivation Requested"},
               {0x06, "FRU Deactivation In Progress"},
               {0x07, "FRU Communication Lost"},
           }},
      } {}

std::string SensorTypeCodeOffsetTable::getEventDescription(unsigned char sensorType,
                                                           unsigned char offset) const {
    constexpr unsigned char firstUndefinedType = 0x2D;
    if (sensorType >= firstUndefinedType) return "";
    const Offsets& offsets = valueOrEmpty(descriptions_, sensorType);
    return valueOrEmpty(offsets, hasOneTextForAllOffsets(sensorType) ? 0x00 : offset);
}

const std::map<unsigned char, SensorTypeCodeOffsetTable::Offsets>&
SensorTypeCodeOffsetTable::descriptions() const {
    return descriptions_;
}
