#include <gtest/gtest.h>

#include <cstring>
#include <type_traits>

#include "IpmiEventLog.h"
#include "RawSelEntry.h"

namespace {

using Tolmar::IpmiEventLog;
using Tolmar::IPMISELENTRY;
using Tolmar::TolmarAgentless::IPMIEVENT;
using Tolmar::TolmarConnection::ConnectionInfo;

TEST(ConnectionInfo, DefaultSelectsTheLocalInterfaceWithCipherSuiteThree) {
    const ConnectionInfo info;
    EXPECT_EQ(info.connectionType, 0);
    EXPECT_EQ(info.cipherSuite, 3);
    EXPECT_EQ(info.port, 0);
    EXPECT_EQ(info.ip, "");
    EXPECT_EQ(info.user, "");
    EXPECT_EQ(info.password, "");
    EXPECT_EQ(info.extra1, 0);
    EXPECT_EQ(info.extra2, 0);
    EXPECT_EQ(info.extra3, 0);
}

TEST(ConnectionInfo, FieldsHaveTheFrameworkWidths) {
    EXPECT_TRUE((std::is_same_v<decltype(ConnectionInfo::port), std::uint16_t>));
    EXPECT_TRUE((std::is_same_v<decltype(ConnectionInfo::extra1), std::uint16_t>));
    EXPECT_TRUE((std::is_same_v<decltype(ConnectionInfo::cipherSuite), std::uint16_t>));
    EXPECT_TRUE((std::is_same_v<decltype(ConnectionInfo::extra2), std::int32_t>));
    EXPECT_TRUE((std::is_same_v<decltype(ConnectionInfo::connectionType), std::int32_t>));
    EXPECT_TRUE((std::is_same_v<decltype(ConnectionInfo::extra3), std::int32_t>));
}

TEST(IPMIEVENT, HoldsAnySixteenBitRecordIdAndStartsEmpty) {
    IPMIEVENT event;
    EXPECT_EQ(event.recordId, 0ul);
    EXPECT_EQ(event.severity, 0);
    EXPECT_TRUE(event.timeStamp.empty() && event.message.empty() && event.source.empty() &&
                event.auxLog.empty());
    EXPECT_TRUE((std::is_same_v<decltype(event.recordId), unsigned long>));
    EXPECT_GE(sizeof event.recordId, 8u);
}

TEST(IPMISELENTRY, IsTheSixteenByteSelRecordWithoutPadding) {
    EXPECT_EQ(sizeof(IPMISELENTRY), 16u);
    EXPECT_TRUE(std::is_trivially_copyable_v<IPMISELENTRY>);
    EXPECT_EQ(offsetof(IPMISELENTRY, recordType), 2u);
    EXPECT_EQ(offsetof(IPMISELENTRY, timestamp), 3u);
    EXPECT_EQ(offsetof(IPMISELENTRY, generatorId), 7u);
    EXPECT_EQ(offsetof(IPMISELENTRY, evMRev), 9u);
    EXPECT_EQ(offsetof(IPMISELENTRY, sensorType), 10u);
    EXPECT_EQ(offsetof(IPMISELENTRY, sensorNum), 11u);
    EXPECT_EQ(offsetof(IPMISELENTRY, eventDirType), 12u);
    EXPECT_EQ(offsetof(IPMISELENTRY, eventData1), 13u);
    EXPECT_EQ(offsetof(IPMISELENTRY, eventData3), 15u);
}

TEST(IPMISELENTRY, RoundTripsThroughRawSelEntryUnchanged) {
    IPMISELENTRY original;
    for (unsigned i = 0; i < sizeof original; ++i) {
        reinterpret_cast<unsigned char*>(&original)[i] = static_cast<unsigned char>(0xA0 + i);
    }
    RawSelEntry raw;
    std::memcpy(&raw, &original, sizeof raw);
    const IPMISELENTRY back = raw.toIpmiSelEntry();
    EXPECT_EQ(std::memcmp(&back, &original, sizeof back), 0);
}

TEST(ResultCode, HasTheFrameworkValues) {
    EXPECT_EQ(IpmiEventLog::EL_SUCCESS, 0);
    EXPECT_EQ(IpmiEventLog::EL_NOT_SUPPORTED, 1);
    EXPECT_EQ(IpmiEventLog::EL_BUSY, 2);
    EXPECT_EQ(IpmiEventLog::EL_CONNECTION_FAIL, 3);
    EXPECT_EQ(IpmiEventLog::EL_AUTHTICATION_FAIL, 4);
    EXPECT_EQ(IpmiEventLog::EL_NOT_FOUND, 5);
    EXPECT_EQ(IpmiEventLog::EL_INTERNAL_FAIL, 6);
}

}  // namespace
