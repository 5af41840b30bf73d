// GetAllIpmiEventLog and GetIpmiEventLogByRecordId against the in-memory BMC.
#include <gtest/gtest.h>

#include <stdexcept>

#include "BmcTest.h"
#include "EventAssertions.h"
#include "IPMIAuxiliaryLog.h"
#include "IpmiEventLog.h"
#include "SampleServer.h"
#include "SmallBmc.h"

namespace {

using sim::ClientCall;
using sim::ClientEvent;
using sim::Fault;
using sim::kCpuTemp;
using sim::kMemoryAux;
using sim::kPs1;
using sim::powerSupplyFilter;
using sim::RecordedRequest;
using sim::selRecord;
using Tolmar::IpmiEventLog;
using Tolmar::kAuxLogEnterpriseNumber;
using Tolmar::TolmarAgentless::IPMIEVENT;
using Tolmar::TolmarConnection::ConnectionInfo;
using Bytes = std::vector<unsigned char>;

constexpr unsigned char kIana0 = kAuxLogEnterpriseNumber & 0xFF;
constexpr unsigned char kIana1 = (kAuxLogEnterpriseNumber >> 8) & 0xFF;
constexpr unsigned char kIana2 = (kAuxLogEnterpriseNumber >> 16) & 0xFF;

class EventLogAssemblyTest : public sim::BmcTest {
protected:
    void SetUp() override {
        BmcTest::SetUp();
        configureBmc();
    }

    void configureBmc() {
        bmc.setAuxLogEnterprise(kAuxLogEnterpriseNumber);
        bmc.setLastReservationId(0x0010);  // the SDR walk's reservation is 0x0011
    }

    // A fresh small BMC and bench, for tests that read it several times.
    void freshSmallBmc() {
        bmc = sim::SimulatedBmc();
        bench.reset(bmc);
        configureBmc();
        smallBmc();
    }

    void smallBmc() { sim::stockSmallBmc(bmc); }

    std::vector<IPMIEVENT> readAll(int expected = 0) {
        IpmiEventLog log(sim::lanConnection());
        std::vector<IPMIEVENT> events;
        EXPECT_EQ(log.GetAllIpmiEventLog(events), expected);
        return events;
    }

    static std::vector<IPMIEVENT> smallBmcEvents() { return sim::smallBmcEvents(); }

    static RecordedRequest getSel(unsigned id) {
        return request(
            0x0A, 0x43,
            {0, 0, static_cast<unsigned char>(id), static_cast<unsigned char>(id >> 8), 0, 0xFF});
    }
    static RecordedRequest getSdr(unsigned id, unsigned char offset, unsigned char count) {
        return request(0x0A, 0x23,
                       {0x11, 0x00, static_cast<unsigned char>(id), 0x00, offset, count});
    }
    static RecordedRequest auxRead(unsigned char offset, unsigned char length) {
        return request(0x2E, 0x93,
                       {kIana0, kIana1, kIana2, 0x01, 0x00, offset, 0x00, length, 0x00});
    }
};

TEST_F(EventLogAssemblyTest, RendersEveryRecordOfASmallBmc) {
    smallBmc();
    sim::expectSameEvents(readAll(), smallBmcEvents());
}

TEST_F(EventLogAssemblyTest, ReadsEverythingInOneSessionInThisOrder) {
    smallBmc();
    readAll();
    EXPECT_EQ(bench.requests(),
              (std::vector<RecordedRequest>{
                  getSel(0x0000), getSel(0x0002), getSel(0x0003),                 // SEL
                  request(0x04, 0x13, {0x05, 0x00, 0x00}),                        // filters
                  request(0x04, 0x13, {0x06, 0x01, 0x00}),                        //
                  request(0x0A, 0x22, {}),                                        // SDRs
                  getSdr(0x0000, 0x00, 0x0A), getSdr(0x0000, 0x14, 0x0A),         //
                  getSdr(0x0000, 0x2F, 0xFF),                                     //
                  getSdr(0x0002, 0x00, 0x0A), getSdr(0x0002, 0x14, 0x0A),         //
                  getSdr(0x0002, 0x1F, 0xFF),                                     //
                  request(0x0A, 0x5A, {0x01}),                                    // aux log
                  auxRead(0x00, 0x00), auxRead(0x00, 0x19), auxRead(0x19, 0x0D),  //
              }));
    EXPECT_EQ(bench.events(), (std::vector<ClientEvent>{{ClientCall::Construct, 1},
                                                        {ClientCall::Connect, 1},
                                                        {ClientCall::Disconnect, 1},
                                                        {ClientCall::Delete, 1}}));
}

TEST_F(EventLogAssemblyTest, AppendsAfterTheCallersEvents) {
    smallBmc();
    IpmiEventLog log(sim::lanConnection());
    std::vector<IPMIEVENT> events(2);
    events[0].message = "kept";
    EXPECT_EQ(log.GetAllIpmiEventLog(events), 0);
    ASSERT_EQ(events.size(), 5u);
    EXPECT_EQ(events[0].message, "kept");
    EXPECT_EQ(events[2].recordId, 1ul);
}

TEST_F(EventLogAssemblyTest, RecordWithoutSdrOrFilterGetsSeverityZero) {
    bmc.storeSelRecord(selRecord(0x0009, {0x02, 0x00, 0x00, 0x00, 0x55, 0x20, 0x00, 0x04, 0x07,
                                          0x99, 0x6F, 0x00, 0xFF, 0xFF}));
    const std::vector<IPMIEVENT> events = readAll();
    ASSERT_EQ(events.size(), 1u);
    EXPECT_EQ(events[0].message, " (Processor - ): Assertion: IERR");
    EXPECT_EQ(events[0].severity, 0);
}

TEST_F(EventLogAssemblyTest, EmptySelGivesNoEventsAndSuccess) {
    bmc.addEventFilter(powerSupplyFilter());
    bmc.storeSdr(kCpuTemp);
    EXPECT_TRUE(readAll().empty());
}

TEST_F(EventLogAssemblyTest, NoAuxiliaryEntriesStillAsksAndParsesNothing) {
    smallBmc();
    bench.injectFault(13, Fault::completion(0x00, {0, 0, 0, 0, kIana0, kIana1, kIana2, 0, 0}));
    const std::vector<IPMIEVENT> events = readAll();
    EXPECT_EQ(bench.requests().size(), 13u);  // no auxiliary read after a count of 0
    EXPECT_EQ(events.at(2).auxLog, "No Extended Data");
}

TEST_F(EventLogAssemblyTest, RefusedCredentialsLogAndReturnFourWithoutDisconnect) {
    bench.setConnectStatus(2);
    readAll(4);
    EXPECT_EQ(logText(),
              "[1] ipmi_event_log/IpmiEventLogImp:221 GetAllIpmiEventLog "
              "IpmiEventLog::EL_AUTHTICATION_FAIL\n");
    EXPECT_EQ(bench.events(),
              (std::vector<ClientEvent>{
                  {ClientCall::Construct, 1}, {ClientCall::Connect, 1}, {ClientCall::Delete, 1}}));
}

TEST_F(EventLogAssemblyTest, OtherConnectFailuresLogAndReturnThree) {
    bench.setConnectStatus(7);
    readAll(3);
    EXPECT_EQ(logText(),
              "[1] ipmi_event_log/IpmiEventLogImp:224 GetAllIpmiEventLog "
              "IpmiEventLog::EL_CONNECTION_FAIL\n");
    EXPECT_TRUE(bench.requests().empty());
}

TEST_F(EventLogAssemblyTest, ConnectFailuresAreSilentAtLogLevelZero) {
    Log::SetMinLogLevel(0);
    bench.setConnectStatus(2);
    readAll(4);
    EXPECT_EQ(logText(), "");
}

TEST_F(EventLogAssemblyTest, IpmiExceptionWhileConnectingIsInternalFailure) {
    bench.throwOnConnect(IpmiException(0, IPMI_EXCEPTION_CONNECTION));
    EXPECT_TRUE(readAll(6).empty());
    EXPECT_EQ(bench.events(), (std::vector<ClientEvent>{{ClientCall::Construct, 1},
                                                        {ClientCall::Connect, 1},
                                                        {ClientCall::Disconnect, 1},
                                                        {ClientCall::Delete, 1}}));
}

// Request numbers in the small BMC's sequence: 1-3 SEL, 4-5 filters, 6-12 SDRs, 13 auxiliary
// status, 14 its length, 15-16 its chunks.
struct StageFault {
    const char* stage;
    std::size_t request;
    std::size_t events;  // how many events the call still returns, all with result 0
};

TEST_F(EventLogAssemblyTest, CompletionCodeAtEveryStageShortensWhatThatStageRead) {
    const StageFault cases[] = {{"first SEL record", 1, 0},  {"last SEL record", 3, 2},
                                {"filter count", 4, 3},      {"filter", 5, 3},
                                {"SDR reservation", 6, 3},   {"SDR part", 8, 3},
                                {"auxiliary status", 13, 3}, {"auxiliary length", 14, 3},
                                {"auxiliary chunk", 16, 3}};
    for (const StageFault& c : cases) {
        freshSmallBmc();
        bench.injectFault(c.request, Fault::completion(0xC0));
        EXPECT_EQ(readAll().size(), c.events) << c.stage;
    }
}

TEST_F(EventLogAssemblyTest, FailedFilterAndSdrReadsFallBackToNoFilterAndNoSdr) {
    smallBmc();
    bench.injectFault(4, Fault::completion(0xC0));  // no filters
    bench.injectFault(7, Fault::completion(0xC0));  // no SDRs
    const std::vector<IPMIEVENT> events = readAll();
    ASSERT_EQ(events.size(), 3u);
    EXPECT_EQ(events[0].message, " (Temperature - ): Assertion: Upper Critical - going high");
    EXPECT_EQ(events[1].severity, 0);
    EXPECT_EQ(events[2].auxLog, kMemoryAux);
}

TEST_F(EventLogAssemblyTest, IpmiExceptionsCaughtByTheReadsShortenThem) {
    const StageFault cases[] = {{"SEL", 2, 1}, {"filters", 5, 3}, {"SDRs", 9, 3}};
    for (const StageFault& c : cases) {
        freshSmallBmc();
        bench.injectFault(c.request, Fault::ipmiException(0, IPMI_EXCEPTION_TIMEOUT));
        EXPECT_EQ(readAll().size(), c.events) << c.stage;
    }
}

TEST_F(EventLogAssemblyTest, IpmiExceptionFromTheAuxiliaryLogEndsTheCallWithSuccessAndNoEvents) {
    for (std::size_t request : {13, 14, 15}) {
        freshSmallBmc();
        bench.injectFault(request, Fault::ipmiException(0, IPMI_EXCEPTION_TIMEOUT));
        EXPECT_TRUE(readAll().empty()) << request;
        EXPECT_EQ(bench.events(), (std::vector<ClientEvent>{{ClientCall::Construct, 1},
                                                            {ClientCall::Connect, 1},
                                                            {ClientCall::Disconnect, 1},
                                                            {ClientCall::Delete, 1}}));
    }
}

TEST_F(EventLogAssemblyTest, IpmiExceptionFromDisconnectKeepsTheReadButRendersNothing) {
    smallBmc();
    bench.throwOnNextDisconnect(IpmiException(0, IPMI_EXCEPTION_TRANSPORT));
    EXPECT_TRUE(readAll(0).empty());
    EXPECT_EQ(bench.events().size(), 5u);  // construct, connect, disconnect, disconnect, delete
}

TEST_F(EventLogAssemblyTest, OtherExceptionsReachTheCallerAndLeaveTheClient) {
    smallBmc();
    bench.injectFault(13, Fault::otherException());
    IpmiEventLog log(sim::lanConnection());
    std::vector<IPMIEVENT> events;
    EXPECT_THROW(log.GetAllIpmiEventLog(events), std::runtime_error);
    EXPECT_EQ(bench.liveClients(), 1u);
}

TEST_F(EventLogAssemblyTest, ThousandRecordsWithFiftyAuxiliaryEntries) {
    for (unsigned id = 1; id <= 1000; ++id) {
        bmc.storeSelRecord(
            selRecord(id, {0x02, 0x00, 0x00, 0x00, 0x55, 0x20, 0x00, 0x04, 0x08, 0x60, 0x6F,
                           static_cast<unsigned char>(id % 7), 0xFF, 0xFF}));
    }
    bmc.storeSdr(kPs1);
    for (unsigned n = 0; n < 50; ++n) {
        bmc.addAuxLogEntry(bmcsim::auxLogRecord(
            {20 * n + 1, 0x01, 0x40, {0x00, 0x00}, 1, 3, {0, 0, 0, 0}, {}, {0xAB}}));
    }
    const std::vector<IPMIEVENT> events = readAll();
    ASSERT_EQ(events.size(), 1000u);
    std::size_t withAux = 0;
    for (std::size_t i = 0; i < events.size(); ++i) {
        EXPECT_EQ(events[i].recordId, i + 1);
        EXPECT_EQ(events[i].message.rfind("Power Supply 1 (Power Supply - PS1 Status): ", 0), 0u);
        if (events[i].auxLog != "No Extended Data") {
            ++withAux;
            EXPECT_EQ(i % 20, 0u) << i;
            EXPECT_EQ(events[i].auxLog,
                      "Type: PROGRESS_CODE Sev: ORV_ERROR_INFO Class: Software Sub-Class: SEC "
                      "Instance: 0x00000000 GUID: 0x00000000000000000000000000000000 Extended "
                      "Data: AB ");
        }
    }
    EXPECT_EQ(withAux, 50u);
}

// --- trace lines ---

TEST_F(EventLogAssemblyTest, TracesTheClientTheRecordsTheSdrsTheMapsAndEachBuild) {
    smallBmc();
    Log::SetMinLogLevel(4);
    readAll();
    const std::string log = logText();
    const auto has = [&log](const std::string& line) {
        EXPECT_NE(log.find(line + "\n"), std::string::npos) << line << "\nin:\n" << log;
    };
    has("[4] ipmi_event_log/IpmiEventLogImp:81 vkmip:bmc1.example.test user:admin port:623 "
        "ciphersuite_:17");
    has("[4] ipmi_event_log/IpmiEventLogImp:134 RawSelEntry[2]: index=1, recordType=02, "
        "generatorId[0]=20, generatorId[1]=00, evMRev=04, sensorType=08, sensorNum=60, "
        "eventDirType=6f, eventData1=01, eventData2=ff, eventData3=ff, generatorId=32");
    has("[4] ipmi_event_log/IpmiEventLogImp:160 RawSDR[2]: index=1, sensorId=PS1 Status, "
        "sensorNumber= 60, entityId=0a, entityInstance=01");
    has("[4] ipmi_event_log/IpmiEventLogImp:175 selSDRMap[2]: -1");
    has("[4] ipmi_event_log/IpmiEventLogImp:200 Plover_Build Ipmi Event: selSDRMap[1]: 1, "
        "entryMap[1]: 0");
    EXPECT_EQ(log.find("s3cret"), std::string::npos);
}

TEST_F(EventLogAssemblyTest, NoTraceOfTheClientForTheLocalInterface) {
    Log::SetMinLogLevel(4);
    IpmiEventLog log(ConnectionInfo{});
    std::vector<IPMIEVENT> events;
    log.GetAllIpmiEventLog(events);
    EXPECT_EQ(logText().find("vkmip:"), std::string::npos);
}

// --- by record ID ---

TEST_F(EventLogAssemblyTest, ByRecordIdSetsFourFieldsAndLeavesSourceAndAuxLog) {
    smallBmc();
    IpmiEventLog log(sim::lanConnection());
    IPMIEVENT event;
    event.source = "caller's source";
    event.auxLog = "caller's aux";
    EXPECT_EQ(log.GetIpmiEventLogByRecordId(3, event), 0);
    EXPECT_EQ(event.recordId, 3ul);
    EXPECT_EQ(event.timeStamp, "03/11/2015 08:44:40");
    EXPECT_EQ(event.message,
              " (Memory - ): Assertion: Uncorrectable ECC / other uncorrectable memory error");
    EXPECT_EQ(event.severity, 0);
    EXPECT_EQ(event.source, "caller's source");
    EXPECT_EQ(event.auxLog, "caller's aux");
}

TEST_F(EventLogAssemblyTest, ByRecordIdOfAnAbsentRecordIsNotFound) {
    smallBmc();
    IpmiEventLog log(sim::lanConnection());
    IPMIEVENT event;
    event.message = "untouched";
    EXPECT_EQ(log.GetIpmiEventLogByRecordId(0x77, event), 5);
    EXPECT_EQ(event.message, "untouched");
    EXPECT_EQ(event.recordId, 0ul);
}

TEST_F(EventLogAssemblyTest, ByRecordIdTakesTheLastMatch) {
    // Two records that carry record ID 5: the first from the BMC, the second answered in place of
    // record 6.
    bmc.storeSelRecord(selRecord(0x0005, {0x02, 0x00, 0x00, 0x00, 0x55, 0x20, 0x00, 0x04, 0x07,
                                          0x99, 0x6F, 0x00, 0xFF, 0xFF}));
    bmc.storeSelRecord(selRecord(0x0006, {0x02}));
    bench.injectFault(
        2, Fault::completion(0x00, {0xFF, 0xFF, 0x05, 0x00, 0x02, 0x00, 0x00, 0x00, 0x55, 0x20,
                                    0x00, 0x04, 0x07, 0x99, 0x6F, 0x01, 0xFF, 0xFF}));
    IpmiEventLog log(sim::lanConnection());
    IPMIEVENT event;
    EXPECT_EQ(log.GetIpmiEventLogByRecordId(5, event), 0);
    EXPECT_EQ(event.message, " (Processor - ): Assertion: Thermal Trip");
}

TEST_F(EventLogAssemblyTest, ByRecordIdPassesFailuresOn) {
    bench.setConnectStatus(2);
    IpmiEventLog log(sim::lanConnection());
    IPMIEVENT event;
    EXPECT_EQ(log.GetIpmiEventLogByRecordId(1, event), 4);
}

}  // namespace
