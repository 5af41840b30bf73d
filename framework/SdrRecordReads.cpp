#include "SdrRecordReads.h"

#include <algorithm>

namespace {

using Bytes = SdrRecordReads::Bytes;

constexpr unsigned char kNetFnStorage = 0x0A;
constexpr unsigned char kGetSdr = 0x23;
constexpr unsigned char kCompletionOk = 0x00;
constexpr unsigned char kCannotReturnRequestedBytes = 0xCA;

// Get SDR's request: reservation ID, record ID, offset into the record, bytes to read (FFh: the
// rest). Its answer: completion code, next record ID, the bytes read (IPMI v2.0 section 33.12).
constexpr std::size_t kRequestLength = 6;
constexpr std::size_t kRecordKeyLength = 4;  // reservation and record IDs
constexpr std::size_t kOffsetAt = 4;
constexpr std::size_t kCountAt = 5;
constexpr unsigned char kReadRest = 0xFF;
constexpr std::size_t kAnswerHeadLength = 3;  // completion code, next record ID

// The record header: record ID, SDR version, record type, and the length of what follows it.
constexpr std::size_t kRecordHeaderLength = 5;
constexpr std::size_t kRecordLengthAt = 4;

// The offset is one byte: bytes past 255 cannot be asked for one by one.
constexpr std::size_t kAddressableBytes = 0x100;
// The first piece asked for; a piece refused with CAh is asked for again halved.
constexpr std::size_t kFirstPieceLength = 16;

bool isGetSdr(unsigned char netFn, unsigned char command, const Bytes& data) {
    return netFn == kNetFnStorage && command == kGetSdr && data.size() == kRequestLength;
}

bool answeredWithData(const Bytes& answer) {
    return answer.size() >= kAnswerHeadLength && answer[0] == kCompletionOk;
}

Bytes pieceRequest(const Bytes& request, std::size_t offset, std::size_t count) {
    Bytes piece = request;
    piece[kOffsetAt] = static_cast<unsigned char>(offset);
    piece[kCountAt] = static_cast<unsigned char>(count);
    return piece;
}

}  // namespace

bool SdrRecordReads::exchange(unsigned char netFn, unsigned char command, const Bytes& data,
                              Bytes& answer, const Exchange& send) {
    if (!send(netFn, command, data, answer)) return false;
    if (!isGetSdr(netFn, command, data)) return true;
    if (data[kOffsetAt] == 0) noteHeader(data, answer);
    const std::size_t missing = bytesMissing(data, answer);
    if (missing > 0) readRest(data, answer, missing, send);
    return true;
}

void SdrRecordReads::noteHeader(const Bytes& request, const Bytes& answer) {
    header_.reset();
    if (!answeredWithData(answer) || answer.size() < kAnswerHeadLength + kRecordHeaderLength)
        return;
    header_ = Header{Bytes(request.begin(), request.begin() + kRecordKeyLength),
                     kRecordHeaderLength + answer[kAnswerHeadLength + kRecordLengthAt]};
}

std::size_t SdrRecordReads::bytesMissing(const Bytes& request, const Bytes& answer) const {
    if (request[kCountAt] != kReadRest || !header_ ||
        !std::equal(header_->reservationAndRecordId.begin(), header_->reservationAndRecordId.end(),
                    request.begin())) {
        return 0;
    }
    const std::size_t end = std::min(header_->statedLength, kAddressableBytes);
    const std::size_t offset = request[kOffsetAt];
    if (offset >= end) return 0;
    if (answer.empty()) return 0;
    if (answer[0] == kCompletionOk) {
        const std::size_t received = answer.size() - std::min(answer.size(), kAnswerHeadLength);
        return received < end - offset ? end - offset - received : 0;
    }
    return answer[0] == kCannotReturnRequestedBytes ? end - offset : 0;
}

void SdrRecordReads::readRest(const Bytes& request, Bytes& answer, std::size_t missing,
                              const Exchange& send) {
    // What the read gave, when it gave data; otherwise the first piece's next record ID.
    Bytes assembled = answeredWithData(answer) ? answer : Bytes();
    std::size_t offset =
        request[kOffsetAt] + (assembled.empty() ? 0 : assembled.size() - kAnswerHeadLength);
    const std::size_t end = offset + missing;
    std::size_t pieceLength = kFirstPieceLength;
    while (offset < end) {
        const std::size_t count = std::min(pieceLength, end - offset);
        Bytes piece;
        if (!send(kNetFnStorage, kGetSdr, pieceRequest(request, offset, count), piece)) break;
        if (!piece.empty() && piece[0] == kCannotReturnRequestedBytes && count > 1) {
            pieceLength = count / 2;
            continue;
        }
        // Refused, or nothing given: past the record's real end, or the BMC will give no more.
        if (!answeredWithData(piece) || piece.size() == kAnswerHeadLength) break;
        if (assembled.empty()) assembled.assign(piece.begin(), piece.begin() + kAnswerHeadLength);
        // A BMC that gives more than asked for gives bytes of no use here.
        const std::size_t taken = std::min(count, piece.size() - kAnswerHeadLength);
        const auto bytes = piece.begin() + kAnswerHeadLength;
        assembled.insert(assembled.end(), bytes, bytes + static_cast<std::ptrdiff_t>(taken));
        offset += taken;
    }
    if (!assembled.empty()) answer = std::move(assembled);
}
