// Bytes as hexadecimal text and back: the event log's traces, the auxiliary log's extended data
// and the follower's state file.
#pragma once

#include <cstddef>
#include <string>

namespace Tolmar {

enum class HexCase { Lower, Upper };

// Two digits a byte in `letters` case, each byte followed by `after`: "0a1bff", "0A 1B FF ".
std::string hexText(const unsigned char* bytes, std::size_t size, HexCase letters,
                    const char* after = "");

// The `size` bytes that exactly 2 * size digits in `letters` case stand for: a text is read back
// only in the form hexText wrote it. `bytes` is written only when the whole text fits.
bool bytesFromHex(const std::string& text, HexCase letters, unsigned char* bytes, std::size_t size);

}  // namespace Tolmar
