// The SEL commands of the Storage network function, over one connected client.
#pragma once

#include <map>
#include <vector>

#include "CommandExchange.h"
#include "IPMIAuxiliaryLog.h"
#include "IpmiClient.h"
#include "IpmiEventLog.h"
#include "RawAlertPolicyTableEntry.h"
#include "RawPETEntry.h"
#include "RawSDR.h"
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
    // A failure is logged and thrown as IpmiException(completion code, 5), which ends the walk
    // here; the records read before it stay, and the caller sees only the shorter list.
    void getRawSelEntries(std::vector<RawSelEntry>& entries);
    // One Get SEL Entry exchange for the whole record `recordId` (FFFFh: the SEL's last), as
    // every SEL read sends it. A success holds kSelEntryResponseLength bytes or more.
    CommandResponse exchangeGetSelEntry(unsigned long recordId);
    // The next record ID, then the record.
    static constexpr std::size_t kSelEntryResponseLength = 2 + sizeof(RawSelEntry);
    // The next record ID a Get SEL Entry answer carries in its first two bytes.
    static unsigned long nextRecordId(const std::vector<unsigned char>& getSelEntryResponse);
    // Delete SEL Entry under a fresh reservation.
    int deleteSEL(unsigned long recordId);
    // Clear SEL under a fresh reservation: starts the erase and does not wait for it.
    int deleteAllSEL();
    // Clear SEL under the reservation `low`, `high`: starts the erase and does not wait for it.
    CommandResponse clearSel(unsigned char low, unsigned char high);
    // Add SEL Entry with the caller's 16 bytes as they stand.
    int AddSelEntry(const IPMISELENTRY& entry);

    // Appends the PEF event filter table's enabled filters whose action includes an alert, in
    // table order. A failure ends the read (and is logged); the entries read before it stay.
    void getRawPETEntries(std::vector<RawPETEntry>& entries);
    // Appends every entry of the PEF alert policy table, like getRawPETEntries.
    void getAlertPolicyTableEntries(std::vector<RawAlertPolicyTableEntry>& entries);

    // Get Auxiliary Log Status for the OEM log: sets *count to its number of entries (0 on any
    // failure). The result codes are those of IpmiEventLog.
    int IPMIGetAuxLogStatus(unsigned int* count);
    // Reads auxiliary entries 1 to count into entries[0] to entries[count - 1], each zeroed first
    // and read in chunks of up to 25 bytes. 0 when every read was answered; 6 when the BMC
    // answered a request with an error (a length request's error ends the read).
    int IPMIReadExtendedData(s_AuxLog_entry* entries, unsigned int count);
    // The same read of entries `first` to first + count - 1; `whole`, when given, is set to how
    // many of them, from the first on, were read to their end.
    int readExtendedDataFrom(unsigned int first, s_AuxLog_entry* entries, unsigned int count,
                             unsigned int* whole = nullptr);

    // Whether the filter applies to the SEL record: generator, sensor type, sensor number and
    // event trigger (0xFF: any), then the event data masks.
    static bool matchSelPETEntry(const RawSelEntry& sel, const RawPETEntry& pet);
    static bool matchSelPETEntryMasks(const RawSelEntry& sel, const RawPETEntry& pet);
    static bool matchSelPETEntryOffsetMask(const RawSelEntry& sel, const RawPETEntry& pet);
    static bool matchSelPETEntryOtherMasks(const RawSelEntry& sel, const RawPETEntry& pet);
    static bool matchSelPETEntryEventDataMasks(unsigned char data, unsigned char andMask,
                                               unsigned char compare1, unsigned char compare2);
    // The matching filter with the lowest alert policy number byte (the first on a tie), as an
    // index into `pet`, or -1.
    static int getPETEntryNumberForSelEntry(const RawSelEntry& sel,
                                            const std::vector<RawPETEntry>& pet);
    // For every SEL position i: out[i] = its filter's index in `pet`, or -1.
    static void getSelPETEntryNumberMap(const std::vector<RawSelEntry>& sel,
                                        const std::vector<RawPETEntry>& pet,
                                        std::map<int, int>& out);
    // For every SEL position i: out[i] = the index of the first SDR with the record's sensor
    // number, or -1.
    static void getSelSDRNumberMap(const std::vector<RawSelEntry>& sel,
                                   const std::vector<RawSDR>& sdr, std::map<int, int>& out);

private:
    // Reads one PEF table: its size from `countParameter`, then entries 1 to that size from
    // `tableParameter`, appending those `keep` accepts.
    template <typename Entry, typename Keep>
    void readPefTable(unsigned char countParameter, unsigned char tableParameter,
                      const char* failureMessage, std::vector<Entry>& entries, Keep keep);

    IpmiClient& client_;
};

// Logs, at level 1, that a walk of records met a record ID it had already requested.
void logRepeatedRecordId(const char* walk, unsigned long recordId, int line);

}  // namespace Tolmar
