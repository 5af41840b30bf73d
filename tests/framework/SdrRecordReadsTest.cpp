// The completion of Get SDR reads of a record's rest: answers shorter than the record's header
// says, CAh, headers claiming more than the record holds, and answers that make no sense.
#include "SdrRecordReads.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <functional>
#include <vector>

namespace {

using Bytes = std::vector<unsigned char>;

constexpr unsigned char kStorage = 0x0A;
constexpr unsigned char kGetSdr = 0x23;
constexpr unsigned char kCannotReturnRequestedBytes = 0xCA;

// A record of `length` bytes whose header states `statedLength` bytes after it; its bytes past
// the header count up from 0x10.
Bytes record(std::size_t length, unsigned char statedLength) {
    Bytes bytes(length);
    for (std::size_t i = 0; i < length; ++i) bytes[i] = static_cast<unsigned char>(0x10 + i);
    bytes[0] = 0x07;
    bytes[1] = 0x00;
    bytes[2] = 0x51;
    bytes[3] = 0x01;
    bytes[4] = statedLength;
    return bytes;
}

// Get SDR for record 0007h under reservation 1234h.
Bytes getSdr(unsigned char offset, unsigned char count) {
    return {0x34, 0x12, 0x07, 0x00, offset, count};
}

// An answer with next record ID 0009h and `bytes`.
Bytes answerWith(const Bytes& bytes) {
    Bytes answer(3 + bytes.size(), 0x00);
    answer[1] = 0x09;
    std::copy(bytes.begin(), bytes.end(), answer.begin() + 3);
    return answer;
}

Bytes slice(const Bytes& bytes, std::size_t from, std::size_t to) {
    return Bytes(bytes.begin() + static_cast<std::ptrdiff_t>(from),
                 bytes.begin() + static_cast<std::ptrdiff_t>(std::min(to, bytes.size())));
}

// A BMC holding one record: each Get SDR is answered by `answer`, which the test sets; the
// requests are kept.
class SdrRecordReadsTest : public ::testing::Test {
protected:
    // A BMC that reads `held` as a BMC should: what is asked for, up to the record's end.
    void holding(const Bytes& held) {
        answer = [held](const Bytes& request) {
            const std::size_t offset = request[4];
            if (offset > held.size()) return Bytes{0xC9};
            const std::size_t count = request[5] == 0xFF ? held.size() : request[5];
            return answerWith(slice(held, offset, offset + count));
        };
    }

    // The same, but a read of the rest (count FFh) gives at most `bytes` of it.
    void holdingWithRestCut(const Bytes& held, std::size_t bytes) {
        holding(held);
        answer = [wellRead = answer, bytes](const Bytes& request) {
            Bytes given = wellRead(request);
            if (request[5] == 0xFF) given.resize(std::min(given.size(), 3 + bytes));
            return given;
        };
    }

    // Sends `request` through the reads under test; the answer it gives.
    Bytes send(const Bytes& request, unsigned char netFn = kStorage,
               unsigned char command = kGetSdr) {
        Bytes given;
        sent = reads.exchange(netFn, command, request, given,
                              [this](unsigned char, unsigned char, const Bytes& data, Bytes& out) {
                                  requests.push_back(data);
                                  if (failAfter == 0) return false;
                                  --failAfter;
                                  out = answer(data);
                                  return true;
                              });
        return given;
    }

    // The header read, then the read of the rest from `offset`: the rest's answer.
    Bytes readRest(unsigned char offset) {
        send(getSdr(0x00, 0x0A));
        requests.clear();
        return send(getSdr(offset, 0xFF));
    }

    SdrRecordReads reads;
    std::function<Bytes(const Bytes&)> answer;
    std::vector<Bytes> requests;
    int failAfter = 1000;  // requests answered before the transport fails
    bool sent = false;
};

TEST_F(SdrRecordReadsTest, ACompleteAnswerIsHandedOnAsItIs) {
    const Bytes held = record(57, 52);
    holding(held);
    EXPECT_EQ(readRest(47), answerWith(slice(held, 47, 57)));
    EXPECT_EQ(requests, (std::vector<Bytes>{getSdr(47, 0xFF)}));
}

TEST_F(SdrRecordReadsTest, AShortAnswerIsCompletedInPiecesOfSixteenBytes) {
    const Bytes held = record(80, 75);
    holdingWithRestCut(held, 4);
    EXPECT_EQ(readRest(20), answerWith(slice(held, 20, 80)));
    EXPECT_EQ(requests, (std::vector<Bytes>{getSdr(20, 0xFF), getSdr(24, 16), getSdr(40, 16),
                                            getSdr(56, 16), getSdr(72, 8)}));
}

TEST_F(SdrRecordReadsTest, CahIsAnsweredByPiecesHalvedUntilTheBmcGivesThem) {
    const Bytes held = record(57, 52);
    holding(held);
    const auto wellRead = answer;
    answer = [&wellRead](const Bytes& request) {
        const bool header = request[4] == 0;
        return request[5] > 4 && !header ? Bytes{kCannotReturnRequestedBytes} : wellRead(request);
    };
    EXPECT_EQ(readRest(47), answerWith(slice(held, 47, 57)));
    EXPECT_EQ(requests,
              (std::vector<Bytes>{getSdr(47, 0xFF), getSdr(47, 10), getSdr(47, 5), getSdr(47, 2),
                                  getSdr(49, 2), getSdr(51, 2), getSdr(53, 2), getSdr(55, 2)}));
}

TEST_F(SdrRecordReadsTest, AHeaderClaimingMoreThanTheRecordHoldsEndsAtTheRefusalPastItsEnd) {
    // 15 bytes, the header saying 20.
    const Bytes held = record(15, 15);
    holding(held);
    const auto wellRead = answer;
    answer = [&wellRead](const Bytes& request) {
        return request[4] + request[5] > 15 && request[5] != 0xFF ? Bytes{0xC9} : wellRead(request);
    };
    EXPECT_EQ(readRest(5), answerWith(slice(held, 5, 15)));
    EXPECT_EQ(requests, (std::vector<Bytes>{getSdr(5, 0xFF), getSdr(15, 5)}));
}

TEST_F(SdrRecordReadsTest, APieceWithNoBytesEndsTheReadWithWhatCameBefore) {
    const Bytes held = record(57, 52);
    holding(held);
    const auto wellRead = answer;
    answer = [&wellRead, held](const Bytes& request) {
        if (request[4] == 0) return wellRead(request);
        if (request[5] == 0xFF) return answerWith(slice(held, 47, 50));
        return request[4] == 50 ? answerWith(slice(held, 50, 54)) : answerWith({});
    };
    EXPECT_EQ(readRest(47), answerWith(slice(held, 47, 54)));
    EXPECT_EQ(requests, (std::vector<Bytes>{getSdr(47, 0xFF), getSdr(50, 7), getSdr(54, 3)}));
}

TEST_F(SdrRecordReadsTest, BytesGivenBeyondWhatWasAskedForAreLeftOut) {
    const Bytes held = record(57, 52);
    answer = [held](const Bytes& request) {
        if (request[5] == 0xFF) return answerWith(slice(held, 47, 49));
        if (request[4] == 0) return answerWith(slice(held, 0, 10));
        return answerWith(Bytes(30, 0xEE));  // 30 bytes, whatever was asked for
    };
    EXPECT_EQ(readRest(47),
              answerWith({held[47], held[48], 0xEE, 0xEE, 0xEE, 0xEE, 0xEE, 0xEE, 0xEE, 0xEE}));
    EXPECT_EQ(requests, (std::vector<Bytes>{getSdr(47, 0xFF), getSdr(49, 8)}));
}

TEST_F(SdrRecordReadsTest, AnAnswerWithoutTheNextRecordIdTakesThePiecesOne) {
    const Bytes held = record(57, 52);
    holding(held);
    const auto wellRead = answer;
    answer = [&wellRead](const Bytes& request) {
        return request[5] == 0xFF ? Bytes{0x00, 0x09} : wellRead(request);
    };
    EXPECT_EQ(readRest(47), answerWith(slice(held, 47, 57)));
    EXPECT_EQ(requests, (std::vector<Bytes>{getSdr(47, 0xFF), getSdr(47, 10)}));
}

TEST_F(SdrRecordReadsTest, ARecordLengthOfZeroLeavesNothingToRead) {
    holding(record(5, 0));
    EXPECT_EQ(readRest(47), Bytes{0xC9});
    EXPECT_EQ(requests, (std::vector<Bytes>{getSdr(47, 0xFF)}));
}

TEST_F(SdrRecordReadsTest, ARecordLengthOf255IsReadUpToTheLastOffsetAByteCanName) {
    const Bytes held = record(260, 255);
    holdingWithRestCut(held, 200);
    EXPECT_EQ(readRest(47), answerWith(slice(held, 47, 256)));
    EXPECT_EQ(requests, (std::vector<Bytes>{getSdr(47, 0xFF), getSdr(247, 9)}));
}

TEST_F(SdrRecordReadsTest, ATransportFailureEndsTheReadWithWhatCameBefore) {
    const Bytes held = record(80, 75);
    holdingWithRestCut(held, 4);
    send(getSdr(0x00, 0x0A));
    failAfter = 2;
    EXPECT_EQ(send(getSdr(20, 0xFF)), answerWith(slice(held, 20, 40)));
    EXPECT_TRUE(sent);
    EXPECT_EQ(failAfter, 0);
}

TEST_F(SdrRecordReadsTest, OnlyTheRecordWhoseHeaderWasReadLastUnderItsReservationIsCompleted) {
    holdingWithRestCut(record(57, 52), 4);
    send(getSdr(0x00, 0x0A));
    Bytes otherReservation = getSdr(47, 0xFF);
    otherReservation[0] = 0x35;
    Bytes otherRecord = getSdr(47, 0xFF);
    otherRecord[2] = 0x08;
    for (const Bytes& request : {otherReservation, otherRecord}) {
        requests.clear();
        EXPECT_EQ(send(request).size(), 3u + 4u);
        EXPECT_EQ(requests.size(), 1u);
    }
    // A header read refused forgets the one before.
    const auto cutRead = answer;
    answer = [](const Bytes&) { return Bytes{0xC5}; };
    send(getSdr(0x00, 0x0A));
    answer = cutRead;
    requests.clear();
    EXPECT_EQ(send(getSdr(47, 0xFF)).size(), 7u);
    EXPECT_EQ(requests.size(), 1u);
}

TEST_F(SdrRecordReadsTest, OtherAnswersAndRequestsPassAsTheyAre) {
    holding(record(57, 52));
    send(getSdr(0x00, 0x0A));
    // A refusal other than CAh, a request that is not Get SDR, and a Get SDR of another length.
    answer = [](const Bytes&) { return Bytes{0xC5}; };
    EXPECT_EQ(send(getSdr(47, 0xFF)), Bytes{0xC5});
    answer = [](const Bytes&) { return Bytes{0x00, 0x01}; };
    EXPECT_EQ(send(getSdr(47, 0xFF), kStorage, 0x43), (Bytes{0x00, 0x01}));
    EXPECT_EQ(send({0x34, 0x12, 0x07, 0x00, 47, 0xFF, 0x00}), (Bytes{0x00, 0x01}));
    EXPECT_EQ(requests.size(), 4u);
    failAfter = 0;
    send(getSdr(47, 0xFF));
    EXPECT_FALSE(sent);
}

TEST_F(SdrRecordReadsTest, ANewSessionForgetsTheHeader) {
    holding(record(57, 52));
    const auto wellRead = answer;
    answer = [&wellRead](const Bytes& request) { return slice(wellRead(request), 0, 7); };
    send(getSdr(0x00, 0x0A));
    reads.forget();
    requests.clear();
    EXPECT_EQ(send(getSdr(47, 0xFF)).size(), 7u);
    EXPECT_EQ(requests.size(), 1u);
}

}  // namespace
