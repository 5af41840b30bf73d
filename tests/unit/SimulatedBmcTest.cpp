// The simulated BMC must behave like a BMC for the other tests to mean anything.
#include "SimulatedBmc.h"

#include <gtest/gtest.h>

#include "BmcTest.h"

namespace {

using sim::BmcResponse;
using sim::selRecord;
using sim::SimulatedBmc;
using Bytes = std::vector<unsigned char>;

class SimulatedBmcTest : public ::testing::Test {
protected:
    BmcResponse storage(unsigned char command, Bytes data) {
        return bmc.handle(0x0A, command, data);
    }
    Bytes reserveSel() { return storage(0x42, {}).data; }
    BmcResponse getSelEntry(unsigned id) {
        return storage(0x43, {0, 0, static_cast<unsigned char>(id),
                              static_cast<unsigned char>(id >> 8), 0, 0xFF});
    }
    BmcResponse selInfo() { return storage(0x40, {}); }
    void storeThree() {
        for (unsigned id : {0x10, 0x20, 0x30}) bmc.storeSelRecord(selRecord(id, {0x02}));
    }

    SimulatedBmc bmc;
};

TEST_F(SimulatedBmcTest, SelChainRunsFromZeroToFFFF) {
    storeThree();
    EXPECT_EQ(getSelEntry(0x0000).data[0], 0x20);  // next record ID
    EXPECT_EQ(getSelEntry(0x0000).data[2], 0x10);  // the first record
    EXPECT_EQ(getSelEntry(0x0020).data[0], 0x30);
    const BmcResponse last = getSelEntry(0x0030);
    EXPECT_EQ(last.data[0], 0xFF);
    EXPECT_EQ(last.data[1], 0xFF);
    EXPECT_EQ(last.data.size(), 18u);
    EXPECT_EQ(getSelEntry(0xFFFF).data[2], 0x30);  // 0xFFFF names the last record
}

TEST_F(SimulatedBmcTest, AbsentRecordAndEmptySelAnswerNotPresent) {
    EXPECT_EQ(getSelEntry(0x0000).completionCode, sim::kNotPresent);
    storeThree();
    EXPECT_EQ(getSelEntry(0x0011).completionCode, sim::kNotPresent);
}

TEST_F(SimulatedBmcTest, LaterReservationCancelsTheEarlierOne) {
    storeThree();
    const Bytes first = reserveSel();
    const Bytes second = reserveSel();
    EXPECT_NE(first, second);
    EXPECT_EQ(storage(0x46, {first[0], first[1], 0x10, 0x00}).completionCode,
              sim::kReservationCancelled);
    EXPECT_EQ(storage(0x46, {second[0], second[1], 0x10, 0x00}).completionCode, 0x00);
}

TEST_F(SimulatedBmcTest, DeleteAndClearCancelTheReservation) {
    storeThree();
    Bytes r = reserveSel();
    EXPECT_EQ(storage(0x46, {r[0], r[1], 0x10, 0x00}).data, (Bytes{0x10, 0x00}));
    EXPECT_EQ(storage(0x46, {r[0], r[1], 0x20, 0x00}).completionCode, sim::kReservationCancelled);
    r = reserveSel();
    EXPECT_EQ(storage(0x47, {r[0], r[1], 'C', 'L', 'R', 0xAA}).data, (Bytes{0x01}));
    EXPECT_TRUE(bmc.selRecords().empty());
    EXPECT_EQ(storage(0x47, {r[0], r[1], 'C', 'L', 'R', 0xAA}).completionCode,
              sim::kReservationCancelled);
}

TEST_F(SimulatedBmcTest, ClearChecksTheSignature) {
    const Bytes r = reserveSel();
    EXPECT_EQ(storage(0x47, {r[0], r[1], 'C', 'L', 'X', 0xAA}).completionCode,
              sim::kInvalidDataField);
}

TEST_F(SimulatedBmcTest, AddAssignsTheNextRecordId) {
    storeThree();
    const BmcResponse added = storage(0x44, Bytes(16, 0x02));
    EXPECT_EQ(added.data, (Bytes{0x31, 0x00}));
    EXPECT_EQ(bmc.selRecords().back()[0], 0x31);
    EXPECT_EQ(storage(0x44, Bytes(15, 0x02)).completionCode, sim::kRequestLengthInvalid);
}

TEST_F(SimulatedBmcTest, AnAdditionCancelsTheReservation) {
    storeThree();
    const Bytes r = reserveSel();
    storage(0x44, Bytes(16, 0x02));
    EXPECT_EQ(storage(0x46, {r[0], r[1], 0x10, 0x00}).completionCode, sim::kReservationCancelled);
}

TEST_F(SimulatedBmcTest, AFullSelRefusesAdditionsAndSetsItsOverflowFlagUntilCleared) {
    storeThree();
    bmc.limitSel(4);
    EXPECT_EQ(selInfo().data[3], 0x10);  // free space: one record of 16 bytes
    EXPECT_EQ(selInfo().data[13], 0x0F);
    EXPECT_EQ(storage(0x44, Bytes(16, 0x02)).completionCode, 0x00);
    EXPECT_EQ(storage(0x44, Bytes(16, 0x02)).completionCode, 0xC4);
    EXPECT_EQ(bmc.selRecords().size(), 4u);
    EXPECT_EQ(selInfo().data[3], 0x00);
    EXPECT_EQ(selInfo().data[13], 0x8F);  // overflow
    const Bytes r = reserveSel();
    storage(0x47, {r[0], r[1], 'C', 'L', 'R', 0xAA});
    EXPECT_EQ(selInfo().data[13], 0x0F);
}

TEST_F(SimulatedBmcTest, AFullSelThatOverwritesDropsItsOldestAndMovesTheAdditionStamp) {
    storeThree();
    bmc.limitSel(3);
    bmc.overwriteOldestWhenFull(true);
    const Bytes before = selInfo().data;
    EXPECT_EQ(storage(0x44, Bytes(16, 0x02)).data, (Bytes{0x31, 0x00}));
    const Bytes after = selInfo().data;
    EXPECT_EQ(after[1], 3);  // the count stays
    EXPECT_NE(Bytes(after.begin() + 5, after.begin() + 9),
              Bytes(before.begin() + 5, before.begin() + 9));
    EXPECT_EQ(Bytes(after.begin() + 9, after.begin() + 13),
              Bytes(before.begin() + 9, before.begin() + 13));
    EXPECT_EQ(after[13], 0x8F);
    EXPECT_EQ(getSelEntry(0x0000).data[2], 0x20);
}

TEST_F(SimulatedBmcTest, RecordIdsCanLeaveGaps) {
    storeThree();
    bmc.leaveGapsInRecordIds(4);
    EXPECT_EQ(storage(0x44, Bytes(16, 0x02)).data, (Bytes{0x35, 0x00}));
    EXPECT_EQ(getSelEntry(0x0030).data[0], 0x35);
}

TEST_F(SimulatedBmcTest, AChainByIdPlusOneEndsAtTheFirstGap) {
    for (unsigned id : {1, 2, 4}) bmc.storeSelRecord(selRecord(id, {0x02}));
    bmc.chainByIdPlusOne(true);
    EXPECT_EQ(getSelEntry(0x0001).data[0], 0x02);
    const Bytes atGap = getSelEntry(0x0002).data;
    EXPECT_EQ(Bytes(atGap.begin(), atGap.begin() + 2), (Bytes{0xFF, 0xFF}));
    EXPECT_EQ(getSelEntry(0x0004).data[2], 0x04);  // past the gap, found by its ID
    EXPECT_EQ(getSelEntry(0xFFFF).data[2], 0x04);
}

TEST_F(SimulatedBmcTest, SelInfoCanLeaveEraseStampAndFreeSpaceUnfilled) {
    storeThree();
    bmc.fillNeitherEraseStampNorFreeSpace(true);
    const Bytes info = selInfo().data;
    EXPECT_EQ(Bytes(info.begin() + 3, info.begin() + 5), (Bytes{0xFF, 0xFF}));
    EXPECT_EQ(Bytes(info.begin() + 9, info.begin() + 13), (Bytes{0xFF, 0xFF, 0xFF, 0xFF}));
}

TEST_F(SimulatedBmcTest, TheClockSetBackStampsTheNextAdditionEarlier) {
    bmc.setClock(0x50000000);
    storeThree();
    const Bytes info = selInfo().data;
    EXPECT_EQ(Bytes(info.begin() + 5, info.begin() + 9), (Bytes{0x03, 0x00, 0x00, 0x50}));
}

TEST_F(SimulatedBmcTest, SdrPartialReadsNeedTheReservationAndFFReadsTheRest) {
    Bytes record = {0x01, 0x00, 0x51, 0x01, 0x06};
    record.resize(11, 0xAB);
    bmc.storeSdr(record);
    EXPECT_EQ(storage(0x23, {0, 0, 0, 0, 0, 5}).data,
              (Bytes{0xFF, 0xFF, 0x01, 0x00, 0x51, 0x01, 0x06}));
    EXPECT_EQ(storage(0x23, {0, 0, 0, 0, 5, 0xFF}).completionCode, sim::kReservationCancelled);
    const Bytes r = storage(0x22, {}).data;
    EXPECT_EQ(storage(0x23, {r[0], r[1], 1, 0, 5, 0xFF}).data,
              (Bytes{0xFF, 0xFF, 0xAB, 0xAB, 0xAB, 0xAB, 0xAB, 0xAB}));
}

TEST_F(SimulatedBmcTest, PefParametersAnswerCountsAndOneBasedSets) {
    SimulatedBmc::EventFilter filter{};
    filter[0] = 0x80;
    bmc.addEventFilter(filter);
    bmc.addAlertPolicy({0x18, 0x01, 0x00});
    EXPECT_EQ(bmc.handle(0x04, 0x13, {5, 0, 0}).data, (Bytes{0x11, 0x01}));
    EXPECT_EQ(bmc.handle(0x04, 0x13, {6, 1, 0}).data.size(), 22u);
    EXPECT_EQ(bmc.handle(0x04, 0x13, {6, 2, 0}).completionCode, sim::kParameterOutOfRange);
    EXPECT_EQ(bmc.handle(0x04, 0x13, {9, 1, 0}).data, (Bytes{0x11, 0x01, 0x18, 0x01, 0x00}));
    EXPECT_EQ(bmc.handle(0x04, 0x13, {7, 0, 0}).completionCode, sim::kParameterNotSupported);
}

TEST_F(SimulatedBmcTest, AuxiliaryLogAnswersCountLengthAndChunks) {
    bmc.setAuxLogEnterprise(0x0002A2);
    bmc.addAuxLogEntry({0x05, 0x00, 0x11, 0x22, 0x33});
    const BmcResponse status = storage(0x5A, {0x01});
    ASSERT_EQ(status.data.size(), 9u);
    EXPECT_EQ(status.data[7], 1);
    EXPECT_EQ(bmc.handle(0x2E, 0x93, {0xA2, 0x02, 0x00, 1, 0, 0, 0, 0, 0}).data,
              (Bytes{0xA2, 0x02, 0x00, 0x05, 0x00}));
    EXPECT_EQ(bmc.handle(0x2E, 0x93, {0xA2, 0x02, 0x00, 1, 0, 2, 0, 25, 0}).data,
              (Bytes{0xA2, 0x02, 0x00, 0x11, 0x22, 0x33}));
    EXPECT_EQ(bmc.handle(0x2E, 0x93, {0xA2, 0x02, 0x00, 2, 0, 0, 0, 0, 0}).completionCode,
              sim::kNotPresent);
}

TEST_F(SimulatedBmcTest, UnknownCommandIsInvalid) {
    EXPECT_EQ(bmc.handle(0x06, 0x01, {}).completionCode, sim::kInvalidCommand);
}

}  // namespace
