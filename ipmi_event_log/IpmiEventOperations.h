// The SEL commands of the Storage network function, over one connected client.
#pragma once

#include <vector>

#include "IpmiClient.h"
#include "IpmiEventLog.h"
#include "RawSelEntry.h"

namespace Tolmar {

class IpmiEventOperations {
public:
    explicit IpmiEventOperations(IpmiClient& client);

    // Lays the low 16 bits of `value` into bytes[0] and bytes[1], least significant first, and
    // writes nothing else: despite the name, a record ID is all it ever carries.
    static void WriteDWORD(unsigned char* bytes, unsigned long value);

    // Reserve SEL. False on any failure; nothing is thrown to the caller.
    bool reservationSEL(unsigned char& low, unsigned char& high);

    // Get SEL Entry for one record. The result codes are those of IpmiEventLog; `entry` is
    // filled from any response that arrived, whatever its completion code.
    int getSelEntry(unsigned long recordId, RawSelEntry& entry);
    // Walks the SEL from its first record along the next-record chain and appends every record.
    // A failure ends the walk (and is logged); the records read before it stay.
    void getRawSelEntries(std::vector<RawSelEntry>& entries);
    // Delete SEL Entry under a fresh reservation.
    int deleteSEL(unsigned long recordId);
    // Clear SEL under a fresh reservation: starts the erase and does not wait for it.
    int deleteAllSEL();
    // Add SEL Entry with the caller's 16 bytes as they stand.
    int AddSelEntry(const IPMISELENTRY& entry);

private:
    IpmiClient& client_;
};

}  // namespace Tolmar
