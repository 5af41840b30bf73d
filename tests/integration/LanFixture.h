// A fresh ipmi_sim BMC holding the sample server's SDR repository for every test, and the
// connection records and environment settings the tests need.
#pragma once

#include <gtest/gtest.h>

#include <cstdlib>
#include <memory>
#include <string>

#include "BmcSimulator.h"
#include "IpmiClient.h"
#include "IpmiEventLog.h"
#include "SampleServer.h"
#include "ScopedEnvironment.h"

namespace bmcsim {

// Active sessions on the BMC at `port`, as Get Session Info (App 3Dh) counts them from a session of
// its own (which it counts too); -1 when it cannot tell.
inline int activeSessions(unsigned short port) {
    IpmiClient client(BmcSimulator::host(), kAdministrator.name, kAdministrator.password,
                      std::to_string(port), 3);
    if (client.connect() != 0) return -1;
    std::vector<unsigned char> response;
    unsigned char completionCode = 0;
    client.sendCommand({0x3D, {0x00}, 0x06}, response, completionCode);
    return completionCode == 0 && response.size() > 2 ? response[2] & 0x3F : -1;
}

class LanTest : public ::testing::Test {
protected:
    void SetUp() override {
        bmc = std::make_unique<BmcSimulator>(sdrCommands(sampleSdrRepository()));
    }

    Tolmar::TolmarConnection::ConnectionInfo connection(const LanUser& user = kAdministrator,
                                                        unsigned short cipherSuite = 3) const {
        Tolmar::TolmarConnection::ConnectionInfo info;
        info.ip = BmcSimulator::host();
        info.port = bmc->port();
        info.user = user.name;
        info.password = user.password;
        info.cipherSuite = cipherSuite;
        info.connectionType = 1;
        return info;
    }

    std::unique_ptr<BmcSimulator> bmc;
};

}  // namespace bmcsim
