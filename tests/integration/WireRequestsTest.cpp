// The datagrams a decoded event log costs on the wire, counted by a forwarder between the library
// and ipmi_sim: the session's handshake and close, and then only the requests the log needs.
#include <gtest/gtest.h>

#include <chrono>

#include "IpmiClientActivity.h"
#include "IpmiEventLog.h"
#include "LanFixture.h"
#include "LossyLink.h"

namespace {

using Tolmar::IpmiEventLog;
using Tolmar::TolmarAgentless::IPMIEVENT;

// FreeIPMI's RMCP+ session: Get Channel Authentication Capabilities, Open Session, RAKP 1,
// RAKP 3 and Set Session Privilege Level to open it, Close Session to end it.
constexpr unsigned long kSessionDatagrams = 6;
// ipmi_sim's event filter table has 15 entries, whatever the sample server configured in them.
constexpr unsigned long kFilterTableSize = 15;

// Get SDR requests for the whole repository: full and compact sensor records are read in three
// parts (header, the bytes before the ID string, the ID string), every other record whole.
unsigned long sdrReads() {
    constexpr unsigned char fullSensor = 0x01;
    constexpr unsigned char compactSensor = 0x02;
    unsigned long reads = 0;
    for (const bmcsim::SdrRecord& record : bmcsim::sampleSdrRepository()) {
        const unsigned char type = record.at(3);
        reads += type == fullSensor || type == compactSensor ? 3 : 1;
    }
    return reads;
}

class WireRequestsTest : public bmcsim::LanTest {
protected:
    void SetUp() override {
        LanTest::SetUp();
        bmc->setEventFilters(bmcsim::sampleEventFilters());
        bmc->addSelRecords(bmcsim::sampleEventLog());
    }

    // One handshake at a chosen level, so no search.
    bmcsim::ScopedEnvironment privilege{"TOLMAR_IPMI_PRIVILEGE", "admin"};
};

TEST_F(WireRequestsTest, DecodedEventLogSendsTheSessionAndTheMinimumOfRequests) {
    bmcsim::LossyLink link(bmc->port(), 0.0, std::chrono::microseconds(0));
    Tolmar::TolmarConnection::ConnectionInfo info = connection();
    info.port = link.port();
    IpmiEventLog log(info);
    std::vector<IPMIEVENT> events;
    const IpmiClientActivity before = ipmiClientActivity();
    ASSERT_EQ(log.GetAllIpmiEventLog(events), 0);
    const IpmiClientActivity after = ipmiClientActivity();

    const unsigned long selRecords = bmcsim::sampleEventLog().size();
    ASSERT_EQ(events.size(), selRecords);
    // One Get SEL Entry a record; the filter count and each filter; Reserve SDR Repository and the
    // SDR reads; Get Auxiliary Log Status, which finds the log empty.
    const unsigned long minimum = selRecords + 1 + kFilterTableSize + 1 + sdrReads() + 1;
    EXPECT_EQ(after.requests - before.requests, minimum);
    EXPECT_EQ(after.selEntries - before.selEntries, selRecords);
    EXPECT_EQ(link.clientDatagrams(), minimum + kSessionDatagrams);
}

// The benchmark's "time of its own per exchange": every datagram of the client but its first
// follows an answer, and each gap is counted once.
TEST_F(WireRequestsTest, ForwarderTimesTheClientBetweenEachAnswerAndItsNextRequest) {
    bmcsim::LossyLink link(bmc->port(), 0.0, std::chrono::microseconds(0));
    Tolmar::TolmarConnection::ConnectionInfo info = connection();
    info.port = link.port();
    std::vector<IPMIEVENT> events;
    ASSERT_EQ(IpmiEventLog(info).GetAllIpmiEventLog(events), 0);

    const std::vector<double> turnarounds = link.takeClientTurnarounds();
    EXPECT_EQ(turnarounds.size(), link.clientDatagrams() - 1);
    for (double seconds : turnarounds) {
        EXPECT_GT(seconds, 0.0);
        EXPECT_LT(seconds, 1.0);
    }
    EXPECT_TRUE(link.takeClientTurnarounds().empty());
}

}  // namespace
