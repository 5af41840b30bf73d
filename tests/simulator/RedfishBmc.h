// A Redfish BMC of the tests' own, in this process, on tool::HttpServer: a service root, the
// Systems, Managers and Chassis collections, their LogServices and the log entries of one maker's
// layout, a SessionService and basic authentication, and faults a test turns on. It listens on a
// free port of 127.0.0.1 and writes nothing outside its scratch directory (the HTTPS
// certificate).
//
// Each layout is modelled on what its maker publishes:
// - OpenBmc: bmcweb's journal-backed event log (redfish-core/lib/log_services.hpp): entries under
//   /redfish/v1/Systems/system/LogServices/EventLog/Entries with MessageId, MessageArgs, Message,
//   Severity, Created and EntryType Event; IDs are the entry's time in seconds since the epoch,
//   with "_1", "_2" ... for entries of the same second; $skip/$top, at most 1,000 members a page
//   and a nextLink of "?$skip=N". A SEL record comes as the IPMI hooks of phosphor-host-ipmid and
//   intel-ipmi-oem log an Add SEL Entry: MessageId OpenBMC.0.1.SELEntryAdded, its one argument
//   the 16 bytes in SEL order (record ID and time stamp least significant byte first) as 32
//   upper-case hexadecimal digits, Message "SEL Entry Added: <those digits>", Severity OK. The
//   BMC's journal (Managers/bmc/LogServices/Journal) beside it, numbered. Its message registries
//   under /redfish/v1/Registries, as bmcweb serves them: a MessageRegistryFile for DMTF's Base
//   (Base.1.8) and OpenBMC's own (OpenBMC.0.1), each Location's Uri the registry itself, with a
//   few of their messages.
// - Idrac: iDRAC9's Redfish API guide: the SEL at
//   /redfish/v1/Managers/iDRAC.Embedded.1/LogServices/Sel/Entries (EntryType SEL, SensorType,
//   SensorNumber, EntryCode Assert or Deassert, GeneratorId), the Lifecycle log Lclog beside it;
//   pages of 50 with $skip/$top.
// - IdracLegacy: iDRAC8 and iDRAC9 firmware before the entries moved under their LogServices, as
//   Dell's scripts and the clients written for them read it: the LogServices Sel and Lclog whose
//   Entries are /redfish/v1/Managers/iDRAC.Embedded.1/Logs/Sel and .../Logs/Lclog, EntryCode an
//   array of {"Member": ...}, sessions made at /redfish/v1/Sessions, the SEL alone clearable, no
//   query options.
// - Ilo: HPE's iLO 5 log services pages: /redfish/v1/Systems/1/LogServices/IML/Entries, entries
//   with EntryType Oem, OemRecordFormat Hpe-IML and Oem.Hpe (Class, Code, Count, EventNumber,
//   Repaired, Updated), members as links only (each entry read on its own), ids ending in '/';
//   the iLO event log IEL under the manager. Whether iLO pages these collections we did not
//   find: the whole log comes in one answer.
// - Xcc: Lenovo's XCC REST API pages: PlatformLog and AuditLog under /redfish/v1/Systems/1,
//   MaxNumberOfRecords 1024, WrapsWhenFull, EntryType Oem, OemRecordFormat Lenovo, EventId,
//   MessageArgs; $skip and $top honoured, the whole log otherwise.
// - Supermicro: /redfish/v1/Systems/1/LogServices/Log1/Entries, as DMTF's sample of that log
//   (which Supermicro's BMCs follow, by the clients written for them): SEL entries with
//   SensorType, SensorNumber, EntryCode (a threshold event's threshold as Redfish's LogEntryCode
//   names it, else Assert or Deassert) and MessageId "0x" and the event data bytes; the whole log
//   in one answer and no query options.
// Every path is served with a trailing '/' too; the service root and /redfish need no
// authentication, every other resource a session's X-Auth-Token or basic authentication.
#pragma once

#include <nlohmann/json.hpp>

#include <array>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "ScratchDirectory.h"

namespace tool {
class HttpServer;
struct HttpRequest;
struct HttpResponse;
}  // namespace tool

namespace bmcsim {

enum class RedfishLayout { OpenBmc, Idrac, IdracLegacy, Ilo, Xcc, Supermicro };

// "openbmc", "idrac", "idrac-legacy", "ilo", "xcc", "supermicro"; none for another name.
std::optional<RedfishLayout> redfishLayoutNamed(const std::string& name);
std::string redfishLayoutName(RedfishLayout layout);

// What a path answers instead of its resource, as a test sets it.
enum class RedfishFault {
    None,
    MalformedJson,  // a body that is not JSON
    WrongTypes,     // Members (or Id) of the wrong JSON type
    MissingFields,  // Members, its count and nextLink, Entries and Id left out
    HugeBody,       // valid JSON of 10 MB
    RedirectLoop,   // 302 to the same path
    Unavailable,    // 503 with Retry-After: 1
    NotFound,       // 404 with a Redfish error
};

struct RedfishSession {
    std::string id;
    std::string user;
    std::string token;
};

struct RedfishBmcOptions {
    RedfishLayout layout = RedfishLayout::OpenBmc;
    std::string user = "root";
    std::string password = "0penBmc";
    bool https = false;
    int port = 0;  // 0: one the system chooses
    // A SEL record of addSelRecord kept, outside OpenBmc's layout, also as the entry's additional
    // data: its 16 bytes (application/octet-stream) at the entry's AdditionalDataURI,
    // ".../Entries/ID/Attachment".
    bool selAsAdditionalData = false;
};

class RedfishBmc {
public:
    // Throws std::runtime_error when the certificate cannot be made or no port is free.
    explicit RedfishBmc(RedfishBmcOptions options = {});
    ~RedfishBmc();
    RedfishBmc(const RedfishBmc&) = delete;
    RedfishBmc& operator=(const RedfishBmc&) = delete;

    // Listens and serves on a thread of its own; once. The HTTP server takes its paths before it
    // runs, so an entry's own path is served for the entries there are now and, in logs that
    // number their entries, for the next 2,000 numbers; an entry added later to a log numbered by
    // time (OpenBmc's) is seen in its collection alone. Sessions have paths for the first 1,000.
    void start();
    void stop();

    RedfishLayout layout() const { return options_.layout; }
    int port() const { return port_; }
    // "http://127.0.0.1:PORT" or "https://...".
    std::string url() const;
    // The self-signed certificate of HTTPS, for clients to verify the server with; "" over HTTP.
    std::string certificateFile() const { return certificate_; }

    // The paths of the layout's LogServices, its main log (the SEL, or the maker's event log)
    // first.
    std::vector<std::string> logServices() const;
    std::string mainLog() const { return logServices().front(); }
    // Where a LogService's entries are, as its Entries link says.
    std::string entriesPath(const std::string& logService) const;
    // Where sessions are made (ServiceRoot's Links.Sessions).
    const std::string& sessionsPath() const { return sessionsPath_; }

    // Adds `entry` to the log at `logService` (a LogService's path), the layout's usual fields
    // under the ones it gives: Id (given, else the layout's numbering), Created (given as it
    // is, offset and all, such as "2024-01-02T03:04:05+01:00"; else now, in UTC), Message,
    // Severity and so on. Returns the entry's Id.
    std::string addEntry(const std::string& logService, nlohmann::json entry = nlohmann::json{});
    // A 16-byte IPMI SEL record as the layout shows one, in a SEL (OpenBmc's event log, iDRAC's
    // Sel, Supermicro's Log1; other logs throw std::logic_error). Created is the record's own
    // time stamp. iDRAC and Supermicro show its sensor type, number and assertion; the Message
    // they give is ours (the makers word it from their own tables).
    std::string addSelRecord(const std::string& logService,
                             const std::array<std::uint8_t, 16>& record);
    // As ClearLog does: the entries go. OpenBmc's IDs come from the time, so they go on; iDRAC's
    // SEL (both layouts), iLO's logs and Supermicro's log start again at 1; iDRAC's Lifecycle log
    // and XCC's and OpenBMC's journal go on from where they were.
    void clearLog(const std::string& logService);
    std::vector<nlohmann::json> entries(const std::string& logService) const;

    // Requests so far by method and path (without the query).
    std::size_t requests(const std::string& method, const std::string& path) const;
    // Every request so far, counted by method and path (without the query).
    std::map<std::pair<std::string, std::string>, std::size_t> requestCounts() const;
    std::vector<RedfishSession> sessions() const;

    // Knobs, at any time.
    // Members a page of `logService`'s entries, 0 for all at once; the next page is linked as
    // Members@odata.nextLink "...?$skip=N", so pages need the query options below.
    void setPageSize(const std::string& logService, std::size_t members);
    // Whether $skip and $top are honoured (OpenBmc, Idrac and Xcc by default); without them the
    // log comes whole, in one answer.
    void setQueryOptions(const std::string& logService, bool honoured);
    // Called, on the server's thread, after a page of `logService`'s entries was made and before
    // it is sent: `page` counts from 0 by the page size. Entries added there are in later pages.
    void afterPage(std::function<void(const std::string& logService, std::size_t page)> hook);
    // POST Sessions answered `status` (405 or 501), so that clients fall back to basic.
    void refuseSessions(int status = 405);
    // Every token ends now; or each ends after `requests` requests made with it.
    void expireSessions();
    void expireSessionsAfter(std::size_t requests);
    // What `path` (a resource's, without the query; "*" for every path without a fault of its
    // own) answers from now on, or for the next `times` requests to it; None for its resource.
    void setFault(const std::string& path, RedfishFault fault,
                  std::optional<std::size_t> times = std::nullopt);
    // Every answer waits this long before it is sent.
    void setDelay(std::chrono::milliseconds delay);

private:
    struct Log;
    struct LogShape;
    struct Entry;
    struct Token;

    void buildResources();
    void addLogService(const std::string& parent, const std::string& id, nlohmann::json service,
                       const LogShape& shape);
    void serve(const std::string& method, const std::string& path,
               std::function<void(const tool::HttpRequest&, tool::HttpResponse&)> handler,
               bool open = false);
    void serveEntries(Log& log);
    void answerEntries(Log& log, const tool::HttpRequest& request, tool::HttpResponse& response);
    void answerEntry(Log& log, const std::string& id, tool::HttpResponse& response);
    void answerClear(Log& log, tool::HttpResponse& response);
    void answerAttachment(Log& log, const std::string& id, tool::HttpResponse& response);
    std::string addEntryWithData(const std::string& logService, nlohmann::json entry,
                                 std::string data);
    void addRegistries(const std::string& root);
    void answerLogin(const tool::HttpRequest& request, tool::HttpResponse& response);
    void answerSession(const std::string& id, const tool::HttpRequest& request,
                       tool::HttpResponse& response);
    bool authorized(const tool::HttpRequest& request);
    Log& logAt(const std::string& logService);
    const Log& logAt(const std::string& logService) const;
    std::string entryId(Log& log, const nlohmann::json& entry);
    nlohmann::json entryJson(const Log& log, const Entry& entry) const;
    std::string odataId(const std::string& path) const;

    RedfishBmcOptions options_;
    ScratchDirectory scratch_;
    std::string certificate_;
    std::string sessionsPath_ = "/redfish/v1/SessionService/Sessions";
    std::unique_ptr<tool::HttpServer> server_;
    std::thread thread_;
    int port_ = -1;
    bool started_ = false;

    mutable std::mutex mutex_;
    std::map<std::string, nlohmann::json> resources_;  // the fixed ones, by path
    std::vector<std::unique_ptr<Log>> logs_;
    std::map<std::pair<std::string, std::string>, std::size_t> requests_;
    std::map<std::string, std::unique_ptr<Token>> tokens_;  // by token
    unsigned nextSession_ = 1;
    std::optional<std::size_t> tokenLifetime_;
    int refuseSessions_ = 0;
    // By path: the fault and how many more requests it answers (unset: all).
    std::map<std::string, std::pair<RedfishFault, std::optional<std::size_t>>> faults_;
    std::chrono::milliseconds delay_{0};
    std::function<void(const std::string&, std::size_t)> afterPage_;
};

}  // namespace bmcsim
