#include "ManufacturerNames.h"

#include <algorithm>
#include <iterator>

namespace Tolmar {

namespace {

struct Manufacturer {
    std::uint32_t number;
    const char* name;
};

// From the IANA registry of private enterprise numbers, in increasing order. Short names: the
// registry's own carry legal suffixes and former names.
constexpr Manufacturer kManufacturers[] = {
    {2, "IBM"},
    {11, "Hewlett-Packard"},
    {42, "Sun Microsystems"},
    {232, "Compaq"},  // HPE's servers still use it
    {311, "Microsoft"},
    {343, "Intel"},
    {674, "Dell"},
    {4128, "ARM"},
    {5593, "Magnum Technologies"},
    {5771, "Cisco"},
    {6569, "Inventec"},
    {7244, "Quanta"},
    {10368, "Fujitsu"},
    {10437, "Peppercon"},
    {10876, "Supermicro"},
    {15000, "Kontron"},
    {15370, "Gigabyte"},
    {19046, "Lenovo"},
    {20301, "IBM eServer X"},
    {20569, "Inventec Enterprise System"},
    {40981, "Facebook"},
};

}  // namespace

std::optional<std::string> manufacturerName(std::uint32_t enterpriseNumber) {
    const auto found = std::lower_bound(
        std::begin(kManufacturers), std::end(kManufacturers), enterpriseNumber,
        [](const Manufacturer& entry, std::uint32_t number) { return entry.number < number; });
    if (found == std::end(kManufacturers) || found->number != enterpriseNumber) return std::nullopt;
    return std::string(found->name);
}

}  // namespace Tolmar
