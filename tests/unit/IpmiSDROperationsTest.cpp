#include "IpmiSDROperations.h"

#include <gtest/gtest.h>

#include <memory>

#include "BmcTest.h"
#include "RecordBytes.h"
#include "SampleServer.h"

namespace {

using sim::bytesOf;
using sim::Fault;
using sim::RecordedRequest;
using Tolmar::IpmiSDROperations;
using Bytes = std::vector<unsigned char>;

// A management controller device locator (type 12h), record ID 0x0001.
const Bytes kLocator = {
    0x01, 0x00, 0x51, 0x12, 0x0E,  // record ID, SDR version 1.5, type 12h, 14 bytes follow
    0x20, 0x00, 0x00, 0xBF,        // slave address 0x20, channel 0, power state, capabilities
    0x00, 0x00, 0x00,              // reserved
    0x2E, 0x01, 0x00,              // entity, instance, OEM
    0xC3, 'B',  'M',  'C',         // ID string: 8-bit ASCII, 3 characters
};

// A full sensor record (type 01h), record ID 0x0002: "CPU1 Temp", sensor 0x30.
const Bytes kFullSensor = {
    0x02, 0x00, 0x51, 0x01, 0x34,        // record ID, SDR version, type 01h, 52 bytes follow
    0x20, 0x00, 0x30, 0x03, 0x01,        // owner 0x20, LUN 0, sensor 0x30, processor 1
    0x7F, 0x68, 0x01, 0x01,              // initialization, capabilities, temperature, threshold
    0x95, 0x0A, 0x95, 0x0A, 0x3F, 0x3F,  // event and reading masks
    0x00, 0x01, 0x00, 0x00,              // units 1, degrees C, no modifier, linear
    0x01, 0x00, 0x00, 0x00, 0x00,        // M = 1, tolerance, B = 0, accuracy, direction
    0x00,                                // R and B exponents
    0x07, 0x2D, 0x54, 0x05, 0xFF, 0x00,  // analog flags, nominal, normal max/min, sensor max/min
    0xFF, 0x5F, 0x55, 0x00, 0x00, 0x05,  // thresholds UNR, UC, UNC, LNR, LC, LNC
    0x02, 0x02, 0x00, 0x00, 0x00,        // hysteresis, reserved, OEM
    0xC9, 'C',  'P',  'U',  '1',  ' ',  'T', 'e', 'm', 'p',  // ID string, 9 characters
};

// A compact sensor record (type 02h), record ID 0x0003: "PS1 Status", sensor 0x60.
const Bytes kCompactSensor = {
    0x03, 0x00, 0x51, 0x02, 0x25,  // record ID, SDR version, type 02h, 37 bytes follow
    0x20, 0x00, 0x60, 0x0A, 0x01,  // owner, LUN, sensor 0x60, power supply 1
    0x63, 0x40, 0x08, 0x6F,        // initialization, capabilities, power supply, sensor-specific
    0xFF, 0x7F, 0xFF, 0x7F, 0xFF, 0x7F,                           // masks
    0x00, 0x00, 0x00,                                             // no units
    0x01, 0x00, 0x00, 0x00,                                       // sharing, hysteresis
    0x00, 0x00, 0x00, 0x00,                                       // reserved, OEM
    0xCA, 'P',  'S',  '1',  ' ',  'S',  't', 'a', 't', 'u', 's',  // ID string, 10 characters
};

Bytes withId(Bytes record, unsigned id) {
    record[0] = id & 0xFF;
    record[1] = id >> 8;
    return record;
}

// What RawSDR keeps of a sensor record: bytes 0-9 and 20-29, and from the ID string offset (47
// full, 31 compact) the type/length byte at 47 and the string from 48, up to position 63.
Bytes expectedImage(const Bytes& record) {
    Bytes image(64, 0);
    std::copy(record.begin(), record.begin() + 10, image.begin());
    std::copy(record.begin() + 20, record.begin() + 30, image.begin() + 20);
    const std::size_t from = record[3] == 0x01 ? 47 : 31;
    for (std::size_t i = from; i < record.size() && 47 + (i - from) < 64; ++i) {
        image[47 + (i - from)] = record[i];
    }
    return image;
}

class IpmiSDROperationsTest : public sim::BmcTest {
protected:
    void SetUp() override {
        BmcTest::SetUp();
        bmc.setLastReservationId(0x5A76);  // the walk's reservation is 0x5A77
    }

    // A walk on a fresh connected client, with `fault` at request `number` if given.
    std::vector<RawSDR> walk(std::size_t number = 0, const Fault& fault = Fault::truncate(0)) {
        IpmiClient client(0ul);
        client.connect();
        if (number != 0) bench.injectFault(number, fault);
        std::vector<RawSDR> sdrs;
        EXPECT_NO_THROW(IpmiSDROperations(client).getTypeOneAndTwoPartialRawSDRs(sdrs));
        return sdrs;
    }

    static RecordedRequest reserve() { return request(0x0A, 0x22, {}); }
    static RecordedRequest getSdr(unsigned id, unsigned char offset, unsigned char count) {
        return request(0x0A, 0x23,
                       {0x77, 0x5A, static_cast<unsigned char>(id & 0xFF),
                        static_cast<unsigned char>(id >> 8), offset, count});
    }
};

// Every part of a record is read with the record ID the walk asked for: 0x0000, "the first
// record", for all three parts of the first one.
TEST_F(IpmiSDROperationsTest, LocatorThenFullRecordReadsTwoFirstPartsThenTheRestOfTheSensor) {
    bmc.storeSdr(kLocator);
    bmc.storeSdr(kFullSensor);
    const std::vector<RawSDR> sdrs = walk();
    EXPECT_EQ(bench.requests(),
              (std::vector<RecordedRequest>{reserve(), getSdr(0x0000, 0x00, 0x0A),
                                            getSdr(0x0002, 0x00, 0x0A), getSdr(0x0002, 0x14, 0x0A),
                                            getSdr(0x0002, 0x2F, 0xFF)}));
    ASSERT_EQ(sdrs.size(), 1u);
    EXPECT_EQ(bytesOf(sdrs[0]), expectedImage(kFullSensor));
}

TEST_F(IpmiSDROperationsTest, CompactRecordReadsItsIdStringFromOffset31) {
    bmc.storeSdr(kCompactSensor);
    const std::vector<RawSDR> sdrs = walk();
    EXPECT_EQ(bench.requests(), (std::vector<RecordedRequest>{reserve(), getSdr(0x0000, 0x00, 0x0A),
                                                              getSdr(0x0000, 0x14, 0x0A),
                                                              getSdr(0x0000, 0x1F, 0xFF)}));
    ASSERT_EQ(sdrs.size(), 1u);
    EXPECT_EQ(bytesOf(sdrs[0]), expectedImage(kCompactSensor));
    EXPECT_EQ(sdrs[0].bytes[47], 0xCA);  // the compact record's type/length byte
    EXPECT_EQ(sdrs[0].bytes[48], 'P');
}

TEST_F(IpmiSDROperationsTest, MixedRepositoryKeepsFullAndCompactRecordsInOrder) {
    const std::vector<bmcsim::SdrRecord> repository = bmcsim::sampleSdrRepository();
    std::vector<RecordedRequest> expected = {reserve()};
    std::vector<Bytes> images;
    for (std::size_t i = 0; i < repository.size(); ++i) {
        const Bytes& record = repository[i];
        bmc.storeSdr(record);
        const unsigned id = i == 0 ? 0 : record[0] | record[1] << 8;
        expected.push_back(getSdr(id, 0x00, 0x0A));
        if (record[3] == 0x01 || record[3] == 0x02) {
            expected.push_back(getSdr(id, 0x14, 0x0A));
            expected.push_back(getSdr(id, record[3] == 0x01 ? 0x2F : 0x1F, 0xFF));
            images.push_back(expectedImage(record));
        }
    }
    const std::vector<RawSDR> sdrs = walk();
    EXPECT_EQ(bench.requests(), expected);
    ASSERT_EQ(sdrs.size(), images.size());
    for (std::size_t i = 0; i < sdrs.size(); ++i) EXPECT_EQ(bytesOf(sdrs[i]), images[i]) << i;
}

TEST_F(IpmiSDROperationsTest, WholeWalkSharesOneReservation) {
    for (const Bytes& record : bmcsim::sampleSdrRepository()) bmc.storeSdr(record);
    walk();
    std::size_t reservations = 0;
    for (const RecordedRequest& r : bench.requests()) {
        if (r.command == 0x22) ++reservations;
        if (r.command == 0x23) {
            EXPECT_EQ(r.data[0], 0x77);
            EXPECT_EQ(r.data[1], 0x5A);
        }
    }
    EXPECT_EQ(reservations, 1u);
}

TEST_F(IpmiSDROperationsTest, FailedReservationSendsNoGetSdr) {
    bmc.storeSdr(kFullSensor);
    for (const Fault& fault :
         {Fault::completion(0xC1), Fault::transportFailure(),
          Fault::ipmiException(0, IPMI_EXCEPTION_TIMEOUT), Fault::truncate(1)}) {
        bench.reset(bmc);
        EXPECT_TRUE(walk(1, fault).empty());
        EXPECT_EQ(bench.requests(), std::vector<RecordedRequest>{reserve()});
    }
}

TEST_F(IpmiSDROperationsTest, WalkCutShortAnywhereKeepsTheRecordsReadBefore) {
    // Three full records: requests 2-4 read the first, 5-7 the middle one, 8-10 the last.
    bmc.storeSdr(withId(kFullSensor, 1));
    bmc.storeSdr(withId(kFullSensor, 2));
    bmc.storeSdr(withId(kFullSensor, 3));
    const Fault faults[] = {Fault::completion(0xC5), Fault::transportFailure(),
                            Fault::ipmiException(0, IPMI_EXCEPTION_TRANSPORT)};
    for (const Fault& fault : faults) {
        for (std::size_t number = 2; number <= 10; ++number) {
            bench.reset(bmc);
            const std::vector<RawSDR> sdrs = walk(number, fault);
            EXPECT_EQ(sdrs.size(), (number - 2) / 3) << "fault at request " << number;
            EXPECT_EQ(bench.requests().size(), number) << "fault at request " << number;
        }
    }
}

TEST_F(IpmiSDROperationsTest, ShortPartIsAFailedReadAndNeverReadPast) {
    bmc.storeSdr(withId(kFullSensor, 1));
    bmc.storeSdr(withId(kFullSensor, 2));
    // A first or second part needs the next record ID and 10 bytes; the third at least the
    // type/length byte.
    const std::pair<std::size_t, std::size_t> cuts[] = {{2, 11}, {3, 11}, {4, 2}, {5, 0}, {6, 9}};
    for (const auto& [number, keep] : cuts) {
        bench.reset(bmc);
        const std::vector<RawSDR> sdrs = walk(number, Fault::truncate(keep));
        EXPECT_EQ(sdrs.size(), (number - 2) / 3) << "request " << number << " cut to " << keep;
    }
}

TEST_F(IpmiSDROperationsTest, ThirdPartOfJustTheTypeLengthByteStillCounts) {
    bmc.storeSdr(kFullSensor);
    const std::vector<RawSDR> sdrs = walk(4, Fault::truncate(3));
    ASSERT_EQ(sdrs.size(), 1u);
    EXPECT_EQ(sdrs[0].bytes[47], 0xC9);
    EXPECT_EQ(sdrs[0].bytes[48], 0x00);
}

TEST_F(IpmiSDROperationsTest, IdStringLongerThanTheImageIsCutAtPosition63) {
    Bytes record(kFullSensor.begin(), kFullSensor.begin() + 47);
    const std::string name = "Processor 1 Die Temperature";  // 27 characters
    record.push_back(static_cast<unsigned char>(0xC0 | name.size()));
    record.insert(record.end(), name.begin(), name.end());
    record[4] = static_cast<unsigned char>(record.size() - 5);
    bmc.storeSdr(record);
    const std::vector<RawSDR> sdrs = walk();
    ASSERT_EQ(sdrs.size(), 1u);
    EXPECT_EQ(std::string(sdrs[0].bytes + 48, sdrs[0].bytes + 64), name.substr(0, 16));
}

TEST_F(IpmiSDROperationsTest, BmcRefusingTheRestIsReadInPiecesOfWhatTheImageKeeps) {
    bmc.storeSdr(kFullSensor);
    bmc.limitSdrReads(32);
    const std::vector<RawSDR> sdrs = walk();
    // The record ends 10 bytes after offset 47.
    EXPECT_EQ(bench.requests(),
              (std::vector<RecordedRequest>{reserve(), getSdr(0x0000, 0x00, 0x0A),
                                            getSdr(0x0000, 0x14, 0x0A), getSdr(0x0000, 0x2F, 0xFF),
                                            getSdr(0x0000, 0x2F, 0x0A)}));
    ASSERT_EQ(sdrs.size(), 1u);
    EXPECT_EQ(bytesOf(sdrs[0]), expectedImage(kFullSensor));
}

TEST_F(IpmiSDROperationsTest, PiecesHalveUntilTheBmcAcceptsThem) {
    bmc.storeSdr(kFullSensor);
    bmc.limitSdrReads(4);
    // The first and second parts ask for 10 bytes: give them as a BMC that allows them would.
    bench.injectFault(2, Fault::completion(0x00, {0xFF, 0xFF, 0x02, 0x00, 0x51, 0x01, 0x34, 0x20,
                                                  0x00, 0x30, 0x03, 0x01}));
    bench.injectFault(3, Fault::completion(0x00, {0xFF, 0xFF, 0x00, 0x01, 0x00, 0x00, 0x01, 0x00,
                                                  0x00, 0x00, 0x00, 0x00}));
    const std::vector<RawSDR> sdrs = walk();
    const std::vector<RecordedRequest> third(bench.requests().begin() + 3, bench.requests().end());
    EXPECT_EQ(third, (std::vector<RecordedRequest>{
                         getSdr(0x0000, 0x2F, 0xFF), getSdr(0x0000, 0x2F, 0x0A),
                         getSdr(0x0000, 0x2F, 0x05), getSdr(0x0000, 0x2F, 0x02),
                         getSdr(0x0000, 0x31, 0x02), getSdr(0x0000, 0x33, 0x02),
                         getSdr(0x0000, 0x35, 0x02), getSdr(0x0000, 0x37, 0x02)}));
    ASSERT_EQ(sdrs.size(), 1u);
    EXPECT_EQ(std::string(sdrs[0].bytes + 48, sdrs[0].bytes + 57), "CPU1 Temp");
}

TEST_F(IpmiSDROperationsTest, OneByteRefusedEndsTheWalk) {
    bmc.storeSdr(kFullSensor);
    bmc.storeSdr(kCompactSensor);
    bmc.limitSdrReads(0);  // every Get SDR refused
    EXPECT_TRUE(walk().empty());
}

TEST_F(IpmiSDROperationsTest, GetOneSdrPartialStopsAfterTheFirstPartOfOtherRecords) {
    bmc.storeSdr(kLocator);
    bmc.storeSdr(kFullSensor);
    IpmiClient client(0ul);
    client.connect();
    RawSDR sdr;
    unsigned char nextLow = 0;
    unsigned char nextHigh = 0;
    EXPECT_TRUE(
        IpmiSDROperations(client).getOneSDRPartial(0x00, 0x00, sdr, 0x00, 0x00, nextLow, nextHigh));
    EXPECT_EQ(bench.requests().size(), 1u);
    EXPECT_EQ(nextLow, 0x02);
    EXPECT_EQ(nextHigh, 0x00);
    Bytes image(64, 0);
    std::copy(kLocator.begin(), kLocator.begin() + 10, image.begin());
    EXPECT_EQ(bytesOf(sdr), image);
}

TEST_F(IpmiSDROperationsTest, GetOneSdrPartialFailingLateKeepsWhatItRead) {
    bmc.storeSdr(kFullSensor);
    bmc.storeSdr(withId(kFullSensor, 9));
    IpmiClient client(0ul);
    client.connect();
    unsigned char low = 0;
    unsigned char high = 0;
    ASSERT_TRUE(IpmiSDROperations(client).reservationSDR(low, high));
    bench.injectFault(3, Fault::completion(0xC5));  // the second part: reservation lost
    RawSDR sdr;
    unsigned char nextLow = 0;
    unsigned char nextHigh = 0;
    EXPECT_FALSE(
        IpmiSDROperations(client).getOneSDRPartial(low, high, sdr, 0x02, 0x00, nextLow, nextHigh));
    EXPECT_EQ(nextLow, 0x09);
    EXPECT_EQ(sdr.bytes[7], 0x30);
    EXPECT_EQ(sdr.bytes[20], 0x00);
    EXPECT_EQ(sdr.bytes[21], 0x00);  // the second part was not filled
    EXPECT_EQ(bench.requests().size(), 3u);
}

TEST_F(IpmiSDROperationsTest, WalkEndsWhereTheChainComesBackToARequestedId) {
    bmc.storeSdr(withId(kFullSensor, 7));
    bmc.storeSdr(withId(kCompactSensor, 7));  // the chain points at ID 7, which names the first
    const std::vector<RawSDR> sdrs = walk();
    EXPECT_EQ(sdrs.size(), 2u);  // the first record, read as 0x0000 and as 0x0007
    EXPECT_EQ(bench.requests().size(), 1u + 3u + 3u);
    EXPECT_NE(logText().find("getTypeOneAndTwoPartialRawSDRs: the next record chain comes back "
                             "to record ID 0x0007; the walk ends there"),
              std::string::npos);
}

TEST_F(IpmiSDROperationsTest, OtherExceptionsReachTheCaller) {
    bmc.storeSdr(kFullSensor);
    IpmiClient client(0ul);
    client.connect();
    bench.injectFault(3, Fault::otherException());
    std::vector<RawSDR> sdrs;
    EXPECT_THROW(IpmiSDROperations(client).getTypeOneAndTwoPartialRawSDRs(sdrs),
                 std::runtime_error);
}

}  // namespace
