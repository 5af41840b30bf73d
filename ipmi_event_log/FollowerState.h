// What an IpmiEventFollower keeps between polls: how far it has read the SEL, the SEL's and the
// SDR repository's change stamps when it last looked, and the sensor records, event filters and
// auxiliary entries it renders with. It is saved as a small text file, versioned and checked on
// loading.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "IPMIAuxiliaryLog.h"
#include "RawPETEntry.h"
#include "RawSDR.h"
#include "RawSelEntry.h"
#include "RepositoryInfo.h"

namespace Tolmar {

struct FollowerState {
    static constexpr std::size_t kRemembered = 64;

    std::string bmc;                      // "address:port" or "local": whose state this is
    std::optional<RepositoryStamps> sel;  // when the SEL was last read to its end
    // The last records emitted, oldest first, at most kRemembered: where the next read starts, and
    // how records emitted before are told from new ones once some of them are gone.
    std::vector<RawSelEntry> recent;
    std::optional<RawSelEntry> first;     // the SEL's first record, when it was last read whole
    std::optional<RepositoryStamps> sdr;  // when `sdrs` were read, whole
    std::vector<std::vector<std::uint8_t>> sdrs;  // the SDR repository's records
    std::vector<RawSDR> sensors;                  // its sensor records, as the renderer keeps them
    std::vector<RawPETEntry> filters;
    std::vector<s_AuxLog_entry> auxiliary;  // the auxiliary log's entries, as read

    // The file's text; `sensors` are not in it, being made of `sdrs`.
    std::string text() const;
    // The state a file's text holds. False, with the reason in `error`, for a text that is not a
    // complete state of this version; `state` is then left as it was.
    static bool fromText(const std::string& text, FollowerState& state, std::string& error);

    // Writes the file in one piece: a reader never sees half of it. False with the reason.
    bool save(const std::string& path, std::string& error) const;
    // False with the reason for a file that is missing, unreadable, foreign or damaged.
    static bool load(const std::string& path, FollowerState& state, std::string& error);
};

}  // namespace Tolmar
