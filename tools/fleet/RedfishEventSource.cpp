#include "fleet/RedfishEventSource.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cctype>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <map>
#include <set>
#include <tuple>

#include "base/BoundedFile.h"

namespace tool {

using nlohmann::json;

namespace {

bool endsWith(const std::string& text, const std::string& suffix) {
    return text.size() >= suffix.size() &&
           text.compare(text.size() - suffix.size(), suffix.size(), suffix) == 0;
}

std::string lowered(std::string text) {
    for (char& c : text) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    return text;
}

// How many pages one read of a log follows at most: a service whose links never end is an error.
constexpr std::size_t kPageLimit = 10000;
constexpr const char* kServiceRoot = "/redfish/v1";

// The log services known by their makers' paths, whatever type they give their entries.
constexpr const char* kKnownLogs[] = {
    "/Managers/iDRAC.Embedded.1/LogServices/Sel",  // Dell
    "/Systems/1/LogServices/IML",                  // HPE's Integrated Management Log
    "/Systems/1/LogServices/PlatformLog",          // Lenovo XClarity Controller
    "/Systems/1/LogServices/Log1",                 // Supermicro
    "/Systems/system/LogServices/EventLog",        // OpenBMC
};

std::string withQuery(const std::string& path, const std::string& query) {
    return path + (path.find('?') == std::string::npos ? "?" : "&") + query;
}

std::vector<std::string> memberLinks(const json& collection) {
    std::vector<std::string> links;
    const auto members = collection.find("Members");
    if (members == collection.end() || !members->is_array()) return links;
    for (const json& member : *members) {
        if (!member.is_object()) continue;
        const auto id = member.find("@odata.id");
        if (id != member.end() && id->is_string()) links.push_back(id->get<std::string>());
    }
    return links;
}

bool isHardwareLog(const json& service, const std::string& path) {
    const auto type = service.find("LogEntryType");
    if (type != service.end() && type->is_string() && (*type == "SEL" || *type == "Event"))
        return true;
    std::string bare = path;
    while (!bare.empty() && bare.back() == '/') bare.pop_back();
    return std::any_of(std::begin(kKnownLogs), std::end(kKnownLogs),
                       [&bare](const char* known) { return endsWith(bare, known); });
}

// Where a LogService's ClearLog action is POSTed: Actions["#LogService.ClearLog"].target, a path
// of the service; empty where it has none.
std::string clearTargetOf(const json& service) {
    const auto actions = service.find("Actions");
    if (actions == service.end() || !actions->is_object()) return "";
    const auto clear = actions->find("#LogService.ClearLog");
    if (clear == actions->end() || !clear->is_object()) return "";
    const std::string target = redfishText(*clear, "target");
    return !target.empty() && target[0] == '/' ? target : "";
}

bool chosenByName(const json& service, const std::vector<std::string>& names) {
    const std::string id = lowered(redfishText(service, "Id")),
                      name = lowered(redfishText(service, "Name"));
    return std::any_of(names.begin(), names.end(), [&](const std::string& wanted) {
        const std::string w = lowered(wanted);
        return (!id.empty() && w == id) || (!name.empty() && w == name);
    });
}

}  // namespace

RedfishEventSource::RedfishEventSource(const ConnectionProfile& profile, const ReadSettings&,
                                       TransportFactory make)
    : host_(profile.host), profile_(profile), make_(std::move(make)), session_(makeSession()) {}

std::unique_ptr<RedfishSession> RedfishEventSource::makeSession() const {
    return std::make_unique<RedfishSession>(
        make_(profile_), tool::hostName(host_), profile_.user, profile_.password,
        profile_.sessionTimeout.value_or(kRedfishDefaultTimeout));
}

RedfishEventSource::~RedfishEventSource() = default;

std::string RedfishEventSource::hostName() const { return tool::hostName(host_); }

void RedfishEventSource::disconnect() { session_->logout(); }

void RedfishEventSource::reconfigure(const ConnectionProfile& profile, const ReadSettings&) {
    if (profile.logs != profile_.logs) place_.discovered = false;          // other logs chosen
    if (profile.host != profile_.host) registries_ = RedfishRegistries();  // another service's
    // The session is kept while it reaches the same service as the same user in the same way:
    // the exporter reconfigures before every scrape, and a login each time would cost the BMC a
    // session and us two requests.
    const bool sameSession =
        std::tie(profile.host, profile.port, profile.user, profile.password, profile.caFile,
                 profile.insecure, profile.sessionTimeout) ==
        std::tie(profile_.host, profile_.port, profile_.user, profile_.password, profile_.caFile,
                 profile_.insecure, profile_.sessionTimeout);
    profile_ = profile;
    host_ = profile.host;
    if (!sameSession) session_ = makeSession();
}

void RedfishEventSource::discover(Place& place) {
    const json root = session_->get(kServiceRoot);
    const auto features = root.find("ProtocolFeaturesSupported");
    place.skipQuery = false;
    if (features != root.end() && features->is_object()) {
        const auto skip = features->find("TopSkipQuery");
        place.skipQuery = skip != features->end() && skip->is_boolean() && skip->get<bool>();
    }
    std::vector<LogPlace> found;
    std::vector<std::string> seen;  // every log service's name, for a refusal
    const auto add = [&](LogPlace log) {
        for (const LogPlace& kept : found)
            if (kept.entries == log.entries) return;
        found.push_back(std::move(log));
    };
    // A resource listed but gone since (or never there) is passed over.
    const auto lookUp = [this](const std::string& path) -> std::optional<json> {
        try {
            return session_->get(path);
        } catch (const RedfishError& error) {
            if (error.failure() == Failure::NotFound) return std::nullopt;
            throw;
        }
    };
    // A log of entries of several types is a hardware event log when its first entry is one.
    const auto firstEntryIsEvent = [&](const std::string& entries) {
        if (!place.skipQuery) return false;  // not without reading it whole
        const std::optional<json> page = lookUp(withQuery(entries, "$top=1"));
        if (!page) return false;
        const auto members = page->find("Members");
        if (members == page->end() || !members->is_array() || members->empty()) return false;
        const std::string type = redfishText(members->front(), "EntryType");
        return type == "SEL" || type == "Event";
    };
    for (const char* kind : {"Systems", "Managers", "Chassis"}) {
        const std::string collection = redfishLink(root, kind);
        if (collection.empty()) continue;
        const std::optional<json> members = lookUp(collection);
        if (!members) continue;
        for (const std::string& memberPath : memberLinks(*members)) {
            const std::optional<json> member = lookUp(memberPath);
            if (!member) continue;
            const std::string services = redfishLink(*member, "LogServices");
            if (services.empty()) {
                // Older iDRACs keep their SEL outside LogServices.
                if (endsWith(memberPath, "/Managers/iDRAC.Embedded.1") && profile_.logs.empty())
                    add({memberPath + "/Logs/Sel", "Sel", std::nullopt, 0, "", ""});
                continue;
            }
            const std::optional<json> serviceList = lookUp(services);
            if (!serviceList) continue;
            for (const std::string& servicePath : memberLinks(*serviceList)) {
                const std::optional<json> service = lookUp(servicePath);
                if (!service) continue;
                const std::string name =
                    redfishText(*service, "Name", redfishText(*service, "Id", servicePath));
                seen.push_back(name);
                LogPlace log;
                log.entries = redfishLink(*service, "Entries");
                if (log.entries.empty()) log.entries = servicePath + "/Entries";
                const bool chosen =
                    profile_.logs.empty()
                        ? isHardwareLog(*service, servicePath) ||
                              (redfishText(*service, "LogEntryType") == "Multiple" &&
                               firstEntryIsEvent(log.entries))
                        : chosenByName(*service, profile_.logs);
                if (!chosen) continue;
                log.name = name;
                log.service = servicePath;
                log.id = redfishText(*service, "Id");
                log.clearTarget = clearTargetOf(*service);
                const auto most = service->find("MaxNumberOfRecords");
                if (most != service->end()) log.maxRecords = redfishWholeNumber(*most);
                add(std::move(log));
            }
        }
    }
    if (found.empty()) {
        std::string logs;
        for (const std::string& name : seen) logs += (logs.empty() ? "" : ", ") + name;
        const std::string has = logs.empty() ? "it has none" : "it has " + logs;
        throw RedfishError(Failure::NotFound,
                           hostName() + ": " +
                               (profile_.logs.empty() ? "no hardware event log found"
                                                      : "none of the logs asked for found") +
                               " (" + has + ")");
    }
    // The places of logs already followed are kept.
    for (LogPlace& log : found) {
        for (const LogPlace& old : place.logs) {
            if (old.entries == log.entries) {
                log.count = old.count;
                log.newestId = old.newestId;
                log.newestCreated = old.newestCreated;
            }
        }
    }
    place.logs = std::move(found);
    place.discovered = true;
}

namespace {

// The entries of a page, each a whole LogEntry: a member given as a link only is fetched.
std::vector<json> pageEntries(RedfishSession& session, const json& page, const std::string& host,
                              const std::string& path) {
    const auto members = page.find("Members");
    if (members == page.end() || !members->is_array())
        throw RedfishError(Failure::Internal, host + ": " + path + " has no Members list");
    std::vector<json> entries;
    for (const json& member : *members) {
        if (member.is_object() && member.find("Id") == member.end()) {
            const std::string link = redfishText(member, "@odata.id");
            if (!link.empty()) {
                entries.push_back(session.get(link));
                continue;
            }
        }
        entries.push_back(member);
    }
    return entries;
}

std::string nextLinkOf(const json& page, const std::string& host, const std::string& path) {
    const auto next = page.find("Members@odata.nextLink");
    if (next == page.end() || next->is_null()) return "";
    if (!next->is_string())
        throw RedfishError(Failure::Internal, host + ": " + path + ": its nextLink is not text");
    return next->get<std::string>();
}

std::optional<unsigned long> countOf(const json& page) {
    const auto count = page.find("Members@odata.count");
    if (count == page.end()) return std::nullopt;
    return redfishWholeNumber(*count);
}

std::string entryId(const json& entry) {
    if (!entry.is_object()) return "";
    const auto id = entry.find("Id");
    if (id == entry.end()) return "";
    if (id->is_string()) return id->get<std::string>();
    if (const std::optional<unsigned long> number = redfishWholeNumber(*id))
        return std::to_string(*number);
    return "";
}

// Whether a list of entries runs from the newest to the oldest, as its first and last entries'
// times tell, or else their numbers; false where neither tells.
bool isNewestFirst(const std::vector<json>& entries) {
    if (entries.size() < 2) return false;
    const json& first = entries.front();
    const json& last = entries.back();
    const std::optional<std::time_t> firstTime = parseRedfishTime(redfishText(first, "Created"));
    const std::optional<std::time_t> lastTime = parseRedfishTime(redfishText(last, "Created"));
    if (firstTime && lastTime && *firstTime != *lastTime) return *firstTime > *lastTime;
    const std::optional<unsigned long> firstNumber = redfishIdNumber(entryId(first)),
                                       lastNumber = redfishIdNumber(entryId(last));
    if (firstNumber && lastNumber) return *firstNumber > *lastNumber;
    return false;
}

}  // namespace

void RedfishEventSource::readLog(LogPlace& log, bool useSkip, bool makeEvents, SourcePoll& out,
                                 bool& cleared) {
    const std::string name = hostName();
    std::optional<unsigned long> total;
    const RedfishLookups lookups = entryLookups();
    // Takes one entry as read: an event of the poll, the place moved on to it.
    const auto take = [&](const json& entry) {
        const std::string id = entryId(entry);
        if (id.empty()) {
            throw RedfishError(Failure::Internal,
                               name + ": " + log.name + ": an entry has no usable Id");
        }
        if (makeEvents) {
            try {
                out.events.push_back(redfishEvent(entry, log.name, lookups));
            } catch (const RedfishEntryError& error) {
                throw RedfishError(Failure::Internal,
                                   name + ": " + log.name + ": entry " + id + ": " + error.what());
            }
        }
        ++log.count;
        log.newestId = id;
        log.newestCreated = redfishText(entry, "Created");
        ++out.entriesRead;
    };
    const auto isNewest = [&log](const json& entry) {
        return entryId(entry) == log.newestId &&
               (log.newestCreated.empty() || redfishText(entry, "Created") == log.newestCreated);
    };
    // Follows the pages from `next`, handing each page's entries to `each` until it returns
    // false.
    std::set<std::string> visited;
    const auto pages = [&](std::string next, const auto& each) {
        while (!next.empty()) {
            if (!visited.insert(next).second || visited.size() > kPageLimit) {
                throw RedfishError(Failure::Internal,
                                   name + ": " + log.name + ": its pages lead back to " + next);
            }
            const json page = session_->get(next);
            if (const auto count = countOf(page)) total = count;
            const std::vector<json> entries = pageEntries(*session_, page, name, next);
            if (!each(entries)) return;
            next = nextLinkOf(page, name, next);
        }
    };
    const auto forget = [&log, &cleared] {
        cleared = true;
        log.count = 0;
        log.newestId.clear();
        log.newestCreated.clear();
    };

    const bool known = log.count > 0 && !log.newestId.empty();
    if (known && useSkip && !log.newestFirst) {
        // The page from the newest entry read: unchanged, that entry comes first and what
        // follows it is new; anything else is a log that changed, read whole below.
        const std::string first = withQuery(log.entries, "$skip=" + std::to_string(log.count - 1));
        json page;
        try {
            page = session_->get(first);
        } catch (const RedfishError& error) {
            // A service that refuses to skip past a log's end (a cleared one): read it whole.
            if (error.status() != 400) throw;
            page = json{{"Members", json::array()}};
        }
        visited.insert(first);
        const std::optional<unsigned long> count = countOf(page);
        const std::vector<json> entries = pageEntries(*session_, page, name, first);
        if (!entries.empty() && isNewest(entries.front()) && (!count || *count >= log.count)) {
            total = count;
            for (std::size_t i = 1; i < entries.size(); ++i) take(entries[i]);
            pages(nextLinkOf(page, name, first), [&](const std::vector<json>& more) {
                for (const json& entry : more) take(entry);
                return true;
            });
            return health(log, total, out);
        }
        visited.clear();
    }
    if (known && log.newestFirst) {
        // Newest first: the pages from the start down to the newest entry read; what comes
        // before it is new. Without it, the log was cleared, and all of it is new.
        std::vector<json> newer;
        bool found = false;
        pages(log.entries, [&](const std::vector<json>& entries) {
            for (const json& entry : entries) {
                if (isNewest(entry)) {
                    found = true;
                    return false;
                }
                newer.push_back(entry);
            }
            return true;
        });
        if (!found) forget();
        for (auto entry = newer.rbegin(); entry != newer.rend(); ++entry) take(*entry);
        return health(log, total, out);
    }
    if (!known) {
        // The first read. Once two entries tell which end is the newest, an oldest-first log is
        // taken page after page as it comes; a newest-first one is read whole, then taken from
        // its end.
        std::vector<json> held;
        bool decided = false;
        bool newestFirst = false;
        pages(log.entries, [&](const std::vector<json>& entries) {
            for (const json& entry : entries) {
                if (decided && !newestFirst) {
                    take(entry);
                    continue;
                }
                held.push_back(entry);
                if (!decided && held.size() >= 2) {
                    decided = true;
                    newestFirst = isNewestFirst(held);
                    if (!newestFirst) {
                        for (const json& early : held) take(early);
                        held.clear();
                    }
                }
            }
            return true;
        });
        log.newestFirst = newestFirst;
        if (newestFirst) std::reverse(held.begin(), held.end());
        for (const json& entry : held) take(entry);
        return health(log, total, out);
    }
    // A changed log: all of it, then what is newer than the newest entry read (on the side the
    // log keeps its newest); without it, a cleared log, all of it new.
    std::vector<json> all;
    pages(log.entries, [&](const std::vector<json>& entries) {
        all.insert(all.end(), entries.begin(), entries.end());
        return true;
    });
    const auto newest = std::find_if(all.begin(), all.end(), isNewest);
    const std::size_t at = static_cast<std::size_t>(newest - all.begin());
    if (newest == all.end()) {
        forget();
        log.newestFirst = isNewestFirst(all);
        if (log.newestFirst) std::reverse(all.begin(), all.end());
        for (const json& entry : all) take(entry);
    } else if (at > 0 && isNewestFirst(all)) {
        log.newestFirst = true;
        log.count = all.size() - at;
        for (std::size_t i = at; i-- > 0;) take(all[i]);
    } else {
        log.count = at + 1;
        for (std::size_t i = at + 1; i < all.size(); ++i) take(all[i]);
    }
    health(log, total, out);
}

void RedfishEventSource::health(const LogPlace& log, std::optional<unsigned long> total,
                                SourcePoll& out) {
    LogHealth& sum = out.health;
    sum.name += (sum.name.empty() ? "" : ", ") + log.name;
    sum.entries += total.value_or(log.count);
    if (log.maxRecords && *log.maxRecords != 0) {
        sum.used += total.value_or(log.count);
        sum.room += *log.maxRecords;
    }
}

SourcePoll RedfishEventSource::run(Place& place, bool makeEvents, bool whole) {
    SourcePoll out;
    try {
        if (!place.discovered) discover(place);
    } catch (const RedfishError& error) {
        out.failure = error.failure();
        out.failureText = error.what();
        return out;
    }
    bool read = false;  // a log read to its end
    bool allRoom = true;
    for (LogPlace& log : place.logs) {
        bool cleared = false;
        const LogPlace before = log;
        const unsigned long readBefore = out.entriesRead;
        try {
            readLog(log, place.skipQuery && !whole, makeEvents, out, cleared);
        } catch (const RedfishError& error) {
            // Nothing of this log taken: its place stays where it was, a clear found said at the
            // next poll. Some taken: the place is theirs, and so is the clear.
            if (out.entriesRead == readBefore) {
                log = before;
                cleared = false;
            }
            out.cleared = out.cleared || cleared;
            // A log moved (new firmware): found again at the next poll, its place kept.
            if (error.failure() == Failure::NotFound) place.discovered = false;
            if (!read && out.entriesRead == 0) {
                SourcePoll failed;
                failed.failure = error.failure();
                failed.failureText = error.what();
                return failed;
            }
            out.complete = false;
            out.incompleteText = hostName() + ": incomplete: " + error.what();
            return out;
        }
        read = true;
        out.cleared = out.cleared || cleared;
        allRoom = allRoom && log.maxRecords && *log.maxRecords != 0;
    }
    out.health.known = true;
    if (!allRoom) out.health.used = out.health.room = 0;  // room only where every log says it
    return out;
}

// How large a SEL record's file may be: its 16 bytes, or its digits as text with some room.
constexpr std::size_t kSelDataLimit = 1024;

std::optional<std::array<std::uint8_t, 16>> RedfishEventSource::selRecordAt(
    const std::string& uri) {
    if (uri.empty() || uri[0] != '/') return std::nullopt;  // only this service's
    try {
        return selRecordOfData(session_->getData(uri, kSelDataLimit));
    } catch (const RedfishError&) {
        return std::nullopt;  // the entry is taken as it is
    }
}

RedfishLookups RedfishEventSource::entryLookups() {
    RedfishLookups lookups;
    lookups.message = [this](const std::string& messageId,
                             const std::vector<std::string>& args) -> std::optional<std::string> {
        const std::optional<std::string> text = registries_.messageText(*session_, messageId);
        if (!text) return std::nullopt;
        return substitutedArgs(*text, args);
    };
    lookups.selRecord = [this](const std::string& uri) { return selRecordAt(uri); };
    return lookups;
}

std::vector<RedfishLogService> RedfishEventSource::findLogs(bool counted) {
    Place found;
    discover(found);
    std::vector<RedfishLogService> logs;
    for (const LogPlace& log : found.logs) {
        RedfishLogService service;
        service.path = log.service;
        service.name = log.name;
        service.id = log.id;
        service.chosen = !profile_.logs.empty();
        service.maxRecords = log.maxRecords;
        service.clearTarget = log.clearTarget;
        if (counted) {
            // One entry is enough for the count, where the service takes $top.
            const json page =
                session_->get(found.skipQuery ? withQuery(log.entries, "$top=1") : log.entries);
            service.entries = countOf(page);
        }
        logs.push_back(std::move(service));
    }
    return logs;
}

void RedfishEventSource::clearLog(const RedfishLogService& log) {
    if (log.clearTarget.empty()) {
        throw RedfishError(Failure::NotSupported,
                           hostName() + ": " + log.name +
                               " cannot be cleared: the service offers no ClearLog action for it");
    }
    session_->post(log.clearTarget, json::object());
}

SourcePoll RedfishEventSource::poll(bool skipping) {
    SourcePoll out = run(place_, !skipping, false);
    if (skipping && out.failure == Failure::None && out.complete) out.skipped = out.entriesRead;
    return out;
}

SourcePoll RedfishEventSource::readWhole() {
    Place whole = place_;
    for (LogPlace& log : whole.logs) {
        log.count = 0;
        log.newestId.clear();
        log.newestCreated.clear();
    }
    SourcePoll out = run(whole, true, true);
    // What was found is kept; the place is not moved.
    if (!place_.discovered && whole.discovered) {
        place_.discovered = true;
        place_.skipQuery = whole.skipQuery;
        place_.logs = whole.logs;
        for (LogPlace& log : place_.logs) {
            log.count = 0;
            log.newestId.clear();
            log.newestCreated.clear();
        }
    }
    return out;
}

std::string RedfishEventSource::stateText() const {
    json logs = json::array();
    for (const LogPlace& log : place_.logs) {
        json entry = {{"entries", log.entries},
                      {"name", log.name},
                      {"count", log.count},
                      {"newestId", log.newestId},
                      {"newestCreated", log.newestCreated}};
        if (log.maxRecords) entry["maxRecords"] = *log.maxRecords;
        if (log.newestFirst) entry["newestFirst"] = true;
        logs.push_back(std::move(entry));
    }
    const json state = {{"redfishState", 1},
                        {"discovered", place_.discovered},
                        {"skipQuery", place_.skipQuery},
                        {"asked", profile_.logs},
                        {"logs", std::move(logs)}};
    return state.dump() + "\n";
}

bool RedfishEventSource::loadStateText(const std::string& text) {
    const json state = json::parse(text, nullptr, false);
    if (!state.is_object() || state.value("redfishState", json()) != json(1)) return false;
    const auto flag = [&state](const char* key) -> std::optional<bool> {
        const auto it = state.find(key);
        if (it == state.end() || !it->is_boolean()) return std::nullopt;
        return it->get<bool>();
    };
    const std::optional<bool> discovered = flag("discovered"), skipQuery = flag("skipQuery");
    const auto logs = state.find("logs");
    if (!discovered || !skipQuery || logs == state.end() || !logs->is_array()) return false;
    Place place;
    place.discovered = *discovered;
    place.skipQuery = *skipQuery;
    for (const json& entry : *logs) {
        if (!entry.is_object()) return false;
        LogPlace log;
        try {
            log.entries = entry.at("entries").get<std::string>();
            log.name = entry.at("name").get<std::string>();
            const std::optional<unsigned long> count = redfishWholeNumber(entry.at("count"));
            if (!count) return false;
            log.count = *count;
            log.newestId = entry.at("newestId").get<std::string>();
            log.newestCreated = entry.at("newestCreated").get<std::string>();
            if (entry.contains("newestFirst"))
                log.newestFirst = entry.at("newestFirst").get<bool>();
            if (entry.contains("maxRecords")) {
                log.maxRecords = redfishWholeNumber(entry.at("maxRecords"));
                if (!log.maxRecords) return false;
            }
        } catch (const json::exception&) {
            return false;
        }
        if (log.entries.empty() || log.entries[0] != '/') return false;
        place.logs.push_back(std::move(log));
    }
    if (place.discovered && place.logs.empty()) return false;
    // Other logs asked for than those found: found again, their places kept.
    if (state.value("asked", json::array()) != json(profile_.logs)) place.discovered = false;
    place_ = std::move(place);
    return true;
}

std::string RedfishEventSource::loadState(const std::string& path) {
    if (access(path.c_str(), F_OK) != 0) return "";  // the first run
    try {
        if (loadStateText(readBoundedFile(path).text)) return "";
        return hostName() + ": " + path + ": not a Redfish state; reading the whole logs";
    } catch (const FileError& error) {
        return hostName() + ": " + error.what() + "; reading the whole logs";
    }
}

std::string RedfishEventSource::saveState(const std::string& path) const {
    // A file beside it, then renamed over it: the state is the old one or the new one, whole.
    const std::string temporary = path + ".tmp" + std::to_string(getpid());
    const std::string text = stateText();
    const int fd = open(temporary.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0600);
    const auto failed = [&](const std::string& what) {
        const std::string why = std::strerror(errno);
        if (fd >= 0) close(fd);
        unlink(temporary.c_str());
        return hostName() + ": the state was not saved: " + what + ": " + why;
    };
    if (fd < 0) return failed(temporary);
    if (write(fd, text.data(), text.size()) != static_cast<ssize_t>(text.size()))
        return failed(temporary);
    if (fsync(fd) != 0) return failed(temporary);
    if (close(fd) != 0) {
        unlink(temporary.c_str());
        return hostName() + ": the state was not saved: " + temporary + ": " + std::strerror(errno);
    }
    if (std::rename(temporary.c_str(), path.c_str()) != 0) {
        const std::string why = std::strerror(errno);
        unlink(temporary.c_str());
        return hostName() + ": the state was not saved: " + path + ": " + why;
    }
    return "";
}

}  // namespace tool
