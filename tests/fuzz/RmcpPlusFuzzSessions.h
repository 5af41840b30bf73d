// The RMCP+ sessions whose packets the codec fuzzer opens: fixed IDs and keys, so that the seeds
// sealed by the BMC's end of each session pass its integrity check and reach the decryption.
#pragma once

#include <cstdint>
#include <memory>
#include <vector>

#include "CipherSuite.h"
#include "RmcpPlusCodec.h"

namespace fuzz {

// No security; AES with HMAC-SHA1-96 (suite 3); and AES alone, which no suite offers but which
// lets mutated packets through to the decryption and its padding.
inline std::vector<CipherSuite> rmcpPlusSuites() {
    return {*CipherSuite::find(0), *CipherSuite::find(3), CipherSuite{0x01, 0x00, 0x01, 0, 0}};
}

// The console's end of the session, or the BMC's, which sends with the console's session ID.
inline std::unique_ptr<RmcpPlusCodec> rmcpPlusEnd(const CipherSuite& suite, bool console) {
    constexpr std::uint32_t consoleId = 0x11223344;
    constexpr std::uint32_t bmcId = 0xA1B2C3D4;
    const std::vector<unsigned char> k1(20, 0x01);
    const std::vector<unsigned char> k2(20, 0x02);
    return console ? std::make_unique<RmcpPlusCodec>(suite, bmcId, consoleId, k1, k2)
                   : std::make_unique<RmcpPlusCodec>(suite, consoleId, bmcId, k1, k2);
}

}  // namespace fuzz
