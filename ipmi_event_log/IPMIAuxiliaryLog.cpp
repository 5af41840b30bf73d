#include "IPMIAuxiliaryLog.h"

#include <algorithm>
#include <string>

#include "HexText.h"
#include "ipmi/ByteReader.h"

namespace Tolmar {

namespace {

// Positions in a raw entry: the echoed enterprise number (3 bytes), then the record, which starts
// with its size (2 bytes).
constexpr int kSelRecordId = 5;
constexpr int kType = 10;
constexpr int kSeverity = 13;
constexpr int kOperation = 14;
constexpr int kSubclass = 16;
constexpr int kClass = 17;
constexpr int kFruInstance = 18;
constexpr int kGuid = 22;
constexpr int kExtendedData = 38;
constexpr unsigned kRecordHeaderSize = 28;  // record bytes before the extended data
constexpr unsigned kLargestRecord = 590;

}  // namespace

int IPMIAuxiliaryLog::GetExtendedSELEntry(int selRecordId,
                                          std::vector<IPMIExtendedSELDataEntry>* entries,
                                          IPMIExtendedSELDataEntry* out) {
    constexpr int found = 0;
    constexpr int notFound = 1;
    const auto entry = std::find_if(entries->begin(), entries->end(),
                                    [selRecordId](const IPMIExtendedSELDataEntry& e) {
                                        return (e.GetSELRecordId() & 0xFFFF) == selRecordId;
                                    });
    if (entry == entries->end()) return notFound;
    *out = *entry;
    entries->erase(entry);
    return found;
}

std::vector<IPMIExtendedSELDataEntry> IPMIAuxiliaryLog::ParseExtendedSELData(
    s_AuxLog_entry* entries, unsigned int count) {
    std::vector<IPMIExtendedSELDataEntry> parsed;
    // One working entry serves every raw entry. Each setter overwrites its field, except that a
    // class above 3 keeps the sub-class text of the entry before: kept so.
    IPMIExtendedSELDataEntry entry;
    for (unsigned i = 0; i < count; ++i) {
        unsigned char* raw = entries[i].data;
        ByteReader head(raw, sizeof entries[i].data);
        if (head.u24() != kAuxLogEnterpriseNumber) continue;
        const unsigned size = std::min<unsigned>(head.u16(), kLargestRecord);
        entry.SetSELRecordId(raw[kSelRecordId], raw[kSelRecordId + 1]);
        entry.SetType(raw[kType]);
        entry.SetSeverity(raw[kSeverity]);
        entry.SetOperation(raw + kOperation);
        entry.SetSubclass(raw[kSubclass]);
        entry.SetClass(raw[kClass]);
        entry.SetFRUInstance(raw + kFruInstance);
        entry.SetGUID(raw + kGuid);
        entry.SetExtendedData(
            size > kRecordHeaderSize
                ? hexText(raw + kExtendedData, size - kRecordHeaderSize, HexCase::Upper, " ")
                : std::string());
        parsed.push_back(entry);
    }
    return parsed;
}

}  // namespace Tolmar
