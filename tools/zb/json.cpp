#include "json.h"

#include <cstdio>

namespace tool {
namespace {

// The length of a well-formed UTF-8 sequence at the start of `text`, or 0.
size_t Sequence(std::string_view text) {
    auto byte = [&](size_t index) { return static_cast<unsigned char>(text[index]); };
    unsigned char first = byte(0);
    size_t length = first < 0x80                    ? 1
                    : first >= 0xC2 && first < 0xE0 ? 2
                    : first >= 0xE0 && first < 0xF0 ? 3
                    : first >= 0xF0 && first < 0xF5 ? 4
                                                    : 0;
    if (length > text.size()) return 0;
    for (size_t index = 1; index < length; ++index)
        if ((byte(index) & 0xC0) != 0x80) return 0;
    if (length < 3) return length;
    bool overlong = (first == 0xE0 && byte(1) < 0xA0) || (first == 0xF0 && byte(1) < 0x90);
    bool surrogate = first == 0xED && byte(1) >= 0xA0;
    bool beyond = first == 0xF4 && byte(1) >= 0x90;
    return overlong || surrogate || beyond ? 0 : length;
}

void AppendUnit(unsigned unit, std::string& out) {
    char text[8];
    std::snprintf(text, sizeof text, "\\u%04x", unit);
    out += text;
}

// The same number as JSON writes it: no plus sign, no zeros before the first
// digit, digits on both sides of a point.
void AppendNumber(std::string_view text, std::string& out) {
    if (text[0] == '-') out += '-';
    if (text[0] == '-' || text[0] == '+') text.remove_prefix(1);
    while (text.size() > 1 && text[0] == '0' && text[1] != '.') text.remove_prefix(1);
    if (text[0] == '.') out += '0';
    out += text;
    if (text.back() == '.') out += '0';
}

}  // namespace

void AppendJson(std::string_view text, std::string& out) {
    out += '"';
    while (!text.empty()) {
        size_t length = Sequence(text);
        auto first = static_cast<unsigned char>(text[0]);
        if (length == 0) {
            AppendUnit(first, out);
            length = 1;
        } else if (first == '"' || first == '\\') {
            out += '\\';
            out += text[0];
        } else if (first == '\n') {
            out += "\\n";
        } else if (first < 0x20 || first == 0x7F) {
            AppendUnit(first, out);
        } else {
            out += text.substr(0, length);
        }
        text.remove_prefix(length);
    }
    out += '"';
}

void AppendJson(const Value& value, std::string& out) {
    switch (value.kind) {
        case Kind::empty: out += "null"; return;
        case Kind::number: AppendNumber(value.text, out); return;
        case Kind::memo: out += value.text; return;
        case Kind::logical: out += value.text == "T" ? "true" : "false"; return;
        case Kind::unreadable:
            if (value.text.empty()) {
                out += "null";
                return;
            }
            break;
        case Kind::text:
        case Kind::date:
        case Kind::badText: break;
    }
    AppendJson(value.text, out);
}

}  // namespace tool
