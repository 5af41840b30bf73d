#include "OemRecordDetails.h"

#include <cstdio>

namespace Tolmar {

namespace {

// Linux's panic record: byte 3 the IPMB address of the driver's interface, byte 4 the record's
// place in the panic text (from 0), bytes 5-15 eleven characters of the text, NUL padded.
constexpr std::uint8_t kLinuxKernelPanic = 0xF0;
// Places in the OEM bytes, which start at record byte 3.
constexpr std::size_t kPanicSequence = 1;
constexpr std::size_t kPanicText = 2;

// The panic text's characters, printable ASCII as they are, others as \xNN; up to a NUL.
std::string printable(const std::vector<std::uint8_t>& bytes, std::size_t from) {
    std::string text;
    for (std::size_t i = from; i < bytes.size() && bytes[i] != 0; ++i) {
        const std::uint8_t byte = bytes[i];
        if (byte >= 0x20 && byte < 0x7F && byte != '\\') {
            text += static_cast<char>(byte);
        } else {
            char escaped[8];
            std::snprintf(escaped, sizeof escaped, "\\x%02X", byte);
            text += escaped;
        }
    }
    return text;
}

}  // namespace

std::vector<std::string> oemRecordDetails(std::uint8_t recordType,
                                          const std::vector<std::uint8_t>& oemData) {
    if (recordType != kLinuxKernelPanic || oemData.size() <= kPanicText) return {};
    char label[48];
    std::snprintf(label, sizeof label, "Linux kernel panic text #%u = \"",
                  static_cast<unsigned>(oemData[kPanicSequence]));
    return {label + printable(oemData, kPanicText) + "\""};
}

}  // namespace Tolmar
