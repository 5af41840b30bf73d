// The test build of the framework's IpmiClient: every call goes to the ClientBench, which answers
// from a SimulatedBmc. Linked into the unit tests in place of the framework's client.
#include "IpmiClient.h"

#include "ClientBench.h"
#include "RequestRecords.h"

struct IpmiClient::Session {
    int number;
};

IpmiClient::IpmiClient(const std::string& address, const std::string& user,
                       const std::string& password, const std::string& port,
                       unsigned long cipherSuite)
    : session_(new Session{sim::ClientBench::instance().constructed(
          this, {true, address, user, password, port, cipherSuite, 0})}) {}

IpmiClient::IpmiClient(unsigned long localInterface)
    : session_(new Session{sim::ClientBench::instance().constructed(
          this, {false, "", "", "", "", 0, localInterface})}) {}

int IpmiClient::connect() { return sim::ClientBench::instance().connect(session_->number); }

void IpmiClient::disconnect() { sim::ClientBench::instance().disconnect(session_->number); }

int IpmiClient::sendCommand(const IpmiCommandRequest& request,
                            std::vector<unsigned char>& responseData,
                            unsigned char& completionCode) {
    sim::recordRequestSent(request);
    const int status =
        sim::ClientBench::instance().send(session_->number, request, responseData, completionCode);
    sim::recordRequestAnswered(request, status, completionCode);
    return status;
}

IpmiClient::~IpmiClient() { sim::ClientBench::instance().deleted(session_->number); }
