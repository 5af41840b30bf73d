#include "ResponseBytes.h"

#include <algorithm>
#include <cstring>

std::size_t copyResponseBytes(const std::vector<unsigned char>& response, std::size_t first,
                              unsigned char* out, std::size_t capacity) {
    if (first >= response.size()) return 0;
    const std::size_t count = std::min(capacity, response.size() - first);
    std::memcpy(out, response.data() + first, count);
    return count;
}
