#include "IPMIAuxiliaryLog.h"

#include <algorithm>
#include <string>

#include "StringCch.h"

namespace Tolmar {

namespace {

// Positions in a raw entry: the echoed enterprise number, then the record.
constexpr int kEnterprise = 0;
constexpr int kRecordSize = 3;
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

unsigned littleEndian(const unsigned char* bytes, int count) {
    unsigned value = 0;
    for (int i = count - 1; i >= 0; --i) value = value << 8 | bytes[i];
    return value;
}

// Each byte as two upper-case hexadecimal digits and a blank: "0A 1B FF ".
std::string hexText(const unsigned char* bytes, unsigned count) {
    std::string text;
    text.reserve(count * 3);
    for (unsigned i = 0; i < count; ++i) {
        char pair[5] = {};
        StringCchPrintf(pair, sizeof pair, "%02X ", bytes[i]);
        text += pair;
    }
    return text;
}

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
        if (littleEndian(raw + kEnterprise, 3) != kAuxLogEnterpriseNumber) continue;
        entry.SetSELRecordId(raw[kSelRecordId], raw[kSelRecordId + 1]);
        entry.SetType(raw[kType]);
        entry.SetSeverity(raw[kSeverity]);
        entry.SetOperation(raw + kOperation);
        entry.SetSubclass(raw[kSubclass]);
        entry.SetClass(raw[kClass]);
        entry.SetFRUInstance(raw + kFruInstance);
        entry.SetGUID(raw + kGuid);
        const unsigned size = std::min(littleEndian(raw + kRecordSize, 2), kLargestRecord);
        entry.SetExtendedData(size > kRecordHeaderSize
                                  ? hexText(raw + kExtendedData, size - kRecordHeaderSize)
                                  : std::string());
        parsed.push_back(entry);
    }
    return parsed;
}

}  // namespace Tolmar
