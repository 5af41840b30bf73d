#include "EntityIdCodeTable.h"

#include "TableLookup.h"

EntityIdCodeTable EntityIdCodeTable::table;

EntityIdCodeTable* EntityIdCodeTable::getEntityIdCodeTable() { return &table; }

// The texts are printed as they stand, duplicates and odd spacing included ("Peripheral Bay" at
// 0x05 and 0x1B, "Air Inlet" at 0x37 and 0x40, "Processor/ IO Module").
EntityIdCodeTable::EntityIdCodeTable()
    : names_{
          {0x00, "Unspecified"},
          {0x01, "Other"},
          {0x02, "Unknown (Unspecified)"},
          {0x03, "Processor"},
          {0x04, "Disk or Disk Bay"},
          {0x05, "Peripheral Bay"},
          {0x06, "System Management Module"},
          {0x07, "System Board"},
          {0x08, "Memory Module"},
          {0x09, "Processor Module"},
          {0x0A, "Power Supply"},
          {0x0B, "Add-in Card"},
          {0x0C, "Front Panel Board"},
          {0x0D, "Back Panel Board"},
          {0x0E, "Power System Board"},
          {0x0F, "Drive Backplane"},
          {0x10, "System Internal Expansion Board"},
          {0x11, "Other System Board"},
          {0x12, "Processor Board"},
          {0x13, "Power Unit / Power Domain"},
          {0x14, "Power Module / DC-to-DC Converter"},
          {0x15, "Power Management"},
          {0x16, "Chassis Back Panel Board"},
          {0x17, "System Chassis"},
          {0x18, "Sub-Chassis"},
          {0x19, "Other Chassis Board"},
          {0x1A, "Disk Drive Bay"},
          {0x1B, "Peripheral Bay"},
          {0x1C, "Device Bay"},
          {0x1D, "Fan / Cooling Device"},
          {0x1E, "Cooling Unit / Cooling Domain"},
          {0x1F, "Cable / Interconnect"},
          {0x20, "Memory Device"},
          {0x21, "System Management Software"},
          {0x22, "BIOS"},
          {0x23, "Operating System"},
          {0x24, "System Bus"},
          {0x25, "Group"},
          {0x26, "Remote Management Communication Device"},
          {0x27, "External Environment"},
          {0x28, "Battery"},
          {0x29, "Processing Blade"},
          {0x2A, "Connectivity Switch"},
          {0x2B, "Processor/Memory Module"},
          {0x2C, "I/O Module"},
          {0x2D, "Processor/ IO Module"},
          {0x2E, "Management Controller Firmware"},
          {0x2F, "IPMI Channel"},
          {0x30, "PCI Bus"},
          {0x31, "PCI Express Bus"},
          {0x32, "SCSI Bus"},
          {0x33, "SATA / SAS Bus"},
          {0x34, "Processor / Front-side Bus"},
          {0x35, "Real Time Clock (RTC)"},
          {0x36, "Reserved"},
          {0x37, "Air Inlet"},
          {0x38, "Reserved"},
          {0x39, "Reserved"},
          {0x3A, "Reserved"},
          {0x3B, "Reserved"},
          {0x3C, "Reserved"},
          {0x3D, "Reserved"},
          {0x3E, "Reserved"},
          {0x3F, "Reserved"},
          {0x40, "Air Inlet"},
          {0x41, "Processor / CPU"},
          {0x42, "Baseboard / Main System Board"},
      } {}

std::string EntityIdCodeTable::getEntityName(unsigned char entityId) const {
    if (entityId >= 0x43 && entityId <= 0x8F) return "";
    if (entityId >= 0x90 && entityId <= 0xAF) return "Chassis-Specific Entities";
    if (entityId >= 0xB0 && entityId <= 0xCF) return "Board-Set Specific Entities";
    if (entityId >= 0xD0) return "OEM System Integrator Defined";
    return valueOrEmpty(names_, entityId);
}

const std::map<unsigned char, std::string>& EntityIdCodeTable::names() const { return names_; }
