// Turns one SEL record, with the sensor's SDR when it is known, the PEF filter that matched it and
// the auxiliary-log entries read for the log, into a decoded event. It works on record bytes alone
// and holds no state.
#pragma once

#include <string>
#include <vector>

#include "IPMIExtendedSELDataEntry.h"
#include "IpmiEventLog.h"
#include "RawPETEntry.h"
#include "RawSDR.h"
#include "RawSelEntry.h"

namespace Tolmar {

class IpmiEventBuilder {
public:
    using IPMIEVENT = TolmarAgentless::IPMIEVENT;

    static IpmiEventBuilder builder;
    static IpmiEventBuilder* getIpmiEventBuilder();

    // The event of a record whose sensor has no full or compact SDR.
    IPMIEVENT build(const RawSelEntry& sel, const RawPETEntry& pet,
                    std::vector<IPMIExtendedSELDataEntry> aux);
    // The event of a record with its sensor's SDR.
    IPMIEVENT build(const RawSelEntry& sel, const RawSDR& sdr, const RawPETEntry& pet,
                    std::vector<IPMIExtendedSELDataEntry> aux);

    std::string buildMessage(const RawSelEntry& sel);
    std::string buildMessage(const RawSelEntry& sel, const RawSDR& sdr);
    // "Assertion: " or "Deassertion: ", then the offset's text when there is one.
    std::string buildEventReadingTypeCodeDescription(const RawSelEntry& sel);
    std::string buildGenericOffsetDescription(const RawSelEntry& sel);
    std::string buildSpecificOffsetDescription(const RawSelEntry& sel);
    std::string buildSensorTypeName(const RawSelEntry& sel);
    std::string buildEntityName(const RawSDR& sdr);
    int buildEntityInstanceNumber(const RawSDR& sdr);
    std::string buildSensorIdString(const RawSDR& sdr);
    // The generator of the event, copied into `out` with strncpy(out, text, outLen).
    char* buildSource(const RawSelEntry& sel, char* out, unsigned int outLen);
    // "MM/DD/YYYY hh:mm:ss" in UTC, or "Unspecified".
    std::string buildTimeStamp(const RawSelEntry& sel);
    // 0 informational, 1 warning, 2 critical, from the PEF event severity.
    int buildSeverity(const RawPETEntry& pet);
    // The trigger reading and threshold of a threshold event, with units; empty otherwise.
    std::string buildTriggerThreshold(const RawSelEntry& sel, const RawSDR& sdr);
    // The text of the first auxiliary entry for this record (consumed from `entries`), or
    // "No Extended Data".
    std::string buildAuxiliaryLog(const RawSelEntry& sel,
                                  std::vector<IPMIExtendedSELDataEntry>& entries);

    int BuildThresholdValue(unsigned char eventData1, unsigned char eventData2,
                            unsigned char eventData3, char* out, unsigned int outLen,
                            const RawSDR& sdr);
    // One event-data byte converted with the SDR's linear formula and printed with its units.
    int GetSensorUnits(const RawSDR* sdr, int raw, char* out, unsigned int outLen);
    int GetOnesComplement(char value, char* out, unsigned int outLen);
    // The unit text of `key` (ThresholdOffsetTable); 0 when there is one, 6 when it is empty.
    int GetString(int key, char* out, unsigned int outLen);

private:
    // Both build variants but for the message and the log line.
    IPMIEVENT buildEvent(const RawSelEntry& sel, std::string message, const RawPETEntry& pet,
                         std::vector<IPMIExtendedSELDataEntry>& aux, const char* variant,
                         int logLine);
};

}  // namespace Tolmar
