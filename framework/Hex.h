// Bytes as hexadecimal text and back, for the framework's traces and the BMC key (K_g) given in
// hexadecimal.
#pragma once

#include <cstddef>
#include <string>

// Two upper-case digits a byte, `separator` between bytes: "0A 43".
std::string hexText(const unsigned char* bytes, std::size_t size, const char* separator = " ");

// The bytes an even number of hexadecimal digits of either case stand for, after an optional 0x
// or 0X. `out` is sized once, so a key leaves no copy behind; false, with `out` empty, for any
// other text.
bool bytesFromHex(const std::string& text, std::string& out);
