// Text in a table's encoding, to and from UTF-8.
#pragma once

#include <array>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

namespace tool {

// What becomes of bytes, or characters, that don't convert.
enum class BadText {
    replace,  // U+FFFD shown, ? stored
    escape,   // \x8F shown, \u{20AC} stored
    refuse,   // the value comes out empty, or isn't stored
};

// An encoding and why it is the one.
struct Encoding {
    std::string name;  // as iconv knows it, or "raw"
    std::string reason;
};

// `wanted` as the user gave it, or else what the table says about itself: its
// language byte, a .cpg file beside it, or CP1252 when it says nothing.
Encoding ChooseEncoding(const std::string& wanted, uint8_t languageByte, const std::string& tablePath);

// Writes a .cpg file beside a table that has no language byte, unless the table
// is taken for `encoding` without one.
void StateEncoding(const std::string& tablePath, const Encoding& encoding);

// "437", "cp437", "ANSI 1252", "utf8", "ISO 8859-1" as iconv calls them.
std::string NormalName(std::string_view name);

class Codec {
  public:
    Codec(const std::string& encoding, BadText policy);
    ~Codec();
    Codec(const Codec&) = delete;
    void operator=(const Codec&) = delete;

    bool raw() const { return isRaw; }
    bool singleByte();

    // Both replace `out` and tell whether all of the text converted. Where it
    // didn't, `out` holds what the policy makes of it, nothing when that is to refuse.
    bool Decode(std::string_view bytes, std::string& out);
    bool Encode(std::string_view utf8, std::string& out);

  private:
    void Start();
    bool FillTable();
    bool DecodeByTable(std::string_view bytes, std::string& out) const;

    std::string name;
    void* decoder = nullptr;
    void* encoder = nullptr;
    BadText policy;
    bool isRaw;
    bool started = false;
    bool asciiIsPlain;                        // bytes below 128 stand for themselves
    bool byTable = false;                     // one byte, one character
    std::array<std::string, 256> characters;  // empty: not a character
};

// Columns that the text takes on a terminal.
size_t DisplayWidth(std::string_view utf8);

// Appends `utf8` with its control characters made visible, for a table of text.
void AppendPrintable(std::string_view utf8, std::string& out);

// The length of the longest beginning of `utf8` of at most `limit` bytes that
// doesn't cut a character.
size_t WholeCharacters(std::string_view utf8, size_t limit);

}  // namespace tool
