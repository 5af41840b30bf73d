// Texts of the event offsets of the threshold (0x01) and generic (0x02-0x0C) event/reading types
// (IPMI v2.0 table 42-2), by event/reading type code and offset.
#pragma once

#include <map>
#include <string>

class EventReadingTypeCodeOffsetTable {
public:
    using Offsets = std::map<unsigned char, std::string>;

    static EventReadingTypeCodeOffsetTable table;
    static EventReadingTypeCodeOffsetTable* getEventReadingTypeCodeOffsetTable();

    // The offset's text; the empty string for type 0x00, types above 0x0C and unknown offsets.
    // The offset is used as given, neither masked nor range-checked.
    std::string getEventDescription(unsigned char eventReadingType, unsigned char offset) const;
    const std::map<unsigned char, Offsets>& descriptions() const;

private:
    EventReadingTypeCodeOffsetTable();
    std::map<unsigned char, Offsets> descriptions_;
};
