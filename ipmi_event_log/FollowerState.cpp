#include "FollowerState.h"

#include <stdlib.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <sstream>

#include "HexText.h"
#include "SdrRepositoryRead.h"

namespace Tolmar {

namespace {

const char* const kHeader = "ipmi-event-log follower state 3";
// Version 2 kept the sensor records as the renderer does, not whole: such a state is taken, and its
// repository read again at the next poll.
const char* const kHeaderKeepingSensors = "ipmi-event-log follower state 2";
static_assert(sizeof(RawSDR) == RawSDR::size, "RawSDR is a byte image");
constexpr std::size_t kLongestSdr = 5 + 255;
constexpr std::size_t kMostRecords = 65536;  // record IDs are 16 bits

// FNV-1a, 64 bits: enough to tell a damaged or cut file from a whole one.
std::uint64_t checksum(const std::string& text) {
    std::uint64_t hash = 14695981039346656037ull;
    for (unsigned char c : text) hash = (hash ^ c) * 1099511628211ull;
    return hash;
}

// Byte images are written as lower-case hexadecimal and read back only so.
std::string hexOf(const unsigned char* bytes, std::size_t size) {
    return hexText(bytes, size, HexCase::Lower);
}

std::string stampsText(const RepositoryStamps& stamps) {
    return std::to_string(stamps.lastAddition) + " " + std::to_string(stamps.lastErase) + " " +
           std::to_string(stamps.records);
}

bool stampsOf(std::istringstream& fields, RepositoryStamps& stamps) {
    unsigned long long addition = 0;
    unsigned long long erase = 0;
    unsigned long long records = 0;
    std::string rest;
    if (!(fields >> addition >> erase >> records) || fields >> rest || addition > UINT32_MAX ||
        erase > UINT32_MAX || records > UINT16_MAX) {
        return false;
    }
    stamps = {static_cast<std::uint32_t>(addition), static_cast<std::uint32_t>(erase),
              static_cast<std::uint16_t>(records)};
    return true;
}

// The rest of a line "KEY HEX" into a fixed-size record (RawSelEntry, RawSDR, RawPETEntry,
// s_AuxLog_entry: byte images without padding).
template <typename Record>
bool recordOf(std::istringstream& fields, Record& record) {
    std::string hex;
    std::string rest;
    return fields >> hex && !(fields >> rest) &&
           bytesFromHex(hex, HexCase::Lower, reinterpret_cast<unsigned char*>(&record),
                        sizeof record);
}

// The rest of a line "record HEX": one whole SDR, its header and as many bytes as it says.
bool sdrOf(std::istringstream& fields, std::vector<std::vector<std::uint8_t>>& sdrs) {
    constexpr std::size_t headerLength = 5;
    constexpr std::size_t lengthPosition = 4;
    std::string hex;
    std::string rest;
    if (!(fields >> hex) || fields >> rest || hex.size() % 2 != 0 ||
        hex.size() / 2 < headerLength || hex.size() / 2 > kLongestSdr) {
        return false;
    }
    std::vector<std::uint8_t> record(hex.size() / 2);
    if (!bytesFromHex(hex, HexCase::Lower, record.data(), record.size()) ||
        record.size() > headerLength + record[lengthPosition]) {
        return false;
    }
    sdrs.push_back(std::move(record));
    return true;
}

}  // namespace

std::string FollowerState::text() const {
    std::ostringstream out;
    out << kHeader << "\n";
    out << "bmc " << bmc << "\n";
    if (sel) out << "sel " << stampsText(*sel) << "\n";
    if (first)
        out << "first " << hexOf(reinterpret_cast<const unsigned char*>(&*first), sizeof *first)
            << "\n";
    for (const RawSelEntry& record : recent)
        out << "last " << hexOf(reinterpret_cast<const unsigned char*>(&record), sizeof record)
            << "\n";
    if (sdr) out << "sdr " << stampsText(*sdr) << "\n";
    for (const std::vector<std::uint8_t>& record : sdrs)
        out << "record " << hexOf(record.data(), record.size()) << "\n";
    for (const RawPETEntry& filter : filters) {
        out << "filter " << hexOf(reinterpret_cast<const unsigned char*>(&filter), sizeof filter)
            << "\n";
    }
    for (const s_AuxLog_entry& entry : auxiliary)
        out << "auxiliary " << hexOf(entry.data, sizeof entry.data) << "\n";
    const std::string body = out.str();
    char end[32];
    std::snprintf(end, sizeof end, "end %016llx\n",
                  static_cast<unsigned long long>(checksum(body)));
    return body + end;
}

bool FollowerState::fromText(const std::string& text, FollowerState& state, std::string& error) {
    std::istringstream lines(text);
    std::string line;
    const bool headed = static_cast<bool>(std::getline(lines, line));
    const bool keepsSensors = headed && line == kHeaderKeepingSensors;
    if (!headed || (line != kHeader && !keepsSensors)) {
        error = "not a follower state of this version (its first line is not \"" +
                std::string(kHeader) + "\")";
        return false;
    }
    FollowerState read;
    std::string body = line + "\n";
    for (int number = 2; std::getline(lines, line); ++number) {
        std::istringstream fields(line);
        std::string key;
        fields >> key;
        const std::string where = "line " + std::to_string(number) + " (\"" + key + "\")";
        bool fits = true;
        if (key == "end") {
            std::string sum;
            std::string rest;
            char expected[17];
            std::snprintf(expected, sizeof expected, "%016llx",
                          static_cast<unsigned long long>(checksum(body)));
            if (!(fields >> sum) || fields >> rest || sum != expected || lines.peek() != EOF) {
                error = where + ": the file is damaged (its checksum does not match)";
                return false;
            }
            if (read.bmc.empty()) {
                error = "the file names no BMC";
                return false;
            }
            if (keepsSensors) read.sdr.reset();
            if (!keepsSensors) read.sensors = sensorImagesOf(read.sdrs);
            state = std::move(read);
            return true;
        }
        if (key == "bmc") {
            fits = static_cast<bool>(fields >> read.bmc) && read.bmc.size() < 300;
        } else if (key == "sel") {
            read.sel.emplace();
            fits = stampsOf(fields, *read.sel);
        } else if (key == "sdr") {
            read.sdr.emplace();
            fits = stampsOf(fields, *read.sdr);
        } else if (key == "first") {
            read.first.emplace();
            fits = recordOf(fields, *read.first);
        } else if (key == "last" && read.recent.size() < kRemembered) {
            read.recent.emplace_back();
            fits = recordOf(fields, read.recent.back());
        } else if (key == "sensor" && keepsSensors && read.sensors.size() < kMostRecords) {
            read.sensors.emplace_back();
            fits = recordOf(fields, read.sensors.back());
        } else if (key == "record" && !keepsSensors && read.sdrs.size() < kMostRecords) {
            fits = sdrOf(fields, read.sdrs);
        } else if (key == "filter" && read.filters.size() < kMostRecords) {
            read.filters.emplace_back();
            fits = recordOf(fields, read.filters.back());
        } else if (key == "auxiliary" && read.auxiliary.size() < kMostRecords) {
            read.auxiliary.emplace_back();
            fits = recordOf(fields, read.auxiliary.back());
        } else {
            fits = false;
        }
        if (!fits) {
            error = where + " does not hold what it should";
            return false;
        }
        body += line + "\n";
    }
    error = "the file is cut short (it has no \"end\" line)";
    return false;
}

bool FollowerState::save(const std::string& path, std::string& error) const {
    // A file of its own beside the target, renamed over it once complete.
    std::string temporary = path + ".XXXXXX";
    const int fd = mkstemp(temporary.data());
    if (fd < 0) {
        error = "cannot write beside " + path + ": " + std::strerror(errno);
        return false;
    }
    const std::string content = text();
    const bool written =
        write(fd, content.data(), content.size()) == static_cast<ssize_t>(content.size()) &&
        fsync(fd) == 0;
    const int writeError = errno;
    close(fd);
    if (!written || std::rename(temporary.c_str(), path.c_str()) != 0) {
        error = "cannot write " + path + ": " + std::strerror(written ? errno : writeError);
        unlink(temporary.c_str());
        return false;
    }
    return true;
}

bool FollowerState::load(const std::string& path, FollowerState& state, std::string& error) {
    std::ifstream in(path, std::ios::binary);
    if (!in) {
        error = "cannot read " + path + ": " + std::strerror(errno);
        return false;
    }
    std::ostringstream content;
    content << in.rdbuf();
    if (!fromText(content.str(), state, error)) {
        error = path + ": " + error;
        return false;
    }
    return true;
}

}  // namespace Tolmar
