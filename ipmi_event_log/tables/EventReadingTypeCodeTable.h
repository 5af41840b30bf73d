// Classes of the 7-bit event/reading type code of a SEL record (IPMI v2.0 table 42-1): its
// category, its sensor class and the reading class of the generic types. Every answer is one of
// the eight static texts below, returned by reference so that callers may compare with them.
#pragma once

#include <map>
#include <string>

class EventReadingTypeCodeTable {
public:
    static const std::string unspecified;      // "unspecified"
    static const std::string threshold;        // "Threshold"
    static const std::string generic;          // "Generic"
    static const std::string sensorSpecific;   // "Sensor-specific"
    static const std::string oem;              // "OEM"
    static const std::string na;               // "n/a"
    static const std::string discrete;         // "Discrete"
    static const std::string digitalDiscrete;  // "'digital' Discrete"

    static EventReadingTypeCodeTable table;
    static EventReadingTypeCodeTable* getEventReadingTypeCodeTable();

    // 0x00 unspecified, 0x01 threshold, 0x02-0x0C generic, 0x6F sensor-specific, 0x70-0x7F OEM,
    // anything else n/a. The code is taken as given: bit 7 (the event direction) is not masked.
    const std::string& getEventReadingTypeCodeCategory(unsigned char code) const;
    // 0x01 threshold, 0x02-0x0C and 0x6F discrete, 0x70-0x7F OEM, anything else n/a.
    const std::string& getSensorClass(unsigned char code) const;
    // False for the sensor-specific code 0x6F only: every other code, threshold and OEM included,
    // is described from the generic offset table.
    bool isEventReadingTypeCodeGeneric(unsigned char code) const;
    // The reading class of codes 0x01-0x0C; n/a for every other code.
    const std::string& getEventReadingClass(unsigned char code) const;
    const std::map<unsigned char, const std::string*>& readingClasses() const;

private:
    EventReadingTypeCodeTable();
    std::map<unsigned char, const std::string*> readingClasses_;
};
