// The YAML configuration files of `serve` (the exporter's modules, the web server's TLS and users):
// a file read whole, and typed reads of its keys whose every error names the file, the line and
// the key, as in `ipmi.yml:7: modules.default.timeout: "ten" is not a number of milliseconds`.
#pragma once

#include <sys/types.h>
#include <yaml-cpp/yaml.h>

#include <stdexcept>
#include <string>
#include <vector>

namespace tool {

// A configuration file that cannot be used; the text names the file, the line and the key.
struct ConfigError : std::runtime_error {
    using std::runtime_error::runtime_error;
};

// One key of a mapping (or one element of a list) with its value, and the dotted path that names
// it in messages: "modules.default.timeout", "modules.default.hosts[2]".
struct YamlEntry {
    std::string path;
    YAML::Node key;  // the element itself for a list's element; null for the whole file
    YAML::Node value;
};

class YamlFile {
public:
    // Reads and parses `path`, a regular file of at most 1 MiB; throws ConfigError when it is
    // not one, cannot be read or is not YAML.
    explicit YamlFile(std::string path);

    const std::string& path() const { return path_; }
    // The file's permission bits, as it was read.
    mode_t mode() const { return mode_; }
    // The whole file, as the value of an entry without a key.
    YamlEntry root() const;

    // The keys of `entry`'s mapping (nothing when it is empty), each of them one of `known`, and
    // each once.
    std::vector<YamlEntry> entries(const YamlEntry& entry,
                                   const std::vector<std::string>& known) const;
    // The same for a mapping whose keys are the user's own (module names, user names).
    std::vector<YamlEntry> anyEntries(const YamlEntry& entry) const;
    // The elements of `entry`'s list (nothing when it is empty).
    std::vector<YamlEntry> elements(const YamlEntry& entry) const;

    // A scalar's text; an empty value is "".
    std::string text(const YamlEntry& entry) const;
    // A decimal number from `min` to `max`; `what` says what it is ("a number of milliseconds").
    unsigned long number(const YamlEntry& entry, unsigned long min, unsigned long max,
                         const std::string& what) const;
    bool boolean(const YamlEntry& entry) const;
    // A list of scalars.
    std::vector<std::string> texts(const YamlEntry& entry) const;

    // `name` as it is when absolute, else taken from the directory the file is in.
    std::string pathBeside(const std::string& name) const;

    // "FILE:LINE: PATH: TEXT", for errors and warnings alike; bytes outside printable ASCII
    // escaped.
    std::string message(const YamlEntry& entry, const std::string& text) const;
    ConfigError error(const YamlEntry& entry, const std::string& text) const;

private:
    std::vector<YamlEntry> mappingEntries(const YamlEntry& entry,
                                          const std::vector<std::string>* known) const;

    std::string path_;
    mode_t mode_ = 0;
    YAML::Node document_;
};

// The entry of `key` among a mapping's entries, or null.
const YamlEntry* findEntry(const std::vector<YamlEntry>& entries, const std::string& key);

// `text` in double quotes, as values are shown in messages; bytes outside printable ASCII escaped.
std::string quoted(const std::string& text);

}  // namespace tool
