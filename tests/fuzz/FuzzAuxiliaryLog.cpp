// IPMIAuxiliaryLog::ParseExtendedSELData over arbitrary raw entries: the input cut into 600-byte
// entries, the last one zero-padded.
#include "FuzzInput.h"
#include "IPMIAuxiliaryLog.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    fuzz::Input input(data, size);
    std::vector<Tolmar::s_AuxLog_entry> entries((size + 599) / 600);
    for (Tolmar::s_AuxLog_entry& entry : entries) input.fill(entry.data, sizeof entry.data);
    Tolmar::IPMIAuxiliaryLog().ParseExtendedSELData(entries.data(),
                                                    static_cast<unsigned>(entries.size()));
    return 0;
}
