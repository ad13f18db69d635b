// Reads one fuzzer input as a sequence of calls. Small choices are single bytes; numbers are
// four bytes, big-endian; byte strings carry their length in front: one byte below 0xF0, or
// 0xF0 to 0xFF followed by a second byte for lengths up to 4095 (the low four bits are the high
// part). make_corpus.py writes seeds in this layout. A used-up input reads as zeros and empty
// strings, so every call still gets arguments.
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

namespace modulefuzz {

using Bytes = std::vector<unsigned char>;

class CallInput {
public:
    CallInput(const std::uint8_t* data, std::size_t size) : data_(data), size_(size) {}

    bool done() const { return offset_ >= size_; }

    std::uint8_t byte() { return offset_ < size_ ? data_[offset_++] : 0; }

    std::uint32_t word() {
        std::uint32_t value = 0;
        for (int i = 0; i < 4; ++i) {
            value = (value << 8) | byte();
        }
        return value;
    }

    // One of `count` choices.
    std::size_t pick(std::size_t count) { return count == 0 ? 0 : byte() % count; }

    Bytes part() {
        std::size_t length = byte();
        if (length >= 0xF0) {
            length = ((length & 0x0F) << 8) | byte();
        }
        length = length < size_ - offset_ ? length : size_ - offset_;
        Bytes out(data_ + offset_, data_ + offset_ + length);
        offset_ += length;
        return out;
    }

private:
    const std::uint8_t* data_;
    std::size_t size_;
    std::size_t offset_ = 0;
};

}  // namespace modulefuzz
