#include "IpmiSDROperations.h"

#include <algorithm>
#include <set>

#include "IpmiEventOperations.h"
#include "IpmiException.h"

namespace Tolmar {

namespace {

// Storage commands (IPMI v2.0 section 33).
constexpr unsigned char kReserveSdrRepository = 0x22;
constexpr unsigned char kGetSdr = 0x23;

// Record types (IPMI v2.0 section 43).
constexpr unsigned char kFullSensorRecord = 0x01;
constexpr unsigned char kCompactSensorRecord = 0x02;

// Positions in the record (and in RawSDR).
constexpr unsigned char kRecordTypePosition = 3;
constexpr unsigned char kRecordLengthPosition = 4;  // bytes after the 5-byte header
constexpr unsigned char kHeaderLength = 5;
constexpr unsigned char kIdStringTypeLengthPosition = 47;

// The three partial reads: record header to entity instance, units to exponents, and the ID
// string with its type/length byte, which a compact record keeps at 31 and a full one at 47.
constexpr unsigned char kFirstPartOffset = 0x00;
constexpr unsigned char kSecondPartOffset = 0x14;
constexpr unsigned char kPartLength = 0x0A;
constexpr unsigned char kFullRecordIdStringOffset = 0x2F;
constexpr unsigned char kCompactRecordIdStringOffset = 0x1F;
constexpr unsigned char kReadToEnd = 0xFF;

constexpr std::size_t kNextRecordIdLength = 2;
constexpr std::size_t kPartResponseLength = kNextRecordIdLength + kPartLength;
constexpr std::size_t kIdStringResponseMinimum = kNextRecordIdLength + 1;  // type/length byte
// Bytes of the ID string part that RawSDR has room for: positions 47 to 63.
constexpr std::size_t kIdStringPartCapacity = RawSDR::size - kIdStringTypeLengthPosition;

constexpr unsigned char kCannotReturnRequestedBytes = 0xCA;

bool isSensorRecord(const RawSDR& sdr) {
    const unsigned char type = sdr.bytes[kRecordTypePosition];
    return type == kFullSensorRecord || type == kCompactSensorRecord;
}

}  // namespace

IpmiSDROperations::IpmiSDROperations(IpmiClient& client) : client_(client) {}

bool IpmiSDROperations::reservationSDR(unsigned char& low, unsigned char& high) {
    return reserve(client_, kReserveSdrRepository, low, high);
}

CommandResponse IpmiSDROperations::getSdr(unsigned char reservationLow,
                                          unsigned char reservationHigh, unsigned char recordIdLow,
                                          unsigned char recordIdHigh, unsigned char offset,
                                          unsigned char count) {
    return exchange(client_, kNetFnStorage, kGetSdr,
                    {reservationLow, reservationHigh, recordIdLow, recordIdHigh, offset, count});
}

bool IpmiSDROperations::getOneSDRPartial(unsigned char reservationLow,
                                         unsigned char reservationHigh, RawSDR& sdr,
                                         unsigned char recordIdLow, unsigned char recordIdHigh,
                                         unsigned char& nextRecordIdLow,
                                         unsigned char& nextRecordIdHigh) {
    try {
        const CommandResponse first = getSdr(reservationLow, reservationHigh, recordIdLow,
                                             recordIdHigh, kFirstPartOffset, kPartLength);
        if (!first.succeeded(kPartResponseLength)) first.raise();
        nextRecordIdLow = first.data[0];
        nextRecordIdHigh = first.data[1];
        sdr.setFirstPartValues(first.data);
        if (!isSensorRecord(sdr)) return true;

        const CommandResponse second = getSdr(reservationLow, reservationHigh, recordIdLow,
                                              recordIdHigh, kSecondPartOffset, kPartLength);
        if (!second.succeeded(kPartResponseLength)) second.raise();
        sdr.setSecondPartValues(second.data);

        const unsigned char idStringOffset = sdr.bytes[kRecordTypePosition] == kFullSensorRecord
                                                 ? kFullRecordIdStringOffset
                                                 : kCompactRecordIdStringOffset;
        const CommandResponse third = getIdStringPart(reservationLow, reservationHigh, recordIdLow,
                                                      recordIdHigh, idStringOffset, sdr);
        if (!third.succeeded(kIdStringResponseMinimum)) third.raise();
        sdr.setThirdPartValues(third.data);
        return true;
    } catch (const IpmiException&) {
        // A lost reservation (0xC5) ends the read like any other failure: no new reservation.
        return false;
    }
}

CommandResponse IpmiSDROperations::getIdStringPart(unsigned char reservationLow,
                                                   unsigned char reservationHigh,
                                                   unsigned char recordIdLow,
                                                   unsigned char recordIdHigh, unsigned char offset,
                                                   const RawSDR& sdr) {
    CommandResponse whole =
        getSdr(reservationLow, reservationHigh, recordIdLow, recordIdHigh, offset, kReadToEnd);
    if (whole.status != 0 || whole.completionCode != kCannotReturnRequestedBytes) return whole;

    // Many BMCs answer "the rest of the record" (0xFF) at a non-zero offset with 0xCA, "cannot
    // return the number of requested bytes". Rather than lose the sensor's name, read what RawSDR
    // keeps of the record's rest (at most 17 bytes, bounded by the record length from its header)
    // in pieces, halving a piece each time the BMC still answers 0xCA. The answer is put together
    // as one response would have been: the next record ID, then the bytes read.
    const std::size_t recordLength = kHeaderLength + sdr.bytes[kRecordLengthPosition];
    const std::size_t wanted =
        recordLength > offset ? std::min(recordLength - offset, kIdStringPartCapacity) : 0;
    std::vector<unsigned char> bytes;
    std::size_t piece = wanted;
    CommandResponse last = whole;
    while (bytes.size() < wanted) {
        const std::size_t count = std::min(piece, wanted - bytes.size());
        last = getSdr(reservationLow, reservationHigh, recordIdLow, recordIdHigh,
                      static_cast<unsigned char>(offset + bytes.size()),
                      static_cast<unsigned char>(count));
        if (last.status == 0 && last.completionCode == kCannotReturnRequestedBytes && piece > 1) {
            piece /= 2;
            continue;
        }
        if (!last.succeeded(kNextRecordIdLength + 1)) return last;
        const std::size_t received = std::min(count, last.data.size() - kNextRecordIdLength);
        bytes.insert(bytes.end(), last.data.begin() + kNextRecordIdLength,
                     last.data.begin() + kNextRecordIdLength + received);
    }
    if (bytes.empty()) return whole;  // nothing of the record lies at or past `offset`
    last.data.resize(kNextRecordIdLength);
    last.data.insert(last.data.end(), bytes.begin(), bytes.end());
    return last;
}

void IpmiSDROperations::getTypeOneAndTwoPartialRawSDRs(std::vector<RawSDR>& sdrs) {
    // One reservation serves the whole walk; a repository change cancels it and ends the walk.
    unsigned char reservationLow = 0;
    unsigned char reservationHigh = 0;
    if (!reservationSDR(reservationLow, reservationHigh)) return;
    unsigned char recordIdLow = 0x00;  // record ID 0x0000: the first record
    unsigned char recordIdHigh = 0x00;
    // A chain that comes back to an ID already requested ends there (see getRawSelEntries).
    std::set<unsigned> requested;
    do {
        const unsigned recordId = recordIdLow | recordIdHigh << 8;
        if (!requested.insert(recordId).second) {
            logRepeatedRecordId("getTypeOneAndTwoPartialRawSDRs", recordId, __LINE__);
            return;
        }
        RawSDR sdr;
        unsigned char nextLow = 0;
        unsigned char nextHigh = 0;
        if (!getOneSDRPartial(reservationLow, reservationHigh, sdr, recordIdLow, recordIdHigh,
                              nextLow, nextHigh)) {
            return;
        }
        if (isSensorRecord(sdr)) sdrs.push_back(sdr);
        recordIdLow = nextLow;
        recordIdHigh = nextHigh;
    } while (recordIdLow != 0xFF || recordIdHigh != 0xFF);
}

}  // namespace Tolmar
