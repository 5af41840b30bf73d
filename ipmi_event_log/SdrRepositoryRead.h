// Reads the SDR repository's records whole (Get SDR, IPMI v2.0 section 33.12): every byte of
// every record, as decoding SEL records by IPMI's rules needs them (owner and LUN to find an
// event's sensor, the conversion factors, the ID string with its type and length).
#pragma once

#include <cstdint>
#include <set>
#include <vector>

#include "CommandExchange.h"
#include "IpmiClient.h"
#include "RawSDR.h"

namespace Tolmar {

class SdrRepositoryRead {
public:
    explicit SdrRepositoryRead(IpmiClient& client);

    // Every record in repository order, each with its 5-byte header, into `records` (replacing
    // what it held). False when the walk ended before the last record: the BMC refused or stopped
    // answering, or kept changing the repository under the reservation. What was read stays.
    bool readAll(std::vector<std::vector<std::uint8_t>>& records);

private:
    struct Reservation {
        unsigned char low = 0;
        unsigned char high = 0;
    };
    enum class Walk { Complete, Cancelled, Failed };

    // One walk from the first record under `reservation`.
    Walk walk(const Reservation& reservation, std::vector<std::vector<std::uint8_t>>& records);
    // One record: its header, then the rest in pieces the BMC can return. Sets `next`, the next
    // record's ID.
    Walk readRecord(const Reservation& reservation, unsigned recordId,
                    std::vector<std::uint8_t>& record, unsigned& next);
    // Get SDR of `count` bytes from `offset` of one record.
    CommandResponse getSdr(const Reservation& reservation, unsigned recordId, std::size_t offset,
                           std::size_t count);

    IpmiClient& client_;
    // Bytes asked for at once after a record's header; halved for a BMC that answers CAh.
    std::size_t piece_;
};

// The full (01h) and compact (02h) sensor records among `records`, each as the event renderer
// keeps it (RawSDR): the same bytes its three partial reads would have given.
std::vector<RawSDR> sensorImagesOf(const std::vector<std::vector<std::uint8_t>>& records);

}  // namespace Tolmar
