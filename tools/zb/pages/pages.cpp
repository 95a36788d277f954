#include "pages/pages.h"

#include <cstdarg>
#include <cstdio>
#include <fstream>
#include <iterator>

namespace pages {
namespace {

uint32_t ByteAt(std::string_view bytes, size_t at) {
    return at < bytes.size() ? static_cast<unsigned char>(bytes[at]) : 0;
}

}  // namespace

uint16_t Le16(std::string_view bytes, size_t at) {
    return static_cast<uint16_t>(ByteAt(bytes, at) | ByteAt(bytes, at + 1) << 8);
}

uint32_t Le32(std::string_view bytes, size_t at) {
    return Le16(bytes, at) | static_cast<uint32_t>(Le16(bytes, at + 2)) << 16;
}

uint32_t Be32(std::string_view bytes, size_t at) {
    return ByteAt(bytes, at) << 24 | ByteAt(bytes, at + 1) << 16 | ByteAt(bytes, at + 2) << 8 |
           ByteAt(bytes, at + 3);
}

std::string Load(const std::string& file) {
    std::ifstream in(file, std::ios::binary);
    if (!in) throw std::runtime_error(file + " can't be read");
    return {std::istreambuf_iterator<char>(in), {}};
}

std::string Text(const char* format, ...) {
    char text[512];
    va_list values;
    va_start(values, format);
    vsnprintf(text, sizeof text, format, values);
    va_end(values);
    return text;
}

}  // namespace pages
