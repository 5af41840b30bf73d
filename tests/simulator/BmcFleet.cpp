#include "BmcFleet.h"

#include <gcrypt.h>
#include <sys/epoll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <stdexcept>

#include "BmcSimulator.h"
#include "IPMIAuxiliaryLog.h"
#include "Loopback.h"
#include "RmcpPlusResponder.h"
#include "SimulatedBmc.h"

namespace bmcsim {

namespace {

// What ipmi_sim's administrator gets, by the same name and password.
CraftedBehaviour administratorAccount() {
    CraftedBehaviour account;
    account.user = kAdministrator.name;
    account.password = kAdministrator.password;
    return account;
}

// The sample server's repositories, with `events` in a SEL with room for 4,000 more, as ipmi_sim's.
std::unique_ptr<sim::SimulatedBmc> sampleServerMemory(const std::vector<SelRecord>& events) {
    auto memory = std::make_unique<sim::SimulatedBmc>();
    for (const SdrRecord& record : sampleSdrRepository()) memory->storeSdr(record);
    memory->limitSel(events.size() + 4000);
    for (const SelRecord& record : events) memory->storeSelRecord(record);
    for (const EventFilter& filter : sampleEventFilters()) memory->addEventFilter(filter);
    memory->setAuxLogEnterprise(Tolmar::kAuxLogEnterpriseNumber);
    for (const AuxRecord& record : sampleAuxiliaryLog())
        memory->addAuxLogEntry(auxLogRecord(record));
    return memory;
}

}  // namespace

struct BmcFleet::Member {
    int socket = -1;
    unsigned short port = 0;
    // Null for a silent BMC.
    std::unique_ptr<sim::SimulatedBmc> memory;
    std::unique_ptr<RmcpPlusResponder> responder;

    ~Member() {
        if (socket >= 0) close(socket);
    }
};

BmcFleet::BmcFleet(const FleetSettings& settings)
    : events_(settings.selRecords == 0 ? sampleEventLog() : repeatedEventLog(settings.selRecords)) {
    gcry_check_version(nullptr);  // the responders' random numbers
    for (std::size_t i = 0; i < settings.bmcs; ++i) {
        auto member = std::make_unique<Member>();
        member->socket = bindLoopback(SOCK_DGRAM, 0);
        if (member->socket < 0) throw std::runtime_error("cannot open a fleet BMC's UDP port");
        member->port = boundPort(member->socket);
        if (i + settings.silent < settings.bmcs) {
            member->memory = sampleServerMemory(events_);
            sim::SimulatedBmc& memory = *member->memory;
            member->responder = std::make_unique<RmcpPlusResponder>(
                administratorAccount(), [&memory](unsigned char netFn, unsigned char command,
                                                  const std::vector<unsigned char>& data) {
                    sim::BmcResponse response = memory.handle(netFn, command, data);
                    return CommandAnswer{response.completionCode, std::move(response.data)};
                });
        }
        members_.push_back(std::move(member));
    }
    const unsigned threads = settings.threads == 0 ? 1 : settings.threads;
    for (unsigned t = 0; t < threads; ++t)
        threads_.emplace_back([this, t, threads] { serve(t, threads); });
}

BmcFleet::~BmcFleet() {
    stopping_ = true;
    for (std::thread& thread : threads_) thread.join();
}

unsigned short BmcFleet::port(std::size_t bmc) const { return members_.at(bmc)->port; }

std::string BmcFleet::hostList() const {
    std::string hosts;
    for (const auto& member : members_) {
        if (!hosts.empty()) hosts += ',';
        hosts += "127.0.0.1:" + std::to_string(member->port);
    }
    return hosts;
}

// Thread `thread` of `threads` serves every BMC whose index it is modulo `threads`; a silent BMC's
// socket is never read.
void BmcFleet::serve(unsigned thread, unsigned threads) {
    const int waiting = epoll_create1(EPOLL_CLOEXEC);
    for (std::size_t i = thread; i < members_.size(); i += threads) {
        if (!members_[i]->responder) continue;
        epoll_event interest{};
        interest.events = EPOLLIN;
        interest.data.u64 = i;
        epoll_ctl(waiting, EPOLL_CTL_ADD, members_[i]->socket, &interest);
    }
    std::vector<unsigned char> datagram(2048);
    epoll_event ready[64];
    while (!stopping_) {
        const int count = epoll_wait(waiting, ready, 64, 50);
        for (int r = 0; r < count; ++r) {
            Member& member = *members_[ready[r].data.u64];
            sockaddr_storage client{};
            socklen_t length = sizeof client;
            const ssize_t size = recvfrom(member.socket, datagram.data(), datagram.size(), 0,
                                          reinterpret_cast<sockaddr*>(&client), &length);
            if (size <= 0) continue;
            member.responder->answer(member.socket, client,
                                     {datagram.begin(), datagram.begin() + size});
        }
    }
    close(waiting);
}

}  // namespace bmcsim
