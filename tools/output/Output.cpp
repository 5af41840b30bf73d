#include "output/Output.h"

#include <algorithm>
#include <cmath>
#include <cstdio>

#include <sstream>

#include "base/HexBytes.h"
#include "base/Printable.h"
#include "output/Journal.h"

namespace tool {

namespace {

std::string hexBytes(const Tolmar::IPMISELENTRY& entry, const char* separator) {
    return hexText(reinterpret_cast<const unsigned char*>(&entry), sizeof entry, separator);
}

std::string recordIdText(unsigned long id) {
    char text[8];
    std::snprintf(text, sizeof text, "0x%04lx", id);
    return text;
}

const char* trueOrFalse(bool value) { return value ? "true" : "false"; }

unsigned long recordIdOf(const Tolmar::IPMISELENTRY& entry) {
    return entry.recordId[0] | entry.recordId[1] << 8;
}

std::string cut(const std::string& text, std::size_t width) {
    if (width == 0 || text.size() <= width) return text;
    return width <= 3 ? text.substr(0, width) : text.substr(0, width - 3) + "...";
}

std::string padded(const std::string& text, std::size_t width) {
    return text.size() >= width ? text : text + std::string(width - text.size(), ' ');
}

std::string coloured(const std::string& word, Severity severity, bool colour) {
    if (!colour || severity == Severity::Info) return word;
    return (severity == Severity::Critical ? "\033[31m" : "\033[33m") + word + "\033[0m";
}

// An aligned table: column widths from the rows; the last text column is cut to the terminal.
void writeTable(std::ostream& out, const std::vector<std::vector<std::string>>& rows,
                std::size_t cutColumn, const std::vector<Severity>& severities,
                std::size_t severityColumn, const Style& style) {
    if (rows.empty()) return;
    std::vector<std::size_t> widths(rows[0].size(), 0);
    for (const auto& row : rows) {
        for (std::size_t c = 0; c < row.size(); ++c) widths[c] = std::max(widths[c], row[c].size());
    }
    if (!style.wide && style.width != 0) {
        std::size_t others = 0;
        for (std::size_t c = 0; c < widths.size(); ++c)
            others += c == cutColumn ? 0 : widths[c] + 2;
        widths[cutColumn] =
            std::min(widths[cutColumn],
                     std::max<std::size_t>(20, style.width - std::min(style.width, others)));
    }
    for (std::size_t r = style.header ? 0 : 1; r < rows.size(); ++r) {
        std::string line;
        for (std::size_t c = 0; c < rows[r].size(); ++c) {
            const std::string cell = cut(rows[r][c], widths[c]);
            const bool last = c + 1 == rows[r].size();
            std::string shown = last ? cell : padded(cell, widths[c]);
            if (c == severityColumn && r > 0)
                shown = coloured(shown, severities[r - 1], style.colour);
            line += shown;
            if (!last) line += "  ";
        }
        while (!line.empty() && line.back() == ' ') line.pop_back();
        out << line << "\n";
    }
}

// The CSV header of events: the common columns, then the source's own.
std::string eventColumns(const EventColumns& columns) {
    std::string header =
        "host," + columns.idKey + ",timeStamp,severity,message,source,auxLog,complete";
    for (const std::string& fact : columns.facts) header += "," + fact;
    return header;
}
const char* const kEntryColumns = "host,recordId,bytes,complete";

// A host's marker row (EventRow::marker): its host and "complete": false, nothing else.
std::string markerJson(const std::string& host) {
    return "{\"host\":" + jsonString(host) + ",\"complete\":false}";
}

// The same as a CSV row of `columns`: the host, "false" under complete, every other cell empty.
std::string markerCsv(const std::string& host, const std::string& columns) {
    std::string row = csvField(host);
    std::size_t start = columns.find(',') + 1;
    for (std::size_t end = columns.find(',', start);; end = columns.find(',', start)) {
        row +=
            "," + std::string(columns.compare(start, end - start, "complete") == 0 ? "false" : "");
        if (end == std::string::npos) break;
        start = end + 1;
    }
    return row;
}

std::string numbersText(const std::vector<unsigned>& numbers, const char* separator) {
    std::string text;
    for (std::size_t i = 0; i < numbers.size(); ++i)
        text += (i ? separator : "") + std::to_string(numbers[i]);
    return text;
}

// A fact as a JSON value.
std::string jsonValue(const EventField::Value& value) {
    if (const auto* number = std::get_if<unsigned long>(&value)) return std::to_string(*number);
    if (const auto* text = std::get_if<std::string>(&value)) return jsonString(*text);
    if (const auto* numbers = std::get_if<std::vector<unsigned>>(&value))
        return "[" + numbersText(*numbers, ",") + "]";
    if (const auto* measured = std::get_if<Measurement>(&value)) {
        return "{\"value\":" + valueNumber(measured->value) +
               ",\"units\":" + jsonString(measured->units) + "}";
    }
    return "null";
}

// The event's facts as JSON members, each preceded by a comma.
std::string factsJson(const SourceEvent& event) {
    std::string out;
    for (const EventField& field : event.fields)
        out += ",\"" + field.key + "\":" + jsonValue(field.value);
    return out;
}

// The CSV cell of `column`: a fact of that name, or the units of the measurement it names.
std::string factCell(const SourceEvent& event, const std::string& column) {
    for (const EventField& field : event.fields) {
        const auto* measured = std::get_if<Measurement>(&field.value);
        if (field.key == column) {
            if (const auto* number = std::get_if<unsigned long>(&field.value))
                return std::to_string(*number);
            if (const auto* text = std::get_if<std::string>(&field.value)) return csvField(*text);
            if (const auto* numbers = std::get_if<std::vector<unsigned>>(&field.value))
                return numbersText(*numbers, " ");
            return measured ? valueNumber(measured->value) : "";
        }
        if (measured && column == field.key + "Units") return csvField(measured->units);
    }
    return "";
}

// The event's facts as CSV cells, each preceded by a comma, in the columns' order.
std::string factsCsv(const SourceEvent& event, const EventColumns& columns) {
    std::string out;
    for (const std::string& column : columns.facts) out += "," + factCell(event, column);
    return out;
}

// The ID as JSON gives it: its number where the source numbers its records.
std::string idJson(const SourceEvent& event, const EventColumns& columns) {
    return columns.numberedIds && event.number ? std::to_string(*event.number)
                                               : jsonString(event.id);
}

// How many lines writeEvents puts before the rows: JSON's bracket, or a header.
std::size_t linesBeforeRows(const Style& style) {
    if (style.format == Format::Json) return 1;
    const bool headed = style.format == Format::Table || style.format == Format::Csv;
    return headed && style.header ? 1 : 0;
}

// `text`, as writeEvents wrote `rows`, with each line's priority prefix.
std::string withJournalPrefixes(const std::string& text, const std::vector<EventRow>& rows,
                                const Style& style) {
    const std::size_t first = linesBeforeRows(style);
    std::string out;
    std::size_t line = 0;
    for (std::size_t start = 0; start < text.size(); ++line) {
        const std::size_t end = std::min(text.find('\n', start), text.size() - 1);
        const bool row = line >= first && line - first < rows.size();
        out += journalPrefix(row ? rows[line - first].event.severity : Severity::Info);
        out.append(text, start, end + 1 - start);
        start = end + 1;
    }
    return out;
}

}  // namespace

std::string timeStampText(const EventRow& row, const Style& style) {
    return style.localTime ? row.event.localTimeText : row.event.timeText;
}

std::string valueNumber(double value) {
    char text[32];
    std::snprintf(text, sizeof text, "%.15g", value);
    return text;
}

const char* severityWord(Severity severity) {
    switch (severity) {
        case Severity::Warning:
            return "warning";
        case Severity::Critical:
            return "critical";
        default:
            return "info";
    }
}

std::string displayText(const std::string& text) {
    // Backslashes doubled first, so that the escapes printable() writes cannot be forged.
    std::string doubled;
    doubled.reserve(text.size());
    for (const char c : text) {
        if (c == '\\') doubled += c;
        doubled += c;
    }
    return printable(doubled);
}

std::string jsonString(const std::string& text) {
    std::string out = "\"";
    for (unsigned char c : text) {
        switch (c) {
            case '"':
                out += "\\\"";
                break;
            case '\\':
                out += "\\\\";
                break;
            case '\n':
                out += "\\n";
                break;
            case '\r':
                out += "\\r";
                break;
            case '\t':
                out += "\\t";
                break;
            default:
                if (c < 0x20 || c > 0x7E) {
                    char escaped[7];
                    std::snprintf(escaped, sizeof escaped, "\\u%04X", c);
                    out += escaped;
                } else {
                    out += static_cast<char>(c);
                }
        }
    }
    return out + "\"";
}

std::string csvField(const std::string& text) {
    const std::string shown = displayText(text);
    if (shown.find_first_of(",\"") == std::string::npos) return shown;
    std::string quoted = "\"";
    for (char c : shown) quoted += c == '"' ? std::string("\"\"") : std::string(1, c);
    return quoted + "\"";
}

void writeEvents(std::ostream& out, const std::vector<EventRow>& rows, const Style& style) {
    if (style.journal) {
        Style plain = style;
        plain.journal = false;
        std::ostringstream text;
        writeEvents(text, rows, plain);
        out << withJournalPrefixes(text.str(), rows, style);
        return;
    }
    const auto json = [&style](const EventRow& row) {
        if (row.marker) return markerJson(row.host);
        const auto& e = row.event;
        return "{\"host\":" + jsonString(row.host) + ",\"" + style.columns.idKey +
               "\":" + idJson(e, style.columns) +
               ",\"timeStamp\":" + jsonString(timeStampText(row, style)) +
               ",\"severity\":" + jsonString(severityWord(e.severity)) +
               ",\"message\":" + jsonString(e.message) + ",\"source\":" + jsonString(e.source) +
               ",\"auxLog\":" + jsonString(e.details) +
               ",\"complete\":" + trueOrFalse(row.complete) + factsJson(e) + "}";
    };
    switch (style.format) {
        case Format::Json:
            out << "[";
            for (std::size_t i = 0; i < rows.size(); ++i)
                out << (i ? ",\n " : "\n ") << json(rows[i]);
            out << (rows.empty() ? "]\n" : "\n]\n");
            return;
        case Format::Jsonl:
            for (const EventRow& row : rows) out << json(row) << "\n";
            return;
        case Format::Csv:
            if (style.header) out << eventColumns(style.columns) << "\r\n";
            for (const EventRow& row : rows) {
                if (row.marker) {
                    out << markerCsv(row.host, eventColumns(style.columns)) << "\r\n";
                    continue;
                }
                const auto& e = row.event;
                out << csvField(row.host) << "," << csvField(e.id) << ","
                    << csvField(timeStampText(row, style)) << "," << severityWord(e.severity) << ","
                    << csvField(e.message) << "," << csvField(e.source) << ","
                    << csvField(e.details) << "," << trueOrFalse(row.complete)
                    << factsCsv(e, style.columns) << "\r\n";
            }
            return;
        case Format::Table:
            break;
    }
    std::vector<std::vector<std::string>> table;
    std::vector<Severity> severities;
    std::vector<std::string> header = {"ID", "TIME", "SEVERITY", "SOURCE", "MESSAGE"};
    if (style.wide) header.push_back("AUXILIARY LOG");
    if (style.showHost) header.insert(header.begin(), "HOST");
    table.push_back(header);
    for (const EventRow& row : rows) {
        if (row.marker) continue;
        const auto& e = row.event;
        std::vector<std::string> cells = {displayText(e.id), timeStampText(row, style),
                                          severityWord(e.severity), displayText(e.source),
                                          displayText(e.message)};
        if (style.wide) cells.push_back(displayText(e.details));
        if (style.showHost) cells.insert(cells.begin(), row.host);
        table.push_back(cells);
        severities.push_back(e.severity);
    }
    const std::size_t offset = style.showHost ? 1 : 0;
    writeTable(out, table, offset + 4, severities, offset + 2, style);
}

void writeEntries(std::ostream& out, const std::vector<EntryRow>& rows, const Style& style) {
    switch (style.format) {
        case Format::Json:
        case Format::Jsonl: {
            const bool array = style.format == Format::Json;
            if (array) out << "[";
            for (std::size_t i = 0; i < rows.size(); ++i) {
                if (array) out << (i ? ",\n " : "\n ");
                if (rows[i].marker) {
                    out << markerJson(rows[i].host) << (array ? "" : "\n");
                    continue;
                }
                out << "{\"host\":" << jsonString(rows[i].host)
                    << ",\"recordId\":" << recordIdOf(rows[i].entry) << ",\"bytes\":\""
                    << hexBytes(rows[i].entry, "")
                    << "\",\"complete\":" << trueOrFalse(rows[i].complete) << "}";
                if (!array) out << "\n";
            }
            if (array) out << (rows.empty() ? "]\n" : "\n]\n");
            return;
        }
        case Format::Csv:
            out << kEntryColumns << "\r\n";
            for (const EntryRow& row : rows) {
                if (row.marker) {
                    out << markerCsv(row.host, kEntryColumns) << "\r\n";
                    continue;
                }
                out << csvField(row.host) << "," << recordIdText(recordIdOf(row.entry)) << ","
                    << hexBytes(row.entry, " ") << "," << trueOrFalse(row.complete) << "\r\n";
            }
            return;
        case Format::Table:
            for (const EntryRow& row : rows) {
                if (row.marker) continue;
                if (style.showHost) out << row.host << "  ";
                out << recordIdText(recordIdOf(row.entry)) << "  " << hexBytes(row.entry, " ")
                    << "\n";
            }
            return;
    }
}

}  // namespace tool
