// The decoded event log of ipmi_sim over RMCP+: the sample server's SEL, SDR repository, PEF
// filters and auxiliary log, read and rendered through the public class.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "IpmiEventLog.h"
#include "LanFixture.h"

namespace {

using ::testing::AnyOf;
using ::testing::Eq;
using Tolmar::IpmiEventLog;
using Tolmar::TolmarAgentless::IPMIEVENT;

class EventLogOverLanTest : public ::testing::Test {
protected:
    void SetUp() override { bmc = bmcsim::sampleServerBmc(bmcsim::sampleEventLog()); }

    // Reading the filters needs operator privilege; ipmi_sim asks administrator privilege for the
    // commands a module adds, the auxiliary log's among them.
    Tolmar::TolmarConnection::ConnectionInfo connection(
        const bmcsim::LanUser& user = bmcsim::kAdministrator) const {
        Tolmar::TolmarConnection::ConnectionInfo info;
        info.ip = bmcsim::BmcSimulator::host();
        info.port = bmc->port();
        info.user = user.name;
        info.password = user.password;
        info.connectionType = 1;
        return info;
    }

    std::unique_ptr<bmcsim::BmcSimulator> bmc;
};

struct Expected {
    unsigned long recordId;
    // The BMC stamps an added record with its clock, set to the record's time an instant before:
    // that time or one second later.
    const char* time;
    const char* timeASecondLater;
    std::string message;
    int severity;
    const char* source;
    const char* auxLog;
};

const char* const kBmc = "16 (address). IPMB device LUN 0. Channel 0. ";

// Worked out by hand from the sample server's records, filters and auxiliary entries. Filters:
// power supply, memory and processor critical (0x10), OS stop non-recoverable (0x20),
// temperature non-critical (0x08), anything else information (0x02); no filter matches an
// offset above 7, and the lowest policy number wins. A disabled filter and one without the alert
// action carry the lowest policy number and critical severity: were they used, every temperature
// event would be critical.
const Expected kExpected[] = {
    // A BIOS record (generator 0x01) on sensor 0x00, which has no sensor record: the catch-all
    // filter, information.
    {3, "03/11/2015 08:44:20", "03/11/2015 08:44:21",
     " (System Event - ): Assertion: Timestamp Clock Synch", 0, "BIOS. Channel 0. ",
     "No Extended Data"},
    // Temperature filter, non-critical: threshold 0x55 = 85, reading 0x56 = 86.
    {4, "03/11/2015 08:59:20", "03/11/2015 08:59:21",
     "Processor 1 (Temperature - CPU1 Temp): Assertion: Upper Non-critical - going high   Trigger "
     "threshold value: 85.00 degrees C.      Trigger reading: 86.00 degrees C.",
     1, kBmc, "No Extended Data"},
    // Offset 9: no filter matches, severity 0.
    {5, "03/11/2015 08:59:50", "03/11/2015 08:59:51",
     "Processor 1 (Temperature - CPU1 Temp): Assertion: Upper Critical - going high   Trigger "
     "threshold value: 95.00 degrees C.      Trigger reading: 96.00 degrees C.",
     0, kBmc, "No Extended Data"},
    {16, "03/12/2015 14:39:17", "03/12/2015 14:39:18",
     "Power Supply 1 (Power Supply - PS1 Status): Assertion: Power Supply Failure detected  ", 2,
     kBmc, "No Extended Data"},
    // Its auxiliary entry: an error code from memory.
    {22, "03/12/2015 15:56:18", "03/12/2015 15:56:19",
     "Memory Device 1 (Memory - DIMM Status): Assertion: Uncorrectable ECC / other uncorrectable "
     "memory error  ",
     2, kBmc,
     "Type: ERROR_CODE Sev: ORV_ERROR_FATAL Class: Computing Sub-Class: Memory Instance: "
     "0x00000003 GUID: 0x4F2B61A803119C4EB25D00155D010A22 Extended Data: 01 0C 00 03 00 00 7F 3A "
     "40 00 "},
    // OS stop from system management software (generator 0x41); its sensor has an event-only
    // record, so it is rendered without an SDR.
    {28, "03/12/2015 16:57:54", "03/12/2015 16:57:55",
     " (OS Stop / Shutdown - ): Assertion: Run-time Critical Stop (a.k.a. 'core dump', 'blue "
     "screen')",
     2, "System Mgt Software. Channel 0. ", "No Extended Data"},
    {30, "03/12/2015 16:59:44", "03/12/2015 16:59:45",
     "System Board 1 (System Boot / Restart Initiated - Sys Boot): Assertion: Initiated by hard "
     "reset  ",
     0, kBmc,
     "Type: PROGRESS_CODE Sev: ORV_ERROR_INFO Class: Software Sub-Class: PEI Core Instance: "
     "0x00000000 GUID: 0x4F2B61A803119C4EB25D00155D010A22 Extended Data: "},
};

TEST_F(EventLogOverLanTest, DecodesEveryRecordOfTheSampleServer) {
    IpmiEventLog log(connection());
    std::vector<IPMIEVENT> events;
    ASSERT_EQ(log.GetAllIpmiEventLog(events), 0);
    ASSERT_EQ(events.size(), bmcsim::sampleEventLog().size());
    for (std::size_t i = 0; i < events.size(); ++i) EXPECT_EQ(events[i].recordId, i + 1);
    for (const Expected& e : kExpected) {
        const IPMIEVENT& event = events.at(e.recordId - 1);
        EXPECT_THAT(event.timeStamp, AnyOf(Eq(e.time), Eq(e.timeASecondLater))) << e.recordId;
        EXPECT_EQ(event.message, e.message) << e.recordId;
        EXPECT_EQ(event.severity, e.severity) << e.recordId;
        EXPECT_EQ(event.source, e.source) << e.recordId;
        EXPECT_EQ(event.auxLog, e.auxLog) << e.recordId;
    }
    std::size_t withAuxiliary = 0;
    for (const IPMIEVENT& event : events) withAuxiliary += event.auxLog != "No Extended Data";
    EXPECT_EQ(withAuxiliary, 3u);
}

TEST_F(EventLogOverLanTest, FindsEachEventByItsRecordId) {
    IpmiEventLog log(connection());
    for (const Expected& e : kExpected) {
        IPMIEVENT event;
        event.auxLog = "untouched";
        ASSERT_EQ(log.GetIpmiEventLogByRecordId(e.recordId, event), 0) << e.recordId;
        EXPECT_EQ(event.recordId, e.recordId);
        EXPECT_EQ(event.message, e.message);
        EXPECT_EQ(event.severity, e.severity);
        EXPECT_EQ(event.auxLog, "untouched");
    }
    IPMIEVENT absent;
    EXPECT_EQ(log.GetIpmiEventLogByRecordId(0x0999, absent), 5);
}

TEST_F(EventLogOverLanTest, OperatorGetsSeveritiesButNoAuxiliaryLogFromTheSimulator) {
    IpmiEventLog log(connection(bmcsim::kOperator));
    std::vector<IPMIEVENT> events;
    ASSERT_EQ(log.GetAllIpmiEventLog(events), 0);
    ASSERT_EQ(events.size(), bmcsim::sampleEventLog().size());
    EXPECT_EQ(events[21].severity, 2);
    for (const IPMIEVENT& event : events) EXPECT_EQ(event.auxLog, "No Extended Data");
}

TEST_F(EventLogOverLanTest, UserPrivilegeReadsNoFiltersSoEverySeverityIsZero) {
    IpmiEventLog log(connection(bmcsim::kViewer));
    std::vector<IPMIEVENT> events;
    ASSERT_EQ(log.GetAllIpmiEventLog(events), 0);
    ASSERT_EQ(events.size(), bmcsim::sampleEventLog().size());
    for (const IPMIEVENT& event : events) EXPECT_EQ(event.severity, 0);
    EXPECT_EQ(events[3].message, kExpected[1].message);
}

TEST_F(EventLogOverLanTest, WrongPasswordIsRefused) {
    bmcsim::ScopedEnvironment timeout("TOLMAR_IPMI_SESSION_TIMEOUT_MS", "2000");
    auto info = connection();
    info.password = "not-it";
    IpmiEventLog log(info);
    std::vector<IPMIEVENT> events;
    EXPECT_EQ(log.GetAllIpmiEventLog(events), 4);
    EXPECT_TRUE(events.empty());
}

}  // namespace
