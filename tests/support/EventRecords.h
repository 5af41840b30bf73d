// Records for rendering tests, written the way they appear in a SEL and an SDR repository.
#pragma once

#include <array>
#include <cstring>
#include <initializer_list>
#include <string>
#include <utility>

#include "RawPETEntry.h"
#include "RawSDR.h"
#include "RawSelEntry.h"

namespace sim {

// A SEL record from its 16 bytes.
inline RawSelEntry selEntry(const std::array<unsigned char, 16>& bytes) {
    RawSelEntry entry;
    std::memcpy(&entry, bytes.data(), sizeof entry);
    return entry;
}

// What RawSDR keeps of a sensor record: the given positions set, the ID string from position 48.
inline RawSDR sdrImage(std::initializer_list<std::pair<int, unsigned char>> positions,
                       const std::string& id) {
    RawSDR sdr;
    for (const auto& [position, value] : positions) sdr.bytes[position] = value;
    std::memcpy(sdr.bytes + 48, id.data(), std::min<std::size_t>(id.size(), 16));
    return sdr;
}

// The filter that matched a record, of which rendering reads only the event severity.
inline RawPETEntry filterWithSeverity(unsigned char severity) {
    RawPETEntry pet{};
    pet.eventSeverity = severity;
    return pet;
}

}  // namespace sim
