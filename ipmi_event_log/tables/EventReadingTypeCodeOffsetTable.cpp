#include "EventReadingTypeCodeOffsetTable.h"

#include "TableLookup.h"

EventReadingTypeCodeOffsetTable EventReadingTypeCodeOffsetTable::table;

EventReadingTypeCodeOffsetTable*
EventReadingTypeCodeOffsetTable::getEventReadingTypeCodeOffsetTable() {
    return &table;
}

// The threshold offsets live here under type 0x01: that is how threshold events get their text.
// Capitalisation differs from type to type and "Non-redundant:" has no blank after the colon; the
// texts are printed as they stand.
EventReadingTypeCodeOffsetTable::EventReadingTypeCodeOffsetTable()
    : descriptions_{
          {0x01,
           {
               {0x00, "Lower Non-critical - going low"},
               {0x01, "Lower Non-critical - going high"},
               {0x02, "Lower Critical - going low"},
               {0x03, "Lower Critical - going high"},
               {0x04, "Lower Non-recoverable - going low"},
               {0x05, "Lower Non-recoverable - going high"},
               {0x06, "Upper Non-critical - going low"},
               {0x07, "Upper Non-critical - going high"},
               {0x08, "Upper Critical - going low"},
               {0x09, "Upper Critical - going high"},
               {0x0A, "Upper Non-recoverable - going low"},
               {0x0B, "Upper Non-recoverable - going high"},
           }},
          {0x02,
           {
               {0x00, "Transition to Idle"},
               {0x01, "Transition to Active"},
               {0x02, "Transition to Busy"},
           }},
          {0x03,
           {
               {0x00, "State Deasserted"},
               {0x01, "State Asserted"},
           }},
          {0x04,
           {
               {0x00, "Predictive Failure deasserted"},
               {0x01, "Predictive Failure asserted"},
           }},
          {0x05,
           {
               {0x00, "Limit Not Exceeded"},
               {0x01, "Limit Exceeded"},
           }},
          {0x06,
           {
               {0x00, "Performance Met"},
               {0x01, "Performance Lags"},
           }},
          {0x07,
           {
               {0x00, "transition to OK"},
               {0x01, "transition to Non-Critical from OK"},
               {0x02, "transition to Critical from less severe"},
               {0x03, "transition to Non-recoverable from less severe"},
               {0x04, "transition to Non-Critical from more severe"},
               {0x05, "transition to Critical from Non-recoverable"},
               {0x06, "transition to Non-recoverable"},
               {0x07, "Monitor"},
               {0x08, "Informational"},
           }},
          {0x08,
           {
               {0x00, "Device Removed / Device Absent"},
               {0x01, "Device Inserted / Device Present"},
           }},
          {0x09,
           {
               {0x00, "Device Disabled"},
               {0x01, "Device Enabled"},
           }},
          {0x0A,
           {
               {0x00, "transition to Running"},
               {0x01, "transition to In Test"},
               {0x02, "transition to Power Off"},
               {0x03, "transition to On Line"},
               {0x04, "transition to Off Line"},
               {0x05, "transition to Off Duty"},
               {0x06, "transition to Degraded"},
               {0x07, "transition to Power Save"},
               {0x08, "Install Error"},
           }},
          {0x0B,
           {
               {0x00, "Fully Redundant"},
               {0x01, "Redundancy Lost"},
               {0x02, "Redundancy Degraded"},
               {0x03, "Non-redundant:Sufficient Resources from Redundant"},
               {0x04, "Non-redundant:Sufficient Resources from Insufficient Resources"},
               {0x05, "Non-redundant:Insufficient Resources"},
               {0x06, "Redundancy Degraded from Fully Redundant"},
               {0x07, "Redundancy Degraded from Non-redundant"},
           }},
          {0x0C,
           {
               {0x00, "D0 Power State"},
               {0x01, "D1 Power State"},
               {0x02, "D2 Power State"},
               {0x03, "D3 Power State"},
           }},
      } {}

std::string EventReadingTypeCodeOffsetTable::getEventDescription(unsigned char eventReadingType,
                                                                 unsigned char offset) const {
    if (eventReadingType == 0x00 || eventReadingType > 0x0C) return "";
    return valueOrEmpty(valueOrEmpty(descriptions_, eventReadingType), offset);
}

const std::map<unsigned char, EventReadingTypeCodeOffsetTable::Offsets>&
EventReadingTypeCodeOffsetTable::descriptions() const {
    return descriptions_;
}
