// SelDecoder over arbitrary SDRs and SEL records: up to eight SDRs of up to 255 bytes each (a
// length byte, then the record), then the 16 bytes of the SEL record decoded against them, then
// whose BMC it is: nothing (the input ended, or 0), or one of the manufacturers whose OEM codes
// the decoder words, with a product ID from the next two bytes.
#include <array>
#include <iterator>

#include "FuzzInput.h"
#include "IpmiSelDecoding.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    fuzz::Input input(data, size);
    std::vector<std::vector<std::uint8_t>> sdrs(input.byte() % 9);
    for (std::vector<std::uint8_t>& sdr : sdrs) sdr = input.bytes(input.byte());
    std::array<std::uint8_t, 16> record;
    input.fill(record.data(), record.size());
    constexpr std::uint32_t manufacturers[] = {674, 343, 10876, 47488, 10437, 5593};
    const std::size_t maker = input.byte() % (std::size(manufacturers) + 1);
    const std::uint8_t productLow = input.byte();
    const std::uint16_t product = static_cast<std::uint16_t>(productLow | input.byte() << 8);
    const Tolmar::SelDecoder decoder =
        maker == 0 ? Tolmar::SelDecoder(std::move(sdrs))
                   : Tolmar::SelDecoder(std::move(sdrs), {manufacturers[maker - 1], product});
    const Tolmar::DecodedSelRecord decoded = decoder.decode(record);
    // Every record decodes to a line for a person.
    if (decoded.message.empty()) __builtin_trap();
    return 0;
}
