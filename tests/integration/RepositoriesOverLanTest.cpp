// The SDR walk, the PEF filter read and the SEL-to-filter/SDR maps against ipmi_sim over RMCP+,
// compared with what ipmitool reads from the same BMC.
#include <gtest/gtest.h>

#include <fstream>
#include <iterator>
#include <map>

#include "IpmiClient.h"
#include "IpmiEventOperations.h"
#include "IpmiSDROperations.h"
#include "LanFixture.h"

namespace {

using bmcsim::kAdministrator;
using bmcsim::SdrRecord;
using Tolmar::IpmiEventOperations;
using Tolmar::IpmiSDROperations;
using Bytes = std::vector<unsigned char>;
using Filter = std::array<unsigned char, 20>;

// An event filter (IPMI v2.0 table 17-2) on one sensor type, or any (0xFF), with every offset and
// don't-care event data.
Filter filter(unsigned char configuration, unsigned char action, unsigned char policy,
              unsigned char sensorType) {
    return {configuration, action, policy, 0x10, 0xFF, 0xFF, sensorType, 0xFF, 0xFF, 0xFF,
            0xFF,          0x00,   0x00,   0x00, 0x00, 0x00, 0x00,       0x00, 0x00, 0x00};
}

class RepositoriesOverLanTest : public bmcsim::LanTest {
protected:
    void SetUp() override {
        LanTest::SetUp();
        client =
            std::make_unique<IpmiClient>(bmcsim::BmcSimulator::host(), kAdministrator.name,
                                         kAdministrator.password, std::to_string(bmc->port()), 3);
        ASSERT_EQ(client->connect(), 0);
    }

    // Sends one request that must succeed; returns the data after the completion code.
    Bytes send(unsigned char netFn, unsigned char command, Bytes data) {
        Bytes response;
        unsigned char completionCode = 0xEE;
        EXPECT_EQ(client->sendCommand({command, std::move(data), netFn}, response, completionCode),
                  0);
        EXPECT_EQ(completionCode, 0x00) << "netFn " << int{netFn} << " command " << int{command};
        return response;
    }

    void setFilter(unsigned char number, const Filter& f) {
        Bytes data = {0x06, number};  // parameter 6, event filter table, set selector
        data.insert(data.end(), f.begin(), f.end());
        send(0x04, 0x12, data);  // Set PEF Configuration Parameters
    }

    std::unique_ptr<IpmiClient> client;
};

TEST_F(RepositoriesOverLanTest, SimulatorHasFifteenEventFilters) {
    EXPECT_EQ(send(0x04, 0x13, {0x05, 0x00, 0x00}).at(1) & 0x7F, 15);
}

TEST_F(RepositoriesOverLanTest, OnlyEnabledAlertingFiltersComeBackInTableOrder) {
    const Filter enabledAlert = filter(0x80, 0x01, 0x11, 0x01);
    const Filter disabled = filter(0x00, 0x01, 0x12, 0x01);
    const Filter noAlert = filter(0x80, 0x02, 0x13, 0x02);  // power off only
    const Filter alertAndReset = filter(0xC0, 0x05, 0x14, 0xFF);
    setFilter(1, enabledAlert);
    setFilter(2, disabled);
    setFilter(3, noAlert);
    setFilter(7, alertAndReset);
    std::vector<RawPETEntry> entries;
    IpmiEventOperations(*client).getRawPETEntries(entries);
    ASSERT_EQ(entries.size(), 2u);
    const auto bytes = [](const RawPETEntry& e) {
        const auto* b = reinterpret_cast<const unsigned char*>(&e);
        return Bytes(b, b + sizeof e);
    };
    EXPECT_EQ(bytes(entries[0]), Bytes(enabledAlert.begin(), enabledAlert.end()));
    EXPECT_EQ(bytes(entries[1]), Bytes(alertAndReset.begin(), alertAndReset.end()));
}

TEST_F(RepositoriesOverLanTest, SimulatorRefusesGetSdrOfMoreThanThirtyThreeBytes) {
    // Record 2 (CPU1 Temp) is 57 bytes long.
    const Bytes reservation = send(0x0A, 0x22, {});
    Bytes response;
    unsigned char completionCode = 0;
    client->sendCommand({0x23, {reservation[0], reservation[1], 0x02, 0x00, 0x00, 34}, 0x0A},
                        response, completionCode);
    EXPECT_EQ(completionCode, 0xCA);
    EXPECT_EQ(send(0x0A, 0x23, {reservation[0], reservation[1], 0x02, 0x00, 0x00, 33}).size(),
              2u + 33u);
}

TEST_F(RepositoriesOverLanTest, SensorRecordsMatchIpmitoolsSdrDumpInTheFilledPositions) {
    std::vector<RawSDR> sdrs;
    IpmiSDROperations(*client).getTypeOneAndTwoPartialRawSDRs(sdrs);

    const bmcsim::ScratchDirectory scratch;
    const std::string file = scratch.file("ipmitool-sdr.dump");
    const std::string command = "IPMI_PASSWORD='" + std::string(kAdministrator.password) +
                                "' " IPMITOOL " -I lanplus -H 127.0.0.1 -p " +
                                std::to_string(bmc->port()) + " -U " + kAdministrator.name +
                                " -E -C 3 sdr dump " + file + " >/dev/null 2>&1";
    ASSERT_EQ(std::system(command.c_str()), 0);
    std::ifstream in(file, std::ios::binary);
    const Bytes dump((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
    std::vector<SdrRecord> sensorRecords;
    for (std::size_t at = 0; at + 5 <= dump.size(); at += 5 + dump[at + 4]) {
        const SdrRecord record(dump.begin() + at, dump.begin() + at + 5 + dump[at + 4]);
        if (record[3] == 0x01 || record[3] == 0x02) sensorRecords.push_back(record);
    }
    ASSERT_EQ(sensorRecords.size(), 14u);  // the sample server's 7 full and 7 compact records
    ASSERT_EQ(sdrs.size(), sensorRecords.size());

    for (std::size_t i = 0; i < sdrs.size(); ++i) {
        const SdrRecord& record = sensorRecords[i];
        const unsigned char* image = sdrs[i].bytes;
        EXPECT_EQ(Bytes(image, image + 10), Bytes(record.begin(), record.begin() + 10)) << i;
        EXPECT_EQ(Bytes(image + 20, image + 30), Bytes(record.begin() + 20, record.begin() + 30))
            << i;
        // From the type/length byte (47 full, 31 compact) to the record's end.
        const std::size_t from = record[3] == 0x01 ? 47 : 31;
        const std::size_t idPart = record.size() - from;
        EXPECT_EQ(Bytes(image + 47, image + 47 + idPart),
                  Bytes(record.begin() + from, record.end()))
            << i;
        // ipmi_sim keeps each record six bytes longer than it is and sends them with "the rest":
        // those land after the ID string, and nothing is written past them.
        for (std::size_t p = 47 + idPart + 6; p < 64; ++p) EXPECT_EQ(image[p], 0) << i << "@" << p;
    }
}

TEST_F(RepositoriesOverLanTest, SelRecordsMapToTheirSensorsAndFilters) {
    setFilter(1, filter(0x80, 0x01, 0x30, 0xFF));  // any event, alert policy 3
    setFilter(2, filter(0x80, 0x01, 0x10, 0x08));  // power supply events, alert policy 1
    const std::vector<bmcsim::SelRecord> log = bmcsim::sampleEventLog();
    bmc->addSelRecords(log);

    IpmiEventOperations events(*client);
    std::vector<RawSelEntry> sel;
    events.getRawSelEntries(sel);
    std::vector<RawPETEntry> pet;
    events.getRawPETEntries(pet);
    std::vector<RawSDR> sdrs;
    IpmiSDROperations(*client).getTypeOneAndTwoPartialRawSDRs(sdrs);
    ASSERT_EQ(sel.size(), log.size());
    ASSERT_EQ(pet.size(), 2u);

    std::map<int, int> sdrMap;
    std::map<int, int> filterMap;
    IpmiEventOperations::getSelSDRNumberMap(sel, sdrs, sdrMap);
    IpmiEventOperations::getSelPETEntryNumberMap(sel, pet, filterMap);

    // Positions of the sample sensors among the full and compact records, in repository order.
    std::map<unsigned char, int> sensorIndex;
    int index = 0;
    for (const SdrRecord& record : bmcsim::sampleSdrRepository()) {
        if (record[3] == 0x01 || record[3] == 0x02) sensorIndex[record[7]] = index++;
    }
    for (std::size_t i = 0; i < sel.size(); ++i) {
        const auto known = sensorIndex.find(sel[i].sensorNum);
        EXPECT_EQ(sdrMap.at(static_cast<int>(i)), known == sensorIndex.end() ? -1 : known->second)
            << "SEL record " << i;
        // Offsets above 7 match no filter; power supply events go to the lower policy number.
        const int expectedFilter = (sel[i].eventData1 & 0x0F) > 7 ? -1
                                   : sel[i].sensorType == 0x08    ? 1
                                                                  : 0;
        EXPECT_EQ(filterMap.at(static_cast<int>(i)), expectedFilter) << "SEL record " << i;
    }
    EXPECT_EQ(sdrMap.at(27), -1);  // the OS stop sensor has only an event-only record
    EXPECT_EQ(sdrMap.at(3), sensorIndex.at(0x30));
}

}  // namespace
