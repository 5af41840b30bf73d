// Fixture for tests that talk to the simulated BMC: a fresh BMC and bench for every test, the
// log captured, the minimum log level at its default, and clients the library left undeleted
// reclaimed at the end.
#pragma once

#include <gtest/gtest.h>

#include <initializer_list>
#include <memory>
#include <optional>
#include <string>

#include "ClientBench.h"
#include "IpmiEventLog.h"
#include "IpmiEventOperations.h"
#include "Log.h"
#include "LogCapture.h"
#include "SimulatedBmc.h"

namespace sim {

class BmcTest : public ::testing::Test {
protected:
    void SetUp() override {
        bench.reset(bmc);
        Log::SetMinLogLevel(1);
        log_.emplace();
    }

    void TearDown() override {
        log_.reset();
        bench.deleteLiveClients();
    }

    // Everything logged since the test started.
    std::string logText() const { return log_->text(); }

    static RecordedRequest request(unsigned char netFn, unsigned char command,
                                   std::initializer_list<unsigned char> data) {
        return {netFn, command, data};
    }

    SimulatedBmc bmc;
    ClientBench& bench = ClientBench::instance();

private:
    std::optional<LogCapture> log_;
};

// A fixture with a connected client and the SEL operations on it.
class OperationsTest : public BmcTest {
protected:
    void SetUp() override {
        BmcTest::SetUp();
        client_ = std::make_unique<IpmiClient>(0ul);
        ASSERT_EQ(client_->connect(), 0);
        operations = std::make_unique<Tolmar::IpmiEventOperations>(*client_);
    }
    void TearDown() override {
        operations.reset();
        client_.reset();
        BmcTest::TearDown();
    }

    std::unique_ptr<Tolmar::IpmiEventOperations> operations;

private:
    std::unique_ptr<IpmiClient> client_;
};

// A LAN connection to a BMC on port 623, with cipher suite 17.
inline Tolmar::TolmarConnection::ConnectionInfo lanConnection() {
    Tolmar::TolmarConnection::ConnectionInfo info;
    info.ip = "bmc1.example.test";
    info.port = 623;
    info.user = "admin";
    info.password = "s3cret";
    info.cipherSuite = 17;
    info.connectionType = 1;
    return info;
}

}  // namespace sim
