// Reading the OEM auxiliary log and decoding its raw entries.
#include <gtest/gtest.h>

#include <cstring>
#include <memory>

#include "BmcTest.h"
#include "IPMIAuxiliaryLog.h"
#include "IpmiEventOperations.h"
#include "SampleServer.h"

namespace {

using sim::Fault;
using sim::RecordedRequest;
using Tolmar::IPMIAuxiliaryLog;
using Tolmar::IpmiEventOperations;
using Tolmar::kAuxLogEnterpriseNumber;
using Tolmar::s_AuxLog_entry;
using Bytes = std::vector<unsigned char>;

constexpr unsigned char kIana0 = kAuxLogEnterpriseNumber & 0xFF;
constexpr unsigned char kIana1 = (kAuxLogEnterpriseNumber >> 8) & 0xFF;
constexpr unsigned char kIana2 = (kAuxLogEnterpriseNumber >> 16) & 0xFF;

// An auxiliary record of `length` bytes whose byte i is i (mod 256).
Bytes countingRecord(std::size_t length) {
    Bytes record(length);
    for (std::size_t i = 0; i < length; ++i) record[i] = static_cast<unsigned char>(i);
    return record;
}

class AuxiliaryLogReadTest : public sim::OperationsTest {
protected:
    void SetUp() override {
        OperationsTest::SetUp();
        bmc.setAuxLogEnterprise(kAuxLogEnterpriseNumber);
    }

    static RecordedRequest read(unsigned entry, unsigned char offset, unsigned char length) {
        return request(0x2E, 0x93,
                       {kIana0, kIana1, kIana2, static_cast<unsigned char>(entry),
                        static_cast<unsigned char>(entry >> 8), offset, 0x00, length, 0x00});
    }

    std::vector<s_AuxLog_entry> readAll(unsigned count, int expectedResult = 0) {
        std::vector<s_AuxLog_entry> entries(count);
        for (s_AuxLog_entry& e : entries) std::memset(e.data, 0xEE, sizeof e.data);
        EXPECT_EQ(operations->IPMIReadExtendedData(entries.data(), count), expectedResult);
        return entries;
    }
};

// --- status ---

TEST_F(AuxiliaryLogReadTest, StatusAsksForTheOem1LogAndReadsTheCount) {
    for (int i = 0; i < 3; ++i) bmc.addAuxLogEntry(countingRecord(10));
    unsigned int count = 99;
    EXPECT_EQ(operations->IPMIGetAuxLogStatus(&count), 0);
    EXPECT_EQ(count, 3u);
    EXPECT_EQ(bench.requests(), std::vector<RecordedRequest>{request(0x0A, 0x5A, {0x01})});
}

TEST_F(AuxiliaryLogReadTest, StatusCountIsBytesSevenAndEight) {
    bench.injectFault(1, Fault::completion(0x00, {0, 0, 0, 0, 0, 0, 0, 0x34, 0x12}));
    unsigned int count = 0;
    EXPECT_EQ(operations->IPMIGetAuxLogStatus(&count), 0);
    EXPECT_EQ(count, 0x1234u);
}

TEST_F(AuxiliaryLogReadTest, StatusFailuresLeaveTheCountAtZero) {
    const std::pair<Fault, int> cases[] = {{Fault::completion(0xC1), 6},
                                           {Fault::completion(0x80), 1},
                                           {Fault::completion(0x81), 2},
                                           {Fault::transportFailure(), 6},
                                           {Fault::truncate(8), 6}};
    std::size_t number = 0;
    for (const auto& [fault, result] : cases) {
        bench.injectFault(++number, fault);
        unsigned int count = 99;
        EXPECT_EQ(operations->IPMIGetAuxLogStatus(&count), result) << number;
        EXPECT_EQ(count, 0u) << number;
    }
}

TEST_F(AuxiliaryLogReadTest, StatusLetsTheClientsIpmiExceptionThrough) {
    bench.injectFault(1, Fault::ipmiException(0, IPMI_EXCEPTION_TIMEOUT));
    unsigned int count = 0;
    EXPECT_THROW(operations->IPMIGetAuxLogStatus(&count), IpmiException);
}

// --- reading entries ---

TEST_F(AuxiliaryLogReadTest, NoEntriesSendsNothing) {
    EXPECT_EQ(operations->IPMIReadExtendedData(nullptr, 0), 0);
    EXPECT_TRUE(bench.requests().empty());
}

TEST_F(AuxiliaryLogReadTest, SixtyBytesComeInChunksOf25And25And10) {
    bmc.addAuxLogEntry(countingRecord(60));
    const std::vector<s_AuxLog_entry> entries = readAll(1);
    EXPECT_EQ(bench.requests(), (std::vector<RecordedRequest>{read(1, 0, 0), read(1, 0, 25),
                                                              read(1, 25, 25), read(1, 50, 10)}));
    // The enterprise number, then the record; the rest of the entry zero.
    const unsigned char* data = entries[0].data;
    EXPECT_EQ(Bytes(data, data + 3), (Bytes{kIana0, kIana1, kIana2}));
    EXPECT_EQ(Bytes(data + 3, data + 63), countingRecord(60));
    EXPECT_EQ(Bytes(data + 63, data + 600), Bytes(537, 0x00));
}

TEST_F(AuxiliaryLogReadTest, OffsetsWrapAroundInOneByte) {
    bmc.addAuxLogEntry(countingRecord(300));
    readAll(1);
    ASSERT_EQ(bench.requests().size(), 1u + 12u);
    EXPECT_EQ(bench.requests()[12], read(1, 19, 25));  // offset 275 sent as 19, then 0x00
}

TEST_F(AuxiliaryLogReadTest, AnnouncedLengthIsCappedAt590) {
    bench.injectFault(1, Fault::completion(0x00, {kIana0, kIana1, kIana2, 0xE8, 0x03}));  // 1000
    bmc.addAuxLogEntry(countingRecord(1000));
    const std::vector<s_AuxLog_entry> entries = readAll(1);
    ASSERT_EQ(bench.requests().size(), 1u + 24u);  // 23 chunks of 25 and one of 15
    EXPECT_EQ(bench.requests().back(), read(1, (575 & 0xFF), 15));
    // 3 + 590 bytes filled; the chunks after the first wrapped around to the start of the record,
    // as the one-byte offset makes them.
    EXPECT_EQ(Bytes(entries[0].data + 593, entries[0].data + 600), Bytes(7, 0x00));
}

TEST_F(AuxiliaryLogReadTest, EveryEntryIsZeroedAndReadInTurn) {
    bmc.addAuxLogEntry(countingRecord(10));
    bmc.addAuxLogEntry(countingRecord(30));
    const std::vector<s_AuxLog_entry> entries = readAll(2);
    EXPECT_EQ(bench.requests(),
              (std::vector<RecordedRequest>{read(1, 0, 0), read(1, 0, 25), read(2, 0, 0),
                                            read(2, 0, 25), read(2, 25, 5)}));
    EXPECT_EQ(Bytes(entries[0].data + 3, entries[0].data + 13), countingRecord(10));
    EXPECT_EQ(entries[0].data[13], 0x00);
    EXPECT_EQ(Bytes(entries[1].data + 3, entries[1].data + 33), countingRecord(30));
}

TEST_F(AuxiliaryLogReadTest, LostLengthRequestLeavesTheEntryZeroAndGoesOn) {
    bmc.addAuxLogEntry(countingRecord(10));
    bmc.addAuxLogEntry(countingRecord(10));
    bench.injectFault(1, Fault::transportFailure());
    const std::vector<s_AuxLog_entry> entries = readAll(2);
    EXPECT_EQ(Bytes(entries[0].data, entries[0].data + 600), Bytes(600, 0x00));
    EXPECT_EQ(entries[1].data[3], 0x00);
    EXPECT_EQ(entries[1].data[4], 0x01);
    EXPECT_EQ(bench.requests().size(), 3u);
}

TEST_F(AuxiliaryLogReadTest, LengthErrorEndsTheWholeReadWithSix) {
    bmc.addAuxLogEntry(countingRecord(10));
    bmc.addAuxLogEntry(countingRecord(10));
    bench.injectFault(1, Fault::completion(0xCB));
    const std::vector<s_AuxLog_entry> entries = readAll(2, 6);
    EXPECT_EQ(bench.requests().size(), 1u);
    EXPECT_EQ(Bytes(entries[0].data, entries[0].data + 600), Bytes(600, 0x00));
    EXPECT_EQ(entries[1].data[0], 0xEE);  // never reached
}

TEST_F(AuxiliaryLogReadTest, AnnouncedLengthZeroReadsNoChunk) {
    bmc.addAuxLogEntry({});
    bmc.addAuxLogEntry(countingRecord(10));
    const std::vector<s_AuxLog_entry> entries = readAll(2);
    EXPECT_EQ(bench.requests(),
              (std::vector<RecordedRequest>{read(1, 0, 0), read(2, 0, 0), read(2, 0, 25)}));
    EXPECT_EQ(Bytes(entries[0].data, entries[0].data + 600), Bytes(600, 0x00));
}

TEST_F(AuxiliaryLogReadTest, FailedChunkLeavesTheEntryAsFarAsItWasFilled) {
    bmc.addAuxLogEntry(countingRecord(60));
    bmc.addAuxLogEntry(countingRecord(10));
    const Fault faults[] = {Fault::transportFailure(), Fault::truncate(3)};
    // A lost or empty second chunk: the first chunk stays, the next entry is read, result 0.
    for (int i = 0; i < 2; ++i) {
        bench.reset(bmc);
        IpmiClient client(0ul);
        client.connect();
        bench.injectFault(3, faults[i]);
        std::vector<s_AuxLog_entry> entries(2);
        EXPECT_EQ(IpmiEventOperations(client).IPMIReadExtendedData(entries.data(), 2), 0);
        EXPECT_EQ(Bytes(entries[0].data + 3, entries[0].data + 28), countingRecord(25));
        EXPECT_EQ(entries[0].data[28], 0x00);
        EXPECT_EQ(entries[1].data[4], 0x01);
    }
}

TEST_F(AuxiliaryLogReadTest, ClientExceptionsReachTheCaller) {
    bmc.addAuxLogEntry(countingRecord(60));
    bench.injectFault(3, Fault::ipmiException(0, IPMI_EXCEPTION_TRANSPORT));
    std::vector<s_AuxLog_entry> entries(1);
    EXPECT_THROW(operations->IPMIReadExtendedData(entries.data(), 1), IpmiException);
}

TEST_F(AuxiliaryLogReadTest, ChunkErrorKeepsWhatWasFilledReadsOnAndEndsWithSix) {
    bmc.addAuxLogEntry(countingRecord(60));
    bmc.addAuxLogEntry(countingRecord(10));
    bench.injectFault(3, Fault::completion(0xC9));
    const std::vector<s_AuxLog_entry> entries = readAll(2, 6);
    EXPECT_EQ(Bytes(entries[0].data + 3, entries[0].data + 28), countingRecord(25));
    EXPECT_EQ(entries[0].data[28], 0x00);
    EXPECT_EQ(entries[1].data[4], 0x01);
}

TEST_F(AuxiliaryLogReadTest, OversizedChunksNeverWritePastTheEntry) {
    // A BMC that answers every chunk with 200 bytes.
    bench.injectFault(1, Fault::completion(0x00, {kIana0, kIana1, kIana2, 0x4E, 0x02}));  // 590
    for (std::size_t n = 2; n <= 30; ++n)
        bench.injectFault(n, Fault::completion(0x00, Bytes(200, 0x5A)));
    struct {
        s_AuxLog_entry entry;
        unsigned char guard[16];
    } framed;
    std::memset(&framed, 0x11, sizeof framed);
    operations->IPMIReadExtendedData(&framed.entry, 1);
    EXPECT_EQ(Bytes(framed.entry.data, framed.entry.data + 600), Bytes(600, 0x5A));
    EXPECT_EQ(Bytes(framed.guard, framed.guard + 16), Bytes(16, 0x11));
}

// --- parsing ---

s_AuxLog_entry rawEntry(const Bytes& record, std::uint32_t enterprise = kAuxLogEnterpriseNumber) {
    s_AuxLog_entry entry{};
    entry.data[0] = enterprise & 0xFF;
    entry.data[1] = (enterprise >> 8) & 0xFF;
    entry.data[2] = (enterprise >> 16) & 0xFF;
    std::memcpy(entry.data + 3, record.data(), std::min<std::size_t>(record.size(), 597));
    return entry;
}

bmcsim::AuxRecord memoryError(unsigned selRecordId, Bytes extendedData) {
    return {selRecordId,
            0x02,
            0x90,
            {0x01, 0x0A},
            5,
            0,
            {0x00, 0x00, 0x00, 0x03},
            {0x00, 0x01, 0x02, 0x03, 0x04, 0x05, 0x06, 0x07, 0x08, 0x09, 0x0A, 0x0B, 0x0C, 0x0D,
             0x0E, 0x0F},
            std::move(extendedData)};
}

TEST(ParseExtendedSELData, DecodesEveryField) {
    s_AuxLog_entry raw = rawEntry(bmcsim::auxLogRecord(memoryError(0x1234, {0x0A, 0x1B, 0xFF})));
    const auto entries = IPMIAuxiliaryLog().ParseExtendedSELData(&raw, 1);
    ASSERT_EQ(entries.size(), 1u);
    EXPECT_EQ(entries[0].GetSELRecordId(), 0x1234);
    EXPECT_EQ(entries[0].GetTypeString(), "ERROR_CODE");
    EXPECT_EQ(entries[0].GetSeverityString(), "ORV_ERROR_FATAL");
    EXPECT_EQ(entries[0].GetOperationString(), "0x010A");
    EXPECT_EQ(entries[0].GetClassString(), "Computing");
    EXPECT_EQ(entries[0].GetSubclassString(), "Memory");
    EXPECT_EQ(entries[0].GetFRUInstanceString(), "0x00000003");
    EXPECT_EQ(entries[0].GetGUIDString(), "0x000102030405060708090A0B0C0D0E0F");
    // Record size 31: three bytes of extended data, each followed by a blank.
    EXPECT_EQ(raw.data[3], 31);
    EXPECT_EQ(entries[0].GetExtendedDataString(), "0A 1B FF ");
}

TEST(ParseExtendedSELData, SkipsEntriesOfAnotherEnterpriseOrZeroed) {
    s_AuxLog_entry raws[3] = {rawEntry(bmcsim::auxLogRecord(memoryError(1, {})), 674),
                              s_AuxLog_entry{}, rawEntry(bmcsim::auxLogRecord(memoryError(3, {})))};
    const auto entries = IPMIAuxiliaryLog().ParseExtendedSELData(raws, 3);
    ASSERT_EQ(entries.size(), 1u);
    EXPECT_EQ(entries[0].GetSELRecordId(), 3);
    EXPECT_EQ(entries[0].GetExtendedDataString(), "");  // size 28: no extended data
}

TEST(ParseExtendedSELData, NothingToParseGivesNothing) {
    EXPECT_TRUE(IPMIAuxiliaryLog().ParseExtendedSELData(nullptr, 0).empty());
}

TEST(ParseExtendedSELData, SizeAbove590IsReadAs590) {
    s_AuxLog_entry raw = rawEntry(bmcsim::auxLogRecord(memoryError(1, Bytes(600, 0xAB))));
    raw.data[3] = 0xFF;  // size 0xFFFF
    raw.data[4] = 0xFF;
    const auto entries = IPMIAuxiliaryLog().ParseExtendedSELData(&raw, 1);
    std::string expected;
    for (int i = 0; i < 562; ++i) expected += "AB ";  // 590 - 28 bytes, up to the entry's end
    EXPECT_EQ(entries.at(0).GetExtendedDataString(), expected);
}

TEST(ParseExtendedSELData, AnUnknownClassKeepsTheSubclassTextOfTheEntryBefore) {
    bmcsim::AuxRecord second = memoryError(2, {});
    second.entryClass = 9;
    second.subclass = 1;
    s_AuxLog_entry raws[2] = {rawEntry(bmcsim::auxLogRecord(memoryError(1, {}))),
                              rawEntry(bmcsim::auxLogRecord(second))};
    const auto entries = IPMIAuxiliaryLog().ParseExtendedSELData(raws, 2);
    ASSERT_EQ(entries.size(), 2u);
    EXPECT_EQ(entries[1].GetClassString(), "Unknown");
    EXPECT_EQ(entries[1].GetSubclassString(), "Memory");
}

}  // namespace
