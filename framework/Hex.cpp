#include "Hex.h"

namespace {

// The value of a hexadecimal digit, or -1.
int digitValue(char digit) {
    if (digit >= '0' && digit <= '9') return digit - '0';
    if (digit >= 'a' && digit <= 'f') return digit - 'a' + 10;
    if (digit >= 'A' && digit <= 'F') return digit - 'A' + 10;
    return -1;
}

}  // namespace

std::string hexText(const unsigned char* bytes, std::size_t size, const char* separator) {
    static const char digits[] = "0123456789ABCDEF";
    std::string text;
    for (std::size_t i = 0; i < size; ++i) {
        if (i != 0) text += separator;
        text += digits[bytes[i] >> 4];
        text += digits[bytes[i] & 0x0F];
    }
    return text;
}

bool bytesFromHex(const std::string& text, std::string& out) {
    out.clear();
    const std::size_t first = text.rfind("0x", 0) == 0 || text.rfind("0X", 0) == 0 ? 2 : 0;
    const std::size_t digits = text.size() - first;
    if (digits % 2 != 0) return false;
    for (std::size_t i = first; i < text.size(); ++i) {
        if (digitValue(text[i]) < 0) return false;
    }
    out.assign(digits / 2, '\0');
    for (std::size_t i = 0; i < out.size(); ++i) {
        const std::size_t at = first + 2 * i;
        out[i] = static_cast<char>(digitValue(text[at]) << 4 | digitValue(text[at + 1]));
    }
    return true;
}
