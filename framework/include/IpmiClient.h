// The framework's IPMI client: one session with one BMC, over the LAN (IPMI v2.0, RMCP+) or
// through the local in-band interface. The event log library uses it only through its virtual
// operations; another implementation of this header can be linked in its place.
#pragma once

#include <memory>
#include <string>
#include <vector>

struct IpmiCommandRequest {
    unsigned char command;
    std::vector<unsigned char> data;
    unsigned char netFn;
};

class IpmiClient {
public:
    IpmiClient(const std::string& address, const std::string& user, const std::string& password,
               const std::string& port, unsigned long cipherSuite);  // LAN, RMCP+
    explicit IpmiClient(unsigned long localInterface);               // 0: local in-band interface
    virtual int connect();  // 0 connected, 2 authentication refused, other: failure
    virtual void disconnect();
    // Sends one request and waits for its response. Returns 0 when a response arrived, with the
    // bytes after the completion code in responseData; any other value is a transport failure.
    virtual int sendCommand(const IpmiCommandRequest& request,
                            std::vector<unsigned char>& responseData,
                            unsigned char& completionCode);
    virtual ~IpmiClient();
    IpmiClient(const IpmiClient&) = delete;
    IpmiClient& operator=(const IpmiClient&) = delete;

private:
    // Whatever the implementation needs to reach its BMC; each implementation defines it.
    struct Session;
    std::unique_ptr<Session> session_;
};
