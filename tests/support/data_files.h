// Data files for tests: field descriptions in a line, and a file made and opened.
#pragma once

#include <cstring>

#include "support/support.h"

namespace test {

inline ZbFieldSpec Spec(const std::string& name, int type, int width = 0, int decimals = 0) {
    ZbFieldSpec spec{};
    memcpy(spec.name, name.data(), std::min(name.size(), sizeof spec.name));
    spec.type = static_cast<uint16_t>(type);
    spec.width = static_cast<uint16_t>(width);
    spec.decimals = static_cast<uint16_t>(decimals);
    return spec;
}

using Specs = std::vector<ZbFieldSpec>;

// `count` fields called F0, F1, ...
inline Specs ManyFields(int count, int type, int width) {
    Specs specs;
    for (int i = 0; i < count; i++) specs.push_back(Spec("F" + std::to_string(i), type, width));
    return specs;
}

inline int32_t Create(const std::string& name, Specs specs, int mode) {
    return ZBDDCREATE(name.c_str(), static_cast<int16_t>(specs.size()), specs.data(),
                      static_cast<int16_t>(mode));
}

// The handle, or -1.
inline int16_t Open(const std::string& name, int mode) {
    uint16_t handle = 0xFFFF;
    EXPECT_EQ(ZBDDOPENX(&handle, name.c_str(), static_cast<uint16_t>(mode)), 0) << name;
    return static_cast<int16_t>(handle);
}

inline int16_t CreateAndOpen(const std::string& name, const Specs& specs, int mode) {
    EXPECT_EQ(Create(name, specs, mode), 0);
    return Open(name, mode & 0xFF);
}

// The record in memory, as bytes that can be changed.
inline char* RecordOf(int16_t data, size_t* length = nullptr) {
    ZbDataRecordInfo info{};
    EXPECT_EQ(ZBDDRINFO(data, &info), 0);
    if (length) *length = info.recordLength;
    return reinterpret_cast<char*>(info.buffer);
}

inline Bytes RecordBytes(int16_t data) {
    size_t length = 0;
    char* record = RecordOf(data, &length);
    return Bytes(record, length);
}

// Fills the record in memory, the delete flag included.
inline void SetRecord(int16_t data, const Bytes& bytes) {
    memcpy(RecordOf(data), bytes.data(), bytes.size());
}

// Appends the record in memory.
inline void Append(int16_t data) {
    uint32_t recordNo = 0;
    ASSERT_EQ(ZBDDRPUT(data, &recordNo, 0), 0);
}

}  // namespace test
