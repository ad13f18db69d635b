// Splits one fuzzer input into the arguments of a device operation. The layout is simple enough
// for make_corpus.py to write seeds in it: single bytes for small choices, and byte strings as
// a two-byte big-endian length followed by that many bytes (fewer when the input ends first).
// The last string of an operation takes whatever remains.
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

namespace softtoken::fuzz {

using Bytes = std::vector<unsigned char>;

class FuzzInput {
public:
    FuzzInput(const std::uint8_t* data, std::size_t size) : data_(data), size_(size) {}

    // The next byte, or 0 once the input is used up.
    std::uint8_t byte() { return offset_ < size_ ? data_[offset_++] : 0; }

    Bytes part() {
        std::size_t length = static_cast<std::size_t>(byte()) << 8;
        length |= byte();
        length = length < remaining() ? length : remaining();
        Bytes out(data_ + offset_, data_ + offset_ + length);
        offset_ += length;
        return out;
    }

    Bytes rest() {
        Bytes out(data_ + offset_, data_ + size_);
        offset_ = size_;
        return out;
    }

private:
    std::size_t remaining() const { return size_ - offset_; }

    const std::uint8_t* data_;
    std::size_t size_;
    std::size_t offset_ = 0;
};

}  // namespace softtoken::fuzz
