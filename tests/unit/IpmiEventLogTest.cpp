#include "IpmiEventLog.h"

#include <gtest/gtest.h>

#include <cstring>
#include <functional>
#include <stdexcept>

#include "BmcTest.h"
#include "RecordBytes.h"

namespace {

using sim::ClientCall;
using sim::ClientEvent;
using sim::Fault;
using sim::filledWith;
using sim::lanConnection;
using sim::RecordedRequest;
using sim::selRecord;
using Tolmar::IpmiEventLog;
using Tolmar::IPMISELENTRY;
using Tolmar::TolmarConnection::ConnectionInfo;

bool sameBytes(const IPMISELENTRY& a, const IPMISELENTRY& b) {
    return std::memcmp(&a, &b, sizeof a) == 0;
}

std::vector<ClientEvent> session(std::initializer_list<ClientCall> calls) {
    std::vector<ClientEvent> events;
    for (ClientCall call : calls) events.push_back({call, 1});
    return events;
}

const auto kConnectedSession = session(
    {ClientCall::Construct, ClientCall::Connect, ClientCall::Disconnect, ClientCall::Delete});
const auto kRefusedSession =
    session({ClientCall::Construct, ClientCall::Connect, ClientCall::Delete});

class IpmiEventLogTest : public sim::BmcTest {
protected:
    void storeRecords(unsigned count) {
        for (unsigned id = 1; id <= count; ++id) {
            bmc.storeSelRecord(
                selRecord(id, {0x02, 0x00, 0x00, 0x00, 0x55, 0x20, 0x00, 0x04, 0x01,
                               static_cast<unsigned char>(0x30 + id), 0x01, 0x59, 0x5A, 0x50}));
        }
    }
};

// --- connection parameters and client creation ---

TEST_F(IpmiEventLogTest, ConstructionSendsNothingAndCreatesNoClient) {
    IpmiEventLog log(lanConnection());
    EXPECT_TRUE(bench.constructions().empty());
    EXPECT_TRUE(bench.requests().empty());
}

TEST_F(IpmiEventLogTest, LanConnectionBuildsTheLanClientWithPortText) {
    IpmiEventLog log(lanConnection());
    log.DeleteAllEventLog();
    ASSERT_EQ(bench.constructions().size(), 1u);
    const sim::ClientConstruction& made = bench.constructions()[0];
    EXPECT_TRUE(made.lan);
    EXPECT_EQ(made.address, "bmc1.example.test");
    EXPECT_EQ(made.user, "admin");
    EXPECT_EQ(made.password, "s3cret");
    EXPECT_EQ(made.port, "623");
    EXPECT_EQ(made.cipherSuite, 17ul);
}

TEST_F(IpmiEventLogTest, LocalConnectionBuildsTheLocalClientFromZeroWhateverElseIsSet) {
    ConnectionInfo info = lanConnection();
    info.connectionType = 0;
    IpmiEventLog log(info);
    log.DeleteAllEventLog();
    ASSERT_EQ(bench.constructions().size(), 1u);
    EXPECT_FALSE(bench.constructions()[0].lan);
    EXPECT_EQ(bench.constructions()[0].localInterface, 0ul);
}

TEST_F(IpmiEventLogTest, UnknownConnectionTypeAtConstructionMeansLocal) {
    ConnectionInfo info = lanConnection();
    info.connectionType = 7;
    IpmiEventLog log(info);
    log.DeleteAllEventLog();
    EXPECT_FALSE(bench.constructions()[0].lan);
}

TEST_F(IpmiEventLogTest, ResetConnWithUnknownTypeKeepsInterfaceAndPortButTakesTheRest) {
    IpmiEventLog log(lanConnection());
    ConnectionInfo next;
    next.ip = "bmc2.example.test";
    next.port = 9999;
    next.user = "operator";
    next.password = "other";
    next.cipherSuite = 3;
    next.connectionType = 7;
    log.ResetConn(next);
    ASSERT_EQ(bench.constructions().size(), 1u);
    const sim::ClientConstruction& made = bench.constructions()[0];
    EXPECT_TRUE(made.lan);
    EXPECT_EQ(made.address, "bmc2.example.test");
    EXPECT_EQ(made.user, "operator");
    EXPECT_EQ(made.password, "other");
    EXPECT_EQ(made.port, "623");
    EXPECT_EQ(made.cipherSuite, 3ul);
}

TEST_F(IpmiEventLogTest, ResetConnWithUnknownTypeKeepsTheLocalInterface) {
    IpmiEventLog log(ConnectionInfo{});
    ConnectionInfo next = lanConnection();
    next.connectionType = -1;
    log.ResetConn(next);
    EXPECT_FALSE(bench.constructions()[0].lan);
}

TEST_F(IpmiEventLogTest, ResetConnSwitchesBetweenLanAndLocal) {
    IpmiEventLog log(ConnectionInfo{});
    log.ResetConn(lanConnection());
    ConnectionInfo local;
    local.connectionType = 0;
    log.ResetConn(local);
    ASSERT_EQ(bench.constructions().size(), 2u);
    EXPECT_TRUE(bench.constructions()[0].lan);
    EXPECT_FALSE(bench.constructions()[1].lan);
}

// --- the connection probe ---

TEST_F(IpmiEventLogTest, ConnectStatusIsTheClientsStatusUnchanged) {
    IpmiEventLog log(lanConnection());
    for (int status : {0, 2, 1, 5, -3}) {
        bench.setConnectStatus(status);
        EXPECT_EQ(log.GetConnectStatus(), status);
        EXPECT_EQ(log.ResetConn(lanConnection()), status);
    }
}

TEST_F(IpmiEventLogTest, ConnectStatusKeepsItsClientConnectedAndUndeleted) {
    IpmiEventLog log(lanConnection());
    EXPECT_EQ(log.GetConnectStatus(), 0);
    EXPECT_EQ(bench.events(), session({ClientCall::Construct, ClientCall::Connect}));
    EXPECT_EQ(bench.liveClients(), 1u);
    EXPECT_TRUE(bench.requests().empty());
}

TEST_F(IpmiEventLogTest, ConnectStatusLetsAnIpmiExceptionThrough) {
    IpmiEventLog log(lanConnection());
    bench.throwOnConnect(IpmiException(0, IPMI_EXCEPTION_CONNECTION));
    EXPECT_THROW(log.GetConnectStatus(), IpmiException);
    EXPECT_THROW(log.ResetConn(lanConnection()), IpmiException);
}

// --- every request operation: connection handling and exceptions ---

struct Operation {
    const char* name;
    std::function<int(IpmiEventLog&)> call;
    int resultForIpmiExceptionWhileConnecting;
    int resultForIpmiExceptionWhenConnected;
};

const Operation kOperations[] = {
    {"GetAllIpmiSelEntry",
     [](IpmiEventLog& log) {
         std::vector<IPMISELENTRY> entries;
         return log.GetAllIpmiSelEntry(entries);
     },
     6, 0},
    {"GetIpmiSelEntryByRecordId",
     [](IpmiEventLog& log) {
         IPMISELENTRY entry;
         return log.GetIpmiSelEntryByRecordId(1, entry);
     },
     1, 1},
    {"DeleteEventLog", [](IpmiEventLog& log) { return log.DeleteEventLog(1); }, 6, 6},
    {"DeleteAllEventLog", [](IpmiEventLog& log) { return log.DeleteAllEventLog(); }, 6, 6},
    {"AddSelEntry", [](IpmiEventLog& log) { return log.AddSelEntry(IPMISELENTRY{}); }, 6, 6},
};

void PrintTo(const Operation& operation, std::ostream* out) { *out << operation.name; }

class EveryOperationTest : public IpmiEventLogTest,
                           public ::testing::WithParamInterface<Operation> {
protected:
    int run() {
        IpmiEventLog log(lanConnection());
        return GetParam().call(log);
    }
};

TEST_P(EveryOperationTest, SucceedsInOneSessionThatIsClosedAndDeleted) {
    storeRecords(2);
    EXPECT_EQ(run(), 0);
    EXPECT_EQ(bench.events(), kConnectedSession);
    EXPECT_EQ(bench.liveClients(), 0u);
}

TEST_P(EveryOperationTest, RefusedCredentialsGiveAuthenticationFailureWithoutDisconnect) {
    bench.setConnectStatus(2);
    EXPECT_EQ(run(), 4);
    EXPECT_EQ(bench.events(), kRefusedSession);
    EXPECT_TRUE(bench.requests().empty());
}

TEST_P(EveryOperationTest, AnyOtherConnectFailureGivesConnectionFailure) {
    for (int status : {1, 3, -1, 255}) {
        bench.reset(bmc);
        bench.setConnectStatus(status);
        EXPECT_EQ(run(), 3) << "connect status " << status;
        EXPECT_EQ(bench.events(), kRefusedSession);
        EXPECT_TRUE(bench.requests().empty());
    }
}

TEST_P(EveryOperationTest, IpmiExceptionWhileConnectingGivesTheOperationsFixedResult) {
    bench.throwOnConnect(IpmiException(0, IPMI_EXCEPTION_TIMEOUT));
    EXPECT_EQ(run(), GetParam().resultForIpmiExceptionWhileConnecting);
    EXPECT_EQ(bench.events(), kConnectedSession);
    EXPECT_TRUE(bench.requests().empty());
}

TEST_P(EveryOperationTest, IpmiExceptionFromDisconnectGivesTheFixedResultAndDisconnectsAgain) {
    storeRecords(2);
    bench.throwOnNextDisconnect(IpmiException(0, IPMI_EXCEPTION_TRANSPORT));
    EXPECT_EQ(run(), GetParam().resultForIpmiExceptionWhenConnected);
    EXPECT_EQ(bench.events(),
              session({ClientCall::Construct, ClientCall::Connect, ClientCall::Disconnect,
                       ClientCall::Disconnect, ClientCall::Delete}));
}

TEST_P(EveryOperationTest, OtherExceptionsReachTheCallerAndLeaveTheClientUndeleted) {
    storeRecords(2);
    bench.injectFault(1, Fault::otherException());
    EXPECT_THROW(run(), std::runtime_error);
    EXPECT_EQ(bench.events(), session({ClientCall::Construct, ClientCall::Connect}));
    EXPECT_EQ(bench.liveClients(), 1u);
}

INSTANTIATE_TEST_SUITE_P(Facade, EveryOperationTest, ::testing::ValuesIn(kOperations),
                         [](const auto& info) { return std::string(info.param.name); });

// --- GetIpmiSelEntryByRecordId ---

TEST_F(IpmiEventLogTest, GetEntryCopiesTheRecordOnSuccess) {
    storeRecords(3);
    IpmiEventLog log(lanConnection());
    IPMISELENTRY entry = filledWith<IPMISELENTRY>(0xEE);
    EXPECT_EQ(log.GetIpmiSelEntryByRecordId(2, entry), 0);
    EXPECT_EQ(std::memcmp(&entry, bmc.selRecords()[1].data(), sizeof entry), 0);
    EXPECT_EQ(
        bench.requests(),
        (std::vector<RecordedRequest>{request(0x0A, 0x43, {0x00, 0x00, 0x02, 0x00, 0x00, 0xFF})}));
}

TEST_F(IpmiEventLogTest, GetEntryLeavesTheCallersRecordAloneUnlessItSucceeds) {
    storeRecords(1);
    IpmiEventLog log(lanConnection());
    IPMISELENTRY entry = filledWith<IPMISELENTRY>(0xEE);
    EXPECT_EQ(log.GetIpmiSelEntryByRecordId(9, entry), 6);  // not present: 0xCB
    bench.injectFault(2, Fault::completion(0x81, std::vector<unsigned char>(18, 0x11)));
    EXPECT_EQ(log.GetIpmiSelEntryByRecordId(1, entry), 2);
    EXPECT_TRUE(sameBytes(entry, filledWith<IPMISELENTRY>(0xEE)));
}

TEST_F(IpmiEventLogTest, GetEntryAfterAnIpmiExceptionIsNotSupportedAndLeavesTheRecord) {
    storeRecords(1);
    IpmiEventLog log(lanConnection());
    IPMISELENTRY entry = filledWith<IPMISELENTRY>(0xEE);
    bench.injectFault(1, Fault::ipmiException(0, IPMI_EXCEPTION_TIMEOUT));
    EXPECT_EQ(log.GetIpmiSelEntryByRecordId(1, entry), 1);
    EXPECT_TRUE(sameBytes(entry, filledWith<IPMISELENTRY>(0xEE)));
    EXPECT_EQ(bench.events(), kConnectedSession);
}

// --- GetAllIpmiSelEntry ---

TEST_F(IpmiEventLogTest, GetAllAppendsEveryRecordAfterTheCallersEntries) {
    storeRecords(5);
    IpmiEventLog log(lanConnection());
    std::vector<IPMISELENTRY> entries(3, filledWith<IPMISELENTRY>(0x77));
    EXPECT_EQ(log.GetAllIpmiSelEntry(entries), 0);
    ASSERT_EQ(entries.size(), 8u);
    EXPECT_TRUE(sameBytes(entries[2], filledWith<IPMISELENTRY>(0x77)));
    for (std::size_t i = 0; i < 5; ++i) {
        EXPECT_EQ(std::memcmp(&entries[3 + i], bmc.selRecords()[i].data(), 16), 0) << i;
    }
    EXPECT_EQ(bench.requests().size(), 5u);
}

TEST_F(IpmiEventLogTest, GetAllOfAnEmptySelSucceedsWithNothingAppended) {
    IpmiEventLog log(lanConnection());
    std::vector<IPMISELENTRY> entries;
    EXPECT_EQ(log.GetAllIpmiSelEntry(entries), 0);
    EXPECT_TRUE(entries.empty());
    EXPECT_EQ(bench.events(), kConnectedSession);
}

TEST_F(IpmiEventLogTest, GetAllKeepsWhatWasReadBeforeAFailure) {
    storeRecords(5);
    IpmiEventLog log(lanConnection());
    std::vector<IPMISELENTRY> entries;
    bench.injectFault(4, Fault::ipmiException(0, IPMI_EXCEPTION_TIMEOUT));
    EXPECT_EQ(log.GetAllIpmiSelEntry(entries), 0);
    EXPECT_EQ(entries.size(), 3u);
}

TEST_F(IpmiEventLogTest, GetAllKeepsTheEntriesWhenDisconnectThrows) {
    storeRecords(2);
    IpmiEventLog log(lanConnection());
    std::vector<IPMISELENTRY> entries;
    bench.throwOnNextDisconnect(IpmiException(0, IPMI_EXCEPTION_TRANSPORT));
    EXPECT_EQ(log.GetAllIpmiSelEntry(entries), 0);
    EXPECT_EQ(entries.size(), 2u);
}

// --- DeleteEventLog, DeleteAllEventLog, AddSelEntry ---

TEST_F(IpmiEventLogTest, DeleteSendsReserveThenDeleteAndPassesTheResultOn) {
    storeRecords(3);
    IpmiEventLog log(lanConnection());
    EXPECT_EQ(log.DeleteEventLog(0x0002), 0);
    EXPECT_EQ(bench.requests(),
              (std::vector<RecordedRequest>{request(0x0A, 0x42, {}),
                                            request(0x0A, 0x46, {0x01, 0x00, 0x02, 0x00})}));
    EXPECT_EQ(bmc.selRecords().size(), 2u);
    EXPECT_EQ(log.DeleteEventLog(0x0002), 6);  // gone: the BMC answers 0xCB
}

TEST_F(IpmiEventLogTest, DeleteIsBusyWhenTheSelCannotBeReserved) {
    storeRecords(1);
    IpmiEventLog log(lanConnection());
    bench.injectFault(1, Fault::completion(0xC0));
    EXPECT_EQ(log.DeleteEventLog(1), 2);
    EXPECT_EQ(bench.requests().size(), 1u);
    EXPECT_EQ(bench.events(), kConnectedSession);
}

TEST_F(IpmiEventLogTest, DeleteAfterTheClientThrowsIsInternalFailure) {
    storeRecords(1);
    IpmiEventLog log(lanConnection());
    bench.injectFault(2, Fault::ipmiException(0, IPMI_EXCEPTION_TIMEOUT));
    EXPECT_EQ(log.DeleteEventLog(1), 6);
    EXPECT_EQ(bench.events(), kConnectedSession);
}

TEST_F(IpmiEventLogTest, ClearPassesEraseInProgressOnAsBusy) {
    IpmiEventLog log(lanConnection());
    bench.injectFault(2, Fault::completion(0x81));
    EXPECT_EQ(log.DeleteAllEventLog(), 2);
    EXPECT_EQ(bench.requests().size(), 2u);
}

TEST_F(IpmiEventLogTest, ClearAfterTheClientThrowsIsInternalFailure) {
    IpmiEventLog log(lanConnection());
    bench.injectFault(2, Fault::ipmiException(0, IPMI_EXCEPTION_TIMEOUT));
    EXPECT_EQ(log.DeleteAllEventLog(), 6);
}

TEST_F(IpmiEventLogTest, AddSendsTheCallersBytesAndPassesTheResultOn) {
    IpmiEventLog log(lanConnection());
    const IPMISELENTRY entry = filledWith<IPMISELENTRY>(0x5A);
    EXPECT_EQ(log.AddSelEntry(entry), 0);
    EXPECT_EQ(bench.requests(),
              (std::vector<RecordedRequest>{{0x0A, 0x44, std::vector<unsigned char>(16, 0x5A)}}));
    bench.injectFault(2, Fault::completion(0x80));
    EXPECT_EQ(log.AddSelEntry(entry), 1);
    bench.injectFault(3, Fault::ipmiException(0, IPMI_EXCEPTION_TIMEOUT));
    EXPECT_EQ(log.AddSelEntry(entry), 6);
}

TEST_F(IpmiEventLogTest, EachRequestUsesAClientOfItsOwn) {
    storeRecords(2);
    IpmiEventLog log(lanConnection());
    std::vector<IPMISELENTRY> entries;
    log.GetAllIpmiSelEntry(entries);
    log.DeleteEventLog(1);
    EXPECT_EQ(bench.constructions().size(), 2u);
    EXPECT_EQ(bench.liveClients(), 0u);
}

}  // namespace
