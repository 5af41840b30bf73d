// IpmiEventFollower against the in-memory BMC: the requests of each kind of poll, the events it
// renders (the same as the whole log's), a cleared SEL and a changed SDR repository, a BMC without
// Get SEL Info, and its state saved, restored, and refused when foreign or damaged.
#include <gtest/gtest.h>

#include <fstream>
#include <optional>
#include <sstream>
#include <type_traits>

#include "BmcTest.h"
#include "EventAssertions.h"
#include "IpmiEventFollower.h"
#include "IpmiEventLog.h"
#include "ScratchDirectory.h"
#include "SmallBmc.h"

namespace {

using sim::RecordedRequest;
using sim::selRecord;
using Tolmar::IpmiEventFollower;
using Tolmar::IpmiEventLog;
using Tolmar::kAuxLogEnterpriseNumber;
using Tolmar::PollResult;
using Tolmar::TolmarAgentless::IPMIEVENT;

// A fourth event: PS1 failure deasserted.
const sim::SimulatedBmc::SelRecord kFourth = selRecord(
    0x0004, {0x02, 0xB4, 0x00, 0x00, 0x55, 0x20, 0x00, 0x04, 0x08, 0x60, 0xEF, 0x01, 0xFF, 0xFF});

class IpmiEventFollowerTest : public sim::BmcTest {
protected:
    void SetUp() override {
        BmcTest::SetUp();
        bmc.setAuxLogEnterprise(kAuxLogEnterpriseNumber);
        sim::stockSmallBmc(bmc);
    }

    // One poll; the requests it sent.
    std::vector<RecordedRequest> poll(IpmiEventFollower& follower, std::vector<IPMIEVENT>& events,
                                      int expected = IpmiEventLog::EL_SUCCESS) {
        const std::size_t before = bench.requests().size();
        last = follower.Poll(events);
        EXPECT_EQ(last.result, expected);
        return {bench.requests().begin() + static_cast<long>(before), bench.requests().end()};
    }

    // What the whole log gives now.
    std::vector<IPMIEVENT> wholeLog() {
        std::vector<IPMIEVENT> events;
        EXPECT_EQ(IpmiEventLog(sim::lanConnection()).GetAllIpmiEventLog(events), 0);
        return events;
    }

    static RecordedRequest getSelInfo() { return request(0x0A, 0x40, {}); }
    static RecordedRequest getSdrRepositoryInfo() { return request(0x0A, 0x20, {}); }
    static RecordedRequest getSel(unsigned id) {
        return request(
            0x0A, 0x43,
            {0, 0, static_cast<unsigned char>(id), static_cast<unsigned char>(id >> 8), 0, 0xFF});
    }
    // The filters and the auxiliary log's status, asked for every poll that renders new records.
    static std::vector<RecordedRequest> filtersAndAuxiliaryLogStatus() {
        return {request(0x04, 0x13, {0x05, 0x00, 0x00}), request(0x04, 0x13, {0x06, 0x01, 0x00}),
                request(0x0A, 0x5A, {0x01})};
    }
    static std::size_t sdrReads(const std::vector<RecordedRequest>& requests) {
        return std::count_if(requests.begin(), requests.end(),
                             [](const RecordedRequest& r) { return r.command == 0x23; });
    }

    IpmiEventFollower follower{sim::lanConnection()};
    PollResult last;  // of the last poll
    std::vector<IPMIEVENT> events_;
};

TEST_F(IpmiEventFollowerTest, TheFirstPollRendersEveryRecordAsTheWholeLogDoes) {
    std::vector<IPMIEVENT> events;
    poll(follower, events);
    sim::expectSameEvents(events, sim::smallBmcEvents());
    EXPECT_FALSE(last.restarted);
    EXPECT_TRUE(last.complete);
}

// A timestamped OEM record (C0h) of manufacturer 000157h whose OEM bytes look like record 2's
// sensor fields (a power supply failure), which the power supply filter is about.
const sim::SimulatedBmc::SelRecord kOemLookingLikeAFailure = selRecord(
    0x0004, {0xC0, 0xB4, 0x00, 0x00, 0x55, 0x57, 0x01, 0x00, 0x08, 0x60, 0x6F, 0x01, 0xFF, 0xFF});

std::vector<IPMIEVENT> eventsOf(const std::vector<Tolmar::FollowedEvent>& followed) {
    std::vector<IPMIEVENT> events;
    for (const Tolmar::FollowedEvent& one : followed) events.push_back(one.event);
    return events;
}

TEST_F(IpmiEventFollowerTest, TheIpmiRenderingSaysWhatTheBytesMeanWithTheFiltersSeverity) {
    bmc.storeSelRecord(kOemLookingLikeAFailure);
    std::vector<Tolmar::FollowedEvent> followed;
    last = follower.Poll(followed);
    ASSERT_EQ(followed.size(), 4u);
    const Tolmar::FollowedEvent& temperature = followed[0];
    EXPECT_EQ(temperature.entry.recordId[0], 0x01);
    EXPECT_EQ(temperature.entry.eventData3, 0x50);
    EXPECT_EQ(temperature.record.sensorName, std::optional<std::string>("CPU1 Temp"));
    EXPECT_EQ(temperature.event.recordId, 1u);
    EXPECT_EQ(temperature.event.timeStamp, "2015-03-11 08:42:40 UTC");
    EXPECT_EQ(temperature.event.source, "Temperature CPU1 Temp");
    // Threshold offset 9, trigger reading 5Ah and threshold 50h with M = 1: 90 and 80 degrees C.
    EXPECT_EQ(temperature.event.message,
              "Upper Critical going high | Asserted | Trigger reading = 90.00 degrees C ; "
              "Trigger threshold = 80.00 degrees C");
    EXPECT_EQ(temperature.event.severity, 0);
    EXPECT_EQ(temperature.event.auxLog, "No Extended Data");
    // The power supply filter's severity, critical; record 3's auxiliary entry.
    EXPECT_EQ(followed[1].event.severity, 2);
    EXPECT_EQ(followed[1].event.source, "Power Supply PS1 Status");
    EXPECT_EQ(followed[2].event.auxLog, sim::kMemoryAux);
    // An OEM record is about no sensor and matches no filter, whatever its bytes look like.
    const Tolmar::FollowedEvent& oem = followed[3];
    EXPECT_EQ(oem.record.kind, Tolmar::DecodedSelRecord::Kind::TimestampedOem);
    EXPECT_EQ(oem.record.manufacturerId, 0x000157u);
    EXPECT_EQ(oem.event.source, "OEM record C0h");
    EXPECT_EQ(oem.event.message, "Intel (343) | 08 60 6f 01 ff ff");
    EXPECT_EQ(oem.event.severity, 0);
}

TEST_F(IpmiEventFollowerTest, OemCodesAreWordedAsTheBmcsManufacturerLaysThemOut) {
    // A Dell BMC (674); a processor event whose OEM codes name CPU 3 (byte 2, bit 2) and its APIC
    // ID (byte 3), as Dell lays them out.
    bmc.setDeviceIdentity(674, 0x0100);
    bmc.storeSelRecord(selRecord(0x0004, {0x02, 0xB4, 0x00, 0x00, 0x55, 0x20, 0x00, 0x04, 0x07,
                                          0x60, 0x6F, 0xA0, 0x04, 0x01}));
    std::vector<Tolmar::FollowedEvent> followed;
    const std::size_t before = bench.requests().size();
    last = follower.Poll(followed);
    ASSERT_EQ(followed.size(), 4u);
    EXPECT_EQ(followed[3].record.details, (std::vector<std::string>{"CPU 3", "APIC ID = 1"}));
    // Asked once: the next poll's new record is decoded with what the BMC said then.
    EXPECT_EQ(std::count(bench.requests().begin() + static_cast<long>(before),
                         bench.requests().end(), request(0x06, 0x01, {})),
              1);
    bmc.storeSelRecord(selRecord(0x0005, {0x02, 0xF0, 0x00, 0x00, 0x55, 0x20, 0x00, 0x04, 0x07,
                                          0x60, 0x6F, 0xA0, 0x01, 0x02}));
    followed.clear();
    const std::size_t second = bench.requests().size();
    last = follower.Poll(followed);
    ASSERT_EQ(followed.size(), 1u);
    EXPECT_EQ(followed[0].record.details, (std::vector<std::string>{"CPU 1", "APIC ID = 2"}));
    EXPECT_EQ(std::count(bench.requests().begin() + static_cast<long>(second),
                         bench.requests().end(), request(0x06, 0x01, {})),
              0);
}

TEST_F(IpmiEventFollowerTest, TheDescribedRenderingIsTheWholeLogsWithTheSameRecordsBeside) {
    follower.SetRendering(Tolmar::EventRendering::Described);
    std::vector<Tolmar::FollowedEvent> followed;
    last = follower.Poll(followed);
    sim::expectSameEvents(eventsOf(followed), sim::smallBmcEvents());
    ASSERT_EQ(followed.size(), 3u);
    EXPECT_EQ(followed[1].record.source, "Power Supply PS1 Status");
    // And the poll moved the follower on as any poll does.
    std::vector<IPMIEVENT> events;
    EXPECT_EQ(poll(follower, events), std::vector<RecordedRequest>{getSelInfo()});
}

TEST_F(IpmiEventFollowerTest, APollThatFindsNothingNewAsksOnlyForTheSelInfoInOneSession) {
    std::vector<IPMIEVENT> events;
    poll(follower, events);
    events.clear();
    const std::size_t clientsBefore = bench.constructions().size();
    EXPECT_EQ(poll(follower, events), std::vector<RecordedRequest>{getSelInfo()});
    EXPECT_TRUE(events.empty());
    EXPECT_EQ(bench.constructions().size(), clientsBefore + 1);
    EXPECT_EQ(bench.liveClients(), 0u);
}

TEST_F(IpmiEventFollowerTest, NewRecordsAreReadFromTheLastOneAndRenderedAsTheWholeLogDoes) {
    std::vector<IPMIEVENT> events;
    poll(follower, events);
    bmc.storeSelRecord(kFourth);
    events.clear();
    // The auxiliary entry read at the first poll is not read again.
    std::vector<RecordedRequest> expected = {getSelInfo(), getSel(0x0003), getSel(0x0004),
                                             getSdrRepositoryInfo()};
    const auto rest = filtersAndAuxiliaryLogStatus();
    expected.insert(expected.end(), rest.begin(), rest.end());
    EXPECT_EQ(poll(follower, events), expected);
    const std::vector<IPMIEVENT> all = wholeLog();
    ASSERT_EQ(all.size(), 4u);
    sim::expectSameEvents(events, {all[3]});
}

TEST_F(IpmiEventFollowerTest, OnlyAuxiliaryEntriesAddedSinceTheLastPollAreRead) {
    std::vector<IPMIEVENT> events;
    poll(follower, events);
    bmc.storeSelRecord(kFourth);
    auto entry = bmcsim::sampleAuxiliaryLog().front();
    entry.selRecordId = 0x0004;
    bmc.addAuxLogEntry(bmcsim::auxLogRecord(entry));
    events.clear();
    // Entry 2 alone: its length, then its bytes in two chunks.
    std::vector<unsigned char> entriesRead;
    for (const RecordedRequest& r : poll(follower, events)) {
        if (r.command == 0x93) entriesRead.push_back(r.data[3]);
    }
    EXPECT_EQ(entriesRead, (std::vector<unsigned char>{2, 2, 2}));
    sim::expectSameEvents(events, {wholeLog()[3]});
    EXPECT_NE(events[0].auxLog, "No Extended Data");
}

TEST_F(IpmiEventFollowerTest, SensorRecordsAreReadAgainOnlyWhenTheRepositoryChanged) {
    std::vector<IPMIEVENT> events;
    poll(follower, events);
    bmc.storeSelRecord(kFourth);
    EXPECT_EQ(sdrReads(poll(follower, events)), 0u);
    bmc.storeSelRecord(selRecord(0x0005, {0x02, 0xF0, 0x00, 0x00, 0x55, 0x20, 0x00, 0x04, 0x01,
                                          0x30, 0x01, 0x59, 0x5A, 0x50}));
    bmc.storeSdr(sim::kPs1);  // the repository changed
    events.clear();
    EXPECT_GT(sdrReads(poll(follower, events)), 0u);
    const std::vector<IPMIEVENT> all = wholeLog();
    sim::expectSameEvents(events, {all.back()});
}

TEST_F(IpmiEventFollowerTest, ChangesInTheSecondOfTheLastPollAreToldByTheRecordCounts) {
    std::vector<IPMIEVENT> events;
    poll(follower, events);
    bmc.changeWithinTheSameSecond(true);
    bmc.storeSelRecord(kFourth);
    bmc.storeSdr(sim::kPs1);
    events.clear();
    EXPECT_GT(sdrReads(poll(follower, events)), 0u);
    sim::expectSameEvents(events, {wholeLog().back()});
}

TEST_F(IpmiEventFollowerTest, AClearedSelIsReadFromItsFirstRecord) {
    std::vector<IPMIEVENT> events;
    poll(follower, events);
    for (unsigned id : {1u, 2u, 3u}) bmc.removeSelRecord(static_cast<std::uint16_t>(id));
    bmc.storeSelRecord(kFourth);
    events.clear();
    const auto requests = poll(follower, events);
    // Each record emitted is looked for, newest first; none is left.
    EXPECT_EQ(std::vector<RecordedRequest>(requests.begin(), requests.begin() + 5),
              (std::vector<RecordedRequest>{getSelInfo(), getSel(0x0003), getSel(0x0002),
                                            getSel(0x0001), getSel(0x0000)}));
    EXPECT_TRUE(last.restarted);
    EXPECT_TRUE(last.cleared);
    sim::expectSameEvents(events, wholeLog());
}

TEST_F(IpmiEventFollowerTest, WithoutGetSelInfoEachPollWalksOnFromTheLastRecord) {
    bmc.answerRepositoryInfo(false);
    std::vector<IPMIEVENT> events;
    poll(follower, events);
    events.clear();
    EXPECT_EQ(poll(follower, events), (std::vector<RecordedRequest>{getSelInfo(), getSel(0x0003)}));
    EXPECT_TRUE(events.empty());
}

TEST_F(IpmiEventFollowerTest, AReadCutShortIsTakenUpAtTheNextPoll) {
    std::vector<IPMIEVENT> events;
    // Get SEL Info, then the SEL's first two records; the third read fails.
    bench.injectFault(4, sim::Fault::transportFailure());
    poll(follower, events);
    EXPECT_FALSE(last.complete);
    EXPECT_EQ(last.entriesRead, 2u);
    EXPECT_EQ(last.call.requestsUnanswered, 1u);
    EXPECT_EQ(last.failure, "BMC stopped answering after 2 SEL entries");
    EXPECT_EQ(events.size(), 2u);
    const auto requests = poll(follower, events);
    EXPECT_TRUE(last.complete);
    EXPECT_EQ(last.entriesRead, 1u);
    EXPECT_EQ(last.failure, "");
    EXPECT_EQ(std::vector<RecordedRequest>(requests.begin(), requests.begin() + 3),
              (std::vector<RecordedRequest>{getSelInfo(), getSel(0x0002), getSel(0x0003)}));
    sim::expectSameEvents(events, sim::smallBmcEvents());
}

TEST_F(IpmiEventFollowerTest, ARefusedConnectionLeavesTheStateAsItWas) {
    std::vector<IPMIEVENT> events;
    poll(follower, events);
    bench.setConnectStatus(2);
    events.clear();
    EXPECT_TRUE(poll(follower, events, IpmiEventLog::EL_AUTHTICATION_FAIL).empty());
    EXPECT_EQ(last.failure, "the BMC refused the credentials");
    bench.setConnectStatus(1);
    poll(follower, events, IpmiEventLog::EL_CONNECTION_FAIL);
    EXPECT_EQ(last.failure, "no IPMI session could be opened");
    bench.setConnectStatus(0);
    bench.throwOnConnect(IpmiException(1, IPMI_EXCEPTION_UNKNOWN));
    EXPECT_TRUE(poll(follower, events, IpmiEventLog::EL_INTERNAL_FAIL).empty());
    bench.reset(bmc);
    EXPECT_EQ(poll(follower, events), std::vector<RecordedRequest>{getSelInfo()});
}

TEST_F(IpmiEventFollowerTest, APollThatARefusalEndsSaysTheBmcsAnswerByName) {
    std::vector<IPMIEVENT> events;
    // Get SEL Info, then the SEL's first record, refused.
    bench.injectFault(2, sim::Fault::completion(0xD4));
    poll(follower, events);
    EXPECT_FALSE(last.complete);
    EXPECT_EQ(last.call.refusedCompletionCode, 0xD4);
    EXPECT_EQ(last.call.refusal, "the BMC answered D4h (insufficient privilege level)");
}

static_assert(std::is_nothrow_move_constructible_v<IpmiEventFollower> &&
                  std::is_nothrow_move_assignable_v<IpmiEventFollower>,
              "a follower moves, as a std::vector of them needs");

TEST_F(IpmiEventFollowerTest, FollowersKeptInAVectorGoOnEachFromItsOwnState) {
    std::vector<IPMIEVENT> events;
    poll(follower, events);
    std::vector<IpmiEventFollower> followers;
    followers.emplace_back(sim::lanConnection());
    followers.push_back(std::move(follower));  // the vector grows: the first moves too
    events.clear();
    EXPECT_EQ(poll(followers[1], events), std::vector<RecordedRequest>{getSelInfo()});
    EXPECT_TRUE(events.empty());
    poll(followers[0], events);
    sim::expectSameEvents(events, sim::smallBmcEvents());
    IpmiEventFollower assigned = std::move(followers[0]);
    events.clear();
    EXPECT_EQ(poll(assigned, events), std::vector<RecordedRequest>{getSelInfo()});
}

// A system event with record ID `id`, stamped `stamp`.
sim::SimulatedBmc::SelRecord eventStamped(std::uint16_t id, std::uint32_t stamp) {
    return selRecord(
        id, {0x02, static_cast<unsigned char>(stamp), static_cast<unsigned char>(stamp >> 8),
             static_cast<unsigned char>(stamp >> 16), static_cast<unsigned char>(stamp >> 24), 0x20,
             0x00, 0x04, 0x08, 0x60, 0x6F, 0x01, 0xFF, 0xFF});
}

// A system event with record ID `id`, stamped `id` minutes after the small BMC's events.
sim::SimulatedBmc::SelRecord eventNumbered(std::uint16_t id) {
    return eventStamped(id, 0x55001000 + 60u * id);
}

class SelChangesTest : public IpmiEventFollowerTest {
protected:
    // Polls; the record IDs of the events it brought.
    std::vector<unsigned long> polledIds() {
        std::vector<IPMIEVENT> events;
        poll(follower, events);
        std::vector<unsigned long> ids;
        for (const IPMIEVENT& event : events) ids.push_back(event.recordId);
        return ids;
    }
    void clearSel() { ASSERT_EQ(IpmiEventLog(sim::lanConnection()).DeleteAllEventLog(), 0); }
    // Add SEL Entry with `record`'s bytes: the BMC gives the ID.
    sim::BmcResponse add(const sim::SimulatedBmc::SelRecord& record) {
        return bmc.handle(0x0A, 0x44, {record.begin(), record.end()});
    }
    // Stores the records numbered `from` to `to`.
    void storeNumbered(std::uint16_t from, std::uint16_t to) {
        for (std::uint16_t id = from; id <= to; ++id) bmc.storeSelRecord(eventNumbered(id));
    }
    static std::vector<unsigned long> idsFrom(unsigned long from, unsigned long to) {
        std::vector<unsigned long> ids;
        for (unsigned long id = from; id <= to; ++id) ids.push_back(id);
        return ids;
    }
    static std::size_t selEntryReads(const std::vector<RecordedRequest>& requests) {
        return std::count_if(requests.begin(), requests.end(),
                             [](const RecordedRequest& r) { return r.command == 0x43; });
    }

    using Ids = std::vector<unsigned long>;
};

TEST_F(SelChangesTest, AnEmptySelIsACompletePollWithNothingNew) {
    clearSel();
    for (bool infoAnswered : {true, false}) {
        bmc.answerRepositoryInfo(infoAnswered);
        IpmiEventFollower fresh(sim::lanConnection());
        std::vector<IPMIEVENT> events;
        const auto requests = poll(fresh, events);
        EXPECT_TRUE(events.empty());
        EXPECT_TRUE(last.complete) << infoAnswered;
        EXPECT_EQ(last.failure, "");
        EXPECT_FALSE(last.cleared);
        // Get SEL Info's record count of 0 says it without a Get SEL Entry; without it, CBh for
        // the first record does.
        EXPECT_EQ(requests.size(), infoAnswered ? 1u : 2u);
    }
}

TEST_F(SelChangesTest, AClearIsSaidOnceAndARecordAddedAfterItComesOnce) {
    EXPECT_EQ(polledIds(), (Ids{1, 2, 3}));
    clearSel();
    EXPECT_EQ(polledIds(), Ids{});
    EXPECT_TRUE(last.cleared);
    EXPECT_TRUE(last.complete);
    EXPECT_EQ(polledIds(), Ids{});
    EXPECT_FALSE(last.cleared);
    // The BMC starts its record IDs again at 1.
    bmc.storeSelRecord(eventNumbered(1));
    EXPECT_EQ(polledIds(), Ids{1});
    EXPECT_FALSE(last.cleared);
    EXPECT_EQ(polledIds(), Ids{});
}

TEST_F(SelChangesTest, AClearAndAdditionsBetweenTwoPollsGiveTheAdditionsOnce) {
    EXPECT_EQ(polledIds(), (Ids{1, 2, 3}));
    clearSel();
    bmc.storeSelRecord(eventNumbered(1));  // the ID of a record emitted before, another record
    bmc.storeSelRecord(eventNumbered(2));
    EXPECT_EQ(polledIds(), (Ids{1, 2}));
    EXPECT_TRUE(last.cleared);
    EXPECT_EQ(polledIds(), Ids{});
}

TEST_F(SelChangesTest, ARecordAddedAfterAClearComesOnceWhateverItsTimeStamp) {
    for (std::uint16_t id = 4; id <= 10; ++id) bmc.storeSelRecord(eventNumbered(id));
    EXPECT_EQ(polledIds().size(), 10u);
    clearSel();
    // The BMC's clock was set back: the new record is stamped before those emitted.
    bmc.storeSelRecord(kFourth);
    EXPECT_EQ(polledIds(), Ids{4});
    EXPECT_TRUE(last.cleared);
}

TEST_F(SelChangesTest, DeletingTheNewestRecordEmitsNothingAgain) {
    EXPECT_EQ(polledIds(), (Ids{1, 2, 3}));
    bmc.removeSelRecord(3);
    EXPECT_EQ(polledIds(), Ids{});
    EXPECT_FALSE(last.cleared);
    EXPECT_TRUE(last.complete);
    bmc.storeSelRecord(kFourth);
    const auto requests = poll(follower, events_);
    EXPECT_EQ(events_.size(), 1u);
    // The deleted record is looked for no more: the walk starts at the one before it.
    EXPECT_EQ(requests[1], getSel(0x0002));
}

TEST_F(SelChangesTest, DeletingAMiddleRecordOrManyEmitsNothingAgain) {
    for (std::uint16_t id = 4; id <= 150; ++id) bmc.storeSelRecord(eventNumbered(id));
    EXPECT_EQ(polledIds().size(), 150u);
    bmc.removeSelRecord(75);
    EXPECT_EQ(polledIds(), Ids{});
    // More than the follower remembers, the newest among them: the older records left were
    // emitted before, by their time stamps.
    for (std::uint16_t id = 60; id <= 150; ++id) bmc.removeSelRecord(id);
    EXPECT_EQ(polledIds(), Ids{});
    EXPECT_FALSE(last.cleared);
    EXPECT_TRUE(last.restarted);
    bmc.storeSelRecord(eventNumbered(151));
    EXPECT_EQ(polledIds(), Ids{151});
}

TEST_F(SelChangesTest, ARecordRewrittenInPlaceIsNotEmittedAgain) {
    EXPECT_EQ(polledIds(), (Ids{1, 2, 3}));
    // Record 3's event turned into a deassertion, as some BMCs mark an event resolved.
    sim::SimulatedBmc::SelRecord resolved = bmc.selRecords().back();
    resolved[12] |= 0x80;
    bmc.removeSelRecord(3);
    bmc.storeSelRecord(resolved);
    EXPECT_EQ(polledIds(), Ids{});
    bmc.storeSelRecord(kFourth);
    EXPECT_EQ(polledIds(), Ids{4});
}

TEST_F(SelChangesTest, AnEraseInProgressIsACompletePollThatLooksAgainNextTime) {
    EXPECT_EQ(polledIds(), (Ids{1, 2, 3}));
    bmc.storeSelRecord(kFourth);
    // Get SEL Info, then Get SEL Entry for record 3, answered 81h.
    bench.injectFault(bench.requests().size() + 2, sim::Fault::completion(0x81));
    EXPECT_EQ(polledIds(), Ids{});
    EXPECT_TRUE(last.complete);
    EXPECT_EQ(last.failure, "");
    EXPECT_EQ(polledIds(), Ids{4});
}

TEST_F(SelChangesTest, AnEraseBegunAfterNewRecordsWereReadIsCompleteButSaysWhereItEnded) {
    EXPECT_EQ(polledIds(), (Ids{1, 2, 3}));
    bmc.storeSelRecord(kFourth);
    bmc.storeSelRecord(selRecord(0x0005, {0x02, 0xF0, 0x00, 0x00, 0x55, 0x20, 0x00, 0x04, 0x08,
                                          0x60, 0x6F, 0x01, 0xFF, 0xFF}));
    // Get SEL Info, Get SEL Entry for records 3 and 4, then for record 5, answered 81h.
    bench.injectFault(bench.requests().size() + 4, sim::Fault::completion(0x81));
    EXPECT_EQ(polledIds(), Ids{4});
    EXPECT_TRUE(last.complete);
    EXPECT_FALSE(follower.ReadToEnd());
    EXPECT_EQ(last.failure,
              "the BMC answered Get SEL Entry with 81h (command-specific) after 2 SEL entries");
    EXPECT_EQ(polledIds(), Ids{5});
}

TEST_F(SelChangesTest, AReadThatARefusalEndsSaysSo) {
    bench.injectFault(3, sim::Fault::completion(0xC0));
    EXPECT_EQ(polledIds(), Ids{1});
    EXPECT_FALSE(last.complete);
    EXPECT_EQ(last.failure,
              "the BMC answered Get SEL Entry with C0h (node busy) after 1 SEL entries");
    EXPECT_EQ(polledIds(), (Ids{2, 3}));
    EXPECT_TRUE(last.complete);
}

TEST_F(SelChangesTest, TheSameRecordReturnedForTwoIdsComesOnce) {
    bmc.answerSelRecordWith(3, 2);
    EXPECT_EQ(polledIds(), (Ids{1, 2}));
    EXPECT_TRUE(last.complete);
    bmc.storeSelRecord(kFourth);
    EXPECT_EQ(polledIds(), Ids{4});
}

TEST_F(SelChangesTest, RecordsStampedBeforeTheBmcKnewTheTimeAreFollowedLikeAnyOther) {
    clearSel();
    // Time stamps below 20000000h count from the BMC's start.
    const auto preInit = [](std::uint16_t id) {
        return selRecord(id, {0x02, static_cast<unsigned char>(id), 0x00, 0x00, 0x00, 0x20, 0x00,
                              0x04, 0x08, 0x60, 0x6F, 0x01, 0xFF, 0xFF});
    };
    for (std::uint16_t id = 1; id <= 3; ++id) bmc.storeSelRecord(preInit(id));
    EXPECT_EQ(polledIds(), (Ids{1, 2, 3}));
    bmc.removeSelRecord(3);
    EXPECT_EQ(polledIds(), Ids{});
    bmc.storeSelRecord(preInit(4));
    EXPECT_EQ(polledIds(), Ids{4});
}

class SelHealthTest : public SelChangesTest {
protected:
    static RecordedRequest reserveSel() { return request(0x0A, 0x42, {}); }
    static RecordedRequest clearSelUnder(std::uint16_t reservation) {
        return request(0x0A, 0x47,
                       {static_cast<unsigned char>(reservation),
                        static_cast<unsigned char>(reservation >> 8), 'C', 'L', 'R', 0xAA});
    }
    static long count(const std::vector<RecordedRequest>& requests, const RecordedRequest& one) {
        return std::count(requests.begin(), requests.end(), one);
    }
};

TEST_F(SelHealthTest, APollTellsHowFullTheSelIsAndWhetherTheBmcDroppedEvents) {
    bmc.limitSel(4);
    EXPECT_EQ(polledIds(), (Ids{1, 2, 3}));
    EXPECT_TRUE(last.sel.known);
    EXPECT_EQ(last.sel.entries, 3u);
    EXPECT_EQ(last.sel.freeBytes, 16u);
    EXPECT_FALSE(last.sel.overflow);
    EXPECT_DOUBLE_EQ(last.sel.FillRatio(), 0.75);
    bmc.storeSelRecord(kFourth);
    bmc.storeSelRecord(eventNumbered(5));  // no room left: dropped
    EXPECT_EQ(polledIds(), Ids{4});
    EXPECT_EQ(last.sel.entries, 4u);
    EXPECT_EQ(last.sel.freeBytes, 0u);
    EXPECT_TRUE(last.sel.overflow);
    EXPECT_DOUBLE_EQ(last.sel.FillRatio(), 1.0);
    // A poll that finds nothing new tells it too.
    EXPECT_EQ(polledIds(), Ids{});
    EXPECT_TRUE(last.sel.overflow);
    bmc.answerRepositoryInfo(false);
    polledIds();
    EXPECT_FALSE(last.sel.known);
    EXPECT_DOUBLE_EQ(last.sel.FillRatio(), 0.0);
}

TEST_F(SelHealthTest, AFullSelIsClearedUnderAReservationOnceEveryRecordInItIsRead) {
    bmc.limitSel(4);
    bmc.setLastReservationId(0x1233);
    follower.ClearWhenFull(75);
    std::vector<IPMIEVENT> events;
    const auto requests = poll(follower, events);
    sim::expectSameEvents(events, sim::smallBmcEvents());
    // The records, then the reservation, a last look, the clear under the reservation, and the
    // SEL as it is after it.
    const std::vector<RecordedRequest> clearing{reserveSel(), getSelInfo(), clearSelUnder(0x1234),
                                                getSelInfo()};
    ASSERT_GE(requests.size(), 8u);
    EXPECT_EQ(std::vector<RecordedRequest>(requests.begin() + 4, requests.begin() + 8), clearing);
    EXPECT_TRUE(last.emptied);
    EXPECT_FALSE(last.cleared);
    EXPECT_EQ(last.failure, "");
    EXPECT_TRUE(bmc.selRecords().empty());
    EXPECT_EQ(last.sel.entries, 0u);
    EXPECT_EQ(last.sel.freeBytes, 64u);
    // The clear is the follower's own: not said again, and what comes next comes once.
    EXPECT_EQ(polledIds(), Ids{});
    EXPECT_FALSE(last.cleared);
    EXPECT_FALSE(last.emptied);
    bmc.storeSelRecord(eventNumbered(1));
    EXPECT_EQ(polledIds(), Ids{1});
    EXPECT_FALSE(last.cleared);
}

TEST_F(SelHealthTest, ARecordLoggedBeforeTheClearCancelsItIsReadAndTheClearIsTriedAgain) {
    bmc.limitSel(5);
    follower.ClearWhenFull(60);
    // The event arrives between the follower's last look and its clear.
    bmc.storeBefore(0x47, kFourth);
    std::vector<IPMIEVENT> events;
    const auto requests = poll(follower, events);
    EXPECT_EQ(events.size(), 4u);
    EXPECT_EQ(events.back().recordId, 4u);
    EXPECT_EQ(count(requests, reserveSel()), 2);
    EXPECT_TRUE(last.emptied);
    EXPECT_TRUE(bmc.selRecords().empty());
}

TEST_F(SelHealthTest, AClearTheBmcRefusesIsSaidAndTriedAgainAtTheNextPoll) {
    bmc.limitSel(4);
    follower.ClearWhenFull(75);
    // Get SEL Info, three Get SEL Entry, Reserve SEL, Get SEL Info, then Clear SEL.
    bench.injectFault(7, sim::Fault::completion(0xD4));
    EXPECT_EQ(polledIds(), (Ids{1, 2, 3}));
    EXPECT_TRUE(last.complete);
    EXPECT_FALSE(last.emptied);
    EXPECT_EQ(last.failure,
              "the SEL was not cleared: the BMC answered Clear SEL with D4h (insufficient "
              "privilege level)");
    EXPECT_EQ(bmc.selRecords().size(), 3u);
    EXPECT_EQ(polledIds(), Ids{});
    EXPECT_TRUE(last.emptied);
    EXPECT_EQ(last.failure, "");
}

TEST_F(SelHealthTest, NoClearBelowTheShareAskedForNorWhenRecordsAreOnlySkipped) {
    bmc.limitSel(5);
    follower.ClearWhenFull(61);
    const auto requests = poll(follower, events_);
    EXPECT_EQ(count(requests, reserveSel()), 0);
    follower.ClearWhenFull(60);
    last = follower.SkipToEnd();
    EXPECT_EQ(bmc.selRecords().size(), 3u);
    EXPECT_FALSE(last.emptied);
}

TEST_F(SelChangesTest, RecordIdsWithGapsAreFollowedAndAnIdGivenAgainAfterADeletionToo) {
    bmc.leaveGapsInRecordIds(9);
    EXPECT_EQ(polledIds(), (Ids{1, 2, 3}));
    for (std::uint16_t n = 4; n <= 6; ++n) EXPECT_EQ(add(eventNumbered(n)).completionCode, 0x00);
    EXPECT_EQ(polledIds(), (Ids{13, 23, 33}));
    bmc.removeSelRecord(13);
    bmc.removeSelRecord(33);
    EXPECT_EQ(polledIds(), Ids{});
    // The BMC gives the deleted newest record's ID 33 to another record.
    EXPECT_EQ(add(eventNumbered(7)).data, (std::vector<unsigned char>{33, 0}));
    EXPECT_EQ(polledIds(), Ids{33});
    EXPECT_FALSE(last.cleared);
    EXPECT_TRUE(last.complete);
    EXPECT_EQ(polledIds(), Ids{});
}

TEST_F(SelChangesTest, RecordsPastAGapInAChainOfIdsPlusOneAreFound) {
    bmc.chainByIdPlusOne(true);
    storeNumbered(4, 8);
    bmc.removeSelRecord(5);
    // The chain ends at 4; Get SEL Info counts 7: the last record (FFFFh) is 8, so 5 is tried
    // (absent), then 6 leads on to 8.
    auto requests = poll(follower, events_);
    EXPECT_EQ(std::vector<RecordedRequest>(requests.begin(), requests.begin() + 10),
              (std::vector<RecordedRequest>{
                  getSelInfo(), getSel(0x0000), getSel(0x0002), getSel(0x0003), getSel(0x0004),
                  getSel(0xFFFF), getSel(0x0005), getSel(0x0006), getSel(0x0007), getSel(0x0008)}));
    EXPECT_EQ(events_.size(), 7u);
    EXPECT_TRUE(last.complete);
    // The newest deleted, a record added past the gap it leaves.
    bmc.removeSelRecord(8);
    bmc.storeSelRecord(eventNumbered(9));
    requests = poll(follower, events_);
    EXPECT_EQ(std::vector<RecordedRequest>(requests.begin(), requests.begin() + 6),
              (std::vector<RecordedRequest>{getSelInfo(), getSel(0x0008), getSel(0x0007),
                                            getSel(0xFFFF), getSel(0x0008), getSel(0x0009)}));
    EXPECT_EQ(selEntryReads(requests), 5u);
    // Records added and one of them deleted before the poll: past the gap too.
    storeNumbered(10, 12);
    bmc.removeSelRecord(11);
    EXPECT_EQ(polledIds(), (Ids{10, 12}));
    EXPECT_FALSE(last.cleared);
    EXPECT_TRUE(last.complete);
}

TEST_F(SelChangesTest, AChainThatGetSelInfosCountAccountsForCostsNoRequestMore) {
    bmc.chainByIdPlusOne(true);
    EXPECT_EQ(polledIds(), (Ids{1, 2, 3}));
    storeNumbered(4, 5);
    // The last record read again and the two new ones; no Get SEL Entry for FFFFh.
    const auto requests = poll(follower, events_);
    EXPECT_EQ(std::vector<RecordedRequest>(requests.begin(), requests.begin() + 4),
              (std::vector<RecordedRequest>{getSelInfo(), getSel(0x0003), getSel(0x0004),
                                            getSel(0x0005)}));
    EXPECT_EQ(selEntryReads(requests), 3u);
    // Deleting the newest adds nothing: the chain from the one before it is taken as it is.
    bmc.removeSelRecord(5);
    EXPECT_EQ(poll(follower, events_),
              (std::vector<RecordedRequest>{getSelInfo(), getSel(0x0005), getSel(0x0004)}));
}

TEST_F(SelChangesTest, AFullSelThatRefusesAdditionsIsFollowedAsItIs) {
    bmc.limitSel(5);
    for (std::uint16_t n = 4; n <= 5; ++n) EXPECT_EQ(add(eventNumbered(n)).completionCode, 0x00);
    EXPECT_EQ(polledIds(), (Ids{1, 2, 3, 4, 5}));
    EXPECT_EQ(add(eventNumbered(6)).completionCode, 0xC4);
    EXPECT_EQ(poll(follower, events_), std::vector<RecordedRequest>{getSelInfo()});
    EXPECT_TRUE(last.complete);
    bmc.removeSelRecord(1);
    EXPECT_EQ(add(eventNumbered(6)).data, (std::vector<unsigned char>{6, 0}));
    EXPECT_EQ(polledIds(), Ids{6});
    EXPECT_FALSE(last.cleared);
    EXPECT_TRUE(last.complete);
}

TEST_F(SelChangesTest, ASelThatOverwritesItsOldestRecordsGivesEachNewRecordOnce) {
    bmc.limitSel(100);
    bmc.overwriteOldestWhenFull(true);
    storeNumbered(4, 100);
    EXPECT_EQ(polledIds(), idsFrom(1, 100));
    // 30 overwritten: the count stays 100, the addition stamp moves on. Read as any 30 additions:
    // the newest emitted, then the new ones.
    storeNumbered(101, 130);
    const auto requests = poll(follower, events_);
    EXPECT_EQ(events_.size(), 30u);
    EXPECT_EQ(events_.front().recordId, 101u);
    EXPECT_EQ(std::vector<RecordedRequest>(requests.begin(), requests.begin() + 3),
              (std::vector<RecordedRequest>{getSelInfo(), getSel(100), getSel(101)}));
    EXPECT_EQ(selEntryReads(requests), 31u);
    // With Get SEL Info, Get SDR Repository Info, the filters and the auxiliary log's status.
    EXPECT_EQ(requests.size(), 36u);
    EXPECT_FALSE(last.restarted);
    events_.clear();
    EXPECT_EQ(polledIds(), Ids{});
}

TEST_F(SelChangesTest, ASelThatOverwroteEveryRecordRememberedIsNotTakenForCleared) {
    bmc.limitSel(100);
    bmc.overwriteOldestWhenFull(true);
    storeNumbered(4, 100);
    EXPECT_EQ(polledIds(), idsFrom(1, 100));
    // 160 more: the SEL holds 161 to 260, the 64 remembered and the first record overwritten.
    storeNumbered(101, 260);
    const auto requests = poll(follower, events_);
    EXPECT_EQ(events_.size(), 100u);
    EXPECT_EQ(events_.front().recordId, 161u);
    EXPECT_FALSE(last.cleared);
    EXPECT_TRUE(last.restarted);
    EXPECT_TRUE(last.complete);
    // A Get SEL Entry for each remembered record (CBh), then one for each of the SEL's 100.
    EXPECT_EQ(selEntryReads(requests), 164u);
    // With Get SDR Repository Info, the filters and the whole auxiliary log, read again.
    EXPECT_EQ(requests.size(), 172u);
    EXPECT_EQ(polledIds(), Ids{});
    bmc.storeSelRecord(eventNumbered(261));
    EXPECT_EQ(polledIds(), Ids{261});
}

TEST_F(SelChangesTest, WithoutEraseStampOrFreeSpaceDeletionsAClearAndAdditionsAreFollowed) {
    bmc.fillNeitherEraseStampNorFreeSpace(true);
    EXPECT_EQ(polledIds(), (Ids{1, 2, 3}));
    bmc.removeSelRecord(3);
    EXPECT_EQ(polledIds(), Ids{});
    EXPECT_FALSE(last.cleared);
    // One deleted and one added: the count is the same, the addition stamp moved. Without an
    // erase stamp the chain's end is checked with the SEL's last record.
    bmc.removeSelRecord(1);
    bmc.storeSelRecord(kFourth);
    const auto requests = poll(follower, events_);
    EXPECT_EQ(std::vector<RecordedRequest>(requests.begin(), requests.begin() + 4),
              (std::vector<RecordedRequest>{getSelInfo(), getSel(0x0002), getSel(0x0004),
                                            getSel(0xFFFF)}));
    EXPECT_EQ(events_.size(), 1u);
    clearSel();
    EXPECT_EQ(polledIds(), Ids{});
    EXPECT_TRUE(last.cleared);
    bmc.storeSelRecord(eventNumbered(1));
    EXPECT_EQ(polledIds(), Ids{1});
    EXPECT_FALSE(last.cleared);
    EXPECT_EQ(polledIds(), Ids{});
}

TEST_F(SelChangesTest, ARecordAddedAfterTheClockWentBackComesOnce) {
    EXPECT_EQ(polledIds(), (Ids{1, 2, 3}));
    bmc.setClock(0x50000000);
    bmc.storeSelRecord(eventStamped(4, 0x50000001));
    EXPECT_EQ(polledIds(), Ids{4});
    // The newest deleted and another added: the walk from the record before it finds it.
    bmc.removeSelRecord(4);
    bmc.storeSelRecord(eventStamped(5, 0x50000002));
    EXPECT_EQ(polledIds(), Ids{5});
    EXPECT_FALSE(last.cleared);
    EXPECT_EQ(polledIds(), Ids{});
}

TEST_F(SelChangesTest, ARecordAddedAfterTheClockWentBackComesOnceWhenNoneRememberedIsLeft) {
    storeNumbered(4, 70);
    EXPECT_EQ(polledIds(), idsFrom(1, 70));
    // The 64 remembered deleted, the first kept; the new record is stamped before all of them.
    for (std::uint16_t id = 7; id <= 70; ++id) bmc.removeSelRecord(id);
    bmc.setClock(0x50000000);
    bmc.storeSelRecord(eventStamped(71, 0x50000001));
    EXPECT_EQ(polledIds(), Ids{71});
    EXPECT_TRUE(last.restarted);
    EXPECT_FALSE(last.cleared);
    EXPECT_EQ(polledIds(), Ids{});
}

class FollowerStateTest : public IpmiEventFollowerTest {
protected:
    std::string path() const { return scratch.file("state"); }
    std::string read() const { return scratch.read("state"); }

    bmcsim::ScratchDirectory scratch;
};

TEST_F(FollowerStateTest, AStateSavedAndLoadedCarriesOnWhereItWas) {
    std::vector<IPMIEVENT> events;
    poll(follower, events);
    std::string error;
    ASSERT_TRUE(follower.SaveState(path(), error)) << error;
    EXPECT_EQ(read().rfind("ipmi-event-log follower state 3\nbmc bmc1.example.test:623\n", 0), 0u);
    IpmiEventFollower restored(sim::lanConnection());
    ASSERT_TRUE(restored.LoadState(path(), error)) << error;
    events.clear();
    EXPECT_EQ(poll(restored, events), std::vector<RecordedRequest>{getSelInfo()});
    // Sensor records and auxiliary entries came back too: a new record reads neither again.
    bmc.storeSelRecord(kFourth);
    const auto requests = poll(restored, events);
    EXPECT_EQ(sdrReads(requests), 0u);
    EXPECT_EQ(std::count_if(requests.begin(), requests.end(),
                            [](const RecordedRequest& r) { return r.command == 0x93; }),
              0);
    sim::expectSameEvents(events, {wholeLog()[3]});
}

TEST_F(FollowerStateTest, AStateKeptAsTextIsTheFilesTextAndCarriesOnWhereItWas) {
    std::vector<IPMIEVENT> events;
    poll(follower, events);
    std::string error;
    ASSERT_TRUE(follower.SaveState(path(), error)) << error;
    const std::string text = follower.StateText();
    EXPECT_EQ(text, read());
    IpmiEventFollower restored(sim::lanConnection());
    ASSERT_TRUE(restored.LoadStateText(text, error)) << error;
    events.clear();
    EXPECT_EQ(poll(restored, events), std::vector<RecordedRequest>{getSelInfo()});
    EXPECT_TRUE(events.empty());
}

// `text`, a state of this version, as the version before wrote it: its header, no whole SDRs,
// and the checksum (FNV-1a, 64 bits) of what precedes the end line.
std::string asTheVersionBefore(const std::string& text) {
    std::istringstream lines(text);
    std::string body;
    for (std::string line; std::getline(lines, line);) {
        if (line.rfind("ipmi-event-log follower state ", 0) == 0)
            line = "ipmi-event-log follower state 2";
        if (line.rfind("record ", 0) == 0 || line.rfind("end ", 0) == 0) continue;
        body += line + "\n";
    }
    std::uint64_t hash = 14695981039346656037ull;
    for (unsigned char c : body) hash = (hash ^ c) * 1099511628211ull;
    char end[32];
    std::snprintf(end, sizeof end, "end %016llx\n", static_cast<unsigned long long>(hash));
    return body + end;
}

TEST_F(FollowerStateTest, AStateOfTheVersionBeforeIsTakenAndItsSdrRepositoryReadAgain) {
    std::vector<IPMIEVENT> events;
    poll(follower, events);
    IpmiEventFollower restored(sim::lanConnection());
    std::string error;
    ASSERT_TRUE(restored.LoadStateText(asTheVersionBefore(follower.StateText()), error)) << error;
    bmc.storeSelRecord(kFourth);
    events.clear();
    const auto requests = poll(restored, events);
    // Only the new record is read and rendered; the sensor records are read again, whole.
    sim::expectSameEvents(events, {wholeLog()[3]});
    EXPECT_EQ(sdrReads(requests), 4u);  // two records, each its header and its rest
}

TEST_F(FollowerStateTest, AStateTextThatCannotBeTakenIsRefusedWithItsReason) {
    std::vector<IPMIEVENT> events;
    poll(follower, events);
    const std::string text = follower.StateText();
    Tolmar::TolmarConnection::ConnectionInfo other = sim::lanConnection();
    other.ip = "bmc2.example.test";
    IpmiEventFollower elsewhere(other);
    std::string error;
    EXPECT_FALSE(elsewhere.LoadStateText(text, error));
    EXPECT_EQ(error, "the state of BMC bmc1.example.test:623, not of bmc2.example.test:623");
    EXPECT_FALSE(elsewhere.LoadStateText("", error));
    EXPECT_EQ(error,
              "not a follower state of this version (its first line is not \"ipmi-event-log "
              "follower state 3\")");
    EXPECT_EQ(poll(elsewhere, events)[1], getSel(0x0000));
}

TEST_F(FollowerStateTest, AFileThatCannotBeTakenIsRefusedWithItsReasonAndTheNextPollReadsAll) {
    std::vector<IPMIEVENT> events;
    poll(follower, events);
    std::string error;
    ASSERT_TRUE(follower.SaveState(path(), error)) << error;
    const std::string saved = read();
    Tolmar::TolmarConnection::ConnectionInfo other = sim::lanConnection();
    other.ip = "bmc2.example.test";
    const struct {
        std::string content;  // empty: no file at all
        std::string reason;
    } cases[] = {
        {"", "cannot read " + path() + ": No such file or directory"},
        {"[Unit]\nDescription=something else\n",
         path() + ": not a follower state of this version (its first line is not \"ipmi-event-"
                  "log follower state 3\")"},
        {saved.substr(0, saved.rfind("end ")),
         path() + ": the file is cut short (it has no \"end\" line)"},
        {std::string(saved).replace(saved.find("last ") + 5, 1, "f"),
         path() + ": line " + std::to_string(std::count(saved.begin(), saved.end(), '\n')) +
             " (\"end\"): the file is damaged (its checksum does not match)"},
        {"ipmi-event-log follower state 1\nbmc x\nend 0\n",
         path() + ": not a follower state of this version (its first line is not \"ipmi-event-"
                  "log follower state 3\")"},
        {"ipmi-event-log follower state 3\nbmc x\nsel 12 13\n",
         path() + ": line 3 (\"sel\") does not hold what it should"},
    };
    for (const auto& c : cases) {
        std::remove(path().c_str());
        if (!c.content.empty()) std::ofstream(path()) << c.content;
        IpmiEventFollower restored(sim::lanConnection());
        EXPECT_FALSE(restored.LoadState(path(), error)) << c.reason;
        EXPECT_EQ(error, c.reason);
        events.clear();
        EXPECT_EQ(poll(restored, events)[1], getSel(0x0000)) << c.reason;
        EXPECT_EQ(events.size(), 3u);
    }
    std::ofstream(path()) << saved;
    IpmiEventFollower elsewhere(other);
    EXPECT_FALSE(elsewhere.LoadState(path(), error));
    EXPECT_EQ(error, path() +
                         ": the state of BMC bmc1.example.test:623, not of "
                         "bmc2.example.test:623");
}

}  // namespace
