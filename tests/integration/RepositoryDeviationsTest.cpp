// The library and the tool over RMCP+, through the framework client, against BMCs that read their
// SDR repository and SEL otherwise than IPMI v2.0 says: records whose header claims more bytes
// than they hold, reads of a record's rest answered short, a repository chain that does not end
// at its last record, a last record answered with C3h, Reserve SEL refused below the operator
// level, Get SEL Info not supported. Each BMC is the small BMC's in-memory repositories behind the
// tests' own RMCP+ responder; what it decodes is compared with what the same repositories give
// read as IPMI says, and the requests each tolerance adds are checked on the wire.
#include <gtest/gtest.h>

#include <IpmiEventFollower.h>
#include <IpmiEventLog.h>

#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "CraftedBmc.h"
#include "EventAssertions.h"
#include "IPMIAuxiliaryLog.h"
#include "ScopedEnvironment.h"
#include "SmallBmc.h"
#include "ToolRun.h"

namespace {

using bmcsim::CommandAnswer;
using bmcsim::CraftedBehaviour;
using bmcsim::CraftedBmc;
using bmcsim::ScopedEnvironment;
using bmcsim::ToolRun;
using Bytes = std::vector<unsigned char>;
using Tolmar::IpmiEventLog;
using Tolmar::TolmarAgentless::IPMIEVENT;

constexpr unsigned char kStorage = 0x0A;
constexpr unsigned char kGetSdr = 0x23;
constexpr unsigned char kReserveSel = 0x42;
constexpr unsigned char kGetSelEntry = 0x43;

// The small BMC's repositories behind a crafted BMC's RMCP+, which keeps each Storage request it
// passes on. The repositories are set up before the BMC starts answering, and changed only under
// its lock.
class ServedBmc {
public:
    ServedBmc() {
        sim::stockSmallBmc(memory_);
        memory_.setAuxLogEnterprise(Tolmar::kAuxLogEnterpriseNumber);
    }

    sim::SimulatedBmc& memory() { return memory_; }
    void start(const CraftedBehaviour& behaviour) {
        crafted_ = std::make_unique<CraftedBmc>(
            behaviour, [this](unsigned char netFn, unsigned char command, const Bytes& data) {
                std::lock_guard<std::mutex> lock(mutex_);
                if (netFn == kStorage) storageRequests_.push_back({command, data});
                sim::BmcResponse response = memory_.handle(netFn, command, data);
                return CommandAnswer{response.completionCode, std::move(response.data)};
            });
    }
    unsigned short port() const { return crafted_->port(); }
    std::string host() const { return "127.0.0.1:" + std::to_string(port()); }
    const CraftedBmc& crafted() const { return *crafted_; }
    void change(const std::function<void(sim::SimulatedBmc&)>& how) {
        std::lock_guard<std::mutex> lock(mutex_);
        how(memory_);
    }
    std::size_t selRecords() const {
        std::lock_guard<std::mutex> lock(mutex_);
        return memory_.selRecords().size();
    }
    // The data of each Storage request with `command`, in the order they came.
    std::vector<Bytes> requests(unsigned char command) const {
        std::lock_guard<std::mutex> lock(mutex_);
        std::vector<Bytes> data;
        for (const auto& request : storageRequests_) {
            if (request.first == command) data.push_back(request.second);
        }
        return data;
    }

private:
    sim::SimulatedBmc memory_;
    mutable std::mutex mutex_;
    std::vector<std::pair<unsigned char, Bytes>> storageRequests_;
    std::unique_ptr<CraftedBmc> crafted_;  // stopped before what it answers from goes
};

class RepositoryDeviationsTest : public ::testing::Test {
protected:
    Tolmar::TolmarConnection::ConnectionInfo connection() const {
        Tolmar::TolmarConnection::ConnectionInfo info;
        info.ip = "127.0.0.1";
        info.port = deviant.port();
        info.user = account.user;
        info.password = account.password;
        info.cipherSuite = 3;
        info.connectionType = 1;
        return info;
    }

    static Tolmar::ConnectionSettings asUser() {
        Tolmar::ConnectionSettings settings;
        settings.privilege = Tolmar::ConnectionSettings::Privilege::User;
        return settings;
    }

    // The whole log, as the library decodes it.
    std::vector<IPMIEVENT> wholeLog() const {
        IpmiEventLog log(connection());
        std::vector<IPMIEVENT> events;
        EXPECT_EQ(log.GetAllIpmiEventLog(events), IpmiEventLog::EL_SUCCESS);
        return events;
    }

    // The tool against `bmc`, its output with the host named "HOST".
    ToolRun tool(const ServedBmc& bmc, const std::string& arguments) const {
        const std::string host = bmc.host();
        ToolRun run =
            bmcsim::runShell("IPMI_PASSWORD='" + account.password + "' " TOOL_PATH " -H " + host +
                                 " -U " + account.user + " -E " + arguments,
                             scratch);
        for (std::string* text : {&run.out, &run.err}) {
            for (std::size_t at = text->find(host); at != std::string::npos;
                 at = text->find(host, at))
                text->replace(at, host.size(), "HOST");
        }
        return run;
    }

    // What the tool lists of the small BMC read as IPMI says, in CSV.
    std::string wellReadListing() const {
        ServedBmc wellBehaved;
        wellBehaved.start(account);
        const ToolRun run = tool(wellBehaved, "--format csv list");
        EXPECT_EQ(run.status, 0) << run.err;
        return run.out;
    }

    // The tool lists, in CSV, what it lists of a well-behaved BMC, with nothing to say.
    void expectToolListsTheWholeLog() const {
        const ToolRun run = tool(deviant, "--format csv list");
        EXPECT_EQ(run.status, 0);
        EXPECT_EQ(run.err, "");
        EXPECT_EQ(run.out, wellReadListing());
        EXPECT_EQ(bmcsim::countOf(run.out, "\n"), 4u);  // the header and three events
    }

    // Offset and count of each Get SDR for the record with ID bytes `low`, `high`, under the one
    // reservation of the walk.
    std::vector<Bytes> sdrReadsOf(unsigned char low, unsigned char high) const {
        std::vector<Bytes> reads;
        for (const Bytes& data : deviant.requests(kGetSdr)) {
            EXPECT_EQ(data[0] | data[1] << 8, 0x0001) << "the walk's reservation";
            if (data[2] == low && data[3] == high) reads.push_back({data[4], data[5]});
        }
        return reads;
    }

    // The record IDs of the Get SDR header reads, in the order they came.
    std::vector<unsigned> sdrHeaderReads() const {
        std::vector<unsigned> ids;
        for (const Bytes& data : deviant.requests(kGetSdr)) {
            if (data[4] == 0x00) ids.push_back(data[2] | data[3] << 8);
        }
        return ids;
    }

    ScopedEnvironment timeout{"TOLMAR_IPMI_SESSION_TIMEOUT_MS", "2000"};
    ScopedEnvironment retransmission{"TOLMAR_IPMI_RETRANSMISSION_TIMEOUT_MS", "200"};
    bmcsim::ScratchDirectory scratch;
    CraftedBehaviour account;
    ServedBmc deviant;
};

TEST_F(RepositoryDeviationsTest, ARecordClaimingMoreBytesThanItHoldsIsReadToItsRealEnd) {
    // Whole-record reads refused for want of a buffer, and "CPU1 Temp" claiming 5 bytes more than
    // its 57: the pieces stop at the refusal past its real end.
    deviant.memory().limitSdrReads(0x10);
    deviant.memory().overstateSdrLength(0x0001, 5);
    deviant.start(account);
    sim::expectSameEvents(wholeLog(), sim::smallBmcEvents());
    EXPECT_EQ(sdrReadsOf(0x00, 0x00), (std::vector<Bytes>{{0x00, 0x0A},
                                                          {0x14, 0x0A},
                                                          {0x2F, 0xFF},
                                                          {0x2F, 0x0F},
                                                          {0x2F, 0x07},
                                                          {0x36, 0x07},
                                                          {0x36, 0x03},
                                                          {0x39, 0x03},
                                                          {0x39, 0x01}}));
    EXPECT_EQ(sdrReadsOf(0x02, 0x00),
              (std::vector<Bytes>{{0x00, 0x0A}, {0x14, 0x0A}, {0x1F, 0xFF}, {0x1F, 0x0B}}));
}

TEST_F(RepositoryDeviationsTest, ReadsOfARecordsRestAnsweredShortAreCompletedInPieces) {
    // Eight bytes of each ID string part: "CPU1 Te" and "PS1 St" after their type/length bytes.
    deviant.memory().cutSdrRestReads(8);
    deviant.start(account);
    sim::expectSameEvents(wholeLog(), sim::smallBmcEvents());
    EXPECT_EQ(sdrReadsOf(0x00, 0x00),
              (std::vector<Bytes>{{0x00, 0x0A}, {0x14, 0x0A}, {0x2F, 0xFF}, {0x37, 0x02}}));
    EXPECT_EQ(sdrReadsOf(0x02, 0x00),
              (std::vector<Bytes>{{0x00, 0x0A}, {0x14, 0x0A}, {0x1F, 0xFF}, {0x27, 0x03}}));
    expectToolListsTheWholeLog();
}

TEST_F(RepositoryDeviationsTest, AChainLeadingToNoRecordKeepsEveryRecordBeforeIt) {
    // The last record names 0003h as the next; the BMC has no such record (CBh).
    deviant.memory().continueSdrChainWith(0x0003);
    deviant.start(account);
    sim::expectSameEvents(wholeLog(), sim::smallBmcEvents());
    EXPECT_EQ(sdrHeaderReads(), (std::vector<unsigned>{0x0000, 0x0002, 0x0003}));
    expectToolListsTheWholeLog();
}

TEST_F(RepositoryDeviationsTest, AChainLeadingBackToAnEarlierRecordEndsThere) {
    deviant.memory().continueSdrChainWith(0x0001);
    deviant.start(account);
    sim::expectSameEvents(wholeLog(), sim::smallBmcEvents());
    // The first record, asked for as 0000h, once more by its own ID; then 0002h again ends it.
    EXPECT_EQ(sdrHeaderReads(), (std::vector<unsigned>{0x0000, 0x0002, 0x0001}));
    expectToolListsTheWholeLog();
}

TEST_F(RepositoryDeviationsTest, ALastRecordAnsweredWithC3hLeavesAFullLogAndACompletePoll) {
    // A third record, "PS2 Status", that every read of is answered with C3h (timeout).
    Bytes ps2 = sim::kPs1;
    ps2[0] = 0x03;
    ps2[34] = '2';
    deviant.memory().storeSdr(ps2);
    deviant.memory().refuseSdr(0x0003, 0xC3);
    deviant.start(account);
    sim::expectSameEvents(wholeLog(), sim::smallBmcEvents());
    EXPECT_EQ(sdrReadsOf(0x03, 0x00), (std::vector<Bytes>{{0x00, 0x0A}}));
    expectToolListsTheWholeLog();
    Tolmar::IpmiEventFollower follower(connection());
    std::vector<IPMIEVENT> events;
    const Tolmar::PollResult poll = follower.Poll(events);
    EXPECT_EQ(poll.result, IpmiEventLog::EL_SUCCESS);
    EXPECT_TRUE(poll.complete);
    EXPECT_EQ(poll.failure, "");
    sim::expectSameEvents(events, sim::smallBmcEvents());
}

TEST_F(RepositoryDeviationsTest, BelowOperatorTheSelIsReadWithoutAReservation) {
    CraftedBehaviour behaviour = account;
    behaviour.reserveSelNeedsOperator = true;
    deviant.start(behaviour);
    const std::string listing = wellReadListing();
    for (const char* command : {"--format csv list", "--format csv follow --polls 1"}) {
        const ToolRun run = tool(deviant, std::string("-L user ") + command);
        EXPECT_EQ(run.status, 0) << command;
        EXPECT_EQ(run.err, "") << command;
        EXPECT_EQ(run.out, listing) << command;
    }
    Tolmar::IpmiEventFollower follower(connection(), asUser());
    std::vector<IPMIEVENT> events;
    const Tolmar::PollResult poll = follower.Poll(events);
    EXPECT_TRUE(poll.complete);
    sim::expectSameEvents(events, sim::smallBmcEvents());
    EXPECT_EQ(deviant.crafted().reservationsRefused(), 0);
    EXPECT_EQ(deviant.requests(kReserveSel).size(), 0u);
    EXPECT_EQ(deviant.requests(kGetSelEntry).size(), 9u);  // three records, three times
}

TEST_F(RepositoryDeviationsTest, BelowOperatorAClearOfAFullSelSaysTheReservationWasRefused) {
    CraftedBehaviour behaviour = account;
    behaviour.reserveSelNeedsOperator = true;
    deviant.memory().limitSel(3);
    deviant.start(behaviour);
    Tolmar::IpmiEventFollower follower(connection(), asUser());
    follower.ClearWhenFull(100);
    std::vector<IPMIEVENT> events;
    const Tolmar::PollResult poll = follower.Poll(events);
    EXPECT_TRUE(poll.complete);
    EXPECT_FALSE(poll.emptied);
    EXPECT_EQ(poll.failure,
              "the SEL was not cleared: the BMC answered Reserve SEL with D4h (insufficient "
              "privilege level); clearing the SEL needs the operator privilege level");
    sim::expectSameEvents(events, sim::smallBmcEvents());
    EXPECT_EQ(deviant.crafted().reservationsRefused(), 1);
}

TEST_F(RepositoryDeviationsTest, BelowOperatorDeleteAndClearSayThePrivilegeLevelIsTooLow) {
    CraftedBehaviour behaviour = account;
    behaviour.reserveSelNeedsOperator = true;
    deviant.start(behaviour);
    const std::string refused =
        "ipmi-event-log: the request to HOST failed: the BMC answered D4h (insufficient privilege "
        "level): the session's level does not allow it (changing the SEL needs operator; see "
        "-L)\n";
    for (const char* command : {"delete 1", "clear"}) {
        const ToolRun run = tool(deviant, std::string("-L user ") + command);
        EXPECT_EQ(run.status, 10 + IpmiEventLog::EL_BUSY) << command;
        EXPECT_EQ(run.err, refused) << command;
        EXPECT_EQ(run.out, "") << command;
    }
    EXPECT_EQ(deviant.selRecords(), 3u);
    const ToolRun asOperator = tool(deviant, "-L operator delete 1");
    EXPECT_EQ(asOperator.status, 0) << asOperator.err;
    EXPECT_EQ(asOperator.out, "HOST: deleted 1\n");
    EXPECT_EQ(deviant.selRecords(), 2u);
}

TEST_F(RepositoryDeviationsTest, WithoutGetSelInfoEachRunListsOnlyWhatCameSinceTheLast) {
    deviant.memory().answerRepositoryInfo(false);
    deviant.start(account);
    const std::string state = "--state " + scratch.file("state") + " --format csv list";
    const ToolRun first = tool(deviant, state);
    EXPECT_EQ(first.status, 0);
    EXPECT_EQ(first.err, "");
    EXPECT_EQ(first.out, wellReadListing());
    const ToolRun second = tool(deviant, state);
    EXPECT_EQ(second.status, 0);
    EXPECT_EQ(second.err, "");
    const std::string header =
        "host,recordId,timeStamp,severity,message,source,auxLog,complete,recordType,time,"
        "preInitSeconds,generatorId,sensorType,sensorTypeName,sensorNumber,sensorName,eventType,"
        "direction,offset,eventData,reading,readingUnits,threshold,thresholdUnits,manufacturerId,"
        "manufacturer,oemData\r\n";
    EXPECT_EQ(second.out, header);
    deviant.change([](sim::SimulatedBmc& memory) {
        memory.storeSelRecord(sim::selRecord(0x0004, {0x02, 0xB4, 0x00, 0x00, 0x55, 0x20, 0x00,
                                                      0x04, 0x08, 0x60, 0x6F, 0x01, 0xFF, 0xFF}));
    });
    const ToolRun third = tool(deviant, state);
    EXPECT_EQ(third.status, 0);
    EXPECT_EQ(third.err, "");
    // Stamped 550000B4h, 2015-03-11 08:45:40 UTC; the BMC (0020h); power supply (08h) sensor 60h,
    // "PS1 Status" in the SDR; sensor-specific (6Fh), asserted; offset 1, failure detected.
    EXPECT_EQ(third.out, header +
                             "HOST,0x0004,2015-03-11 08:45:40 UTC,critical,Power Supply Failure "
                             "detected | Asserted,Power Supply PS1 Status,No Extended Data,true,2,"
                             "2015-03-11T08:45:40Z,,32,8,Power Supply,96,PS1 Status,111,assertion,"
                             "1,1 255 255,,,,,,,\r\n");
    // Each run walked on from the last record it had read: 1 to 3, 3, then 3 and 4.
    const std::vector<Bytes> walks = deviant.requests(kGetSelEntry);
    std::vector<unsigned> ids;
    for (const Bytes& data : walks) ids.push_back(data[2] | data[3] << 8);
    EXPECT_EQ(ids, (std::vector<unsigned>{0x0000, 0x0002, 0x0003, 0x0003, 0x0003, 0x0004}));
    Tolmar::IpmiEventFollower follower(connection());
    std::vector<IPMIEVENT> events;
    const Tolmar::PollResult poll = follower.Poll(events);
    EXPECT_TRUE(poll.complete);
    EXPECT_FALSE(poll.sel.known);
    EXPECT_EQ(events.size(), 4u);
}

}  // namespace
