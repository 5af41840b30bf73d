// Reads the fields of a message in order, least significant byte first as IPMI sends numbers.
// A read that runs past the end reads nothing and returns 0, and the reader stays failed from then
// on: a parser reads every field, then asks ok() once.
// Header-only and dependent on nothing but the standard library, so that the event log library and
// the framework's client below it share it.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <vector>

class ByteReader {
public:
    // The `size` bytes at `bytes`, from `offset` on; an offset past the end fails the reader.
    ByteReader(const unsigned char* bytes, std::size_t size, std::size_t offset = 0)
        : bytes_(bytes), size_(size), position_(offset), ok_(offset <= size) {}
    explicit ByteReader(const std::vector<unsigned char>& bytes, std::size_t offset = 0)
        : ByteReader(bytes.data(), bytes.size(), offset) {}

    std::uint8_t u8() { return static_cast<std::uint8_t>(number(1)); }
    std::uint16_t u16() { return static_cast<std::uint16_t>(number(2)); }
    // IANA enterprise numbers take three bytes.
    std::uint32_t u24() { return number(3); }
    std::uint32_t u32() { return number(4); }

    // The next `count` bytes to `out`, all of them or, when fewer remain, none.
    void bytes(unsigned char* out, std::size_t count) {
        const unsigned char* at = take(count);
        if (ok_) std::copy_n(at, count, out);
    }
    // The same into `out`, which is left as it was when fewer remain.
    void bytes(std::vector<unsigned char>& out, std::size_t count) {
        const unsigned char* at = take(count);
        if (ok_) out.assign(at, at + count);
    }
    // As many of the next bytes as remain, up to `most`, to `out`: a short message is no error
    // here. Returns how many were copied.
    std::size_t upTo(unsigned char* out, std::size_t most) {
        const std::size_t count = std::min(most, remaining());
        bytes(out, count);
        return count;
    }
    void skip(std::size_t count) { take(count); }

    // 0 once a read has failed.
    std::size_t remaining() const { return ok_ ? size_ - position_ : 0; }
    bool ok() const { return ok_; }

private:
    // Where the next `count` bytes are; the reader fails when fewer remain.
    const unsigned char* take(std::size_t count) {
        if (count > remaining()) ok_ = false;
        if (!ok_) return nullptr;
        const unsigned char* at = bytes_ + position_;
        position_ += count;
        return at;
    }

    std::uint32_t number(std::size_t count) {
        const unsigned char* at = take(count);
        std::uint32_t value = 0;
        for (std::size_t i = count; ok_ && i-- > 0;) value = value << 8 | at[i];
        return value;
    }

    const unsigned char* bytes_;
    std::size_t size_;
    std::size_t position_;
    bool ok_;
};
