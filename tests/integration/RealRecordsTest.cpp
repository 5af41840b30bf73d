// Real servers' SEL records read by three decoders from one simulated BMC, compared by meaning.
//
// Every data set of tests/data/realdata that holds SEL records (its PROVENANCE.txt says where they
// come from) is loaded into ipmi_sim as it is, byte for byte: record IDs, time stamps and all, with
// its SDR repository where the set has one. ipmi-event-log (`--format jsonl list`), ipmitool
// (`sel elist`, `sel get`) and FreeIPMI's ipmi-sel (`-vv`, comma-separated) read it over RMCP+.
// What each makes of every record is compared with the record's own bytes, as IPMI v2.0 lays them
// out, and between the readers, for what only a decoder can say: sensor names, readings and
// thresholds, and ipmi-sel's words for a sensor type and an event offset.
#include <gtest/gtest.h>

#include <freeipmi/freeipmi.h>
#include <yaml-cpp/yaml.h>

#include <algorithm>
#include <cctype>
#include <cmath>
#include <cstdio>
#include <ctime>
#include <filesystem>
#include <fstream>
#include <map>
#include <optional>
#include <regex>
#include <set>
#include <sstream>
#include <string>
#include <system_error>
#include <vector>

#include "BmcSimulator.h"
#include "SampleServer.h"
#include "ScratchDirectory.h"
#include "ToolRun.h"

namespace {

using bmcsim::BmcSimulator;
using bmcsim::kAdministrator;
using bmcsim::ScratchDirectory;
using bmcsim::SdrRecord;
using bmcsim::SelRecord;
using bmcsim::ToolRun;

const std::string kDataDirectory = SOURCE_DIR "/tests/data/realdata";

// Each reader runs in a time zone other than UTC, and gives UTC all the same: ipmi-event-log's
// "time" is UTC, ipmitool shows a time stamp in the local zone unless told -Z, and ipmi-sel shows
// it as it is (FreeIPMI takes SEL time stamps for local times already).
constexpr const char* kTimeZone = "TZ=Etc/GMT-2 ";

// "0x0012" for (0x12, 4).
std::string hexNumber(unsigned value, int digits) {
    char text[16];
    std::snprintf(text, sizeof text, "0x%0*x", digits, value);
    return text;
}

// ---- The data sets

struct DataSet {
    std::string name;
    std::vector<SelRecord> sel;
    std::vector<SdrRecord> sdrs;
    std::vector<std::string> problems;  // lines that are no records
};

// One record a line, in hex (sel.hex: 16 bytes; sdr.hex: a whole SDR, header included).
std::vector<std::vector<unsigned char>> hexLines(const std::string& path,
                                                 std::vector<std::string>& problems) {
    std::vector<std::vector<unsigned char>> records;
    std::ifstream in(path);
    int number = 0;
    for (std::string line; std::getline(in, line);) {
        ++number;
        line.erase(std::remove_if(line.begin(), line.end(),
                                  [](unsigned char c) { return std::isspace(c); }),
                   line.end());
        if (line.empty()) continue;
        if (line.size() % 2 != 0 || line.find_first_not_of("0123456789abcdefABCDEF") != line.npos) {
            problems.push_back(path + ":" + std::to_string(number) + ": not hex bytes");
            continue;
        }
        std::vector<unsigned char> bytes;
        for (std::size_t at = 0; at < line.size(); at += 2)
            bytes.push_back(
                static_cast<unsigned char>(std::stoul(line.substr(at, 2), nullptr, 16)));
        records.push_back(bytes);
    }
    return records;
}

DataSet loadDataSet(const std::string& name) {
    DataSet set;
    set.name = name;
    const std::string folder = kDataDirectory + "/" + name;
    std::set<unsigned> ids;
    for (const auto& bytes : hexLines(folder + "/sel.hex", set.problems)) {
        if (bytes.size() != 16) {
            set.problems.push_back(name + ": a SEL record of " + std::to_string(bytes.size()) +
                                   " bytes");
            continue;
        }
        // ipmi_sim keeps a record under the ID it holds, and finds a record by its ID. Get SEL
        // Entry takes 0000h for the first record and FFFFh for the last, so a record with either
        // ID could not be asked for; of two records with one ID, only the first.
        const unsigned id = bytes[0] | bytes[1] << 8;
        if (id == 0x0000 || id == 0xFFFF || !ids.insert(id).second) {
            set.problems.push_back(name + ": record ID " + hexNumber(id, 4) +
                                   ", which ipmi_sim cannot hold as it is");
            continue;
        }
        SelRecord record;
        std::copy(bytes.begin(), bytes.end(), record.begin());
        set.sel.push_back(record);
    }
    if (std::filesystem::exists(folder + "/sdr.hex")) {
        for (const auto& bytes : hexLines(folder + "/sdr.hex", set.problems)) {
            // The header's fifth byte counts the bytes after it.
            if (bytes.size() < 5 || bytes.size() != 5u + bytes[4]) {
                set.problems.push_back(name + ": an SDR whose length is not its header's");
                continue;
            }
            set.sdrs.push_back(bytes);
        }
    }
    return set;
}

// The data sets that hold SEL records, by folder name.
std::vector<std::string> dataSetsWithSel() {
    std::vector<std::string> names;
    std::error_code error;
    for (const auto& entry : std::filesystem::directory_iterator(kDataDirectory, error)) {
        if (std::filesystem::exists(entry.path() / "sel.hex"))
            names.push_back(entry.path().filename().string());
    }
    std::sort(names.begin(), names.end());
    return names;
}

// ---- What a reader makes of a record

// One SEL record as a reader gives it. A field the reader does not give is absent.
struct Decoded {
    std::optional<unsigned> recordType;
    // "2022-12-14T13:40:44Z" (the time stamp as UTC), "unspecified" (FFFFFFFFh) or "pre-init"
    // (00000000h to 20000000h: seconds since the BMC started, not a date). Absent for OEM records
    // of types E0h-FFh, which have no time stamp.
    std::optional<std::string> time;
    std::optional<unsigned> preInitSeconds;  // of a "pre-init" time stamp

    // System event records (type 02h).
    std::optional<unsigned> generatorId;       // bytes 8 and 9 as a little-endian number
    std::optional<unsigned> generatorAddress;  // byte 8 alone: slave address or software ID
    std::optional<unsigned> sensorType;
    std::optional<unsigned> sensorNumber;
    std::optional<unsigned> eventType;      // the event/reading type code, without the direction
    std::optional<std::string> eventClass;  // see eventClassOf
    std::optional<std::string> direction;   // "assertion" or "deassertion"
    std::optional<unsigned> offset;
    std::optional<std::vector<unsigned>> eventData;  // event data 1 to 3
    // What needs the SDRs: said by the decoders, not by the bytes. With `namesSensor`, an absent
    // name means that no SDR names the sensor.
    bool namesSensor = false;
    std::optional<std::string> sensorName;
    std::optional<double> reading;
    std::optional<double> threshold;
    // ipmi-sel's words, where it gives words for a sensor type and an event offset.
    std::optional<std::string> sensorTypeWords;
    std::optional<std::string> eventWords;

    // OEM records: timestamped (C0h-DFh) with a manufacturer ID, or not (E0h-FFh).
    std::optional<unsigned> manufacturerId;
    std::optional<std::string> oemData;  // lower-case hex
};

// What one reader read: its records by record ID, their IDs in the order given, and what could not
// be read from its output.
struct Reading {
    std::string reader;
    bool decoder = true;  // false: the record's bytes, which give no names nor readings
    std::map<unsigned, Decoded> records;
    std::vector<unsigned> order;
    std::vector<std::string> problems;
    std::string output;  // for the failure messages

    void add(unsigned recordId, const Decoded& record) {
        if (!records.emplace(recordId, record).second)
            problems.push_back("record " + hexNumber(recordId, 4) + " given twice");
        order.push_back(recordId);
    }
};

std::string hexText(const unsigned char* begin, const unsigned char* end) {
    std::string text;
    char digits[3];
    for (const unsigned char* at = begin; at != end; ++at) {
        std::snprintf(digits, sizeof digits, "%02x", *at);
        text += digits;
    }
    return text;
}

std::string lowerCase(std::string text) {
    std::transform(text.begin(), text.end(), text.begin(), ::tolower);
    return text;
}

std::string trimmed(const std::string& text) {
    const std::size_t first = text.find_first_not_of(" \t\r");
    if (first == std::string::npos) return "";
    return text.substr(first, text.find_last_not_of(" \t\r") - first + 1);
}

// The class of an event/reading type code (IPMI v2.0 table 42-1).
std::string eventClassOf(unsigned eventType) {
    if (eventType == 0x00) return "unspecified";
    if (eventType == 0x01) return "threshold";
    if (eventType <= 0x0C) return "generic";
    if (eventType == 0x6F) return "sensor-specific";
    if (eventType >= 0x70 && eventType <= 0x7F) return "OEM";
    return "reserved";
}

// A SEL time stamp as Decoded::time gives it (IPMI v2.0 section 37: FFFFFFFFh is unspecified, and
// 00000000h to 20000000h count seconds from the BMC's initialisation).
std::string timeText(std::uint32_t seconds) {
    if (seconds == 0xFFFFFFFF) return "unspecified";
    if (seconds <= 0x20000000) return "pre-init";
    const std::time_t time = seconds;
    std::tm utc{};
    gmtime_r(&time, &utc);
    char text[32];
    std::strftime(text, sizeof text, "%Y-%m-%dT%H:%M:%SZ", &utc);
    return text;
}

// The fields as the record's bytes hold them: IPMI v2.0 table 32-1 (system event record), 32-2
// (OEM timestamped) and 32-3 (OEM non-timestamped). Byte 3 is the record type.
Decoded fromBytes(const SelRecord& r) {
    Decoded d;
    d.recordType = r[2];
    if (r[2] < 0xE0) {
        const std::uint32_t stamp = r[3] | r[4] << 8 | r[5] << 16 | std::uint32_t{r[6]} << 24;
        d.time = timeText(stamp);
        if (d.time == "pre-init") d.preInitSeconds = stamp;
    }
    if (r[2] == 0x02) {
        d.generatorId = r[7] | r[8] << 8;
        d.generatorAddress = r[7];
        d.sensorType = r[10];
        d.sensorNumber = r[11];
        d.eventType = r[12] & 0x7F;
        d.eventClass = eventClassOf(r[12] & 0x7F);
        d.direction = r[12] & 0x80 ? "deassertion" : "assertion";
        d.offset = r[13] & 0x0F;
        d.eventData = std::vector<unsigned>{r[13], r[14], r[15]};
    } else if (r[2] >= 0xC0 && r[2] <= 0xDF) {
        d.manufacturerId = r[7] | r[8] << 8 | r[9] << 16;
        d.oemData = hexText(r.data() + 10, r.data() + 16);
    } else if (r[2] >= 0xE0) {
        d.oemData = hexText(r.data() + 3, r.data() + 16);
    }
    return d;
}

Reading fromBytes(const std::vector<SelRecord>& sel) {
    Reading reading;
    reading.reader = "the record's bytes";
    reading.decoder = false;
    for (const SelRecord& record : sel) reading.add(record[0] | record[1] << 8, fromBytes(record));
    return reading;
}

// ---- The readers

// The fields that a peer gives every record of its type and `d` lacks: output not understood in
// full. `words`: ipmi-sel, which words a system event's sensor type and offset.
std::vector<std::string> missingFields(const Decoded& d, bool words) {
    std::vector<std::string> missing;
    const auto need = [&](bool given, const char* field) {
        if (!given) missing.push_back(field);
    };
    need(d.recordType.has_value(), "record type");
    if (!d.recordType) return missing;
    if (*d.recordType < 0xE0) need(d.time.has_value(), "time");
    if (*d.recordType == 0x02) {
        need(d.direction.has_value(), "direction");
        if (words) {
            need(d.sensorTypeWords.has_value(), "sensor type");
            need(d.eventWords.has_value(), "event");
        } else {
            need(d.generatorId.has_value(), "generator ID");
            need(d.sensorNumber.has_value(), "sensor number");
            need(d.eventClass.has_value(), "event type");
            need(d.eventData.has_value(), "event data");
        }
    } else if (*d.recordType >= 0xC0) {
        need(d.oemData.has_value(), "OEM data");
        if (*d.recordType < 0xE0) need(d.manufacturerId.has_value(), "manufacturer ID");
    }
    return missing;
}

std::string portOf(const BmcSimulator& bmc) { return std::to_string(bmc.port()); }

// Each reader's problems, counted by kind so that one missing key is said once, not once a record.
class Problems {
public:
    void add(unsigned recordId, const std::string& what) {
        auto& [count, first] = kinds_[what];
        if (count++ == 0) first = recordId;
    }
    void into(std::vector<std::string>& problems) const {
        for (const auto& [what, seen] : kinds_) {
            problems.push_back(what + " (" + std::to_string(seen.first) + " record(s), the first " +
                               hexNumber(seen.second, 4) + ")");
        }
    }

private:
    std::map<std::string, std::pair<unsigned, unsigned>> kinds_;
};

// ipmi-event-log's JSON, read with yaml-cpp (JSON is YAML; a quoted scalar has the tag "!", a
// number or null none).
class OurObject {
public:
    OurObject(const YAML::Node& object, unsigned recordId, Problems& problems)
        : object_(object), recordId_(recordId), problems_(problems) {}

    bool has(const char* key) const { return object_[key].IsDefined(); }
    bool isNull(const char* key) const { return has(key) && object_[key].IsNull(); }

    std::optional<unsigned> number(const char* key) const {
        const YAML::Node node = object_[key];
        if (!isNumber(node)) return wrong(key, "a whole number");
        try {
            std::size_t end = 0;
            const unsigned long value = std::stoul(node.Scalar(), &end, 10);
            if (end == node.Scalar().size()) return static_cast<unsigned>(value);
        } catch (const std::exception&) {
        }
        return wrong(key, "a whole number");
    }

    std::optional<std::string> text(const char* key) const {
        const YAML::Node node = object_[key];
        if (!node.IsDefined() || !node.IsScalar() || node.Tag() != "!") return wrong(key, "a text");
        return node.Scalar();
    }

    // A text or null: the outer optional is absent when the key is wrong or missing.
    std::optional<std::optional<std::string>> textOrNull(const char* key) const {
        if (isNull(key)) return std::optional<std::string>();
        const std::optional<std::string> value = text(key);
        if (!value) return std::nullopt;
        return value;
    }

    // {"value": number, "units": text}
    std::optional<double> measure(const char* key) const {
        const YAML::Node node = object_[key];
        if (!node.IsDefined() || !node.IsMap() || !isNumber(node["value"]) ||
            !node["units"].IsDefined() || !node["units"].IsScalar() || node["units"].Tag() != "!") {
            problems_.add(recordId_, std::string("\"") + key + "\" is not {\"value\": number, " +
                                         "\"units\": text}");
            return std::nullopt;
        }
        return node["value"].as<double>();
    }

    std::optional<std::vector<unsigned>> numbers(const char* key, std::size_t count) const {
        const YAML::Node node = object_[key];
        std::vector<unsigned> values;
        if (node.IsDefined() && node.IsSequence() && node.size() == count) {
            for (const YAML::Node& item : node) {
                if (!isNumber(item)) break;
                values.push_back(item.as<unsigned>());
            }
        }
        if (values.size() != count) {
            problems_.add(recordId_, missingOrWrong(key) + std::to_string(count) + " numbers");
            return std::nullopt;
        }
        return values;
    }

private:
    static bool isNumber(const YAML::Node& node) {
        // A node that is not there throws when asked anything but IsDefined.
        return node.IsDefined() && node.IsScalar() && node.Tag() == "?" &&
               node.Scalar() != "true" && node.Scalar() != "false";
    }
    std::string missingOrWrong(const char* key) const {
        return has(key) ? std::string("\"") + key + "\" is not "
                        : std::string("no \"") + key + "\" key, for ";
    }
    std::nullopt_t wrong(const char* key, const char* what) const {
        problems_.add(recordId_, missingOrWrong(key) + what);
        return std::nullopt;
    }

    const YAML::Node object_;
    unsigned recordId_;
    Problems& problems_;
};

// One line of `ipmi-event-log --format jsonl list`, with the keys the JSON output gives a decoded
// record.
Decoded fromOurJson(const YAML::Node& node, unsigned recordId, Problems& problems) {
    const OurObject object(node, recordId, problems);
    Decoded d;
    d.recordType = object.number("recordType");
    if (d.recordType >= 0xE0u) {
        // OEM records of types E0h-FFh have no time stamp.
        if (!object.isNull("time")) problems.add(recordId, "\"time\" is not null");
    } else if (object.isNull("time")) {
        d.time = object.has("preInitSeconds") ? "pre-init" : "unspecified";
        if (object.has("preInitSeconds")) d.preInitSeconds = object.number("preInitSeconds");
    } else if (const auto time = object.text("time")) {
        static const std::regex iso("[0-9]{4}-[0-9]{2}-[0-9]{2}T[0-9]{2}:[0-9]{2}:[0-9]{2}Z");
        if (std::regex_match(*time, iso))
            d.time = *time;
        else
            problems.add(recordId, "\"time\" is not ISO 8601 UTC: " + *time);
    }
    if (d.recordType == 0x02u) {
        d.generatorId = object.number("generatorId");
        if (d.generatorId) d.generatorAddress = *d.generatorId & 0xFF;
        d.sensorType = object.number("sensorType");
        object.text("sensorTypeName");
        d.sensorNumber = object.number("sensorNumber");
        if (const auto name = object.textOrNull("sensorName")) {
            d.namesSensor = true;
            d.sensorName = *name;
        }
        d.eventType = object.number("eventType");
        if (d.eventType) d.eventClass = eventClassOf(*d.eventType);
        if (const auto direction = object.text("direction")) {
            if (*direction == "assertion" || *direction == "deassertion")
                d.direction = *direction;
            else
                problems.add(recordId, "\"direction\" is neither assertion nor deassertion");
        }
        d.offset = object.number("offset");
        d.eventData = object.numbers("eventData", 3);
        if (object.has("reading")) d.reading = object.measure("reading");
        if (object.has("threshold")) d.threshold = object.measure("threshold");
    } else if (d.recordType && *d.recordType >= 0xC0) {
        if (*d.recordType <= 0xDF) {
            d.manufacturerId = object.number("manufacturerId");
            object.textOrNull("manufacturer");
        }
        d.oemData = object.text("oemData");
        if (d.oemData && d.oemData->find_first_not_of("0123456789abcdef") != std::string::npos)
            problems.add(recordId, "\"oemData\" is not lower-case hex");
    }
    return d;
}

Reading readWithOurTool(const BmcSimulator& bmc, const ScratchDirectory& scratch) {
    Reading reading;
    reading.reader = "ipmi-event-log";
    const ToolRun run =
        bmcsim::runShell("IPMI_PASSWORD='" + std::string(kAdministrator.password) + "' " +
                             kTimeZone + TOOL_PATH " -H 127.0.0.1:" + portOf(bmc) + " -U " +
                             kAdministrator.name + " -E --format jsonl list",
                         scratch);
    reading.output = run.out + run.err;
    if (run.status != 0) reading.problems.push_back("exit status " + std::to_string(run.status));
    Problems problems;
    std::istringstream lines(run.out);
    for (std::string line; std::getline(lines, line);) {
        YAML::Node object;
        try {
            object = YAML::Load(line);
        } catch (const YAML::Exception&) {
        }
        if (!object.IsDefined() || !object.IsMap()) {
            reading.problems.push_back("a line that is no JSON object: " + line);
            continue;
        }
        const OurObject record(object, 0, problems);
        const std::optional<unsigned> id = record.number("recordId");
        if (!id) continue;
        reading.add(*id, fromOurJson(object, *id, problems));
    }
    problems.into(reading.problems);
    return reading;
}

// ipmitool, as the administrator, with its dates in UTC.
ToolRun runIpmitool(const BmcSimulator& bmc, const ScratchDirectory& scratch,
                    const std::string& arguments) {
    return bmcsim::runShell("IPMI_PASSWORD='" + std::string(kAdministrator.password) + "' " +
                                kTimeZone + IPMITOOL " -Z -I lanplus -H 127.0.0.1 -p " +
                                portOf(bmc) + " -U " + kAdministrator.name + " -E -C 3 " +
                                arguments,
                            scratch);
}

// ipmitool's names of sensor types, by name, as `sdr type list` prints them: "Temperature (0x01)".
std::map<std::string, unsigned> ipmitoolSensorTypes(const std::string& list) {
    std::map<std::string, unsigned> types;
    static const std::regex named("([^\\t()]+?)\\s+\\(0x([0-9a-fA-F]{2})\\)");
    for (std::sregex_iterator it(list.begin(), list.end(), named), end; it != end; ++it)
        types[trimmed((*it)[1])] = std::stoul((*it)[2], nullptr, 16);
    return types;
}

// The date and time of `sel elist` into `d`: "12/13/23" and "22:39:03 UTC" (ipmitool writes the
// year in two digits), "Pre-Init" and the seconds ("0000000256"), or "Unspecified" twice.
void ipmitoolTime(const std::string& date, const std::string& time, Decoded& d) {
    int month, day, year, hours, minutes, seconds;
    if (date == "Pre-Init") {
        d.time = "pre-init";
        d.preInitSeconds = std::stoul(time);
    } else if (date == "Unspecified") {
        d.time = "unspecified";
    } else if (std::sscanf(date.c_str(), "%d/%d/%d", &month, &day, &year) == 3 &&
               std::sscanf(time.c_str(), "%d:%d:%d", &hours, &minutes, &seconds) == 3) {
        char text[32];
        std::snprintf(text, sizeof text, "%04d-%02d-%02dT%02d:%02d:%02dZ",
                      year < 70 ? 2000 + year : 1900 + year, month, day, hours, minutes, seconds);
        d.time = text;
    } else {
        d.time = date + " " + time;
    }
}

// ipmitool: the times from `sel elist`, one record a line ("   1 | 12/13/23 | 22:39:03 UTC | ...");
// the rest from `sel get` of every record, "Key : value" lines. `sel get` prints a record's date
// twice instead of its date and time (ipmitool 1.8.19), so its time stamp is not taken from there.
Reading readWithIpmitool(const BmcSimulator& bmc, const ScratchDirectory& scratch) {
    Reading reading;
    reading.reader = "ipmitool";
    const ToolRun types = runIpmitool(bmc, scratch, "sdr type list");
    const std::map<std::string, unsigned> sensorTypes = ipmitoolSensorTypes(types.out);
    if (sensorTypes.empty())
        reading.problems.push_back("no sensor types: " + types.out + types.err);

    const ToolRun list = runIpmitool(bmc, scratch, "sel elist");
    std::map<unsigned, Decoded> times;
    std::vector<unsigned> ids;
    std::istringstream lines(list.out);
    for (std::string line; std::getline(lines, line);) {
        std::vector<std::string> fields;
        std::istringstream parts(line);
        for (std::string field; std::getline(parts, field, '|');) fields.push_back(trimmed(field));
        // Other lines are ipmitool's own messages ("SDRR successfully erased" and "Err in cmd get
        // sensor sdr info" of an empty SDR repository); a record missing from the list shows in
        // the record IDs.
        if (fields.size() < 3) continue;
        if (fields[0].empty() || fields[0].find_first_not_of("0123456789abcdef") != line.npos) {
            reading.problems.push_back("an elist line not read: " + line);
            continue;
        }
        const unsigned id = std::stoul(fields[0], nullptr, 16);
        ids.push_back(id);
        // Non-timestamped OEM records have no date: "OEM record e0" follows the ID.
        try {
            if (fields[1].rfind("OEM record", 0) != 0)
                ipmitoolTime(fields[1], fields[2], times[id]);
        } catch (const std::exception&) {
            reading.problems.push_back("an elist line not read: " + line);
        }
    }

    std::string arguments = "sel get";
    for (unsigned id : ids) arguments += " " + hexNumber(id, 1);
    const ToolRun get = runIpmitool(bmc, scratch, arguments);
    reading.output = list.out + get.out;
    Problems problems;
    std::optional<unsigned> id;
    Decoded d;
    // After a system event, the SDR that names its sensor follows, from "Sensor ID" on.
    bool inSensorRecord = false;
    const auto done = [&] {
        if (!id) return;
        if (times.count(*id)) {
            d.time = times[*id].time;
            d.preInitSeconds = times[*id].preInitSeconds;
        }
        if (d.recordType == 0x02u) d.namesSensor = true;
        for (const std::string& field : missingFields(d, false)) problems.add(*id, "no " + field);
        reading.add(*id, d);
        d = Decoded();
        id.reset();
    };
    std::istringstream getLines(get.out);
    for (std::string line; std::getline(getLines, line);) {
        const std::size_t colon = line.find(" : ");
        if (colon == std::string::npos) continue;
        const std::string key = trimmed(line.substr(0, colon));
        const std::string value = trimmed(line.substr(colon + 3));
        const std::string first = value.substr(0, value.find(' '));
        try {
            if (key == "SEL Record ID") {
                done();
                id = std::stoul(value, nullptr, 16);
                inSensorRecord = false;
            } else if (key == "Sensor ID") {
                // "Inlet Temp (0x4)"
                d.sensorName = value.substr(0, value.rfind(" ("));
                inSensorRecord = true;
            } else if (inSensorRecord) {
                continue;
            } else if (key == "Record Type") {
                d.recordType = std::stoul(first, nullptr, 16);
            } else if (key == "Generator ID") {
                d.generatorId = std::stoul(value, nullptr, 16);
                d.generatorAddress = *d.generatorId & 0xFF;
            } else if (key == "Sensor Type") {
                // ipmitool says "Unknown" of a sensor type outside its list: no number then.
                if (sensorTypes.count(value)) d.sensorType = sensorTypes.at(value);
            } else if (key == "Sensor Number") {
                d.sensorNumber = std::stoul(value, nullptr, 16);
            } else if (key == "Event Type") {
                // Words for the class of event/reading type code only; the code itself where the
                // class has one.
                static const std::map<std::string, std::string> classes = {
                    {"Unspecified", "unspecified"},
                    {"Threshold", "threshold"},
                    {"Generic Discrete", "generic"},
                    {"Sensor-specific Discrete", "sensor-specific"},
                    {"OEM", "OEM"},
                    {"Reserved", "reserved"}};
                if (classes.count(value)) d.eventClass = classes.at(value);
                if (value == "Threshold") d.eventType = 0x01;
                if (value == "Sensor-specific Discrete") d.eventType = 0x6F;
            } else if (key == "Event Direction") {
                if (value == "Assertion Event") d.direction = "assertion";
                if (value == "Deassertion Event") d.direction = "deassertion";
            } else if (key == "Event Data" || key == "Event Data (RAW)") {
                const unsigned long data = std::stoul(value, nullptr, 16);
                d.eventData = std::vector<unsigned>{static_cast<unsigned>(data >> 16),
                                                    static_cast<unsigned>(data >> 8 & 0xFF),
                                                    static_cast<unsigned>(data & 0xFF)};
                d.offset = (*d.eventData)[0] & 0x0F;
            } else if (key == "Trigger Reading") {
                d.reading = std::stod(value);  // "25.000degrees C"
            } else if (key == "Trigger Threshold") {
                d.threshold = std::stod(value);
            } else if (key == "Manufactacturer ID" || key == "Manufacturer ID") {
                // (ipmitool spells it the first way.)
                d.manufacturerId = std::stoul(value, nullptr, 16);
            } else if (key == "OEM Defined") {
                d.oemData = lowerCase(first);
            }
        } catch (const std::exception&) {
            reading.problems.push_back("a sel get line not read: " + line);
        }
    }
    done();
    problems.into(reading.problems);
    if (reading.order != ids)
        reading.problems.push_back("sel get and sel elist list other records");
    return reading;
}

// FreeIPMI's ipmi-sel, comma-separated: ID, date, time, sensor name, sensor type, direction and
// the event, whose parts are separated by " ; ". Its configuration file is an empty one, so that
// the machine's changes nothing.
Reading readWithIpmiSel(const BmcSimulator& bmc, const ScratchDirectory& scratch, bool withSdrs) {
    Reading reading;
    reading.reader = "ipmi-sel";
    scratch.write("freeipmi.conf", "");
    std::filesystem::create_directory(scratch.file("freeipmi"));
    // ipmi-sel keeps the SDRs it reads in a cache, in the scratch directory here (which must be
    // there: "insufficient permission on SDR cache directory" otherwise). It refuses to
    // make one of an empty repository ("SDR record count invalid"), so without SDRs it does
    // without. Without the opensesspriv workaround, its sessions to ipmi_sim fail ("privilege
    // level cannot be obtained for this user"). --interpret-oem-data changes nothing here: the
    // simulated BMC's manufacturer is none whose OEM records FreeIPMI knows.
    const ToolRun run = bmcsim::runShell(
        kTimeZone + std::string(IPMI_SEL) + " --config-file=" + scratch.file("freeipmi.conf") +
            " -h 127.0.0.1:" + portOf(bmc) + " -u " + kAdministrator.name + " -p '" +
            kAdministrator.password +
            "' -D LAN_2_0 -I 3 -W opensesspriv -vv --no-header-output "
            "--comma-separated-output --non-abbreviated-units --interpret-oem-data "
            "--output-manufacturer-id " +
            (withSdrs ? "--quiet-cache --sdr-cache-directory=" + scratch.file("freeipmi")
                      : std::string("--ignore-sdr-cache")),
        scratch);
    reading.output = run.out + run.err;
    if (run.status != 0) reading.problems.push_back("exit status " + std::to_string(run.status));

    Problems problems;
    static const std::regex unnamed("Sensor #([0-9]+) \\(Generator ID ([0-9A-Fa-f]{2})h\\)");
    static const std::regex offsetOnly(
        "(OEM )?Event Offset = ([0-9A-F]{2})h \\(Event Type Code = ([0-9A-F]{2})h\\)");
    static const std::regex oemBytes("OEM defined \\(Record Type = ([0-9A-F]{2})h\\) = (.*)");
    static const std::regex manufacturer("Manufacturer ID = .*\\(([0-9A-Fa-f]+)h\\)");
    static const std::regex measure("(Sensor Reading|Threshold) = (-?[0-9.]+)( .*)?");
    static const char* const months[] = {"Jan", "Feb", "Mar", "Apr", "May", "Jun",
                                         "Jul", "Aug", "Sep", "Oct", "Nov", "Dec"};
    std::istringstream lines(run.out);
    for (std::string line; std::getline(lines, line);) {
        // The event, last, may hold commas of its own.
        std::vector<std::string> fields;
        std::size_t at = 0;
        for (int field = 0; field < 6; ++field) {
            const std::size_t comma = line.find(',', at);
            if (comma == std::string::npos) break;
            fields.push_back(line.substr(at, comma - at));
            at = comma + 1;
        }
        if (fields.size() != 6 || fields[0].find_first_not_of("0123456789") != line.npos ||
            fields[0].empty()) {
            reading.problems.push_back("a line not read: " + line);
            continue;
        }
        fields.push_back(line.substr(at));
        Decoded d;
        char month[4];
        int day, year, hours, minutes, seconds;
        if (std::sscanf(fields[1].c_str(), "%3s-%d-%d", month, &day, &year) == 3 &&
            std::sscanf(fields[2].c_str(), "%d:%d:%d", &hours, &minutes, &seconds) == 3) {
            const auto found =
                std::find_if(std::begin(months), std::end(months),
                             [&](const char* name) { return name == std::string(month); });
            char text[32];
            std::snprintf(text, sizeof text, "%04d-%02d-%02dT%02d:%02d:%02dZ", year,
                          static_cast<int>(found - std::begin(months)) + 1, day, hours, minutes,
                          seconds);
            d.time = text;
        } else if (fields[1] == "PostInit") {
            d.time = "pre-init";  // without the seconds
        } else if (fields[1] == "Unspec.") {
            d.time = "unspecified";
        } else if (fields[1] != "N/A") {  // N/A: an OEM record without a time stamp
            d.time = fields[1] + " " + fields[2];
        }
        std::vector<std::string> parts;
        for (std::size_t from = 0;;) {
            const std::size_t separator = fields[6].find(" ; ", from);
            parts.push_back(fields[6].substr(from, separator - from));
            if (separator == std::string::npos) break;
            from = separator + 3;
        }
        std::smatch match;
        if (fields[4] == "N/A") {
            // An OEM record: its type and bytes, and the manufacturer ID of a timestamped one.
            for (const std::string& part : parts) {
                if (std::regex_match(part, match, oemBytes)) {
                    d.recordType = std::stoul(match[1], nullptr, 16);
                    std::string bytes;
                    std::istringstream words(match[2].str());
                    for (std::string word; words >> word;) bytes += lowerCase(word.substr(0, 2));
                    d.oemData = bytes;
                } else if (std::regex_match(part, match, manufacturer)) {
                    d.manufacturerId = std::stoul(match[1], nullptr, 16);
                }
            }
        } else {
            // ipmi-sel says nothing of a system event record's type: records of type 02h are the
            // ones it decodes so.
            d.recordType = 0x02;
            d.namesSensor = true;
            if (std::regex_match(fields[3], match, unnamed)) {
                d.sensorNumber = std::stoul(match[1]);
                d.generatorAddress = std::stoul(match[2], nullptr, 16);
            } else {
                d.sensorName = fields[3];
            }
            d.sensorTypeWords = fields[4];
            if (fields[5] == "Assertion Event") d.direction = "assertion";
            if (fields[5] == "Deassertion Event") d.direction = "deassertion";
            d.eventWords = parts[0];
            if (std::regex_match(parts[0], match, offsetOnly)) {
                d.offset = std::stoul(match[2], nullptr, 16);
                d.eventType = std::stoul(match[3], nullptr, 16);
                d.eventClass = eventClassOf(*d.eventType);
            }
            for (const std::string& part : parts) {
                if (!std::regex_match(part, match, measure)) continue;
                (match[1] == "Threshold" ? d.threshold : d.reading) = std::stod(match[2]);
            }
        }
        const unsigned id = std::stoul(fields[0]);
        for (const std::string& field : missingFields(d, true)) problems.add(id, "no " + field);
        reading.add(id, d);
    }
    problems.into(reading.problems);
    return reading;
}

// ---- Comparing

// What ipmi-sel prints for an event offset: the short messages of FreeIPMI's own tables, by event
// type for threshold and generic offsets (IPMI v2.0 table 42-2) and by sensor type for
// sensor-specific ones (table 42-3); the numbers where its tables have nothing.
std::string freeIpmiEventWords(unsigned sensorType, unsigned eventType, unsigned offset) {
    char text[256] = "";
    int length = -1;
    if (eventType >= 0x01 && eventType <= 0x0C)
        length = ipmi_get_generic_event_message_short(eventType, offset, text, sizeof text);
    else if (eventType == 0x6F)
        length = ipmi_get_sensor_type_message_short(sensorType, offset, text, sizeof text);
    if (length >= 0) return text;
    std::snprintf(text, sizeof text, "%sEvent Offset = %02Xh (Event Type Code = %02Xh)",
                  eventType >= 0x70 && eventType <= 0x7F ? "OEM " : "", offset, eventType);
    return text;
}

std::string shown(const std::optional<unsigned>& value) {
    return value ? hexNumber(*value, 2) : "(none)";
}
std::string shown(const std::optional<std::string>& value) {
    return value ? "\"" + *value + "\"" : "(none)";
}
std::string shown(const std::optional<double>& value) {
    return value ? std::to_string(*value) : "(none)";
}
std::string shown(const std::optional<std::vector<unsigned>>& value) {
    if (!value) return "(none)";
    std::string text;
    for (unsigned byte : *value) text += (text.empty() ? "" : " ") + hexNumber(byte, 2);
    return text;
}

// Any two readers give at least two fields of every record: its type, and its time stamp or its
// OEM bytes. Fewer in common means that a reader's output was not understood.
constexpr std::size_t kLeastFieldsCompared = 2;

// The fields on which two readings differ, record by record.
class Differences {
public:
    Differences(const Reading& left, const Reading& right) : left_(left), right_(right) {}

    // A field compared otherwise.
    void check(unsigned id, const std::string& field, bool equal, const std::string& a,
               const std::string& b) {
        ++compared_;
        if (!equal) note(id, field, a, b);
    }
    // Where both readings give the field, the same.
    template <typename T>
    void same(unsigned id, const char* field, const std::optional<T>& a,
              const std::optional<T>& b) {
        if (!a || !b) return;
        ++compared_;
        if (!(*a == *b)) note(id, field, shown(a), shown(b));
    }
    // Either reading says, the other says the same (a reading or threshold within 0.01).
    void sameOrBothAbsent(unsigned id, const char* field, const std::optional<double>& a,
                          const std::optional<double>& b) {
        ++compared_;
        if (a.has_value() != b.has_value() || (a && std::fabs(*a - *b) > 0.01))
            note(id, field, shown(a), shown(b));
    }
    void sameOrBothAbsent(unsigned id, const char* field, const std::optional<std::string>& a,
                          const std::optional<std::string>& b) {
        ++compared_;
        if (a != b) note(id, field, shown(a), shown(b));
    }
    void note(unsigned id, const std::string& field, const std::string& a, const std::string& b) {
        lines_.push_back("record " + hexNumber(id, 4) + " " + field + ": " + left_.reader + " " +
                         a + ", " + right_.reader + " " + b);
    }

    void fewFields(unsigned id, std::size_t compared) {
        lines_.push_back("record " + hexNumber(id, 4) + ": " + std::to_string(compared) +
                         " field(s) given by both (at least " +
                         std::to_string(kLeastFieldsCompared) + ")");
    }
    // A threshold record whose reading and threshold both readings gave, and were compared.
    void measured() { ++measured_; }
    // How many fields were compared so far.
    std::size_t compared() const { return compared_; }
    std::size_t measuredRecords() const { return measured_; }
    bool empty() const { return lines_.empty(); }
    std::string text() const {
        constexpr std::size_t shownAtMost = 40;
        std::string all = std::to_string(lines_.size()) + " difference(s) between " + left_.reader +
                          " and " + right_.reader + ":\n";
        for (std::size_t i = 0; i < lines_.size() && i < shownAtMost; ++i) all += lines_[i] + "\n";
        if (lines_.size() > shownAtMost) all += "...\n";
        return all;
    }

private:
    const Reading& left_;
    const Reading& right_;
    std::vector<std::string> lines_;
    std::size_t compared_ = 0;
    std::size_t measured_ = 0;
};

// The fields both readings give, compared. With `decoders` (neither reading is the bytes),
// also sensor names, readings and thresholds, which only a decoder can give, and both must.
void compareFields(unsigned id, const Decoded& a, const Decoded& b, bool decoders,
                   Differences& differences) {
    differences.same(id, "record type", a.recordType, b.recordType);
    differences.same(id, "time", a.time, b.time);
    differences.same(id, "pre-init seconds", a.preInitSeconds, b.preInitSeconds);
    differences.same(id, "generator ID", a.generatorId, b.generatorId);
    differences.same(id, "generator address", a.generatorAddress, b.generatorAddress);
    differences.same(id, "sensor type", a.sensorType, b.sensorType);
    differences.same(id, "sensor number", a.sensorNumber, b.sensorNumber);
    differences.same(id, "event type", a.eventType, b.eventType);
    differences.same(id, "event type class", a.eventClass, b.eventClass);
    differences.same(id, "direction", a.direction, b.direction);
    differences.same(id, "offset", a.offset, b.offset);
    differences.same(id, "event data", a.eventData, b.eventData);
    differences.same(id, "manufacturer ID", a.manufacturerId, b.manufacturerId);
    differences.same(id, "OEM data", a.oemData, b.oemData);
    if (!decoders) return;
    if (!a.namesSensor || !b.namesSensor) return;  // not a system event record for both
    differences.sameOrBothAbsent(id, "sensor name", a.sensorName, b.sensorName);
    differences.sameOrBothAbsent(id, "reading", a.reading, b.reading);
    differences.sameOrBothAbsent(id, "threshold", a.threshold, b.threshold);
    if (a.reading && b.reading && a.threshold && b.threshold) differences.measured();
}

// ipmi-sel's words against the numbers of another reading: the sensor type's name and the event
// offset's message that FreeIPMI's tables give those numbers.
void compareWords(unsigned id, const Decoded& numbers, const Decoded& words,
                  Differences& differences) {
    if (words.sensorTypeWords && numbers.sensorType) {
        const char* name = ipmi_get_sensor_type_string(*numbers.sensorType);
        if (name != nullptr) {
            differences.check(id, "sensor type", *words.sensorTypeWords == name,
                              hexNumber(*numbers.sensorType, 2) + " (FreeIPMI: \"" + name + "\")",
                              shown(words.sensorTypeWords));
        }
    }
    // The offset's message needs the exact event type, and for a sensor-specific one the sensor
    // type; where ipmi-sel gives the numbers, compareFields has them.
    if (words.eventWords && !words.offset && numbers.eventType && numbers.offset &&
        (*numbers.eventType != 0x6F || numbers.sensorType)) {
        const std::string expected =
            freeIpmiEventWords(numbers.sensorType.value_or(0), *numbers.eventType, *numbers.offset);
        differences.check(id, "event offset", *words.eventWords == expected,
                          hexNumber(*numbers.offset, 2) + " of event type " +
                              hexNumber(*numbers.eventType, 2) + " (FreeIPMI: \"" + expected +
                              "\")",
                          shown(words.eventWords));
    }
}

// Every record of `left` against the same record of `right`. `wordsOnRight`: `right` is ipmi-sel.
Differences compareReadings(const Reading& left, const Reading& right, bool wordsOnRight = false) {
    Differences differences(left, right);
    const bool decoders = left.decoder && right.decoder;
    for (const auto& [id, a] : left.records) {
        const auto b = right.records.find(id);
        if (b == right.records.end()) continue;  // said by the check of the record IDs
        const std::size_t before = differences.compared();
        compareFields(id, a, b->second, decoders, differences);
        if (wordsOnRight) compareWords(id, a, b->second, differences);
        const std::size_t compared = differences.compared() - before;
        if (compared < kLeastFieldsCompared) differences.fewFields(id, compared);
    }
    return differences;
}

std::string joined(const std::vector<std::string>& lines) {
    std::string all;
    for (const std::string& line : lines) all += line + "\n";
    return all;
}

// A threshold event whose event data 2 and 3 hold the trigger reading and the trigger threshold
// (event data 1, bits 7:6 and 5:4 both 01b; IPMI v2.0 table 29-6).
bool carriesReadingAndThreshold(const SelRecord& r) {
    return r[2] == 0x02 && (r[12] & 0x7F) == 0x01 && (r[13] & 0xF0) == 0x50;
}

// The full sensor record of the sensor that logged `r`, if the set has one that gives readings:
// its owner ID is the generator ID's first byte and its owner LUN byte has the generator's channel
// and LUN (IPMI v2.0 tables 32-1 and 43-1), and its analog data format is not "no analog reading".
bool hasFullSensorRecord(const DataSet& set, const SelRecord& r) {
    return std::any_of(set.sdrs.begin(), set.sdrs.end(), [&](const SdrRecord& sdr) {
        return sdr.size() > 20 && sdr[3] == 0x01 && sdr[5] == r[7] &&
               (sdr[6] & 0xF3) == (r[8] & 0xF3) && sdr[7] == r[11] && (sdr[20] & 0xC0) != 0xC0;
    });
}

// ---- The test

class RealRecordsTest : public ::testing::TestWithParam<std::string> {};

TEST_P(RealRecordsTest, EveryReaderMakesOfEachRecordWhatItsBytesSay) {
    const DataSet set = loadDataSet(GetParam());
    ASSERT_TRUE(set.problems.empty()) << joined(set.problems);
    ASSERT_FALSE(set.sel.empty());

    // One simulator for the three readers: the set's SDRs as its repository, the records as its
    // SEL, each under its own ID and with its own time stamp.
    BmcSimulator bmc(bmcsim::sdrCommands(set.sdrs), {}, set.sel, bmcsim::Interfaces::Lan, 0,
                     bmcsim::SelRecordIds::AsRecorded);
    const ScratchDirectory scratch;
    const Reading bytes = fromBytes(set.sel);
    const Reading ours = readWithOurTool(bmc, scratch);
    const Reading ipmitool = readWithIpmitool(bmc, scratch);
    const Reading ipmiSel = readWithIpmiSel(bmc, scratch, !set.sdrs.empty());

    for (const Reading* reading : {&ours, &ipmitool, &ipmiSel}) {
        SCOPED_TRACE(reading->reader);
        EXPECT_TRUE(reading->problems.empty()) << joined(reading->problems) << "its output:\n"
                                               << reading->output.substr(0, 4000);
        EXPECT_EQ(reading->order, bytes.order) << "the records listed, in SEL order";
    }

    // Each reader against the bytes: whatever a record's fields hold, each reader must say.
    for (const Reading* reading : {&ours, &ipmitool}) {
        const Differences differences = compareReadings(bytes, *reading);
        EXPECT_TRUE(differences.empty()) << differences.text();
    }
    const Differences ipmiSelAndBytes = compareReadings(bytes, ipmiSel, true);
    EXPECT_TRUE(ipmiSelAndBytes.empty()) << ipmiSelAndBytes.text();

    // The readers against each other, by meaning.
    const Differences oursAndIpmitool = compareReadings(ours, ipmitool);
    EXPECT_TRUE(oursAndIpmitool.empty()) << oursAndIpmitool.text();
    const Differences oursAndIpmiSel = compareReadings(ours, ipmiSel, true);
    EXPECT_TRUE(oursAndIpmiSel.empty()) << oursAndIpmiSel.text();
    const Differences ipmitoolAndIpmiSel = compareReadings(ipmitool, ipmiSel, true);
    EXPECT_TRUE(ipmitoolAndIpmiSel.empty()) << ipmitoolAndIpmiSel.text();

    // Every threshold record that carries its reading and threshold, of a sensor with a full
    // sensor record, had both converted by every reader and compared between each two of them.
    const auto withReadings =
        std::count_if(set.sel.begin(), set.sel.end(), carriesReadingAndThreshold);
    const auto measurable =
        static_cast<std::size_t>(std::count_if(set.sel.begin(), set.sel.end(), [&](const auto& r) {
            return carriesReadingAndThreshold(r) && hasFullSensorRecord(set, r);
        }));
    if (!set.sdrs.empty() && withReadings > 0) {
        EXPECT_GT(measurable, 0u) << "no threshold record is of a sensor that the SDRs describe";
    }
    const std::pair<const char*, const Differences*> pairs[] = {
        {"ipmi-event-log and ipmitool", &oursAndIpmitool},
        {"ipmi-event-log and ipmi-sel", &oursAndIpmiSel},
        {"ipmitool and ipmi-sel", &ipmitoolAndIpmiSel}};
    for (const auto& [readers, differences] : pairs) {
        EXPECT_EQ(differences->measuredRecords(), measurable)
            << "threshold records whose reading and threshold " << readers << " both gave";
    }
}

INSTANTIATE_TEST_SUITE_P(DataSets, RealRecordsTest, ::testing::ValuesIn(dataSetsWithSel()),
                         [](const ::testing::TestParamInfo<std::string>& info) {
                             return info.param;
                         });

}  // namespace
