#include "IpmiEventOperations.h"

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <set>
#include <utility>

#include "CommandExchange.h"
#include "IpmiException.h"
#include "Log.h"
#include "ipmi/ByteReader.h"

namespace Tolmar {

namespace {

const char* const kLogSource = "ipmi_event_log/IpmiEventOperations";

// Storage commands (IPMI v2.0 section 31).
constexpr unsigned char kReserveSel = 0x42;
constexpr unsigned char kGetSelEntry = 0x43;
constexpr unsigned char kAddSelEntry = 0x44;
constexpr unsigned char kDeleteSelEntry = 0x46;
constexpr unsigned char kClearSel = 0x47;
constexpr unsigned char kGetAuxLogStatus = 0x5A;
// OEM group command reading the maker's auxiliary log.
constexpr unsigned char kReadAuxLog = 0x93;
constexpr unsigned char kOem1LogType = 0x01;
constexpr std::size_t kAuxLogStatusLength = 9;       // the entry count is in bytes 7 and 8
constexpr std::size_t kAuxLengthResponseLength = 5;  // enterprise number, 16-bit length
constexpr std::size_t kEnterpriseLength = 3;
constexpr unsigned kLargestAuxRecord = 590;
constexpr unsigned kAuxChunk = 25;
// Sensor/Event command (IPMI v2.0 section 30.4) and its parameters.
constexpr unsigned char kGetPefParameters = 0x13;
constexpr unsigned char kEventFilterCount = 5;
constexpr unsigned char kEventFilterTable = 6;
constexpr unsigned char kAlertPolicyCount = 8;
constexpr unsigned char kAlertPolicyTable = 9;
constexpr std::size_t kPefCountResponseLength = 2;  // parameter revision, count
constexpr unsigned char kPefCountMask = 0x7F;
constexpr std::size_t kPefEntryOffset = 2;  // after parameter revision and set selector

constexpr unsigned char kFilterEnabled = 0x80;  // event filter configuration, bit 7
constexpr unsigned char kAlertAction = 0x01;    // event filter action, bit 0
constexpr unsigned char kAny = 0xFF;            // a filter field that matches every value
constexpr int kNoMatch = -1;
constexpr int kNoAlertPolicyYet = 1024;  // above any alert policy number byte

constexpr unsigned long kFirstRecord = 0x0000;
constexpr unsigned long kLastRecord = 0xFFFF;  // as a next record ID: the chain ends
constexpr unsigned char kInitiateErase = 0xAA;

// Get SEL Entry: no reservation (a whole-record read needs none), offset 0, read everything.
std::vector<unsigned char> getSelEntryRequest(unsigned long recordId) {
    std::vector<unsigned char> data{0x00, 0x00, 0x00, 0x00, 0x00, 0xFF};
    IpmiEventOperations::WriteDWORD(&data[2], recordId);
    return data;
}

// A failed list read is logged with the completion code as one raw byte, not as a number.
void logListReadFailure(const char* prefix, unsigned char completionCode, int line) {
    if (Log::GetMinLogLevel() == 0) return;
    Log(1, kLogSource, line).Stream() << prefix << static_cast<char>(completionCode);
}

// An auxiliary-log read: the enterprise number, the entry number, the offset in one byte (larger
// offsets wrap around; this is the form the BMC expects), 0x00, the length and 0x00. Length 0
// asks for the entry's total length.
std::vector<unsigned char> auxLogRequest(unsigned entry, unsigned offset, unsigned length) {
    return {static_cast<unsigned char>(kAuxLogEnterpriseNumber & 0xFF),
            static_cast<unsigned char>((kAuxLogEnterpriseNumber >> 8) & 0xFF),
            static_cast<unsigned char>((kAuxLogEnterpriseNumber >> 16) & 0xFF),
            static_cast<unsigned char>(entry & 0xFF),
            static_cast<unsigned char>((entry >> 8) & 0xFF),
            static_cast<unsigned char>(offset & 0xFF),
            0x00,
            static_cast<unsigned char>(length),
            0x00};
}

bool fieldMatches(unsigned char filter, unsigned char value) {
    return filter == kAny || filter == value;
}

}  // namespace

void logRepeatedRecordId(const char* walk, unsigned long recordId, int line) {
    if (Log::GetMinLogLevel() == 0) return;
    char id[8];
    std::snprintf(id, sizeof id, "0x%04lX", recordId);
    Log(1, kLogSource, line).Stream() << walk << ": the next record chain comes back to record ID "
                                      << id << "; the walk ends there";
}

IpmiEventOperations::IpmiEventOperations(IpmiClient& client) : client_(client) {}

void IpmiEventOperations::WriteDWORD(unsigned char* bytes, unsigned long value) {
    bytes[0] = value & 0xFF;
    bytes[1] = (value >> 8) & 0xFF;
}

bool IpmiEventOperations::reservationSEL(unsigned char& low, unsigned char& high) {
    return reserve(client_, kReserveSel, low, high);
}

int IpmiEventOperations::getSelEntry(unsigned long recordId, RawSelEntry& entry) {
    const CommandResponse response = exchangeGetSelEntry(recordId);
    // A success too short to hold a record is no better than a lost response.
    if (response.status != 0 || response.truncated(kSelEntryResponseLength)) {
        return IpmiEventLog::EL_INTERNAL_FAIL;
    }
    entry.setValues(response.data);
    return response.resultCode();
}

CommandResponse IpmiEventOperations::exchangeGetSelEntry(unsigned long recordId) {
    return exchange(client_, kNetFnStorage, kGetSelEntry, getSelEntryRequest(recordId));
}

unsigned long IpmiEventOperations::nextRecordId(
    const std::vector<unsigned char>& getSelEntryResponse) {
    return ByteReader(getSelEntryResponse).u16();
}

void IpmiEventOperations::getRawSelEntries(std::vector<RawSelEntry>& entries) {
    try {
        // A BMC whose next-record chain comes back to an ID already requested would make the walk
        // loop forever; it ends there instead, as if the chain had. A chain that ends never
        // repeats an ID, so nothing changes for it.
        std::set<unsigned long> requested;
        for (unsigned long recordId = kFirstRecord; recordId != kLastRecord;) {
            if (!requested.insert(recordId).second) {
                logRepeatedRecordId("getRawSelEntries", recordId, __LINE__);
                return;
            }
            const CommandResponse response = exchangeGetSelEntry(recordId);
            if (!response.succeeded(kSelEntryResponseLength)) {
                logListReadFailure("getRawSelEntries completionCode: ", response.completionCode,
                                   __LINE__);
                response.raise();
            }
            recordId = nextRecordId(response.data);
            RawSelEntry entry{};
            entry.setValues(response.data);
            entries.push_back(entry);
        }
    } catch (const IpmiException&) {
        // The walk ends at its first failure, the BMC's empty SEL (CBh) among them; the records
        // read so far stay in `entries`.
    }
}

int IpmiEventOperations::deleteSEL(unsigned long recordId) {
    unsigned char low = 0;
    unsigned char high = 0;
    if (!reservationSEL(low, high)) return IpmiEventLog::EL_BUSY;
    std::vector<unsigned char> data{low, high, 0x00, 0x00};
    WriteDWORD(&data[2], recordId);
    return exchange(client_, kNetFnStorage, kDeleteSelEntry, std::move(data)).resultCode();
}

int IpmiEventOperations::deleteAllSEL() {
    unsigned char low = 0;
    unsigned char high = 0;
    if (!reservationSEL(low, high)) return IpmiEventLog::EL_BUSY;
    return clearSel(low, high).resultCode();
}

CommandResponse IpmiEventOperations::clearSel(unsigned char low, unsigned char high) {
    // The 'C', 'L', 'R' signature guards against an accidental clear.
    std::vector<unsigned char> data{low, high, 'C', 'L', 'R', kInitiateErase};
    return exchange(client_, kNetFnStorage, kClearSel, std::move(data));
}

int IpmiEventOperations::AddSelEntry(const IPMISELENTRY& entry) {
    const auto* bytes = reinterpret_cast<const unsigned char*>(&entry);
    std::vector<unsigned char> data(bytes, bytes + sizeof entry);
    return exchange(client_, kNetFnStorage, kAddSelEntry, std::move(data)).resultCode();
}

template <typename Entry, typename Keep>
void IpmiEventOperations::readPefTable(unsigned char countParameter, unsigned char tableParameter,
                                       const char* failureMessage, std::vector<Entry>& entries,
                                       Keep keep) {
    try {
        const auto readParameter = [&](unsigned char parameter, unsigned char set,
                                       std::size_t minLength) {
            // Data: parameter selector, set selector, block selector.
            CommandResponse response =
                exchange(client_, kNetFnSensorEvent, kGetPefParameters, {parameter, set, 0x00});
            if (!response.succeeded(minLength)) {
                logListReadFailure(failureMessage, response.completionCode, __LINE__);
                response.raise();
            }
            return response;
        };
        const unsigned count =
            readParameter(countParameter, 0x00, kPefCountResponseLength).data[1] & kPefCountMask;
        for (unsigned set = 1; set <= count; ++set) {
            const CommandResponse response = readParameter(
                tableParameter, static_cast<unsigned char>(set), kPefEntryOffset + sizeof(Entry));
            Entry entry{};
            entry.setValues(response.data);
            if (keep(entry)) entries.push_back(entry);
        }
    } catch (const IpmiException&) {
        // The read ends at its first failure; the entries read so far stay in `entries`.
    }
}

void IpmiEventOperations::getRawPETEntries(std::vector<RawPETEntry>& entries) {
    // Only enabled filters that raise an alert take part in matching, so an entry's position in
    // `entries` is not its filter number.
    readPefTable(kEventFilterCount, kEventFilterTable, "getRawPETEntries completionCode: ", entries,
                 [](const RawPETEntry& filter) {
                     return (filter.filterConfiguration & kFilterEnabled) &&
                            (filter.eventFilterAction & kAlertAction);
                 });
}

void IpmiEventOperations::getAlertPolicyTableEntries(
    std::vector<RawAlertPolicyTableEntry>& entries) {
    readPefTable(kAlertPolicyCount, kAlertPolicyTable,
                 "getAlertPolicyTableEntries completionCode: ", entries,
                 [](const RawAlertPolicyTableEntry&) { return true; });
}

bool IpmiEventOperations::matchSelPETEntry(const RawSelEntry& sel, const RawPETEntry& pet) {
    // The trigger is compared with the whole event direction/type byte, so a deassertion (bit 7
    // set) matches only a trigger of 0xFF or one carrying the same bit.
    return fieldMatches(pet.generatorId[0], sel.generatorId[0]) &&
           fieldMatches(pet.generatorId[1], sel.generatorId[1]) &&
           fieldMatches(pet.sensorType, sel.sensorType) &&
           fieldMatches(pet.sensorNumber, sel.sensorNum) &&
           fieldMatches(pet.eventTrigger, sel.eventDirType) && matchSelPETEntryMasks(sel, pet);
}

bool IpmiEventOperations::matchSelPETEntryMasks(const RawSelEntry& sel, const RawPETEntry& pet) {
    return matchSelPETEntryOffsetMask(sel, pet) && matchSelPETEntryOtherMasks(sel, pet);
}

bool IpmiEventOperations::matchSelPETEntryOffsetMask(const RawSelEntry& sel,
                                                     const RawPETEntry& pet) {
    // Unlike the IPMI standard's mask (bit n for offset n, 0-15), offsets 8-15 never match and
    // both mask bytes are tested at offsets 0-7. Kept exactly so: it decides which filter, and so
    // which severity, an event gets.
    const unsigned offset = sel.eventData1 & 0x0F;
    if (offset > 7) return false;
    return ((pet.eventData1OffsetMask[0] >> offset) & 1) ||
           ((pet.eventData1OffsetMask[1] >> offset) & 1);
}

bool IpmiEventOperations::matchSelPETEntryOtherMasks(const RawSelEntry& sel,
                                                     const RawPETEntry& pet) {
    return matchSelPETEntryEventDataMasks(sel.eventData1, pet.eventData1AndMask,
                                          pet.eventData1Compare1, pet.eventData1Compare2) &&
           matchSelPETEntryEventDataMasks(sel.eventData2, pet.eventData2AndMask,
                                          pet.eventData2Compare1, pet.eventData2Compare2) &&
           matchSelPETEntryEventDataMasks(sel.eventData3, pet.eventData3AndMask,
                                          pet.eventData3Compare1, pet.eventData3Compare2);
}

bool IpmiEventOperations::matchSelPETEntryEventDataMasks(unsigned char data, unsigned char andMask,
                                                         unsigned char compare1,
                                                         unsigned char compare2) {
    // The bits compare 1 selects must equal those of compare 2. Beyond that this is not the IPMI
    // standard's rule for the other bits: with compare 1 neither 0x00 nor 0xFF and a non-zero
    // compare 2 nothing matches, and with compare 1 = 0x00 only bit 0 is looked at. Kept so.
    const unsigned char masked = data & andMask;
    if ((masked ^ compare2) & compare1) return false;
    if (compare1 == 0xFF) return true;
    const bool lowBit = compare1 == 0x00 && (masked & 0x01);
    if (compare2 == 0x00) return !lowBit;
    return lowBit && (compare2 & 0x01);
}

int IpmiEventOperations::getPETEntryNumberForSelEntry(const RawSelEntry& sel,
                                                      const std::vector<RawPETEntry>& pet) {
    int best = kNoAlertPolicyYet;
    int found = kNoMatch;
    for (std::size_t i = 0; i < pet.size(); ++i) {
        if (matchSelPETEntry(sel, pet[i]) && pet[i].alertPolicyNumber < best) {
            best = pet[i].alertPolicyNumber;
            found = static_cast<int>(i);
        }
    }
    return found;
}

void IpmiEventOperations::getSelPETEntryNumberMap(const std::vector<RawSelEntry>& sel,
                                                  const std::vector<RawPETEntry>& pet,
                                                  std::map<int, int>& out) {
    for (std::size_t i = 0; i < sel.size(); ++i) {
        out[static_cast<int>(i)] = getPETEntryNumberForSelEntry(sel[i], pet);
    }
}

void IpmiEventOperations::getSelSDRNumberMap(const std::vector<RawSelEntry>& sel,
                                             const std::vector<RawSDR>& sdr,
                                             std::map<int, int>& out) {
    // Only the sensor number is compared, not the owner: with several controllers owning a sensor
    // of the same number, the first SDR read wins.
    constexpr std::size_t sensorNumberPosition = 7;
    for (std::size_t i = 0; i < sel.size(); ++i) {
        const auto found = std::find_if(sdr.begin(), sdr.end(), [&](const RawSDR& record) {
            return record.bytes[sensorNumberPosition] == sel[i].sensorNum;
        });
        out[static_cast<int>(i)] =
            found == sdr.end() ? kNoMatch : static_cast<int>(found - sdr.begin());
    }
}

int IpmiEventOperations::IPMIGetAuxLogStatus(unsigned int* count) {
    constexpr std::size_t countAt = 7;
    *count = 0;
    const CommandResponse response =
        exchange(client_, kNetFnStorage, kGetAuxLogStatus, {kOem1LogType});
    if (response.status != 0 || response.truncated(kAuxLogStatusLength)) {
        return IpmiEventLog::EL_INTERNAL_FAIL;
    }
    if (response.completionCode == kCompletionOk) *count = ByteReader(response.data, countAt).u16();
    return response.resultCode();
}

int IpmiEventOperations::IPMIReadExtendedData(s_AuxLog_entry* entries, unsigned int count) {
    return readExtendedDataFrom(1, entries, count);
}

int IpmiEventOperations::readExtendedDataFrom(unsigned int first, s_AuxLog_entry* entries,
                                              unsigned int count, unsigned int* whole) {
    int result = IpmiEventLog::EL_SUCCESS;
    unsigned int readWhole = 0;
    bool wholeSoFar = true;
    if (whole != nullptr) *whole = 0;
    for (unsigned number = first; number < first + count; ++number) {
        s_AuxLog_entry& entry = entries[number - first];
        std::memset(entry.data, 0, sizeof entry.data);
        const CommandResponse length =
            exchange(client_, kNetFnOemGroup, kReadAuxLog, auxLogRequest(number, 0, 0));
        // An entry whose length did not arrive stays zero; an error from the BMC ends the read.
        if (length.status != 0 || length.truncated(kAuxLengthResponseLength)) {
            wholeSoFar = false;
            continue;
        }
        if (length.completionCode != kCompletionOk) return IpmiEventLog::EL_INTERNAL_FAIL;
        const unsigned total =
            std::min<unsigned>(ByteReader(length.data, kEnterpriseLength).u16(), kLargestAuxRecord);

        // The first chunk is kept whole, starting with the echoed enterprise number; later chunks
        // without it. The first asks for 25 bytes whatever the total. A chunk that fails leaves
        // the entry as far as it was filled.
        std::size_t written = 0;
        unsigned chunk = kAuxChunk;
        bool entryWhole = true;
        for (unsigned remaining = total; remaining > 0;) {
            const CommandResponse response =
                exchange(client_, kNetFnOemGroup, kReadAuxLog,
                         auxLogRequest(number, total - remaining, chunk));
            entryWhole = response.status == 0 && response.completionCode == kCompletionOk;
            if (response.status != 0) break;
            if (response.completionCode != kCompletionOk) {
                result = IpmiEventLog::EL_INTERNAL_FAIL;
                break;
            }
            ByteReader kept(response.data, written == 0 ? 0 : kEnterpriseLength);
            if (kept.remaining() == 0) break;
            written += kept.upTo(entry.data + written, sizeof entry.data - written);
            remaining = chunk < remaining ? remaining - chunk : 0;
            chunk = std::min(kAuxChunk, remaining);
        }
        wholeSoFar = wholeSoFar && entryWhole;
        if (wholeSoFar && whole != nullptr) *whole = ++readWhole;
    }
    return result;
}

}  // namespace Tolmar
