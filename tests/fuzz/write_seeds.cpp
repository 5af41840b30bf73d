// Writes the fuzzers' seed corpora from the sample server's records:
//   write_seeds DIR  ->  DIR/event_log, DIR/event_builder, DIR/auxiliary_log
#include <sys/stat.h>

#include <cstdio>
#include <fstream>
#include <string>
#include <vector>

#include "IPMIAuxiliaryLog.h"
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
    for (const char* name : {"", "/event_log", "/event_builder", "/auxiliary_log"}) {
        mkdir((dir + name).c_str(), 0755);
    }
    write(dir + "/event_log/sample", eventLogTranscript());

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

    std::size_t n = 0;
    for (const auto& record : bmcsim::sampleAuxiliaryLog()) {
        Bytes entry = enterprise();
        const Bytes bytes = bmcsim::auxLogRecord(record);
        entry.insert(entry.end(), bytes.begin(), bytes.end());
        entry.resize(600, 0x00);
        write(dir + "/auxiliary_log/entry" + std::to_string(n++), entry);
    }
    return 0;
}
