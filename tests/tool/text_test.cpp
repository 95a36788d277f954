// Text in its characters: which encoding a table has, and what becomes of bytes
// and characters that don't convert.
#include <nlohmann/json.hpp>

#include "tool.h"

namespace test {
namespace {

// One text field with these bytes.
void WriteText(const std::string& name, const Bytes& text, int language = 0) {
    WriteFile(name, Table({{"T", 'C', static_cast<int>(text.size())}}, {" " + text}, language));
}

std::string Shown(const std::string& name, const Arguments& more = {}) {
    Arguments arguments{"export", name, "--no-header"};
    arguments.insert(arguments.end(), more.begin(), more.end());
    return Zb(arguments).out;
}

std::string EncodingLine(const std::string& name) {
    std::string out = Zb({"info", name}).out;
    size_t start = out.find("encoding");
    return out.substr(start + 12, out.find('\n', start) - start - 12);
}

TEST_F(Tool, TheLanguageByteComesFirst) {
    WriteText("t.dbf", "\x82", 0x02);
    WriteFile("t.cpg", "1251\n");
    EXPECT_EQ(Shown("t.dbf"), "é\n");
    EXPECT_EQ(EncodingLine("t.dbf"), "CP850 (language byte 0x02)");
    WriteText("t.dbf", "\x8F\xE0\xA8", 0x65);
    EXPECT_EQ(Shown("t.dbf"), "При\n");
    WriteText("t.dbf", "\xC4\xE3", 0x4D);
    EXPECT_EQ(Shown("t.dbf"), "你\n");
}

TEST_F(Tool, ThenTheCpgFileWhateverItsCase) {
    WriteText("t.dbf", "\xCF\xF0\xE8");
    WriteFile("T.CPG", "ANSI 1251\r\n");
    EXPECT_EQ(Shown("t.dbf"), "При\n");
    EXPECT_EQ(EncodingLine("t.dbf"), "CP1251 (from T.CPG)");
}

TEST_F(Tool, ThenCp1252) {
    WriteText("t.dbf", "\x80\xE9");
    EXPECT_EQ(Shown("t.dbf"), "€é\n");
    EXPECT_EQ(EncodingLine("t.dbf"), "CP1252 (no language byte, no .cpg file; the default)");
    WriteText("t.dbf", "\xE9", 0xF0);
    EXPECT_EQ(EncodingLine("t.dbf"), "CP1252 (language byte 0xF0 isn't known; no .cpg file; the default)");
    WriteFile("t.cpg", "nonsense\n");
    EXPECT_EQ(EncodingLine("t.dbf"),
              "CP1252 (language byte 0xF0 isn't known; t.cpg names no known encoding; the default)");
}

TEST_F(Tool, TheOptionComesBeforeAll) {
    WriteText("t.dbf", "\x82", 0x03);
    EXPECT_EQ(Shown("t.dbf", {"--encoding", "cp437"}), "é\n");
    EXPECT_EQ(Shown("t.dbf", {"--encoding", "866"}), "В\n");
    EXPECT_EQ(Shown("t.dbf", {"--encoding", "raw"}), "\x82\n");
    Result wrong = Zb({"list", "t.dbf", "--encoding", "nonsense"});
    EXPECT_EQ(wrong.status, 2);
    EXPECT_EQ(wrong.err, "zb: --encoding nonsense: there is no such encoding\n");
}

TEST_F(Tool, RawBytesInJsonAreCharactersOfTheSameNumbers) {
    WriteText("t.dbf", "\x82\xC3\xA9");
    auto json = nlohmann::json::parse(Zb({"list", "t.dbf", "--json", "--encoding", "raw"}).out);
    EXPECT_EQ(json["T"], "\u0082é");
}

TEST_F(Tool, BytesThatDoNotConvertAreReplacedEscapedOrRefused) {
    WriteText("t.dbf", "a\x81z");
    Result replaced = Zb({"export", "t.dbf"});
    EXPECT_EQ(replaced.status, 0);
    EXPECT_EQ(replaced.out, "T\na\uFFFDz\n");
    EXPECT_EQ(replaced.err,
              "zb: t.dbf: 1 text isn't CP1252 (no language byte, no .cpg file; the default); the bytes in "
              "question are "
              "shown replaced (--encoding names another)\n");
    EXPECT_EQ(Shown("t.dbf", {"--bad-text", "escape"}), "a\\x81z\n");
    Result refused = Zb({"export", "t.dbf", "--bad-text", "refuse"});
    EXPECT_EQ(refused.status, 1);
    EXPECT_EQ(refused.out, "T\n\"\"\n");
}

TEST_F(Tool, AMultiByteCharacterCutAtTheFieldsEnd) {
    WriteText("t.dbf", "\xC4\xE3\xC4", 0x4D);
    EXPECT_EQ(Shown("t.dbf", {"--bad-text", "escape"}), "你\\xC4\n");
    WriteText("t.dbf", "\xC3\xA9\xC3");
    EXPECT_EQ(Shown("t.dbf", {"--encoding", "utf-8"}), "é\uFFFD\n");
}

TEST_F(Tool, FieldNamesAreTextToo) {
    WriteFile("t.dbf", Table({{"\x98\x80\x90", 'C', 1}}, {" x"}, 0x65));
    EXPECT_EQ(Zb({"list", "t.dbf"}).out, "#  ШАР\n1  x\n");
    EXPECT_EQ(Zb({"export", "t.dbf", "--fields", "ШАР"}).out, "ШАР\nx\n");
    EXPECT_EQ(Zb({"set", "t.dbf", "1", "ШАР=y"}).status, 0);
    EXPECT_EQ(Shown("t.dbf"), "y\n");
}

TEST_F(Tool, StoringUsesTheTablesEncoding) {
    WriteText("t.dbf", "     ", 0x02);
    EXPECT_EQ(Zb({"set", "t.dbf", "1", "T=Zoé"}).status, 0);
    EXPECT_EQ(ReadFile("t.dbf", 65, 6), " Zo\x82  ");
    Result lacking = Zb({"set", "t.dbf", "1", "T=中"});
    EXPECT_EQ(lacking.status, 1);
    EXPECT_EQ(
        lacking.err,
        "zb: t.dbf: ErrFieldValue (-33): a value that the field can't hold; T: '中' has characters that the "
        "table's encoding lacks; nothing was stored (--loose stores what fits)\n");
    EXPECT_EQ(ReadFile("t.dbf", 65, 6), " Zo\x82  ");
    EXPECT_EQ(Zb({"set", "t.dbf", "1", "T=a中", "--loose", "--bad-text", "replace"}).status, 0);
    EXPECT_EQ(ReadFile("t.dbf", 65, 6), " a?   ");
}

}  // namespace
}  // namespace test
