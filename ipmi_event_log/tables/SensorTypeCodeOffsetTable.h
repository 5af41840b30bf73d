// Texts of the sensor-specific event offsets (event/reading type 0x6F, IPMI v2.0 table 42-3), by
// sensor type and offset.
#pragma once

#include <map>
#include <string>

class SensorTypeCodeOffsetTable {
public:
    using Offsets = std::map<unsigned char, std::string>;

    static SensorTypeCodeOffsetTable table;
    static SensorTypeCodeOffsetTable* getSensorTypeCodeOffsetTable();

    // The offset's text. Sensor types 0x00-0x04 answer every offset with their type name, and
    // those without offsets of their own with the empty string; types from 0x2D on have none.
    std::string getEventDescription(unsigned char sensorType, unsigned char offset) const;
    const std::map<unsigned char, Offsets>& descriptions() const;

private:
    SensorTypeCodeOffsetTable();
    std::map<unsigned char, Offsets> descriptions_;
};
