// Numbers in the bytes of files. Every access to a file's bytes goes through
// these, so that neither alignment nor the machine's byte order matters.
#pragma once

#include <bit>
#include <cstdint>
#include <cstring>

namespace zb {

inline uint16_t LoadLe16(const void* bytes) {
    auto* b = static_cast<const uint8_t*>(bytes);
    return static_cast<uint16_t>(b[0] | b[1] << 8);
}

inline uint32_t LoadLe32(const void* bytes) {
    auto* b = static_cast<const uint8_t*>(bytes);
    return b[0] | uint32_t{b[1]} << 8 | uint32_t{b[2]} << 16 | uint32_t{b[3]} << 24;
}

inline uint64_t LoadLe64(const void* bytes) {
    auto* b = static_cast<const uint8_t*>(bytes);
    return LoadLe32(b) | uint64_t{LoadLe32(b + 4)} << 32;
}

inline uint32_t LoadBe32(const void* bytes) {
    auto* b = static_cast<const uint8_t*>(bytes);
    return uint32_t{b[0]} << 24 | uint32_t{b[1]} << 16 | uint32_t{b[2]} << 8 | b[3];
}

inline uint64_t LoadBe64(const void* bytes) {
    auto* b = static_cast<const uint8_t*>(bytes);
    return uint64_t{LoadBe32(b)} << 32 | LoadBe32(b + 4);
}

inline void StoreLe16(void* bytes, uint16_t value) {
    auto* b = static_cast<uint8_t*>(bytes);
    b[0] = static_cast<uint8_t>(value);
    b[1] = static_cast<uint8_t>(value >> 8);
}

inline void StoreLe32(void* bytes, uint32_t value) {
    auto* b = static_cast<uint8_t*>(bytes);
    for (int i = 0; i < 4; i++) b[i] = static_cast<uint8_t>(value >> 8 * i);
}

inline void StoreLe64(void* bytes, uint64_t value) {
    auto* b = static_cast<uint8_t*>(bytes);
    for (int i = 0; i < 8; i++) b[i] = static_cast<uint8_t>(value >> 8 * i);
}

inline void StoreBe32(void* bytes, uint32_t value) {
    auto* b = static_cast<uint8_t*>(bytes);
    for (int i = 0; i < 4; i++) b[i] = static_cast<uint8_t>(value >> (24 - 8 * i));
}

inline void StoreBe64(void* bytes, uint64_t value) {
    auto* b = static_cast<uint8_t*>(bytes);
    for (int i = 0; i < 8; i++) b[i] = static_cast<uint8_t>(value >> (56 - 8 * i));
}

inline double LoadLeDouble(const void* bytes) { return std::bit_cast<double>(LoadLe64(bytes)); }

inline void StoreLeDouble(void* bytes, double value) { StoreLe64(bytes, std::bit_cast<uint64_t>(value)); }

}  // namespace zb
