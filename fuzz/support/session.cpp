#include "support/session.h"

#include "expr/expr.h"
#include "file/handles.h"

namespace fuzz {

bool IsDocumented(int32_t code) {
    if (code != static_cast<int16_t>(code)) return false;
    if (code >= 0) return code <= 8 || code == 11;
    if (code >= -38) return code != -11;
    if (code >= -59) return code == -40 || code == -44 || code <= -46;
    if (code == -5000 || code == -5001) return true;
    return (code & 0xC000) == 0xC000 && (code & 0x3FFF) < 1000;
}

Session::Session() { ZBDINIT(100, 1); }

Session::~Session() {
    ZBESCODE(0);
    ZBDTERM();
    if (!mayLeaveFiles && platform.OpenFiles() != 0) Broken("a file is still open");
    platform.CloseAll();
    for (int i = 0; i < 100; i++) zb::FhmapDetach();
    // What outlives the library's stop is the table of blocks.
    static bool tableMade = false;
    size_t table = tableMade ? 0 : 2;
    tableMade = tableMade || platform.Allocations() > 0;
    if (!mayLeaveMemory && platform.Allocations() > table) Broken("memory is left allocated");
}

void Damage(FuzzInput& input, std::string& bytes) {
    unsigned count = input.Byte() & 15;
    for (unsigned i = 0; i < count; i++) {
        uint8_t how = input.Byte();
        size_t offset = input.Word();
        input.Byte();
        std::string value = input.Bytes(how & 0x20 ? 8 : 4);  // 8 hold several fields of a header
        if (bytes.empty()) continue;
        // Headers are what most depends on.
        size_t range = how & 1 && bytes.size() > 1024 ? 1024 : bytes.size();
        offset %= range;
        size_t length = std::min(how & 0x20 ? size_t{8} : size_t{1} + (how >> 1 & 3), value.size());
        for (size_t j = 0; j < length && offset + j < bytes.size(); j++) {
            auto& byte = bytes[offset + j];
            byte = how & 0x10 ? static_cast<char>(byte ^ value[j]) : value[j];
        }
        if (how & 0x80 && how & 0x40) bytes.resize(offset);
    }
}

std::string StartFile(FuzzInput& input, const std::string* seeds, size_t count) {
    uint8_t number = input.Byte();
    if (number == 0xFF) {
        size_t size = input.Word();
        return input.Bytes(size);
    }
    std::string bytes = seeds[number % count];
    Damage(input, bytes);
    return bytes;
}

}  // namespace fuzz
