#include "EventReadingTypeCodeTable.h"

#include "TableLookup.h"

// "unspecified" and "n/a" are lower case, the others capitalised; they are printed as they stand.
const std::string EventReadingTypeCodeTable::unspecified = "unspecified";
const std::string EventReadingTypeCodeTable::threshold = "Threshold";
const std::string EventReadingTypeCodeTable::generic = "Generic";
const std::string EventReadingTypeCodeTable::sensorSpecific = "Sensor-specific";
const std::string EventReadingTypeCodeTable::oem = "OEM";
const std::string EventReadingTypeCodeTable::na = "n/a";
const std::string EventReadingTypeCodeTable::discrete = "Discrete";
const std::string EventReadingTypeCodeTable::digitalDiscrete = "'digital' Discrete";

EventReadingTypeCodeTable EventReadingTypeCodeTable::table;

EventReadingTypeCodeTable* EventReadingTypeCodeTable::getEventReadingTypeCodeTable() {
    return &table;
}

namespace {

constexpr unsigned char kThreshold = 0x01;
constexpr unsigned char kLastGeneric = 0x0C;
constexpr unsigned char kSensorSpecific = 0x6F;
constexpr unsigned char kFirstOem = 0x70;
constexpr unsigned char kLastOem = 0x7F;

}  // namespace

// The reading classes of the threshold and generic types. Only addresses are stored, so the map
// may be filled before the strings have their texts.
EventReadingTypeCodeTable::EventReadingTypeCodeTable()
    : readingClasses_{
          {0x01, &threshold},       {0x02, &discrete},        {0x03, &digitalDiscrete},
          {0x04, &digitalDiscrete}, {0x05, &digitalDiscrete}, {0x06, &digitalDiscrete},
          {0x07, &discrete},        {0x08, &digitalDiscrete}, {0x09, &digitalDiscrete},
          {0x0A, &discrete},        {0x0B, &discrete},        {0x0C, &discrete},
      } {}

const std::string& EventReadingTypeCodeTable::getEventReadingTypeCodeCategory(
    unsigned char code) const {
    if (code == 0x00) return unspecified;
    if (code == kThreshold) return threshold;
    if (code <= kLastGeneric) return generic;
    if (code == kSensorSpecific) return sensorSpecific;
    if (code >= kFirstOem && code <= kLastOem) return oem;
    return na;
}

const std::string& EventReadingTypeCodeTable::getSensorClass(unsigned char code) const {
    if (code == kThreshold) return threshold;
    if ((code >= 0x02 && code <= kLastGeneric) || code == kSensorSpecific) return discrete;
    if (code >= kFirstOem && code <= kLastOem) return oem;
    return na;
}

bool EventReadingTypeCodeTable::isEventReadingTypeCodeGeneric(unsigned char code) const {
    return getEventReadingTypeCodeCategory(code) != sensorSpecific;
}

const std::string& EventReadingTypeCodeTable::getEventReadingClass(unsigned char code) const {
    const std::string* readingClass = valueOrEmpty(readingClasses_, code);
    return readingClass != nullptr ? *readingClass : na;
}

const std::map<unsigned char, const std::string*>& EventReadingTypeCodeTable::readingClasses()
    const {
    return readingClasses_;
}
