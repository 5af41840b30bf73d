// SdrRepositoryRead against the in-memory BMC: every record whole, from BMCs that cannot send a
// record at once, that overstate a record's length, that change the repository under the
// reservation or loop their chain; and the sensor images made of whole records, byte for byte
// those the renderer's partial reads give.
#include "SdrRepositoryRead.h"

#include <gtest/gtest.h>

#include <cstring>
#include <memory>

#include "BmcTest.h"
#include "IpmiSDROperations.h"
#include "SmallBmc.h"

namespace {

using sim::Fault;
using sim::RecordedRequest;
using Tolmar::IpmiSDROperations;
using Tolmar::SdrRepositoryRead;
using Records = std::vector<std::vector<std::uint8_t>>;

// "FAN1", an event-only record (type 03h, ID 0x0003): its ID string ends the record.
const std::vector<unsigned char> kEventOnly = {
    0x03, 0x00, 0x51, 0x03, 0x10,  // record ID, SDR version, type 03h, 16 bytes follow
    0x20, 0x00, 0x40, 0x1D, 0x01,  // owner 0x20, LUN 0, sensor 0x40, fan 1
    0x04, 0x6F, 0x00, 0x00, 0x00,  // fan, sensor-specific, no sharing, reserved
    0x00,                          // OEM
    0xC4, 'F',  'A',  'N',  '1'};

class SdrRepositoryReadTest : public sim::BmcTest {
protected:
    void SetUp() override {
        BmcTest::SetUp();
        bmc.storeSdr(sim::kCpuTemp);
        bmc.storeSdr(sim::kPs1);
        bmc.storeSdr(kEventOnly);
        client = std::make_unique<IpmiClient>(0ul);
        ASSERT_EQ(client->connect(), 0);
    }
    void TearDown() override {
        client.reset();
        BmcTest::TearDown();
    }

    // A whole read; the requests it sent.
    std::vector<RecordedRequest> readAll(Records& records, bool complete = true) {
        const std::size_t before = bench.requests().size();
        EXPECT_EQ(SdrRepositoryRead(*client).readAll(records), complete);
        return {bench.requests().begin() + static_cast<long>(before), bench.requests().end()};
    }
    static Records stored() {
        return {{sim::kCpuTemp.begin(), sim::kCpuTemp.end()},
                {sim::kPs1.begin(), sim::kPs1.end()},
                {kEventOnly.begin(), kEventOnly.end()}};
    }
    static RecordedRequest getSdr(unsigned id, unsigned char offset, unsigned char count) {
        return request(0x0A, 0x23,
                       {0x01, 0x00, static_cast<unsigned char>(id),
                        static_cast<unsigned char>(id >> 8), offset, count});
    }
    static std::size_t count(const std::vector<RecordedRequest>& requests, unsigned char command) {
        return std::count_if(requests.begin(), requests.end(),
                             [&](const RecordedRequest& r) { return r.command == command; });
    }

    std::unique_ptr<IpmiClient> client;
};

TEST_F(SdrRepositoryReadTest, EveryRecordIsReadWholeAsItsHeaderThenItsRest) {
    Records records;
    const auto requests = readAll(records);
    EXPECT_EQ(records, stored());
    EXPECT_EQ(requests, (std::vector<RecordedRequest>{request(0x0A, 0x22, {}), getSdr(0x0000, 0, 5),
                                                      getSdr(0x0001, 5, 0x34), getSdr(0x0002, 0, 5),
                                                      getSdr(0x0002, 5, 0x25), getSdr(0x0003, 0, 5),
                                                      getSdr(0x0003, 5, 0x10)}));
}

TEST_F(SdrRepositoryReadTest, ABmcThatCannotSendARecordAtOnceIsAskedInHalvedPieces) {
    bmc.limitSdrReads(16);
    Records records;
    const auto requests = readAll(records);
    EXPECT_EQ(records, stored());
    // 52 bytes refused, and "the rest" too; 26, then 13, fit.
    EXPECT_EQ(std::vector<RecordedRequest>(requests.begin() + 2, requests.begin() + 9),
              (std::vector<RecordedRequest>{getSdr(0x0001, 5, 0x34), getSdr(0x0001, 5, 0xFF),
                                            getSdr(0x0001, 5, 0x1A), getSdr(0x0001, 5, 0xFF),
                                            getSdr(0x0001, 5, 0x0D), getSdr(0x0001, 18, 0x0D),
                                            getSdr(0x0001, 31, 0x0D)}));
}

TEST_F(SdrRepositoryReadTest, ARecordWhoseHeaderOverstatesItsLengthIsTakenAsFarAsItGoes) {
    bmc.overstateSdrLength(0x0002, 3);
    Records records;
    readAll(records);
    // As the BMC gave it: its header's length, and the bytes there are.
    Records expected = stored();
    expected[1][4] += 3;
    EXPECT_EQ(records, expected);
}

TEST_F(SdrRepositoryReadTest, ARepositoryChangedUnderTheReservationIsReadAgainUnderANewOne) {
    // The fourth request (record 2's header) is refused: the reservation was cancelled.
    bench.injectFault(bench.requests().size() + 4, Fault::completion(0xC5));
    Records records;
    const auto requests = readAll(records);
    EXPECT_EQ(records, stored());
    EXPECT_EQ(count(requests, 0x22), 2u);
}

TEST_F(SdrRepositoryReadTest, AWalkThatEndsEarlyIsNotCompleteAndKeepsWhatItRead) {
    bmc.refuseSdr(0x0002, 0xCB);
    Records records;
    readAll(records, false);
    Records expected = stored();
    expected.resize(1);
    EXPECT_EQ(records, expected);
}

TEST_F(SdrRepositoryReadTest, AChainThatComesBackToARecordEndsThereNotComplete) {
    bmc.continueSdrChainWith(0x0001);
    Records records;
    const auto requests = readAll(records, false);
    EXPECT_EQ(records, stored());
    EXPECT_EQ(count(requests, 0x23), 6u);
}

TEST_F(SdrRepositoryReadTest, SensorImagesOfWholeRecordsAreThoseOfThePartialReads) {
    for (const bool limited : {false, true}) {
        // Pieces of 12 bytes at most: the partial reads' 10-byte parts fit, ID strings do not.
        if (limited) bmc.limitSdrReads(12);
        Records records;
        readAll(records);
        std::vector<RawSDR> partial;
        IpmiSDROperations(*client).getTypeOneAndTwoPartialRawSDRs(partial);
        const std::vector<RawSDR> images = Tolmar::sensorImagesOf(records);
        ASSERT_EQ(images.size(), 2u);
        ASSERT_EQ(partial.size(), images.size());
        for (std::size_t i = 0; i < images.size(); ++i)
            EXPECT_EQ(std::memcmp(images[i].bytes, partial[i].bytes, RawSDR::size), 0) << i;
    }
}

}  // namespace
