// What the client's completion of SDR reads makes of any answers: a record's header read, then a
// read of its rest from an offset the input gives, each answer (and each piece's) taken from the
// input. The pieces asked for stay within what a one-byte offset can name and never ask for
// nothing, their number stays bounded, and the answer handed on holds no more than the record's
// stated length allows.
#include <cstdint>
#include <cstdlib>
#include <vector>

#include "FuzzInput.h"
#include "SdrRecordReads.h"

namespace {

using Bytes = std::vector<unsigned char>;

constexpr unsigned char kStorage = 0x0A;
constexpr unsigned char kGetSdr = 0x23;
// Two reads, at most one piece per byte of a record, and the halvings of a piece.
constexpr std::size_t kMostRequests = 2 + 0x100 + 8;
constexpr std::size_t kLongestAnswer = 3 + 0x100;

void check(bool holds) {
    if (!holds) std::abort();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    fuzz::Input input(data, size);
    const unsigned char restOffset = input.byte();
    std::size_t requests = 0;
    // Each answer: its length (FFh: no answer at all), then its bytes, completion code first.
    const SdrRecordReads::Exchange bmc = [&](unsigned char, unsigned char, const Bytes& request,
                                             Bytes& answer) {
        ++requests;
        check(requests <= kMostRequests);
        if (requests > 2) {
            check(request[5] != 0 && request[4] >= restOffset);
            check(request[4] + request[5] <= 0x100);
        }
        const std::uint8_t length = input.byte();
        if (length == 0xFF) return false;
        answer = input.bytes(length);
        return true;
    };
    SdrRecordReads reads;
    Bytes answer;
    reads.exchange(kStorage, kGetSdr, {0x01, 0x00, 0x00, 0x00, 0x00, 0x0A}, answer, bmc);
    answer.clear();
    reads.exchange(kStorage, kGetSdr, {0x01, 0x00, 0x00, 0x00, restOffset, 0xFF}, answer, bmc);
    check(answer.size() <= kLongestAnswer);
    return 0;
}
