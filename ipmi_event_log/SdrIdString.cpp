#include "SdrIdString.h"

#include "ipmi/ByteReader.h"

namespace Tolmar {

namespace {

// Type/length byte: bits 7:6 the encoding, bits 4:0 the length in bytes.
constexpr std::uint8_t kLengthMask = 0x1F;
constexpr unsigned kTypeShift = 6;
enum Encoding : std::uint8_t { kUnicode = 0, kBcdPlus = 1, kSixBitAscii = 2, kLatin1 = 3 };

// BCD plus digits 0h-Fh: the decimal digits, then space, dash, period, colon, comma, underscore.
constexpr char kBcdPlusCharacters[] = "0123456789 -.:,_";

// Two characters a byte, the high nibble first.
std::string fromBcdPlus(const std::vector<std::uint8_t>& bytes) {
    std::string text;
    for (std::uint8_t byte : bytes) {
        text += kBcdPlusCharacters[byte >> 4];
        text += kBcdPlusCharacters[byte & 0x0F];
    }
    return text;
}

// Four 6-bit characters in three bytes, least significant bits first; each is its ASCII code
// minus 20h. A last partial character is padding, as are trailing spaces.
std::string fromSixBitAscii(const std::vector<std::uint8_t>& bytes) {
    constexpr unsigned kBitsPerCharacter = 6;
    constexpr char kAsciiBase = 0x20;
    std::string text;
    const std::size_t characters = bytes.size() * 8 / kBitsPerCharacter;
    for (std::size_t i = 0; i < characters; ++i) {
        const std::size_t bit = i * kBitsPerCharacter;
        unsigned pair = bytes[bit / 8];
        if (bit / 8 + 1 < bytes.size()) pair |= static_cast<unsigned>(bytes[bit / 8 + 1]) << 8;
        text += static_cast<char>(kAsciiBase + ((pair >> (bit % 8)) & 0x3F));
    }
    return text.erase(text.find_last_not_of(' ') + 1);
}

// ISO 8859-1 to UTF-8, ending at a NUL that pads the field.
std::string fromLatin1(const std::vector<std::uint8_t>& bytes) {
    std::string text;
    for (std::uint8_t byte : bytes) {
        if (byte == 0) break;
        if (byte < 0x80) {
            text += static_cast<char>(byte);
        } else {
            text += static_cast<char>(0xC0 | byte >> 6);
            text += static_cast<char>(0x80 | (byte & 0x3F));
        }
    }
    return text;
}

// Unicode: 16-bit characters, least significant byte first. Only the ASCII range is kept as
// text; other characters read as '?'.
std::string fromUnicode(const std::vector<std::uint8_t>& bytes) {
    std::string text;
    for (std::size_t i = 0; i + 1 < bytes.size(); i += 2) {
        const unsigned character = bytes[i] | bytes[i + 1] << 8;
        if (character == 0) break;
        text += character < 0x80 ? static_cast<char>(character) : '?';
    }
    return text;
}

}  // namespace

std::string sdrIdString(const std::vector<std::uint8_t>& record, std::size_t at) {
    ByteReader reader(record, at);
    const std::uint8_t typeLength = reader.u8();
    if (!reader.ok()) return "";
    std::vector<std::uint8_t> bytes(typeLength & kLengthMask);
    bytes.resize(reader.upTo(bytes.data(), bytes.size()));
    switch (typeLength >> kTypeShift) {
        case kBcdPlus:
            return fromBcdPlus(bytes);
        case kSixBitAscii:
            return fromSixBitAscii(bytes);
        case kLatin1:
            return fromLatin1(bytes);
        default:
            return fromUnicode(bytes);
    }
}

}  // namespace Tolmar
