// Reading the PEF event filter and alert policy tables with Get PEF Configuration Parameters.
#include <gtest/gtest.h>

#include <memory>
#include <stdexcept>

#include "BmcTest.h"
#include "IpmiEventOperations.h"
#include "RecordBytes.h"

namespace {

using sim::bytesOf;
using sim::Fault;
using sim::RecordedRequest;
using sim::SimulatedBmc;
using Tolmar::IpmiEventOperations;

// An event filter: enabled (bit 7) with the alert action (bit 0) unless told otherwise; the
// policy number tells filters apart.
SimulatedBmc::EventFilter filter(unsigned char configuration, unsigned char action,
                                 unsigned char policy) {
    SimulatedBmc::EventFilter f{};
    f[0] = configuration;
    f[1] = action;
    f[2] = policy;
    f[3] = 0x10;          // severity: critical
    f[4] = f[5] = 0xFF;   // any generator
    f[6] = f[7] = 0xFF;   // any sensor type and number
    f[8] = 0xFF;          // any event trigger
    f[9] = f[10] = 0xFF;  // every offset
    return f;
}

std::string failureLine(const char* operation, unsigned char completionCode) {
    return std::string(operation) + " completionCode: " + loggedByte(completionCode) + "\n";
}

class PefTableTest : public sim::OperationsTest {
protected:
    static RecordedRequest getPef(unsigned char parameter, unsigned char set) {
        return request(0x04, 0x13, {parameter, set, 0x00});
    }
};

TEST_F(PefTableTest, NoFiltersIsOneRequestAndAnEmptyList) {
    std::vector<RawPETEntry> entries;
    operations->getRawPETEntries(entries);
    EXPECT_TRUE(entries.empty());
    EXPECT_EQ(bench.requests(), std::vector<RecordedRequest>{getPef(0x05, 0x00)});
}

TEST_F(PefTableTest, ReadsEveryFilterAndKeepsTheEnabledAlertingOnesInOrder) {
    bmc.addEventFilter(filter(0x80, 0x01, 0x11));  // kept
    bmc.addEventFilter(filter(0x80, 0x02, 0x12));  // power off only: dropped
    bmc.addEventFilter(filter(0x00, 0x01, 0x13));  // disabled: dropped
    bmc.addEventFilter(filter(0xC0, 0x03, 0x14));  // kept (alert and power off)
    std::vector<RawPETEntry> entries;
    operations->getRawPETEntries(entries);
    EXPECT_EQ(bench.requests(), (std::vector<RecordedRequest>{
                                    getPef(0x05, 0x00), getPef(0x06, 0x01), getPef(0x06, 0x02),
                                    getPef(0x06, 0x03), getPef(0x06, 0x04)}));
    ASSERT_EQ(entries.size(), 2u);
    const auto first = filter(0x80, 0x01, 0x11);
    EXPECT_EQ(bytesOf(entries[0]), std::vector<unsigned char>(first.begin(), first.end()));
    EXPECT_EQ(entries[1].alertPolicyNumber, 0x14);
    EXPECT_EQ(logText(), "");
}

TEST_F(PefTableTest, CountIsTheLowSevenBitsOfTheCountByte) {
    for (int i = 0; i < 5; ++i) bmc.addEventFilter(filter(0x80, 0x01, 0x10));
    bench.injectFault(1, Fault::completion(0x00, {0x11, 0x85}));
    std::vector<RawPETEntry> entries;
    operations->getRawPETEntries(entries);
    EXPECT_EQ(entries.size(), 5u);
    EXPECT_EQ(bench.requests().size(), 6u);
}

TEST_F(PefTableTest, AppendsAfterWhatTheVectorHeld) {
    bmc.addEventFilter(filter(0x80, 0x01, 0x11));
    std::vector<RawPETEntry> entries(2, sim::filledWith<RawPETEntry>(0x77));
    operations->getRawPETEntries(entries);
    ASSERT_EQ(entries.size(), 3u);
    EXPECT_EQ(entries[2].alertPolicyNumber, 0x11);
}

TEST_F(PefTableTest, FailedCountIsLoggedWithTheRawCodeAndReadsNothing) {
    bmc.addEventFilter(filter(0x80, 0x01, 0x11));
    bench.injectFault(1, Fault::completion(0x80));
    std::vector<RawPETEntry> entries;
    EXPECT_NO_THROW(operations->getRawPETEntries(entries));
    EXPECT_TRUE(entries.empty());
    EXPECT_EQ(bench.requests().size(), 1u);
    EXPECT_NE(logText().find(failureLine("getRawPETEntries", 0x80)), std::string::npos);
}

TEST_F(PefTableTest, FailureMidTableKeepsTheFiltersReadBefore) {
    for (unsigned char p = 1; p <= 4; ++p) bmc.addEventFilter(filter(0x80, 0x01, p));
    const Fault faults[] = {Fault::completion(0xC9), Fault::transportFailure(),
                            Fault::truncate(21)};
    const unsigned char logged[] = {0xC9, 0x00, 0x00};
    for (int i = 0; i < 3; ++i) {
        bench.injectFault(bench.requests().size() + 4, faults[i]);  // the third filter
        std::vector<RawPETEntry> entries;
        operations->getRawPETEntries(entries);
        EXPECT_EQ(entries.size(), 2u) << i;
        EXPECT_NE(logText().find(failureLine("getRawPETEntries", logged[i])), std::string::npos);
    }
}

TEST_F(PefTableTest, ShortCountResponseIsAFailure) {
    bench.injectFault(1, Fault::completion(0x00, {0x11}));
    std::vector<RawPETEntry> entries;
    operations->getRawPETEntries(entries);
    EXPECT_TRUE(entries.empty());
    EXPECT_NE(logText().find(failureLine("getRawPETEntries", 0x00)), std::string::npos);
}

TEST_F(PefTableTest, ClientExceptionEndsTheReadWithoutLogging) {
    for (unsigned char p = 1; p <= 3; ++p) bmc.addEventFilter(filter(0x80, 0x01, p));
    bench.injectFault(3, Fault::ipmiException(0, IPMI_EXCEPTION_TIMEOUT));
    std::vector<RawPETEntry> entries;
    EXPECT_NO_THROW(operations->getRawPETEntries(entries));
    EXPECT_EQ(entries.size(), 1u);
    EXPECT_EQ(logText(), "");
}

TEST_F(PefTableTest, OtherExceptionsReachTheCaller) {
    bmc.addEventFilter(filter(0x80, 0x01, 0x11));
    bench.injectFault(2, Fault::otherException());
    std::vector<RawPETEntry> entries;
    EXPECT_THROW(operations->getRawPETEntries(entries), std::runtime_error);
}

TEST_F(PefTableTest, AlertPolicyTableKeepsEveryEntry) {
    bmc.addAlertPolicy({0x18, 0x11, 0x00});
    bmc.addAlertPolicy({0x20, 0x12, 0x01});  // disabled: kept all the same
    std::vector<RawAlertPolicyTableEntry> entries;
    operations->getAlertPolicyTableEntries(entries);
    EXPECT_EQ(bench.requests(), (std::vector<RecordedRequest>{
                                    getPef(0x08, 0x00), getPef(0x09, 0x01), getPef(0x09, 0x02)}));
    ASSERT_EQ(entries.size(), 2u);
    EXPECT_EQ(entries[0].policy, 0x18);
    EXPECT_EQ(entries[1].channelDestination, 0x12);
    EXPECT_EQ(entries[1].alertStringKey, 0x01);
}

TEST_F(PefTableTest, AlertPolicyFailureIsLoggedUnderItsOwnName) {
    bmc.addAlertPolicy({0x18, 0x11, 0x00});
    bmc.addAlertPolicy({0x28, 0x11, 0x00});
    bench.injectFault(3, Fault::completion(0xC9));
    std::vector<RawAlertPolicyTableEntry> entries;
    operations->getAlertPolicyTableEntries(entries);
    EXPECT_EQ(entries.size(), 1u);
    EXPECT_NE(logText().find(failureLine("getAlertPolicyTableEntries", 0xC9)), std::string::npos);
}

TEST_F(PefTableTest, FailuresAreSilentAtLogLevelZero) {
    Log::SetMinLogLevel(0);
    bench.injectFault(1, Fault::completion(0xC1));
    std::vector<RawPETEntry> entries;
    operations->getRawPETEntries(entries);
    EXPECT_EQ(logText(), "");
}

}  // namespace
