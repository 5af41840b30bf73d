// Bounded access to the data bytes of an IPMI response (the bytes after the completion code).
// A BMC may answer with fewer bytes than a command defines; nothing here reads past them.
#pragma once

#include <cstddef>
#include <vector>

// Copies response bytes from position `first` on into `out`, at most `capacity` of them and never
// past the response's end. Returns how many were copied (0 when the response ends before `first`).
std::size_t copyResponseBytes(const std::vector<unsigned char>& response, std::size_t first,
                              unsigned char* out, std::size_t capacity);
