#include "ClientBench.h"

#include <iomanip>
#include <stdexcept>

namespace sim {

namespace {

constexpr int kTransportFailure = 1;

}  // namespace

bool RecordedRequest::operator==(const RecordedRequest& other) const {
    return netFn == other.netFn && command == other.command && data == other.data;
}

std::ostream& operator<<(std::ostream& out, const RecordedRequest& request) {
    out << std::hex << std::setfill('0') << "netFn 0x" << std::setw(2) << unsigned{request.netFn}
        << " command 0x" << std::setw(2) << unsigned{request.command} << " data [";
    for (unsigned char byte : request.data) out << " " << std::setw(2) << unsigned{byte};
    return out << " ]" << std::dec;
}

bool ClientEvent::operator==(const ClientEvent& other) const {
    return call == other.call && client == other.client;
}

std::ostream& operator<<(std::ostream& out, const ClientEvent& event) {
    static const char* const names[] = {"construct", "connect", "disconnect", "delete"};
    return out << names[static_cast<int>(event.call)] << " client " << event.client;
}

Fault Fault::transportFailure() { return Fault(Kind::TransportFailure); }

Fault Fault::completion(unsigned char code, std::vector<unsigned char> data) {
    Fault fault(Kind::CompletionCode);
    fault.completionCode = code;
    fault.data = std::move(data);
    return fault;
}

Fault Fault::truncate(std::size_t keep) {
    Fault fault(Kind::Truncate);
    fault.keep = keep;
    return fault;
}

Fault Fault::ipmiException(int code, IPMIEXCEPTIONTYPE type) {
    Fault fault(Kind::ThrowIpmiException);
    fault.exceptionCode = code;
    fault.exceptionType = type;
    return fault;
}

Fault Fault::otherException() { return Fault(Kind::ThrowOther); }

ClientBench& ClientBench::instance() {
    static ClientBench bench;
    return bench;
}

void ClientBench::reset(SimulatedBmc& bmc) {
    *this = ClientBench();
    bmc_ = &bmc;
}

void ClientBench::setConnectStatus(int status) { connectStatus_ = status; }

void ClientBench::throwOnConnect(const IpmiException& exception) { connectException_ = exception; }

void ClientBench::throwOnNextDisconnect(const IpmiException& exception) {
    disconnectException_ = exception;
}

void ClientBench::injectFault(std::size_t requestNumber, const Fault& fault) {
    faults_.insert_or_assign(requestNumber, fault);
}

const std::vector<ClientConstruction>& ClientBench::constructions() const { return constructions_; }

const std::vector<ClientEvent>& ClientBench::events() const { return events_; }

const std::vector<RecordedRequest>& ClientBench::requests() const { return requests_; }

std::size_t ClientBench::liveClients() const { return live_.size(); }

void ClientBench::deleteLiveClients() {
    while (!live_.empty()) delete live_.begin()->second;  // the destructor reports `deleted`
}

int ClientBench::constructed(IpmiClient* client, const ClientConstruction& construction) {
    constructions_.push_back(construction);
    const int number = static_cast<int>(constructions_.size());
    live_[number] = client;
    events_.push_back({ClientCall::Construct, number});
    return number;
}

int ClientBench::connect(int client) {
    events_.push_back({ClientCall::Connect, client});
    if (connectException_) throw *connectException_;
    connected_[client] = connectStatus_ == 0;
    return connectStatus_;
}

void ClientBench::disconnect(int client) {
    events_.push_back({ClientCall::Disconnect, client});
    connected_[client] = false;
    if (disconnectException_) {
        const IpmiException exception = *disconnectException_;
        disconnectException_.reset();
        throw exception;
    }
}

void ClientBench::deleted(int client) {
    events_.push_back({ClientCall::Delete, client});
    live_.erase(client);
}

int ClientBench::send(int client, const IpmiCommandRequest& request,
                      std::vector<unsigned char>& response, unsigned char& completionCode) {
    requests_.push_back({request.netFn, request.command, request.data});
    if (!connected_[client]) return kTransportFailure;
    const auto planned = faults_.find(requests_.size());
    if (planned == faults_.end()) {
        BmcResponse answer = bmc_->handle(request.netFn, request.command, request.data);
        completionCode = answer.completionCode;
        response = std::move(answer.data);
        return 0;
    }
    const Fault& fault = planned->second;
    switch (fault.kind) {
        case Fault::Kind::TransportFailure:
            return kTransportFailure;
        case Fault::Kind::CompletionCode:
            completionCode = fault.completionCode;
            response = fault.data;
            return 0;
        case Fault::Kind::Truncate: {
            BmcResponse answer = bmc_->handle(request.netFn, request.command, request.data);
            answer.data.resize(std::min(answer.data.size(), fault.keep));
            completionCode = answer.completionCode;
            response = std::move(answer.data);
            return 0;
        }
        case Fault::Kind::ThrowIpmiException:
            throw IpmiException(fault.exceptionCode, fault.exceptionType);
        case Fault::Kind::ThrowOther:
            break;
    }
    throw std::runtime_error("injected failure that is not an IpmiException");
}

}  // namespace sim
