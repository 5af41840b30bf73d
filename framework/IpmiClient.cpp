// The framework's IpmiClient with no transport compiled in: it keeps the parameters it was given
// and refuses to connect, saying why. It never claims to have reached a BMC.
#include "IpmiClient.h"

#include "Log.h"

namespace {

constexpr int kConnectFailed = 1;
constexpr int kNotConnected = 1;

}  // namespace

struct IpmiClient::Session {
    std::string target;  // for messages: "address:port", or the local interface
};

IpmiClient::IpmiClient(const std::string& address, const std::string& /*user*/,
                       const std::string& /*password*/, const std::string& port,
                       unsigned long /*cipherSuite*/)
    : session_(new Session{address + ":" + port}) {}

IpmiClient::IpmiClient(unsigned long localInterface)
    : session_(new Session{"local interface " + std::to_string(localInterface)}) {}

int IpmiClient::connect() {
    Log(1, "framework/IpmiClient", __LINE__).Stream()
        << "cannot connect to " << session_->target
        << ": no IPMI transport is built into this framework library";
    return kConnectFailed;
}

void IpmiClient::disconnect() {}

int IpmiClient::sendCommand(const IpmiCommandRequest& /*request*/,
                            std::vector<unsigned char>& /*responseData*/,
                            unsigned char& /*completionCode*/) {
    return kNotConnected;
}

IpmiClient::~IpmiClient() = default;
