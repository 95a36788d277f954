// Reads what the fuzzer made as a list of small decisions. When it is used up,
// everything that is asked for is zero.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string>

namespace fuzz {

class FuzzInput {
  public:
    FuzzInput(const uint8_t* data, size_t size) : at(data), end(data + size) {}

    bool Empty() const { return at == end; }
    size_t Left() const { return static_cast<size_t>(end - at); }

    uint8_t Byte() { return at < end ? *at++ : uint8_t{0}; }
    uint16_t Word() {
        unsigned low = Byte();
        return static_cast<uint16_t>(low | unsigned{Byte()} << 8);
    }
    uint32_t Long() {
        uint32_t low = Word();
        return low | uint32_t{Word()} << 16;
    }
    double Double() {
        uint64_t bits = Long();
        bits |= uint64_t{Long()} << 32;
        double value;
        memcpy(&value, &bits, sizeof value);
        return value;
    }

    // Below `count`, which isn't 0.
    unsigned Pick(unsigned count) { return Byte() % count; }

    // Mostly a small number, and sometimes any.
    uint32_t Number() {
        uint8_t first = Byte();
        if (first < 0xF0) return first;
        return first < 0xF8 ? Word() : Long();
    }

    std::string Bytes(size_t count) {
        count = std::min(count, Left());
        std::string bytes(reinterpret_cast<const char*>(at), count);
        at += count;
        return bytes;
    }
    // As long as its first byte says; no zeros in it.
    std::string Text(size_t longest = 255) {
        std::string text = Bytes(std::min<size_t>(Byte(), longest));
        return text.substr(0, text.find('\0'));
    }
    std::string Rest() { return Bytes(Left()); }

  private:
    const uint8_t* at;
    const uint8_t* end;
};

}  // namespace fuzz
