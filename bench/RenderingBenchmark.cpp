// How fast the event builder renders a realistic event log: the sample server's SEL (threshold,
// discrete and sensor-specific events, OS stops, BIOS records; most with an SDR, some without)
// rendered the way the event log assembly does it, with 0 or 100 auxiliary entries in the list.
#include <benchmark/benchmark.h>

#include <algorithm>
#include <map>
#include <vector>

#include "IPMIExtendedSELDataEntry.h"
#include "IpmiEventBuilder.h"
#include "IpmiEventOperations.h"
#include "SampleServer.h"

namespace {

using Tolmar::IpmiEventBuilder;
using Tolmar::IPMIExtendedSELDataEntry;

// A Get SEL Entry or Get SDR response carrying the bytes from `first` to `last`.
template <typename Iterator>
std::vector<unsigned char> response(Iterator first, Iterator last) {
    std::vector<unsigned char> bytes(2 + std::distance(first, last), 0xFF);  // next ID 0xFFFF
    std::copy(first, last, bytes.begin() + 2);
    return bytes;
}

std::vector<RawSelEntry> sampleSel() {
    std::vector<RawSelEntry> sel;
    for (const bmcsim::SelRecord& record : bmcsim::sampleEventLog()) {
        RawSelEntry entry{};
        entry.setValues(response(record.begin(), record.end()));
        sel.push_back(entry);
    }
    return sel;
}

// The sensor records as the SDR walk keeps them: the three partial reads of each.
std::vector<RawSDR> sampleSdrs() {
    std::vector<RawSDR> sdrs;
    for (const bmcsim::SdrRecord& record : bmcsim::sampleSdrRepository()) {
        if (record[3] != 0x01 && record[3] != 0x02) continue;
        const std::size_t idStringPart = record[3] == 0x01 ? 47 : 31;
        RawSDR sdr;
        sdr.setFirstPartValues(response(record.begin(), record.begin() + 10));
        sdr.setSecondPartValues(response(record.begin() + 20, record.begin() + 30));
        sdr.setThirdPartValues(response(record.begin() + idStringPart, record.end()));
        sdrs.push_back(sdr);
    }
    return sdrs;
}

std::vector<IPMIExtendedSELDataEntry> auxiliaryEntries(int count) {
    std::vector<IPMIExtendedSELDataEntry> entries;
    for (int i = 0; i < count; ++i) {
        IPMIExtendedSELDataEntry entry;
        const int id = 1 + (i * 7) % 200;  // some belong to the sample records, most do not
        entry.SetSELRecordId(static_cast<unsigned char>(id), 0);
        entry.SetType(0x02);
        entry.SetSeverity(0x80);
        entry.SetSubclass(5);
        entry.SetClass(0);
        entry.SetExtendedData("0A 1B FF 00 12 34 ");
        entries.push_back(entry);
    }
    return entries;
}

void renderEventLog(benchmark::State& state) {
    const std::vector<RawSelEntry> sel = sampleSel();
    const std::vector<RawSDR> sdrs = sampleSdrs();
    const std::vector<IPMIExtendedSELDataEntry> aux = auxiliaryEntries(state.range(0));
    std::map<int, int> sdrMap;
    Tolmar::IpmiEventOperations::getSelSDRNumberMap(sel, sdrs, sdrMap);
    RawPETEntry filter{};
    filter.eventSeverity = 0x08;
    IpmiEventBuilder& builder = *IpmiEventBuilder::getIpmiEventBuilder();

    for (auto _ : state) {
        for (std::size_t i = 0; i < sel.size(); ++i) {
            const int s = sdrMap[static_cast<int>(i)];
            auto event = s != -1 ? builder.build(sel[i], sdrs[s], filter, aux)
                                 : builder.build(sel[i], filter, aux);
            benchmark::DoNotOptimize(event);
        }
    }
    state.SetItemsProcessed(static_cast<int64_t>(state.iterations() * sel.size()));
    state.counters["records_with_sdr"] = static_cast<double>(std::count_if(
        sdrMap.begin(), sdrMap.end(), [](const auto& entry) { return entry.second != -1; }));
    state.counters["records"] = static_cast<double>(sel.size());
}
BENCHMARK(renderEventLog)->Arg(0)->Arg(100)->ArgName("auxiliary_entries");

}  // namespace

BENCHMARK_MAIN();
