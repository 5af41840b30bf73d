#include "EventLogData.h"

#include <cstring>
#include <string>

#include "HexText.h"
#include "IPMIAuxiliaryLog.h"
#include "IpmiEventBuilder.h"
#include "Log.h"

namespace Tolmar {

namespace {

// The event log's traces carry the source and line numbers they always have; log readers key on
// them.
const char* const kLogSource = "ipmi_event_log/IpmiEventLogImp";
constexpr int kSelRecordLogLine = 134;
constexpr int kSdrLogLine = 160;
constexpr int kSdrMapLogLine = 175;
constexpr int kBuildLogLine = 200;

bool logsTraces() { return Log::GetMinLogLevel() > 3; }

// Two lower-case hexadecimal digits.
std::string hex(unsigned char byte) { return hexText(&byte, 1, HexCase::Lower); }

void logSelRecords(const std::vector<RawSelEntry>& sel) {
    for (std::size_t i = 0; i < sel.size(); ++i) {
        const RawSelEntry& r = sel[i];
        Log(4, kLogSource, kSelRecordLogLine).Stream()
            << "RawSelEntry[" << r.id() << "]: index=" << i << ", recordType=" << hex(r.recordType)
            << ", generatorId[0]=" << hex(r.generatorId[0])
            << ", generatorId[1]=" << hex(r.generatorId[1]) << ", evMRev=" << hex(r.evMRev)
            << ", sensorType=" << hex(r.sensorType) << ", sensorNum=" << hex(r.sensorNum)
            << ", eventDirType=" << hex(r.eventDirType) << ", eventData1=" << hex(r.eventData1)
            << ", eventData2=" << hex(r.eventData2) << ", eventData3=" << hex(r.eventData3)
            << ", generatorId=" << (r.generatorId[0] + r.generatorId[1] * 256);
    }
}

void logSdrs(const std::vector<RawSDR>& sdrs) {
    for (std::size_t i = 0; i < sdrs.size(); ++i) {
        const unsigned char* b = sdrs[i].bytes;
        char sensorId[17] = {};
        std::memcpy(sensorId, b + 48, 16);
        // "sensorNumber= " keeps its blank.
        Log(4, kLogSource, kSdrLogLine).Stream()
            << "RawSDR[" << (b[0] + b[1] * 256) << "]: index=" << i << ", sensorId=" << sensorId
            << ", sensorNumber= " << hex(b[7]) << ", entityId=" << hex(b[8])
            << ", entityInstance=" << hex(b[9]);
    }
}

}  // namespace

void EventLogData::read(IpmiEventOperations& events, IpmiSDROperations& sensors) {
    // Each read ends quietly at its first failure; what it read is used.
    events.getRawSelEntries(sel);
    events.getRawPETEntries(pet);
    sensors.getTypeOneAndTwoPartialRawSDRs(sdr);
    if (logsTraces()) {
        logSelRecords(sel);
        logSdrs(sdr);
    }
    relateRecords();
    readAuxiliaryLog(events);
}

void EventLogData::relateRecords() {
    IpmiEventOperations::getSelPETEntryNumberMap(sel, pet, entryMap);
    IpmiEventOperations::getSelSDRNumberMap(sel, sdr, selSDRMap);
    if (logsTraces()) {
        for (const auto& [position, sdrPosition] : selSDRMap) {
            Log(4, kLogSource, kSdrMapLogLine).Stream()
                << "selSDRMap[" << position << "]: " << sdrPosition;
        }
    }
}

void EventLogData::readAuxiliaryLog(IpmiEventOperations& events) {
    // The auxiliary log's own results are not needed: whatever it read is parsed.
    unsigned int auxCount = 0;
    events.IPMIGetAuxLogStatus(&auxCount);
    std::vector<s_AuxLog_entry> auxBuffer(auxCount);
    events.IPMIReadExtendedData(auxBuffer.data(), auxCount);
    auxEntries = IPMIAuxiliaryLog().ParseExtendedSELData(auxBuffer.data(), auxCount);
}

void EventLogData::appendDecodedEvents(std::vector<TolmarAgentless::IPMIEVENT>& events) {
    IpmiEventBuilder* builder = IpmiEventBuilder::getIpmiEventBuilder();
    RawPETEntry noFilter{};  // severity 0 for records that match no filter
    const int count = static_cast<int>(sel.size());
    events.reserve(events.size() + sel.size());
    for (int i = 0; i < count; ++i) {
        if (logsTraces()) {
            Log(4, kLogSource, kBuildLogLine).Stream()
                << "Plover_Build Ipmi Event: selSDRMap[" << i << "]: " << selSDRMap[i]
                << ", entryMap[" << i << "]: " << entryMap[i];
        }
        const int sdrPosition = selSDRMap[i];
        const int filterPosition = entryMap[i];
        const RawPETEntry& filter = filterPosition != -1 ? pet[filterPosition] : noFilter;
        // Each event gets its own copy of the auxiliary entries; the builder consumes from it.
        events.push_back(sdrPosition != -1
                             ? builder->build(sel[i], sdr[sdrPosition], filter, auxEntries)
                             : builder->build(sel[i], filter, auxEntries));
    }
}

}  // namespace Tolmar
