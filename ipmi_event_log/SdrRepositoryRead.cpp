#include "SdrRepositoryRead.h"

#include <algorithm>

#include "IpmiEventOperations.h"
#include "IpmiException.h"
#include "IpmiSDROperations.h"

namespace Tolmar {

namespace {

constexpr unsigned char kGetSdr = 0x23;
constexpr std::size_t kHeaderLength = 5;  // record ID, SDR version, record type, length
constexpr std::size_t kLengthPosition = 4;
constexpr std::size_t kNextRecordIdLength = 2;
constexpr unsigned kLastRecordId = 0xFFFF;
// Get SDR's offset is one byte: a record's bytes past offset FFh cannot be asked for.
constexpr std::size_t kReachableLength = 0x100;
// What a BMC answers when the reservation was cancelled by a change to the repository, and when it
// cannot return as many bytes as were asked for (IPMI v2.0 table 5-2).
constexpr unsigned char kReservationCancelled = 0xC5;
constexpr unsigned char kCannotReturnRequestedBytes = 0xCA;
// The rest of a record is asked for at once (a record is at most 5 + 255 bytes); for BMCs whose
// messages cannot carry that much, which answer CAh, in pieces halved until they can.
constexpr std::size_t kFirstPiece = 0xFF - kNextRecordIdLength;
constexpr std::size_t kRestOfRecord = 0xFF;
// A repository that changes again under each new reservation is given up on.
constexpr int kWalkAttempts = 3;

// Record types (IPMI v2.0 section 43) and where their ID string's type/length byte lies.
constexpr std::uint8_t kFullSensorRecord = 0x01;
constexpr std::uint8_t kCompactSensorRecord = 0x02;
constexpr std::size_t kTypePosition = 3;
constexpr std::size_t kFullIdString = 47;
constexpr std::size_t kCompactIdString = 31;
// The stretches RawSDR keeps besides the ID string.
constexpr std::size_t kFirstPart = 0;
constexpr std::size_t kSecondPart = 20;
constexpr std::size_t kPartLength = 10;

// `count` bytes of `record` from `offset`, as a Get SDR answer would carry them (after a next
// record ID); fewer where the record ends first.
std::vector<unsigned char> answerOf(const std::vector<std::uint8_t>& record, std::size_t offset,
                                    std::size_t count) {
    const std::size_t start = std::min(offset, record.size());
    const std::size_t end = std::min(record.size(), start + count);
    std::vector<unsigned char> answer(kNextRecordIdLength + (end - start), 0xFF);
    std::copy(record.begin() + start, record.begin() + end, answer.begin() + kNextRecordIdLength);
    return answer;
}

bool refusedAsTooMany(const CommandResponse& answer) {
    return answer.status == 0 && answer.completionCode == kCannotReturnRequestedBytes;
}

}  // namespace

SdrRepositoryRead::SdrRepositoryRead(IpmiClient& client) : client_(client), piece_(kFirstPiece) {}

bool SdrRepositoryRead::readAll(std::vector<std::vector<std::uint8_t>>& records) {
    for (int attempt = 0; attempt < kWalkAttempts; ++attempt) {
        records.clear();
        Reservation reservation;
        if (!IpmiSDROperations(client_).reservationSDR(reservation.low, reservation.high))
            return false;
        const Walk ended = walk(reservation, records);
        if (ended != Walk::Cancelled) return ended == Walk::Complete;
    }
    return false;
}

SdrRepositoryRead::Walk SdrRepositoryRead::walk(const Reservation& reservation,
                                                std::vector<std::vector<std::uint8_t>>& records) {
    // Record ID 0000h asks for the first record; FFFFh after a record marks the last.
    unsigned recordId = 0x0000;
    // A chain that comes back to an ID already asked for ends there.
    std::set<unsigned> requested;
    while (requested.insert(recordId).second) {
        std::vector<std::uint8_t> record;
        unsigned next = 0;
        const Walk read = readRecord(reservation, recordId, record, next);
        if (read != Walk::Complete) return read;
        requested.insert(record[0] | record[1] << 8);  // the first record's own ID
        records.push_back(std::move(record));
        if (next == kLastRecordId) return Walk::Complete;
        recordId = next;
    }
    logRepeatedRecordId("SdrRepositoryRead::walk", recordId, __LINE__);
    return Walk::Failed;
}

SdrRepositoryRead::Walk SdrRepositoryRead::readRecord(const Reservation& reservation,
                                                      unsigned recordId,
                                                      std::vector<std::uint8_t>& record,
                                                      unsigned& next) {
    const auto ended = [](const CommandResponse& answer) {
        return answer.status == 0 && answer.completionCode == kReservationCancelled
                   ? Walk::Cancelled
                   : Walk::Failed;
    };
    try {
        const CommandResponse header = getSdr(reservation, recordId, 0, kHeaderLength);
        if (!header.succeeded(kNextRecordIdLength + kHeaderLength)) return ended(header);
        next = header.data[0] | header.data[1] << 8;
        record.assign(header.data.begin() + kNextRecordIdLength,
                      header.data.begin() + kNextRecordIdLength + kHeaderLength);
        // The first record is asked for as 0000h; its rest by the ID its header gives.
        const unsigned id = record[0] | record[1] << 8;
        const std::size_t length =
            std::min(kHeaderLength + record[kLengthPosition], kReachableLength);
        while (record.size() < length) {
            const std::size_t wanted = length - record.size();
            const std::size_t count = std::min(piece_, wanted);
            CommandResponse part = getSdr(reservation, id, record.size(), count);
            if (refusedAsTooMany(part)) {
                // "The rest" (FFh) gives what there is where a header states more bytes than the
                // record holds, as on some BMCs; refused too, the BMC cannot send that many.
                part = getSdr(reservation, id, record.size(), kRestOfRecord);
                if (refusedAsTooMany(part) && count > 1) {
                    piece_ = count / 2;
                    continue;
                }
            }
            if (!part.succeeded(kNextRecordIdLength)) return ended(part);
            const std::size_t received = std::min(wanted, part.data.size() - kNextRecordIdLength);
            if (received == 0) break;
            record.insert(record.end(), part.data.begin() + kNextRecordIdLength,
                          part.data.begin() + kNextRecordIdLength + received);
        }
        return Walk::Complete;
    } catch (const IpmiException&) {
        return Walk::Failed;
    }
}

CommandResponse SdrRepositoryRead::getSdr(const Reservation& reservation, unsigned recordId,
                                          std::size_t offset, std::size_t count) {
    return exchange(client_, kNetFnStorage, kGetSdr,
                    {reservation.low, reservation.high, static_cast<unsigned char>(recordId),
                     static_cast<unsigned char>(recordId >> 8), static_cast<unsigned char>(offset),
                     static_cast<unsigned char>(count)});
}

std::vector<RawSDR> sensorImagesOf(const std::vector<std::vector<std::uint8_t>>& records) {
    std::vector<RawSDR> images;
    for (const std::vector<std::uint8_t>& record : records) {
        if (record.size() <= kTypePosition) continue;
        const std::uint8_t type = record[kTypePosition];
        if (type != kFullSensorRecord && type != kCompactSensorRecord) continue;
        RawSDR image;
        image.setFirstPartValues(answerOf(record, kFirstPart, kPartLength));
        image.setSecondPartValues(answerOf(record, kSecondPart, kPartLength));
        const std::size_t idString = type == kFullSensorRecord ? kFullIdString : kCompactIdString;
        image.setThirdPartValues(answerOf(record, idString, record.size()));
        images.push_back(image);
    }
    return images;
}

}  // namespace Tolmar
