// The failures the list reads, the reservations and the partial SDR read report by throwing
// IpmiException(completion code, 5) and catching it again in the same operation, counted on the
// stand-in platform: one exception a failure, none let out; the single-command SEL operations
// construct none.
#include <gtest/gtest.h>

#include <vector>

#include "BmcTest.h"
#include "IpmiEventLog.h"
#include "IpmiEventOperations.h"
#include "IpmiSDROperations.h"
#include "SmallBmc.h"
#include "StandinPlatform.h"

namespace {

using sim::Fault;
using standin::ConstructedException;
using standin::constructedExceptions;
using Exceptions = std::vector<ConstructedException>;

constexpr IPMIEXCEPTIONTYPE kCommandFailed = IPMI_EXCEPTION_COMMAND_FAILED;

class DescribedExceptionsTest : public sim::OperationsTest {
protected:
    void SetUp() override {
        OperationsTest::SetUp();
        standin::forgetExceptions();
    }

    std::vector<RawSelEntry> readSel() {
        std::vector<RawSelEntry> entries;
        EXPECT_NO_THROW(operations->getRawSelEntries(entries));
        return entries;
    }
};

TEST_F(DescribedExceptionsTest, AnEmptySelIsOneExceptionWithCompletionCodeCBhAndNoRecords) {
    EXPECT_TRUE(readSel().empty());
    EXPECT_EQ(constructedExceptions(), (Exceptions{{0xCB, kCommandFailed}}));
    EXPECT_EQ(logText().rfind("[1] ipmi_event_log/IpmiEventOperations:", 0), 0u);
    EXPECT_NE(logText().find(" getRawSelEntries completionCode: \\xCB\n"), std::string::npos);
}

TEST_F(DescribedExceptionsTest, ASelReadRefusedPartWayIsOneExceptionAndAShorterList) {
    sim::stockSmallBmc(bmc);
    bench.injectFault(2, Fault::completion(0xC0));
    EXPECT_EQ(readSel().size(), 1u);
    EXPECT_EQ(constructedExceptions(), (Exceptions{{0xC0, kCommandFailed}}));
}

TEST_F(DescribedExceptionsTest, ALostOrShortAnswerIsOneExceptionWithCodeZero) {
    sim::stockSmallBmc(bmc);
    bench.injectFault(1, Fault::transportFailure());
    EXPECT_TRUE(readSel().empty());
    bench.injectFault(2, Fault::truncate(10));
    EXPECT_TRUE(readSel().empty());
    EXPECT_EQ(constructedExceptions(), (Exceptions{{0, kCommandFailed}, {0, kCommandFailed}}));
}

TEST_F(DescribedExceptionsTest, AClientsExceptionEndsTheReadWithoutOneOfItsOwn) {
    sim::stockSmallBmc(bmc);
    bench.injectFault(3, Fault::ipmiException(9, IPMI_EXCEPTION_TIMEOUT));
    EXPECT_EQ(readSel().size(), 2u);
    EXPECT_EQ(constructedExceptions(), (Exceptions{{9, IPMI_EXCEPTION_TIMEOUT}}));
}

TEST_F(DescribedExceptionsTest, FailedReservationsAreOneExceptionEachAndFalse) {
    unsigned char low = 0;
    unsigned char high = 0;
    bench.injectFault(1, Fault::completion(0xC1));
    EXPECT_FALSE(operations->reservationSEL(low, high));
    bench.injectFault(2, Fault::transportFailure());
    EXPECT_FALSE(operations->reservationSEL(low, high));
    bench.injectFault(3, Fault::completion(0x00, {0x01}));  // one byte short of an ID
    EXPECT_FALSE(operations->reservationSEL(low, high));
    EXPECT_EQ(constructedExceptions(),
              (Exceptions{{0xC1, kCommandFailed}, {0, kCommandFailed}, {0, kCommandFailed}}));
}

TEST_F(DescribedExceptionsTest, AFailedSdrReservationIsOneExceptionAndNoGetSdr) {
    sim::stockSmallBmc(bmc);
    bench.injectFault(1, Fault::completion(0xC5));
    std::vector<RawSDR> sdrs;
    IpmiClient client(0ul);
    ASSERT_EQ(client.connect(), 0);
    Tolmar::IpmiSDROperations(client).getTypeOneAndTwoPartialRawSDRs(sdrs);
    EXPECT_TRUE(sdrs.empty());
    EXPECT_EQ(bench.requests().size(), 1u);
    EXPECT_EQ(constructedExceptions(), (Exceptions{{0xC5, kCommandFailed}}));
}

TEST_F(DescribedExceptionsTest, APartialSdrReadRefusedInItsSecondPartIsOneExceptionAndFalse) {
    sim::stockSmallBmc(bmc);
    bench.injectFault(2, Fault::completion(0xC5));
    IpmiClient client(0ul);
    ASSERT_EQ(client.connect(), 0);
    RawSDR sdr{};
    unsigned char nextLow = 0;
    unsigned char nextHigh = 0;
    bool read = true;
    EXPECT_NO_THROW(read = Tolmar::IpmiSDROperations(client).getOneSDRPartial(
                        0x00, 0x00, sdr, 0x01, 0x00, nextLow, nextHigh));
    EXPECT_FALSE(read);
    EXPECT_EQ(nextLow, 0x02);  // set from the first part, which came
    EXPECT_EQ(constructedExceptions(), (Exceptions{{0xC5, kCommandFailed}}));
}

TEST_F(DescribedExceptionsTest, AFailedFilterReadIsOneExceptionLoggedWithItsCode) {
    bench.injectFault(1, Fault::completion(0xC1));
    std::vector<RawPETEntry> filters;
    EXPECT_NO_THROW(operations->getRawPETEntries(filters));
    std::vector<RawAlertPolicyTableEntry> policies;
    bench.injectFault(2, Fault::completion(0xC9));
    EXPECT_NO_THROW(operations->getAlertPolicyTableEntries(policies));
    EXPECT_EQ(constructedExceptions(),
              (Exceptions{{0xC1, kCommandFailed}, {0xC9, kCommandFailed}}));
    EXPECT_NE(logText().find("getRawPETEntries completionCode: \\xC1\n"), std::string::npos);
    EXPECT_NE(logText().find("getAlertPolicyTableEntries completionCode: \\xC9\n"),
              std::string::npos);
}

TEST_F(DescribedExceptionsTest, SingleCommandSelOperationsMapCodesWithoutExceptions) {
    sim::stockSmallBmc(bmc);
    RawSelEntry entry{};
    bench.injectFault(1, Fault::completion(0xCB));
    EXPECT_EQ(operations->getSelEntry(0x0009, entry), 6);
    bench.injectFault(3, Fault::completion(0x81));  // Reserve SEL, then Delete SEL Entry
    EXPECT_EQ(operations->deleteSEL(0x0001), 2);
    bench.injectFault(5, Fault::completion(0x80));  // Reserve SEL, then Clear SEL
    EXPECT_EQ(operations->deleteAllSEL(), 1);
    EXPECT_TRUE(constructedExceptions().empty());
}

TEST_F(DescribedExceptionsTest, TheWholeLogOfAnEmptySelThrowsAndCatchesItsReadsFailures) {
    std::vector<Tolmar::TolmarAgentless::IPMIEVENT> events;
    EXPECT_EQ(Tolmar::IpmiEventLog(sim::lanConnection()).GetAllIpmiEventLog(events), 0);
    EXPECT_TRUE(events.empty());
    // The empty SEL (CBh), then the empty SDR repository's first Get SDR (CBh); the PEF tables
    // hold no filters, which is no failure.
    EXPECT_EQ(constructedExceptions(),
              (Exceptions{{0xCB, kCommandFailed}, {0xCB, kCommandFailed}}));
}

}  // namespace
