// Rendering from several threads at once, as the tool does for a fleet: the code tables and the
// builder are shared and only read. Run under ThreadSanitizer by the test script.
#include <gtest/gtest.h>

#include <thread>

#include "IpmiEventBuilder.h"
#include "RecordBytes.h"
#include "SampleServer.h"

namespace {

using Tolmar::IpmiEventBuilder;
using Tolmar::TolmarAgentless::IPMIEVENT;

// Every sample record, rendered with and without an SDR, with a filter of each severity band, and
// with the offsets beyond every table (absent keys are looked up too).
std::vector<IPMIEVENT> renderAll() {
    IpmiEventBuilder& builder = *IpmiEventBuilder::getIpmiEventBuilder();
    RawSDR sdr;
    sdr.bytes[3] = 0x01;
    sdr.bytes[8] = 0x03;
    sdr.bytes[24] = 0x01;
    std::vector<IPMIEVENT> events;
    for (const bmcsim::SelRecord& record : bmcsim::sampleEventLog()) {
        for (unsigned char offset : {0x00, 0x0E, 0x0F}) {
            RawSelEntry sel;
            std::memcpy(&sel, record.data(), sizeof sel);
            sel.eventData1 = static_cast<unsigned char>((sel.eventData1 & 0xF0) | offset);
            for (unsigned char severity : {0x02, 0x08, 0x10}) {
                RawPETEntry pet{};
                pet.eventSeverity = severity;
                events.push_back(builder.build(sel, pet, {}));
                events.push_back(builder.build(sel, sdr, pet, {}));
            }
        }
    }
    return events;
}

bool same(const std::vector<IPMIEVENT>& a, const std::vector<IPMIEVENT>& b) {
    return std::equal(a.begin(), a.end(), b.begin(), b.end(), [](const auto& x, const auto& y) {
        return x.recordId == y.recordId && x.timeStamp == y.timeStamp && x.message == y.message &&
               x.severity == y.severity && x.source == y.source && x.auxLog == y.auxLog;
    });
}

TEST(ConcurrentRendering, ThreadsRenderTheSameEventsAsOneThread) {
    const std::vector<IPMIEVENT> expected = renderAll();
    std::vector<std::vector<IPMIEVENT>> results(8);
    std::vector<std::thread> threads;
    for (auto& result : results) {
        threads.emplace_back([&result] {
            for (int round = 0; round < 5; ++round) result = renderAll();
        });
    }
    for (std::thread& t : threads) t.join();
    for (const auto& result : results) EXPECT_TRUE(same(result, expected));
}

}  // namespace
