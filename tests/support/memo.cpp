#include "support/memo.h"

namespace test {

Bytes Le32(uint32_t value) {
    Bytes bytes;
    for (int i = 0; i < 4; i++) bytes += static_cast<char>(value >> 8 * i);
    return bytes;
}

Bytes Be32(uint32_t value) {
    Bytes bytes = Le32(value);
    return {bytes.rbegin(), bytes.rend()};
}

uint32_t FromLe32(const Bytes& bytes, size_t offset) {
    uint32_t value = 0;
    for (size_t i = 0; i < 4; i++) value |= uint32_t{static_cast<uint8_t>(bytes.at(offset + i))} << 8 * i;
    return value;
}

std::string LongName(const std::string& name, size_t length) {
    std::string steps;
    while (steps.size() + name.size() + 2 <= length) steps += "./";
    return steps + std::string(length - steps.size() - name.size(), '/') + name;
}

std::string Text(size_t length, unsigned seed) {
    std::string text;
    for (size_t i = 0; i < length; i++) text += static_cast<char>('A' + (i * 7 + i / 26 + seed * 5) % 57);
    return text;
}

namespace {

std::string Taken(int32_t code, void* text) {
    if (code < 0) return text ? "<not null>" : "<" + std::to_string(code) + ">";
    std::string copy = static_cast<char*>(text);
    EXPECT_EQ(ZBMFREE(text), 0);
    return copy;
}

}  // namespace

int16_t DbtTest::Make(int dialect, int multiplier, const char* path) {
    EXPECT_EQ(ZBDTCREATEX(path, static_cast<int16_t>(multiplier), static_cast<int16_t>(dialect)), 0);
    return Open(dialect, path);
}

int16_t DbtTest::Open(int mode, const char* path) {
    int16_t memo = -2;
    EXPECT_EQ(ZBDTOPENX(&memo, path, static_cast<uint16_t>(mode)), 0);
    return memo;
}

int32_t DbtTest::Put(int16_t memo, const std::string& text, int width) {
    int32_t block = -7;
    ZBDTRPUT(memo, &block, text.c_str(), static_cast<uint16_t>(ZB_MemoNew | width));
    return block;
}

int32_t DbtTest::Replace(int16_t memo, int32_t block, const std::string& text, int width) {
    ZBDTRPUT(memo, &block, text.c_str(), static_cast<uint16_t>(ZB_MemoReplace | width));
    return block;
}

std::string DbtTest::Get(int16_t memo, int32_t block, int16_t option) {
    void* text = this;
    int32_t code = ZBDTRGET(memo, block, &text, option);
    return Taken(code, text);
}

int16_t FptTest::Make(int size, const char* path) {
    EXPECT_EQ(ZBDWCREATE(path, static_cast<int16_t>(size)), 0);
    return Open(0, path);
}

int16_t FptTest::Open(int mode, const char* path) {
    int16_t memo = -2;
    EXPECT_EQ(ZBDWOPENX(&memo, path, static_cast<uint16_t>(mode)), 0);
    return memo;
}

int32_t FptTest::Put(int16_t memo, const std::string& text) {
    int32_t block = -7;
    ZBDWRPUT(memo, &block, text.c_str(), ZB_MemoNew);
    return block;
}

int32_t FptTest::Replace(int16_t memo, int32_t block, const std::string& text) {
    ZBDWRPUT(memo, &block, text.c_str(), ZB_MemoReplace);
    return block;
}

std::string FptTest::Get(int16_t memo, int32_t block) {
    void* text = this;
    int32_t code = ZBDWRGET(memo, block, &text);
    return Taken(code, text);
}

}  // namespace test
