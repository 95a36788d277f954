#include "text.h"

#include <iconv.h>
#include <wchar.h>

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <cstdio>
#include <fstream>

#include "failure.h"
#include "files.h"
#include "terminal.h"
#include "zb.h"

namespace tool {
namespace {

constexpr std::string_view kReplacement = "\xEF\xBF\xBD";
const iconv_t kNone = reinterpret_cast<iconv_t>(-1);

struct Language {
    uint8_t byte;
    const char* encoding;
};

// The language byte at header offset 29.
constexpr Language kLanguages[] = {
    {0x01, "CP437"},
    {0x02, "CP850"},
    {0x03, "CP1252"},
    {0x04, "MACINTOSH"},
    {0x08, "CP865"},
    {0x09, "CP437"},
    {0x0A, "CP850"},
    {0x0B, "CP437"},
    {0x0D, "CP437"},
    {0x0E, "CP850"},
    {0x0F, "CP437"},
    {0x10, "CP850"},
    {0x11, "CP437"},
    {0x12, "CP850"},
    {0x13, "CP932"},
    {0x14, "CP850"},
    {0x15, "CP437"},
    {0x16, "CP850"},
    {0x17, "CP865"},
    {0x18, "CP437"},
    {0x19, "CP437"},
    {0x1A, "CP850"},
    {0x1B, "CP437"},
    {0x1C, "CP863"},
    {0x1D, "CP850"},
    {0x1F, "CP852"},
    {0x22, "CP852"},
    {0x23, "CP852"},
    {0x24, "CP860"},
    {0x25, "CP850"},
    {0x26, "CP866"},
    {0x37, "CP850"},
    {0x40, "CP852"},
    {0x4D, "CP936"},
    {0x4E, "CP949"},
    {0x4F, "CP950"},
    {0x50, "CP874"},
    {0x57, "CP1252"},
    {0x58, "CP1252"},
    {0x59, "CP1252"},
    {0x64, "CP852"},
    {0x65, "CP866"},
    {0x66, "CP865"},
    {0x67, "CP861"},
    {0x6A, "CP737"},
    {0x6B, "CP857"},
    {0x6C, "CP863"},
    {0x78, "CP950"},
    {0x79, "CP949"},
    {0x7A, "CP936"},
    {0x7B, "CP932"},
    {0x7C, "CP874"},
    {0x7D, "CP1255"},
    {0x7E, "CP1256"},
    {0x86, "CP737"},
    {0x87, "CP852"},
    {0x88, "CP857"},
    {0x96, "MAC-CYRILLIC"},
    {0x97, "MAC-CENTRALEUROPE"},
    {0xC8, "CP1250"},
    {0xC9, "CP1251"},
    {0xCA, "CP1254"},
    {0xCB, "CP1253"},
    {0xCC, "CP1257"},
};

const char* LanguageEncoding(uint8_t byte) {
    for (const Language& language : kLanguages)
        if (language.byte == byte) return language.encoding;
    return nullptr;
}

// Those above, and UTF-8: the system has them, and bytes below 128 stand for
// themselves in all of them.
bool IsUsual(const std::string& name) {
    if (name == "UTF-8") return true;
    return std::any_of(std::begin(kLanguages), std::end(kLanguages),
                       [&](const Language& language) { return name == language.encoding; });
}

bool Known(const std::string& name) {
    if (name == "raw" || IsUsual(name)) return true;
    iconv_t converter = iconv_open("UTF-8", name.c_str());
    if (converter == kNone) return false;
    iconv_close(converter);
    return true;
}

std::string FirstLine(const std::string& path) {
    std::ifstream file(path);
    std::string line;
    std::getline(file, line);
    if (line.rfind("\xEF\xBB\xBF", 0) == 0) line.erase(0, 3);
    return line;
}

std::string Hex(uint8_t byte) {
    char text[8];
    std::snprintf(text, sizeof text, "0x%02X", byte);
    return text;
}

void AppendEscapedByte(unsigned char byte, std::string& out) {
    char text[8];
    std::snprintf(text, sizeof text, "\\x%02X", byte);
    out += text;
}

// The length of the UTF-8 sequence at the start of `text`, and its character;
// a byte that starts none counts as one of itself.
size_t TakeCharacter(std::string_view text, uint32_t& character) {
    auto byte = [&](size_t index) { return static_cast<unsigned char>(text[index]); };
    unsigned char first = byte(0);
    size_t length = first < 0x80 ? 1 : first >= 0xF0 ? 4 : first >= 0xE0 ? 3 : first >= 0xC0 ? 2 : 1;
    character = first;
    if (length == 1 || length > text.size()) return 1;
    character = first & (0xFFu >> (length + 1));
    for (size_t index = 1; index < length; ++index) {
        if ((byte(index) & 0xC0) != 0x80) {
            character = first;
            return 1;
        }
        character = character << 6 | (byte(index) & 0x3F);
    }
    return length;
}

bool IsPlain(std::string_view text) {
    return std::all_of(text.begin(), text.end(), [](char c) { return static_cast<unsigned char>(c) < 0x80; });
}

// One pass of iconv over all of `in`; `bad` says what to append for what stops
// it and how many bytes that takes.
template <typename Bad>
bool Convert(iconv_t converter, std::string_view in, std::string& out, Bad bad) {
    bool whole = true;
    iconv(converter, nullptr, nullptr, nullptr, nullptr);
    char* from = const_cast<char*>(in.data());
    size_t left = in.size();
    char room[1024];
    for (;;) {
        char* to = room;
        size_t space = sizeof room;
        size_t result = iconv(converter, left ? &from : nullptr, &left, &to, &space);
        int reason = errno;
        out.append(room, sizeof room - space);
        if (result != static_cast<size_t>(-1)) {
            if (left == 0 && from == nullptr) return whole;
            if (left == 0) from = nullptr;  // once more, for what the converter keeps back
            continue;
        }
        if (reason == E2BIG) continue;
        whole = false;
        if (left == 0) return false;
        size_t taken = std::min(bad(std::string_view(from, left)), left);
        from += taken;
        left -= taken;
    }
}

}  // namespace

std::string NormalName(std::string_view given) {
    std::string name;
    for (char c : given)
        if (c != ' ' && c != '\t' && c != '\r' && c != '\n' && c != '"')
            name += static_cast<char>(std::toupper(static_cast<unsigned char>(c)));
    if (name == "RAW") return "raw";
    if (name.rfind("ANSI", 0) == 0 && name.size() > 4 && std::isdigit(static_cast<unsigned char>(name[4])))
        name.erase(0, 4);
    if (name.rfind("OEM", 0) == 0) name.erase(0, 3);
    std::string number = name.rfind("CP", 0) == 0 ? name.substr(2) : name;
    if (name.rfind("ISO", 0) == 0) {
        std::string digits;
        for (char c : name)
            if (std::isdigit(static_cast<unsigned char>(c))) digits += c;
        if (digits.rfind("8859", 0) == 0 && digits.size() > 4) return "ISO-8859-" + digits.substr(4);
    }
    if (number == "65001" || name == "UTF8") return "UTF-8";
    if (number == "10000") return "MACINTOSH";
    if (number == "10007") return "MAC-CYRILLIC";
    if (number == "10029") return "MAC-CENTRALEUROPE";
    if (number.rfind("8859", 0) == 0 && number.size() > 4) return "ISO-8859-" + number.substr(4);
    if (number.rfind("2859", 0) == 0 && number.size() == 5) return "ISO-8859-" + number.substr(4);
    if (!number.empty() && IsPlain(number) && std::all_of(number.begin(), number.end(), ::isdigit))
        return "CP" + number;
    return name;
}

Encoding ChooseEncoding(const std::string& wanted, uint8_t languageByte, const std::string& tablePath) {
    if (!wanted.empty()) {
        std::string name = NormalName(wanted);
        if (!Known(name)) throw Failure(Exit::usage, "--encoding " + wanted + ": there is no such encoding");
        return {name, "as asked for"};
    }
    std::string unknown;
    if (const char* name = LanguageEncoding(languageByte)) {
        if (Known(name)) return {name, "language byte " + Hex(languageByte)};
    }
    if (languageByte != 0) unknown = "language byte " + Hex(languageByte) + " isn't known; ";
    if (auto cpg = FindSibling(tablePath, ".cpg")) {
        std::string line = FirstLine(*cpg);
        std::string name = NormalName(line);
        if (!name.empty() && name != "raw" && Known(name)) return {name, unknown + "from " + *cpg};
        return {"CP1252", unknown + *cpg + " names no known encoding; the default"};
    }
    if (languageByte == 0) unknown = "no language byte, ";
    return {"CP1252", unknown + "no .cpg file; the default"};
}

void StateEncoding(const std::string& tablePath, const Encoding& encoding) {
    if (encoding.name == "raw" || ChooseEncoding("", 0, tablePath).name == encoding.name) return;
    std::string name = FindSibling(tablePath, ".cpg").value_or(WithExtension(tablePath, ".cpg"));
    std::ofstream file(name);
    file << encoding.name << '\n';
    file.close();
    if (!file) throw CodeFailure(ZB_ErrWrite, name, "the text of " + tablePath + " is " + encoding.name);
    Say(name + ": written, to tell that the text of " + tablePath + " is " + encoding.name);
}

// Converters take time to open, and most texts need none.
Codec::Codec(const std::string& encoding, BadText badText)
    : name(encoding), policy(badText), isRaw(encoding == "raw"), asciiIsPlain(IsUsual(encoding)) {
    if (!isRaw && !asciiIsPlain) Start();
}

void Codec::Start() {
    if (started || isRaw) return;
    started = true;
    decoder = iconv_open("UTF-8", name.c_str());
    encoder = iconv_open(name.c_str(), "UTF-8");
    if (decoder == kNone || encoder == kNone)
        throw Failure(Exit::usage, name + ": there is no such encoding");
    byTable = FillTable();
}

Codec::~Codec() {
    if (!started) return;
    if (decoder != kNone) iconv_close(decoder);
    if (encoder != kNone) iconv_close(encoder);
}

bool Codec::singleByte() {
    Start();
    return byTable;
}

// Asks for each byte alone; a byte that only begins a character means that the
// encoding isn't one of single bytes.
bool Codec::FillTable() {
    bool single = true;
    asciiIsPlain = true;
    for (int value = 0; value < 256; ++value) {
        char byte = static_cast<char>(value);
        char* from = &byte;
        size_t left = 1;
        char room[16];
        char* to = room;
        size_t space = sizeof room;
        iconv(decoder, nullptr, nullptr, nullptr, nullptr);
        size_t result = iconv(decoder, &from, &left, &to, &space);
        if (result == static_cast<size_t>(-1) && errno == EINVAL) single = false;
        // Some converters hold a character back until they see the next one.
        iconv(decoder, nullptr, nullptr, &to, &space);
        std::string& character = characters[static_cast<size_t>(value)];
        if (result != static_cast<size_t>(-1)) character.assign(room, sizeof room - space);
        if (value < 128 && character != std::string(1, byte)) asciiIsPlain = false;
    }
    return single;
}

bool Codec::DecodeByTable(std::string_view bytes, std::string& out) const {
    bool whole = true;
    for (char byte : bytes) {
        const std::string& character = characters[static_cast<unsigned char>(byte)];
        if (!character.empty()) {
            out += character;
            continue;
        }
        whole = false;
        if (policy == BadText::escape)
            AppendEscapedByte(static_cast<unsigned char>(byte), out);
        else
            out += kReplacement;
    }
    return whole;
}

bool Codec::Decode(std::string_view bytes, std::string& out) {
    out.clear();
    if (isRaw || (asciiIsPlain && IsPlain(bytes))) {
        out.append(bytes);
        return true;
    }
    Start();
    bool whole;
    if (byTable) {
        whole = DecodeByTable(bytes, out);
    } else {
        whole = Convert(decoder, bytes, out, [&](std::string_view rest) -> size_t {
            if (policy == BadText::escape)
                AppendEscapedByte(static_cast<unsigned char>(rest[0]), out);
            else
                out += kReplacement;
            return 1;
        });
    }
    if (!whole && policy == BadText::refuse) out.clear();
    return whole;
}

bool Codec::Encode(std::string_view utf8, std::string& out) {
    out.clear();
    if (isRaw || (asciiIsPlain && IsPlain(utf8))) {
        out.append(utf8);
        return true;
    }
    Start();
    bool whole = Convert(encoder, utf8, out, [&](std::string_view rest) -> size_t {
        uint32_t character;
        size_t length = TakeCharacter(rest, character);
        if (policy == BadText::escape) {
            char text[16];
            std::snprintf(text, sizeof text, "\\u{%X}", character);
            out += text;
        } else {
            out += '?';
        }
        return length;
    });
    if (!whole && policy == BadText::refuse) out.clear();
    return whole;
}

size_t DisplayWidth(std::string_view utf8) {
    if (IsPlain(utf8)) return utf8.size();
    size_t width = 0;
    while (!utf8.empty()) {
        uint32_t character;
        utf8.remove_prefix(TakeCharacter(utf8, character));
        int columns = wcwidth(static_cast<wchar_t>(character));
        width += columns < 0 ? 1 : static_cast<size_t>(columns);
    }
    return width;
}

void AppendPrintable(std::string_view utf8, std::string& out) {
    for (size_t index = 0; index < utf8.size(); ++index) {
        auto byte = static_cast<unsigned char>(utf8[index]);
        bool highControl =
            byte == 0xC2 && index + 1 < utf8.size() && static_cast<unsigned char>(utf8[index + 1]) < 0xA0;
        if (highControl)
            AppendEscapedByte(static_cast<unsigned char>(utf8[++index]), out);
        else if (byte < 0x20 || byte == 0x7F)
            AppendEscapedByte(byte, out);
        else
            out += utf8[index];
    }
}

size_t WholeCharacters(std::string_view utf8, size_t limit) {
    if (utf8.size() <= limit) return utf8.size();
    while (limit > 0 && (static_cast<unsigned char>(utf8[limit]) & 0xC0) == 0x80) --limit;
    return limit;
}

}  // namespace tool
