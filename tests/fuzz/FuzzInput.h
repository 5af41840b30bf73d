// Reading a fuzz input as the parts of records: bounded reads that give zeros once it runs out.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string>
#include <vector>

namespace fuzz {

class Input {
public:
    Input(const std::uint8_t* data, std::size_t size) : data_(data), size_(size) {}

    bool empty() const { return offset_ >= size_; }
    std::uint8_t byte() { return empty() ? 0 : data_[offset_++]; }
    // Fills `out` with the next bytes, zeros past the input's end.
    void fill(void* out, std::size_t count) {
        if (count == 0) return;
        const std::size_t available = std::min(count, size_ - std::min(offset_, size_));
        if (available != 0) std::memcpy(out, data_ + offset_, available);
        std::memset(static_cast<std::uint8_t*>(out) + available, 0, count - available);
        offset_ += available;
    }
    std::vector<std::uint8_t> bytes(std::size_t count) {
        std::vector<std::uint8_t> out(std::min(count, size_ - std::min(offset_, size_)));
        fill(out.data(), out.size());
        return out;
    }
    std::string text(std::size_t count) {
        const std::vector<std::uint8_t> b = bytes(count);
        return std::string(b.begin(), b.end());
    }

private:
    const std::uint8_t* data_;
    std::size_t size_;
    std::size_t offset_ = 0;
};

}  // namespace fuzz
