// Names of IPMI sensor type codes (IPMI v2.0 table 42-3), the sensor type byte of a SEL record.
#pragma once

#include <map>
#include <string>

class SensorTypeCodeTable {
public:
    static SensorTypeCodeTable table;
    static SensorTypeCodeTable* getSensorTypeCodeTable();

    // The sensor type's name: "Reserved" for 0x00 and 0x2D-0xBF, "OEM RESERVED" for 0xC0-0xFF.
    std::string getSensorTypeName(unsigned char sensorType) const;
    // The named codes 0x00-0x2C.
    const std::map<unsigned char, std::string>& names() const;

private:
    SensorTypeCodeTable();
    std::map<unsigned char, std::string> names_;
};
