// Writes the fuzzers' seed corpora from the sample server's records:
// and the answers of a BMC over RMCP+:
//   write_seeds DIR  ->  DIR/event_log, DIR/event_builder, DIR/auxiliary_log, DIR/rmcp_plus_codec,
//                        DIR/follower_state, DIR/follower_poll, DIR/scrape_request,
//                        DIR/sdr_record_reads, DIR/sel_decoder
#include <sys/stat.h>

#include <cstdio>
#include <cstring>
#include <fstream>
#include <string>
#include <vector>

#include "FollowerState.h"
#include "IPMIAuxiliaryLog.h"
#include "RmcpPlusFuzzSessions.h"
#include "SampleServer.h"

namespace {

using Bytes = std::vector<unsigned char>;

void write(const std::string& path, const Bytes& bytes) {
    std::ofstream out(path, std::ios::binary);
    out.write(reinterpret_cast<const char*>(bytes.data()),
              static_cast<std::streamsize>(bytes.size()));
}

Bytes enterprise() {
    const std::uint32_t iana = Tolmar::kAuxLogEnterpriseNumber;
    return {static_cast<unsigned char>(iana), static_cast<unsigned char>(iana >> 8),
            static_cast<unsigned char>(iana >> 16)};
}

// The IPMI checksum of the message's bytes from `from` on: what makes them sum to zero.
unsigned char checksum(const Bytes& message, std::size_t from) {
    unsigned sum = 0;
    for (std::size_t i = from; i < message.size(); ++i) sum += message[i];
    return static_cast<unsigned char>(-sum);
}

// One answer of the fuzzed BMC: arrived, completion code 0, the data.
void answer(Bytes& out, const Bytes& data) {
    out.push_back(0x00);
    out.push_back(0x00);
    out.push_back(static_cast<unsigned char>(data.size()));
    out.insert(out.end(), data.begin(), data.end());
}

Bytes withNextId(unsigned next, Bytes bytes) {
    bytes.insert(bytes.begin(),
                 {static_cast<unsigned char>(next), static_cast<unsigned char>(next >> 8)});
    return bytes;
}

// The answers to one whole GetAllIpmiEventLog: the sample SEL, one filter, one full sensor record,
// one auxiliary entry.
Bytes eventLogTranscript() {
    Bytes out;
    const auto sel = bmcsim::sampleEventLog();
    for (std::size_t i = 0; i < sel.size(); ++i) {
        answer(out, withNextId(i + 1 < sel.size() ? i + 2 : 0xFFFF,
                               Bytes(sel[i].begin(), sel[i].end())));
    }
    const auto filter = bmcsim::sampleEventFilters().back();
    answer(out, {0x11, 0x01});
    Bytes filterAnswer = {0x11, 0x01};
    filterAnswer.insert(filterAnswer.end(), filter.begin(), filter.end());
    answer(out, filterAnswer);
    answer(out, {0x01, 0x00});                           // SDR reservation
    const Bytes sdr = bmcsim::sampleSdrRepository()[1];  // CPU1 Temp, a full sensor record
    answer(out, withNextId(0xFFFF, Bytes(sdr.begin(), sdr.begin() + 10)));
    answer(out, withNextId(0xFFFF, Bytes(sdr.begin() + 20, sdr.begin() + 30)));
    answer(out, withNextId(0xFFFF, Bytes(sdr.begin() + 47, sdr.end())));
    const Bytes record = bmcsim::auxLogRecord(bmcsim::sampleAuxiliaryLog()[0]);
    Bytes status = {0, 0, 0, 0};
    const Bytes iana = enterprise();
    status.insert(status.end(), iana.begin(), iana.end());
    status.insert(status.end(), {0x01, 0x00});
    answer(out, status);
    Bytes length = iana;
    length.insert(length.end(), {static_cast<unsigned char>(record.size()), 0x00});
    answer(out, length);
    for (std::size_t at = 0; at < record.size(); at += 25) {
        Bytes chunk = iana;
        chunk.insert(chunk.end(), record.begin() + at,
                     record.begin() + std::min(record.size(), at + 25));
        answer(out, chunk);
    }
    return out;
}

}  // namespace

int main(int argc, char** argv) {
    if (argc != 2) {
        std::fprintf(stderr, "usage: write_seeds DIR\n");
        return 2;
    }
    const std::string dir = argv[1];
    for (const char* name : {"", "/event_log", "/event_builder", "/auxiliary_log",
                             "/rmcp_plus_codec", "/follower_state", "/follower_poll",
                             "/scrape_request", "/sdr_record_reads", "/sel_decoder"}) {
        mkdir((dir + name).c_str(), 0755);
    }
    write(dir + "/event_log/sample", eventLogTranscript());
    // A follower's first poll asks much what the whole log's read does.
    write(dir + "/follower_poll/sample", eventLogTranscript());

    const auto sel = bmcsim::sampleEventLog();
    const auto sdr = bmcsim::sampleSdrRepository()[1];
    for (std::size_t i = 0; i < sel.size(); ++i) {
        Bytes seed(sel[i].begin(), sel[i].end());
        Bytes image(64, 0);
        std::copy(sdr.begin(), sdr.begin() + std::min<std::size_t>(sdr.size(), 64), image.begin());
        seed.insert(seed.end(), image.begin(), image.end());
        Bytes pet(20, 0xFF);
        pet[3] = static_cast<unsigned char>(i % 0x20);
        seed.insert(seed.end(), pet.begin(), pet.end());
        seed.push_back(static_cast<unsigned char>(i % 2));  // with or without the SDR
        seed.push_back(0x01);                               // one auxiliary entry
        Bytes fields(26, 0x01);
        fields[0] = sel[i][0];
        seed.insert(seed.end(), fields.begin(), fields.end());
        seed.push_back(0x09);
        for (const char c : std::string("0A 1B FF ")) seed.push_back(static_cast<unsigned char>(c));
        write(dir + "/event_builder/record" + std::to_string(i), seed);
    }

    // Each event with the sample's SDR repository: the count, each record after its length.
    const auto repository = bmcsim::sampleSdrRepository();
    for (std::size_t i = 0; i < sel.size(); ++i) {
        Bytes seed{static_cast<unsigned char>(std::min<std::size_t>(repository.size(), 8))};
        for (std::size_t r = 0; r < repository.size() && r < 8; ++r) {
            seed.push_back(
                static_cast<unsigned char>(std::min<std::size_t>(repository[r].size(), 255)));
            seed.insert(seed.end(), repository[r].begin(),
                        repository[r].begin() + std::min<std::size_t>(repository[r].size(), 255));
        }
        seed.insert(seed.end(), sel[i].begin(), sel[i].end());
        write(dir + "/sel_decoder/record" + std::to_string(i), seed);
    }
    // Without SDRs, events whose event data 2 and 3 the decoder words (IPMI v2.0 table 42-3):
    // sensor type, event/reading type, event data 1-3. Then Linux's kernel panic record (F0h).
    const unsigned char worded[][5] = {
        {0x0F, 0x6F, 0xC0, 0x01, 0xFF}, {0x0F, 0x6F, 0xC2, 0x19, 0xFF},  // POST error, progress
        {0x10, 0x6F, 0xF1, 0x6F, 0x31}, {0x10, 0x6F, 0xF6, 0x02, 0x80},  // logging disabled
        {0x10, 0x6F, 0x35, 0x00, 0x5A}, {0x12, 0x6F, 0xC3, 0x21, 0xFF},  // SEL almost full, aux log
        {0x12, 0x6F, 0xC4, 0x25, 0xFF}, {0x12, 0x6F, 0xC5, 0x80, 0xFF},  // PEF action, clock
        {0x19, 0x6F, 0xF0, 0x05, 0x00}, {0x21, 0x6F, 0xF2, 0x09, 0x03},  // chip set, slot
        {0x23, 0x6F, 0xC1, 0x24, 0xFF}, {0x28, 0x6F, 0xF5, 0x98, 0x02},  // watchdog, FRU failure
        {0x2B, 0x6F, 0xC7, 0x09, 0xFF}, {0x2C, 0x6F, 0xC4, 0x23, 0xFF},  // version, FRU state
        {0x0C, 0x6F, 0xA1, 0x01, 0x30}, {0x13, 0x6F, 0xA4, 0x1A, 0x05},  // OEM codes
    };
    for (std::size_t i = 0; i < sizeof worded / sizeof worded[0]; ++i) {
        const unsigned char* event = worded[i];
        const Bytes seed{0x00, 0x01, 0x00,     0x02, 0x00,     0x00,     0x00,     0x60,    0x33,
                         0x00, 0x04, event[0], 0x02, event[1], event[2], event[3], event[4]};
        write(dir + "/sel_decoder/worded" + std::to_string(i), seed);
    }
    const Bytes panic{0x00, 0x05, 0x00, 0xF0, 0x20, 0x00, 'K', 'e', 'r',
                      'n',  'e',  'l',  ' ',  'p',  'a',  'n', 'i'};
    write(dir + "/sel_decoder/kernel_panic", panic);

    std::size_t n = 0;
    for (const auto& record : bmcsim::sampleAuxiliaryLog()) {
        Bytes entry = enterprise();
        const Bytes bytes = bmcsim::auxLogRecord(record);
        entry.insert(entry.end(), bytes.begin(), bytes.end());
        entry.resize(600, 0x00);
        write(dir + "/auxiliary_log/entry" + std::to_string(n++), entry);
    }

    // Get SEL Entry's answer (sequence 1) with the sample's first record, sealed by each session's
    // BMC end; a Get Channel Authentication Capabilities answer; an Open Session response.
    Bytes selEntry = {0x81, 0x2C, 0x53, 0x20, 0x04, 0x43, 0x00, 0xFF, 0xFF};
    selEntry.insert(selEntry.end(), sel[0].begin(), sel[0].end());
    selEntry.push_back(checksum(selEntry, 3));
    n = 0;
    for (const CipherSuite& suite : fuzz::rmcpPlusSuites()) {
        write(dir + "/rmcp_plus_codec/sel_entry" + std::to_string(n++),
              fuzz::rmcpPlusEnd(suite, false)->seal(selEntry));
    }
    // Answers outside a session: Get Channel Authentication Capabilities', and Get Channel
    // Cipher Suites' listing suites 17 and 3.
    const auto sessionless = [](unsigned char command, const Bytes& data) {
        Bytes message = {0x81, 0x1C, 0x63, 0x20, 0x00, command, 0x00};
        message.insert(message.end(), data.begin(), data.end());
        message.push_back(checksum(message, 3));
        Bytes packet = {0x06, 0x00, 0xFF, 0x07, 0x00, 0, 0, 0, 0, 0, 0, 0, 0};
        packet.push_back(static_cast<unsigned char>(message.size()));
        packet.insert(packet.end(), message.begin(), message.end());
        return packet;
    };
    write(dir + "/rmcp_plus_codec/capabilities",
          sessionless(0x38, {0x01, 0x80, 0x04, 0x02, 0x00, 0x00, 0x00, 0x00}));
    write(dir + "/rmcp_plus_codec/cipher_suites",
          sessionless(0x54, {0x01, 0xC0, 0x11, 0x03, 0x44, 0x81, 0xC0, 0x03, 0x01, 0x41, 0x81}));
    Bytes openSession = {0x01, 0x00, 0x04, 0x00, 0x44, 0x33, 0x22, 0x11, 0xD4, 0xC3, 0xB2, 0xA1};
    for (unsigned char type = 0; type < 3; ++type) {
        const Bytes algorithm = {type, 0, 0, 8, 0x01, 0, 0, 0};
        openSession.insert(openSession.end(), algorithm.begin(), algorithm.end());
    }
    write(dir + "/rmcp_plus_codec/open_session",
          RmcpPlusCodec::sessionSetupPacket(RmcpPlusCodec::kOpenSessionResponse, openSession));

    // A follower's state after reading the sample server: stamps, the SEL's first and last
    // records, a sensor record, a filter and an auxiliary entry.
    Tolmar::FollowerState state;
    state.bmc = "bmc1.example.test:623";
    state.sel = Tolmar::RepositoryStamps{0x55016A40, 0x55000000, 35};
    state.sdr = Tolmar::RepositoryStamps{0x55000000, 0x55000000, 12};
    for (const auto& record : {sel.front(), sel[sel.size() - 2], sel.back()}) {
        RawSelEntry entry;
        std::memcpy(&entry, record.data(), sizeof entry);
        state.recent.push_back(entry);
    }
    state.first = state.recent.front();
    state.sdrs.emplace_back(sdr.begin(), sdr.end());
    state.filters.push_back(RawPETEntry{});
    state.auxiliary.push_back(Tolmar::s_AuxLog_entry{});
    const std::string text = state.text();
    write(dir + "/follower_state/sample", Bytes(text.begin(), text.end()));
    // A scrape's target and its user and password ("prometheus:scrape-me" in base64).
    for (const std::string& request :
         {std::string("bmc1.example:623\nBasic cHJvbWV0aGV1czpzY3JhcGUtbWU="),
          std::string("[fe80::1]:6230\nbasic OnBhc3N3b3Jk")}) {
        write(dir + "/scrape_request/" + std::to_string(request.size()),
              Bytes(request.begin(), request.end()));
    }
    // A sample sensor record read as a BMC with a small buffer does: its header, its rest from
    // the ID string's type/length byte refused with CAh, then pieces of at most 8 bytes.
    Bytes reads = {47};
    const auto answerWith = [&reads](unsigned char completionCode, const Bytes& bytes) {
        reads.push_back(static_cast<unsigned char>(3 + bytes.size()));
        reads.insert(reads.end(), {completionCode, 0x02, 0x00});
        reads.insert(reads.end(), bytes.begin(), bytes.end());
    };
    answerWith(0x00, Bytes(sdr.begin(), sdr.begin() + 10));
    answerWith(0xCA, {});  // FFh
    answerWith(0xCA, {});  // 16 bytes
    for (std::size_t at = 47; at < sdr.size(); at += 8) {
        answerWith(0x00, Bytes(sdr.begin() + static_cast<std::ptrdiff_t>(at),
                               sdr.begin() + static_cast<std::ptrdiff_t>(
                                                 std::min<std::size_t>(at + 8, sdr.size()))));
    }
    write(dir + "/sdr_record_reads/sample", reads);
    return 0;
}
