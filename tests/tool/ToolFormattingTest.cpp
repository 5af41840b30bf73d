// The tool's command line and output, without a BMC.
#include <gtest/gtest.h>

#include <sstream>

#include "base/HexBytes.h"
#include "base/TimeText.h"
#include "cli/Options.h"
#include "fleet/IpmiEventSource.h"
#include "output/Output.h"

namespace {

using tool::EventRow;
using tool::Format;

Tolmar::TolmarAgentless::IPMIEVENT osStop() {
    // An OS stop message carries raw bytes of the record, a zero byte among them.
    return {0x1C,
            "03/12/2015 16:57:54",
            std::string("(OS Stop / Shutdown - K\0!\x90): Stop", 33),
            2,
            "System Mgt Software. Channel 0. ",
            "No Extended Data"};
}

// What the OS stop's record means in IPMI v2.0, as JSON and CSV carry it after the event's texts.
Tolmar::DecodedSelRecord osStopRecord() {
    Tolmar::DecodedSelRecord r;
    r.recordId = 0x1C;
    r.recordType = 0x02;  // system event
    r.kind = Tolmar::DecodedSelRecord::Kind::SystemEvent;
    r.time = Tolmar::DecodedSelRecord::Time::Absolute;
    r.timestamp = 0x5501C592;  // 2015-03-12 16:57:54 UTC
    r.generatorId = 0x0041;    // system management software, channel 0
    r.sensorType = 0x20;       // OS stop / shutdown
    r.sensorTypeName = "OS Stop / Shutdown";
    r.sensorNumber = 0x01;
    r.eventType = 0x6F;  // sensor-specific
    r.offset = 0x01;     // run-time critical stop
    r.eventData = {0x01, 0xFF, 0xFF};
    return r;
}

// The JSON keys and CSV cells of osStopRecord().
const char* const kOsStopKeys =
    ",\"recordType\":2,\"time\":\"2015-03-12T16:57:54Z\",\"generatorId\":65,\"sensorType\":32,"
    "\"sensorTypeName\":\"OS Stop / Shutdown\",\"sensorNumber\":1,\"sensorName\":null,"
    "\"eventType\":111,\"direction\":\"assertion\",\"offset\":1,\"eventData\":[1,255,255]";
const char* const kOsStopCells =
    ",2,2015-03-12T16:57:54Z,,65,32,OS Stop / Shutdown,1,,111,assertion,1,1 255 255,,,,,,,";

// `event` of the OS stop's record, as the IPMI source gives it in the described rendering.
tool::SourceEvent described(const Tolmar::TolmarAgentless::IPMIEVENT& event) {
    return tool::ipmiEvent({Tolmar::IPMISELENTRY{}, osStopRecord(), event},
                           tool::Rendering::Described);
}

EventRow osStopRow(const std::string& host, bool complete = true) {
    return {host, described(osStop()), complete};
}

// The library's described texts, which these tests are about.
std::string write(const std::vector<EventRow>& rows, Format format, bool showHost = false) {
    std::ostringstream out;
    tool::Style style;
    style.format = format;
    style.columns = tool::ipmiEventColumns();
    style.showHost = showHost;
    tool::writeEvents(out, rows, style);
    return out.str();
}

TEST(ToolOptions, HostRangesKeepTheirWidth) {
    EXPECT_EQ(
        tool::expandHosts("bmc[08-11].lab,other"),
        (std::vector<std::string>{"bmc08.lab", "bmc09.lab", "bmc10.lab", "bmc11.lab", "other"}));
    EXPECT_EQ(tool::expandHosts("n[1-2]"), (std::vector<std::string>{"n1", "n2"}));
    EXPECT_THROW(tool::expandHosts("n[3-1]"), tool::UsageError);
    EXPECT_THROW(tool::expandHosts("n[a-b]"), tool::UsageError);
}

TEST(ToolOptions, RecordIdsInDecimalOrHex) {
    EXPECT_EQ(tool::parseRecordId("28"), 28ul);
    EXPECT_EQ(tool::parseRecordId("0x1c"), 28ul);
    EXPECT_EQ(tool::parseRecordId("0XFFFF"), 65535ul);
    EXPECT_THROW(tool::parseRecordId("65536"), tool::UsageError);
    EXPECT_THROW(tool::parseRecordId("-1"), tool::UsageError);
    EXPECT_THROW(tool::parseRecordId("12a"), tool::UsageError);
}

TEST(ToolOptions, SixteenHexBytesInAnyCommonForm) {
    const std::vector<unsigned char> expected = {0x00, 0x00, 0x02, 0x00, 0x00, 0x00, 0x55, 0x20,
                                                 0x00, 0x04, 0x01, 0x30, 0x01, 0x57, 0x56, 0x55};
    EXPECT_EQ(tool::parseHexBytes("00 00 02 00 00 00 55 20 00 04 01 30 01 57 56 55"), expected);
    EXPECT_EQ(tool::parseHexBytes("0x00,0x00,0x02,0x00,0x00,0x00,0x55,0x20,0x00,0x04,0x01,0x30,"
                                  "0x01,0x57,0x56,0x55"),
              expected);
    EXPECT_EQ(tool::parseHexBytes("00000200000055200004013001575655"), expected);
    EXPECT_THROW(tool::parseHexBytes("00 01"), tool::UsageError);
    EXPECT_THROW(tool::parseHexBytes("zz"), tool::UsageError);
}

TEST(ToolHex, WritesLowerCaseDigitsAndReadsEitherCaseBack) {
    const unsigned char bytes[] = {0x0A, 0xBF, 0x00};
    EXPECT_EQ(tool::hexText(bytes, sizeof bytes), "0abf00");
    EXPECT_EQ(tool::hexText(bytes, sizeof bytes, " "), "0a bf 00");
    std::vector<unsigned char> read = {0x77};
    EXPECT_TRUE(tool::bytesFromHex("0aBF00", read));
    EXPECT_EQ(read, std::vector<unsigned char>(bytes, bytes + sizeof bytes));
    for (const char* refused : {"0ab", "0x0a", "0a bf", "zz"}) {
        std::vector<unsigned char> kept = {0x77};
        EXPECT_FALSE(tool::bytesFromHex(refused, kept)) << refused;
        EXPECT_EQ(kept, std::vector<unsigned char>{0x77}) << refused;
    }
}

TEST(ToolOptions, TheCipherSuiteIsAutoUnlessANumberIsGiven) {
    constexpr unsigned short automatic = Tolmar::ConnectionSettings::AutoCipherSuite;
    EXPECT_EQ(tool::parseOptions({"status"}).cipherSuite, automatic);
    EXPECT_EQ(tool::parseOptions({"-C", "auto", "status"}).cipherSuite, automatic);
    EXPECT_EQ(tool::parseOptions({"--cipher-suite", "3", "status"}).cipherSuite, 3);
    EXPECT_THROW(tool::parseOptions({"-C", "256", "status"}), tool::UsageError);
    EXPECT_THROW(tool::parseOptions({"-C", "AUTO", "status"}), tool::UsageError);
}

TEST(ToolOptions, WorkaroundsAreTheLibrarysNamesEachOnce) {
    const std::vector<std::string> names = Tolmar::WorkaroundNames();
    ASSERT_FALSE(names.empty());
    const std::string& first = names.front();
    const std::string& last = names.back();
    const tool::Options o =
        tool::parseOptions({"--workaround", last + "," + first, "--workaround", first, "status"});
    EXPECT_EQ(o.workarounds, (std::vector<std::string>{last, first}));
    EXPECT_TRUE(tool::parseOptions({"status"}).workarounds.empty());
    std::string list;
    for (std::size_t i = 0; i < names.size(); ++i)
        list += (i == 0 ? "" : i + 1 == names.size() ? " and " : ", ") + names[i];
    const struct {
        std::string given;
        std::string refused;
    } cases[] = {{"assumeio", "assumeio"},  // FreeIPMI's, for its in-band drivers
                 {"", ""},
                 {first + ",", ""},
                 {first + ",Authcap", "Authcap"}};
    for (const auto& c : cases) {
        try {
            tool::parseOptions({"--workaround", c.given, "status"});
            ADD_FAILURE() << c.given;
        } catch (const tool::UsageError& e) {
            EXPECT_EQ(std::string(e.what()),
                      "no workaround is named \"" + c.refused + "\"; there are " + list);
        }
    }
}

TEST(ToolOptions, ParsesConnectionOutputAndFilters) {
    setenv("IPMI_PASSWORD", "from-env", 1);
    const tool::Options o = tool::parseOptions(
        {"-H",        "a,b",    "-p",       "9623",     "-U",         "admin",   "-E",
         "-C",        "17",     "--format", "csv",      "--severity", "warning", "--id",
         "0x10-0x20", "--last", "5",        "--fanout", "3",          "list"});
    EXPECT_EQ(o.command, "list");
    EXPECT_EQ(o.hosts, (std::vector<std::string>{"a", "b"}));
    EXPECT_EQ(o.port, 9623);
    EXPECT_EQ(o.password, "from-env");
    EXPECT_EQ(o.cipherSuite, 17);
    EXPECT_EQ(o.format, Format::Csv);
    EXPECT_EQ(o.minimumSeverity, 1);
    EXPECT_EQ(o.firstId, 0x10ul);
    EXPECT_EQ(o.lastId, 0x20ul);
    EXPECT_EQ(o.last, 5u);
    EXPECT_EQ(o.fanout, 3u);
    EXPECT_THROW(tool::parseOptions({"--format", "xml", "list"}), tool::UsageError);
    EXPECT_THROW(tool::parseOptions({"--bogus", "list"}), tool::UsageError);
    EXPECT_THROW(tool::parseOptions({}), tool::UsageError);
}

TEST(ToolOptions, RenderingIsIpmiUnlessDescribedIsAskedFor) {
    EXPECT_EQ(tool::parseOptions({"list"}).rendering, Tolmar::EventRendering::Ipmi);
    EXPECT_EQ(tool::parseOptions({"--rendering", "ipmi", "list"}).rendering,
              Tolmar::EventRendering::Ipmi);
    EXPECT_EQ(tool::parseOptions({"--rendering", "described", "follow"}).rendering,
              Tolmar::EventRendering::Described);
    for (const char* refused : {"IPMI", "Described", "", "raw"}) {
        try {
            tool::parseOptions({"--rendering", refused, "list"});
            ADD_FAILURE() << refused;
        } catch (const tool::UsageError& e) {
            EXPECT_EQ(std::string(e.what()),
                      std::string("rendering \"") + refused + "\" is not ipmi or described");
        }
    }
    EXPECT_EQ(tool::parseRendering("described"), Tolmar::EventRendering::Described);
    // Bytes that are not printable are not echoed raw.
    try {
        tool::parseRendering("ipmi\x1b[2J");
        ADD_FAILURE();
    } catch (const tool::UsageError& e) {
        EXPECT_EQ(std::string(e.what()), "rendering \"ipmi\\x1B[2J\" is not ipmi or described");
    }
    try {
        tool::parseOptions({"list", "--rendering"});
        ADD_FAILURE();
    } catch (const tool::UsageError& e) {
        EXPECT_EQ(std::string(e.what()), "--rendering needs a value");
    }
    EXPECT_NE(tool::usageText().find("  --rendering R "), std::string::npos);
}

TEST(ToolOutput, EscapesEveryByteThatIsNotPrintable) {
    EXPECT_EQ(tool::displayText(std::string("a\0b\x90\\c\n", 7)), "a\\x00b\\x90\\\\c\\x0A");
    EXPECT_EQ(tool::jsonString(std::string("q\"\0\x7f\xc3", 5)), "\"q\\\"\\u0000\\u007F\\u00C3\"");
}

TEST(ToolOutput, CsvQuotesCommasAndQuotationMarks) {
    EXPECT_EQ(tool::csvField("plain"), "plain");
    EXPECT_EQ(tool::csvField("a, b"), "\"a, b\"");
    EXPECT_EQ(tool::csvField("say \"hi\""), "\"say \"\"hi\"\"\"");
}

TEST(ToolOutput, JsonIsOneArrayAndJsonlOneObjectALine) {
    const std::vector<EventRow> rows = {osStopRow("bmc1"), osStopRow("bmc2")};
    const std::string object =
        "{\"host\":\"bmc1\",\"recordId\":28,\"timeStamp\":\"03/12/2015 16:57:54\",\"severity\":"
        "\"critical\",\"message\":\"(OS Stop / Shutdown - K\\u0000!\\u0090): Stop\",\"source\":"
        "\"System Mgt Software. Channel 0. \",\"auxLog\":\"No Extended Data\",\"complete\":true" +
        std::string(kOsStopKeys) + "}";
    EXPECT_EQ(write(rows, Format::Json).rfind("[\n " + object + ",\n {\"host\":\"bmc2\"", 0), 0u);
    EXPECT_EQ(write({}, Format::Json), "[]\n");
    EXPECT_EQ(write({rows[0]}, Format::Jsonl), object + "\n");
}

TEST(ToolOutput, CsvHasAHeaderAndCrLfLines) {
    EXPECT_EQ(write({osStopRow("bmc1")}, Format::Csv),
              "host,recordId,timeStamp,severity,message,source,auxLog,complete,recordType,time,"
              "preInitSeconds,generatorId,sensorType,sensorTypeName,sensorNumber,sensorName,"
              "eventType,direction,offset,eventData,reading,readingUnits,threshold,"
              "thresholdUnits,manufacturerId,manufacturer,oemData\r\n"
              "bmc1,0x001c,03/12/2015 16:57:54,critical,(OS Stop / Shutdown - K\\x00!\\x90): "
              "Stop,System Mgt Software. Channel 0. ,No Extended Data,true" +
                  std::string(kOsStopCells) + "\r\n");
}

TEST(ToolOutput, RowsOfAHostThatStoppedAnsweringAreMarkedIncomplete) {
    const EventRow event = osStopRow("bmc1", false);
    EXPECT_NE(write({event}, Format::Jsonl).find(",\"complete\":false" + std::string(kOsStopKeys)),
              std::string::npos);
    EXPECT_NE(write({event}, Format::Csv)
                  .find(",No Extended Data,false" + std::string(kOsStopCells) + "\r\n"),
              std::string::npos);

    Tolmar::IPMISELENTRY entry{};
    entry.recordId[0] = 0x04;
    const tool::EntryRow partial{"bmc1", entry, false};
    const auto written = [&partial](Format format) {
        tool::Style style;
        style.format = format;
        std::ostringstream out;
        tool::writeEntries(out, {partial}, style);
        return out.str();
    };
    EXPECT_EQ(written(Format::Jsonl),
              "{\"host\":\"bmc1\",\"recordId\":4,\"bytes\":\"0400000000000000000000000000"
              "0000\",\"complete\":false}\n");
    EXPECT_EQ(written(Format::Csv),
              "host,recordId,bytes,complete\r\n"
              "bmc1,0x0004,04 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00,false\r\n");
}

TEST(ToolOutput, TableAlignsColumnsAndNamesHostsOfAFleet) {
    const std::string table = write({osStopRow("bmc1")}, Format::Table, true);
    EXPECT_EQ(table,
              "HOST  ID      TIME                 SEVERITY  SOURCE                            "
              "MESSAGE\n"
              "bmc1  0x001c  03/12/2015 16:57:54  critical  System Mgt Software. Channel 0.   "
              "(OS Stop / Shutdown - K\\x00!\\x90): Stop\n");
}

TEST(ToolOutput, TableFitsTheTerminalUnlessWide) {
    Tolmar::TolmarAgentless::IPMIEVENT event = osStop();
    event.message = std::string(200, 'm');
    std::ostringstream narrow;
    tool::Style style;
    style.width = 100;
    tool::writeEvents(narrow, {{"", described(event)}}, style);
    std::istringstream lines(narrow.str());
    for (std::string line; std::getline(lines, line);) EXPECT_LE(line.size(), 100u) << line;
    std::ostringstream wide;
    style.wide = true;
    tool::writeEvents(wide, {{"", described(event)}}, style);
    EXPECT_NE(wide.str().find(std::string(200, 'm')), std::string::npos);
}

TEST(ToolTime, ConvertsBetweenTheLibrarysTextAndMoments) {
    EXPECT_EQ(tool::parseMonthDayYear("03/11/2015 08:42:40"),
              std::optional<std::time_t>(0x55000000));
    EXPECT_EQ(tool::parseMonthDayYear("Unspecified"), std::nullopt);
    EXPECT_EQ(tool::utcTimeText(0x55000000), "2015-03-11 08:42:40 UTC");
    EXPECT_EQ(tool::parseUserTime("2015-03-11 08:42:40"), 0x55000000);
    EXPECT_EQ(tool::parseUserTime("2015-03-11"), 0x55000000 - (8 * 3600 + 42 * 60 + 40));
    EXPECT_THROW(tool::parseUserTime("yesterday"), tool::UsageError);
    setenv("TZ", "UTC", 1);
    tzset();
    EXPECT_EQ(tool::monthDayYearLocalText(0x55000000), "03/11/2015 08:42:40");
}

}  // namespace
