#include "SensorTypeCodeTable.h"

#include "TableLookup.h"

SensorTypeCodeTable SensorTypeCodeTable::table;

SensorTypeCodeTable* SensorTypeCodeTable::getSensorTypeCodeTable() { return &table; }

SensorTypeCodeTable::SensorTypeCodeTable()
    : names_{
          {0x00, "Reserved"},
          {0x01, "Temperature"},
          {0x02, "Voltage"},
          {0x03, "Current"},
          {0x04, "Fan"},
          {0x05, "Physical Security (Chassis Intrusion)"},
          {0x06, "Platform Security Violation Attempt"},
          {0x07, "Processor"},
          {0x08, "Power Supply"},
          {0x09, "Power Unit"},
          {0x0A, "Cooling Device"},
          {0x0B, "Other Units-based Sensor"},
          {0x0C, "Memory"},
          {0x0D, "Drive Slot (Bay)"},
          {0x0E, "POST Memory Resize"},
          {0x0F, "System Firmware Progress"},
          {0x10, "Event Logging Disabled"},
          {0x11, "Watchdog 1"},
          {0x12, "System Event"},
          {0x13, "Critical Interrupt"},
          {0x14, "Button / Switch"},
          {0x15, "Module / Board"},
          {0x16, "Microcontroller / Coprocessor"},
          {0x17, "Add-in Card"},
          {0x18, "Chassis"},
          {0x19, "Chip Set"},
          {0x1A, "Other FRU"},
          {0x1B, "Cable / Interconnect"},
          {0x1C, "Terminator"},
          {0x1D, "System Boot / Restart Initiated"},
          {0x1E, "Boot Error"},
          {0x1F, "OS Boot"},
          {0x20, "OS Stop / Shutdown"},
          {0x21, "Slot / Connector"},
          {0x22, "System ACPI Power State"},
          {0x23, "Watchdog 2"},
          {0x24, "Platform Alert"},
          {0x25, "Entity Presence"},
          {0x26, "Monitor ASIC / IC"},
          {0x27, "LAN"},
          {0x28, "Management Subsystem Health"},
          {0x29, "Battery"},
          {0x2A, "Session Audit"},
          {0x2B, "Version Change"},
          {0x2C, "FRU State"},
      } {}

std::string SensorTypeCodeTable::getSensorTypeName(unsigned char sensorType) const {
    if (sensorType >= 0x2D && sensorType <= 0xBF) return "Reserved";
    if (sensorType >= 0xC0) return "OEM RESERVED";
    return valueOrEmpty(names_, sensorType);
}

const std::map<unsigned char, std::string>& SensorTypeCodeTable::names() const { return names_; }
