// MDX files and tags through the exported calls alone.
#include <cmath>
#include <cstring>
#include <filesystem>

#include "support/dbf.h"
#include "support/environment.h"
#include "support/system.h"

namespace test {
namespace {

class Mdx : public LibraryTest {
  protected:
    int16_t file = -1;
    int32_t tag = -1;

    // A day of the years that open again.
    Environment today{"ZB_TODAY", "1999-12-31"};

    static int32_t Open(const char* name, int16_t* handle, uint16_t mode = 0) {
        *handle = 77;
        return ZBDMOPENX(handle, name, mode);
    }
    static int32_t OpenData(int16_t* handle, uint16_t mode) {
        uint16_t opened = 0;
        int32_t code = ZBDDOPENX(&opened, "d.dbf", mode);
        *handle = static_cast<int16_t>(opened);
        return code;
    }
    int32_t New(const char* name, uint32_t type, int32_t length, std::string expression = "NAME") {
        return ZBDMTNEW(file, name, type, expression.data(), length);
    }
    int32_t Use(const char* name, int32_t* handle) {
        *handle = 77;
        return ZBDMTUSE(handle, static_cast<uint16_t>(file), name);
    }
    void MakeFile(int multiplier = 1) {
        ASSERT_EQ(ZBDMCREATE("x.mdx", multiplier), 0);
        ASSERT_EQ(Open("x.mdx", &file), 0);
    }
    void Make(uint32_t type, int32_t length, int multiplier = 1) {
        MakeFile(multiplier);
        ASSERT_EQ(New("T", type, length), 0);
        ASSERT_EQ(Use("T", &tag), 0);
    }

    // A caller's buffer: key length + 1 bytes at least.
    static std::string Padded(std::string key) {
        key.resize(104);
        return key;
    }
    int32_t Add(const std::string& key, uint32_t record) {
        return ZBDMKADD(tag, Padded(key).c_str(), record);
    }
    int32_t Delete(const std::string& key, uint32_t record) {
        return ZBDMKDEL(tag, Padded(key).c_str(), record);
    }
    static std::string Number(double value) {
        std::string key(12, 0);
        EXPECT_EQ(ZBDMKNUM(key.data(), value), 0);
        return key;
    }
    // A key of 100 characters, of which a page of one unit takes four.
    static std::string Long(int number) {
        std::string key = std::to_string(100 + number);
        key.resize(100, '.');
        return key;
    }
    void AddLong(std::initializer_list<int> numbers) {
        for (int number : numbers) ASSERT_EQ(Add(Long(number), static_cast<uint32_t>(number) + 1), 0);
    }
    int32_t DeleteLong(int number) { return Delete(Long(number), static_cast<uint32_t>(number) + 1); }

    struct Found {
        int32_t code;
        std::string key;
        uint32_t record;
        bool operator==(const Found&) const = default;
        friend void PrintTo(const Found& found, std::ostream* out) {
            *out << found.code << " \"" << found.key << "\" " << found.record;
        }
    };
    using Walk = int32_t(ZB_CALL*)(int32_t, void*, uint32_t*);
    Found Go(Walk walk, const std::string& before = "?", uint32_t record = 99) {
        std::string key = Padded(before);
        int32_t code = walk(tag, key.data(), &record);
        return {code, key.c_str(), record};
    }
    Found Find(const std::string& wanted, int16_t mode, uint32_t record = 0) {
        std::string key = Padded(wanted);
        int32_t code = ZBDMKFIND(tag, key.data(), &record, mode);
        return {code, key.c_str(), record};
    }
    // The number of a long key that a call gave.
    static int NumberOf(const Found& found) { return atoi(found.key.c_str()) - 100; }
    // All long keys by walking, ended by the code that is no success.
    std::vector<int> Walked() {
        std::vector<int> numbers;
        Found found = Go(ZBDMKTOP);
        while (found.code == 0 && numbers.size() < 1000) {
            numbers.push_back(NumberOf(found));
            found = Go(ZBDMKNEXT);
        }
        numbers.push_back(-found.code);
        return numbers;
    }

    static Bytes File() { return ReadFile("x.mdx"); }
    static Bytes Page(uint32_t page, size_t count = 512, size_t offset = 0) {
        return ReadFile("x.mdx", page * 512 + offset, count);
    }
    // A page of long keys as it should stand at its start: count, reserved, entries, trailing.
    static Bytes LongPage(const std::vector<std::pair<uint32_t, int>>& entries, uint32_t trailing) {
        Bytes bytes = Le32(static_cast<int64_t>(entries.size())) + Le32(0);
        for (auto& [value, number] : entries) bytes += Le32(value) + Long(number);
        return bytes + Le32(trailing);
    }
    static uint32_t Word(size_t offset) {
        Bytes b = ReadFile("x.mdx", offset, 4);
        return static_cast<uint8_t>(b[0]) | static_cast<uint32_t>(static_cast<uint8_t>(b[1])) << 8 |
               static_cast<uint32_t>(static_cast<uint8_t>(b[2])) << 16 |
               static_cast<uint32_t>(static_cast<uint8_t>(b[3])) << 24;
    }
};

#define EXPECT_LONG_PAGE(page, ...)                                          \
    do {                                                                     \
        Bytes expected = LongPage(__VA_ARGS__);                              \
        EXPECT_EQ(Page(page, expected.size()), expected) << "page " << page; \
    } while (false)

using Entries = std::vector<std::pair<uint32_t, int>>;

// Create

TEST_F(Mdx, NewFileHas2048BytesAndItsNameInTheHeader) {
    ASSERT_EQ(ZBDMCREATE("MYDATA.MDX", 1), 0);
    Bytes expected = Hex("02 63 0C 1F") + "MYDATA" + Fill(10) +
                     Hex("0100 0002 01 30 20 00 0000 0000 04000000 00000000 00000000 63 0C 1F 00");
    expected.resize(2048);
    EXPECT_EQ(ReadFile("MYDATA.MDX"), expected);
}

TEST_F(Mdx, BlockSizeAndProductionFlagStandInTheHeader) {
    ASSERT_EQ(ZBDMCREATEX("x.mdx", 32, 0), 0);
    EXPECT_EQ(ReadFile("x.mdx", 4, 24), "X" + Fill(15) + Hex("2000 0040 00 30 20 00"));
    ASSERT_EQ(ZBDMCREATEX("x.mdx", 2, 0xFDFF), 0);
    EXPECT_EQ(ReadFile("x.mdx", 20, 5), Hex("0200 0004 00"));
    ASSERT_EQ(ZBDMCREATEX("x.mdx", 2, 0x0200), 0);
    EXPECT_EQ(ReadFile("x.mdx", 24, 1), Hex("01"));
}

TEST_F(Mdx, NameIsWhatStandsBetweenDirectoryAndLastPoint) {
    ASSERT_EQ(ZBDMCREATE("./ab.cd.e", 1), 0);
    EXPECT_EQ(ReadFile("ab.cd.e", 4, 16), "AB.CD" + Fill(11));
    ASSERT_EQ(ZBDMCREATE("./plain", 1), 0);
    EXPECT_EQ(ReadFile("plain", 4, 16), "PLAIN" + Fill(11));
    ASSERT_EQ(ZBDMCREATE("./.mdx", 1), 0);
    EXPECT_EQ(ReadFile(".mdx", 4, 16), Fill(16));
    // A name on some systems and a place on others.
    std::filesystem::create_directory("back");
    ASSERT_EQ(ZBDMCREATE("back\\EIGHTCHR.mdx", 1), 0);
    EXPECT_EQ(ReadFile("back\\EIGHTCHR.mdx", 4, 16), "EIGHTCHR" + Fill(8));
}

TEST_F(Mdx, NameOfNineCharactersLeavesAFile) {
    EXPECT_EQ(ZBDMCREATE("ninechars.mdx", 1), -14);
    EXPECT_TRUE(FileExists("ninechars.mdx"));
    EXPECT_EQ(FileSize("ninechars.mdx"), 0u);
}

TEST_F(Mdx, CreateAnswersMultipliersNullsAndPendingCodes) {
    for (int32_t multiplier : {0, -1, 33, 65537}) {
        EXPECT_EQ(ZBDMCREATE("x.mdx", multiplier), -49);
        ZBESCODE(0);
    }
    EXPECT_EQ(ZBDMCREATEX("x.mdx", 33, 0), -49);
    EXPECT_EQ(ZBDMCREATE("x.mdx", 1), -49);
    ZBESCODE(0);
    EXPECT_EQ(ZBDMCREATE(nullptr, 0), -21);
    ZBESCODE(0);
    EXPECT_EQ(ZBDMCREATE("", 1), -14);
    ZBESCODE(0);
    EXPECT_EQ(ZBDMCREATE("no/such/x.mdx", 1), -46);
    EXPECT_FALSE(FileExists("x.mdx"));
}

// Open

TEST_F(Mdx, FileOfTodayCantBeOpened) {
    today.Set("2020-01-01");
    ASSERT_EQ(ZBDMCREATE("x.mdx", 1), 0);
    EXPECT_EQ(ReadFile("x.mdx", 1, 3), Hex("78 01 01"));
    EXPECT_EQ(Open("x.mdx", &file), -20);
    EXPECT_EQ(file, -1);
    ZBESCODE(0);
    today.Set("2019-12-31");
    ASSERT_EQ(ZBDMCREATE("x.mdx", 1), 0);
    EXPECT_EQ(Open("x.mdx", &file), 0);
}

TEST_F(Mdx, OpenTestsTheHeaderInOrder) {
    struct Case {
        size_t offset;
        const char* bytes;
        int code;
    };
    const Case cases[] = {
        {0, "03", -18},    {1, "4F", -20},        {1, "78", -20},  {1, "80", -20},  {1, "FF", -20},
        {2, "00", -20},    {2, "0D", -20},        {3, "00", -20},  {3, "20", -20},  {20, "0000", -49},
        {20, "2100", -49}, {22, "0004", -51},     {25, "2F", -52}, {26, "1F", -53}, {28, "3000", -54},
        {28, "FFFF", -54}, {32, "03000000", -19},
    };
    for (const Case& c : cases) {
        ASSERT_EQ(ZBDMCREATE("x.mdx", 1), 0);
        // What comes later is wrong too, and isn't seen.
        PatchFile("x.mdx", 32, Hex("03000000"));
        PatchFile("x.mdx", c.offset, Hex(c.bytes));
        EXPECT_EQ(Open("x.mdx", &file), c.code) << c.offset << ' ' << c.bytes;
        EXPECT_EQ(file, -1);
        ZBESCODE(0);
    }
    for (const char* year : {"50", "77"}) {
        ASSERT_EQ(ZBDMCREATE("x.mdx", 1), 0);
        PatchFile("x.mdx", 1, Hex(year));
        EXPECT_EQ(Open("x.mdx", &file), 0);
        EXPECT_EQ(ZBDMCLOSE(file), 0);
    }
    ASSERT_EQ(ZBDMCREATE("x.mdx", 1), 0);
    PatchFile("x.mdx", 28, Hex("2F00"));
    EXPECT_EQ(Open("x.mdx", &file), 0);
}

TEST_F(Mdx, OpenTestsTheLowByteOfItsMode) {
    ASSERT_EQ(ZBDMCREATE("x.mdx", 1), 0);
    for (uint16_t mode = 0; mode < 256; mode++) {
        bool known = mode == 0 || mode == 2;
        ASSERT_EQ(Open("x.mdx", &file, mode), known ? 0 : -18) << mode;
        ZBESCODE(0);
        if (known) {
            ASSERT_EQ(ZBDMCLOSE(file), 0);
        }
    }
}

TEST_F(Mdx, FileOfAnotherLengthOpensWithAWarning) {
    ASSERT_EQ(ZBDMCREATE("x.mdx", 1), 0);
    PatchFile("x.mdx", 32, Hex("05000000"));
    EXPECT_EQ(Open("x.mdx", &file), 7);
    EXPECT_EQ(ZBDMCLOSE(file), 0);
    WriteFile("x.mdx", File() + Fill(512));
    EXPECT_EQ(Open("x.mdx", &file), 0);
}

TEST_F(Mdx, ShortFilesCantBeRead) {
    ASSERT_EQ(ZBDMCREATE("x.mdx", 1), 0);
    Bytes whole = File();
    for (size_t length : {0, 47, 48, 512, 2047}) {
        WriteFile("x.mdx", whole.substr(0, length));
        EXPECT_EQ(Open("x.mdx", &file), -2) << length;
        EXPECT_EQ(file, -1);
        ZBESCODE(0);
    }
}

TEST_F(Mdx, OpenAnswersNullsPendingCodesAndMissingFiles) {
    EXPECT_EQ(ZBDMOPENX(nullptr, "x.mdx", 0), -21);
    ZBESCODE(0);
    EXPECT_EQ(Open(nullptr, &file), -21);
    EXPECT_EQ(Open("x.mdx", &file), -21);
    EXPECT_EQ(file, 77);
    ZBESCODE(0);
    EXPECT_EQ(Open("x.mdx", &file), -46);
    EXPECT_EQ(file, -1);
    ZBESCODE(0);
    std::string dots(262, '.');
    for (size_t i = 1; i < dots.size(); i += 2) dots[i] = '/';
    ASSERT_EQ(ZBDMCREATE("x.mdx", 1), 0);
    EXPECT_EQ(Open((dots + "x.mdx").c_str(), &file), OpensLongNames() ? -14 : -46);
    EXPECT_EQ(file, -1);
}

TEST_F(Mdx, InfoTellsTheFile) {
    MakeFile();
    ASSERT_EQ(New("A", 'N', 0), 0);
    ZbMdxInfo info;
    memset(&info, 0xFF, sizeof info);
    ASSERT_EQ(ZBDMINFO(file, &info), 0);
    EXPECT_EQ(info.tagCount, 1);
    EXPECT_EQ(info.flags, 0);
    EXPECT_STREQ(info.path, "x.mdx");
    EXPECT_EQ(info.reported, 0);
    ASSERT_EQ(ZBDMCLOSE(file), 0);
    ASSERT_EQ(Open("x.mdx", &file, ZB_ReadOnly | ZB_OpenShared), 0);
    ASSERT_EQ(ZBDMINFO(file, &info), 0);
    EXPECT_EQ(info.flags, 3);
    StartLog();
    EXPECT_EQ(ZBDMINFO(file, nullptr), -21);
    EXPECT_EQ(Log(), std::vector<LogEntry>());
}

TEST_F(Mdx, CloseDetachesTheTags) {
    Make('C', 5);
    ASSERT_EQ(Add("A", 1), 0);
    EXPECT_EQ(ZBDMCLOSE(file), 0);
    EXPECT_EQ(Add("B", 2), -13);
    EXPECT_EQ(ZBDMCLOSE(file), -13);
    ZBESCODE(0);
    EXPECT_EQ(ZBDMCLOSE(file), -13);
}

// The quick close looks for a tag and finds none: the file stays as it is.
TEST_F(Mdx, QuickCloseLeavesTheFileOpen) {
    Make('C', 5);
    StartLog();
    EXPECT_EQ(ZBDQCLOSE(), 0);
    EXPECT_EQ(Log(), (std::vector<LogEntry>{{"Mslock", -48}, {"Mqclose", -48}}));
    ZBESCODE(0);
    EXPECT_EQ(Add("A", 1), 0);
    EXPECT_EQ(Go(ZBDMKTOP), (Found{0, "A    ", 1}));
    EXPECT_EQ(ZBDMCLOSE(file), 0);
}

TEST_F(Mdx, StopClosesFilesAndTags) {
    Make('C', 5);
    ASSERT_EQ(Add("A", 1), 0);
    EXPECT_EQ(ZBDTERM(), 0);
    EXPECT_EQ(ZBDINIT(100, 1), 0);
    int16_t alone;
    EXPECT_EQ(Open("x.mdx", &alone), 0);  // nobody holds it any more
    EXPECT_EQ(ZBDMCLOSE(alone), 0);
}

// Tags

TEST_F(Mdx, NewTagHasItsRowItsHeaderAndAnEmptyRoot) {
    MakeFile();
    ASSERT_EQ(New("names", 'C', 5, "name"), 0);
    Bytes expected = Hex("02 63 0C 1F") + "X" + Fill(15) +
                     Hex("0100 0002 01 30 20 00 0100 0000 06000000 00000000 00000000 63 0C 1F 00");
    expected.resize(512);
    expected += Fill(17) + Hex("01 00 02") + Fill(12);
    expected += Hex("04000000") + "NAMES" + Fill(6) + Hex("0000 00 00 02 43") + Fill(11);
    expected.resize(2048);
    expected += Hex("05000000 00000000 10 43 0000 0500 2900 0000 0C00 00000000") + "NAME";
    expected.resize(3072);
    EXPECT_EQ(File(), expected);

    ASSERT_EQ(New("Born", 'd', 99, "BORN"), 0);
    expected[28] = 2;
    expected[32] = 8;
    expected[512 + 32 + 17] = 2;
    expected.replace(512 + 64, 32, Hex("06000000") + "BORN" + Fill(7) + Hex("0000 00 01 02 44") + Fill(11));
    expected += Hex("07000000 00000000 10 44 0000 0800 2900 0100 0C00 00000000") + "BORN";
    expected.resize(4096);
    EXPECT_EQ(File(), expected);
}

TEST_F(Mdx, PageNumbersStepByTheUnitsOfABlock) {
    MakeFile(2);
    ASSERT_EQ(New("A", 'N', 0), 0);
    ASSERT_EQ(New("B", 'C', 10), 0);
    EXPECT_EQ(Word(512 + 32), 4u);
    EXPECT_EQ(Page(4, 20), Hex("06000000 00000000 10 4E 0000 0C00 3F00 0000 1000"));
    EXPECT_EQ(Word(512 + 64), 8u);
    EXPECT_EQ(Page(8, 20), Hex("0A000000 00000000 10 43 0000 0A00 3F00 0000 1000"));
    EXPECT_EQ(Word(32), 12u);
    EXPECT_EQ(FileSize("x.mdx"), 12u * 512);
}

TEST_F(Mdx, TypeWordTellsTypeUniqueAndMarked) {
    MakeFile();
    ASSERT_EQ(New("A", 'c' | 0x80 | 0x100, 7), 0);
    ASSERT_EQ(Use("A", &tag), 0);
    ZbMdxTagInfo info;
    memset(&info, 0xFF, sizeof info);
    ASSERT_EQ(ZBDMTINFO(tag, &info), 0);
    EXPECT_STREQ(info.name, "A");
    EXPECT_EQ(info.zero, 0);
    EXPECT_EQ(info.keyLength, 7);
    EXPECT_EQ(info.keyType, 'C');
    EXPECT_EQ(info.options, 0x180);
    EXPECT_EQ(info.expressionLength, 4);
    EXPECT_STREQ(info.expression, "NAME");
    EXPECT_EQ(Page(4, 2, 8), Hex("58 43"));
    EXPECT_EQ(New("B", 0x80 | 'L', 1), -22);
    ZBESCODE(0);
    EXPECT_EQ(New("B", 0x100, 1), -22);
}

TEST_F(Mdx, NumberTagHasKeysOfTwelveBytes) {
    Make('N', 55);
    ZbMdxTagInfo info;
    ASSERT_EQ(ZBDMTINFO(tag, &info), 0);
    EXPECT_EQ(info.keyLength, 12);
    EXPECT_EQ(info.keyType, 'N');
    EXPECT_EQ(info.options, 0);
}

TEST_F(Mdx, FunctionsInTheExpressionTakeThePlainMark) {
    MakeFile();
    for (const char* expression : {"left(NAME,3)", "A+right(NAME,3)", "dtoc(BORN)"}) {
        ASSERT_EQ(New("A", 'C', 5, expression), 0);
        ASSERT_EQ(Use("A", &tag), 0);
        EXPECT_EQ(ReadFile("x.mdx", Word(512 + 32) * 512 + 8, 1), Hex("00")) << expression;
        ASSERT_EQ(ZBDMTCLOSE(tag), 0);
    }
    ASSERT_EQ(New("A", 'C', 5, "STR(A,5)+LEFT"), 0);
    EXPECT_EQ(ReadFile("x.mdx", Word(512 + 32) * 512 + 8, 1), Hex("10"));
}

TEST_F(Mdx, BlanksGoFromTheCallersExpression) {
    MakeFile();
    std::string expression = " last + first ";
    ASSERT_EQ(ZBDMTNEW(file, "A", 'C', expression.data(), 5), 0);
    EXPECT_STREQ(expression.c_str(), "last+first");
    ASSERT_EQ(Use("A", &tag), 0);
    char text[300];
    ASSERT_EQ(ZBDMTEXPR(tag, text), 0);
    EXPECT_STREQ(text, "LAST+FIRST");
}

TEST_F(Mdx, ExpressionOf220CharactersIsAcceptedAnd221Refused) {
    MakeFile();
    ASSERT_EQ(New("A", 'C', 5, std::string(220, 'a')), 0);
    ASSERT_EQ(Use("A", &tag), 0);
    char text[300];
    ASSERT_EQ(ZBDMTEXPR(tag, text), 0);
    EXPECT_EQ(text, std::string(220, 'A'));
    ZbMdxTagInfo info;
    ASSERT_EQ(ZBDMTINFO(tag, &info), 0);
    EXPECT_EQ(info.expressionLength, 220);
    EXPECT_EQ(std::string(info.expression, 100), std::string(100, 'A'));
    Bytes before = File();
    EXPECT_EQ(New("B", 'C', 5, std::string(221, 'A')), -7);
    EXPECT_EQ(File(), before);
}

TEST_F(Mdx, TagNamesHaveOneToTenCharacters) {
    MakeFile();
    const char* eleven = "ABCDEFGHIJK";
    int32_t handle;
    for (const char* name : {eleven, ""}) {
        EXPECT_EQ(New(name, 'N', 0), -50);
        ZBESCODE(0);
        EXPECT_EQ(ZBDMTERASE(file, name), -50);
        ZBESCODE(0);
        EXPECT_EQ(Use(name, &handle), -50);
        EXPECT_EQ(handle, -1);
        ZBESCODE(0);
    }
    ASSERT_EQ(New("abcdefghij", 'N', 0), 0);
    EXPECT_EQ(Use("ABCDEFGHIJ", &handle), 0);
    EXPECT_EQ(handle, 1 << 16 | file);
    ZbMdxTagInfo info;
    ASSERT_EQ(ZBDMTINFO(handle, &info), 0);
    EXPECT_EQ(std::string(info.name, 10), "ABCDEFGHIJ");
    EXPECT_EQ(info.zero, 0);
}

TEST_F(Mdx, KeyLengthCountsForTextsAlone) {
    MakeFile();
    EXPECT_EQ(New("A", 'C', 0), -23);
    ZBESCODE(0);
    EXPECT_EQ(New("A", 'C', 101), -23);
    ZBESCODE(0);
    EXPECT_EQ(New("A", 'C', 65541), -23);
    ZBESCODE(0);
    EXPECT_EQ(New("A", 'D', -5), 0);
    EXPECT_EQ(New("B", 'C', 100), 0);
}

TEST_F(Mdx, FortySevenTagsAndNoMore) {
    MakeFile();
    for (int i = 1; i <= 47; i++) ASSERT_EQ(New(("T" + std::to_string(i)).c_str(), 'C', 5), 0) << i;
    Bytes before = File();
    EXPECT_EQ(New("T48", 'C', 5), -8);
    EXPECT_EQ(File(), before);
    ZBESCODE(0);
    // One of them can still be replaced.
    EXPECT_EQ(New("T47", 'N', 5), 0);
    EXPECT_EQ(Use("t47", &tag), 0);
    EXPECT_EQ(tag, 47 << 16 | file);
    EXPECT_EQ(Add(Number(5), 1), 0);
    EXPECT_EQ(ZBDMCLOSE(file), 0);
    ASSERT_EQ(Open("x.mdx", &file), 0);
    EXPECT_EQ(Use("T1", &tag), 0);
    EXPECT_EQ(Use("T46", &tag), 0);
}

TEST_F(Mdx, NewAnswersNullsBadHandlesAndPendingCodes) {
    char expression[] = "N A";
    EXPECT_EQ(ZBDMTNEW(0, nullptr, 'N', expression, 0), -21);
    ZBESCODE(0);
    EXPECT_EQ(ZBDMTNEW(0, "A", 'N', nullptr, 0), -21);
    EXPECT_STREQ(expression, "N A");
    EXPECT_EQ(ZBDMTNEW(0, "A", 'N', expression, 0), -21);
    EXPECT_STREQ(expression, "NA");  // done before the file is looked at
    ZBESCODE(0);
    EXPECT_EQ(ZBDMTNEW(0, "A", 'N', expression, 0), -13);
    ZBESCODE(0);
    EXPECT_EQ(ZBDMTNEW(-1, "A", 'N', expression, 0), -13);
}

TEST_F(Mdx, EraseMovesTheLastTagAndGivesBackThePages) {
    MakeFile();
    for (const char* name : {"A", "B", "C"}) ASSERT_EQ(New(name, 'C', 100), 0);
    ASSERT_EQ(Use("A", &tag), 0);
    AddLong({1, 2, 3, 4, 5, 6});  // three pages
    ASSERT_EQ(ZBDMTCLOSE(tag), 0);
    EXPECT_EQ(Word(40), 0u);
    ASSERT_EQ(ZBDMTERASE(file, "a"), 0);
    EXPECT_EQ(Word(40), 4u);
    // The rows: C stands where A was, and the row above the count keeps its bytes.
    EXPECT_EQ(ReadFile("x.mdx", 28, 2), Hex("0200"));
    EXPECT_EQ(ReadFile("x.mdx", 512 + 32, 32),
              Hex("08000000") + "C" + Fill(10) + Hex("0000 02 00 02 43") + Fill(11));
    EXPECT_EQ(ReadFile("x.mdx", 512 + 64, 32),
              Hex("06000000") + "B" + Fill(10) + Hex("0000 00 01 02 43") + Fill(11));
    EXPECT_EQ(ReadFile("x.mdx", 512 + 96, 32),
              Hex("08000000") + "C" + Fill(10) + Hex("0000 00 02 02 43") + Fill(11));
    // The free list, last freed first: the root, its right child, its left, the header.
    EXPECT_EQ(Word(36), 11u);
    EXPECT_EQ(Word(11 * 512 + 4), 5u);
    EXPECT_EQ(Word(5 * 512 + 4), 10u);
    EXPECT_EQ(Word(10 * 512 + 4), 4u);
    EXPECT_EQ(Word(4 * 512 + 4), 0u);
    // The header block lost its first bytes; tree pages keep their counts.
    EXPECT_EQ(Page(4, 10), Hex("00000000 00000000 10 43"));
    EXPECT_EQ(Word(5 * 512), 3u);
    EXPECT_EQ(Word(10 * 512), 3u);
    EXPECT_EQ(Word(11 * 512), 1u);
    EXPECT_EQ(Use("A", &tag), -50);
    ZBESCODE(0);
    EXPECT_EQ(Use("C", &tag), 0);
    EXPECT_EQ(tag, 1 << 16 | file);
}

TEST_F(Mdx, NewTagsTakeFreePagesFirst) {
    MakeFile();
    ASSERT_EQ(New("A", 'C', 5), 0);
    ASSERT_EQ(New("B", 'C', 5), 0);
    ASSERT_EQ(ZBDMTERASE(file, "A"), 0);
    EXPECT_EQ(Word(36), 5u);  // the root was freed last
    ASSERT_EQ(New("D", 'C', 5), 0);
    EXPECT_EQ(ReadFile("x.mdx", 28, 16), Hex("0200 0000 08000000 00000000 00000000"));
    EXPECT_EQ(Word(512 + 64), 5u);
    EXPECT_EQ(Word(5 * 512), 4u);
    EXPECT_EQ(Page(4), Fill(512));
    EXPECT_EQ(FileSize("x.mdx"), 4096u);
}

TEST_F(Mdx, AttachedTagCantBeErasedOrReplaced) {
    Make('C', 5);
    ASSERT_EQ(New("U", 'C', 5), 0);
    Bytes before = File();
    EXPECT_EQ(ZBDMTERASE(file, "T"), -57);
    ZBESCODE(0);
    EXPECT_EQ(New("t", 'N', 5), -57);
    ZBESCODE(0);
    EXPECT_EQ(File(), before);
    EXPECT_EQ(Add("A", 1), 0);
    ASSERT_EQ(ZBDMTCLOSE(tag), 0);
    EXPECT_EQ(ZBDMTERASE(file, "T"), 0);
}

// The erase moves the last tag to the place that the new tag then takes, and the
// count, raised again, brings the last tag's old row back.
TEST_F(Mdx, ReplacedTagKeepsItsPlaceAndTheLastTagStays) {
    MakeFile();
    for (const char* name : {"A", "B", "C"}) ASSERT_EQ(New(name, 'C', 5), 0);
    int32_t last;
    ASSERT_EQ(Use("C", &last), 0);
    tag = last;
    ASSERT_EQ(Add("KEPT", 3), 0);
    ASSERT_EQ(New("a", 'N', 5, "AMOUNT"), 0);
    EXPECT_EQ(ReadFile("x.mdx", 28, 2), Hex("0300"));
    EXPECT_EQ(ReadFile("x.mdx", 512 + 32 + 4, 17), "A" + Fill(10) + Hex("0000 00 00 02 4E"));
    EXPECT_EQ(ReadFile("x.mdx", 512 + 64 + 4, 17), "B" + Fill(10) + Hex("0000 00 01 02 43"));
    EXPECT_EQ(ReadFile("x.mdx", 512 + 96 + 4, 17), "C" + Fill(10) + Hex("0000 00 02 02 43"));
    EXPECT_EQ(ReadFile("x.mdx", 512 + 17, 1), Hex("01"));
    EXPECT_EQ(Go(ZBDMKTOP), (Found{0, "KEPT ", 3}));  // still attached
    int32_t first;
    ASSERT_EQ(Use("A", &first), 0);
    EXPECT_EQ(first, 1 << 16 | file);
    std::string number = Number(1);
    EXPECT_EQ(ZBDMKADD(first, number.c_str(), 7), 0);
    EXPECT_EQ(Go(ZBDMKTOP), (Found{0, "KEPT ", 3}));
}

TEST_F(Mdx, HandlesOfAMovedTagArentTold) {
    MakeFile();
    for (const char* name : {"A", "B", "C"}) ASSERT_EQ(New(name, 'C', 5), 0);
    int32_t before;
    ASSERT_EQ(Use("C", &before), 0);
    ASSERT_EQ(ZBDMTERASE(file, "A"), 0);
    // The tag is attached under its new number.
    tag = 1 << 16 | file;
    EXPECT_EQ(Add("X", 1), 0);
    EXPECT_EQ(ZBDMTERASE(file, "C"), -57);
    ZBESCODE(0);
    // The old number lies above the count: it can't be closed.
    EXPECT_EQ(ZBDMTCLOSE(before), -48);
    ZBESCODE(0);
    ASSERT_EQ(ZBDMTCLOSE(tag), 0);
    EXPECT_EQ(ZBDMTHGET(before), -58);
    ZBESCODE(0);
    // A new tag under the old number isn't attached, whatever stood there.
    ASSERT_EQ(New("D", 'C', 5), 0);
    EXPECT_EQ(ZBDMTHGET(before), -58);
    ZBESCODE(0);
    EXPECT_EQ(ZBDMTERASE(file, "D"), 0);
}

TEST_F(Mdx, NewTagInTheRowOfAnAttachedOneLeavesItAlone) {
    MakeFile();
    for (const char* name : {"A", "B"}) ASSERT_EQ(New(name, 'C', 5), 0);
    int32_t before;
    ASSERT_EQ(Use("B", &before), 0);
    ASSERT_EQ(ZBDMTERASE(file, "A"), 0);
    ASSERT_EQ(New("C", 'C', 5), 0);
    EXPECT_EQ(ZBDMTHGET(before), -58);
    ZBESCODE(0);
    tag = 1 << 16 | file;
    EXPECT_EQ(Add("X", 1), 0);
    EXPECT_EQ(ZBDMCLOSE(file), 0);
}

TEST_F(Mdx, HandlesOfOtherObjectsAreRefused) {
    WriteFile("d.dbf", People({Anna}));
    int16_t data;
    ASSERT_EQ(OpenData(&data, 1), 0);
    Make('C', 5);
    ZbMdxInfo info;
    uint32_t record = 0;
    std::string key = Padded("A");
    int32_t handle = 77;
    auto bad = [](int32_t got) {
        EXPECT_EQ(got, -13);
        ZBESCODE(0);
    };
    std::swap(data, file);
    bad(ZBDMINFO(file, &info));
    bad(New("A", 'C', 5));
    bad(ZBDMTERASE(file, "T"));
    bad(Use("T", &handle));
    EXPECT_EQ(handle, -1);
    handle = 77;
    bad(ZBDMTUSEX(&handle, static_cast<uint16_t>(file), 1));
    EXPECT_EQ(handle, -1);
    bad(ZBDMKTOP(1 << 16 | file, key.data(), &record));
    bad(ZBDMCLOSE(file));
    std::swap(data, file);
    bad(ZBDDCLOSE(file));
    bad(ZBDNKTOP(file, key.data(), &record));
    EXPECT_EQ(Add("A", 1), 0);
}

// A failure found by the creation itself is one line in the log, one passed on is
// a line of each.
TEST_F(Mdx, CreationLogsEachLevelOnce) {
    Make('C', 5);
    auto logged = [&](int32_t code, const std::vector<LogEntry>& lines) {
        EXPECT_EQ(ZBECODE(), code);
        EXPECT_EQ(Log(), lines);
        ZBESCODE(0);
        StartLog();
    };
    StartLog();
    New("", 'C', 5);
    logged(-50, {{"Mtnew", -50}});
    New("A", 'L', 5);
    logged(-22, {{"Mtnew", -22}});
    New("A", 'C', 0);
    logged(-23, {{"Mtnew", -23}});
    New("T", 'C', 5);
    logged(-57, {{"Mterase", -57}, {"Mtnew", -57}});
    ZBDMTERASE(file, "T");
    logged(-57, {{"Mterase", -57}});
    ZBDMTERASE(file, "A");
    logged(-50, {{"Mterase", -50}});
    int32_t handle;
    Use("A", &handle);
    logged(-50, {{"Mopen", -50}});
    for (int i = 2; i <= 47; i++) ASSERT_EQ(New(("T" + std::to_string(i)).c_str(), 'C', 5), 0);
    New("A", 'C', 5);
    logged(-8, {{"Mtnew", -8}});
}

TEST_F(Mdx, ErasedTagLeavesAttachedOnesAtWork) {
    MakeFile();
    std::vector<int32_t> tags;
    for (const char* name : {"A", "B", "C", "D"}) {
        ASSERT_EQ(New(name, 'C', 100), 0);
        ASSERT_EQ(Use(name, &tag), 0);
        tags.push_back(tag);
        for (int i = 0; i < 9; i++) ASSERT_EQ(Add(Long(i * 4 + tag / 65536), 1), 0);
    }
    tag = tags[1];
    std::vector<int> before = Walked();
    ASSERT_EQ(ZBDMTCLOSE(tags[1]), 0);
    ASSERT_EQ(ZBDMTERASE(file, "B"), 0);
    // D stands in the place of B now, attached as it was.
    for (auto [handle, name] : {std::pair{tags[0], "A"}, {2 << 16 | int{file}, "D"}, {tags[2], "C"}}) {
        tag = handle;
        ZbMdxTagInfo info;
        ASSERT_EQ(ZBDMTINFO(tag, &info), 0);
        EXPECT_STREQ(info.name, name);
        EXPECT_EQ(Walked().size(), 10u);
        for (int i = 100; i < 120; i++) ASSERT_EQ(Add(Long(i), 1), 0);
        EXPECT_EQ(Walked().size(), 30u);
    }
    EXPECT_EQ(Word(40), 0u);  // the pages of B were taken first
}

TEST_F(Mdx, UseByNumber) {
    MakeFile();
    ASSERT_EQ(New("A", 'C', 5), 0);
    ASSERT_EQ(New("B", 'C', 5), 0);
    int32_t handle = 77;
    EXPECT_EQ(ZBDMTUSEX(&handle, static_cast<uint16_t>(file), 2), 0);
    EXPECT_EQ(handle, 2 << 16 | file);
    // 0 gets as far as a header without a key length.
    const std::pair<int16_t, int> refused[] = {{0, -23}, {3, -50}, {-1, -50}};
    for (auto& [number, code] : refused) {
        handle = 77;
        EXPECT_EQ(ZBDMTUSEX(&handle, static_cast<uint16_t>(file), number), code) << number;
        EXPECT_EQ(handle, -1);
        ZBESCODE(0);
    }
    EXPECT_EQ(ZBDMTUSEX(nullptr, static_cast<uint16_t>(file), 1), -21);
    EXPECT_EQ(ZBDMTUSEX(&handle, static_cast<uint16_t>(file), 1), -21);
    ZBESCODE(0);
    EXPECT_EQ(ZBDMTUSEX(&handle, 65535, 1), -13);
    ZBESCODE(0);
    EXPECT_EQ(ZBDMTUSE(nullptr, 0, "A"), -21);
    ZBESCODE(0);
    EXPECT_EQ(ZBDMTUSE(&handle, 0, nullptr), -21);
}

TEST_F(Mdx, UseTestsTheTagHeaderInOrder) {
    struct Case {
        size_t offset;
        const char* bytes;
        int code;
    };
    const Case cases[] = {
        {12, "0000", -23},    {12, "6500", -23},    {18, "0B00", -24}, {18, "0D00", -24},
        {0, "03000000", -25}, {0, "06000000", -25}, {14, "2A00", -26}, {14, "0100", -26},
        {14, "00FF", -26},    {8, "01", -55},       {8, "80", -55},    {8, "A7", -55},
        {8, "20", -55},       {9, "46", -22},       {16, "0200", -22}, {16, "FFFF", -22},
    };
    MakeFile();
    ASSERT_EQ(New("A", 'C', 5), 0);
    Bytes good = File();
    for (const Case& c : cases) {
        WriteFile("x.mdx", good);
        PatchFile("x.mdx", 2048 + 16, Hex("0200"));  // the check at the end
        PatchFile("x.mdx", 2048 + c.offset, Hex(c.bytes));
        EXPECT_EQ(Use("A", &tag), c.code) << c.offset << ' ' << c.bytes;
        EXPECT_EQ(tag, -1);
        ZBESCODE(0);
    }
    WriteFile("x.mdx", good);
    PatchFile("x.mdx", 2048 + 24, std::string(221, 'A'));
    EXPECT_EQ(Use("A", &tag), -7);
    ZBESCODE(0);
    for (const char* flags : {"00", "58"}) {
        WriteFile("x.mdx", good);
        PatchFile("x.mdx", 2048 + 8, Hex(flags));
        EXPECT_EQ(Use("A", &tag), 0);
    }
    // A header outside the file.
    WriteFile("x.mdx", good);
    ASSERT_EQ(ZBDMCLOSE(file), 0);
    for (const char* page : {"FF000000", "FFFFFFFF"}) {
        PatchFile("x.mdx", 512 + 32, Hex(page));
        ASSERT_EQ(Open("x.mdx", &file), 0);
        EXPECT_LT(Use("A", &tag), 0);
        ZBESCODE(0);
        EXPECT_LT(ZBDMTERASE(file, "A"), 0);
        ZBESCODE(0);
        ASSERT_EQ(ZBDMCLOSE(file), 0);
        WriteFile("x.mdx", good);
    }
}

TEST_F(Mdx, TagsPaddedByOthersAreRead) {
    MakeFile();
    ASSERT_EQ(New("A", 'C', 5), 0);
    PatchFile("x.mdx", 2048 + 18, Hex("0900"));  // an entry that isn't padded
    PatchFile("x.mdx", 2048 + 24, "NA ME");
    ASSERT_EQ(Use("A", &tag), 0);
    char text[300];
    ASSERT_EQ(ZBDMTEXPR(tag, text), 0);
    EXPECT_STREQ(text, "NAME");
    EXPECT_EQ(Add("B", 2), 0);
    EXPECT_EQ(Add("A", 1), 0);
    EXPECT_EQ(Page(5, 30),
              Hex("02000000 00000000 01000000") + "A    " + Hex("02000000") + "B    " + Hex("00000000"));
}

TEST_F(Mdx, UsedTwiceATagStartsAnew) {
    Make('C', 5);
    ASSERT_EQ(Add("A", 1), 0);
    ASSERT_EQ(Go(ZBDMKTOP).code, 0);
    int32_t again;
    ASSERT_EQ(Use("T", &again), 0);
    EXPECT_EQ(again, tag);
    EXPECT_EQ(Go(ZBDMKCUR, "X").code, 4);  // the position is gone
    EXPECT_EQ(ZBDMTCLOSE(tag), 0);
    EXPECT_EQ(ZBDMTCLOSE(tag), -58);
}

TEST_F(Mdx, TagBindTestsTheFileThenTheNumberThenTheAttachment) {
    Make('C', 5);
    ASSERT_EQ(New("U", 'C', 5), 0);
    const std::pair<int32_t, int> handles[] = {{-1, -13},
                                               {2 << 16 | 50, -13},
                                               {file, -48},
                                               {48 << 16 | file, -48},
                                               {static_cast<int32_t>(0x80000000u) | file, -48},
                                               {2 << 16 | file, -58},
                                               {47 << 16 | file, -58}};
    char text[300];
    std::string key = Padded("A");
    uint32_t record = 0;
    void* made;
    ZbBlock block;
    ZbMdxTagInfo info;
    for (auto& [handle, code] : handles) {
        auto check = [&, want = code](int32_t got) {
            EXPECT_EQ(got, want);
            ZBESCODE(0);
        };
        check(ZBDMTCLOSE(handle));
        check(ZBDMTINFO(handle, &info));
        check(ZBDMTEXPR(handle, text));
        check(ZBDMTHGET(handle));
        for (Walk walk : {ZBDMKTOP, ZBDMKBOT, ZBDMKNEXT, ZBDMKPREV, ZBDMKCUR})
            check(walk(handle, key.data(), &record));
        check(ZBDMKFIND(handle, key.data(), &record, 0));
        check(ZBDMKADD(handle, key.data(), 1));
        check(ZBDMKDEL(handle, key.data(), 1));
        check(ZBDMKMAKE(0, handle, &made));
        EXPECT_EQ(made, nullptr);
        check(ZBDMKMAKEH(0, handle, &block));
        EXPECT_EQ(block, 0xFFFFFFFF);
    }
}

TEST_F(Mdx, NullPointersAndPendingCodes) {
    Make('C', 5);
    std::string key = Padded("A");
    uint32_t record = 0;
    auto null = [](int32_t got) {
        EXPECT_EQ(got, -21);
        ZBESCODE(0);
    };
    for (Walk walk : {ZBDMKTOP, ZBDMKBOT, ZBDMKNEXT, ZBDMKPREV, ZBDMKCUR}) {
        null(walk(tag, nullptr, &record));
        null(walk(tag, key.data(), nullptr));
    }
    null(ZBDMKFIND(tag, nullptr, &record, 0));
    null(ZBDMKFIND(tag, key.data(), nullptr, 0));
    null(ZBDMKADD(tag, nullptr, 1));
    null(ZBDMKDEL(tag, nullptr, 1));
    null(ZBDMKMAKE(0, tag, nullptr));
    null(ZBDMKMAKEH(0, tag, nullptr));
    null(ZBDMKNUM(nullptr, 1));
    null(ZBDMKDATE(nullptr, "19990101", 4));
    null(ZBDMKDATE(key.data(), nullptr, 4));
    null(ZBDMTINFO(tag, nullptr));
    null(ZBDMTEXPR(tag, nullptr));
    null(ZBDMTERASE(file, nullptr));
    null(ZBDMINFO(file, nullptr));
    char expression[] = "A";
    EXPECT_EQ(ZBDMTINDEX(file, 0, nullptr, 'C', expression, 5), -13);  // the data file comes first

    ZBESCODE(-1);
    ZbMdxTagInfo info;
    ZbMdxInfo fileInfo;
    int32_t handle = 77;
    EXPECT_EQ(Add("A", 1), -1);
    EXPECT_EQ(Delete("A", 1), -1);
    EXPECT_EQ(Go(ZBDMKTOP, "X"), (Found{-1, "X", 99}));
    EXPECT_EQ(Find("X", 0, 99), (Found{-1, "X", 99}));
    EXPECT_EQ(ZBDMKNUM(key.data(), 1), -1);
    EXPECT_EQ(ZBDMKDATE(key.data(), "19990101", 4), -1);
    EXPECT_EQ(ZBDMTINFO(tag, &info), -1);
    EXPECT_EQ(ZBDMINFO(file, &fileInfo), -1);
    EXPECT_EQ(ZBDMTUSE(&handle, static_cast<uint16_t>(file), "T"), -1);
    EXPECT_EQ(handle, 77);
    EXPECT_EQ(ZBDMTCLOSE(tag), -1);
    EXPECT_EQ(ZBDMCLOSE(file), -1);
    EXPECT_EQ(ZBDMTERASE(file, "T"), -1);
    EXPECT_EQ(ZBDMTINDEX(0, 0, "T", 'C', expression, 5), -1);
    ZBESCODE(0);
    EXPECT_EQ(Add("A", 1), 0);
}

// Keys

TEST_F(Mdx, NumbersArePackedDecimals) {
    const std::pair<double, const char*> values[] = {
        {0, "2E05 00000000000000000000"},          {0.000001, "2F05 10000000000000000000"},
        {0.05, "3305 50000000000000000000"},       {0.5, "3405 50000000000000000000"},
        {1, "3505 10000000000000000000"},          {12.5, "3605 12500000000000000000"},
        {-12.5, "3685 12500000000000000000"},      {-0.0, "2E85 00000000000000000000"},
        {123456.789, "3A05 12345678900000000000"}, {99999999.999999, "3C05 99999999999999000000"}};
    for (auto& [value, bytes] : values) EXPECT_EQ(Number(value), Hex(bytes)) << value;
}

TEST_F(Mdx, NumbersThatDontFitAreRefused) {
    for (double value : {1e20, -1e20, 1e300, static_cast<double>(INFINITY), static_cast<double>(NAN)}) {
        std::string key(12, 'x');
        EXPECT_EQ(ZBDMKNUM(key.data(), value), -7) << value;
        EXPECT_EQ(key, std::string(12, 'x'));
        ZBESCODE(0);
    }
    EXPECT_EQ(Number(1234567890123456768.0), Hex("4705 12345678901234567680"));
    ZBESCODE(4);
    EXPECT_EQ(Number(1).size(), 12u);
    EXPECT_EQ(ZBECODE(), 0);
}

TEST_F(Mdx, NumbersSortAsNumbers) {
    Make('N', 0);
    const double values[] = {-500, -5, 0, 0.000001, 0.05, 0.5, 1, 12.5, 1e15};
    for (size_t i : {3, 8, 1, 5, 0, 7, 2, 4, 6})
        ASSERT_EQ(Add(Number(values[i]), static_cast<uint32_t>(i + 1)), 0);
    std::string key(13, 'x');
    uint32_t record;
    ASSERT_EQ(ZBDMKTOP(tag, key.data(), &record), 0);
    for (uint32_t i = 0; i < 9; i++) {
        EXPECT_EQ(key, Number(values[i]) + 'x');  // no terminator
        EXPECT_EQ(record, i + 1);
        ASSERT_EQ(ZBDMKNEXT(tag, key.data(), &record), i < 8 ? 0 : 3);
    }
}

TEST_F(Mdx, DatesAreDayCountsWithoutLeapDays) {
    auto date = [](const char* text, int16_t style = 4) {
        Bytes key(8, 0);
        EXPECT_EQ(ZBDMKDATE(key.data(), text, style), 0) << text;
        return key;
    };
    auto day = [&](const char* text, int16_t style = 4) {
        double value;
        memcpy(&value, date(text, style).data(), 8);
        return value;
    };
    EXPECT_EQ(date("19960229"), Hex("00 00 00 80 6F B1 42 41"));  // 2450143
    EXPECT_EQ(day("19960229"), 2450143);
    EXPECT_EQ(day("19960301"), 2450143);
    EXPECT_EQ(day("19960228"), 2450142);
    EXPECT_EQ(day("19950301"), 728308 + 1 + 59 + 1721410);
    EXPECT_EQ(day("00010101"), 1721411);
    EXPECT_EQ(day("00000101"), -365 + 1 + 1721410);
    EXPECT_EQ(day("12/31/1999", 2), 729769 + 31 + 334 + 1721410);
    // After a look at a leap year, too.
    ZBCDILEAP(2000);
    EXPECT_EQ(day("19961231"), 728673 + 31 + 334 + 1721410);
    EXPECT_EQ(date("        "), Hex("7D C3 94 25 AD 49 B2 54"));
    EXPECT_EQ(ZBECODE(), 0);
    Bytes key(8, 'x');
    EXPECT_EQ(ZBDMKDATE(key.data(), "02/30/1999", 2), -15);
    EXPECT_EQ(key, Bytes(8, 'x'));
    ZBESCODE(0);
    EXPECT_EQ(ZBDMKDATE(key.data(), "19990101", 16), -12);
}

TEST_F(Mdx, BlankDatesSortBehindAllOthers) {
    Make('D', 0);
    Bytes key(8, 0);
    const char* dates[] = {"        ", "19700101", "99991231", "00010101"};
    for (uint32_t i = 0; i < 4; i++) {
        ASSERT_EQ(ZBDMKDATE(key.data(), dates[i], 4), 0);
        ASSERT_EQ(ZBDMKADD(tag, key.data(), i + 1), 0);
    }
    for (uint32_t i : {3, 1, 2, 0}) {
        uint32_t record;
        ASSERT_EQ(ZBDMKNEXT(tag, key.data(), &record), 0);
        EXPECT_EQ(record, i + 1);
    }
}

// Doubles compare by their bytes, so two zeros differ.
TEST_F(Mdx, DateKeysBelowZeroSort) {
    Make('D', 0);
    const double days[] = {-1e9, -2.5, -2, -0.0, 0.0, 1, 1.5, 1e100};
    for (size_t i : {4, 2, 7, 0, 3, 6, 1, 5})
        ASSERT_EQ(ZBDMKADD(tag, &days[i], static_cast<uint32_t>(i + 1)), 0);
    double key;
    for (uint32_t i = 0; i < 8; i++) {
        uint32_t record;
        ASSERT_EQ(ZBDMKNEXT(tag, &key, &record), 0);
        EXPECT_EQ(record, i + 1);
    }
}

TEST_F(Mdx, CharacterKeysComeBackTerminatedAndPadded) {
    Make('C', 5);
    ASSERT_EQ(ZBDMKADD(tag, "AB", 7), 0);  // a short text is read no further than its end
    std::string key(8, 'x');
    uint32_t record = 0;
    ASSERT_EQ(ZBDMKTOP(tag, key.data(), &record), 0);
    EXPECT_EQ(key, "AB   " + Fill(1) + "xx");
    EXPECT_EQ(Page(5, 24), Hex("01000000 00000000 07000000") + "AB   " + Hex("000000 00000000"));
    ASSERT_EQ(Add("ABCDEFGH", 8), 0);
    EXPECT_EQ(Go(ZBDMKBOT), (Found{0, "ABCDE", 8}));
}

TEST_F(Mdx, FindByPrefixAndByPattern) {
    Make('C', 10);
    ASSERT_EQ(Add("SMITH", 1), 0);
    ASSERT_EQ(Add("SMYTHE", 2), 0);
    EXPECT_EQ(Find("SMI", 0), (Found{0, "SMITH     ", 1}));
    EXPECT_EQ(Find("SM", 0), (Found{0, "SMITH     ", 1}));
    EXPECT_EQ(Find("SMY", 1), (Found{0, "SMYTHE    ", 2}));
    EXPECT_EQ(Find("SM?T", 4), (Found{0, "SMITH     ", 1}));
    EXPECT_EQ(Find("SM?THE", 4), (Found{0, "SMYTHE    ", 2}));
    EXPECT_EQ(Find("SM?THE", 5), (Found{0, "SMYTHE    ", 2}));  // whatever other bits are set
    EXPECT_EQ(Find("SM?THE", 6), (Found{0, "SMYTHE    ", 2}));
    EXPECT_EQ(Find("S?Z", 4), (Found{4, "SMYTHE    ", 2}));
    // Without the bit for patterns a '?' is a byte like any other, below the letters.
    EXPECT_EQ(Find("SN?", 0), (Found{4, "SMYTHE    ", 2}));
    EXPECT_EQ(Find("SMY?", 0), (Found{4, "SMITH     ", 1}));
    EXPECT_EQ(Find("", 0), (Found{0, "SMITH     ", 1}));
}

TEST_F(Mdx, FindAboveAndBelowAll) {
    Make('C', 5);
    for (uint32_t i = 0; i < 3; i++) ASSERT_EQ(Add(std::string(1, static_cast<char>('B' + 2 * i)), i + 1), 0);
    EXPECT_EQ(Find("Z", 0), (Found{4, "F    ", 3}));
    EXPECT_EQ(Find("A", 0), (Found{0, "B    ", 1}));
    EXPECT_EQ(Find("C", 0), (Found{4, "B    ", 1}));
}

TEST_F(Mdx, ModeTwoLooksForThePair) {
    Make('C', 5);
    for (uint32_t record : {2u, 4u, 6u}) ASSERT_EQ(Add("A", record), 0);
    EXPECT_EQ(Find("A    ", 2, 4), (Found{0, "A    ", 4}));
    EXPECT_EQ(Find("A    ", 2, 5), (Found{4, "A    ", 4}));
    EXPECT_EQ(Find("A    ", 2, 7), (Found{4, "A    ", 6}));
    EXPECT_EQ(Find("A    ", 2, 1), (Found{0, "A    ", 2}));
    EXPECT_EQ(Find("A", 0), (Found{0, "A    ", 2}));
}

TEST_F(Mdx, CollatingOrderSortsByTheTable) {
    WriteProfile("[sort]\nasciisort=0\n");
    ASSERT_EQ(ZBDINIT(100, 1), 0);
    Make('C', 2);
    const char* keys[] = {"a", "Z", "\xC4", "B", "1", "("};
    for (uint32_t i = 0; i < 6; i++) ASSERT_EQ(Add(keys[i], i + 1), 0);
    std::string walked;
    for (int i = 0; i < 6; i++) walked += Go(ZBDMKNEXT).key[0];
    EXPECT_EQ(walked,
              "1\xC4"
              "BZa(");
    EXPECT_EQ(Find("\xC4", 0).code, 0);
    EXPECT_EQ(Find("\xC4 ", 2, 3).code, 0);
}

TEST_F(Mdx, EmptyTagSaysSoAndTakesTheCallersBuffersAsPosition) {
    Make('C', 5);
    EXPECT_EQ(Go(ZBDMKTOP, "ABCDE", 7), (Found{2, "ABCDE", 7}));
    EXPECT_EQ(Go(ZBDMKBOT, "ABCDE", 7), (Found{2, "ABCDE", 7}));
    EXPECT_EQ(Find("ABCDE", 0, 7), (Found{2, "ABCDE", 7}));
    EXPECT_EQ(Go(ZBDMKCUR, "XXXXX", 9), (Found{2, "XXXXX", 9}));
    EXPECT_EQ(Delete("ABCDE", 7), 2);
    ASSERT_EQ(Add("XXXXX", 9), 0);
    EXPECT_EQ(Go(ZBDMKCUR), (Found{0, "XXXXX", 9}));
}

TEST_F(Mdx, WalksWithoutAPositionStartAtTheEnds) {
    Make('C', 5);
    ASSERT_EQ(Add("A", 1), 0);
    ASSERT_EQ(Add("B", 2), 0);
    EXPECT_EQ(Go(ZBDMKNEXT), (Found{0, "A    ", 1}));
    ASSERT_EQ(ZBDMTCLOSE(tag), 0);
    ASSERT_EQ(Use("T", &tag), 0);
    EXPECT_EQ(Go(ZBDMKPREV), (Found{0, "B    ", 2}));
    ASSERT_EQ(ZBDMTCLOSE(tag), 0);
    ASSERT_EQ(Use("T", &tag), 0);
    EXPECT_EQ(Go(ZBDMKCUR, "B    ", 2), (Found{4, "B    ", 2}));
    EXPECT_EQ(Go(ZBDMKCUR), (Found{0, "B    ", 2}));
}

TEST_F(Mdx, WalksEndOnTheEndKeys) {
    Make('C', 5);
    for (uint32_t i = 0; i < 3; i++) ASSERT_EQ(Add(std::string(1, static_cast<char>('A' + i)), i + 1), 0);
    EXPECT_EQ(Go(ZBDMKBOT), (Found{0, "C    ", 3}));
    EXPECT_EQ(Go(ZBDMKNEXT), (Found{3, "C    ", 3}));
    EXPECT_EQ(Go(ZBDMKPREV), (Found{0, "B    ", 2}));
    EXPECT_EQ(Go(ZBDMKPREV), (Found{0, "A    ", 1}));
    EXPECT_EQ(Go(ZBDMKPREV), (Found{3, "A    ", 1}));
    EXPECT_EQ(Go(ZBDMKNEXT), (Found{0, "B    ", 2}));
}

TEST_F(Mdx, DeletedPositionMovesToTheEntryBeforeAndWalksOnWithAWarning) {
    Make('C', 5);
    for (uint32_t i = 0; i < 4; i++) ASSERT_EQ(Add(std::string(1, static_cast<char>('A' + i)), i + 1), 0);
    ASSERT_EQ(Find("C", 0).code, 0);
    ASSERT_EQ(Delete("C", 3), 0);
    EXPECT_EQ(Go(ZBDMKNEXT), (Found{4, "D    ", 4}));
    ASSERT_EQ(Find("B", 0).code, 0);
    ASSERT_EQ(Delete("B", 2), 0);
    EXPECT_EQ(Go(ZBDMKCUR), (Found{4, "A    ", 1}));
    EXPECT_EQ(Go(ZBDMKCUR), (Found{0, "A    ", 1}));
}

// A step whose key went and had none before it gives the first key.
TEST_F(Mdx, StepFromBelowTheFirstKeyGivesTheFirstWithAWarning) {
    Make('C', 5);
    for (uint32_t i = 0; i < 3; i++) ASSERT_EQ(Add(std::string(1, static_cast<char>('A' + i)), i + 1), 0);
    for (Walk walk : {ZBDMKNEXT, ZBDMKPREV, ZBDMKCUR}) {
        ASSERT_EQ(Go(ZBDMKTOP), (Found{0, "A    ", 1}));
        ASSERT_EQ(Delete("A", 1), 0);
        EXPECT_EQ(Go(walk), (Found{4, "B    ", 2}));
        EXPECT_EQ(Go(ZBDMKCUR), (Found{0, "B    ", 2}));
        ASSERT_EQ(Add("A", 1), 0);
    }
}

TEST_F(Mdx, StepInATagEmptiedSinceEnds) {
    Make('C', 5);
    ASSERT_EQ(Add("A", 1), 0);
    ASSERT_EQ(Go(ZBDMKTOP).code, 0);
    ASSERT_EQ(Delete("A", 1), 0);
    EXPECT_EQ(Go(ZBDMKNEXT, "X", 5), (Found{3, "X", 5}));
    ASSERT_EQ(Add("A", 1), 0);
    ASSERT_EQ(Go(ZBDMKTOP).code, 0);
    ASSERT_EQ(Delete("A", 1), 0);
    EXPECT_EQ(Go(ZBDMKCUR, "X", 5), (Found{2, "X", 5}));
}

// Add and delete

TEST_F(Mdx, FirstKeyGoesIntoTheEmptyRoot) {
    Make('C', 5);
    ASSERT_EQ(Add("ANNA", 1), 0);
    EXPECT_EQ(Page(5, 24), Hex("01000000 00000000 01000000") + "ANNA " + Hex("000000 00000000"));
    EXPECT_EQ(Word(2048), 5u);
}

TEST_F(Mdx, FifthLongKeySplitsTheRoot) {
    Make('C', 100);
    AddLong({0, 1, 2, 3});
    EXPECT_LONG_PAGE(5, Entries{{1, 0}, {2, 1}, {3, 2}, {4, 3}}, 0);
    AddLong({4});
    // The new page takes the lower three, the old root keeps two.
    EXPECT_LONG_PAGE(6, Entries{{1, 0}, {2, 1}, {3, 2}}, 0);
    EXPECT_LONG_PAGE(5, Entries{{4, 3}, {5, 4}}, 0);
    EXPECT_LONG_PAGE(7, Entries{{6, 2}}, 5);
    EXPECT_EQ(Word(2048), 7u);
    EXPECT_EQ(Word(32), 8u);
    EXPECT_EQ(FileSize("x.mdx"), 8u * 512);
    EXPECT_EQ(Walked(), (std::vector<int>{0, 1, 2, 3, 4, -3}));
}

TEST_F(Mdx, EqualPairsGoInFront) {
    Make('C', 5);
    ASSERT_EQ(Add("A", 2), 0);
    ASSERT_EQ(Add("A", 3), 0);
    ASSERT_EQ(Add("A", 1), 0);
    ASSERT_EQ(Add("A", 2), 0);
    EXPECT_EQ(Word(5 * 512), 4u);
    uint32_t expected[] = {1, 2, 2, 3};
    for (size_t i = 0; i < 4; i++) EXPECT_EQ(Word(5 * 512 + 8 + 12 * i), expected[i]);
}

// A unique tag isn't protected: the equal key goes in before those that are there.
TEST_F(Mdx, UniqueTagTakesEqualKeysAndDeletesTheFirst) {
    Make('C' | 0x80, 5);
    for (uint32_t record : {5u, 3u, 9u}) ASSERT_EQ(Add("A", record), 0);
    EXPECT_EQ(Find("A", 1), (Found{0, "A    ", 9}));
    EXPECT_EQ(Delete("A", 777), 0);
    EXPECT_EQ(Find("A", 1), (Found{0, "A    ", 3}));
}

TEST_F(Mdx, DeleteOfWhatIsntThereChangesNothingUnlessItSortsBelowAll) {
    Make('C', 5);
    ASSERT_EQ(Add("B", 1), 0);
    ASSERT_EQ(Add("D", 2), 0);
    Bytes before = File();
    EXPECT_EQ(Delete("C", 1), 4);
    EXPECT_EQ(Delete("D", 3), 4);
    EXPECT_EQ(Delete("Z", 1), 4);
    EXPECT_EQ(File(), before);
    EXPECT_EQ(Delete("A", 1), 0);  // the first entry goes
    EXPECT_EQ(Go(ZBDMKTOP), (Found{0, "D    ", 2}));
}

TEST_F(Mdx, DeleteOfTheOnlyKeyLeavesAnEmptyLeaf) {
    Make('C', 5);
    ASSERT_EQ(Add("A", 1), 0);
    ASSERT_EQ(Delete("A", 1), 0);
    EXPECT_EQ(Page(5, 12), Hex("00000000 00000000 00000000"));
    EXPECT_EQ(Go(ZBDMKTOP).code, 2);
}

TEST_F(Mdx, DeleteOfALeafsLastKeyChangesTheSeparator) {
    Make('C', 100);
    AddLong({0, 1, 2, 3, 4});
    ASSERT_EQ(DeleteLong(2), 0);
    EXPECT_LONG_PAGE(6, Entries{{1, 0}, {2, 1}}, 0);
    EXPECT_LONG_PAGE(7, Entries{{6, 1}}, 5);
}

TEST_F(Mdx, MergeWithTheRightNeighbourGivesBackTwoPages) {
    Make('C', 100);
    AddLong({0, 1, 2, 3, 4});
    ASSERT_EQ(DeleteLong(0), 0);
    ASSERT_EQ(DeleteLong(1), 0);
    // One key left of two that a page should hold, and two in the right one.
    EXPECT_LONG_PAGE(6, Entries{{3, 2}, {4, 3}, {5, 4}}, 0);
    EXPECT_EQ(Word(2048), 6u);
    EXPECT_EQ(ReadFile("x.mdx", 32, 12), Hex("08000000 07000000 02000000"));
    EXPECT_EQ(Word(7 * 512 + 4), 5u);
    EXPECT_EQ(Word(5 * 512 + 4), 0u);
    EXPECT_EQ(Word(5 * 512), 2u);  // a freed page keeps its count
    EXPECT_EQ(Walked(), (std::vector<int>{2, 3, 4, -3}));
}

TEST_F(Mdx, MergeWithTheLeftNeighbour) {
    Make('C', 100);
    AddLong({0, 1, 2, 3, 4});
    ASSERT_EQ(DeleteLong(1), 0);
    ASSERT_EQ(DeleteLong(3), 0);
    EXPECT_LONG_PAGE(6, Entries{{1, 0}, {3, 2}, {5, 4}}, 0);
    EXPECT_EQ(Word(2048), 6u);
    EXPECT_EQ(ReadFile("x.mdx", 32, 12), Hex("08000000 07000000 02000000"));
    // The next page that is wanted is the one freed last.
    AddLong({5, 6});
    EXPECT_EQ(ReadFile("x.mdx", 32, 12), Hex("08000000 00000000 00000000"));
    EXPECT_EQ(Word(2048), 5u);
}

TEST_F(Mdx, RedistributionFromTheRightNeighbour) {
    Make('C', 100);
    AddLong({0, 1, 2, 3, 4, 5, 6});  // 0 1 2 | 3 4 5 6
    ASSERT_EQ(DeleteLong(0), 0);
    ASSERT_EQ(DeleteLong(1), 0);
    EXPECT_LONG_PAGE(6, Entries{{3, 2}, {4, 3}}, 0);
    EXPECT_LONG_PAGE(5, Entries{{5, 4}, {6, 5}, {7, 6}}, 0);
    EXPECT_LONG_PAGE(7, Entries{{6, 3}}, 5);
    EXPECT_EQ(Walked(), (std::vector<int>{2, 3, 4, 5, 6, -3}));
}

// With an odd sum the separator is the left page's last key but one. A search for
// the last one looks in the right page and falls back to it with a warning.
TEST_F(Mdx, OddRedistributionFromTheLeftHidesAKey) {
    Make('C', 100);
    AddLong({1, 2, 3, 4, 5, 0});  // 0 1 2 3 | 4 5
    ASSERT_EQ(DeleteLong(5), 0);
    EXPECT_LONG_PAGE(6, Entries{{1, 0}, {2, 1}, {3, 2}}, 0);
    EXPECT_LONG_PAGE(5, Entries{{4, 3}, {5, 4}}, 0);
    EXPECT_LONG_PAGE(7, Entries{{6, 1}}, 5);
    EXPECT_EQ(Find(Long(1), 0), (Found{0, Long(1), 2}));
    EXPECT_EQ(Find(Long(2), 0), (Found{4, Long(2), 3}));
    EXPECT_EQ(Find(Long(2), 2, 3), (Found{4, Long(2), 3}));
    EXPECT_EQ(Walked(), (std::vector<int>{0, 1, 2, -4}));  // its step warns
    // It can't be deleted either.
    Bytes before = File();
    EXPECT_EQ(DeleteLong(2), 4);
    EXPECT_EQ(File(), before);
    // A key equal to it goes into the next page.
    ASSERT_EQ(Add(Long(2), 1), 0);
    EXPECT_LONG_PAGE(5, Entries{{1, 2}, {4, 3}, {5, 4}}, 0);
}

TEST_F(Mdx, EvenRedistributionFromTheLeft) {
    MakeFile(2);  // nine keys a page
    ASSERT_EQ(New("T", 'C', 100), 0);
    ASSERT_EQ(Use("T", &tag), 0);
    AddLong({10, 20, 30, 40, 50, 60, 70, 80, 90, 91});  // 10..50 | 60..91
    AddLong({11, 12, 13, 14});                          // nine on the left
    ASSERT_EQ(DeleteLong(60), 0);
    ASSERT_EQ(DeleteLong(70), 0);
    // Three against nine: six each.
    EXPECT_EQ(Word(8 * 512), 6u);
    EXPECT_EQ(Word(6 * 512), 6u);
    EXPECT_EQ(Walked(), (std::vector<int>{10, 11, 12, 13, 14, 20, 30, 40, 50, 80, 90, 91, -3}));
    for (int number : {10, 20, 30, 91}) EXPECT_EQ(Find(Long(number), 0).code, 0) << number;
}

// What stood behind the keys of a short page stays when it takes keys from the
// right: here the record number of a key that moved away in a split.
TEST_F(Mdx, RedistributionFromTheRightCanLeaveALeafThatReadsAsABranch) {
    Make('N', 0);                                                         // 31 keys a page, 15 at least
    for (uint32_t i = 1; i <= 32; i++) ASSERT_EQ(Add(Number(i), i), 0);   // 1..16 in 6 | 17..32 in 5
    for (uint32_t i = 33; i <= 47; i++) ASSERT_EQ(Add(Number(i), i), 0);  // page 5 is full
    for (uint32_t i = 1; i <= 16; i++)
        ASSERT_EQ(Add(Number(0.01 * i), 100 + i), 0);  // .01...16 in 8 | 1..16 in 6
    EXPECT_EQ(Word(8 * 512), 16u);
    EXPECT_EQ(Word(6 * 512), 16u);
    EXPECT_EQ(Word(5 * 512), 31u);
    ASSERT_EQ(Delete(Number(16), 16), 0);
    ASSERT_EQ(Delete(Number(15), 15), 0);
    EXPECT_EQ(Word(6 * 512), 22u);
    size_t behind = 6 * 512 + 8 + 22 * 16;
    EXPECT_EQ(Word(behind), 8u);

    // Every call ends, with whatever it finds.
    for (int value = 0; value <= 48; value++) {
        std::string key = Padded(Number(value));
        uint32_t record = static_cast<uint32_t>(value);
        for (int16_t mode : {0, 2}) {
            ZBDMKFIND(tag, key.data(), &record, mode);
            ZBESCODE(0);
        }
    }
    for (Walk walk : {ZBDMKTOP, ZBDMKBOT}) {
        Go(walk);
        ZBESCODE(0);
        for (int i = 0; i < 100; i++) {
            Go(walk == ZBDMKTOP ? ZBDMKNEXT : ZBDMKPREV);
            ZBESCODE(0);
        }
    }
    Bytes broken = File();
    for (int value = 0; value <= 48; value++) {
        ZBDMKADD(tag, Padded(Number(value)).c_str(), 500);
        ZBESCODE(0);
        ZBDMKDEL(tag, Padded(Number(value)).c_str(), static_cast<uint32_t>(value));
        ZBESCODE(0);
    }

    // With the four bytes cleared all keys are there.
    WriteFile("x.mdx", broken);
    PatchFile("x.mdx", behind, Fill(4));
    int keys = 0;
    std::string key(13, 0);
    uint32_t record;
    for (int32_t code = ZBDMKTOP(tag, key.data(), &record); code == 0;
         code = ZBDMKNEXT(tag, key.data(), &record))
        keys++;
    EXPECT_EQ(keys, 61);
}

TEST_F(Mdx, BranchesSplitMergeAndRedistribute) {
    Make('C', 100);
    std::vector<int> all;
    for (int i = 0; i < 200; i++) {
        ASSERT_EQ(Add(Long(i), static_cast<uint32_t>(i) + 1), 0);
        all.push_back(i);
    }
    all.push_back(-3);
    EXPECT_EQ(Walked(), all);
    // From the front: neighbours on the right; nothing is hidden that way.
    for (int i = 0; i < 200; i++) {
        ASSERT_EQ(DeleteLong(i), 0) << i;
        if (i % 20 == 0 && i < 199) {
            all.assign(1, -3);
            for (int k = 199; k > i; k--) all.insert(all.begin(), k);
            ASSERT_EQ(Walked(), all);
        }
    }
    EXPECT_EQ(Go(ZBDMKTOP).code, 2);
    // Every page but the tag's header and its root is free.
    EXPECT_EQ(Word(40), Word(32) - 6);
}

// Whether a page is full is told by the low bytes of both counts.
TEST_F(Mdx, TagsOfMoreThan127KeysAPage) {
    Make('C', 100, 32);  // 157 keys a page
    EXPECT_EQ(Page(4, 2, 14), Hex("9D00"));
    for (int i = 0; i < 157; i++) ASSERT_EQ(Add(Long(i), static_cast<uint32_t>(i) + 1), 0);
    EXPECT_EQ(Word(2048), 36u);  // still the first root
    AddLong({157});
    EXPECT_EQ(Word(36 * 512), 79u);
    EXPECT_EQ(Word(68 * 512), 79u);
    std::vector<int> walked = Walked();
    EXPECT_EQ(walked.size(), 159u);
    for (int i = 0; i < 158; i++) ASSERT_EQ(DeleteLong(i), 0) << i;
}

TEST_F(Mdx, TagsOfMoreThan255KeysAPageSplitEarly) {
    Make('C', 44, 32);  // 341 keys a page, which is 85 in its low byte
    EXPECT_EQ(Page(4, 2, 14), Hex("5501"));
    auto key = [](int i) { return std::to_string(1000 + i); };
    for (int i = 0; i < 85; i++) ASSERT_EQ(Add(key(i), static_cast<uint32_t>(i) + 1), 0);
    EXPECT_EQ(Word(36 * 512), 85u);
    ASSERT_EQ(Add(key(85), 86), 0);
    EXPECT_EQ(Word(36 * 512), 43u);
    EXPECT_EQ(Word(68 * 512), 43u);
    for (int i = 86; i < 2000; i++) ASSERT_EQ(Add(key(i), static_cast<uint32_t>(i) + 1), 0);
    for (int i = 0; i < 2000; i++) ASSERT_EQ(Delete(key(i), static_cast<uint32_t>(i) + 1), 0) << i;
    EXPECT_EQ(Go(ZBDMKTOP).code, 2);
}

TEST_F(Mdx, ReadOnlyFilesRefuseChanges) {
    Make('C', 5);
    ASSERT_EQ(Add("A", 1), 0);
    ASSERT_EQ(ZBDMCLOSE(file), 0);
    ASSERT_EQ(Open("x.mdx", &file, ZB_ReadOnly), 0);
    ASSERT_EQ(Use("T", &tag), 0);
    EXPECT_EQ(Go(ZBDMKTOP), (Found{0, "A    ", 1}));
    EXPECT_EQ(Add("B", 2), -36);
    ZBESCODE(0);
    EXPECT_EQ(Delete("A", 1), -36);
    ZBESCODE(0);
    Bytes before = File();
    EXPECT_EQ(New("B", 'C', 5), -1);
    ZBESCODE(0);
    EXPECT_EQ(File(), before);
}

TEST_F(Mdx, TwoHandlesSeeEachOthersChanges) {
    MakeFile();
    ASSERT_EQ(New("T", 'C', 100), 0);
    ASSERT_EQ(ZBDMCLOSE(file), 0);
    int16_t other;
    ASSERT_EQ(Open("x.mdx", &file, ZB_Shared), 0);
    ASSERT_EQ(Open("x.mdx", &other, ZB_Shared), 0);
    ASSERT_EQ(Use("T", &tag), 0);
    int32_t mine = tag, theirs;
    ASSERT_EQ(ZBDMTUSE(&theirs, static_cast<uint16_t>(other), "T"), 0);
    for (int i = 0; i < 60; i++) {
        tag = i % 2 ? mine : theirs;
        ASSERT_EQ(Add(Long(i), static_cast<uint32_t>(i) + 1), 0);
    }
    tag = mine;
    EXPECT_EQ(Walked().size(), 61u);
    for (int i = 0; i < 60; i++) {
        tag = i % 3 ? mine : theirs;
        ASSERT_EQ(DeleteLong(i), 0);
    }
    // A tag made by one isn't seen by the other until it opens the file again.
    ASSERT_EQ(New("U", 'C', 5), 0);
    int32_t handle;
    EXPECT_EQ(ZBDMTUSE(&handle, static_cast<uint16_t>(other), "U"), -50);
}

TEST_F(Mdx, RefreshReadsTheHeaderAgain) {
    Make('C', 5);
    PatchFile("x.mdx", 2048, Hex("63000000"));  // a root outside the file
    EXPECT_EQ(ZBDMTHGET(tag), 0);
    EXPECT_EQ(Go(ZBDMKTOP).code, -4);
    ZBESCODE(0);
    PatchFile("x.mdx", 2048, Hex("05000000"));
    EXPECT_EQ(Go(ZBDMKTOP).code, 2);
}

// Deletes in trees laid out by hand

// A tree of three levels whose pages a test writes itself: the root, two branches
// and their leaves.
class MdxTree : public Mdx {
  protected:
    // Page by page from the root's on; the tag's header is at page 4. Numbers of
    // keys are those of Long, records one more.
    void Lay(int multiplier, const std::vector<Bytes>& pages) {
        Make('C', 100, multiplier);
        auto block = static_cast<size_t>(multiplier) * 512;
        Bytes image = File().substr(0, 2048 + block);
        for (const Bytes& page : pages) {
            image += page;
            image.resize((image.size() + block - 1) / block * block);
        }
        WriteFile("x.mdx", image);
        PatchFile("x.mdx", 32, Le32(static_cast<int64_t>(image.size() / 512)));
    }
    static Bytes Leaf(std::initializer_list<int> numbers) {
        Entries entries;
        for (int number : numbers) entries.push_back({static_cast<uint32_t>(number) + 1, number});
        return LongPage(entries, 0);
    }
    void ExpectKeys(std::vector<int> numbers) {
        for (int number : numbers)
            EXPECT_EQ(Find(Long(number), 2, static_cast<uint32_t>(number) + 1).code, 0) << number;
        numbers.push_back(-3);
        EXPECT_EQ(Walked(), numbers);
    }
};

TEST_F(MdxTree, BranchTakesFromItsLeftNeighbour) {
    Lay(1, {LongPage({{6, 50}}, 7), LongPage({{8, 10}, {9, 20}, {10, 30}, {11, 40}}, 12),
            LongPage({{13, 60}, {14, 70}}, 15), Leaf({5, 10}), Leaf({15, 20}), Leaf({25, 30}), Leaf({35, 40}),
            Leaf({45, 50}), Leaf({55, 60}), Leaf({65, 70}), Leaf({75, 80})});
    ASSERT_EQ(DeleteLong(75), 0);
    EXPECT_LONG_PAGE(14, Entries{{66, 65}, {71, 70}, {81, 80}}, 0);
    EXPECT_LONG_PAGE(7, Entries{{12, 50}, {13, 60}}, 14);
    EXPECT_LONG_PAGE(6, Entries{{8, 10}, {9, 20}, {10, 30}}, 11);
    EXPECT_LONG_PAGE(5, Entries{{6, 40}}, 7);
    EXPECT_EQ(ReadFile("x.mdx", 32, 12), Hex("10000000 0F000000 01000000"));
    ExpectKeys({5, 10, 15, 20, 25, 30, 35, 40, 45, 50, 55, 60, 65, 70, 80});
}

TEST_F(MdxTree, BranchTakesFromItsRightNeighbour) {
    Lay(1, {LongPage({{6, 30}}, 7), LongPage({{8, 10}, {9, 20}}, 10),
            LongPage({{11, 40}, {12, 50}, {13, 60}, {14, 70}}, 15), Leaf({5, 10}), Leaf({15, 20}),
            Leaf({25, 30}), Leaf({35, 40}), Leaf({45, 50}), Leaf({55, 60}), Leaf({65, 70}), Leaf({75, 80})});
    ASSERT_EQ(DeleteLong(5), 0);
    EXPECT_LONG_PAGE(8, Entries{{11, 10}, {16, 15}, {21, 20}}, 0);
    EXPECT_LONG_PAGE(6, Entries{{8, 20}, {10, 30}}, 11);
    EXPECT_LONG_PAGE(7, Entries{{12, 50}, {13, 60}, {14, 70}}, 15);
    EXPECT_LONG_PAGE(5, Entries{{6, 40}}, 7);
    EXPECT_EQ(ReadFile("x.mdx", 32, 12), Hex("10000000 09000000 01000000"));
    ExpectKeys({10, 15, 20, 25, 30, 35, 40, 45, 50, 55, 60, 65, 70, 75, 80});
}

TEST_F(MdxTree, BranchesJoinFromTheRightAndTheRootGoes) {
    Lay(1, {LongPage({{6, 30}}, 7), LongPage({{8, 10}, {9, 20}}, 10), LongPage({{11, 40}, {12, 50}}, 13),
            Leaf({5, 10}), Leaf({15, 20}), Leaf({25, 30}), Leaf({35, 40}), Leaf({45, 50}), Leaf({55, 60})});
    ASSERT_EQ(DeleteLong(55), 0);
    EXPECT_LONG_PAGE(12, Entries{{46, 45}, {51, 50}, {61, 60}}, 0);
    EXPECT_LONG_PAGE(6, Entries{{8, 10}, {9, 20}, {10, 30}, {11, 40}}, 12);
    EXPECT_EQ(Word(2048), 6u);
    // The leaf was freed first, then the branch, then the root.
    EXPECT_EQ(ReadFile("x.mdx", 32, 12), Hex("0E000000 05000000 03000000"));
    EXPECT_EQ(Word(5 * 512 + 4), 7u);
    EXPECT_EQ(Word(7 * 512 + 4), 13u);
    EXPECT_EQ(Word(13 * 512 + 4), 0u);
    ExpectKeys({5, 10, 15, 20, 25, 30, 35, 40, 45, 50, 60});
}

TEST_F(MdxTree, BranchesJoinFromTheLeftAndTheRootGoes) {
    Lay(1, {LongPage({{6, 30}}, 7), LongPage({{8, 10}, {9, 20}}, 10), LongPage({{11, 40}, {12, 50}}, 13),
            Leaf({5, 10}), Leaf({15, 20}), Leaf({25, 30}), Leaf({35, 40}), Leaf({45, 50}), Leaf({55, 60})});
    ASSERT_EQ(DeleteLong(5), 0);
    EXPECT_LONG_PAGE(8, Entries{{11, 10}, {16, 15}, {21, 20}}, 0);
    EXPECT_LONG_PAGE(6, Entries{{8, 20}, {10, 30}, {11, 40}, {12, 50}}, 13);
    EXPECT_EQ(Word(2048), 6u);
    EXPECT_EQ(ReadFile("x.mdx", 32, 12), Hex("0E000000 05000000 03000000"));
    EXPECT_EQ(Word(5 * 512 + 4), 7u);
    EXPECT_EQ(Word(7 * 512 + 4), 9u);
    ExpectKeys({10, 15, 20, 25, 30, 35, 40, 45, 50, 55, 60});
}

// Blocks of two units, nine keys a page: several children move at once. Leaf i is
// page 12 + 2i and holds 10i + 1 to 10i + 4.
class WideMdxTree : public MdxTree {
  protected:
    static uint32_t LeafPage(int i) { return static_cast<uint32_t>(12 + 2 * i); }
    static int Highest(int i) { return 10 * i + 4; }
    // A branch over the leaves from one to another.
    static Bytes Branch(int first, int last) {
        Entries entries;
        for (int i = first; i < last; i++) entries.push_back({LeafPage(i), Highest(i)});
        return LongPage(entries, LeafPage(last));
    }
    // The branches over the leaves before a border and behind it.
    void LayWide(int border) {
        std::vector<Bytes> pages{LongPage({{8, Highest(border - 1)}}, 10), Branch(0, border - 1),
                                 Branch(border, 14)};
        for (int i = 0; i < 15; i++) pages.push_back(Leaf({10 * i + 1, 10 * i + 2, 10 * i + 3, 10 * i + 4}));
        Lay(2, pages);
    }
    static std::vector<int> AllBut(int gone) {
        std::vector<int> numbers;
        for (int i = 0; i < 15; i++)
            for (int k = 1; k <= 4; k++)
                if (10 * i + k != gone) numbers.push_back(10 * i + k);
        return numbers;
    }
};

TEST_F(WideMdxTree, BranchTakesThreeFromItsLeftNeighbour) {
    LayWide(10);
    ASSERT_EQ(DeleteLong(141), 0);
    EXPECT_LONG_PAGE(10,
                     Entries{{LeafPage(7), 74},
                             {LeafPage(8), 84},
                             {LeafPage(9), 94},
                             {LeafPage(10), 104},
                             {LeafPage(11), 114},
                             {LeafPage(12), 124}},
                     LeafPage(13));
    Bytes left = Branch(0, 6);
    EXPECT_EQ(Page(8, left.size()), left);
    EXPECT_LONG_PAGE(6, Entries{{8, 64}}, 10);
    ExpectKeys(AllBut(141));
}

TEST_F(WideMdxTree, BranchTakesThreeFromItsRightNeighbour) {
    LayWide(5);
    ASSERT_EQ(DeleteLong(1), 0);
    EXPECT_LONG_PAGE(8,
                     Entries{{LeafPage(0), 14},
                             {LeafPage(2), 24},
                             {LeafPage(3), 34},
                             {LeafPage(4), 44},
                             {LeafPage(5), 54},
                             {LeafPage(6), 64}},
                     LeafPage(7));
    Bytes right = Branch(8, 14);
    EXPECT_EQ(Page(10, right.size()), right);
    EXPECT_LONG_PAGE(6, Entries{{8, 74}}, 10);
    ExpectKeys(AllBut(1));
}

// A leaf's highest key that ends two levels up: the separators between stay.
TEST_F(MdxTree, LastKeyOfABranchsLastLeafCorrectsTheSeparatorAboveTheBranch) {
    Lay(1,
        {LongPage({{6, 30}}, 7), LongPage({{8, 10}, {9, 20}}, 10), LongPage({{11, 40}, {12, 50}}, 13),
         Leaf({5, 10}), Leaf({15, 20}), Leaf({25, 28, 30}), Leaf({35, 40}), Leaf({45, 50}), Leaf({55, 60})});
    ASSERT_EQ(DeleteLong(30), 0);
    EXPECT_LONG_PAGE(10, Entries{{26, 25}, {29, 28}}, 0);
    EXPECT_LONG_PAGE(6, Entries{{8, 10}, {9, 20}}, 10);
    EXPECT_LONG_PAGE(5, Entries{{6, 28}}, 7);
    // The highest key of all has no separator.
    ASSERT_EQ(Add(Long(58), 59), 0);
    Bytes above = Page(5);
    ASSERT_EQ(DeleteLong(60), 0);
    EXPECT_LONG_PAGE(13, Entries{{56, 55}, {59, 58}}, 0);
    EXPECT_EQ(Page(5), above);
}

// A search that fails leaves the position alone, also where it had come by other
// keys before.
TEST_F(MdxTree, FailedSearchLeavesThePosition) {
    // The separators are higher than the keys: the search for 40 passes three leaves.
    Lay(1, {LongPage({{6, 50}, {7, 50}}, 8), Leaf({1, 2}), Leaf({10, 11}), Leaf({40, 41})});
    ASSERT_EQ(Find(Long(40), 0), (Found{0, Long(40), 41}));
    PatchFile("x.mdx", 5 * 512 + 8 + 2 * 104, Le32(99));
    for (Walk walk : {ZBDMKCUR, ZBDMKNEXT, ZBDMKPREV}) {
        EXPECT_EQ(Go(walk).code, -4);
        ZBESCODE(0);
    }
    PatchFile("x.mdx", 5 * 512 + 8 + 2 * 104, Le32(8));
    EXPECT_EQ(Go(ZBDMKCUR), (Found{0, Long(40), 41}));
}

// Making keys

TEST_F(Mdx, KeysAreMadeFromRecords) {
    WriteFile("d.dbf", Dbf(3, 1 + 5 + 8 + 6,
                           {DbfField("NAME", 'C', 5), DbfField("SUM", 'N', 6, 2), DbfField("BORN", 'D', 8)},
                           {" ANNA  12.5019960229", " BERT  -0.05        "}));
    int16_t data;
    ASSERT_EQ(OpenData(&data, 1), 0);
    MakeFile();
    ASSERT_EQ(New("NAME", 'C', 5, "NAME"), 0);
    ASSERT_EQ(New("BORN", 'D', 0, "BORN"), 0);
    ASSERT_EQ(New("SUM", 'N', 0, "SUM"), 0);
    ASSERT_EQ(New("BAD", 'C', 5, "NAME+1"), 0);
    auto made = [&](const char* name, size_t length) {
        int32_t handle;
        void* key = &handle;
        EXPECT_EQ(ZBDMTUSE(&handle, static_cast<uint16_t>(file), name), 0);
        EXPECT_EQ(ZBDMKMAKE(data, handle, &key), 0);
        Bytes bytes(static_cast<char*>(key), length);
        ZBMFREE(key);
        ZbBlock block = 0;
        EXPECT_EQ(ZBDMKMAKEH(data, handle, &block), 0);
        EXPECT_EQ(_ZBMLOCK(&key, block), 0);
        EXPECT_EQ(Bytes(static_cast<char*>(key), length), bytes);
        _ZBMFREE(block);
        return bytes;
    };
    ASSERT_EQ(ZBDDRGET(data, 1), 0);
    ZBCDSTYLE(2);
    EXPECT_EQ(made("BORN", 8), Hex("00 00 00 80 6F B1 42 41"));
    EXPECT_EQ(made("NAME", 6), "ANNA " + Fill(1));
    EXPECT_EQ(made("SUM", 12), Hex("3605 12500000000000000000"));
    ASSERT_EQ(ZBDDRGET(data, 2), 0);
    EXPECT_EQ(made("BORN", 8), Hex("7D C3 94 25 AD 49 B2 54"));
    EXPECT_EQ(made("SUM", 12), Hex("3385 50000000000000000000"));
    int32_t bad;
    ASSERT_EQ(Use("BAD", &bad), 0);
    void* key = &bad;
    EXPECT_LT(ZBDMKMAKE(data, bad, &key), 0);
    EXPECT_EQ(key, nullptr);
}

TEST_F(Mdx, ExpressionsOfOtherTypesMakeNoKeys) {
    WriteFile("d.dbf",
              Dbf(3, 1 + 1 + 10, {DbfField("FLAG", 'L', 1), DbfField("SUM", 'N', 10)}, {" T1234567890"}));
    int16_t data;
    ASSERT_EQ(OpenData(&data, 1), 0);
    ASSERT_EQ(ZBDDRGET(data, 1), 0);
    MakeFile();
    ASSERT_EQ(New("FLAG", 'C', 5, "FLAG"), 0);
    ASSERT_EQ(Use("FLAG", &tag), 0);
    void* key = &tag;
    EXPECT_EQ(ZBDMKMAKE(data, tag, &key), -7);
    EXPECT_EQ(key, nullptr);
}

// Build

class MdxBuild : public Mdx {
  protected:
    int16_t data = -1;

    void MakeData(const std::vector<Bytes>& records) {
        WriteFile(
            "d.dbf",
            Dbf(3, 1 + 5 + 8 + 6,
                {DbfField("NAME", 'C', 5), DbfField("SUM", 'N', 6, 2), DbfField("BORN", 'D', 8)}, records));
        ASSERT_EQ(OpenData(&data, 1 | ZB_Shared), 0);
        MakeFile();
    }
    int32_t Index(const char* name, uint32_t type, int32_t length, std::string expression) {
        return ZBDMTINDEX(data, static_cast<uint16_t>(file), name, type, expression.data(), length);
    }
    // Whether another handle can have the whole data file.
    static bool Unlocked() {
        int16_t other;
        EXPECT_EQ(OpenData(&other, 1 | ZB_Shared), 0);
        uint16_t conflict = 0;
        ZBDDLOCK(other, 2, &conflict);
        ZBDDCLOSE(other);
        return conflict == 0;
    }
};

TEST_F(MdxBuild, EmptyDataFileLeavesAnEmptyTag) {
    MakeData({});
    StartLog();
    EXPECT_EQ(Index("T", 'C', 5, "NAME"), 0);
    EXPECT_EQ(Log(), std::vector<LogEntry>());
    ASSERT_EQ(Use("T", &tag), 0);
    EXPECT_EQ(Go(ZBDMKTOP).code, 2);
    ZbDataInfo info;
    ASSERT_EQ(ZBDDINFO(data, &info), 0);
    EXPECT_EQ(info.lockLength, 0u);  // nothing was locked
}

TEST_F(MdxBuild, DeletedRecordsAreIncluded) {
    MakeData({" CLEO   3.0020010101", "*ANNA   1.0019960229", " BERT  -2.00        "});
    ASSERT_EQ(Index("N", 'C', 5, "NAME"), 0);
    ASSERT_EQ(Index("S", 'N', 0, "SUM"), 0);
    ASSERT_EQ(Index("B", 'D', 0, "BORN"), 0);
    EXPECT_EQ(ZBECODE(), 0);
    auto records = [&](const char* name) {
        std::vector<uint32_t> found;
        std::string key = Padded("");
        uint32_t record;
        EXPECT_EQ(Use(name, &tag), 0);
        while (ZBDMKNEXT(tag, key.data(), &record) == 0) found.push_back(record);
        return found;
    };
    EXPECT_EQ(records("N"), (std::vector<uint32_t>{2, 3, 1}));
    EXPECT_EQ(records("S"), (std::vector<uint32_t>{3, 2, 1}));
    // The client's date style shows a year by two digits: 2001 comes back as 1901.
    EXPECT_EQ(records("B"), (std::vector<uint32_t>{1, 2, 3}));
    ZBCDSTYLE(4);
    ASSERT_EQ(Index("B4", 'D', 0, "BORN"), 0);
    EXPECT_EQ(records("B4"), (std::vector<uint32_t>{2, 1, 3}));
    EXPECT_TRUE(Unlocked());
}

TEST_F(MdxBuild, BuiltFileIsThatOfSingleAdds) {
    std::vector<Bytes> records;
    for (int i = 0; i < 700; i++) {
        char text[32];
        snprintf(text, sizeof text, "%cK%04d%6.2f        ", i % 7 ? ' ' : '*', i * 7919 % 1009,
                 i * 31 % 500 / 4.0);
        records.push_back(text);
    }
    MakeData(records);
    for (int multiplier : {1, 2}) {
        ASSERT_EQ(ZBDMCLOSE(file), 0);
        MakeFile(multiplier);
        ASSERT_EQ(Index("A", 'C', 60, "NAME"), 0);
        ASSERT_EQ(Index("B", 'N', 0, "SUM+1"), 0);
        ASSERT_EQ(ZBDMTERASE(file, "A"), 0);
        ASSERT_EQ(Index("C", 'C', 30, "NAME"), 0);  // from free pages
        Bytes built = File();
        ASSERT_EQ(ZBDMCLOSE(file), 0);

        MakeFile(multiplier);
        auto single = [&](const char* name, uint32_t type, int32_t length, const char* expression) {
            ASSERT_EQ(New(name, type, length, expression), 0);
            ASSERT_EQ(Use(name, &tag), 0);
            for (int i = 1; i <= 700; i++) {
                ASSERT_GE(ZBDDRGET(data, i), 0);
                void* key;
                ASSERT_EQ(ZBDMKMAKE(data, tag, &key), 0);
                ASSERT_EQ(ZBDMKADD(tag, key, static_cast<uint32_t>(i)), 0);
                ZBMFREE(key);
            }
            ASSERT_EQ(ZBDMTCLOSE(tag), 0);
        };
        single("A", 'C', 60, "NAME");
        single("B", 'N', 0, "SUM+1");
        ASSERT_EQ(ZBDMTERASE(file, "A"), 0);
        single("C", 'C', 30, "NAME");
        EXPECT_EQ(File(), built);
    }
}

TEST_F(MdxBuild, FailureErasesTheTag) {
    MakeData({" CLEO   3.0020010101"});
    ASSERT_EQ(Index("N", 'C', 5, "NAME"), 0);
    EXPECT_EQ(Index("X", 'C', 5, "NAME+1"), -7);
    EXPECT_EQ(ZBECODE(), -7);
    ZBESCODE(0);
    EXPECT_EQ(Use("X", &tag), -50);
    ZBESCODE(0);
    EXPECT_EQ(ReadFile("x.mdx", 28, 2), Hex("0100"));
    EXPECT_EQ(Word(40), 2u);  // its header and its root
    EXPECT_TRUE(Unlocked());
    EXPECT_EQ(Use("N", &tag), 0);
    EXPECT_EQ(Go(ZBDMKTOP), (Found{0, "CLEO ", 1}));
}

TEST_F(MdxBuild, BadTagsEndTheBuildAtOnce) {
    MakeData({" CLEO   3.0020010101"});
    EXPECT_EQ(Index("N", 'L', 5, "NAME"), -22);
    ZBESCODE(0);
    EXPECT_EQ(Index("", 'C', 5, "NAME"), -50);
    ZBESCODE(0);
    EXPECT_EQ(FileSize("x.mdx"), 2048u);
    data = file;
    EXPECT_EQ(Index("N", 'C', 5, "NAME"), -13);
}

TEST_F(MdxBuild, BuildGoesOnWithoutTheLock) {
    MakeData({" CLEO   3.0020010101"});
    int16_t other;
    ASSERT_EQ(OpenData(&other, 1 | ZB_Shared), 0);
    uint16_t conflict = 0;
    ASSERT_EQ(ZBDDRLOCK(other, 1, 7, &conflict), 0);
    EXPECT_EQ(Index("N", 'C', 5, "NAME"), 0);
    ASSERT_EQ(Use("N", &tag), 0);
    EXPECT_EQ(Go(ZBDMKTOP), (Found{0, "CLEO ", 1}));
    // The other's lock stands.
    ASSERT_EQ(ZBDDRLOCK(data, 1, 5, &conflict), 0);
    EXPECT_EQ(conflict, 100);
}

TEST_F(MdxBuild, BuildOverAnAttachedTagIsRefused) {
    MakeData({" CLEO   3.0020010101"});
    ASSERT_EQ(Index("N", 'C', 5, "NAME"), 0);
    ASSERT_EQ(Use("N", &tag), 0);
    EXPECT_EQ(Index("N", 'C', 5, "NAME"), -57);
    ZBESCODE(0);
    EXPECT_EQ(Go(ZBDMKTOP), (Found{0, "CLEO ", 1}));
    ASSERT_EQ(ZBDMTCLOSE(tag), 0);
    EXPECT_EQ(Index("N", 'C', 5, "NAME"), 0);
}

int16_t closedByHost = -1;

int32_t CloseTheIndex(ZbEvalState*) {
    ZBDMCLOSE(closedByHost);
    return ZBESCODE(0);
}

TEST_F(MdxBuild, HostFunctionMayCloseTheFile) {
    MakeData({" CLEO   3.0020010101", " ANNA   3.0020010101"});
    char name[] = "CLOSEIT(";
    ASSERT_EQ(ZBDXADD(name, CloseTheIndex), 0);
    closedByHost = file;
    EXPECT_LT(Index("N", 'C', 5, "NAME+CLOSEIT("), 0);
    ZBESCODE(0);
    EXPECT_TRUE(Unlocked());
}

// Damage

class MdxDamage : public Mdx {
  protected:
    // Every kind of call, none of which may crash or hang.
    void TryEverything() {
        int32_t handle;
        ZbMdxTagInfo info;
        char text[300];
        if (Open("x.mdx", &file) < 0) {
            ZBESCODE(0);
            return;
        }
        for (int16_t number = 0; number < 3; number++) {
            ZBESCODE(0);
            if (ZBDMTUSEX(&handle, static_cast<uint16_t>(file), number) < 0) continue;
            tag = handle;
            ZBDMTINFO(tag, &info);
            ZBDMTEXPR(tag, text);
            for (Walk walk : {ZBDMKTOP, ZBDMKNEXT, ZBDMKBOT, ZBDMKPREV, ZBDMKCUR}) {
                for (int i = 0; i < 3; i++) Go(walk);
                ZBESCODE(0);
            }
            for (int i : {0, 5, 7, 12, 30}) {
                for (int16_t mode : {0, 2, 4}) {
                    Find(i % 2 ? Long(i) : "1?", mode, static_cast<uint32_t>(i));
                    ZBESCODE(0);
                }
                Add(Long(i), 77);
                ZBESCODE(0);
                DeleteLong(i);
                ZBESCODE(0);
                DeleteLong(i + 1);
                ZBESCODE(0);
            }
        }
        New("NEW", 'N', 0);
        ZBESCODE(0);
        New("T", 'N', 0);
        ZBESCODE(0);
        for (const char* name : {"T", "U", "NEW"}) {
            if (Use(name, &handle) >= 0) ZBDMTCLOSE(handle);
            ZBESCODE(0);
            ZBDMTERASE(file, name);
            ZBESCODE(0);
        }
        EXPECT_EQ(ZBDMCLOSE(file), 0);
        ZBESCODE(0);
    }
};

TEST_F(MdxDamage, AnyByteMayBeWrong) {
    Make('C', 100);
    for (int i = 0; i < 14; i++) ASSERT_EQ(Add(Long(i), static_cast<uint32_t>(i) + 1), 0);
    ASSERT_EQ(New("U", 'C', 5), 0);
    ASSERT_EQ(DeleteLong(3), 0);
    ASSERT_EQ(ZBDMCLOSE(file), 0);
    Bytes good = File();
    unsigned random = 7;
    for (size_t at = 0; at < good.size(); at++) {
        // The bytes that mean something: headers, table rows, and of pages all that isn't within a key.
        size_t inPage = at % 512;
        if (at < 512 ? at >= 48 : at < 2048 ? at >= 512 + 96 : inPage >= 24 && (inPage - 8) % 104 >= 5)
            continue;
        random = random * 1103515245 + 12345;
        const unsigned values[] = {0, 5, 0xFF, random >> 16};
        Bytes bad = good;
        bad[at] = static_cast<char>(values[random >> 24 & 3]);
        WriteFile("x.mdx", bad);
        TryEverything();
    }
}

TEST_F(MdxDamage, FileMayEndAnywhere) {
    Make('C', 100);
    for (int i = 0; i < 14; i++) ASSERT_EQ(Add(Long(i), static_cast<uint32_t>(i) + 1), 0);
    ASSERT_EQ(ZBDMCLOSE(file), 0);
    Bytes good = File();
    for (size_t length = 2000; length < good.size(); length += 199) {
        WriteFile("x.mdx", good.substr(0, length));
        TryEverything();
    }
}

TEST_F(MdxDamage, CountsBeyondThePageAndPagesOutsideTheFileAreRefused) {
    Make('C', 100);
    AddLong({0, 1, 2, 3, 4});  // leaves 6 and 5, root 7
    Bytes good = File();
    PatchFile("x.mdx", 6 * 512, Hex("0500"));
    EXPECT_EQ(Go(ZBDMKTOP).code, -6);
    ZBESCODE(0);
    WriteFile("x.mdx", good);
    for (const char* child : {"03000000", "08000000", "FFFFFFFF"}) {
        PatchFile("x.mdx", 7 * 512 + 8, Hex(child));
        EXPECT_EQ(Go(ZBDMKTOP).code, -4);
        ZBESCODE(0);
        EXPECT_EQ(Find(Long(0), 0).code, -4);
        ZBESCODE(0);
    }
    // A circle.
    PatchFile("x.mdx", 7 * 512 + 8, Hex("07000000"));
    EXPECT_EQ(Go(ZBDMKTOP).code, -6);
    ZBESCODE(0);
    EXPECT_EQ(Find(Long(0), 0).code, -6);
    ZBESCODE(0);
    EXPECT_EQ(Add(Long(0), 1), -6);
    ZBESCODE(0);
    EXPECT_EQ(DeleteLong(0), -6);
    ZBESCODE(0);
    ASSERT_EQ(ZBDMTCLOSE(tag), 0);
    EXPECT_EQ(ZBDMTERASE(file, "T"), -6);
}

TEST_F(MdxDamage, EraseRefusesWhatTheTreeCantBe) {
    struct Case {
        size_t offset;
        const char* bytes;
        int code;
    };
    const Case cases[] = {{2048, "00000000", -4},       {2048, "FF000000", -4}, {2048 + 18, "0000", -6},
                          {2048 + 18, "FFFF", -6},      {7 * 512, "FFFF", -6},  {6 * 512, "0500", -6},
                          {7 * 512 + 8, "01000000", -4}};
    Make('C', 100);
    AddLong({0, 1, 2, 3, 4});
    ASSERT_EQ(ZBDMCLOSE(file), 0);
    Bytes good = File();
    for (const Case& c : cases) {
        WriteFile("x.mdx", good);
        PatchFile("x.mdx", c.offset, Hex(c.bytes));
        ASSERT_EQ(Open("x.mdx", &file), 0);
        EXPECT_EQ(ZBDMTERASE(file, "T"), c.code) << c.offset;
        ZBESCODE(0);
        EXPECT_EQ(Use("T", &tag), -50);  // gone from the table all the same
        ZBESCODE(0);
        ASSERT_EQ(ZBDMCLOSE(file), 0);
    }
}

TEST_F(MdxDamage, FreeListsOutsideTheFileAreRefused) {
    Make('C', 100);
    ASSERT_EQ(ZBDMCLOSE(file), 0);
    Bytes good = File();
    for (const char* head : {"01000000", "FF000000", "FFFFFFFF"}) {
        WriteFile("x.mdx", good);
        PatchFile("x.mdx", 36, Hex(head));
        ASSERT_EQ(Open("x.mdx", &file), 0);
        EXPECT_EQ(New("U", 'C', 5), -4);
        ZBESCODE(0);
        ASSERT_EQ(Use("T", &tag), 0);
        for (int i = 0; i < 4; i++) ASSERT_EQ(Add(Long(i), 1), 0);
        EXPECT_EQ(Add(Long(5), 1), -4);
        ZBESCODE(0);
        ASSERT_EQ(ZBDMCLOSE(file), 0);
    }
    // A free page that follows itself would be header and root in one.
    WriteFile("x.mdx", good + Le32(0) + Le32(6) + Fill(504));
    PatchFile("x.mdx", 32, Hex("07000000 06000000"));
    ASSERT_EQ(Open("x.mdx", &file), 0);
    EXPECT_EQ(New("U", 'C', 5), -6);
}

// The head of the list has no name. Where it bears one, replacing a tag of that
// name replaces the tag.
TEST_F(MdxDamage, HeadOfTheListMayBearAName) {
    MakeFile();
    ASSERT_EQ(New("A", 'C', 5), 0);
    ASSERT_EQ(ZBDMCLOSE(file), 0);
    PatchFile("x.mdx", 512 + 4, "A");
    ASSERT_EQ(Open("x.mdx", &file), 0);
    EXPECT_EQ(New("A", 'N', 0), 0);
    EXPECT_EQ(ReadFile("x.mdx", 28, 2), Hex("0100"));
    EXPECT_EQ(ReadFile("x.mdx", 512 + 32 + 4, 17), "A" + Fill(10) + Hex("0000 00 00 02 4E"));
    EXPECT_EQ(Use("A", &tag), 0);
    EXPECT_EQ(tag, 1 << 16 | file);
    EXPECT_EQ(Add(Number(1), 1), 0);
    ASSERT_EQ(ZBDMCLOSE(file), 0);
    // Without such a tag there is nothing to erase.
    PatchFile("x.mdx", 512 + 4, "B");
    ASSERT_EQ(Open("x.mdx", &file), 0);
    EXPECT_EQ(New("B", 'N', 0), -50);
}

// The key buffers of numbers and dates have 12 and 8 bytes, whatever a header says.
TEST_F(MdxDamage, NumbersAndDatesOfOtherLengthsAreRefused) {
    MakeFile();
    ASSERT_EQ(New("N", 'N', 0), 0);
    ASSERT_EQ(New("D", 'D', 0), 0);
    PatchFile("x.mdx", 2048 + 12, Hex("0B00"));
    EXPECT_EQ(Use("N", &tag), -23);
    ZBESCODE(0);
    PatchFile("x.mdx", 2048 + 12, Hex("6400 0400 0000 6800"));
    EXPECT_EQ(Use("N", &tag), -23);
    ZBESCODE(0);
    PatchFile("x.mdx", 6 * 512 + 12, Hex("0700"));
    EXPECT_EQ(Use("D", &tag), -23);
    EXPECT_EQ(tag, -1);
}

// Twelve levels, each page of which has the one below for all its five children,
// under a header that claims a large file: five to the eleventh ways down. No call
// goes them all.
TEST_F(MdxDamage, TreesOfFewPagesAndManyWaysEnd) {
    Make('C', 100);
    ASSERT_EQ(ZBDMCLOSE(file), 0);
    Bytes image = File().substr(0, 5 * 512);
    for (uint32_t page = 6; page < 18; page++) {
        image += LongPage({{page, 800}, {page, 800}, {page, 800}, {page, 800}}, page);
        image.resize((image.size() + 511) / 512 * 512);
    }
    image += LongPage({{1, 1}, {2, 2}, {3, 3}, {4, 4}}, 0);
    image.resize((image.size() + 511) / 512 * 512);
    WriteFile("x.mdx", image);
    PatchFile("x.mdx", 32, Hex("FFFFFF00"));
    ASSERT_EQ(Open("x.mdx", &file), 7);
    ASSERT_EQ(Use("T", &tag), 0);
    EXPECT_EQ(Find(Long(500), 0).code, -6);
    ZBESCODE(0);
    EXPECT_EQ(Add(Long(500), 1), -6);
    ZBESCODE(0);
    EXPECT_EQ(DeleteLong(500), -6);
    ZBESCODE(0);
    ASSERT_EQ(ZBDMTCLOSE(tag), 0);
    EXPECT_EQ(ZBDMTERASE(file, "T"), -6);
}

// A build keeps pages by their numbers; a free list may name any.
TEST_F(MdxBuild, FreeListOfABuildMayLeadAnywhere) {
    std::vector<Bytes> records;
    for (int i = 0; i < 9; i++) records.push_back(" K" + std::to_string(1000 + i) + "  1.00        ");
    for (const char* link : {"F0FFFFFF", "FEFFFFFF", "F0FF7F00", "FFFF3F00", "03000000"}) {
        MakeData(records);
        ASSERT_EQ(New("A", 'C', 100), 0);
        ASSERT_EQ(ZBDMTERASE(file, "A"), 0);  // page 5 is free, then 4, and then:
        PatchFile("x.mdx", 4 * 512 + 4, Hex(link));
        ASSERT_EQ(ZBDMCLOSE(file), 0);
        PatchFile("x.mdx", 32, Hex("FFFFFFFF"));
        ASSERT_EQ(Open("x.mdx", &file), 7);
        int32_t code = Index("T", 'C', 100, "NAME");
        EXPECT_TRUE(code == -4 || code == -2) << link << ' ' << code;
        ZBESCODE(0);
        ASSERT_EQ(ZBDMCLOSE(file), 0);
        ASSERT_EQ(ZBDDCLOSE(data), 0);
    }
}

}  // namespace
}  // namespace test
