// Memo text through the tool: shown, imported, put and packed.
#include "tool.h"

namespace test {
namespace {

Bytes Padded(Bytes bytes, size_t length) {
    bytes.resize(length);
    return bytes;
}

std::string Pointer(const std::string& digits) { return std::string(10 - digits.size(), ' ') + digits; }

// Two fields, NAME and the memo field NOTE, and one record for each number.
Bytes Notes(int version, const std::vector<std::string>& numbers, int language = 0) {
    std::vector<std::string> records;
    for (const std::string& number : numbers) records.push_back(" ab" + Pointer(number));
    return Table({{"NAME", 'C', 2}, {"NOTE", 'M', 10}}, records, language, version);
}

// A terminated memo file: each text in a block of its own.
Bytes Terminated(const std::vector<std::string>& texts) {
    Bytes file = Padded({static_cast<char>(texts.size() + 1)}, 512);
    for (const std::string& text : texts) file += Padded(text + "\x1A\x1A", 512);
    return file;
}

const Bytes kCountedHead =
    Padded(Hex("02 00 00 00 00 00 00 00 4E 00 00 00 00 00 00 00 00 00 02 01 00 02"), 512);
const Bytes kFptHead = Padded(Hex("00 00 00 09 00 00 00 40"), 512);

TEST_F(Tool, MemoTextIsShownInEveryLayout) {
    WriteFile("t.dbf", Notes(0x83, {"1", ""}));
    WriteFile("t.DbT", Terminated({"Hello"}));
    EXPECT_EQ(Zb({"export", "t.dbf"}).out, "NAME,NOTE\nab,Hello\nab,\n");
    WriteFile("c.dbf", Notes(0x8B, {"1"}));
    WriteFile("c.dbt", kCountedHead + Padded(Hex("FF FF 08 00 0D 00 00 00") + "there", 512));
    EXPECT_EQ(Zb({"export", "c.dbf"}).out, "NAME,NOTE\nab,there\n");
    WriteFile("f.dbf", Notes(0xF5, {"8"}));
    WriteFile("F.FPT", kFptHead + Padded(Hex("00 00 00 01 00 00 00 03") + "fox", 64));
    EXPECT_EQ(Zb({"export", "f.dbf"}).out, "NAME,NOTE\nab,fox\n");
    EXPECT_EQ(Zb({"list", "f.dbf", "--json"}).out, "{\"_record\":1,\"NAME\":\"ab\",\"NOTE\":\"fox\"}\n");
}

TEST_F(Tool, MemoOptionsNameAnotherFileOrNone) {
    WriteFile("t.dbf", Notes(0x83, {"1"}));
    WriteFile("other.dbt", Terminated({"elsewhere"}));
    Result other = Zb({"export", "t.dbf", "--memo", "other.dbt"});
    EXPECT_EQ(other.out, "NAME,NOTE\nab,elsewhere\n");
    EXPECT_EQ(other.err, "");
    Result none = Zb({"list", "t.dbf", "--json", "--no-memo"});
    EXPECT_EQ(none.out, "{\"_record\":1,\"NAME\":\"ab\",\"NOTE\":1}\n");
    EXPECT_EQ(none.err, "");
}

TEST_F(Tool, AMissingMemoFileIsToldOnceAndStopsNothing) {
    WriteFile("t.dbf", Notes(0x83, {"1", "2"}));
    Result result = Zb({"export", "t.dbf"});
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(result.out, "NAME,NOTE\nab,\nab,\n");
    EXPECT_EQ(result.err,
              "zb: t.dbf: there is no memo file t.dbt, memos are shown empty "
              "(--no-memo shows the numbers of memo fields, --memo names a file)\n");
    EXPECT_EQ(Zb({"export", "t.dbf", "--fields", "NAME"}).err, "");
    EXPECT_EQ(Zb({"export", "t.dbf", "--bad-values", "raw"}).out, "NAME,NOTE\nab,1\nab,2\n");
}

TEST_F(Tool, DamagedMemosAreCountedAndToldAtTheEnd) {
    WriteFile("t.dbf", Notes(0x83, {"1", "77", "9999999999", "1"}));
    WriteFile("t.dbt", Terminated({"fine"}));
    Result result = Zb({"export", "t.dbf"});
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(result.out, "NAME,NOTE\nab,fine\nab,\nab,\nab,fine\n");
    EXPECT_EQ(result.err.rfind("zb: t.dbf: 2 memos can't be read, shown empty; the first in record 2: ", 0),
              0u)
        << result.err;
    EXPECT_EQ(Zb({"export", "t.dbf", "--bad-values", "raw"}).out,
              "NAME,NOTE\nab,fine\nab,77\nab,9999999999\nab,fine\n");
    WriteFile("t.dbt", "short");
    Result broken = Zb({"export", "t.dbf"});
    EXPECT_EQ(broken.status, 0);
    EXPECT_EQ(broken.out, "NAME,NOTE\nab,\nab,\nab,\nab,\n");
    EXPECT_NE(broken.err.find("ErrMemoShort"), std::string::npos) << broken.err;
}

TEST_F(Tool, AListCutsMemosToALine) {
    WriteFile("t.dbf", Notes(0x83, {"1", "2", "3"}));
    WriteFile("t.dbt", Terminated({"one\r\ntwo", std::string(60, 'x'), "end\r\n"}));
    Result cut = Zb({"list", "t.dbf", "--fields", "NOTE"});
    EXPECT_NE(cut.out.find("1  one\u2026\n"), std::string::npos) << cut.out;
    EXPECT_NE(cut.out.find("2  " + std::string(50, 'x') + "\u2026\n"), std::string::npos) << cut.out;
    EXPECT_NE(cut.out.find("3  end\n"), std::string::npos) << cut.out;
    Result full = Zb({"list", "t.dbf", "--fields", "NOTE", "--full"});
    EXPECT_NE(full.out.find(std::string(60, 'x') + "\n"), std::string::npos) << full.out;
    EXPECT_NE(full.out.find("one\\x0D\\x0Atwo\n"), std::string::npos) << full.out;
}

TEST_F(Tool, MemoTextHasTheTablesEncodingAndNoSoftReturns) {
    WriteFile("t.dbf", Notes(0x83, {"1"}, 0x02));
    WriteFile("t.dbt", Terminated({"\x84pfel \x8D\x0A\xFCnd"}));
    EXPECT_EQ(Zb({"export", "t.dbf", "--encoding", "cp437"}).out, "NAME,NOTE\nab,äpfel ⁿnd\n");
    EXPECT_EQ(Zb({"memo", "show", "t.dbf", "1", "NOTE", "--encoding", "cp437"}).out, "äpfel ⁿnd");
    // In UTF-8 the first of these bytes ends a letter.
    WriteFile("t.dbt", Terminated({"re\xC4\x8D\x0A."}));
    EXPECT_EQ(Zb({"memo", "show", "t.dbf", "1", "NOTE", "--encoding", "utf-8"}).out, "re\u010D\n.");
}

TEST_F(Tool, ImportWritesMemosInTheDialectsLayout) {
    WriteFile("in.csv", "NAME,NOTE\nab,\"first\nline\"\ncd,\nef,caf\u00E9\n");
    for (const char* dialect : {"1", "3", "5", "6", "7"}) {
        ASSERT_EQ(
            Zb({"import", "in.csv", "t.dbf", "--schema", "NAME:C2,NOTE:M", "--dialect", dialect, "--force"})
                .status,
            0);
        Bytes memo = ReadFile("t.dbt");
        EXPECT_EQ(memo.substr(0, 4), Hex("03 00 00 00")) << dialect;
        EXPECT_EQ(memo.substr(512, 12), "first\nline\x1A\x1A");
        EXPECT_EQ(memo.substr(1024), "caf\xE9\x1A\x1A");
        EXPECT_EQ(ReadFile("t.dbf", 97, 39), " ab         1 cd           ef         2");
    }
    ASSERT_EQ(Zb({"import", "in.csv", "C.DBF", "--schema", "NAME:C2,NOTE:M", "--dialect", "2"}).status, 0);
    Bytes counted = ReadFile("C.DBT");
    EXPECT_EQ(counted.substr(512, 18), Hex("FF FF 08 00 12 00 00 00") + "first\nline");
    EXPECT_EQ(counted.substr(1024, 12), Hex("FF FF 08 00 0C 00 00 00") + "caf\xE9");
    for (const char* dialect : {"4", "8"}) {
        ASSERT_EQ(
            Zb({"import", "in.csv", "f.dbf", "--schema", "NAME:C2,NOTE:M", "--dialect", dialect, "--force"})
                .status,
            0);
        Bytes fpt = ReadFile("f.fpt");
        EXPECT_EQ(fpt.substr(0, 8), Hex("00 00 00 0A 00 00 00 40"));
        EXPECT_EQ(fpt.substr(512, 18), Hex("00 00 00 01 00 00 00 0A") + "first\nline");
        EXPECT_EQ(fpt.substr(576), Hex("00 00 00 01 00 00 00 04") + "caf\xE9");
    }
    EXPECT_EQ(Zb({"export", "f.dbf", "--dialect", "8"}).out,
              "NAME,NOTE\nab,\"first\nline\"\ncd,\nef,caf\u00E9\n");
}

TEST_F(Tool, ImportAppendsMemosToAFileThatIsThere) {
    WriteFile("t.dbf", Notes(0x83, {"1"}));
    WriteFile("t.dbt", Terminated({"old"}));
    ASSERT_EQ(Zb({"import", "-", "t.dbf", "--append"}, "NAME,NOTE\ncd,new\n").status, 0);
    EXPECT_EQ(Zb({"export", "t.dbf"}).out, "NAME,NOTE\nab,old\ncd,new\n");
}

TEST_F(Tool, AnImportThatFailsLeavesNoMemoFile) {
    Result result = Zb({"import", "-", "t.dbf", "--schema", "NAME:C2,NOTE:M"},
                       "NAME,NOTE\nab,\"a\x1A"
                       "b\"\n");
    EXPECT_EQ(result.status, 1);
    EXPECT_NE(result.err.find("bytes that a memo of this layout can't hold"), std::string::npos)
        << result.err;
    EXPECT_FALSE(FileExists("t.dbf"));
    EXPECT_FALSE(FileExists("t.dbt"));
    std::string longText(40000, 'x');
    EXPECT_EQ(
        Zb({"import", "-", "t.dbf", "--schema", "NAME:C2,NOTE:M"}, "NAME,NOTE\nab," + longText + "\n").status,
        1);
    Result loose = Zb({"import", "-", "t.dbf", "--schema", "NAME:C2,NOTE:M", "--loose"},
                      "NAME,NOTE\nab," + longText + "\n");
    EXPECT_EQ(loose.status, 0);
    EXPECT_NE(loose.err.find("1 memo cut"), std::string::npos) << loose.err;
    EXPECT_EQ(Zb({"memo", "show", "t.dbf", "1", "NOTE"}).out, std::string(32765, 'x'));
}

TEST_F(Tool, PutTakesAnArgumentAFileOrStandardInput) {
    ASSERT_EQ(Zb({"create", "t.dbf", "--schema", "NAME:C2,NOTE:M"}).status, 0);
    ASSERT_EQ(Zb({"append", "t.dbf", "NAME=ab"}).status, 0);
    auto shown = [] { return Zb({"memo", "show", "t.dbf", "1", "note"}).out; };
    EXPECT_EQ(shown(), "");
    ASSERT_EQ(Zb({"memo", "put", "t.dbf", "1", "NOTE", "from here"}).err,
              "zb: t.dbf: changed record 1, NOTE\n");
    EXPECT_EQ(shown(), "from here");
    WriteFile("text", "from a file\n");
    ASSERT_EQ(Zb({"memo", "put", "t.dbf", "1", "NOTE", "--from", "text"}).status, 0);
    EXPECT_EQ(shown(), "from a file\n");
    ASSERT_EQ(Zb({"memo", "put", "t.dbf", "1", "NOTE"}, "from outside: \u20AC").status, 0);
    EXPECT_EQ(shown(), "from outside: \u20AC");
    ASSERT_EQ(Zb({"memo", "put", "t.dbf", "1", "NOTE", ""}).status, 0);
    EXPECT_EQ(shown(), "");
    EXPECT_EQ(ReadFile("t.dbf", 100, 10), std::string(10, ' '));
    EXPECT_EQ(Zb({"memo", "put", "t.dbf", "1", "NOTE", "a", "b"}).status, 2);
    EXPECT_EQ(Zb({"memo", "put", "t.dbf", "1", "NAME", "a"}).status, 2);
    EXPECT_EQ(Zb({"memo", "put", "t.dbf", "2", "NOTE", "a"}).status, 3);
    EXPECT_EQ(Zb({"memo", "put", "t.dbf", "1", "NONE", "a"}).status, 3);
}

TEST_F(Tool, PutReplacesInPlaceOnlyWhatIsNoLonger) {
    WriteFile("t.dbf", Notes(0x83, {"1", "2"}));
    WriteFile("t.dbt", Terminated({"hello", "other"}));
    ASSERT_EQ(Zb({"memo", "put", "t.dbf", "1", "NOTE", "bye"}).status, 0);
    EXPECT_EQ(ReadFile("t.dbt"),
              Padded(Hex("03"), 512) + Padded("bye\x1A\x1A\x1A\x1A", 512) + Padded("other\x1A\x1A", 512));
    ASSERT_EQ(Zb({"memo", "put", "t.dbf", "1", "NOTE", "longer"}).status, 0);
    EXPECT_EQ(ReadFile("t.dbf", 97, 13), " ab         3");
    EXPECT_EQ(Zb({"export", "t.dbf"}).out, "NAME,NOTE\nab,longer\nab,other\n");
}

TEST_F(Tool, PutLeavesAMemoThatAnotherRecordNames) {
    WriteFile("t.dbf", Notes(0x83, {"1", "1"}));
    WriteFile("t.dbt", Terminated({"shared"}));
    ASSERT_EQ(Zb({"memo", "put", "t.dbf", "1", "NOTE", "mine"}).status, 0);
    EXPECT_EQ(Zb({"export", "t.dbf"}).out, "NAME,NOTE\nab,mine\nab,shared\n");
}

TEST_F(Tool, PutKeepsADeletedRecordDeleted) {
    Bytes table = Notes(0x83, {""});
    table[97] = '*';
    WriteFile("t.dbf", table);
    Result result = Zb({"memo", "put", "t.dbf", "1", "NOTE", "x"});
    EXPECT_EQ(result.err, "zb: t.dbf: changed record 1, NOTE, which is deleted\n");
    EXPECT_EQ(ReadFile("t.dbf", 97, 13), "*ab         1");
}

TEST_F(Tool, PutRefusesWhatTheMemoCantHold) {
    WriteFile("t.dbf", Notes(0x83, {"1"}));
    WriteFile("t.dbt", Terminated({"old"}));
    Bytes before = ReadFile("t.dbt");
    EXPECT_EQ(Zb({"memo", "put", "t.dbf", "1", "NOTE", "a\x1A"}).status, 1);
    EXPECT_EQ(Zb({"memo", "put", "t.dbf", "1", "NOTE"}, std::string(32766, 'x')).status, 1);
    EXPECT_EQ(Zb({"memo", "put", "t.dbf", "1", "NOTE", "\u4E2D"}).status, 1);
    // In this encoding the text would hold what stands for a soft line break.
    EXPECT_EQ(Zb({"memo", "put", "t.dbf", "1", "NOTE", "\u00EC\n", "--encoding", "cp437"}).status, 1);
    EXPECT_EQ(ReadFile("t.dbt"), before);
    EXPECT_EQ(Zb({"memo", "put", "t.dbf", "1", "NOTE"}, std::string(32765, 'x')).status, 0);
    EXPECT_EQ(Zb({"memo", "show", "t.dbf", "1", "NOTE"}).out, std::string(32765, 'x'));
}

TEST_F(Tool, PutRefusesAFileWhoseHeaderPointsIntoMemos) {
    WriteFile("t.dbf", Notes(0x83, {"1", "2"}));
    Bytes memos = Terminated({"one", "two"});
    memos[0] = 2;
    WriteFile("t.dbt", memos);
    Result result = Zb({"memo", "put", "t.dbf", "1", "NOTE", "something longer"});
    EXPECT_EQ(result.status, 4);
    EXPECT_NE(result.err.find("a new memo would go where a record has one"), std::string::npos) << result.err;
    EXPECT_EQ(ReadFile("t.dbt"), memos);
    ASSERT_EQ(Zb({"memo", "pack", "t.dbf"}).status, 0);
    ASSERT_EQ(Zb({"memo", "put", "t.dbf", "1", "NOTE", "something longer"}).status, 0);
    EXPECT_EQ(Zb({"export", "t.dbf"}).out, "NAME,NOTE\nab,something longer\nab,two\n");
}

// Block 1 is free, and names block 3 as the next free one, where a memo is.
TEST_F(Tool, PutIntoACountedFileEndsAChainThatLeadsIntoMemos) {
    auto memo = [](const Bytes& text) {
        return Padded(Hex("FF FF 08 00") + Bytes{static_cast<char>(text.size() + 8)} + Hex("00 00 00") + text,
                      512);
    };
    Bytes head = kCountedHead;
    head[0] = 1;
    for (size_t length : {3, 900}) {
        WriteFile("c.dbf", Notes(0x8B, {"2", "3"}));
        WriteFile("c.dbt", head + Padded(Hex("03 00 00 00 01 00 00 00"), 512) + memo("two") + memo("three"));
        for (int time = 0; time < 3; ++time)
            ASSERT_EQ(
                Zb({"import", "-", "c.dbf", "--append"}, "NAME,NOTE\ncd," + std::string(length, 'n') + "\n")
                    .status,
                0);
        std::string row = "cd," + std::string(length, 'n') + "\n";
        EXPECT_EQ(Zb({"export", "c.dbf"}).out, "NAME,NOTE\nab,two\nab,three\n" + row + row + row);
    }
}

TEST_F(Tool, PackDropsWhatNoRecordNames) {
    Bytes table = Notes(0x83, {"3", "1", "3", "", "2"});
    table[97 + 4 * 13] = '*';
    WriteFile("t.dbf", table);
    WriteFile("t.dbt", Terminated({"one", "two", "three", "four"}));
    Bytes memos = ReadFile("t.dbt");
    Result result = Zb({"memo", "pack", "t.dbf"});
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(result.err,
              "zb: t.dbt: packed from 2560 bytes to 2053; the old files are kept as t.BKT and t.BAK\n");
    Bytes packed = ReadFile("t.dbt");
    EXPECT_EQ(packed[0], 5);
    EXPECT_EQ(packed.substr(512, 7), "three\x1A\x1A");
    EXPECT_EQ(packed.substr(1024, 5), "one\x1A\x1A");
    EXPECT_EQ(packed.substr(1536, 7), "three\x1A\x1A");
    EXPECT_EQ(packed.substr(2048), "two\x1A\x1A");
    EXPECT_EQ(ReadFile("t.dbf", 97), " ab         1 ab         2 ab         3 ab          *ab         4\x1A");
    EXPECT_EQ(ReadFile("t.BAK"), table);
    EXPECT_EQ(ReadFile("t.BKT"), memos);
}

TEST_F(Tool, PackStopsAtADamagedMemoUnlessToldNotTo) {
    WriteFile("t.dbf", Notes(0x83, {"1", "9"}));
    WriteFile("t.dbt", Terminated({"one"}));
    Bytes table = ReadFile("t.dbf"), memos = ReadFile("t.dbt");
    Result result = Zb({"memo", "pack", "t.dbf"});
    EXPECT_EQ(result.status, 4);
    EXPECT_NE(result.err.find("record 2, NOTE; nothing was changed"), std::string::npos) << result.err;
    EXPECT_EQ(ReadFile("t.dbf"), table);
    EXPECT_EQ(ReadFile("t.dbt"), memos);
    EXPECT_FALSE(FileExists("t.BKT"));
    EXPECT_EQ(Zb({"memo", "pack", "t.dbf", "--drop-damaged"}).status, 0);
    EXPECT_EQ(Zb({"export", "t.dbf"}).out, "NAME,NOTE\nab,one\nab,\n");
}

TEST_F(Tool, ShowTellsWhatItCantFind) {
    WriteFile("t.dbf", Notes(0x83, {"1", "7"}));
    EXPECT_EQ(Zb({"memo", "show", "t.dbf", "1", "NOTE"}).status, 3);
    WriteFile("t.dbt", Terminated({"one"}));
    EXPECT_EQ(Zb({"memo", "show", "t.dbf", "1", "NOTE"}).out, "one");
    EXPECT_EQ(Zb({"memo", "show", "t.dbf", "2", "NOTE"}).status, 4);
    EXPECT_EQ(Zb({"memo", "show", "t.dbf", "3", "NOTE"}).status, 3);
    EXPECT_EQ(Zb({"memo", "show", "t.dbf", "1", "NAME"}).status, 2);
    EXPECT_EQ(Zb({"memo"}).status, 2);
}

}  // namespace
}  // namespace test
