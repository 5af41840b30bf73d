#include "base/YamlFile.h"

#include <algorithm>
#include <set>

#include "base/BoundedFile.h"
#include "base/Printable.h"

namespace tool {

namespace {

// A regular file of at most 1 MiB: a directory, a FIFO or a device is refused, not read.
FileContents readWhole(const std::string& path) {
    try {
        return readBoundedFile(path);
    } catch (const FileError& e) {
        throw ConfigError(std::string("cannot read ") + e.what());
    }
}

// yaml-cpp counts lines from 0, and has none (-1) for nodes it made itself.
int lineOf(const YAML::Node& node) {
    if (!node.IsDefined()) return 0;
    return node.Mark().line + 1;
}

// The key's line: an empty value has the line after it as its own.
int lineOf(const YamlEntry& entry) {
    const int keyLine = lineOf(entry.key);
    return keyLine > 0 ? keyLine : lineOf(entry.value);
}

std::string childPath(const std::string& parent, const std::string& key) {
    return parent.empty() ? key : parent + "." + key;
}

bool isDecimal(const std::string& text) {
    return !text.empty() && text.size() <= 19 &&
           std::all_of(text.begin(), text.end(), [](char c) { return c >= '0' && c <= '9'; });
}

}  // namespace

std::string quoted(const std::string& text) { return "\"" + printable(text) + "\""; }

const YamlEntry* findEntry(const std::vector<YamlEntry>& entries, const std::string& key) {
    const auto found = std::find_if(entries.begin(), entries.end(), [&key](const YamlEntry& entry) {
        return entry.key.Scalar() == key;
    });
    return found == entries.end() ? nullptr : &*found;
}

YamlFile::YamlFile(std::string path) : path_(std::move(path)) {
    const FileContents contents = readWhole(path_);
    mode_ = contents.mode;
    try {
        document_ = YAML::Load(contents.text);
    } catch (const YAML::ParserException& e) {
        throw ConfigError(printable(path_ + ":" + std::to_string(e.mark.line + 1) +
                                    ": not valid YAML: " + e.msg));
    }
}

YamlEntry YamlFile::root() const { return {"", YAML::Node(), document_}; }

std::vector<YamlEntry> YamlFile::entries(const YamlEntry& entry,
                                         const std::vector<std::string>& known) const {
    return mappingEntries(entry, &known);
}

std::vector<YamlEntry> YamlFile::anyEntries(const YamlEntry& entry) const {
    return mappingEntries(entry, nullptr);
}

std::vector<YamlEntry> YamlFile::mappingEntries(const YamlEntry& entry,
                                                const std::vector<std::string>* known) const {
    std::vector<YamlEntry> found;
    if (entry.value.IsNull()) return found;
    if (!entry.value.IsMap()) {
        const std::string subject = entry.path.empty() ? "the file " : "";
        throw error(entry, subject + "is not a mapping of keys to values");
    }
    std::set<std::string> seen;
    for (const auto& pair : entry.value) {
        YamlEntry child{childPath(entry.path, pair.first.Scalar()), pair.first, pair.second};
        if (!pair.first.IsScalar()) throw error(child, "a key must be a plain name");
        const std::string& name = pair.first.Scalar();
        if (known && std::find(known->begin(), known->end(), name) == known->end()) {
            throw error(child, "unknown key");
        }
        // yaml-cpp keeps both of a repeated key, and would answer with the first.
        if (!seen.insert(name).second) throw error(child, "given twice");
        found.push_back(std::move(child));
    }
    return found;
}

std::vector<YamlEntry> YamlFile::elements(const YamlEntry& entry) const {
    std::vector<YamlEntry> found;
    if (entry.value.IsNull()) return found;
    if (!entry.value.IsSequence()) throw error(entry, "is not a list");
    for (std::size_t i = 0; i < entry.value.size(); ++i) {
        const YAML::Node element = entry.value[i];
        found.push_back({entry.path + "[" + std::to_string(i) + "]", element, element});
    }
    return found;
}

std::string YamlFile::text(const YamlEntry& entry) const {
    if (entry.value.IsNull()) return "";
    if (!entry.value.IsScalar()) throw error(entry, "is not a single value");
    return entry.value.Scalar();
}

unsigned long YamlFile::number(const YamlEntry& entry, unsigned long min, unsigned long max,
                               const std::string& what) const {
    const std::string value = text(entry);
    if (!isDecimal(value)) throw error(entry, quoted(value) + " is not " + what);
    const unsigned long n = std::stoul(value);
    if (n < min || n > max) {
        throw error(entry, value + " is out of range: " + what + " from " + std::to_string(min) +
                               " to " + std::to_string(max));
    }
    return n;
}

bool YamlFile::boolean(const YamlEntry& entry) const {
    const std::string value = text(entry);
    if (value == "true") return true;
    if (value == "false") return false;
    throw error(entry, quoted(value) + " is not true or false");
}

std::vector<std::string> YamlFile::texts(const YamlEntry& entry) const {
    std::vector<std::string> found;
    for (const YamlEntry& element : elements(entry)) found.push_back(text(element));
    return found;
}

std::string YamlFile::pathBeside(const std::string& name) const {
    if (name.empty() || name.front() == '/') return name;
    const auto slash = path_.rfind('/');
    if (slash == std::string::npos) return name;
    return path_.substr(0, slash + 1) + name;
}

std::string YamlFile::message(const YamlEntry& entry, const std::string& text) const {
    const int line = lineOf(entry);
    std::string said = path_;
    if (line > 0) said += ":" + std::to_string(line);
    if (!entry.path.empty()) said += ": " + entry.path;
    // The file's keys and values may hold any byte: none reaches a log raw.
    return printable(said + ": " + text);
}

ConfigError YamlFile::error(const YamlEntry& entry, const std::string& text) const {
    return ConfigError(message(entry, text));
}

}  // namespace tool
