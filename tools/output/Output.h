// Writing events, whatever their source, and raw SEL entries, as an aligned table,
// JSON, JSON lines or CSV (RFC 4180). Every byte is shown faithfully and safely: control bytes and
// bytes above 0x7E are escaped, never written raw.
#pragma once

#include <IpmiEventLog.h>

#include <ostream>
#include <string>
#include <vector>

#include "fleet/EventSource.h"

namespace tool {

enum class Format { Table, Json, Jsonl, Csv };

// A row's `complete` is false when its host stopped answering part way through the read: the
// host's rows are those read before, and events may lack severities, sensor names and auxiliary
// details. JSON and CSV carry it, for programs; the tool says it on standard error too. A host
// whose read ended before any record has one row without a record (`marker`) in JSON and CSV, so
// that programs see its read was incomplete there too; the table leaves it out.
struct EventRow {
    std::string host;
    SourceEvent event;
    bool complete = true;
    bool marker = false;
};

struct EntryRow {
    std::string host;
    Tolmar::IPMISELENTRY entry;
    bool complete = true;
    bool marker = false;  // as EventRow's
};

struct Style {
    Format format = Format::Table;
    // The names of the events' ID and facts in JSON and CSV.
    EventColumns columns;
    bool localTime = false;  // time stamps in this machine's local time, not UTC
    bool wide = false;
    bool showHost = false;
    bool colour = false;
    std::size_t width = 0;  // of the terminal; 0: no limit
    bool header = true;     // the table's and CSV's header line (a stream prints it once)
    // Each line begins with its sd-daemon(3) priority for the journal: an event's row its
    // severity's, headers and JSON's brackets info's.
    bool journal = false;
};

void writeEvents(std::ostream& out, const std::vector<EventRow>& rows, const Style& style);
void writeEntries(std::ostream& out, const std::vector<EntryRow>& rows, const Style& style);

const char* severityWord(Severity severity);
// The time stamp a row shows (TIME, timeStamp): in UTC, or local time where the style asks.
std::string timeStampText(const EventRow& row, const Style& style);
// A reading's or threshold's value as a JSON number (and CSV cell): up to 15 significant digits,
// so that the conversion's rounding noise does not show. Only for finite values.
std::string valueNumber(double value);
// Control bytes, bytes above 0x7E and the backslash as \xNN and \\.
std::string displayText(const std::string& text);
// A JSON string literal; bytes above 0x7E become \u00NN, keeping their value.
std::string jsonString(const std::string& text);
// A CSV field, quoted when it holds a comma or a quotation mark.
std::string csvField(const std::string& text);

}  // namespace tool
