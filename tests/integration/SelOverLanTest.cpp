// The public class, linked with the framework's FreeIPMI client, reading and changing the SEL of
// ipmi_sim over RMCP+, compared with what ipmitool and FreeIPMI's ipmi-sel read from the same BMC.
#include <gtest/gtest.h>

#include <chrono>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <iterator>
#include <regex>

#include "IpmiEventLog.h"
#include "LanFixture.h"
#include "LogCapture.h"

namespace {

using bmcsim::kAdministrator;
using bmcsim::kOperator;
using bmcsim::kViewer;
using bmcsim::LanUser;
using bmcsim::ScopedEnvironment;
using bmcsim::SelRecord;
using Tolmar::IpmiEventLog;
using Tolmar::IPMISELENTRY;
using Bytes = std::vector<unsigned char>;

Bytes bytesOf(const IPMISELENTRY& entry) {
    const auto* bytes = reinterpret_cast<const unsigned char*>(&entry);
    return Bytes(bytes, bytes + sizeof entry);
}

std::vector<Bytes> bytesOf(const std::vector<IPMISELENTRY>& entries) {
    std::vector<Bytes> all;
    for (const IPMISELENTRY& entry : entries) all.push_back(bytesOf(entry));
    return all;
}

IPMISELENTRY entryOf(const SelRecord& record) {
    IPMISELENTRY entry;
    std::memcpy(&entry, record.data(), sizeof entry);
    return entry;
}

// Runs a shell command and returns what it wrote to standard output.
std::string run(const std::string& command) {
    std::string output;
    FILE* pipe = popen(command.c_str(), "r");
    if (pipe == nullptr) return output;
    char buffer[4096];
    std::size_t length;
    while ((length = fread(buffer, 1, sizeof buffer, pipe)) > 0) output.append(buffer, length);
    pclose(pipe);
    return output;
}

class SelOverLanTest : public bmcsim::LanTest {
protected:
    std::vector<IPMISELENTRY> readAll(const LanUser& user = kAdministrator,
                                      unsigned short cipherSuite = 3) {
        IpmiEventLog log(connection(user, cipherSuite));
        std::vector<IPMISELENTRY> entries;
        EXPECT_EQ(log.GetAllIpmiSelEntry(entries), 0);
        return entries;
    }

    std::string port() const { return std::to_string(bmc->port()); }
};

TEST_F(SelOverLanTest, ConnectStatusIsZeroWithGoodCredentials) {
    IpmiEventLog log(connection());
    EXPECT_EQ(log.GetConnectStatus(), 0);
}

TEST_F(SelOverLanTest, ConnectStatusIsTwoWithAWrongPasswordOrAnUnknownUser) {
    ScopedEnvironment timeout("TOLMAR_IPMI_SESSION_TIMEOUT_MS", "2000");
    LogCapture capture;
    auto info = connection();
    info.password = "N0t-the-password";
    IpmiEventLog log(info);
    EXPECT_EQ(log.GetConnectStatus(), 2);
    info.user = "nobody";
    EXPECT_EQ(log.ResetConn(info), 2);
    EXPECT_EQ(log.ResetConn(connection()), 0);
    EXPECT_EQ(capture.text().find("N0t-the-password"), std::string::npos);
}

TEST_F(SelOverLanTest, ConnectStatusWithNothingListeningIsAnotherFailureWithinTheTimeout) {
    bmc->stop();
    LogCapture capture;
    IpmiEventLog log(connection());
    // With the default session timeout (10 s) FreeIPMI gives up after about 12 s.
    const auto start = std::chrono::steady_clock::now();
    const int status = log.GetConnectStatus();
    const auto elapsed = std::chrono::steady_clock::now() - start;
    EXPECT_NE(status, 0);
    EXPECT_NE(status, 2);
    EXPECT_LT(elapsed, std::chrono::seconds(14));
    std::vector<IPMISELENTRY> entries;
    ScopedEnvironment timeout("TOLMAR_IPMI_SESSION_TIMEOUT_MS", "1000");
    EXPECT_EQ(log.GetAllIpmiSelEntry(entries), 3);
}

TEST_F(SelOverLanTest, ListsExactlyTheRecordsInTheSel) {
    const std::vector<SelRecord> sample = bmcsim::sampleEventLog();
    bmc->addSelRecords(sample);
    const std::vector<IPMISELENTRY> entries = readAll();
    ASSERT_EQ(entries.size(), sample.size());
    for (std::size_t i = 0; i < sample.size(); ++i) {
        Bytes expected(sample[i].begin(), sample[i].end());
        Bytes read = bytesOf(entries[i]);
        // The BMC stamps a record with its own clock, which the filler set to the record's time
        // an instant before; allow it to have ticked once.
        const auto time = [](const Bytes& b) {
            return b[3] | b[4] << 8 | b[5] << 16 | static_cast<unsigned>(b[6]) << 24;
        };
        EXPECT_LE(time(read) - time(expected), 1u) << "record " << i;
        std::copy(expected.begin() + 3, expected.begin() + 7, read.begin() + 3);
        EXPECT_EQ(read, expected) << "record " << i;
    }
}

TEST_F(SelOverLanTest, ListIsByteForByteWhatIpmitoolAndIpmiSelRead) {
    bmc->addSelRecords(bmcsim::sampleEventLog());
    const std::vector<Bytes> ours = bytesOf(readAll());

    const bmcsim::ScratchDirectory scratch;
    const std::string file = scratch.file("ipmitool-sel.raw");
    run("IPMI_PASSWORD='" + std::string(kAdministrator.password) +
        "' " IPMITOOL " -I lanplus -H 127.0.0.1 -p " + port() + " -U " + kAdministrator.name +
        " -E -C 3 sel writeraw " + file + " >/dev/null 2>&1");
    std::ifstream raw(file, std::ios::binary);
    const Bytes ipmitool((std::istreambuf_iterator<char>(raw)), std::istreambuf_iterator<char>());
    std::vector<Bytes> ipmitoolRecords;
    for (std::size_t at = 0; at + 16 <= ipmitool.size(); at += 16) {
        ipmitoolRecords.emplace_back(ipmitool.begin() + at, ipmitool.begin() + at + 16);
    }
    EXPECT_EQ(ours, ipmitoolRecords);

    // ipmi-sel prints each record as "RID:[01][00] RT:[02] TS:[..]..." with one [XX] per byte.
    const std::string dump = run(IPMI_SEL " -h 127.0.0.1:" + port() + " -u " + kAdministrator.name +
                                 " -p '" + kAdministrator.password +
                                 "' -D LAN_2_0 -W opensesspriv --ignore-sdr-cache --hex-dump 2>&1");
    std::vector<Bytes> ipmiSelRecords;
    const std::regex byte("\\[([0-9A-Fa-f]{2})\\]");
    std::istringstream lines(dump);
    for (std::string line; std::getline(lines, line);) {
        Bytes record;
        for (std::sregex_iterator it(line.begin(), line.end(), byte), end; it != end; ++it) {
            record.push_back(static_cast<unsigned char>(std::stoi((*it)[1], nullptr, 16)));
        }
        if (record.size() == 16) ipmiSelRecords.push_back(record);
    }
    EXPECT_EQ(ours, ipmiSelRecords) << dump;
}

TEST_F(SelOverLanTest, EmptySelListsNothing) { EXPECT_TRUE(readAll().empty()); }

TEST_F(SelOverLanTest, GetsOneRecordByIdAndReportsAnAbsentOne) {
    const std::vector<SelRecord> sample = bmcsim::sampleEventLog();
    bmc->addSelRecords({sample.begin(), sample.begin() + 5});
    const std::vector<IPMISELENTRY> all = readAll();
    IpmiEventLog log(connection());
    IPMISELENTRY entry{};
    EXPECT_EQ(log.GetIpmiSelEntryByRecordId(4, entry), 0);
    EXPECT_EQ(bytesOf(entry), bytesOf(all[3]));
    IPMISELENTRY untouched;
    std::memset(&untouched, 0xEE, sizeof untouched);
    const IPMISELENTRY before = untouched;
    EXPECT_EQ(log.GetIpmiSelEntryByRecordId(0x0777, untouched), 6);  // 0xCB: not present
    EXPECT_EQ(bytesOf(untouched), bytesOf(before));
}

TEST_F(SelOverLanTest, AddedEntryIsStoredWithTheBmcsRecordId) {
    IpmiEventLog log(connection());
    SelRecord record = bmcsim::sampleEventLog()[4];
    record[0] = 0x99;  // the BMC ignores the record ID of an added entry
    record[1] = 0x99;
    EXPECT_EQ(log.AddSelEntry(entryOf(record)), 0);
    EXPECT_EQ(log.AddSelEntry(entryOf(record)), 0);
    const std::vector<IPMISELENTRY> entries = readAll();
    ASSERT_EQ(entries.size(), 2u);
    EXPECT_EQ(entries[0].recordId[0], 0x01);
    EXPECT_EQ(entries[1].recordId[0], 0x02);
    EXPECT_EQ(entries[1].sensorNum, record[11]);
    EXPECT_EQ(entries[1].eventData1, record[13]);
}

TEST_F(SelOverLanTest, DeletesOneRecord) {
    const std::vector<SelRecord> sample = bmcsim::sampleEventLog();
    bmc->addSelRecords({sample.begin(), sample.begin() + 3});
    IpmiEventLog log(connection());
    EXPECT_EQ(log.DeleteEventLog(2), 0);
    const std::vector<IPMISELENTRY> entries = readAll();
    ASSERT_EQ(entries.size(), 2u);
    EXPECT_EQ(entries[0].recordId[0], 1);
    EXPECT_EQ(entries[1].recordId[0], 3);
    EXPECT_EQ(log.DeleteEventLog(2), 6);  // already gone: 0xCB
}

TEST_F(SelOverLanTest, ClearEmptiesTheSel) {
    bmc->addSelRecords(bmcsim::sampleEventLog());
    IpmiEventLog log(connection(kOperator));
    EXPECT_EQ(log.DeleteAllEventLog(), 0);
    EXPECT_TRUE(readAll().empty());
}

TEST_F(SelOverLanTest, EveryOfferedCipherSuiteReadsTheSel) {
    const std::vector<SelRecord> sample = bmcsim::sampleEventLog();
    bmc->addSelRecords({sample.begin(), sample.begin() + 4});
    const bmcsim::ScopedEnvironment allowZero("TOLMAR_IPMI_ALLOW_CIPHER_SUITE_0", "1");
    for (unsigned short suite : {0, 1, 2, 3}) {
        EXPECT_EQ(readAll(kAdministrator, suite).size(), 4u) << "cipher suite " << suite;
    }
    // The simulator does not offer cipher suite 17 (HMAC-SHA256).
    LogCapture capture;
    IpmiEventLog log(connection(kAdministrator, 17));
    std::vector<IPMISELENTRY> entries;
    EXPECT_EQ(log.GetAllIpmiSelEntry(entries), 3);
}

TEST_F(SelOverLanTest, UserPrivilegeListsButCannotClear) {
    const std::vector<SelRecord> sample = bmcsim::sampleEventLog();
    bmc->addSelRecords({sample.begin(), sample.begin() + 4});
    EXPECT_EQ(readAll(kViewer).size(), 4u);
    IpmiEventLog log(connection(kViewer));
    // Clear SEL needs operator privilege: the BMC answers 0xD4, an unexpected completion code.
    EXPECT_EQ(log.DeleteAllEventLog(), 6);
    EXPECT_EQ(log.DeleteEventLog(1), 6);
    EXPECT_EQ(readAll().size(), 4u);
}

TEST(InbandSel, MachineWithoutBmcGivesConnectionFailure) {
    LogCapture capture;
    IpmiEventLog log(Tolmar::TolmarConnection::ConnectionInfo{});
    std::vector<IPMISELENTRY> entries;
    EXPECT_EQ(log.GetAllIpmiSelEntry(entries), 3);
    EXPECT_TRUE(entries.empty());
    const int status = log.GetConnectStatus();
    EXPECT_NE(status, 0);
    EXPECT_NE(status, 2);
}

}  // namespace
