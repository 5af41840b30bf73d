// The first 64 bytes of a sensor data record, laid out as a full sensor record (SDR type 01h,
// IPMI v2.0 table 43-1): position p holds record byte p. Only the stretches the event renderer
// needs are read from the BMC, in three partial Get SDR reads; every other byte stays zero.
#pragma once

#include <vector>

struct RawSDR {
    static constexpr unsigned size = 64;
    unsigned char bytes[size];

    RawSDR();

    // Each fill takes a Get SDR response: bytes 0-1 are the next record ID, record bytes follow.
    // A short response fills only what it holds; nothing is written past position 63.
    void setFirstPartValues(const std::vector<unsigned char>& response);   // record bytes 0-9
    void setSecondPartValues(const std::vector<unsigned char>& response);  // record bytes 20-29
    // The ID string type/length byte to position 47, then the ID string from position 48.
    void setThirdPartValues(const std::vector<unsigned char>& response);
};
