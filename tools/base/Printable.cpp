#include "base/Printable.h"

namespace tool {

std::string printable(const std::string& text) {
    static const char kDigits[] = "0123456789ABCDEF";
    std::string out;
    out.reserve(text.size());
    for (const char c : text) {
        const auto byte = static_cast<unsigned char>(c);
        if (byte >= 0x20 && byte <= 0x7E) {
            out += c;
        } else {
            out += "\\x";
            out += kDigits[byte >> 4];
            out += kDigits[byte & 0x0F];
        }
    }
    return out;
}

}  // namespace tool
