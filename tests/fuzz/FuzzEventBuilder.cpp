// IpmiEventBuilder::build over arbitrary SEL, SDR and filter bytes and auxiliary entries.
#include "FuzzInput.h"
#include "IpmiEventBuilder.h"
#include "Log.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    Log::SetMinLogLevel(0);
    fuzz::Input input(data, size);
    RawSelEntry sel;
    input.fill(&sel, sizeof sel);
    RawSDR sdr;
    input.fill(sdr.bytes, sizeof sdr.bytes);
    RawPETEntry pet;
    input.fill(&pet, sizeof pet);
    const bool withSdr = input.byte() & 1;
    std::vector<Tolmar::IPMIExtendedSELDataEntry> aux(input.byte() % 8);
    for (Tolmar::IPMIExtendedSELDataEntry& entry : aux) {
        unsigned char fields[26];
        input.fill(fields, sizeof fields);
        entry.SetSELRecordId(fields[0], fields[1]);
        entry.SetType(fields[2]);
        entry.SetSeverity(fields[3]);
        entry.SetOperation(fields + 4);
        entry.SetSubclass(fields[6]);
        entry.SetClass(fields[7]);
        entry.SetFRUInstance(fields + 8);
        entry.SetGUID(fields + 10);
        entry.SetExtendedData(input.text(input.byte()));
    }
    Tolmar::IpmiEventBuilder& builder = *Tolmar::IpmiEventBuilder::getIpmiEventBuilder();
    if (withSdr) {
        builder.build(sel, sdr, pet, aux);
    } else {
        builder.build(sel, pet, aux);
    }
    return 0;
}
