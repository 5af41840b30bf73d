// The bench behind the test build of IpmiClient: it routes every request to a SimulatedBmc,
// records what the library did with its clients, and plays the faults a test scripts.
#pragma once

#include <cstddef>
#include <map>
#include <optional>
#include <ostream>
#include <string>
#include <vector>

#include "IpmiClient.h"
#include "IpmiException.h"
#include "SimulatedBmc.h"

namespace sim {

struct RecordedRequest {
    unsigned char netFn;
    unsigned char command;
    std::vector<unsigned char> data;
    bool operator==(const RecordedRequest& other) const;
};
std::ostream& operator<<(std::ostream& out, const RecordedRequest& request);

// The arguments a client was constructed with.
struct ClientConstruction {
    bool lan;
    std::string address;
    std::string user;
    std::string password;
    std::string port;
    unsigned long cipherSuite;
    unsigned long localInterface;
};

// What happened to the clients, in order. Clients are numbered from 1 as they are constructed.
enum class ClientCall { Construct, Connect, Disconnect, Delete };
struct ClientEvent {
    ClientCall call;
    int client;
    bool operator==(const ClientEvent& other) const;
};
std::ostream& operator<<(std::ostream& out, const ClientEvent& event);

// What a request gets instead of the simulated BMC's answer.
struct Fault {
    enum class Kind { TransportFailure, CompletionCode, Truncate, ThrowIpmiException, ThrowOther };
    explicit Fault(Kind kind) : kind(kind) {}

    Kind kind;
    unsigned char completionCode = 0;
    std::vector<unsigned char> data;  // CompletionCode: data bytes sent along with it
    std::size_t keep = 0;             // Truncate: data bytes of the BMC's answer that are kept
    int exceptionCode = 0;            // ThrowIpmiException
    IPMIEXCEPTIONTYPE exceptionType = IPMI_EXCEPTION_UNKNOWN;

    // The client's send fails; the BMC never sees the request.
    static Fault transportFailure();
    // The BMC answers with this completion code (and data) instead of acting on the request.
    static Fault completion(unsigned char code, std::vector<unsigned char> data = {});
    // The BMC acts, but only the first `keep` data bytes of its answer arrive (0: none).
    static Fault truncate(std::size_t keep);
    // The client throws IpmiException(code, type); the BMC never sees the request.
    static Fault ipmiException(int code, IPMIEXCEPTIONTYPE type);
    // The client throws an exception that is not an IpmiException.
    static Fault otherException();
};

class ClientBench {
public:
    static ClientBench& instance();

    // Starts afresh with `bmc` behind every client: no records, no faults, connect status 0.
    void reset(SimulatedBmc& bmc);

    void setConnectStatus(int status);
    void throwOnConnect(const IpmiException& exception);
    void throwOnNextDisconnect(const IpmiException& exception);
    // `requestNumber` counts the requests of all clients since reset, from 1.
    void injectFault(std::size_t requestNumber, const Fault& fault);

    const std::vector<ClientConstruction>& constructions() const;
    const std::vector<ClientEvent>& events() const;
    const std::vector<RecordedRequest>& requests() const;
    // Clients the library never deleted (the connection probe keeps its client by design).
    std::size_t liveClients() const;
    void deleteLiveClients();

    // The test IpmiClient reports here.
    int constructed(IpmiClient* client, const ClientConstruction& construction);
    int connect(int client);
    void disconnect(int client);
    void deleted(int client);
    int send(int client, const IpmiCommandRequest& request, std::vector<unsigned char>& response,
             unsigned char& completionCode);

private:
    SimulatedBmc* bmc_ = nullptr;
    int connectStatus_ = 0;
    std::optional<IpmiException> connectException_;
    std::optional<IpmiException> disconnectException_;
    std::map<std::size_t, Fault> faults_;
    std::vector<ClientConstruction> constructions_;
    std::vector<ClientEvent> events_;
    std::vector<RecordedRequest> requests_;
    std::map<int, IpmiClient*> live_;
    std::map<int, bool> connected_;
};

}  // namespace sim
