#include "IPMIAuxiliaryLog.h"

#include <algorithm>

namespace Tolmar {

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

}  // namespace Tolmar
