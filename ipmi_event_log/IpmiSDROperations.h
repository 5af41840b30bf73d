// The SDR repository commands of the Storage network function, over one connected client.
#pragma once

#include <vector>

#include "CommandExchange.h"
#include "IpmiClient.h"
#include "RawSDR.h"

namespace Tolmar {

class IpmiSDROperations {
public:
    explicit IpmiSDROperations(IpmiClient& client);

    // Reserve SDR Repository. False on any failure; nothing is thrown to the caller.
    bool reservationSDR(unsigned char& low, unsigned char& high);

    // Reads one record into `sdr` under the given reservation: the first 10 bytes, and for a full
    // or compact sensor record also bytes 20-29 and the ID string. Sets the next record ID from the
    // first answer. False when any read fails (the record may then be partly filled).
    bool getOneSDRPartial(unsigned char reservationLow, unsigned char reservationHigh, RawSDR& sdr,
                          unsigned char recordIdLow, unsigned char recordIdHigh,
                          unsigned char& nextRecordIdLow, unsigned char& nextRecordIdHigh);
    // Walks the repository from its first record under one reservation and appends every full
    // (01h) and compact (02h) sensor record. A failure ends the walk; what was read stays.
    void getTypeOneAndTwoPartialRawSDRs(std::vector<RawSDR>& sdrs);

private:
    // Get SDR of `count` bytes from `offset` of one record.
    CommandResponse getSdr(unsigned char reservationLow, unsigned char reservationHigh,
                           unsigned char recordIdLow, unsigned char recordIdHigh,
                           unsigned char offset, unsigned char count);
    // The ID string part of a sensor record: the rest of the record from `offset`, or, from a BMC
    // that will not send the rest at once, as much of it as RawSDR keeps, in smaller pieces.
    CommandResponse getIdStringPart(unsigned char reservationLow, unsigned char reservationHigh,
                                    unsigned char recordIdLow, unsigned char recordIdHigh,
                                    unsigned char offset, const RawSDR& sdr);

    IpmiClient& client_;
};

}  // namespace Tolmar
