// Get SDR reads of "the rest of a record" (count FFh) made whole for BMCs that answer them short
// or not at all. Some BMCs answer such a read with fewer bytes than the record's header says it
// holds, others refuse it with CAh (cannot return the number of requested data bytes) for want of
// a large enough message buffer; both read a record correctly in smaller pieces. A record's header
// read (offset 0) tells its length; a read of its rest that falls short of it is completed piece
// by piece, and the pieces are handed on as one answer. A header can also claim more bytes than
// the record holds: a piece refused past the record's real end ends the read with what it got.
#pragma once

#include <cstddef>
#include <functional>
#include <optional>
#include <vector>

class SdrRecordReads {
public:
    using Bytes = std::vector<unsigned char>;
    // One request to the BMC: true with the completion code and the data after it in `answer`.
    using Exchange = std::function<bool(unsigned char netFn, unsigned char command,
                                        const Bytes& data, Bytes& answer)>;

    // Sends one request through `send`. A Get SDR for the rest of the record whose header was read
    // last, answered short or with CAh, is completed through `send` in pieces.
    bool exchange(unsigned char netFn, unsigned char command, const Bytes& data, Bytes& answer,
                  const Exchange& send);
    // Forgets the header read last: a new session starts afresh.
    void forget() { header_.reset(); }

private:
    // The record a header read was for (its request's reservation and record IDs), and the
    // record's length as the header states it.
    struct Header {
        Bytes reservationAndRecordId;
        std::size_t statedLength;
    };

    void noteHeader(const Bytes& request, const Bytes& answer);
    // Bytes of the record that the read of its rest `request` left out, by its header: none when
    // the header is unknown, or the answer is a refusal other than CAh.
    std::size_t bytesMissing(const Bytes& request, const Bytes& answer) const;
    // Reads `missing` more bytes after what `answer` holds, in pieces, into `answer`.
    static void readRest(const Bytes& request, Bytes& answer, std::size_t missing,
                         const Exchange& send);

    std::optional<Header> header_;
};
