// Reserve SEL and Reserve SDR Repository behave alike but for the command they send.
#include <gtest/gtest.h>

#include <functional>
#include <memory>

#include "BmcTest.h"
#include "IpmiEventOperations.h"
#include "IpmiSDROperations.h"

namespace {

using sim::Fault;

struct Reservation {
    const char* name;
    unsigned char command;
    std::function<bool(IpmiClient&, unsigned char&, unsigned char&)> reserve;
};

const Reservation kSel{"ReserveSel", 0x42, [](IpmiClient& c, unsigned char& lo, unsigned char& hi) {
                           return Tolmar::IpmiEventOperations(c).reservationSEL(lo, hi);
                       }};
const Reservation kSdr{"ReserveSdrRepository", 0x22,
                       [](IpmiClient& c, unsigned char& lo, unsigned char& hi) {
                           return Tolmar::IpmiSDROperations(c).reservationSDR(lo, hi);
                       }};

void PrintTo(const Reservation& reservation, std::ostream* out) { *out << reservation.name; }

class ReservationTest : public sim::BmcTest, public ::testing::WithParamInterface<Reservation> {
protected:
    void SetUp() override {
        BmcTest::SetUp();
        client_ = std::make_unique<IpmiClient>(0);
        ASSERT_EQ(client_->connect(), 0);
    }
    void TearDown() override {
        client_.reset();
        BmcTest::TearDown();
    }

    // Runs the reservation with output bytes preset to 0xEE; false and untouched bytes expected
    // on failure.
    bool reserve() { return GetParam().reserve(*client_, low, high); }

    unsigned char low = 0xEE;
    unsigned char high = 0xEE;

private:
    std::unique_ptr<IpmiClient> client_;
};

TEST_P(ReservationTest, SendsOneStorageRequestWithoutData) {
    reserve();
    ASSERT_EQ(bench.requests().size(), 1u);
    EXPECT_EQ(bench.requests()[0], request(0x0A, GetParam().command, {}));
}

TEST_P(ReservationTest, ReturnsTheReservationIdLeastSignificantByteFirst) {
    bench.injectFault(1, Fault::completion(0x00, {0x34, 0x12}));
    EXPECT_TRUE(reserve());
    EXPECT_EQ(low, 0x34);
    EXPECT_EQ(high, 0x12);
}

TEST_P(ReservationTest, ReadsOnlyTheFirstTwoResponseBytes) {
    bench.injectFault(1, Fault::completion(0x00, {0x01, 0x02, 0x03}));
    EXPECT_TRUE(reserve());
    EXPECT_EQ(low, 0x01);
    EXPECT_EQ(high, 0x02);
}

TEST_P(ReservationTest, CompletionCodeGivesFalseWithoutException) {
    bench.injectFault(1, Fault::completion(0xC1));
    bool reserved = true;
    EXPECT_NO_THROW(reserved = reserve());
    EXPECT_FALSE(reserved);
    EXPECT_EQ(low, 0xEE);
    EXPECT_EQ(high, 0xEE);
}

TEST_P(ReservationTest, TransportFailureWithCompletionCodeZeroGivesFalse) {
    bench.injectFault(1, Fault::transportFailure());
    EXPECT_FALSE(reserve());
}

TEST_P(ReservationTest, IpmiExceptionFromTheClientGivesFalse) {
    bench.injectFault(1, Fault::ipmiException(0, IPMI_EXCEPTION_TIMEOUT));
    bool reserved = true;
    EXPECT_NO_THROW(reserved = reserve());
    EXPECT_FALSE(reserved);
}

TEST_P(ReservationTest, ShortOrEmptyResponseGivesFalseAndReadsNothing) {
    bench.injectFault(1, Fault::truncate(1));
    EXPECT_FALSE(reserve());
    bench.injectFault(2, Fault::truncate(0));
    EXPECT_FALSE(reserve());
    EXPECT_EQ(low, 0xEE);
    EXPECT_EQ(high, 0xEE);
}

TEST_P(ReservationTest, OtherExceptionsReachTheCaller) {
    bench.injectFault(1, Fault::otherException());
    EXPECT_THROW(reserve(), std::runtime_error);
}

INSTANTIATE_TEST_SUITE_P(BothRepositories, ReservationTest, ::testing::Values(kSel, kSdr),
                         [](const auto& info) { return std::string(info.param.name); });

}  // namespace
