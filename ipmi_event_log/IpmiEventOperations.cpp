#include "IpmiEventOperations.h"

#include <utility>

#include "CommandExchange.h"
#include "IpmiException.h"
#include "Log.h"

namespace Tolmar {

namespace {

const char* const kLogSource = "ipmi_event_log/IpmiEventOperations";

// Storage commands (IPMI v2.0 section 31).
constexpr unsigned char kReserveSel = 0x42;
constexpr unsigned char kGetSelEntry = 0x43;
constexpr unsigned char kAddSelEntry = 0x44;
constexpr unsigned char kDeleteSelEntry = 0x46;
constexpr unsigned char kClearSel = 0x47;

constexpr unsigned long kFirstRecord = 0x0000;
constexpr unsigned long kLastRecord = 0xFFFF;  // as a next record ID: the chain ends
constexpr std::size_t kSelEntryResponseLength = 2 + sizeof(RawSelEntry);  // next ID + record
constexpr unsigned char kInitiateErase = 0xAA;

// Get SEL Entry: no reservation (a whole-record read needs none), offset 0, read everything.
std::vector<unsigned char> getSelEntryRequest(unsigned long recordId) {
    std::vector<unsigned char> data{0x00, 0x00, 0x00, 0x00, 0x00, 0xFF};
    IpmiEventOperations::WriteDWORD(&data[2], recordId);
    return data;
}

unsigned long nextRecordId(const std::vector<unsigned char>& getSelEntryResponse) {
    return getSelEntryResponse[0] | getSelEntryResponse[1] << 8;
}

// A failed list read is logged with the completion code as one raw byte, not as a number.
void logListReadFailure(const char* prefix, unsigned char completionCode, int line) {
    if (Log::GetMinLogLevel() == 0) return;
    Log(1, kLogSource, line).Stream() << prefix << static_cast<char>(completionCode);
}

}  // namespace

IpmiEventOperations::IpmiEventOperations(IpmiClient& client) : client_(client) {}

void IpmiEventOperations::WriteDWORD(unsigned char* bytes, unsigned long value) {
    bytes[0] = value & 0xFF;
    bytes[1] = (value >> 8) & 0xFF;
}

bool IpmiEventOperations::reservationSEL(unsigned char& low, unsigned char& high) {
    return reserve(client_, kReserveSel, low, high);
}

int IpmiEventOperations::getSelEntry(unsigned long recordId, RawSelEntry& entry) {
    const CommandResponse response =
        exchange(client_, kNetFnStorage, kGetSelEntry, getSelEntryRequest(recordId));
    // A success too short to hold a record is no better than a lost response.
    if (response.status != 0 || response.truncated(kSelEntryResponseLength)) {
        return IpmiEventLog::EL_INTERNAL_FAIL;
    }
    entry.setValues(response.data);
    return response.resultCode();
}

void IpmiEventOperations::getRawSelEntries(std::vector<RawSelEntry>& entries) {
    try {
        unsigned long recordId = kFirstRecord;
        while (recordId != kLastRecord) {
            const CommandResponse response =
                exchange(client_, kNetFnStorage, kGetSelEntry, getSelEntryRequest(recordId));
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
        // The walk ends at its first failure, whether reported by the BMC or by the client; the
        // records read so far stay in `entries`.
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
    // The 'C', 'L', 'R' signature guards against an accidental clear.
    std::vector<unsigned char> data{low, high, 'C', 'L', 'R', kInitiateErase};
    return exchange(client_, kNetFnStorage, kClearSel, std::move(data)).resultCode();
}

int IpmiEventOperations::AddSelEntry(const IPMISELENTRY& entry) {
    const auto* bytes = reinterpret_cast<const unsigned char*>(&entry);
    std::vector<unsigned char> data(bytes, bytes + sizeof entry);
    return exchange(client_, kNetFnStorage, kAddSelEntry, std::move(data)).resultCode();
}

}  // namespace Tolmar
