#include "fleet/RedfishRegistries.h"

#include <nlohmann/json.hpp>

#include "fleet/RedfishEntries.h"

namespace tool {

using nlohmann::json;

namespace {

// How many MessageRegistryFile resources are read at most: a service lists a few dozen (DMTF's
// Base, TaskEvent, ResourceEvent ... and its maker's own).
constexpr std::size_t kFileLimit = 64;
constexpr const char* kDefaultRegistries = "/redfish/v1/Registries";

// "Name.Major.Minor[.Errata]" (a MessageId without its key, or a file's Registry) as its name
// and the version after it.
std::pair<std::string, std::string> nameAndVersion(const std::string& text) {
    const auto dot = text.find('.');
    if (dot == std::string::npos) return {text, ""};
    return {text.substr(0, dot), text.substr(dot + 1)};
}

// The first `parts` dot-separated numbers of a version: "1.8.1" -> "1.8" for 2.
std::string versionPrefix(const std::string& version, int parts) {
    std::size_t end = 0;
    for (int i = 0; i < parts; ++i) {
        end = version.find('.', i == 0 ? 0 : end + 1);
        if (end == std::string::npos) return version;
    }
    return version.substr(0, end);
}

// Where a registry file says its registry is kept on the service: the Uri of its English (or
// default) copy, else of the first; only a path of this service, never another host's.
std::string localCopy(const json& file) {
    const auto locations = file.find("Location");
    if (locations == file.end() || !locations->is_array()) return "";
    std::string chosen;
    for (const json& location : *locations) {
        if (!location.is_object()) continue;
        const std::string uri = redfishText(location, "Uri");
        if (uri.empty() || uri[0] != '/') continue;
        const std::string language = redfishText(location, "Language");
        if (language == "en" || language == "default") return uri;
        if (chosen.empty()) chosen = uri;
    }
    return chosen;
}

}  // namespace

void RedfishRegistries::list(RedfishSession& session) {
    listed_ = true;
    try {
        ++fetches_;
        const json root = session.get("/redfish/v1");
        std::string path = redfishLink(root, "Registries");
        if (path.empty()) path = kDefaultRegistries;
        ++fetches_;
        const json collection = session.get(path);
        const auto members = collection.find("Members");
        if (members == collection.end() || !members->is_array()) return;
        for (const json& member : *members) {
            if (files_.size() >= kFileLimit) break;
            const std::string link = member.is_object() ? redfishText(member, "@odata.id") : "";
            if (link.empty() || link[0] != '/') continue;
            try {
                ++fetches_;
                const json file = session.get(link);
                auto [name, version] = nameAndVersion(redfishText(file, "Registry"));
                const std::string uri = localCopy(file);
                if (!name.empty() && !uri.empty()) files_.push_back({name, version, uri});
            } catch (const RedfishError&) {
                // A file that cannot be read is one registry less.
            }
        }
    } catch (const RedfishError&) {
        // No registries to be had: the entries' messages are worded without them.
    }
}

const RedfishRegistries::File* RedfishRegistries::fileFor(const std::string& registry,
                                                          const std::string& version) const {
    // The same major and minor version, else the same major (whose later minors only add
    // messages), else any of that name.
    const File* best = nullptr;
    int bestScore = -1;
    for (const File& file : files_) {
        if (file.registry != registry) continue;
        const int score = (versionPrefix(file.version, 2) == versionPrefix(version, 2)) +
                          (versionPrefix(file.version, 1) == versionPrefix(version, 1));
        if (score > bestScore) {
            best = &file;
            bestScore = score;
        }
    }
    return best;
}

const RedfishRegistries::Messages& RedfishRegistries::registryAt(RedfishSession& session,
                                                                 const File& file) {
    const auto known = registries_.find(file.uri);
    if (known != registries_.end()) return known->second;
    Messages& messages = registries_[file.uri];
    try {
        ++fetches_;
        const json registry = session.get(file.uri);
        // Another registry than the file named is none.
        const std::string prefix = redfishText(registry, "RegistryPrefix");
        if (!prefix.empty() && prefix != file.registry) return messages;
        const auto all = registry.find("Messages");
        if (all == registry.end() || !all->is_object()) return messages;
        for (const auto& [key, message] : all->items()) {
            if (!message.is_object()) continue;
            const auto text = message.find("Message");
            if (text != message.end() && text->is_string())
                messages[key] = text->get<std::string>();
        }
    } catch (const RedfishError&) {
        // Kept as none: not asked for again.
    }
    return messages;
}

std::optional<std::string> RedfishRegistries::messageText(RedfishSession& session,
                                                          const std::string& messageId) {
    const auto lastDot = messageId.rfind('.');
    if (lastDot == std::string::npos || lastDot + 1 == messageId.size()) return std::nullopt;
    const auto [registry, version] = nameAndVersion(messageId.substr(0, lastDot));
    if (registry.empty() || version.empty()) return std::nullopt;
    if (!listed_) list(session);
    const File* file = fileFor(registry, version);
    if (file == nullptr) return std::nullopt;
    const Messages& messages = registryAt(session, *file);
    const auto found = messages.find(messageId.substr(lastDot + 1));
    if (found == messages.end()) return std::nullopt;
    return found->second;
}

}  // namespace tool
