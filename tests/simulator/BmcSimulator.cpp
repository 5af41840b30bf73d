#include "BmcSimulator.h"

#include <signal.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <iomanip>
#include <sstream>
#include <stdexcept>
#include <thread>

#include "ChildProcess.h"
#include "IpmiClient.h"
#include "Loopback.h"
#include "ipmi/ByteReader.h"

namespace bmcsim {

const LanUser kAdministrator{"admin", "Adm1n-pass", "admin"};
const LanUser kOperator{"operator", "0per-pass", "operator"};
const LanUser kViewer{"viewer", "V1ew-pass", "user"};

namespace {

using namespace std::chrono_literals;

constexpr auto kStartTimeout = 30s;  // a SEL of 65,000 stored records takes about 7 s
constexpr auto kStopTimeout = 3s;
constexpr int kStartAttempts = 5;               // each on other ports
constexpr auto kRestartTimeout = 60s;           // a guard: the port is free again long before
constexpr unsigned char kStorage = 0x0A;        // the network function of SEL commands
constexpr const char* kBmcName = "tolmar_bmc";  // also names its directory in the state directory

// What ipmi_sim says when another socket has its LAN port or its VM port. It shares a port with
// sockets that allow it (SO_REUSEADDR), as it does itself, and with no other.
bool saysAddressInUse(const std::string& output) {
    return output.find("Address already in use") != std::string::npos;
}

std::string lanConfiguration(unsigned short port, unsigned short vmPort,
                             const std::string& auxiliaryLogFile) {
    std::ostringstream out;
    out << "name \"" << kBmcName << "\"\n";
    out << "loadlib \"" << AUXLOG_PLUGIN << "\" \"" << auxiliaryLogFile << "\"\n";
    int number = 2;  // user 1 is the anonymous user
    for (const LanUser* user : {&kAdministrator, &kOperator, &kViewer}) {
        out << "user " << number++ << " true \"" << user->name << "\" \"" << user->password << "\" "
            << user->privilege << " 10 none md2 md5 straight\n";
    }
    out << "startlan 1\n"
        << "  addr 127.0.0.1 " << port << "\n"
        << "  priv_limit admin\n"
        << "  allowed_auths_callback none md2 md5 straight\n"
        << "  allowed_auths_user none md2 md5 straight\n"
        << "  allowed_auths_operator none md2 md5 straight\n"
        << "  allowed_auths_admin none md2 md5 straight\n"
        << "  guid a123456789abcdefa123456789abcdef\n"
        << "endlan\n";
    // The system interface a VM's KCS device reaches through QEMU's external BMC.
    if (vmPort != 0) out << "serial kcs 127.0.0.1 " << vmPort << " codec VM\n";
    return out.str();
}

// Room for the stored records and 4,000 more, within the 16-bit record IDs (FFFFh means "last").
std::size_t defaultSelCapacity(std::size_t stored) {
    constexpr std::size_t room = 4000;
    constexpr std::size_t mostIds = 0xFFFE;
    return std::min(stored + room, mostIds);
}

// ipmi_sim takes seconds over the first addition to a SEL of tens of thousands of records read
// from its state directory (later ones are quick), and carries out again a request resent
// meanwhile. A record it adds while it starts pays for that before anyone asks; it is deleted once
// the BMC is up.
const char* const kPrimingRecord = "sel_add 0x20 0xe0 0 0 0 0 0 0 0 0 0 0 0 0 0\n";

std::string emulationFile(const std::string& emulation, std::size_t selCapacity, bool prime) {
    return "mc_setbmc 0x20\n"
           "mc_add 0x20 0 no-device-sdrs 0x23 9 8 0x9f 0x1291 0xf02 persist_sdr\n"
           "sel_enable 0x20 " +
           std::to_string(selCapacity) + " 0x0a\n" + (prime ? kPrimingRecord : "") + emulation +
           "\nmc_enable 0x20\n";
}

// Where ipmi_sim keeps the BMC's SEL and SDR repository, inside the scratch directory.
std::string storedDirectory() { return std::string("state/ipmi_sim/") + kBmcName; }

// The SEL as ipmi_sim keeps it in its state directory and reads it back when it starts: one line a
// record, newest first, "ID:d:" then its 16 bytes escaped as \\hh; then the last addition and erase
// times. Adding records over the LAN instead has ipmi_sim rewrite that whole file for each one,
// which takes minutes for tens of thousands.

std::string storedSelFile(const std::vector<SelRecord>& sel, SelRecordIds ids) {
    std::ostringstream out;
    out << std::setfill('0');
    for (std::size_t position = sel.size(); position > 0; --position) {
        SelRecord record = sel[position - 1];
        if (ids == SelRecordIds::FromOne) {
            record[0] = position & 0xFF;
            record[1] = position >> 8;
        }
        const unsigned id = record[0] | record[1] << 8;
        out << std::dec << id << ":d:" << std::hex;
        for (unsigned char byte : record) out << '\\' << std::setw(2) << unsigned{byte};
        out << '\n';
    }
    constexpr std::size_t timeStampAt = 3;
    const std::uint32_t lastAddition =
        sel.empty() ? 0 : ByteReader(sel.back().data(), sel.back().size(), timeStampAt).u32();
    out << std::dec << "last_erase_time:i:0\nlast_add_time:i:" << lastAddition << '\n';
    return out.str();
}

// The auxiliary-log module's file: the enterprise number, then one record a line in hex.
std::string auxiliaryLogFile(const std::vector<std::vector<unsigned char>>& records) {
    std::ostringstream out;
    out << IPMI_AUX_LOG_IANA << "\n" << std::hex;
    for (const auto& record : records) {
        for (unsigned char byte : record) out << unsigned{byte} << ' ';
        out << "\n";
    }
    return out.str();
}

}  // namespace

BmcSimulator::BmcSimulator(const std::string& emulation,
                           const std::vector<std::vector<unsigned char>>& auxiliaryLog,
                           const std::vector<SelRecord>& sel, Interfaces interfaces,
                           std::size_t selCapacity, SelRecordIds selIds)
    : interfaces_(interfaces), selIds_(selIds) {
    directory_.write("auxiliary.log", auxiliaryLogFile(auxiliaryLog));
    // Another program may take a port between its choice and ipmi_sim's start: ipmi_sim is then
    // started again on other ports.
    bool started = false;
    for (int attempt = 0; attempt < kStartAttempts && !started; ++attempt) {
        started = start(emulation, sel, selCapacity);
        if (!started && !saysAddressInUse(output())) break;
    }
    if (!started) {
        const std::string log = output();
        stop();
        throw std::runtime_error("ipmi_sim did not open its LAN port; its output:\n" + log);
    }
    try {
        if (primed(sel)) deleteSelRecord(static_cast<std::uint16_t>(sel.size() + 1));
    } catch (...) {
        stop();
        throw;
    }
}

bool BmcSimulator::start(const std::string& emulation, const std::vector<SelRecord>& sel,
                         std::size_t selCapacity) {
    // A fresh state directory each time: ipmi_sim keeps the SEL, the SDR repository and users
    // there across runs, under its own name and the BMC's.
    std::filesystem::remove_all(directory_.file("state"));
    std::filesystem::create_directories(directory_.file(storedDirectory()));
    directory_.write(storedDirectory() + "/sel.20", storedSelFile(sel, selIds_));
    port_ = freeLoopbackPort(SOCK_DGRAM);
    vmPort_ = interfaces_ == Interfaces::LanAndVm ? freeLoopbackPort(SOCK_STREAM) : 0;
    directory_.write("lan.conf",
                     lanConfiguration(port_, vmPort_, directory_.file("auxiliary.log")));
    selCapacity_ = selCapacity != 0 ? selCapacity : defaultSelCapacity(sel.size());
    directory_.write("bmc.emu", emulationFile(emulation, selCapacity_, primed(sel)));
    return launch();
}

bool BmcSimulator::primed(const std::vector<SelRecord>& sel) const {
    // The priming record takes the ID after those numbered from 1; records that keep their own IDs
    // are few (real records), and it could take one of theirs.
    return !sel.empty() && selIds_ == SelRecordIds::FromOne;
}

bool BmcSimulator::launch() {
    pid_ = startChild({IPMI_SIM, "-c", directory_.file("lan.conf"), "-f",
                       directory_.file("bmc.emu"), "-s", directory_.file("state"), "-n"},
                      directory_.file("ipmi_sim.log"), "Debian package openipmi");
    // Up once its LAN port is its own, which it opens only after every command of its emulation
    // file succeeded. The port is looked for in /proc: a probe that bound it would keep ipmi_sim
    // from binding it meanwhile.
    const auto deadline = std::chrono::steady_clock::now() + kStartTimeout;
    while (std::chrono::steady_clock::now() < deadline) {
        if (waitpid(pid_, nullptr, WNOHANG) == pid_) {
            pid_ = -1;
            return false;
        }
        if (holdsLoopbackPort(pid_, SOCK_DGRAM, port_)) return true;
        std::this_thread::sleep_for(20ms);
    }
    stop();
    return false;
}

void BmcSimulator::restart(const std::string& emulation) {
    stop();
    // ipmi_sim would add the new records to those it kept.
    std::filesystem::remove(directory_.file(storedDirectory() + "/sdr.20.main"));
    directory_.write("bmc.emu", emulationFile(emulation, selCapacity_, false));
    // The old process is gone, its sockets with it; a program that took the port since holds it
    // only for a while (a client's port), so the same port is tried again until it is free.
    const auto deadline = std::chrono::steady_clock::now() + kRestartTimeout;
    while (!launch()) {
        if (!saysAddressInUse(output()) || std::chrono::steady_clock::now() >= deadline)
            throw std::runtime_error("ipmi_sim did not start again; its output:\n" + output());
        std::this_thread::sleep_for(50ms);
    }
}

void BmcSimulator::stop() {
    if (pid_ <= 0) return;
    kill(pid_, SIGTERM);
    const auto deadline = std::chrono::steady_clock::now() + kStopTimeout;
    while (waitpid(pid_, nullptr, WNOHANG) == 0) {
        if (std::chrono::steady_clock::now() >= deadline) {
            kill(pid_, SIGKILL);
            waitpid(pid_, nullptr, 0);
            break;
        }
        std::this_thread::sleep_for(10ms);
    }
    pid_ = -1;
}

void BmcSimulator::addSelRecords(const std::vector<SelRecord>& records) const {
    constexpr unsigned char setSelTime = 0x49;
    constexpr unsigned char addSelEntry = 0x44;
    std::vector<Request> requests;
    for (const SelRecord& record : records) {
        requests.push_back({kStorage, setSelTime, {record[3], record[4], record[5], record[6]}});
        requests.push_back({kStorage, addSelEntry, {record.begin(), record.end()}});
    }
    sendAll(requests);
}

void BmcSimulator::deleteSelRecord(std::uint16_t recordId) const {
    constexpr unsigned char deleteSelEntry = 0x46;
    // Reservation 0000h: ipmi_sim does not ask for one.
    sendAll({{kStorage,
              deleteSelEntry,
              {0, 0, static_cast<unsigned char>(recordId),
               static_cast<unsigned char>(recordId >> 8)}}});
}

void BmcSimulator::setEventFilters(const std::vector<EventFilter>& filters) const {
    constexpr unsigned char sensorEvent = 0x04;
    constexpr unsigned char setPefParameters = 0x12;
    constexpr unsigned char eventFilterTable = 6;
    std::vector<Request> requests;
    unsigned char number = 0;
    for (const EventFilter& filter : filters) {
        std::vector<unsigned char> data = {eventFilterTable, ++number};
        data.insert(data.end(), filter.begin(), filter.end());
        requests.push_back({sensorEvent, setPefParameters, data});
    }
    sendAll(requests);
}

void BmcSimulator::sendAll(const std::vector<Request>& requests) const {
    IpmiClient client(host(), kAdministrator.name, kAdministrator.password, std::to_string(port_),
                      3);
    if (client.connect() != 0) throw std::runtime_error("cannot open a session to ipmi_sim");
    for (const Request& request : requests) {
        std::vector<unsigned char> response;
        unsigned char completionCode = 0;
        if (client.sendCommand({request.command, request.data, request.netFn}, response,
                               completionCode) != 0 ||
            completionCode != 0) {
            throw std::runtime_error("ipmi_sim refused command " + std::to_string(request.command) +
                                     " with completion code " + std::to_string(completionCode));
        }
    }
    client.disconnect();
}

std::string BmcSimulator::output() const { return directory_.read("ipmi_sim.log"); }

BmcSimulator::~BmcSimulator() { stop(); }

Tolmar::TolmarConnection::ConnectionInfo administratorConnection(unsigned short port) {
    Tolmar::TolmarConnection::ConnectionInfo info;
    info.ip = BmcSimulator::host();
    info.port = port;
    info.user = kAdministrator.name;
    info.password = kAdministrator.password;
    info.connectionType = 1;
    return info;
}

std::unique_ptr<BmcSimulator> sampleServerBmc(const std::vector<SelRecord>& events,
                                              Interfaces interfaces, std::size_t selCapacity) {
    std::vector<std::vector<unsigned char>> auxiliaryLog;
    for (const AuxRecord& record : sampleAuxiliaryLog())
        auxiliaryLog.push_back(auxLogRecord(record));
    auto bmc = std::make_unique<BmcSimulator>(sdrCommands(sampleSdrRepository()), auxiliaryLog,
                                              events, interfaces, selCapacity);
    bmc->setEventFilters(sampleEventFilters());
    return bmc;
}

}  // namespace bmcsim
