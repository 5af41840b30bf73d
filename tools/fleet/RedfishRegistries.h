// The message registries of a Redfish service, where an entry's message is worded when the entry
// gives only its MessageId. The service lists them at /redfish/v1/Registries (its root's
// Registries link): MessageRegistryFile resources, each naming its registry and version
// ("Base.1.8") and where a copy of the registry is kept (Location[].Uri). A registry's
// Messages.<Key>.Message is the text, %1 ... %N its arguments.
#pragma once

#include <map>
#include <optional>
#include <string>
#include <vector>

#include "fleet/RedfishClient.h"

namespace tool {

class RedfishRegistries {
public:
    // The text of the message `messageId` names ("Base.1.8.ResourceCreated": the registry, its
    // major and minor version, the message's key), its placeholders as they are; none where the
    // service does not give it. The list is fetched once, when a message is first asked for, and
    // each registry once, when a message of it is; a list or a registry that cannot be read or
    // makes no sense is taken as none, never as an error.
    std::optional<std::string> messageText(RedfishSession& session, const std::string& messageId);
    // How many requests the registries have cost.
    unsigned long fetches() const { return fetches_; }

private:
    struct File {
        std::string registry;  // "Base"
        std::string version;   // "1.8"
        std::string uri;       // the registry's copy on the service
    };
    using Messages = std::map<std::string, std::string>;  // key -> text

    void list(RedfishSession& session);
    const Messages& registryAt(RedfishSession& session, const File& file);
    const File* fileFor(const std::string& registry, const std::string& version) const;

    bool listed_ = false;
    std::vector<File> files_;
    std::map<std::string, Messages> registries_;  // by Uri; empty: none usable there
    unsigned long fetches_ = 0;
};

}  // namespace tool
