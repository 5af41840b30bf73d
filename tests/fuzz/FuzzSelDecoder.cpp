// SelDecoder over arbitrary SDRs and SEL records: up to eight SDRs of up to 255 bytes each (a
// length byte, then the record), then the 16 bytes of the SEL record decoded against them.
#include <array>

#include "FuzzInput.h"
#include "IpmiSelDecoding.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    fuzz::Input input(data, size);
    std::vector<std::vector<std::uint8_t>> sdrs(input.byte() % 9);
    for (std::vector<std::uint8_t>& sdr : sdrs) sdr = input.bytes(input.byte());
    std::array<std::uint8_t, 16> record;
    input.fill(record.data(), record.size());
    const Tolmar::DecodedSelRecord decoded = Tolmar::SelDecoder(std::move(sdrs)).decode(record);
    // Every record decodes to a line for a person.
    if (decoded.message.empty()) __builtin_trap();
    return 0;
}
