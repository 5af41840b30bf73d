// The tool's hexadecimal text: raw SEL entries shown, entries to add and BMC keys read.
#pragma once

#include <cstddef>
#include <string>
#include <vector>

namespace tool {

// Two lower-case digits a byte, `separator` between bytes: "0200", "02 00".
std::string hexText(const unsigned char* bytes, std::size_t size, const char* separator = "");

// The bytes an even number of hexadecimal digits of either case stand for; false, with `bytes`
// left as it was, for any other text.
bool bytesFromHex(const std::string& digits, std::vector<unsigned char>& bytes);

}  // namespace tool
