#include "RedfishBmc.h"

#include <algorithm>
#include <ctime>
#include <iomanip>
#include <random>
#include <set>
#include <sstream>
#include <stdexcept>

#include "WebCredentials.h"
#include "base/TimeText.h"
#include "web/WebConfig.h"
#include "web/WebServer.h"

namespace bmcsim {

namespace {

using json = nlohmann::json;

constexpr const char* kJson = "application/json; charset=utf-8";
// Numbers of entries and sessions whose paths are served ahead of them.
constexpr unsigned kEntriesAhead = 2000;
constexpr unsigned kSessionPaths = 1000;
constexpr std::size_t kHugeBody = 10 * 1024 * 1024;

// A path without its trailing '/', which every layout also takes ("/redfish/v1/" as
// "/redfish/v1").
std::string normalized(std::string path) {
    while (path.size() > 1 && path.back() == '/') path.pop_back();
    return path;
}

// RFC 3339 with the offset written out, as bmcweb writes Created.
std::string isoTime(std::time_t seconds) {
    std::string text = tool::isoUtcText(seconds);
    return text.replace(text.size() - 1, 1, "+00:00");
}

// The seconds of "YYYY-MM-DDTHH:MM:SS..." read as UTC, its offset left aside as bmcweb does
// (its BMC keeps UTC); none when it does not start so.
std::optional<std::time_t> secondsOf(const std::string& created) {
    std::tm parts{};
    std::istringstream in(created);
    in >> std::get_time(&parts, "%Y-%m-%dT%H:%M:%S");
    if (in.fail()) return std::nullopt;
    return timegm(&parts);
}

std::string hexOf(const std::array<std::uint8_t, 16>& record) {
    std::ostringstream text;
    text << std::hex << std::uppercase << std::setfill('0');
    for (const std::uint8_t byte : record) text << std::setw(2) << static_cast<int>(byte);
    return text.str();
}

// The names of the commoner sensor types (IPMI v2.0 table 42-3), as iDRAC and Supermicro show
// them.
std::string sensorTypeName(std::uint8_t type) {
    static const std::map<std::uint8_t, std::string> kNames = {
        {0x01, "Temperature"},
        {0x02, "Voltage"},
        {0x03, "Current"},
        {0x04, "Fan"},
        {0x05, "Physical Chassis Security"},
        {0x07, "Processor"},
        {0x08, "Power Supply"},
        {0x09, "Power Unit"},
        {0x0C, "Memory"},
        {0x0F, "System Firmware Progress"},
        {0x10, "Event Logging Disabled"},
        {0x12, "System Event"},
        {0x13, "Critical Interrupt"},
        {0x1D, "System Boot Initiated"},
        {0x20, "OS Stop / Shutdown"},
        {0x23, "Watchdog 2"},
    };
    const auto found = kNames.find(type);
    return found != kNames.end() ? found->second : "Unknown";
}

// Redfish's LogEntryCode of a threshold event, by the offset in its event data 1 (IPMI v2.0 table
// 42-2 has them in this order); none beyond.
std::optional<std::string> thresholdCode(std::uint8_t offset) {
    static const char* const kCodes[] = {
        "Lower Non-critical - going low",    "Lower Non-critical - going high",
        "Lower Critical - going low",        "Lower Critical - going high",
        "Lower Non-recoverable - going low", "Lower Non-recoverable - going high",
        "Upper Non-critical - going low",    "Upper Non-critical - going high",
        "Upper Critical - going low",        "Upper Critical - going high",
        "Upper Non-recoverable - going low", "Upper Non-recoverable - going high",
    };
    if (offset >= sizeof kCodes / sizeof kCodes[0]) return std::nullopt;
    return kCodes[offset];
}

std::string randomToken() {
    std::random_device device;
    std::ostringstream text;
    text << std::hex << std::setfill('0');
    for (int i = 0; i < 4; ++i) text << std::setw(8) << device();
    return text.str();
}

// A Redfish error body, with the Base registry's message.
json errorBody(const std::string& messageId, const std::string& message) {
    const std::string id = "Base.1.8.1." + messageId;
    return {{"error",
             {{"code", id},
              {"message", message},
              {"@Message.ExtendedInfo", json::array({{{"@odata.type", "#Message.v1_1_1.Message"},
                                                      {"MessageId", id},
                                                      {"Message", message},
                                                      {"Severity", "Critical"},
                                                      {"Resolution", "None."}}})}}}};
}

void answerJson(tool::HttpResponse& response, int status, const json& body) {
    response.status = status;
    response.contentType = kJson;
    response.body = body.dump();
}

void answerError(tool::HttpResponse& response, int status, const std::string& messageId,
                 const std::string& message) {
    answerJson(response, status, errorBody(messageId, message));
}

json link(const std::string& path) { return {{"@odata.id", path}}; }

}  // namespace

std::optional<RedfishLayout> redfishLayoutNamed(const std::string& name) {
    if (name == "openbmc") return RedfishLayout::OpenBmc;
    if (name == "idrac") return RedfishLayout::Idrac;
    if (name == "idrac-legacy") return RedfishLayout::IdracLegacy;
    if (name == "ilo") return RedfishLayout::Ilo;
    if (name == "xcc") return RedfishLayout::Xcc;
    if (name == "supermicro") return RedfishLayout::Supermicro;
    return std::nullopt;
}

std::string redfishLayoutName(RedfishLayout layout) {
    switch (layout) {
        case RedfishLayout::OpenBmc:
            return "openbmc";
        case RedfishLayout::Idrac:
            return "idrac";
        case RedfishLayout::IdracLegacy:
            return "idrac-legacy";
        case RedfishLayout::Ilo:
            return "ilo";
        case RedfishLayout::Xcc:
            return "xcc";
        case RedfishLayout::Supermicro:
            return "supermicro";
    }
    return "openbmc";
}

struct RedfishBmc::Entry {
    std::string id;
    json fields;       // as given, the layout's defaults under them
    std::string data;  // its additional data; none when empty
};

struct RedfishBmc::Log {
    std::string path;        // the LogService's
    std::string collection;  // its entries'
    std::string id;
    json defaults;     // the fields of an entry that gives none
    bool sel = false;  // its entries are SEL records
    // Numbered 1, 2, ...; otherwise by time, as bmcweb does.
    bool numbered = true;
    bool restartsOnClear = false;
    unsigned nextNumber = 1;
    std::size_t pageSize = 0;
    bool queryOptions = false;
    bool linksOnly = false;
    bool clearable = true;
    std::vector<Entry> entries;
};

// How a log numbers, pages and serves its entries: numbered from 1, going on after a clear, whole
// in one answer without query options, members in full, clearable, its entries under the
// LogService's Entries; unless said otherwise.
struct RedfishBmc::LogShape {
    bool numbered = true;
    bool restartsOnClear = false;
    std::size_t pageSize = 0;
    bool queryOptions = false;
    bool linksOnly = false;
    bool clearable = true;
    std::string collection;

    // Numbered by time, as bmcweb does.
    LogShape& byTime() { return numbered = false, *this; }
    LogShape& restartingOnClear() { return restartsOnClear = true, *this; }
    LogShape& pages(std::size_t members) { return pageSize = members, *this; }
    LogShape& withQueryOptions() { return queryOptions = true, *this; }
    LogShape& asLinks() { return linksOnly = true, *this; }
    LogShape& notClearable() { return clearable = false, *this; }
    LogShape& at(std::string path) { return collection = std::move(path), *this; }
};

struct RedfishBmc::Token {
    RedfishSession session;
    std::size_t uses = 0;
};

RedfishBmc::RedfishBmc(RedfishBmcOptions options) : options_(std::move(options)) {
    buildResources();
    if (options_.https) {
        makeCertificate(OPENSSL, scratch_, "redfish", "/CN=127.0.0.1",
                        "-addext subjectAltName=IP:127.0.0.1");
        certificate_ = scratch_.file("redfish.crt");
    }
}

RedfishBmc::~RedfishBmc() { stop(); }

std::string RedfishBmc::url() const {
    return std::string(options_.https ? "https" : "http") + "://127.0.0.1:" + std::to_string(port_);
}

std::string RedfishBmc::odataId(const std::string& path) const {
    // iLO 5 gives every resource's path with a trailing '/'.
    return options_.layout == RedfishLayout::Ilo ? path + "/" : path;
}

std::string RedfishBmc::entriesPath(const std::string& logService) const {
    std::lock_guard<std::mutex> lock(mutex_);
    return logAt(logService).collection;
}

std::vector<std::string> RedfishBmc::logServices() const {
    std::vector<std::string> paths;
    for (const auto& log : logs_) paths.push_back(log->path);
    return paths;
}

RedfishBmc::Log& RedfishBmc::logAt(const std::string& logService) {
    for (auto& log : logs_) {
        if (log->path == normalized(logService)) return *log;
    }
    throw std::invalid_argument("no log service " + logService);
}

const RedfishBmc::Log& RedfishBmc::logAt(const std::string& logService) const {
    return const_cast<RedfishBmc*>(this)->logAt(logService);
}

// --- The resources of each layout ---

void RedfishBmc::addLogService(const std::string& parent, const std::string& id, json service,
                               const LogShape& shape) {
    auto log = std::make_unique<Log>();
    log->path = parent + "/LogServices/" + id;
    log->collection = shape.collection.empty() ? log->path + "/Entries" : shape.collection;
    log->id = id;
    log->numbered = shape.numbered;
    log->restartsOnClear = shape.restartsOnClear;
    log->pageSize = shape.pageSize;
    log->queryOptions = shape.queryOptions;
    log->linksOnly = shape.linksOnly;
    log->clearable = shape.clearable;
    log->defaults = service["EntryDefaults"];
    log->sel = service.value("LogEntryType", "") == "SEL" ||
               (options_.layout == RedfishLayout::OpenBmc && id == "EventLog");
    service.erase("EntryDefaults");
    service["@odata.id"] = odataId(log->path);
    service["Id"] = id;
    service["ServiceEnabled"] = true;
    service["OverWritePolicy"] = service.value("OverWritePolicy", "WrapsWhenFull");
    service["Entries"] = link(odataId(log->collection));
    if (log->clearable) {
        service["Actions"] = {{"#LogService.ClearLog",
                               {{"target", odataId(log->path + "/Actions/LogService.ClearLog")}}}};
    }
    resources_[log->path] = service;
    json& collection = resources_[parent + "/LogServices"];
    collection["Members"].push_back(link(odataId(log->path)));
    collection["Members@odata.count"] = collection["Members"].size();
    logs_.push_back(std::move(log));
}

void RedfishBmc::buildResources() {
    std::string system = "1", manager = "1", chassis = "1", vendor;
    switch (options_.layout) {
        case RedfishLayout::OpenBmc:
            system = "system", manager = "bmc", chassis = "chassis", vendor = "OpenBMC";
            break;
        case RedfishLayout::Idrac:
        case RedfishLayout::IdracLegacy:
            system = "System.Embedded.1", manager = "iDRAC.Embedded.1";
            chassis = "System.Embedded.1", vendor = "Dell";
            break;
        case RedfishLayout::Ilo:
            vendor = "HPE";
            break;
        case RedfishLayout::Xcc:
            vendor = "Lenovo";
            break;
        case RedfishLayout::Supermicro:
            vendor = "Supermicro";
            break;
    }
    const std::string root = "/redfish/v1";
    if (options_.layout == RedfishLayout::IdracLegacy) sessionsPath_ = root + "/Sessions";
    const std::string systemPath = root + "/Systems/" + system;
    const std::string managerPath = root + "/Managers/" + manager;
    const std::string chassisPath = root + "/Chassis/" + chassis;
    resources_["/redfish"] = {{"v1", "/redfish/v1/"}};
    resources_[root] = {{"@odata.type", "#ServiceRoot.v1_5_0.ServiceRoot"},
                        {"@odata.id", odataId(root)},
                        {"Id", "RootService"},
                        {"Name", "Root Service"},
                        {"RedfishVersion", "1.6.0"},
                        {"UUID", "00000000-0000-4000-8000-000000000001"},
                        {"Vendor", vendor},
                        {"Systems", link(odataId(root + "/Systems"))},
                        {"Managers", link(odataId(root + "/Managers"))},
                        {"Chassis", link(odataId(root + "/Chassis"))},
                        {"SessionService", link(odataId(root + "/SessionService"))},
                        {"Links", {{"Sessions", link(odataId(sessionsPath_))}}}};
    const auto collection = [&](const std::string& name, const std::string& type,
                                const std::string& title, const std::string& member) {
        resources_[root + "/" + name] = {{"@odata.type", "#" + type + "." + type},
                                         {"@odata.id", odataId(root + "/" + name)},
                                         {"Name", title},
                                         {"Members", json::array({link(odataId(member))})},
                                         {"Members@odata.count", 1}};
    };
    collection("Systems", "ComputerSystemCollection", "Computer System Collection", systemPath);
    collection("Managers", "ManagerCollection", "Manager Collection", managerPath);
    collection("Chassis", "ChassisCollection", "Chassis Collection", chassisPath);
    resources_[systemPath] = {{"@odata.type", "#ComputerSystem.v1_10_0.ComputerSystem"},
                              {"@odata.id", odataId(systemPath)},
                              {"Id", system},
                              {"Name", "System"},
                              {"PowerState", "On"},
                              {"Status", {{"State", "Enabled"}, {"Health", "OK"}}},
                              {"LogServices", link(odataId(systemPath + "/LogServices"))}};
    resources_[managerPath] = {{"@odata.type", "#Manager.v1_9_0.Manager"},
                               {"@odata.id", odataId(managerPath)},
                               {"Id", manager},
                               {"Name", "Manager"},
                               {"ManagerType", "BMC"},
                               {"Status", {{"State", "Enabled"}, {"Health", "OK"}}},
                               {"LogServices", link(odataId(managerPath + "/LogServices"))}};
    // Both have theirs, empty where the layout keeps no log there.
    for (const std::string& parent : {systemPath, managerPath}) {
        resources_[parent + "/LogServices"] = {
            {"@odata.type", "#LogServiceCollection.LogServiceCollection"},
            {"@odata.id", odataId(parent + "/LogServices")},
            {"Name", "Log Service Collection"},
            {"Members", json::array()},
            {"Members@odata.count", 0}};
    }
    resources_[chassisPath] = {{"@odata.type", "#Chassis.v1_14_0.Chassis"},
                               {"@odata.id", odataId(chassisPath)},
                               {"Id", chassis},
                               {"Name", "Chassis"},
                               {"ChassisType", "RackMount"}};
    resources_[root + "/SessionService"] = {
        {"@odata.type", "#SessionService.v1_1_8.SessionService"},
        {"@odata.id", odataId(root + "/SessionService")},
        {"Id", "SessionService"},
        {"Name", "Session Service"},
        {"ServiceEnabled", true},
        {"SessionTimeout", 1800},
        {"Sessions", link(odataId(sessionsPath_))}};

    if (options_.layout == RedfishLayout::OpenBmc) addRegistries(root);
    switch (options_.layout) {
        case RedfishLayout::OpenBmc:
            // bmcweb: the event log pages by 1,000 and takes $skip and $top; the BMC's journal
            // beside it is no event log.
            addLogService(systemPath, "EventLog",
                          {{"@odata.type", "#LogService.v1_2_0.LogService"},
                           {"Name", "Event Log Service"},
                           {"Description", "System Event Log Service"},
                           {"LogEntryType", "Event"},
                           {"MaxNumberOfRecords", 1000},
                           {"EntryDefaults",
                            {{"@odata.type", "#LogEntry.v1_9_0.LogEntry"},
                             {"Name", "System Event Log Entry"},
                             {"EntryType", "Event"},
                             {"MessageId", "OpenBMC.0.1.ResetButtonPressed"},
                             {"MessageArgs", json::array()},
                             {"Message", "Reset Button Pressed."},
                             {"Severity", "OK"}}}},
                          LogShape().byTime().pages(1000).withQueryOptions());
            addLogService(managerPath, "Journal",
                          {{"@odata.type", "#LogService.v1_2_0.LogService"},
                           {"Name", "Open BMC Journal Log Service"},
                           {"Description", "BMC Journal Log Service"},
                           {"LogEntryType", "Multiple"},
                           {"MaxNumberOfRecords", 1000},
                           {"EntryDefaults",
                            {{"@odata.type", "#LogEntry.v1_9_0.LogEntry"},
                             {"Name", "BMC Journal Entry"},
                             {"EntryType", "Oem"},
                             {"OemRecordFormat", "BMC Journal Entry"},
                             {"Message", "systemd[1]: Started Phosphor Log Manager."},
                             {"Severity", "OK"}}}},
                          LogShape().pages(1000).withQueryOptions());
            break;
        case RedfishLayout::Idrac:
            // iDRAC9: the SEL numbers its records again from 1 once cleared, as IPMI's SEL
            // does; the Lifecycle log keeps its sequence numbers.
            addLogService(managerPath, "Sel",
                          {{"@odata.type", "#LogService.v1_1_0.LogService"},
                           {"Name", "SEL Log Service"},
                           {"Description", "SEL Log Service"},
                           {"LogEntryType", "SEL"},
                           {"MaxNumberOfRecords", 1024},
                           {"EntryDefaults",
                            {{"@odata.type", "#LogEntry.v1_6_1.LogEntry"},
                             {"EntryType", "SEL"},
                             {"SensorType", "Event Logging Disabled"},
                             {"SensorNumber", 114},
                             {"EntryCode", "Assert"},
                             {"GeneratorId", "0x0020"},
                             {"Message", "Log cleared."},
                             {"Severity", "OK"}}}},
                          LogShape().restartingOnClear().pages(50).withQueryOptions());
            addLogService(managerPath, "Lclog",
                          {{"@odata.type", "#LogService.v1_1_0.LogService"},
                           {"Name", "Lifecycle Controller Log Service"},
                           {"Description", "Lifecycle Controller Log Service"},
                           {"LogEntryType", "Multiple"},
                           {"MaxNumberOfRecords", 500000},
                           {"EntryDefaults",
                            {{"@odata.type", "#LogEntry.v1_6_1.LogEntry"},
                             {"EntryType", "Event"},
                             {"MessageId", "USR0030"},
                             {"MessageArgs", json::array({"root", "192.0.2.1"})},
                             {"Message",
                              "Successfully logged in using root, from 192.0.2.1 and "
                              "REDFISH."},
                             {"Severity", "OK"}}}},
                          LogShape().pages(50).withQueryOptions());
            break;
        case RedfishLayout::IdracLegacy:
            // The entries under Logs/, beside the LogServices that link them; only the SEL can
            // be cleared.
            addLogService(managerPath, "Sel",
                          {{"@odata.type", "#LogService.v1_0_2.LogService"},
                           {"Name", "SEL Log Service"},
                           {"Description", "SEL Log Service"},
                           {"LogEntryType", "SEL"},
                           {"MaxNumberOfRecords", 1024},
                           {"EntryDefaults",
                            {{"@odata.type", "#LogEntry.v1_0_2.LogEntry"},
                             {"EntryType", "SEL"},
                             {"SensorType", "Event Logging Disabled"},
                             {"SensorNumber", 114},
                             {"EntryCode", json::array({{{"Member", "Assert"}}})},
                             {"Message", "Log cleared."},
                             {"Severity", "OK"}}}},
                          LogShape().restartingOnClear().at(managerPath + "/Logs/Sel"));
            addLogService(managerPath, "Lclog",
                          {{"@odata.type", "#LogService.v1_0_2.LogService"},
                           {"Name", "Lifecycle Controller Log Service"},
                           {"Description", "Lifecycle Controller Log Service"},
                           {"LogEntryType", "Multiple"},
                           {"MaxNumberOfRecords", 500000},
                           {"EntryDefaults",
                            {{"@odata.type", "#LogEntry.v1_0_2.LogEntry"},
                             {"EntryType", "Event"},
                             {"MessageId", "USR0030"},
                             {"MessageArgs", json::array({"root", "192.0.2.1"})},
                             {"Message",
                              "Successfully logged in using root, from 192.0.2.1 and "
                              "REDFISH."},
                             {"Severity", "OK"}}}},
                          LogShape().notClearable().at(managerPath + "/Logs/Lclog"));
            break;
        case RedfishLayout::Ilo:
            // iLO 5: members are links, each entry read on its own; the IML numbers again from 1
            // once cleared.
            addLogService(systemPath, "IML",
                          {{"@odata.type", "#LogService.v1_0_0.LogService"},
                           {"Name", "Integrated Management Log"},
                           {"Description", "Integrated Management Log"},
                           {"LogEntryType", "Oem"},
                           {"MaxNumberOfRecords", 1000},
                           {"EntryDefaults",
                            {{"@odata.type", "#LogEntry.v1_11_0.LogEntry"},
                             {"Name", "Integrated Management Log"},
                             {"EntryType", "Oem"},
                             {"OemRecordFormat", "Hpe-IML"},
                             {"Message", "Server power restored."},
                             {"Severity", "OK"},
                             {"Oem",
                              {{"Hpe",
                                {{"@odata.type", "#HpeLogEntry.v2_3_0.HpeLogEntry"},
                                 {"Categories", json::array({"Power"})},
                                 {"Class", 32},
                                 {"ClassDescription", "Power"},
                                 {"Code", 1},
                                 {"Count", 1},
                                 {"Repaired", false}}}}}}}},
                          LogShape().restartingOnClear().asLinks());
            addLogService(managerPath, "IEL",
                          {{"@odata.type", "#LogService.v1_0_0.LogService"},
                           {"Name", "iLO Event Log"},
                           {"Description", "iLO Event Log"},
                           {"LogEntryType", "Oem"},
                           {"MaxNumberOfRecords", 1000},
                           {"EntryDefaults",
                            {{"@odata.type", "#LogEntry.v1_11_0.LogEntry"},
                             {"Name", "iLO Event Log"},
                             {"EntryType", "Oem"},
                             {"OemRecordFormat", "Hpe-iLOEventLog"},
                             {"Message", "Browser login: Administrator - 192.0.2.1"},
                             {"Severity", "OK"}}}},
                          LogShape().restartingOnClear().asLinks());
            break;
        case RedfishLayout::Xcc:
            addLogService(systemPath, "PlatformLog",
                          {{"@odata.type", "#LogService.v1_1_3.LogService"},
                           {"Name", "LogService"},
                           {"Description",
                            "This resource is used to represent a log service for "
                            "a Redfish implementation."},
                           {"LogEntryType", "Multiple"},
                           {"MaxNumberOfRecords", 1024},
                           {"EntryDefaults",
                            {{"@odata.type", "#LogEntry.v1_13_0.LogEntry"},
                             {"Name", "LogEntry"},
                             {"Description",
                              "This resource is used to represent a log entry for "
                              "log services for a Redfish implementation."},
                             {"EntryType", "Oem"},
                             {"OemRecordFormat", "Lenovo"},
                             {"EventGroupId", 0},
                             {"EventId", "FQXSPPW2008I"},
                             {"MessageArgs", json::array()},
                             {"Message", "Server power has been turned on."},
                             {"Severity", "OK"}}}},
                          LogShape().withQueryOptions());
            addLogService(systemPath, "AuditLog",
                          {{"@odata.type", "#LogService.v1_1_3.LogService"},
                           {"Name", "LogService"},
                           {"Description",
                            "This resource is used to represent a log service for "
                            "a Redfish implementation."},
                           {"LogEntryType", "Multiple"},
                           {"MaxNumberOfRecords", 1024},
                           {"EntryDefaults",
                            {{"@odata.type", "#LogEntry.v1_13_0.LogEntry"},
                             {"Name", "LogEntry"},
                             {"EntryType", "Oem"},
                             {"OemRecordFormat", "Lenovo"},
                             {"EventGroupId", 0},
                             {"EventId", "FQXSPSE4001I"},
                             {"MessageArgs", json::array({"USERID", "WEB", "192.0.2.1"})},
                             {"Message",
                              "Remote Login Successful. Login ID: USERID using WEB "
                              "from 192.0.2.1."},
                             {"Severity", "OK"}}}},
                          LogShape().withQueryOptions());
            break;
        case RedfishLayout::Supermicro:
            addLogService(systemPath, "Log1",
                          {{"@odata.type", "#LogService.v1_0_0.LogService"},
                           {"Name", "Log Service"},
                           {"Description", "System Log Service"},
                           {"LogEntryType", "SEL"},
                           {"MaxNumberOfRecords", 512},
                           {"EntryDefaults",
                            {{"@odata.type", "#LogEntry.v1_4_0.LogEntry"},
                             {"Name", "Log Entry"},
                             {"EntryType", "SEL"},
                             {"EntryCode", "Assert"},
                             {"SensorType", "Physical Chassis Security"},
                             {"Message", "General Chassis Intrusion - Assertion"},
                             {"Severity", "Warning"}}}},
                          LogShape().restartingOnClear());
            break;
    }
}

namespace {

json registryMessage(const std::string& description, const std::string& text,
                     const std::string& severity, const std::vector<std::string>& paramTypes,
                     const std::string& resolution = "None.") {
    json message = {{"Description", description},
                    {"Message", text},
                    {"Severity", severity},
                    {"NumberOfArgs", paramTypes.size()},
                    {"Resolution", resolution}};
    if (!paramTypes.empty()) message["ParamTypes"] = paramTypes;
    return message;
}

}  // namespace

// The registries as bmcweb lists them: a MessageRegistryFile each under /redfish/v1/Registries,
// its Location's Uri the registry (a MessageRegistry) on this service, the PublicationUri DMTF's
// copy. The messages' texts are those DMTF's Base 1.8 and OpenBMC's registry give them.
void RedfishBmc::addRegistries(const std::string& root) {
    const std::string registries = root + "/Registries";
    resources_[root]["Registries"] = link(registries);
    struct Registry {
        std::string prefix;
        std::string version;  // major.minor.errata
        std::string owner;
        std::string publication;
        json messages;
    };
    const std::vector<Registry> all = {
        {"Base",
         "1.8.1",
         "DMTF",
         "https://redfish.dmtf.org/registries/Base.1.8.1.json",
         {{"ResourceCreated",
           registryMessage("Indicates that all conditions of a successful creation operation "
                           "have been met.",
                           "The resource has been created successfully.", "OK", {})},
          {"PropertyValueNotInList",
           registryMessage("Indicates that a property was given the correct value type but the "
                           "value of that property was not supported.",
                           "The value %1 for the property %2 is not in the list of acceptable "
                           "values.",
                           "Warning", {"string", "string"},
                           "Choose a value from the enumeration list that the implementation "
                           "can support and resubmit the request if the operation failed.")},
          {"AccessDenied",
           registryMessage("Indicates that while attempting to access, connect to or transfer "
                           "to/from another resource, the service denied access.",
                           "While attempting to establish a connection to %1, the service "
                           "denied access.",
                           "Critical", {"string"},
                           "Attempt to ensure that the URI is correct and that the service has "
                           "the appropriate credentials.")}}},
        {"OpenBMC",
         "0.1.0",
         "OpenBMC",
         "",
         {{"DCPowerOn", registryMessage("Indicates that the system DC power is on.",
                                        "Host system DC power is on", "OK", {})},
          {"PowerSupplyFailed", registryMessage("Indicates that a power supply has failed.",
                                                "Power supply %1 failed.", "Warning", {"string"})},
          {"PowerSupplyFanRecovered",
           registryMessage("Indicates that the power supply fan recovered from a failure.",
                           "Power supply %1 fan %2 recovered.", "OK", {"string", "string"})}}},
    };
    json members = json::array();
    for (const Registry& registry : all) {
        const std::string file = registries + "/" + registry.prefix;
        const std::string copy = file + "/" + registry.prefix;
        const std::string majorMinor = registry.version.substr(0, registry.version.rfind('.'));
        json location = {{"Language", "en"}, {"Uri", copy}};
        if (!registry.publication.empty()) location["PublicationUri"] = registry.publication;
        resources_[file] = {{"@odata.type", "#MessageRegistryFile.v1_1_0.MessageRegistryFile"},
                            {"@odata.id", file},
                            {"Id", registry.prefix},
                            {"Name", registry.prefix + " Message Registry File"},
                            {"Description", registry.prefix + " Message Registry File Location"},
                            {"Languages", json::array({"en"})},
                            {"Registry", registry.prefix + "." + majorMinor},
                            {"Location", json::array({location})}};
        resources_[copy] = {{"@odata.type", "#MessageRegistry.v1_4_1.MessageRegistry"},
                            {"@odata.id", copy},
                            {"Id", registry.prefix + "." + registry.version},
                            {"Name", registry.prefix + " Message Registry"},
                            {"Language", "en"},
                            {"RegistryPrefix", registry.prefix},
                            {"RegistryVersion", registry.version},
                            {"OwningEntity", registry.owner},
                            {"Messages", registry.messages}};
        members.push_back(link(file));
    }
    resources_[registries] = {
        {"@odata.type", "#MessageRegistryFileCollection.MessageRegistryFileCollection"},
        {"@odata.id", registries},
        {"Name", "MessageRegistryFile Collection"},
        {"Members", members},
        {"Members@odata.count", members.size()}};
}

// --- The log content ---

std::string RedfishBmc::entryId(Log& log, const json& entry) {
    if (entry.contains("Id") && entry["Id"].is_string()) return entry["Id"].get<std::string>();
    if (log.numbered) return std::to_string(log.nextNumber++);
    // bmcweb's: the entry's second, with _1, _2 ... for the later ones of that second.
    const std::string seconds =
        std::to_string(secondsOf(entry.value("Created", "")).value_or(std::time(nullptr)));
    std::string id = seconds;
    for (unsigned index = 1; std::any_of(log.entries.begin(), log.entries.end(),
                                         [&](const Entry& other) { return other.id == id; });
         ++index)
        id = seconds + "_" + std::to_string(index);
    return id;
}

std::string RedfishBmc::addEntry(const std::string& logService, json entry) {
    return addEntryWithData(logService, std::move(entry), "");
}

std::string RedfishBmc::addEntryWithData(const std::string& logService, json entry,
                                         std::string data) {
    if (entry.is_null()) entry = json::object();
    if (!entry.is_object()) throw std::invalid_argument("an entry is a JSON object");
    std::lock_guard<std::mutex> lock(mutex_);
    Log& log = logAt(logService);
    if (!entry.contains("Created")) entry["Created"] = isoTime(std::time(nullptr));
    const std::string id = entryId(log, entry);
    entry["Id"] = id;
    if (log.numbered) {
        const unsigned long number = std::strtoul(id.c_str(), nullptr, 10);
        if (number >= log.nextNumber) log.nextNumber = static_cast<unsigned>(number + 1);
    }
    log.entries.push_back({id, std::move(entry), std::move(data)});
    return id;
}

std::string RedfishBmc::addSelRecord(const std::string& logService,
                                     const std::array<std::uint8_t, 16>& record) {
    bool sel = false;
    {
        std::lock_guard<std::mutex> lock(mutex_);
        sel = logAt(logService).sel;
    }
    if (!sel) throw std::logic_error(logService + " keeps no SEL records");
    // Bytes 3-6: the time stamp, least significant first; 7-8 the generator; 10 the sensor
    // type, 11 its number; 12 the event type, bit 7 set for a deassertion; 13 the offset.
    const std::time_t stamp = static_cast<std::time_t>(
        record[3] | record[4] << 8 | record[5] << 16 | static_cast<std::uint32_t>(record[6]) << 24);
    json entry = {{"Created", isoTime(stamp)}};
    if (options_.layout == RedfishLayout::OpenBmc) {
        const std::string hex = hexOf(record);
        entry["MessageId"] = "OpenBMC.0.1.SELEntryAdded";
        entry["MessageArgs"] = json::array({hex});
        entry["Message"] = "SEL Entry Added: " + hex;
        entry["Severity"] = "OK";
        return addEntry(logService, std::move(entry));
    }
    const bool deassertion = (record[12] & 0x80) != 0;
    const std::string type = sensorTypeName(record[10]);
    std::ostringstream generator;
    generator << "0x" << std::hex << std::uppercase << std::setfill('0') << std::setw(4)
              << (record[7] | record[8] << 8);
    entry["SensorType"] = type;
    entry["SensorNumber"] = record[11];
    const std::string code = deassertion ? "Deassert" : "Assert";
    entry["EntryCode"] = code;
    if (options_.layout == RedfishLayout::IdracLegacy)
        entry["EntryCode"] = json::array({{{"Member", code}}});
    entry["Message"] = type + " sensor " + std::to_string(record[11]) + " offset " +
                       std::to_string(record[13] & 0x0F) +
                       (deassertion ? " deasserted." : " asserted.");
    entry["Severity"] = deassertion ? "OK" : "Warning";
    if (options_.layout == RedfishLayout::Idrac) entry["GeneratorId"] = generator.str();
    if (options_.layout == RedfishLayout::Supermicro) {
        // As DMTF's sample of this log: a threshold event's code names its threshold, and
        // MessageId carries the event data bytes.
        const auto threshold = thresholdCode(record[13] & 0x0F);
        if ((record[12] & 0x7F) == 0x01 && threshold) entry["EntryCode"] = *threshold;
        std::ostringstream data;
        data << "0x" << std::hex << std::uppercase << std::setfill('0');
        for (int i = 13; i < 16; ++i) data << std::setw(2) << static_cast<int>(record[i]);
        entry["MessageId"] = data.str();
    }
    if (!options_.selAsAdditionalData) return addEntry(logService, std::move(entry));
    return addEntryWithData(logService, std::move(entry),
                            std::string(record.begin(), record.end()));
}

void RedfishBmc::clearLog(const std::string& logService) {
    std::lock_guard<std::mutex> lock(mutex_);
    Log& log = logAt(logService);
    log.entries.clear();
    if (log.restartsOnClear) log.nextNumber = 1;
}

json RedfishBmc::entryJson(const Log& log, const Entry& entry) const {
    json fields = log.defaults;
    if (options_.layout == RedfishLayout::Idrac || options_.layout == RedfishLayout::IdracLegacy) {
        fields["Name"] = "Log Entry " + entry.id;
        fields["Description"] = "Log Entry " + entry.id;
    }
    if (options_.layout == RedfishLayout::Ilo) {
        fields["Oem"]["Hpe"]["EventNumber"] = std::strtoul(entry.id.c_str(), nullptr, 10);
        fields["Oem"]["Hpe"]["Updated"] = entry.fields.value("Created", "");
    }
    // The entry's own fields win, a null one (XCC's Severity) included.
    fields.update(entry.fields);
    fields["@odata.id"] = odataId(log.collection + "/" + entry.id);
    fields["Id"] = entry.id;
    if (!entry.data.empty()) {
        // LogEntry's own way to a record of another format: an OEM kind of diagnostic data.
        fields["AdditionalDataURI"] = odataId(log.collection + "/" + entry.id + "/Attachment");
        fields["DiagnosticDataType"] = "OEM";
        fields["OEMDiagnosticDataType"] = "IPMI SEL";
    }
    return fields;
}

std::vector<json> RedfishBmc::entries(const std::string& logService) const {
    std::lock_guard<std::mutex> lock(mutex_);
    const Log& log = logAt(logService);
    std::vector<json> all;
    for (const Entry& entry : log.entries) all.push_back(entryJson(log, entry));
    return all;
}

std::size_t RedfishBmc::requests(const std::string& method, const std::string& path) const {
    std::lock_guard<std::mutex> lock(mutex_);
    const auto found = requests_.find({method, normalized(path)});
    return found != requests_.end() ? found->second : 0;
}

std::map<std::pair<std::string, std::string>, std::size_t> RedfishBmc::requestCounts() const {
    std::lock_guard<std::mutex> lock(mutex_);
    return requests_;
}

std::vector<RedfishSession> RedfishBmc::sessions() const {
    std::lock_guard<std::mutex> lock(mutex_);
    std::vector<RedfishSession> all;
    for (const auto& [token, held] : tokens_) all.push_back(held->session);
    return all;
}

// --- Knobs ---

void RedfishBmc::setPageSize(const std::string& logService, std::size_t members) {
    std::lock_guard<std::mutex> lock(mutex_);
    logAt(logService).pageSize = members;
}

void RedfishBmc::setQueryOptions(const std::string& logService, bool honoured) {
    std::lock_guard<std::mutex> lock(mutex_);
    logAt(logService).queryOptions = honoured;
}

void RedfishBmc::afterPage(std::function<void(const std::string&, std::size_t)> hook) {
    std::lock_guard<std::mutex> lock(mutex_);
    afterPage_ = std::move(hook);
}

void RedfishBmc::refuseSessions(int status) {
    std::lock_guard<std::mutex> lock(mutex_);
    refuseSessions_ = status;
}

void RedfishBmc::expireSessions() {
    std::lock_guard<std::mutex> lock(mutex_);
    tokens_.clear();
}

void RedfishBmc::expireSessionsAfter(std::size_t requests) {
    std::lock_guard<std::mutex> lock(mutex_);
    tokenLifetime_ = requests;
}

void RedfishBmc::setFault(const std::string& path, RedfishFault fault,
                          std::optional<std::size_t> times) {
    std::lock_guard<std::mutex> lock(mutex_);
    if (fault == RedfishFault::None || times == std::size_t{0}) {
        faults_.erase(normalized(path));
        return;
    }
    faults_[normalized(path)] = {fault, times};
}

void RedfishBmc::setDelay(std::chrono::milliseconds delay) {
    std::lock_guard<std::mutex> lock(mutex_);
    delay_ = delay;
}

// --- Serving ---

bool RedfishBmc::authorized(const tool::HttpRequest& request) {
    const std::string token = request.header("X-Auth-Token");
    if (!token.empty()) {
        std::lock_guard<std::mutex> lock(mutex_);
        const auto found = tokens_.find(token);
        if (found == tokens_.end()) return false;
        if (tokenLifetime_ && found->second->uses >= *tokenLifetime_) {
            tokens_.erase(found);
            return false;
        }
        ++found->second->uses;
        return true;
    }
    const auto credentials = tool::basicCredentials(request.header("Authorization"));
    return credentials && credentials->user == options_.user &&
           credentials->password == options_.password;
}

namespace {

// What a fault makes of an answer's JSON body.
void spoil(RedfishFault fault, tool::HttpResponse& response) {
    if (response.status != 200 || fault == RedfishFault::None) return;
    if (fault == RedfishFault::MalformedJson) {
        response.body = response.body.substr(0, response.body.size() / 2) + "\"Members\": [,";
        return;
    }
    json body = json::parse(response.body, nullptr, false);
    if (body.is_discarded() || !body.is_object()) return;
    switch (fault) {
        case RedfishFault::WrongTypes:
            if (body.contains("Members")) {
                body["Members"] = "Members";
                body["Members@odata.count"] = "many";
            } else {
                body["Id"] = 7;
                if (body.contains("Entries")) body["Entries"] = 1;
            }
            break;
        case RedfishFault::MissingFields:
            for (const char* name :
                 {"Members", "Members@odata.count", "Members@odata.nextLink", "Entries", "Id"})
                body.erase(name);
            break;
        case RedfishFault::HugeBody:
            body["Oem"] = {{"Padding", std::string(kHugeBody, 'x')}};
            break;
        default:
            break;
    }
    response.body = body.dump();
}

}  // namespace

void RedfishBmc::serve(const std::string& method, const std::string& path,
                       std::function<void(const tool::HttpRequest&, tool::HttpResponse&)> handler,
                       bool open) {
    auto wrapped = [this, handler, open](const tool::HttpRequest& request,
                                         tool::HttpResponse& response) {
        const std::string asked = normalized(request.path);
        RedfishFault fault = RedfishFault::None;
        std::chrono::milliseconds delay{0};
        {
            std::lock_guard<std::mutex> lock(mutex_);
            ++requests_[{request.method, asked}];
            auto found = faults_.find(asked);
            if (found == faults_.end()) found = faults_.find("*");
            if (found != faults_.end()) {
                auto& [kind, times] = found->second;
                fault = kind;
                if (times && --*times == 0) faults_.erase(found);
            }
            delay = delay_;
        }
        if (delay.count() > 0) std::this_thread::sleep_for(delay);
        response.headers.emplace_back("OData-Version", "4.0");
        switch (fault) {
            case RedfishFault::RedirectLoop:
                response.status = 302;
                response.contentType = "";
                response.headers.emplace_back("Location", request.path);
                return;
            case RedfishFault::Unavailable:
                response.headers.emplace_back("Retry-After", "1");
                return answerError(response, 503, "ServiceTemporarilyUnavailable",
                                   "The service is temporarily unavailable.");
            case RedfishFault::NotFound:
                return answerError(response, 404, "ResourceNotFound",
                                   "The requested resource was not found.");
            default:
                break;
        }
        if (!open && !authorized(request)) {
            response.headers.emplace_back("WWW-Authenticate", "Basic realm=\"Redfish\"");
            return answerError(response, 401, "NoValidSession",
                               "There is no valid session established with the implementation.");
        }
        handler(request, response);
        spoil(fault, response);
    };
    server_->handle(method, path, wrapped);
    if (path != "/") server_->handle(method, path + "/", wrapped);
}

void RedfishBmc::answerEntries(Log& log, const tool::HttpRequest& request,
                               tool::HttpResponse& response) {
    std::size_t page = 0;
    json body;
    {
        std::lock_guard<std::mutex> lock(mutex_);
        std::optional<std::size_t> skipGiven, top;
        const auto number = [&](const char* name, std::optional<std::size_t>& value) {
            const auto text = request.param(name);
            if (!text) return true;
            if (text->empty() || text->find_first_not_of("0123456789") != std::string::npos ||
                text->size() > 9)
                return false;
            value = std::stoul(*text);
            return true;
        };
        if (log.queryOptions && (!number("$skip", skipGiven) || !number("$top", top))) {
            return answerError(response, 400, "QueryParameterValueTypeError",
                               "The value for a query parameter is of a different type.");
        }
        // As bmcweb: a page of none would be followed for ever.
        if (top == std::size_t{0}) {
            return answerError(response, 400, "QueryParameterOutOfRange",
                               "The value for the query parameter $top is out of range.");
        }
        const std::size_t skip = skipGiven.value_or(0);
        const std::size_t total = log.entries.size();
        const std::size_t first = std::min(skip, total);
        std::size_t length = total - first;
        if (top) length = std::min(length, *top);
        if (log.queryOptions && log.pageSize > 0) length = std::min(length, log.pageSize);
        const std::size_t step =
            log.queryOptions && log.pageSize > 0 ? log.pageSize : top.value_or(0);
        page = step > 0 ? skip / step : 0;
        json members = json::array();
        for (std::size_t i = first; i < first + length; ++i) {
            const Entry& entry = log.entries[i];
            members.push_back(log.linksOnly ? link(odataId(log.collection + "/" + entry.id))
                                            : entryJson(log, entry));
        }
        body = {{"@odata.type", "#LogEntryCollection.LogEntryCollection"},
                {"@odata.id", odataId(log.collection)},
                {"Name", log.id + " Entries"},
                {"Description", "Collection of " + log.id + " entries"},
                {"Members", std::move(members)},
                {"Members@odata.count", total}};
        if (log.queryOptions && first + length < total) {
            std::string next = odataId(log.collection) + "?$skip=" + std::to_string(first + length);
            if (top) next += "&$top=" + std::to_string(*top);
            body["Members@odata.nextLink"] = next;
        }
    }
    std::function<void(const std::string&, std::size_t)> hook;
    {
        std::lock_guard<std::mutex> lock(mutex_);
        hook = afterPage_;
    }
    if (hook) hook(log.path, page);
    answerJson(response, 200, body);
}

void RedfishBmc::answerEntry(Log& log, const std::string& id, tool::HttpResponse& response) {
    std::lock_guard<std::mutex> lock(mutex_);
    for (const Entry& entry : log.entries) {
        if (entry.id == id) return answerJson(response, 200, entryJson(log, entry));
    }
    answerError(response, 404, "ResourceNotFound",
                "The requested resource of type LogEntry named '" + id + "' was not found.");
}

void RedfishBmc::answerClear(Log& log, tool::HttpResponse& response) {
    clearLog(log.path);
    response.status = 204;
    response.contentType = "";
}

void RedfishBmc::answerAttachment(Log& log, const std::string& id, tool::HttpResponse& response) {
    std::lock_guard<std::mutex> lock(mutex_);
    for (const Entry& entry : log.entries) {
        if (entry.id != id || entry.data.empty()) continue;
        response.status = 200;
        response.contentType = "application/octet-stream";
        response.body = entry.data;
        return;
    }
    answerError(response, 404, "ResourceNotFound",
                "The requested resource of type Attachment named '" + id + "' was not found.");
}

void RedfishBmc::answerLogin(const tool::HttpRequest& request, tool::HttpResponse& response) {
    {
        std::lock_guard<std::mutex> lock(mutex_);
        if (refuseSessions_ != 0) {
            return answerError(response, refuseSessions_, "OperationNotAllowed",
                               "The HTTP method is not allowed on this resource.");
        }
    }
    const json body = json::parse(request.body, nullptr, false);
    if (!body.is_object() || !body.contains("UserName") || !body["UserName"].is_string() ||
        !body.contains("Password") || !body["Password"].is_string()) {
        return answerError(response, 400, "PropertyMissing",
                           "The request body must hold UserName and Password.");
    }
    if (body["UserName"] != options_.user || body["Password"] != options_.password) {
        return answerError(response, 401, "ResourceAtUriUnauthorized",
                           "While accessing the resource, an unauthorized access was found.");
    }
    auto held = std::make_unique<Token>();
    held->session.user = options_.user;
    held->session.token = randomToken();
    const std::string token = held->session.token;
    std::string id;
    {
        std::lock_guard<std::mutex> lock(mutex_);
        id = std::to_string(nextSession_++);
        held->session.id = id;
        tokens_[token] = std::move(held);
    }
    const std::string location = odataId(sessionsPath_ + "/" + id);
    response.headers.emplace_back("X-Auth-Token", token);
    response.headers.emplace_back("Location", location);
    answerJson(response, 201,
               {{"@odata.type", "#Session.v1_0_0.Session"},
                {"@odata.id", location},
                {"Id", id},
                {"Name", "User Session"},
                {"Description", "Manager User Session"},
                {"UserName", options_.user}});
}

void RedfishBmc::answerSession(const std::string& id, const tool::HttpRequest& request,
                               tool::HttpResponse& response) {
    std::lock_guard<std::mutex> lock(mutex_);
    for (auto it = tokens_.begin(); it != tokens_.end(); ++it) {
        if (it->second->session.id != id) continue;
        if (request.method == "DELETE") {
            tokens_.erase(it);
            response.status = 204;
            response.contentType = "";
            return;
        }
        return answerJson(response, 200,
                          {{"@odata.type", "#Session.v1_0_0.Session"},
                           {"@odata.id", odataId(sessionsPath_ + "/" + id)},
                           {"Id", id},
                           {"Name", "User Session"},
                           {"UserName", it->second->session.user}});
    }
    answerError(response, 404, "ResourceNotFound",
                "The requested resource of type Session named '" + id + "' was not found.");
}

void RedfishBmc::serveEntries(Log& log) {
    const std::string& entries = log.collection;
    serve("GET", entries,
          [this, &log](const tool::HttpRequest& request, tool::HttpResponse& response) {
              answerEntries(log, request, response);
          });
    if (log.clearable) {
        serve("POST", log.path + "/Actions/LogService.ClearLog",
              [this, &log](const tool::HttpRequest&, tool::HttpResponse& response) {
                  answerClear(log, response);
              });
    }
    std::set<std::string> ids;
    for (const Entry& entry : log.entries) ids.insert(entry.id);
    if (log.numbered) {
        for (unsigned number = 1; number < log.nextNumber + kEntriesAhead; ++number)
            ids.insert(std::to_string(number));
    }
    for (const std::string& id : ids) {
        serve("GET", entries + "/" + id,
              [this, &log, id](const tool::HttpRequest&, tool::HttpResponse& response) {
                  answerEntry(log, id, response);
              });
        if (options_.selAsAdditionalData && log.sel) {
            serve("GET", entries + "/" + id + "/Attachment",
                  [this, &log, id](const tool::HttpRequest&, tool::HttpResponse& response) {
                      answerAttachment(log, id, response);
                  });
        }
    }
}

void RedfishBmc::start() {
    if (started_) throw std::logic_error("the Redfish BMC was started before");
    started_ = true;
    tool::WebConfig config;
    if (options_.https) {
        config.tls.emplace();
        config.tls->certFile = scratch_.file("redfish.crt");
        config.tls->keyFile = scratch_.file("redfish.key");
    }
    tool::HttpLimits limits;
    limits.handlerThreads = 8;
    server_ = std::make_unique<tool::HttpServer>(&config, limits);
    std::lock_guard<std::mutex> lock(mutex_);
    const std::set<std::string> open = {"/redfish", "/redfish/v1"};
    for (const auto& [path, resource] : resources_) {
        serve(
            "GET", path,
            [resource = resource](const tool::HttpRequest&, tool::HttpResponse& response) {
                answerJson(response, 200, resource);
            },
            open.count(path) != 0);
    }
    const std::string sessions = sessionsPath_;
    serve(
        "POST", sessions,
        [this](const tool::HttpRequest& request, tool::HttpResponse& response) {
            answerLogin(request, response);
        },
        true);
    serve("GET", sessions,
          [this, sessions](const tool::HttpRequest&, tool::HttpResponse& response) {
              std::lock_guard<std::mutex> lock(mutex_);
              json members = json::array();
              for (const auto& [token, held] : tokens_)
                  members.push_back(link(odataId(sessions + "/" + held->session.id)));
              answerJson(response, 200,
                         {{"@odata.type", "#SessionCollection.SessionCollection"},
                          {"@odata.id", odataId(sessions)},
                          {"Name", "Session Collection"},
                          {"Members@odata.count", members.size()},
                          {"Members", members}});
          });
    for (unsigned number = 1; number <= kSessionPaths; ++number) {
        const std::string id = std::to_string(number);
        for (const char* method : {"GET", "DELETE"}) {
            serve(method, sessions + "/" + id,
                  [this, id](const tool::HttpRequest& request, tool::HttpResponse& response) {
                      answerSession(id, request, response);
                  });
        }
    }
    for (auto& log : logs_) serveEntries(*log);
    port_ = server_->bind("127.0.0.1", options_.port);
    if (port_ <= 0) throw std::runtime_error("no port of 127.0.0.1 to listen on");
    thread_ = std::thread([this] { server_->run(); });
}

void RedfishBmc::stop() {
    if (!server_) return;
    server_->stop();
    if (thread_.joinable()) thread_.join();
}

}  // namespace bmcsim
