// A sample two-socket server as its BMC describes it: the SDR repository (full and compact sensor
// records with event-only, locator and OEM records among them) and a SEL of a few dozen realistic
// events.
#pragma once

#include <array>
#include <string>
#include <vector>

namespace bmcsim {

using SdrRecord = std::vector<unsigned char>;
using SelRecord = std::array<unsigned char, 16>;

// Every record of the repository, in repository order, record IDs from 1. Each ID string is
// followed by a zero byte inside the record, so that bytes a BMC sends past a record's end (as
// ipmi_sim does) do not run into the name.
std::vector<SdrRecord> sampleSdrRepository();
// The sample server's events, record IDs from 1, time stamps from March 2015 on.
std::vector<SelRecord> sampleEventLog();
// A SEL of `count` events: the sample server's, repeated, a minute apart.
std::vector<SelRecord> repeatedEventLog(std::size_t count);

// One record of the OEM auxiliary log, as the BMC returns it after the enterprise number: its size
// (the record less 7 bytes), the SEL record ID it belongs to, type, severity, operation, class and
// sub-class, FRU instance, GUID and extended data.
struct AuxRecord {
    unsigned selRecordId;
    unsigned char type, severity;
    std::array<unsigned char, 2> operation;
    unsigned char subclass, entryClass;
    std::array<unsigned char, 4> fruInstance;
    std::array<unsigned char, 16> guid;
    std::vector<unsigned char> extendedData;
};
std::vector<unsigned char> auxLogRecord(const AuxRecord& record);
// Firmware reports that go with some of the sample server's events.
std::vector<AuxRecord> sampleAuxiliaryLog();

// The sample server's PEF event filter table (IPMI v2.0 table 17-2): alerting filters by sensor
// type, and two that must be ignored (one disabled, one without the alert action).
using EventFilter = std::array<unsigned char, 20>;
std::vector<EventFilter> sampleEventFilters();

// "main_sdr_add" commands that load the repository into the simulated BMC.
std::string sdrCommands(const std::vector<SdrRecord>& records);

}  // namespace bmcsim
