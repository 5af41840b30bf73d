// Everything a decoded event log is made of, read from the BMC in one session, and its rendering:
// one event per SEL record, related to the PEF filter and the sensor record that match it, with
// the auxiliary-log entries that belong to it. The whole log (IpmiEventLogImp) and the records
// added since a poll (IpmiEventFollowerImp) are rendered alike.
#pragma once

#include <map>
#include <vector>

#include "IPMIExtendedSELDataEntry.h"
#include "IpmiEventLog.h"
#include "IpmiEventOperations.h"
#include "IpmiSDROperations.h"
#include "RawPETEntry.h"
#include "RawSDR.h"
#include "RawSelEntry.h"

namespace Tolmar {

struct EventLogData {
    std::vector<RawSelEntry> sel;
    std::vector<RawPETEntry> pet;
    std::vector<RawSDR> sdr;
    std::map<int, int> entryMap;   // SEL position to filter position, or -1
    std::map<int, int> selSDRMap;  // SEL position to SDR position, or -1
    std::vector<IPMIExtendedSELDataEntry> auxEntries;

    // Reads the SEL, the filters and the sensor records (each read ends quietly at its first
    // failure; what it read is used), relates them, and reads the auxiliary log.
    void read(IpmiEventOperations& events, IpmiSDROperations& sensors);
    // Relates each SEL record to its filter and its sensor record (the two maps).
    void relateRecords();
    // Reads the auxiliary log's entries.
    void readAuxiliaryLog(IpmiEventOperations& events);
    // Appends one decoded event per SEL record, in SEL order.
    void appendDecodedEvents(std::vector<TolmarAgentless::IPMIEVENT>& events);
};

}  // namespace Tolmar
