// One SEL, the same 16 bytes a record, read by ipmi-event-log over both of its transports: from
// ipmi_sim over RMCP+, with the sample server's SDR repository and PEF filters, and from an
// OpenBMC-style Redfish event log, where bmcweb shows each record added through IPMI as an
// OpenBMC.0.1.SELEntryAdded entry whose argument is the record in hexadecimal. What the record
// alone decides (its time in UTC, record type, generator, sensor type and number, event type,
// direction, offset, event data, manufacturer and OEM data, and the message where no SDR converts
// a reading) reads the same; what only one side has differs, record by record as listed below:
// - over IPMI the BMC's SDR repository names a sensor and converts a threshold event's reading and
//   threshold, its PEF filters give the severity, its OEM auxiliary log the details, and the
//   record ID is the event's ID;
// - over Redfish there is neither SDR, PEF nor auxiliary log: the entry's Severity (OK for a SEL
//   record) is the severity, and the entry gives its own Id, log, EntryType, MessageId and
//   Created.
#include <gtest/gtest.h>

#include <nlohmann/json.hpp>

#include <array>
#include <cstdint>
#include <map>
#include <memory>
#include <set>
#include <sstream>
#include <string>
#include <vector>

#include "BmcSimulator.h"
#include "RedfishBmc.h"
#include "SampleServer.h"
#include "ScratchDirectory.h"
#include "ToolRun.h"

namespace {

using nlohmann::json;
using Keys = std::set<std::string>;

// A record of the SEL, and the keys of the tool's JSON that read otherwise over IPMI than over
// Redfish for it, beside the host, the ID and the auxiliary log, which always do.
struct SameRecord {
    const char* what;
    const char* bytes;  // 32 hexadecimal digits, as Get SEL Entry returns the record
    Keys differing;
};

// Why a key differs:
// - sensorName, source: the SDR repository names the sensor ("Temperature CPU1 Temp"); without
//   it the source is the sensor type and number ("Temperature #0x30"), the name null.
// - reading, threshold, message: the sensor's full record converts a threshold event's raw bytes
//   (event data 2 and 3) into units ("96.00 degrees C"); without it they stay hexadecimal
//   ("60h") and the fields are left out.
// - severity: PEF's filters over IPMI; the entry's Severity, OK for every SEL record bmcweb
//   logs, over Redfish.
const Keys kNamed = {"source", "sensorName"};
const Keys kNamedThreshold = {"source", "sensorName", "reading", "threshold", "message"};
const Keys kNamedByPef = {"source", "sensorName", "severity"};
const Keys kByPef = {"severity"};

// Record IDs from 0001h, time stamps rising from the first record to the last (bmcweb lists its
// journal oldest first, and the tool tells a log's order by its first and last entries' times).
// The sample server's SDR repository names sensors 30h (CPU1 Temp), 60h and 61h (PS1 and PS2
// Status), 70h (DIMM Status) and 73h (Sys Boot). Its PEF filters make power supply, memory and
// OS stop events critical, temperature and voltage events warnings, other system events
// information; the library matches no filter for an event offset above 7, so an upper critical
// threshold (offset 9) is information too. The records marked "real" are from
// tests/data/realdata, their record IDs renumbered.
const std::vector<SameRecord>& sameRecords() {
    static const std::vector<SameRecord> records = {
        {"threshold: CPU1 Temp upper critical going high, reading and threshold in event data 2/3",
         "0100020000005520000401300159605f", kNamedThreshold},
        {"threshold deassertion: the same, going low again", "02000278000055200004013081595a5f",
         kNamedThreshold},
        {"discrete, sensor-specific: PS1 Status failure detected",
         "0300020000015520000408606f01ffff", kNamedByPef},
        {"discrete deassertion: PS2 Status input lost, deasserted",
         "040002000101552000040861ef03ffff", kNamedByPef},
        {"discrete with OEM codes in event data 2/3: DIMM Status uncorrectable ECC",
         "050002000002552000040c706fa10003", kNamedByPef},
        {"real (Dell R630): temperature threshold event of a sensor no SDR here names",
         "0600026e2e0560200004010401508283", kByPef},
        {"real (Dell R630): a deassertion with an unspecified time stamp (FFFFFFFFh)",
         "070002ffffffff200004010481508483", kByPef},
        {"real (OCP board): voltage threshold event stamped 60 s after the BMC's initialisation",
         "0800023c000000200004023401508788", kByPef},
        {"real (Microsoft): OS critical stop logged by system software 41h",
         "0900023319816541000420006f03ffff", kByPef},
        {"system event by BIOS (01h): timestamp clock synch, first of pair in event data 2",
         "0a00020000005701000412006fc500ff",
         {}},
        {"generic discrete (event type 07h): transition to critical, an unnamed sensor",
         "0b00020001005720000428990702ffff",
         {}},
        {"real (ipmitool issue 384): timestamped OEM record DFh",
         "0c00df5cd29963370100040000000000",
         {}},
        {"real (Microsoft): timestamped OEM record DDh, manufacturer 000137h",
         "0d00dd33198165370100000100028000",
         {}},
        {"real (Microsoft): timestamped OEM record C8h, manufacturer 009C9Ch",
         "0e00c8431981659c9c00000200000000",
         {}},
        {"non-timestamped OEM record E5h", "0f00e5112233445566778899aabbccdd", {}},
        {"discrete: Sys Boot system restart, information by PEF",
         "1000020000a0652000041d736f07ffff", kNamed},
    };
    return records;
}

bmcsim::SelRecord recordOf(const std::string& hex) {
    bmcsim::SelRecord record{};
    for (std::size_t i = 0; i < record.size(); ++i)
        record[i] = static_cast<unsigned char>(std::stoul(hex.substr(2 * i, 2), nullptr, 16));
    return record;
}

// The events of JSON lines, one object a line.
std::vector<json> jsonLines(const std::string& text) {
    std::vector<json> events;
    std::istringstream lines(text);
    for (std::string line; std::getline(lines, line);) events.push_back(json::parse(line));
    return events;
}

// The keys a Redfish event has and an IPMI event has not, and the other way round.
const Keys kRedfishAlone = {"id", "log", "entryType", "messageId", "created"};
const Keys kIpmiAlone = {"recordId"};
// What differs for every record: where it was read, and the auxiliary log, an OEM extension of
// IPMI that the BMC answers over RMCP+ (ipmi_sim's holds no entry for these records: "No
// Extended Data") and that Redfish does not carry ("").
const Keys kAlwaysDiffering = {"host", "auxLog"};

// The keys other than those above whose values are not the same (absent on one side counts as
// not the same).
Keys differingKeys(const json& ipmi, const json& redfish) {
    Keys keys;
    for (const json* event : {&ipmi, &redfish}) {
        for (const auto& member : event->items()) {
            const std::string& key = member.key();
            if (kAlwaysDiffering.count(key) || kRedfishAlone.count(key) || kIpmiAlone.count(key))
                continue;
            if (!ipmi.contains(key) || !redfish.contains(key) || ipmi[key] != redfish[key])
                keys.insert(key);
        }
    }
    return keys;
}

class RedfishSameRecordsTest : public ::testing::Test {
protected:
    // Both BMCs and both readings, once for the tests here: ipmi_sim takes a while to start.
    static void SetUpTestSuite() {
        std::vector<bmcsim::SelRecord> sel;
        for (const SameRecord& record : sameRecords()) sel.push_back(recordOf(record.bytes));
        scratch_ = new bmcsim::ScratchDirectory;
        reading_ = new Reading;
        ipmiBmc_ =
            new bmcsim::BmcSimulator(bmcsim::sdrCommands(bmcsim::sampleSdrRepository()), {}, sel,
                                     bmcsim::Interfaces::Lan, 0, bmcsim::SelRecordIds::AsRecorded);
        ipmiBmc_->setEventFilters(bmcsim::sampleEventFilters());
        redfishBmc_ = new bmcsim::RedfishBmc;
        for (const bmcsim::SelRecord& record : sel)
            reading_->entryIds.push_back(redfishBmc_->addSelRecord(redfishBmc_->mainLog(), record));
        redfishBmc_->start();
        reading_->entries = redfishBmc_->entries(redfishBmc_->mainLog());

        // Both in a zone other than UTC: "timeStamp" and "time" are UTC all the same.
        const std::string ipmiHost =
            std::string(bmcsim::BmcSimulator::host()) + ":" + std::to_string(ipmiBmc_->port());
        reading_->ipmi =
            bmcsim::runShell("IPMI_PASSWORD='" + std::string(bmcsim::kAdministrator.password) +
                                 "' TZ=Etc/GMT-2 " TOOL_PATH " -H " + ipmiHost + " -U " +
                                 bmcsim::kAdministrator.name + " -E --format jsonl list",
                             *scratch_);
        reading_->redfish =
            bmcsim::runShell("IPMI_PASSWORD=0penBmc TZ=Etc/GMT-2 " TOOL_PATH " -H " +
                                 redfishBmc_->url() + " -U root -E --format jsonl list",
                             *scratch_);
    }

    static void TearDownTestSuite() {
        delete redfishBmc_;
        delete ipmiBmc_;
        delete reading_;
        delete scratch_;
    }

    struct Reading {
        std::vector<std::string> entryIds;  // as addSelRecord gave them
        std::vector<json> entries;          // as the Redfish log holds them
        bmcsim::ToolRun ipmi{"", "", -1};
        bmcsim::ToolRun redfish{"", "", -1};
    };

    // Both readings, each one event a record of sameRecords() in its order; fails otherwise.
    static void readBoth(std::vector<json>& ipmi, std::vector<json>& redfish) {
        ASSERT_EQ(reading_->ipmi.status, 0) << reading_->ipmi.err;
        ASSERT_EQ(reading_->redfish.status, 0) << reading_->redfish.err;
        ipmi = jsonLines(reading_->ipmi.out);
        redfish = jsonLines(reading_->redfish.out);
        ASSERT_EQ(ipmi.size(), sameRecords().size()) << reading_->ipmi.out;
        ASSERT_EQ(redfish.size(), sameRecords().size()) << reading_->redfish.out;
    }

    static bmcsim::ScratchDirectory* scratch_;
    static Reading* reading_;
    static bmcsim::BmcSimulator* ipmiBmc_;
    static bmcsim::RedfishBmc* redfishBmc_;
};

bmcsim::ScratchDirectory* RedfishSameRecordsTest::scratch_ = nullptr;
RedfishSameRecordsTest::Reading* RedfishSameRecordsTest::reading_ = nullptr;
bmcsim::BmcSimulator* RedfishSameRecordsTest::ipmiBmc_ = nullptr;
bmcsim::RedfishBmc* RedfishSameRecordsTest::redfishBmc_ = nullptr;

TEST_F(RedfishSameRecordsTest, WhatTheRecordAloneDecidesReadsTheSame) {
    std::vector<json> ipmi, redfish;
    readBoth(ipmi, redfish);
    for (std::size_t i = 0; i < sameRecords().size(); ++i) {
        const SameRecord& record = sameRecords()[i];
        SCOPED_TRACE(std::string(record.what) + "\nIPMI:    " + ipmi[i].dump() +
                     "\nRedfish: " + redfish[i].dump());
        EXPECT_EQ(differingKeys(ipmi[i], redfish[i]), record.differing);
        // The time stamp, whatever else differs; null and "Unspecified", or "PreInit +60s", where
        // the record names no moment.
        EXPECT_EQ(ipmi[i].at("timeStamp"), redfish[i].at("timeStamp"));
        EXPECT_EQ(ipmi[i].at("time"), redfish[i].at("time"));
        EXPECT_EQ(ipmi[i].at("recordType"), recordOf(record.bytes)[2]);
    }
}

TEST_F(RedfishSameRecordsTest, EachSideGivesItsOwnIdsAndTheEntryItsFields) {
    std::vector<json> ipmi, redfish;
    readBoth(ipmi, redfish);
    for (std::size_t i = 0; i < sameRecords().size(); ++i) {
        SCOPED_TRACE(sameRecords()[i].what);
        EXPECT_EQ(ipmi[i].at("recordId"), i + 1);
        EXPECT_FALSE(ipmi[i].contains("id"));
        for (const std::string& key : kRedfishAlone) EXPECT_FALSE(ipmi[i].contains(key)) << key;
        EXPECT_FALSE(redfish[i].contains("recordId"));
        EXPECT_EQ(redfish[i].at("id"), reading_->entryIds[i]);
        EXPECT_EQ(redfish[i].at("log"), "Event Log Service");
        EXPECT_EQ(redfish[i].at("entryType"), "Event");
        EXPECT_EQ(redfish[i].at("messageId"), "OpenBMC.0.1.SELEntryAdded");
        EXPECT_EQ(redfish[i].at("created"), reading_->entries[i].at("Created"));
        EXPECT_EQ(redfish[i].at("host"), redfishBmc_->url());
        EXPECT_EQ(ipmi[i].at("host"), "127.0.0.1:" + std::to_string(ipmiBmc_->port()));
    }
}

// What differs, by its values: the SDR's names and conversions, PEF's severities and the
// auxiliary log over IPMI; over Redfish no name, no measurement, raw bytes in the message, the
// entry's Severity OK as information, no auxiliary log.
TEST_F(RedfishSameRecordsTest, TheSdrAndPefGiveWhatRedfishLacks) {
    std::vector<json> ipmi, redfish;
    readBoth(ipmi, redfish);
    const json& temperature = ipmi[0];
    EXPECT_EQ(temperature.at("sensorName"), "CPU1 Temp");
    EXPECT_EQ(temperature.at("source"), "Temperature CPU1 Temp");
    EXPECT_EQ(temperature.at("reading"), json({{"value", 96}, {"units", "degrees C"}}));
    EXPECT_EQ(temperature.at("threshold"), json({{"value", 95}, {"units", "degrees C"}}));
    EXPECT_EQ(temperature.at("message"),
              "Upper Critical going high | Asserted | Trigger reading = 96.00 degrees C ; Trigger "
              "threshold = 95.00 degrees C");
    EXPECT_TRUE(redfish[0].at("sensorName").is_null());
    EXPECT_EQ(redfish[0].at("source"), "Temperature #0x30");
    EXPECT_FALSE(redfish[0].contains("reading"));
    EXPECT_FALSE(redfish[0].contains("threshold"));
    EXPECT_EQ(redfish[0].at("message"),
              "Upper Critical going high | Asserted | Trigger reading = 60h ; Trigger threshold = "
              "5Fh");
    EXPECT_EQ(ipmi[15].at("sensorName"), "Sys Boot");
    EXPECT_TRUE(redfish[15].at("sensorName").is_null());

    // By record: PS1, PS2, DIMM and OS stop critical; the Dell temperatures and the OCP voltage
    // (offset 0, lower non-critical going low) warnings; the rest information.
    const std::map<std::size_t, std::string> ipmiSeverities = {
        {2, "critical"}, {3, "critical"}, {4, "critical"}, {5, "warning"},
        {6, "warning"},  {7, "warning"},  {8, "critical"}};
    for (std::size_t i = 0; i < sameRecords().size(); ++i) {
        SCOPED_TRACE(sameRecords()[i].what);
        const auto severity = ipmiSeverities.find(i);
        EXPECT_EQ(ipmi[i].at("severity"),
                  severity == ipmiSeverities.end() ? "info" : severity->second);
        EXPECT_EQ(redfish[i].at("severity"), "info");
        EXPECT_EQ(ipmi[i].at("auxLog"), "No Extended Data");
        EXPECT_EQ(redfish[i].at("auxLog"), "");
    }
}

}  // namespace
