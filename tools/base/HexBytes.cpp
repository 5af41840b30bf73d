#include "base/HexBytes.h"

#include <cstdio>

namespace tool {

std::string hexText(const unsigned char* bytes, std::size_t size, const char* separator) {
    std::string text;
    for (std::size_t i = 0; i < size; ++i) {
        char pair[3];
        std::snprintf(pair, sizeof pair, "%02x", bytes[i]);
        if (i != 0) text += separator;
        text += pair;
    }
    return text;
}

bool bytesFromHex(const std::string& digits, std::vector<unsigned char>& bytes) {
    if (digits.size() % 2 != 0 ||
        digits.find_first_not_of("0123456789abcdefABCDEF") != std::string::npos) {
        return false;
    }
    bytes.clear();
    for (std::size_t i = 0; i < digits.size(); i += 2) {
        bytes.push_back(static_cast<unsigned char>(std::stoul(digits.substr(i, 2), nullptr, 16)));
    }
    return true;
}

}  // namespace tool
