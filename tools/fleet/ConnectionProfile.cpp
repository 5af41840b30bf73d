#include "fleet/ConnectionProfile.h"

#include <cctype>

namespace tool {

std::optional<std::string> privilegeName(std::string text) {
    for (char& c : text) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    if (text == "administrator") text = "admin";
    if (text != "admin" && text != "operator" && text != "user") return std::nullopt;
    return text;
}

std::string hostName(const std::string& host) { return host.empty() ? "the local BMC" : host; }

}  // namespace tool
