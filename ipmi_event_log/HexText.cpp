#include "HexText.h"

#include <cstring>

namespace Tolmar {

namespace {

const char* digitsIn(HexCase letters) {
    return letters == HexCase::Upper ? "0123456789ABCDEF" : "0123456789abcdef";
}

}  // namespace

std::string hexText(const unsigned char* bytes, std::size_t size, HexCase letters,
                    const char* after) {
    const char* digits = digitsIn(letters);
    std::string text;
    text.reserve(size * (2 + std::strlen(after)));
    for (std::size_t i = 0; i < size; ++i) {
        text += digits[bytes[i] >> 4];
        text += digits[bytes[i] & 0x0F];
        text += after;
    }
    return text;
}

bool bytesFromHex(const std::string& text, HexCase letters, unsigned char* bytes,
                  std::size_t size) {
    const char* digits = digitsIn(letters);
    if (text.size() != 2 * size || text.find_first_not_of(digits) != std::string::npos) {
        return false;
    }
    const auto value = [&](std::size_t at) { return std::strchr(digits, text[at]) - digits; };
    for (std::size_t i = 0; i < size; ++i) {
        bytes[i] = static_cast<unsigned char>(value(2 * i) << 4 | value(2 * i + 1));
    }
    return true;
}

}  // namespace Tolmar
