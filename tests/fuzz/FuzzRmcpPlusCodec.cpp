// What the LAN client accepts from a BMC: arbitrary datagrams through every parser of the RMCP+
// codec, as the session answers, sets up and exchanges, and through the reader of Get Channel
// Cipher Suites' records.
#include <cstdint>
#include <vector>

#include "RmcpPlusFuzzSessions.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    static const std::vector<std::unique_ptr<RmcpPlusCodec>> consoles = [] {
        std::vector<std::unique_ptr<RmcpPlusCodec>> ends;
        for (const CipherSuite& suite : fuzz::rmcpPlusSuites()) {
            ends.push_back(fuzz::rmcpPlusEnd(suite, true));
        }
        return ends;
    }();
    std::vector<unsigned char> message;
    std::vector<unsigned char> answer;
    // Get Channel Authentication Capabilities' answer, its checksums checked or not, and Get
    // Channel Cipher Suites'.
    if (RmcpPlusCodec::sessionlessMessage(data, size, message)) {
        RmcpPlusCodec::ipmiResponse(message, 0x06, 0x38, 0, answer);
        RmcpPlusCodec::ipmiResponse(message, 0x06, 0x38, 0, answer,
                                    RmcpPlusCodec::Checksums::Ignored);
        if (RmcpPlusCodec::ipmiResponse(message, 0x06, 0x54, 0, answer) && answer.size() >= 2) {
            listedCipherSuites({answer.begin() + 2, answer.end()});
        }
    }
    for (unsigned char type :
         {RmcpPlusCodec::kOpenSessionResponse, RmcpPlusCodec::kRakp2, RmcpPlusCodec::kRakp4}) {
        RmcpPlusCodec::sessionSetupPayload(data, size, type, message);
    }
    // Get SEL Entry's answer in a session. A codec remembers the sequence numbers it took.
    for (const auto& console : consoles) {
        if (console->open(data, size, message)) {
            RmcpPlusCodec::ipmiResponse(message, 0x0A, 0x43, 1, answer);
        }
    }
    return 0;
}
