#include "RawSDR.h"

#include "ipmi/ByteReader.h"

namespace {

constexpr std::size_t kDataStart = 2;  // after the next record ID
constexpr std::size_t kPartLength = 10;
constexpr std::size_t kFirstPart = 0;    // record ID ... entity instance
constexpr std::size_t kSecondPart = 20;  // sensor units 1 ... R and B exponents
constexpr std::size_t kIdStringTypeLength = 47;

}  // namespace

RawSDR::RawSDR() : bytes{} {}

void RawSDR::setFirstPartValues(const std::vector<unsigned char>& response) {
    ByteReader(response, kDataStart).upTo(bytes + kFirstPart, kPartLength);
}

void RawSDR::setSecondPartValues(const std::vector<unsigned char>& response) {
    ByteReader(response, kDataStart).upTo(bytes + kSecondPart, kPartLength);
}

void RawSDR::setThirdPartValues(const std::vector<unsigned char>& response) {
    ByteReader(response, kDataStart).upTo(bytes + kIdStringTypeLength, size - kIdStringTypeLength);
}
