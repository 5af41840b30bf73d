// One request/response exchange with the BMC through IpmiClient::sendCommand, and the pieces
// every repository operation shares: the completion-code mapping and the reservation commands.
#pragma once

#include <cstddef>
#include <vector>

#include "IpmiClient.h"

namespace Tolmar {

// Network functions, request form (IPMI v2.0 table 5-1).
constexpr unsigned char kNetFnSensorEvent = 0x04;
constexpr unsigned char kNetFnStorage = 0x0A;
constexpr unsigned char kNetFnOemGroup = 0x2E;

// Completion codes the result mapping knows (IPMI v2.0 table 5-2; for the SEL commands 0x81
// means that an erase is in progress).
constexpr unsigned char kCompletionOk = 0x00;
constexpr unsigned char kCompletionCommandSpecific80 = 0x80;
constexpr unsigned char kCompletionCommandSpecific81 = 0x81;

// What came back for one request.
struct CommandResponse {
    int status = 0;  // the client's return: 0 when a response arrived, else a transport failure
    unsigned char completionCode = 0;  // 0 unless a response set it
    std::vector<unsigned char> data;   // the bytes after the completion code

    // A response arrived with completion code 0 and at least `minLength` data bytes. A shorter
    // response is no more usable than none.
    bool succeeded(std::size_t minLength) const;
    // A response arrived with completion code 0 but fewer than `minLength` data bytes.
    bool truncated(std::size_t minLength) const;
    // The result code of the single-command SEL operations: 0 for completion code 0x00, 1 for
    // 0x80, 2 for 0x81, 6 for any other code or a transport failure.
    int resultCode() const;
    // Reports the failure the way the list reads and reservations do: an IpmiException carrying
    // the completion code (0 when only the transport failed) as a failed command.
    [[noreturn]] void raise() const;
};

CommandResponse exchange(IpmiClient& client, unsigned char netFn, unsigned char command,
                         std::vector<unsigned char> data);

// Sends a reservation command of the Storage network function (Reserve SEL or Reserve SDR
// Repository) and stores the reservation ID, least significant byte first. Any failure, an
// IpmiException from the client included, gives false.
bool reserve(IpmiClient& client, unsigned char command, unsigned char& low, unsigned char& high);

}  // namespace Tolmar
