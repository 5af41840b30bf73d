// A Redfish service whose log entries come from the fuzz input: the page of a log as the source
// reads it when it follows the log (twice, the second time from where the first left it) and
// when it reads the log whole, and each entry made an event on its own; then the place kept,
// which must be taken back as it was written.
#include <cstdint>
#include <cstdlib>
#include <memory>
#include <string>

#include "fleet/RedfishEventSource.h"

namespace {

using nlohmann::json;

// An OpenBMC service with one event log, whose every page is `page`.
class FuzzedService : public tool::RedfishTransport {
public:
    explicit FuzzedService(std::string page) : page_(std::move(page)) {}

    tool::RedfishReply request(const std::string&, const std::string& path, const std::string&,
                               const std::vector<std::string>&) override {
        tool::RedfishReply response;
        response.status = 200;
        const auto link = [](const std::string& to) { return json{{"@odata.id", to}}; };
        const std::string system = "/redfish/v1/Systems/system";
        const std::string log = system + "/LogServices/EventLog";
        if (path == "/redfish/v1") {
            response.body = json{{"Systems", link("/redfish/v1/Systems")},
                                 {"ProtocolFeaturesSupported", {{"TopSkipQuery", true}}}}
                                .dump();
        } else if (path == "/redfish/v1/Systems") {
            response.body = json{{"Members", {link(system)}}}.dump();
        } else if (path == system) {
            response.body = json{{"LogServices", link(system + "/LogServices")}}.dump();
        } else if (path == system + "/LogServices") {
            response.body = json{{"Members", {link(log)}}}.dump();
        } else if (path == log) {
            response.body = json{{"Id", "EventLog"},
                                 {"LogEntryType", "Event"},
                                 {"Entries", link(log + "/Entries")}}
                                .dump();
        } else {
            response.body = page_;
        }
        return response;
    }

private:
    std::string page_;
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string input(reinterpret_cast<const char*>(data), size);
    tool::parseRedfishTime(input);
    const json document = json::parse(input, nullptr, false);
    if (document.is_object()) {
        const auto members = document.find("Members");
        if (members != document.end() && members->is_array()) {
            for (const json& entry : *members) {
                try {
                    tool::redfishEvent(entry, "EventLog");
                } catch (const tool::RedfishEntryError&) {
                }
            }
        }
    }
    tool::ConnectionProfile profile;
    profile.host = "https://fuzzed";
    tool::RedfishEventSource source(profile, tool::ReadSettings{},
                                    [&input](const tool::ConnectionProfile&) {
                                        return std::make_unique<FuzzedService>(input);
                                    });
    source.poll(false);
    source.poll(false);
    source.readWhole();
    const std::string state = source.stateText();
    tool::RedfishEventSource restored(profile, tool::ReadSettings{},
                                      [&input](const tool::ConnectionProfile&) {
                                          return std::make_unique<FuzzedService>(input);
                                      });
    if (!restored.loadStateText(state) || restored.stateText() != state) std::abort();
    return 0;
}
