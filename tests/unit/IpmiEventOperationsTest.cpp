#include "IpmiEventOperations.h"

#include <gtest/gtest.h>

#include <cstring>
#include <memory>
#include <stdexcept>

#include "BmcTest.h"
#include "RecordBytes.h"

namespace {

using sim::bytesOf;
using sim::Fault;
using sim::filledWith;
using sim::RecordedRequest;
using sim::selRecord;
using Tolmar::IpmiEventOperations;

// The record bytes after the record ID of a temperature threshold event (upper critical going
// high) from the BMC.
const std::initializer_list<unsigned char> kTemperatureEvent = {
    0x02,                    // record type: system event
    0x00, 0x00, 0x00, 0x55,  // time stamp
    0x20, 0x00,              // generator ID: BMC
    0x04,                    // format revision
    0x01, 0x30,              // sensor type temperature, sensor number 0x30
    0x01,                    // assertion, threshold
    0x59, 0x5A, 0x50,        // offset 9, reading 0x5A, threshold 0x50
};

// The log line for a failed SEL walk: the completion code follows as one raw byte, which the log
// shows escaped.
std::string selWalkFailure(unsigned char completionCode) {
    return "getRawSelEntries completionCode: " + loggedByte(completionCode) + "\n";
}

class IpmiEventOperationsTest : public sim::OperationsTest {
protected:
    void storeThreeRecords() {
        bmc.storeSelRecord(selRecord(0x0010, kTemperatureEvent));
        bmc.storeSelRecord(selRecord(0x0020, kTemperatureEvent));
        bmc.storeSelRecord(selRecord(0x0030, kTemperatureEvent));
    }

    static RecordedRequest getSelEntry(unsigned char low, unsigned char high) {
        return request(0x0A, 0x43, {0x00, 0x00, low, high, 0x00, 0xFF});
    }
};

TEST(WriteDWORD, WritesSixteenBitsLeastSignificantFirstAndNothingElse) {
    unsigned char bytes[4] = {0xEE, 0xEE, 0xEE, 0xEE};
    IpmiEventOperations::WriteDWORD(bytes, 0x1234);
    EXPECT_EQ(bytes[0], 0x34);
    EXPECT_EQ(bytes[1], 0x12);
    EXPECT_EQ(bytes[2], 0xEE);
    EXPECT_EQ(bytes[3], 0xEE);
}

TEST(WriteDWORD, DropsBitsAboveSixteen) {
    unsigned char bytes[2] = {};
    IpmiEventOperations::WriteDWORD(bytes, 0x12345678);
    EXPECT_EQ(bytes[0], 0x78);
    EXPECT_EQ(bytes[1], 0x56);
}

// --- getSelEntry ---

TEST_F(IpmiEventOperationsTest, GetSelEntrySendsOneWholeRecordReadWithoutReservation) {
    bmc.storeSelRecord(selRecord(0x1234, kTemperatureEvent));
    RawSelEntry entry{};
    EXPECT_EQ(operations->getSelEntry(0x1234, entry), 0);
    EXPECT_EQ(bench.requests(), (std::vector<RecordedRequest>{getSelEntry(0x34, 0x12)}));
    const auto& stored = bmc.selRecords()[0];
    EXPECT_EQ(bytesOf(entry), std::vector<unsigned char>(stored.begin(), stored.end()));
}

TEST_F(IpmiEventOperationsTest, GetSelEntryLaysOnlySixteenBitsOfTheRecordId) {
    RawSelEntry entry{};
    operations->getSelEntry(0x51234, entry);
    EXPECT_EQ(bench.requests()[0], getSelEntry(0x34, 0x12));
}

TEST_F(IpmiEventOperationsTest, GetSelEntryOfMissingRecordIsInternalFailure) {
    bmc.storeSelRecord(selRecord(0x0001, kTemperatureEvent));
    RawSelEntry entry = filledWith<RawSelEntry>(0xEE);
    EXPECT_EQ(operations->getSelEntry(0x0777, entry), 6);
    // The BMC's error response held no data, so nothing was filled.
    EXPECT_EQ(bytesOf(entry), bytesOf(filledWith<RawSelEntry>(0xEE)));
}

TEST_F(IpmiEventOperationsTest, GetSelEntryFillsFromAnErrorResponseThatHoldsData) {
    std::vector<unsigned char> data = {0xFF, 0xFF};
    for (unsigned char i = 0; i < 16; ++i) data.push_back(i);
    bench.injectFault(1, Fault::completion(0xCB, data));
    RawSelEntry entry = filledWith<RawSelEntry>(0xEE);
    EXPECT_EQ(operations->getSelEntry(0x0001, entry), 6);
    EXPECT_EQ(bytesOf(entry), std::vector<unsigned char>(data.begin() + 2, data.end()));
}

TEST_F(IpmiEventOperationsTest, GetSelEntryMapsCompletionCodes) {
    const std::pair<unsigned char, int> cases[] = {{0x80, 1}, {0x81, 2}, {0xC0, 6}, {0xFF, 6}};
    std::size_t number = 0;
    for (const auto& [code, result] : cases) {
        bench.injectFault(++number, Fault::completion(code));
        RawSelEntry entry{};
        EXPECT_EQ(operations->getSelEntry(1, entry), result) << "completion code " << int{code};
    }
}

TEST_F(IpmiEventOperationsTest, GetSelEntryTransportFailureLeavesEntryUntouched) {
    bmc.storeSelRecord(selRecord(0x0001, kTemperatureEvent));
    bench.injectFault(1, Fault::transportFailure());
    RawSelEntry entry = filledWith<RawSelEntry>(0xEE);
    EXPECT_EQ(operations->getSelEntry(1, entry), 6);
    EXPECT_EQ(bytesOf(entry), bytesOf(filledWith<RawSelEntry>(0xEE)));
}

TEST_F(IpmiEventOperationsTest, GetSelEntryShortSuccessIsTreatedAsTransportFailure) {
    bmc.storeSelRecord(selRecord(0x0001, kTemperatureEvent));
    for (std::size_t keep : {0, 2, 17}) {
        bench.injectFault(bench.requests().size() + 1, Fault::truncate(keep));
        RawSelEntry entry = filledWith<RawSelEntry>(0xEE);
        EXPECT_EQ(operations->getSelEntry(1, entry), 6) << keep << " bytes";
        EXPECT_EQ(bytesOf(entry), bytesOf(filledWith<RawSelEntry>(0xEE))) << keep << " bytes";
    }
}

TEST_F(IpmiEventOperationsTest, GetSelEntryLetsTheClientsIpmiExceptionThrough) {
    bench.injectFault(1, Fault::ipmiException(0xC3, IPMI_EXCEPTION_TIMEOUT));
    RawSelEntry entry{};
    EXPECT_THROW(operations->getSelEntry(1, entry), IpmiException);
}

// --- getRawSelEntries ---

TEST_F(IpmiEventOperationsTest, EmptySelLogsTheCompletionCodeAndAppendsNothing) {
    std::vector<RawSelEntry> entries;
    EXPECT_NO_THROW(operations->getRawSelEntries(entries));
    EXPECT_TRUE(entries.empty());
    EXPECT_EQ(bench.requests(), (std::vector<RecordedRequest>{getSelEntry(0x00, 0x00)}));
    EXPECT_NE(logText().find("[1] ipmi_event_log/IpmiEventOperations:"), std::string::npos);
    EXPECT_NE(logText().find(selWalkFailure(0xCB)), std::string::npos) << logText();
}

TEST_F(IpmiEventOperationsTest, WalksTheChainInBmcOrderUntilNextIdFFFF) {
    storeThreeRecords();
    std::vector<RawSelEntry> entries;
    operations->getRawSelEntries(entries);
    ASSERT_EQ(entries.size(), 3u);
    EXPECT_EQ(entries[0].recordId[0], 0x10);
    EXPECT_EQ(entries[1].recordId[0], 0x20);
    EXPECT_EQ(entries[2].recordId[0], 0x30);
    EXPECT_EQ(bench.requests(),
              (std::vector<RecordedRequest>{getSelEntry(0x00, 0x00), getSelEntry(0x20, 0x00),
                                            getSelEntry(0x30, 0x00)}));
    EXPECT_EQ(logText(), "");
}

TEST_F(IpmiEventOperationsTest, WalkAppendsAfterWhatTheVectorHeld) {
    storeThreeRecords();
    std::vector<RawSelEntry> entries(2, filledWith<RawSelEntry>(0x77));
    operations->getRawSelEntries(entries);
    ASSERT_EQ(entries.size(), 5u);
    EXPECT_EQ(bytesOf(entries[1]), bytesOf(filledWith<RawSelEntry>(0x77)));
    EXPECT_EQ(entries[2].recordId[0], 0x10);
}

TEST_F(IpmiEventOperationsTest, WalkStopsAtACompletionCodeKeepingEarlierRecords) {
    storeThreeRecords();
    bench.injectFault(2, Fault::completion(0xC5));
    std::vector<RawSelEntry> entries;
    operations->getRawSelEntries(entries);
    ASSERT_EQ(entries.size(), 1u);
    EXPECT_EQ(entries[0].recordId[0], 0x10);
    EXPECT_EQ(bench.requests().size(), 2u);
    EXPECT_NE(logText().find(selWalkFailure(0xC5)), std::string::npos);
}

TEST_F(IpmiEventOperationsTest, WalkStopsAtATransportFailureLoggingCompletionCodeZero) {
    storeThreeRecords();
    bench.injectFault(3, Fault::transportFailure());
    std::vector<RawSelEntry> entries;
    operations->getRawSelEntries(entries);
    EXPECT_EQ(entries.size(), 2u);
    EXPECT_NE(logText().find(selWalkFailure(0x00)), std::string::npos);
}

TEST_F(IpmiEventOperationsTest, WalkTreatsAShortSuccessAsATransportFailure) {
    storeThreeRecords();
    bench.injectFault(2, Fault::truncate(17));
    std::vector<RawSelEntry> entries;
    operations->getRawSelEntries(entries);
    EXPECT_EQ(entries.size(), 1u);
    EXPECT_EQ(bench.requests().size(), 2u);
    EXPECT_NE(logText().find(selWalkFailure(0x00)), std::string::npos);
}

TEST_F(IpmiEventOperationsTest, WalkCatchesTheClientsIpmiExceptionWithoutLogging) {
    storeThreeRecords();
    bench.injectFault(2, Fault::ipmiException(0, IPMI_EXCEPTION_TRANSPORT));
    std::vector<RawSelEntry> entries;
    EXPECT_NO_THROW(operations->getRawSelEntries(entries));
    EXPECT_EQ(entries.size(), 1u);
    EXPECT_EQ(logText(), "");
}

TEST_F(IpmiEventOperationsTest, WalkFailsSilentlyAtLogLevelZero) {
    Log::SetMinLogLevel(0);
    std::vector<RawSelEntry> entries;
    operations->getRawSelEntries(entries);
    EXPECT_EQ(logText(), "");
}

TEST_F(IpmiEventOperationsTest, WalkLetsOtherExceptionsThrough) {
    storeThreeRecords();
    bench.injectFault(2, Fault::otherException());
    std::vector<RawSelEntry> entries;
    EXPECT_THROW(operations->getRawSelEntries(entries), std::runtime_error);
    EXPECT_EQ(entries.size(), 1u);
}

TEST_F(IpmiEventOperationsTest, WalkEndsWhereTheChainComesBackToARequestedId) {
    // Two records with ID 5: the chain leads from the first to ID 5, which names the first again,
    // whose next ID is 5 once more.
    bmc.storeSelRecord(selRecord(0x0005, kTemperatureEvent));
    bmc.storeSelRecord(selRecord(0x0005, kTemperatureEvent));
    std::vector<RawSelEntry> entries;
    operations->getRawSelEntries(entries);
    EXPECT_EQ(entries.size(), 2u);
    EXPECT_EQ(bench.requests(),
              (std::vector<RecordedRequest>{getSelEntry(0x00, 0x00), getSelEntry(0x05, 0x00)}));
    EXPECT_NE(logText().find("getRawSelEntries: the next record chain comes back to record ID "
                             "0x0005; the walk ends there\n"),
              std::string::npos)
        << logText();
}

TEST_F(IpmiEventOperationsTest, WalkEndsOnALongerLoopToo) {
    // 0x0000 -> record 1 (next 2) -> record 2 (next 1, answered in its place) -> record 1 -> 2.
    bmc.storeSelRecord(selRecord(0x0001, kTemperatureEvent));
    bmc.storeSelRecord(selRecord(0x0002, kTemperatureEvent));
    std::vector<unsigned char> loopBack = {0x01, 0x00, 0x02, 0x00};
    loopBack.insert(loopBack.end(), kTemperatureEvent);
    bench.injectFault(2, Fault::completion(0x00, loopBack));
    std::vector<RawSelEntry> entries;
    operations->getRawSelEntries(entries);
    EXPECT_EQ(entries.size(), 3u);
    EXPECT_EQ(bench.requests().size(), 3u);  // 0x0000, 0x0002, 0x0001; then 0x0002 again: stop
}

// --- deleteSEL ---

TEST_F(IpmiEventOperationsTest, DeleteReservesThenDeletesWithTheReservation) {
    storeThreeRecords();
    bench.injectFault(1, Fault::completion(0x00, {0xB7, 0x5A}));  // reservation ID 0x5AB7
    // The simulated BMC did not make that reservation; answer the delete as accepted.
    bench.injectFault(2, Fault::completion(0x00, {0x20, 0x00}));
    EXPECT_EQ(operations->deleteSEL(0x0020), 0);
    EXPECT_EQ(bench.requests(),
              (std::vector<RecordedRequest>{request(0x0A, 0x42, {}),
                                            request(0x0A, 0x46, {0xB7, 0x5A, 0x20, 0x00})}));
}

TEST_F(IpmiEventOperationsTest, DeleteRemovesTheRecordFromTheBmc) {
    storeThreeRecords();
    EXPECT_EQ(operations->deleteSEL(0x0020), 0);
    ASSERT_EQ(bmc.selRecords().size(), 2u);
    EXPECT_EQ(bmc.selRecords()[1][0], 0x30);
}

TEST_F(IpmiEventOperationsTest, DeleteWithoutReservationIsBusyAndSendsNoDelete) {
    storeThreeRecords();
    bench.injectFault(1, Fault::completion(0xC1));
    EXPECT_EQ(operations->deleteSEL(0x0020), 2);
    EXPECT_EQ(bench.requests().size(), 1u);
    EXPECT_EQ(bmc.selRecords().size(), 3u);
}

TEST_F(IpmiEventOperationsTest, DeleteMapsTheDeleteCompletionCode) {
    storeThreeRecords();
    EXPECT_EQ(operations->deleteSEL(0x0999), 6);  // the BMC answers 0xCB: not present
    const std::pair<unsigned char, int> cases[] = {{0x81, 2}, {0x80, 1}, {0xCB, 6}, {0xD5, 6}};
    for (const auto& [code, result] : cases) {
        bench.injectFault(bench.requests().size() + 2, Fault::completion(code));
        EXPECT_EQ(operations->deleteSEL(0x0010), result) << "completion code " << int{code};
    }
    bench.injectFault(bench.requests().size() + 2, Fault::transportFailure());
    EXPECT_EQ(operations->deleteSEL(0x0010), 6);
}

TEST_F(IpmiEventOperationsTest, DeleteLetsTheClientsIpmiExceptionThroughFromTheDelete) {
    storeThreeRecords();
    bench.injectFault(2, Fault::ipmiException(0, IPMI_EXCEPTION_TIMEOUT));
    EXPECT_THROW(operations->deleteSEL(0x0010), IpmiException);
}

TEST_F(IpmiEventOperationsTest, DeleteIsBusyWhenTheReservationThrows) {
    bench.injectFault(1, Fault::ipmiException(0, IPMI_EXCEPTION_TIMEOUT));
    EXPECT_EQ(operations->deleteSEL(0x0010), 2);
    EXPECT_EQ(bench.requests().size(), 1u);
}

// --- deleteAllSEL ---

TEST_F(IpmiEventOperationsTest, ClearSendsExactlyReserveAndOneInitiateErase) {
    storeThreeRecords();
    bench.injectFault(1, Fault::completion(0x00, {0x02, 0x01}));  // reservation ID 0x0102
    // The simulated BMC did not make that reservation; let it answer the clear as accepted.
    bench.injectFault(2, Fault::completion(0x00, {0x01}));
    EXPECT_EQ(operations->deleteAllSEL(), 0);
    EXPECT_EQ(bench.requests(), (std::vector<RecordedRequest>{
                                    request(0x0A, 0x42, {}),
                                    request(0x0A, 0x47, {0x02, 0x01, 0x43, 0x4C, 0x52, 0xAA})}));
}

TEST_F(IpmiEventOperationsTest, ClearEmptiesTheSel) {
    storeThreeRecords();
    EXPECT_EQ(operations->deleteAllSEL(), 0);
    EXPECT_TRUE(bmc.selRecords().empty());
    EXPECT_EQ(bench.requests().size(), 2u);
}

TEST_F(IpmiEventOperationsTest, ClearWithoutReservationIsBusyAndSendsNothingMore) {
    bench.injectFault(1, Fault::transportFailure());
    EXPECT_EQ(operations->deleteAllSEL(), 2);
    EXPECT_EQ(bench.requests().size(), 1u);
}

TEST_F(IpmiEventOperationsTest, ClearMapsTheClearCompletionCode) {
    const std::pair<unsigned char, int> cases[] = {{0x81, 2}, {0x80, 1}, {0xC5, 6}};
    for (const auto& [code, result] : cases) {
        bench.injectFault(bench.requests().size() + 2, Fault::completion(code));
        EXPECT_EQ(operations->deleteAllSEL(), result) << "completion code " << int{code};
    }
}

// --- AddSelEntry ---

TEST_F(IpmiEventOperationsTest, AddSendsTheSixteenBytesAsTheyStand) {
    Tolmar::IPMISELENTRY entry;
    const unsigned char bytes[16] = {
        0xAD, 0xDE,              // record ID: the BMC assigns its own, sent anyway
        0x02,                    // record type
        0x78, 0x56, 0x34, 0x12,  // time stamp
        0x41, 0x00,              // generator ID: software ID 0x20 (system management software)
        0x04, 0x12, 0x01,        // format revision, sensor type system event, sensor number
        0x6F, 0x02, 0xFF, 0xFF,  // sensor-specific, offset 2, no event data 2 and 3
    };
    std::memcpy(&entry, bytes, sizeof entry);
    EXPECT_EQ(operations->AddSelEntry(entry), 0);
    EXPECT_EQ(bench.requests(), (std::vector<RecordedRequest>{{0x0A, 0x44, {bytes, bytes + 16}}}));
    ASSERT_EQ(bmc.selRecords().size(), 1u);
    EXPECT_EQ(bmc.selRecords()[0][2], 0x02);
}

TEST_F(IpmiEventOperationsTest, AddMapsTheCompletionCode) {
    const Tolmar::IPMISELENTRY entry{};
    const std::pair<unsigned char, int> cases[] = {{0x80, 1}, {0x81, 2}, {0xC7, 6}};
    std::size_t number = 0;
    for (const auto& [code, result] : cases) {
        bench.injectFault(++number, Fault::completion(code));
        EXPECT_EQ(operations->AddSelEntry(entry), result) << "completion code " << int{code};
    }
    bench.injectFault(++number, Fault::transportFailure());
    EXPECT_EQ(operations->AddSelEntry(entry), 6);
}

TEST_F(IpmiEventOperationsTest, AddLetsTheClientsIpmiExceptionThrough) {
    bench.injectFault(1, Fault::ipmiException(0, IPMI_EXCEPTION_TRANSPORT));
    EXPECT_THROW(operations->AddSelEntry(Tolmar::IPMISELENTRY{}), IpmiException);
}

}  // namespace
