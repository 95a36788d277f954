// NTX indexes through the exported calls alone.
#include "support/ntx.h"

#include <cmath>
#include <cstring>
#include <limits>

#include "support/system.h"

namespace test {
namespace {

using Entry = NtxIndex::Entry;

class Ntx : public LibraryTest {
  protected:
    NtxIndex index;

    Bytes File() const { return ReadFile(index.file); }
    uint32_t Word(size_t at) const {
        uint32_t value = 0;
        memcpy(&value, ReadFile(index.file, at, 4).data(), 4);
        return value;
    }
    int Version() const { return static_cast<int>(Word(2) & 0xFFFF); }
    int Count(size_t page) const { return static_cast<int>(Word(page) & 0xFF); }
    // The record numbers of a page's keys, in the order of its table.
    std::vector<uint32_t> PageRecords(size_t page) const {
        std::vector<uint32_t> records;
        for (size_t i = 0; i < static_cast<size_t>(Count(page)); i++)
            records.push_back(Word(page + Word(page + 2 + 2 * i) % 65536 + 4));
        return records;
    }

    void AddNumbered(int first, int last) {
        int step = first < last ? 1 : -1;
        for (int i = first; i != last + step; i += step)
            ASSERT_EQ(index.Add(NumberedKey(i), static_cast<uint32_t>(i)), 0);
    }
    static std::vector<uint32_t> Numbers(uint32_t first, uint32_t last) {
        std::vector<uint32_t> numbers;
        for (uint32_t i = first; i <= last; i++) numbers.push_back(i);
        return numbers;
    }
    static Bytes Wide(const Bytes& text) { return text + Fill(100 - text.size(), ' '); }
};

// Create

TEST_F(Ntx, NewFileStandsByteForByte) {
    ASSERT_EQ(index.Create('C', 5, 0, "na me"), 0);
    Bytes header =
        Hex("06 00  01 00  00 04 00 00  00 00 00 00  0D 00  05 00  00 00  42 00  21 00"
            "4E 41 4D 45");
    Bytes root = Hex("00 00  88 00  95 00  A2 00");
    for (int i = 3; i <= 66; i++) root += Le16(0x88 + 13 * i);
    EXPECT_EQ(File(), header + Fill(1024 - header.size()) + root + Fill(1024 - root.size()));
}

TEST_F(Ntx, KeysAPageFollowFromTheKeyLength) {
    int expected[][3] = {{1, 90, 45}, {8, 54, 27}, {10, 50, 25}, {100, 8, 4}};
    for (auto [length, keys, half] : expected) {
        ASSERT_EQ(index.Create('C', length), 0);
        EXPECT_EQ(ReadFile(index.file, 12, 10),
                  Le16(length + 8) + Le16(length) + Le16(0) + Le16(keys) + Le16(half));
        EXPECT_EQ(ReadFile(index.file, 1024, 4), Le16(0) + Le16(2 * keys + 4));
        EXPECT_EQ(FileSize(index.file), 2048u);
    }
}

TEST_F(Ntx, TypesSettleLengthAndDecimals) {
    struct Case {
        int type, length, decimals, code, stored, places;
    };
    const Case cases[] = {
        {'C', 5, 9, 0, 5, 0},     {'c', 100, -1, 0, 100, 0},     {'C', 0, 0, -23, 0, 0},
        {'C', 101, 0, -23, 0, 0}, {'C', -1, 0, -23, 0, 0},       {'D', 0, 7, 0, 8, 0},
        {'d', 99, 0, 0, 8, 0},    {'N', 1, 0, -30, 0, 0},        {'N', 2, 0, 0, 2, 0},
        {'n', 19, 15, 0, 19, 15}, {'N', 19, 16, -30, 0, 0},      {'N', 10, 9, -30, 0, 0},
        {'N', 10, 8, 0, 10, 8},   {'N', 10, -1, -30, 0, 0},      {'N', 20, 0, -23, 0, 0},
        {'N', 0, 0, -23, 0, 0},   {'X', 5, 0, -22, 0, 0},        {'L', 5, 0, -22, 0, 0},
        {0, 5, 0, -22, 0, 0},     {0x4100 + 'C', 5, 0, 0, 5, 0},
    };
    for (auto& c : cases) {
        EXPECT_EQ(index.Create(c.type, c.length, c.decimals), c.code) << c.type << ' ' << c.length;
        ZBESCODE(0);
        if (c.code == 0) {
            EXPECT_EQ(ReadFile(index.file, 14, 4), Le16(c.stored) + Le16(c.places));
        }
    }
}

TEST_F(Ntx, NumberKeyOfOneByteCantBeCreated) {
    // No decimals at all are already more than the key's length less 2.
    EXPECT_EQ(index.Create('N', 1, 0), -30);
    EXPECT_FALSE(FileExists(index.file));
    ZBESCODE(0);
    EXPECT_EQ(index.Create('N', 2, 0), 0);
    EXPECT_EQ(index.Create('N', 2, 1), -30);
}

TEST_F(Ntx, ExpressionLosesItsBlanksInTheCallersBuffer) {
    std::string expression;
    for (int i = 0; i < 50; i++) expression += " abcde";
    ASSERT_EQ(expression.size(), 300u);
    ASSERT_EQ(ZBDCCREATE("t.ntx", 'C', expression.data(), 5, 0), 0);
    EXPECT_EQ(strlen(expression.c_str()), 250u);
    EXPECT_STREQ(expression.c_str() + 245, "abcde");
    EXPECT_EQ(ReadFile("t.ntx", 22, 6), "ABCDEA");

    EXPECT_EQ(index.Create('C', 5, 0, std::string(255, 'a')), 0);
    EXPECT_EQ(ReadFile("t.ntx", 22, 256), Fill(255, 'A') + Fill(1));
    EXPECT_EQ(index.Create('C', 5, 0, std::string(256, 'a')), -7);
}

TEST_F(Ntx, CreateAnswersNullsEmptyNamesAndPendingCodes) {
    char expression[] = "N A";
    EXPECT_EQ(ZBDCCREATE(nullptr, 'C', expression, 5, 0), -21);
    ZBESCODE(0);
    EXPECT_EQ(ZBDCCREATE("t.ntx", 'C', nullptr, 5, 0), -21);
    EXPECT_STREQ(expression, "N A");
    EXPECT_EQ(ZBDCCREATE("t.ntx", 'C', expression, 5, 0), -21);
    EXPECT_FALSE(FileExists("t.ntx"));
    ZBESCODE(4);
    EXPECT_EQ(ZBDCCREATE("", 'C', expression, 5, 0), -14);
    EXPECT_STREQ(expression, "NA");
    ZBESCODE(0);
    EXPECT_EQ(ZBDCCREATE("missing/t.ntx", 'C', expression, 5, 0), -46);
    ZBESCODE(4);
    EXPECT_EQ(ZBDCCREATE("t.ntx", 'C', expression, 5, 0), 0);
}

TEST_F(Ntx, CreateReplacesAFile) {
    WriteFile(index.file, Fill(5000, 'x'));
    ASSERT_EQ(index.Create('C', 5), 0);
    EXPECT_EQ(FileSize(index.file), 2048u);
}

// Open and close

TEST_F(Ntx, OpenTestsTheHeaderOnceForEachField) {
    ASSERT_EQ(index.Create('C', 5), 0);
    Bytes good = File();
    struct Case {
        size_t at;
        Bytes bytes;
        int code;
    };
    const Case cases[] = {
        {14, Le16(0), -23},   {14, Le16(101), -23},  {14, Le16(-5), -23}, {12, Le16(12), -24},
        {12, Le16(14), -24},  {4, Le32(0), -25},     {4, Le32(512), -25}, {4, Le32(2048), -25},
        {4, Le32(1025), -25}, {4, Le32(-1024), -25}, {18, Le16(67), -26}, {18, Le16(64), -26},
        {18, Le16(0), -26},   {20, Le16(32), -44},   {20, Le16(34), -44}, {22, Fill(256, 'a'), -7},
    };
    for (auto& c : cases) {
        WriteFile(index.file, good);
        PatchFile(index.file, c.at, c.bytes);
        EXPECT_EQ(index.Open(), c.code) << c.at;
        EXPECT_EQ(index.handle, -1);
        EXPECT_EQ(ZBECODE(), c.code);
        ZBESCODE(0);
    }
    // With everything wrong the tests show their order.
    Bytes bad = good;
    bad.replace(4, 18, Fill(18, 1)).replace(22, 256, Fill(256, 'a'));
    const Case fixes[] = {{14, Le16(5), -24},  {12, Le16(13), -25}, {4, Le32(1024), -26},
                          {18, Le16(66), -44}, {20, Le16(33), -7},  {277, Fill(1), 0}};
    for (auto& fix : fixes) {
        bad.replace(fix.at, fix.bytes.size(), fix.bytes);
        WriteFile(index.file, bad);
        EXPECT_EQ(index.Open(), fix.code);
        ZBESCODE(0);
    }
}

TEST_F(Ntx, SignatureAndVersionAreNotLookedAt) {
    ASSERT_EQ(index.Create('C', 5), 0);
    PatchFile(index.file, 0, Hex("FF FF FF FF"));
    ASSERT_EQ(index.Open(), 0);
    // The version wraps round.
    ASSERT_EQ(index.Add("ANNA", 1), 0);
    EXPECT_EQ(Version(), 0);
}

TEST_F(Ntx, FileOfAHeaderAloneHasNoRoot) {
    ASSERT_EQ(index.Create('C', 5), 0);
    WriteFile(index.file, ReadFile(index.file, 0, 1024));
    EXPECT_EQ(index.Open(), -25);
}

TEST_F(Ntx, FileShorterThanTheHeaderCantBeRead) {
    ASSERT_EQ(index.Create('C', 5), 0);
    WriteFile(index.file, ReadFile(index.file, 0, 279));
    EXPECT_EQ(index.Open(), -2);
}

TEST_F(Ntx, FileThatIsNotWholePagesOpensWithAWarning) {
    ASSERT_EQ(index.Create('C', 100), 0);
    WriteFile(index.file, File() + Fill(52));
    ASSERT_EQ(index.Open(), 7);
    EXPECT_EQ(ZBECODE(), 7);
    AddNumbered(1, 8);
    EXPECT_EQ(index.Records(), Numbers(1, 8));
    // A new page would not begin where pages do.
    EXPECT_EQ(index.Add(NumberedKey(9), 9), -4);
    ZBESCODE(0);
    EXPECT_EQ(FileSize(index.file), 2100u + 1024u);
    EXPECT_EQ(index.Records(), Numbers(1, 8));
}

TEST_F(Ntx, OpenTestsTheLowByteOfItsMode) {
    ASSERT_EQ(index.Create('C', 5), 0);
    for (int mode = 0; mode < 256; mode++) {
        int expected = mode == 0 || mode == 5 || mode == 6 ? 0 : -18;
        ASSERT_EQ(index.Open(mode), expected) << mode;
        ZBESCODE(0);
        if (expected == 0) {
            ASSERT_EQ(index.Close(), 0);
        }
    }
}

TEST_F(Ntx, OpenAnswersNullsMissingFilesAndLongNames) {
    uint16_t handle = 77;
    EXPECT_EQ(ZBDCOPENX(nullptr, "t.ntx", 0), -21);
    ZBESCODE(0);
    EXPECT_EQ(ZBDCOPENX(&handle, nullptr, 0), -21);
    EXPECT_EQ(ZBDCOPENX(&handle, "t.ntx", 0), -21);
    EXPECT_EQ(handle, 77);
    ZBESCODE(0);
    EXPECT_EQ(ZBDCOPENX(&handle, "t.ntx", 0), -46);
    EXPECT_EQ(handle, 65535);
    ZBESCODE(0);
    EXPECT_EQ(ZBDCOPENX(&handle, "", 0), -14);
    ZBESCODE(0);
    ASSERT_EQ(index.Create('C', 5), 0);
    std::string name = "t.ntx";
    while (name.size() < 259) name = "./" + name;
    EXPECT_EQ(ZBDCOPENX(&handle, ("." + ("/" + name)).c_str(), 0), OpensLongNames() ? -14 : -46);
    ZBESCODE(0);
    EXPECT_EQ(ZBDCOPENX(&handle, name.c_str(), 0), 0);
}

TEST_F(Ntx, InfoTellsTheHeader) {
    ASSERT_EQ(index.Create('N' | 0x80, 10, 2, "DESCEND(AMOUNT)"), 0);
    ASSERT_EQ(index.Open(ZB_OpenShared), 0);
    ZbNtxInfo info;
    memset(&info, 0xFF, sizeof info);
    ASSERT_EQ(ZBDCINFO(index.handle, &info), 0);
    EXPECT_STREQ(info.fileName, "t.ntx");
    EXPECT_EQ(info.accessFlags, 0xFFFA);
    EXPECT_EQ(info.keyLength, 10);
    EXPECT_EQ(info.keyType, '?');
    EXPECT_EQ(info.keyFlags, 0x0180);
    EXPECT_EQ(info.decimals, 2);
    EXPECT_EQ(info.reportedFlag, 0);
    EXPECT_EQ(info.expressionLength, 15);
    EXPECT_STREQ(info.expression, "DESCEND(AMOUNT)");
    ASSERT_EQ(index.Close(), 0);

    // Only bit 0 of the file's mark is told.
    PatchFile(index.file, 278, Le16(2));
    PatchFile(index.file, 22, "descend (AMOUNT)");
    ASSERT_EQ(index.Open(ZB_ReadOnly), 0);
    info = {};
    ASSERT_EQ(ZBDCINFO(index.handle, &info), 0);
    EXPECT_EQ(info.accessFlags, 1);
    EXPECT_EQ(info.keyFlags, 0x0100);
    char text[256];
    ASSERT_EQ(ZBDCEXPR(index.handle, text), 0);
    EXPECT_STREQ(text, "DESCEND(AMOUNT)");
}

TEST_F(Ntx, InfoCutsALongExpression) {
    for (size_t length : {99u, 100u, 255u}) {
        ASSERT_EQ(index.Create('C', 5, 0, std::string(length, 'E')), 0);
        ASSERT_EQ(index.Open(), 0);
        ZbNtxInfo info;
        memset(&info, 0x11, sizeof info);
        ASSERT_EQ(ZBDCINFO(index.handle, &info), 0);
        EXPECT_EQ(info.expressionLength, length);
        EXPECT_EQ(info.expression[98], 'E');
        EXPECT_EQ(info.expression[99], length == 99 ? 0 : 'E');
        char text[256];
        ASSERT_EQ(ZBDCEXPR(index.handle, text), 0);
        EXPECT_EQ(text, std::string(length, 'E'));
        ASSERT_EQ(index.Close(), 0);
    }
}

TEST_F(Ntx, HeaderIsReadAgainAndTheLengthWithIt) {
    index.Make('C', 100);
    AddNumbered(1, 3);
    Bytes small = File();
    NtxIndex other;
    ASSERT_EQ(index.Close(), 0);
    ASSERT_EQ(index.Open(ZB_OpenShared), 0);
    ASSERT_EQ(other.Open(ZB_OpenShared), 0);
    for (int i = 4; i <= 60; i++) ASSERT_EQ(other.Add(NumberedKey(i), static_cast<uint32_t>(i)), 0);
    EXPECT_EQ(index.Records(), Numbers(1, 60));
    EXPECT_EQ(ZBDCHGET(index.handle), 0);
    // Another program cuts the file: pages that were there are outside it now.
    uint32_t root = Word(4);
    ASSERT_GT(root, 4096u);
    WriteFile(index.file, ReadFile(index.file, 0, 2048));
    EXPECT_EQ(index.Top(), -4);
    ZBESCODE(0);
    WriteFile(index.file, small);
    EXPECT_EQ(index.Records(), Numbers(1, 3));
    WriteFile(index.file, "");
    EXPECT_EQ(ZBDCHGET(index.handle), -2);
}

TEST_F(Ntx, CloseGivesUpTheHandle) {
    index.Make('C', 5);
    Bytes before = File();
    EXPECT_EQ(index.Close(), 0);
    EXPECT_EQ(File(), before);
    EXPECT_EQ(index.Close(), -13);
}

TEST_F(Ntx, QuickCloseGivesUpThePlatformFile) {
    index.Make('C', 5);
    ASSERT_EQ(ZBDQCLOSE(), 0);
    EXPECT_EQ(index.Top(), -46);
    ZBESCODE(0);
    EXPECT_EQ(index.Close(), -46);
}

TEST_F(Ntx, StopClosesTheIndex) {
    index.Make('C', 5);
    ASSERT_EQ(ZBDTERM(), 0);
    ASSERT_EQ(ZBDINIT(100, 1), 0);
    EXPECT_EQ(index.Open(), 0);
    EXPECT_EQ(index.handle, 0);
}

TEST_F(Ntx, EveryCallAnswersNullsForeignHandlesAndPendingCodes) {
    index.Make('C', 5);
    ASSERT_EQ(index.Add("ANNA", 1), 0);
    int16_t h = index.handle;
    ZbFieldSpec spec{"NAME", 'C', 5, 0};
    ASSERT_EQ(ZBDDCREATE("t.dbf", 1, &spec, 1), 0);
    uint16_t data;
    ASSERT_EQ(ZBDDOPENX(&data, "t.dbf", 1), 0);
    auto d = static_cast<int16_t>(data);
    Bytes before = File();
    char key[16] = "B";
    uint32_t record = 5;
    void* made = key;
    ZbBlock block = 5;
    ZbNtxInfo info;
    char text[256];

    auto check = [](int expected, int code, const char* what) {
        EXPECT_EQ(code, expected) << what;
        ZBESCODE(0);
    };
    using Walk = int32_t(ZB_CALL*)(int16_t, void*, uint32_t*);
    for (Walk walk : {ZBDCKTOP, ZBDCKBOT, ZBDCKNEXT, ZBDCKPREV, ZBDCKCUR}) {
        check(-21, walk(h, nullptr, &record), "walk");
        check(-21, walk(h, key, nullptr), "walk");
        check(-13, walk(50, key, &record), "walk");
        check(-13, walk(-1, key, &record), "walk");
        check(-13, walk(d, key, &record), "walk");
    }
    check(-21, ZBDCKFIND(h, nullptr, &record, 0), "find");
    check(-21, ZBDCKFIND(h, key, nullptr, 0), "find");
    check(-13, ZBDCKFIND(d, key, &record, 0), "find");
    check(-21, ZBDCKADD(h, nullptr, 1), "add");
    check(-13, ZBDCKADD(d, key, 1), "add");
    check(-21, ZBDCKDEL(h, nullptr, 1), "delete");
    check(-13, ZBDCKDEL(d, key, 1), "delete");
    check(-21, ZBDCKMAKE(d, h, nullptr), "make");
    check(-13, ZBDCKMAKE(d, d, &made), "make");
    EXPECT_EQ(made, nullptr);
    check(-13, ZBDCKMAKE(h, h, &made), "make");
    check(-21, ZBDCKMAKEH(d, h, nullptr), "makeh");
    check(-13, ZBDCKMAKEH(d, d, &block), "makeh");
    EXPECT_EQ(block, 0xFFFFFFFF);
    check(-21, ZBDCKNUM(h, nullptr, 1), "num");
    check(-13, ZBDCKNUM(d, nullptr, 1), "num");
    check(-21, ZBDCKDATE(nullptr, "19960229", 4), "date");
    check(-21, ZBDCKDATE(key, nullptr, 4), "date");
    check(-21, ZBDCINFO(50, nullptr), "info");
    check(-13, ZBDCINFO(d, &info), "info");
    check(-21, ZBDCEXPR(50, nullptr), "expr");
    check(-13, ZBDCEXPR(d, text), "expr");
    check(-13, ZBDCHGET(d), "hget");
    check(-13, ZBDCCLOSE(d), "close");

    auto pending = [](int code, const char* what) {
        EXPECT_EQ(code, -33) << what;
        EXPECT_EQ(ZBECODE(), -33) << what;
    };
    ZBESCODE(-33);
    uint16_t opened = 77;
    for (Walk walk : {ZBDCKTOP, ZBDCKBOT, ZBDCKNEXT, ZBDCKPREV, ZBDCKCUR})
        pending(walk(h, key, &record), "walk");
    pending(ZBDCKFIND(h, key, &record, 0), "find");
    pending(ZBDCKADD(h, key, 1), "add");
    pending(ZBDCKDEL(h, key, 1), "delete");
    pending(ZBDCKMAKE(d, h, &made), "make");
    pending(ZBDCKMAKEH(d, h, &block), "makeh");
    pending(ZBDCKNUM(h, key, 1), "num");
    pending(ZBDCKNUM(50, nullptr, 1), "num");
    pending(ZBDCKDATE(key, nullptr, 4), "date");
    pending(ZBDCINFO(h, &info), "info");
    pending(ZBDCEXPR(h, text), "expr");
    pending(ZBDCHGET(h), "hget");
    pending(ZBDCOPENX(&opened, "t.ntx", 0), "open");
    pending(ZBDCCLOSE(h), "close");
    EXPECT_EQ(opened, 77);
    EXPECT_STREQ(key, "B");
    EXPECT_EQ(record, 5u);
    ZBESCODE(0);
    EXPECT_EQ(File(), before);
}

TEST_F(Ntx, ReadOnlyIndexIsNotChanged) {
    index.Make('C', 5);
    ASSERT_EQ(index.Add("ANNA", 1), 0);
    ASSERT_EQ(index.Close(), 0);
    Bytes before = File();
    ASSERT_EQ(index.Open(ZB_ReadOnly), 0);
    EXPECT_EQ(index.Add("BERT", 2), -36);
    ZBESCODE(0);
    EXPECT_EQ(index.Delete("ANNA", 1), -36);
    ZBESCODE(0);
    EXPECT_EQ(index.Top(), 0);
    EXPECT_EQ(index.Close(), 0);
    EXPECT_EQ(File(), before);
}

TEST_F(Ntx, FailuresAreLoggedAtEachLevel) {
    index.Make('C', 5);
    PatchFile(index.file, 4, Le32(1025));
    StartLog();
    EXPECT_EQ(index.Top(), -4);
    EXPECT_EQ(Log(), (std::vector<LogEntry>{{"Cpget", -4}, {"Cktop", -4}, {"Cktop", -4}}));
}

TEST_F(Ntx, RefusalsAreLoggedUnderTheNameOfTheirCall) {
    ASSERT_EQ(index.Create('C', 5), 0);
    StartLog();
    EXPECT_EQ(index.Create('X', 5), -22);
    ZBESCODE(0);
    PatchFile(index.file, 12, Le16(14));
    EXPECT_EQ(index.Open(), -24);
    ZBESCODE(0);
    PatchFile(index.file, 12, Le16(13));
    ASSERT_EQ(index.Open(ZB_ReadOnly), 0);
    EXPECT_EQ(index.Add("ANNA", 1), -36);
    EXPECT_EQ(index.Delete("ANNA", 1), -36);
    ZBESCODE(0);
    EXPECT_EQ(ZBDCKNUM(index.handle, nullptr, 1), -21);
    ZBESCODE(0);
    EXPECT_EQ(ZBDCHGET(50), -13);
    EXPECT_EQ(Log(), (std::vector<LogEntry>{{"Ccreate", -22},
                                            {"Copen", -24},
                                            {"Ckadd", -36},
                                            {"Cslock", -36},
                                            {"Ckdel", -36},
                                            {"Cknum", -21},
                                            {"Cslock", -13},
                                            {"Chget", -13}}));
}

TEST_F(Ntx, WarningsAreNotLogged) {
    index.Make('C', 5);
    StartLog();
    EXPECT_EQ(index.Top(), 2);
    EXPECT_EQ(index.Delete("ANNA", 1), 2);
    ASSERT_EQ(index.Add("BERT", 1), 0);
    EXPECT_EQ(index.Find("CLEO"), 4);
    EXPECT_EQ(index.Next(), 3);
    EXPECT_EQ(index.Find("ANNA"), 0);
    EXPECT_EQ(index.Delete("CLEO", 1), 4);
    EXPECT_EQ(index.Delete("ANNA", 1), 3);
    EXPECT_EQ(Log(), std::vector<LogEntry>());
}

// Key forms

TEST_F(Ntx, NumberKeyIsZeroFilledText) {
    index.Make('N', 7, 2);
    char key[12] = "???????????";
    ASSERT_EQ(ZBDCKNUM(index.handle, key, 12.5), 0);
    EXPECT_EQ(Bytes(key, 12), Bytes("0012.50\0???", 11) + Fill(1));
}

TEST_F(Ntx, NegativeNumberKeyIsComplementedAndOneByteShort) {
    index.Make('N', 7, 2);
    char key[12] = "???????????";
    ASSERT_EQ(ZBDCKNUM(index.handle, key, -12.5), 0);
    // Of "-012.50": 0x5C - 0x30 is 2C, 0x5C - 0x31 is 2B, and so on.
    EXPECT_EQ(Bytes(key, 9), Hex("2C 2B 2A 2E 27 2C  00 3F 3F"));
    ASSERT_EQ(ZBDCKNUM(index.handle, key, -9.99), 0);
    EXPECT_EQ(Bytes(key, 7), Hex("2C 2C 23 2E 23 23  00"));
}

TEST_F(Ntx, NumberThatDoesntFitItsKeyIsRefused) {
    index.Make('N', 7, 2);
    char key[] = "unchanged";
    for (double value : {9999.999, 12345.67, -1000.0, 1e300, -1e300, std::numeric_limits<double>::infinity(),
                         std::numeric_limits<double>::quiet_NaN()}) {
        EXPECT_EQ(ZBDCKNUM(index.handle, key, value), -7) << value;
        EXPECT_STREQ(key, "unchanged");
        ZBESCODE(0);
    }
    EXPECT_EQ(ZBDCKNUM(index.handle, key, 9999.99), 0);
    EXPECT_STREQ(key, "9999.99");
    EXPECT_EQ(ZBDCKNUM(index.handle, key, -999.99), 0);
    EXPECT_EQ(ZBDCKNUM(index.handle, key, -0.001), 0);
    EXPECT_EQ(Bytes(key, 7), Hex("2C 2C 2C 2E 2C 2C 00"));
}

TEST_F(Ntx, DecimalsFromTheFileDontLeaveTheBuffer) {
    ASSERT_EQ(index.Create('N', 7, 2), 0);
    for (int decimals : {6, 100, 101, 1000, 65535}) {
        PatchFile(index.file, 16, Le16(decimals));
        ASSERT_EQ(index.Open(), 0);
        char key[9] = "????????";
        EXPECT_EQ(ZBDCKNUM(index.handle, key, 1), -7);
        EXPECT_STREQ(key, "????????");
        ZBESCODE(0);
        ASSERT_EQ(index.Close(), 0);
    }
}

TEST_F(Ntx, NumbersSortByTheirKeys) {
    index.Make('N', 8, 2);
    std::vector<uint32_t> expected;
    for (int i = 0; i < 400; i++) {
        char key[12];
        int number = i * 37 % 400;
        ASSERT_EQ(ZBDCKNUM(index.handle, key, (number - 200) * 2.25), 0);
        ASSERT_EQ(index.Add(key, static_cast<uint32_t>(number) + 1), 0);
    }
    EXPECT_EQ(index.Records(), Numbers(1, 400));
}

TEST_F(Ntx, DateKeyIsYearMonthDay) {
    char key[12] = "???????????";
    EXPECT_EQ(ZBDCKDATE(key, "02/29/1996", 2), 0);
    EXPECT_STREQ(key, "19960229");
    EXPECT_EQ(ZBDCKDATE(key, "02/30/1996", 2), -15);
    ZBESCODE(0);
    EXPECT_EQ(ZBDCKDATE(key, "02/29/1996", 77), -12);
    ZBESCODE(0);
    EXPECT_STREQ(key, "19960229");
}

TEST_F(Ntx, BlankDateKeyEndsOnePlaceTooFar) {
    char key[12] = "???????????";
    ASSERT_EQ(ZBDCKDATE(key, "  /  /  ", 1), 0);
    EXPECT_EQ(ZBECODE(), 0);
    EXPECT_EQ(Bytes(key, 11), Bytes("        ?\0?", 11));
}

// Find and walk

TEST_F(Ntx, FindsByKeyByPrefixAndBetween) {
    index.Make('C', 5);
    const char* names[] = {"BERTA", "ANNA", "EMIL", "CLEO", "DORA"};
    for (uint32_t i = 0; i < 5; i++) ASSERT_EQ(index.Add(names[i], i + 1), 0);
    EXPECT_EQ(index.Find("CLEO"), 0);
    EXPECT_EQ(index.At(), Entry("CLEO ", 4));
    EXPECT_EQ(index.Find("D", 1), 0);
    EXPECT_EQ(index.At(), Entry("DORA ", 5));
    EXPECT_EQ(index.Find("BERTAX-more"), 0);
    EXPECT_EQ(index.record, 1u);
    EXPECT_EQ(index.Find("CZ"), 4);
    EXPECT_EQ(index.At(), Entry("CLEO ", 4));
    EXPECT_EQ(index.Find("ZORA"), 4);
    EXPECT_EQ(index.At(), Entry("EMIL ", 3));
}

TEST_F(Ntx, KeyLongerThanTheIndexesIsComparedOverItsLength) {
    index.Make('C', 5);
    ASSERT_EQ(index.Add("BERTA and what is behind", 1), 0);
    ASSERT_EQ(index.Add("BERTB", 2), 0);
    for (int mode : {0, 1, 2, 4}) {
        EXPECT_EQ(index.Find("BERTA or something else", mode, 1), 0) << mode;
        EXPECT_EQ(Bytes(index.buffer, 5), "BERTA");
        EXPECT_EQ(index.record, 1u);
    }
    EXPECT_EQ(index.Delete("BERTAXXX", 1), 0);
    EXPECT_EQ(index.Records(), (std::vector<uint32_t>{2}));
}

TEST_F(Ntx, KeyBelowAllIsAnsweredWithTheFirstAndNoWarning) {
    index.Make('C', 100);
    AddNumbered(10, 40);
    EXPECT_EQ(index.Find("00"), 0);
    EXPECT_EQ(index.At(), Entry(NumberedKey(10), 10));
    EXPECT_EQ(index.Next(), 0);
    EXPECT_EQ(index.record, 11u);
}

TEST_F(Ntx, QuestionMarksAreBytesLikeOthersInEveryMode) {
    index.Make('C', 5);
    ASSERT_EQ(index.Add("ANNA", 1), 0);
    ASSERT_EQ(index.Add("A?NA", 2), 0);
    ASSERT_EQ(index.Add("BERT", 3), 0);
    EXPECT_EQ(index.Find("A?NA", 4), 0);
    EXPECT_EQ(index.record, 2u);
    EXPECT_EQ(index.Find("?NNA", 4), 0);
    EXPECT_EQ(index.record, 2u);
    EXPECT_EQ(index.Find("B?RT", 4), 4);
}

TEST_F(Ntx, EmptyKeyEqualsEveryItemAndFindsTheFirst) {
    index.Make('C', 100);
    AddNumbered(1, 40);
    EXPECT_EQ(index.Find(""), 0);
    EXPECT_EQ(index.At(), Entry(NumberedKey(1), 1));
    // For a pair the key is filled with blanks, and lies below all.
    EXPECT_EQ(index.Find("", 2, 1), 0);
    EXPECT_EQ(index.record, 1u);
}

TEST_F(Ntx, MatchLeavesTheBufferWithoutATerminator) {
    index.Make('C', 5);
    ASSERT_EQ(index.Add("ANNA", 1), 0);
    memcpy(index.buffer, "AN\0***************", 18);
    EXPECT_EQ(ZBDCKFIND(index.handle, index.buffer, &index.record, 0), 0);
    EXPECT_EQ(Bytes(index.buffer, 8), "ANNA ***");
    EXPECT_EQ(index.Top(), 0);
    EXPECT_EQ(Bytes(index.buffer, 8), Bytes("ANNA \0**", 8));
    memcpy(index.buffer, "B\0****************", 18);
    EXPECT_EQ(ZBDCKFIND(index.handle, index.buffer, &index.record, 0), 4);
    EXPECT_EQ(Bytes(index.buffer, 8), Bytes("ANNA \0**", 8));
}

TEST_F(Ntx, KeysCompareByUnsignedBytesWhateverTheCollation) {
    ASSERT_EQ(ZBDTERM(), 0);
    WriteProfile("[sort]\nasciisort=0\n");
    ASSERT_EQ(ZBDINIT(100, 1), 0);
    index.Make('C', 3);
    const char* keys[] = {"a", "B", "\xE4", "\x01", "Z", "z"};
    for (uint32_t i = 0; i < 6; i++) ASSERT_EQ(index.Add(keys[i], i + 1), 0);
    EXPECT_EQ(index.Records(), (std::vector<uint32_t>{4, 2, 5, 1, 6, 3}));
}

TEST_F(Ntx, PairIsFoundAmongEqualKeysInOrderOfArrival) {
    index.Make('C', 100);
    std::vector<uint32_t> records = {50, 7, 900, 1, 33, 0x01000000, 0x00010000, 256, 255, 12, 11, 10, 9};
    for (uint32_t record : records) ASSERT_EQ(index.Add(Wide("SAME"), record), 0);
    ASSERT_EQ(index.Add(Wide("LOW"), 1), 0);
    ASSERT_EQ(index.Add(Wide("TOP"), 2), 0);
    for (uint32_t record : records) {
        EXPECT_EQ(index.Find("SAME", 2, record), 0) << record;
        EXPECT_EQ(index.At(), Entry(Wide("SAME"), record));
    }
    // Another record number is near, behind all of them.
    EXPECT_EQ(index.Find("SAME", 2, 8), 4);
    EXPECT_EQ(index.At(), Entry(Wide("SAME"), 9));
    // Without a record number the first that came is found.
    EXPECT_EQ(index.Find("SAME", 0), 0);
    EXPECT_EQ(index.record, 50u);
    std::vector<uint32_t> expected = {1};
    expected.insert(expected.end(), records.begin(), records.end());
    expected.push_back(2);
    EXPECT_EQ(index.Records(), expected);
}

TEST_F(Ntx, PairIsFoundAboveTheLeaves) {
    index.Make('C', 100);
    AddNumbered(1, 9);
    EXPECT_EQ(index.Find(NumberedKey(5), 2, 5), 0);
    EXPECT_EQ(index.At(), Entry(NumberedKey(5), 5));
    EXPECT_EQ(index.Next(), 0);
    EXPECT_EQ(index.record, 6u);
    EXPECT_EQ(index.Find(NumberedKey(5)), 0);
    EXPECT_EQ(index.Previous(), 0);
    EXPECT_EQ(index.record, 4u);
}

TEST_F(Ntx, WalksEndOnTheEndKeys) {
    index.Make('C', 100);
    AddNumbered(1, 50);
    EXPECT_EQ(index.Records(), Numbers(1, 50));
    EXPECT_EQ(index.Records(false).size(), 50u);
    EXPECT_EQ(index.Bottom(), 0);
    EXPECT_EQ(index.Next(), 3);
    EXPECT_EQ(index.At(), Entry(NumberedKey(50), 50));
    EXPECT_EQ(index.Previous(), 0);
    EXPECT_EQ(index.record, 49u);
    EXPECT_EQ(index.Top(), 0);
    EXPECT_EQ(index.Previous(), 3);
    EXPECT_EQ(index.At(), Entry(NumberedKey(1), 1));
    EXPECT_EQ(index.Next(), 0);
    EXPECT_EQ(index.record, 2u);
}

TEST_F(Ntx, WalkWithoutAPositionBeginsAtAnEnd) {
    index.Make('C', 100);
    AddNumbered(1, 12);
    ASSERT_EQ(index.Close(), 0);
    ASSERT_EQ(index.Open(), 0);
    EXPECT_EQ(index.Next(), 0);
    EXPECT_EQ(index.record, 1u);
    ASSERT_EQ(index.Close(), 0);
    ASSERT_EQ(index.Open(), 0);
    EXPECT_EQ(index.Previous(), 0);
    EXPECT_EQ(index.record, 12u);
}

TEST_F(Ntx, CurrentWithoutAPositionIsNearAndTakesTheCallersBuffers) {
    index.Make('C', 5);
    ASSERT_EQ(index.Add("ANNA", 1), 0);
    ASSERT_EQ(index.Add("BERT", 2), 0);
    strcpy(index.buffer, "BERT ");
    index.record = 2;
    EXPECT_EQ(index.Current(), 4);
    EXPECT_EQ(index.At(), Entry("BERT ", 2));
    EXPECT_EQ(index.Current(), 0);
    EXPECT_EQ(index.Next(), 3);
}

TEST_F(Ntx, EmptyIndexSaysSoAndLeavesTheBuffers) {
    index.Make('C', 5);
    strcpy(index.buffer, "MINE");
    index.record = 9;
    EXPECT_EQ(index.Top(), 2);
    EXPECT_EQ(index.Bottom(), 2);
    EXPECT_EQ(ZBDCKFIND(index.handle, index.buffer, &index.record, 0), 2);
    EXPECT_EQ(index.Current(), 2);
    EXPECT_EQ(index.At(), Entry("MINE", 9));
    // The buffers have become the position, from which steps go on.
    EXPECT_EQ(index.Next(), 3);
    EXPECT_EQ(index.Previous(), 3);
    EXPECT_EQ(index.At(), Entry("MINE", 9));
}

TEST_F(Ntx, PositionInAnEmptiedIndex) {
    index.Make('C', 5);
    ASSERT_EQ(index.Add("ANNA", 1), 0);
    ASSERT_EQ(index.Top(), 0);
    ASSERT_EQ(index.Delete("ANNA", 1), 0);
    strcpy(index.buffer, "MINE");
    EXPECT_EQ(index.Next(), 3);
    EXPECT_EQ(index.Key(), "MINE");
    EXPECT_EQ(index.Previous(), 3);
    EXPECT_EQ(index.Current(), 2);
    EXPECT_EQ(index.Key(), "MINE");
}

TEST_F(Ntx, DeletedPositionMovesToTheEntryBeforeAndWalksOnWithAWarning) {
    index.Make('C', 100);
    AddNumbered(1, 30);
    for (uint32_t gone : {5u, 10u, 17u}) {
        ASSERT_EQ(index.Find(NumberedKey(static_cast<int>(gone))), 0);
        ASSERT_EQ(index.Delete(NumberedKey(static_cast<int>(gone)), gone), 0);
        EXPECT_EQ(index.Current(), 4);
        EXPECT_EQ(index.record, gone - 1);
        ASSERT_EQ(index.Add(NumberedKey(static_cast<int>(gone)), gone), 0);
        ASSERT_EQ(index.Find(NumberedKey(static_cast<int>(gone))), 0);
        ASSERT_EQ(index.Delete(NumberedKey(static_cast<int>(gone)), gone), 0);
        EXPECT_EQ(index.Next(), 4);
        EXPECT_EQ(index.record, gone + 1);
        EXPECT_EQ(index.Next(), 0);
    }
    // The first key has none before it: the walk ends on the new first.
    ASSERT_EQ(index.Top(), 0);
    ASSERT_EQ(index.Delete(NumberedKey(1), 1), 0);
    EXPECT_EQ(index.Next(), 4);
    EXPECT_EQ(index.record, 2u);
    EXPECT_EQ(index.Next(), 0);
    EXPECT_EQ(index.record, 3u);
}

// A step back leaves out the entry to which the position has moved.
TEST_F(Ntx, DeletedPositionStepsBackFromTheEntryBefore) {
    index.Make('C', 100);
    AddNumbered(1, 30);
    for (uint32_t gone : {5u, 10u, 17u, 30u}) {
        ASSERT_EQ(index.Find(NumberedKey(static_cast<int>(gone))), 0);
        ASSERT_EQ(index.Delete(NumberedKey(static_cast<int>(gone)), gone), 0);
        EXPECT_EQ(index.Previous(), 4);
        EXPECT_EQ(index.record, gone - 2);
        EXPECT_EQ(index.Previous(), 0);
        EXPECT_EQ(index.record, gone - 3);
    }
    ASSERT_EQ(index.Find(NumberedKey(2)), 0);
    ASSERT_EQ(index.Delete(NumberedKey(2), 2), 0);
    EXPECT_EQ(index.Previous(), 3);
    EXPECT_EQ(index.At(), Entry(NumberedKey(1), 1));
    ASSERT_EQ(index.Delete(NumberedKey(1), 1), 0);
    EXPECT_EQ(index.Previous(), 4);
    EXPECT_EQ(index.record, 3u);
}

// The file may have grown by far more than its opener knows.
TEST_F(Ntx, SearchGoesThroughEqualKeysThatAnotherHostAdded) {
    ASSERT_EQ(index.Create('C', 100), 0);
    ASSERT_EQ(index.Open(ZB_OpenShared), 0);
    NtxIndex other;
    ASSERT_EQ(other.Open(ZB_OpenShared), 0);
    for (uint32_t i = 1; i <= 300; i++) ASSERT_EQ(other.Add("SAME", i), 0);
    EXPECT_EQ(index.Find("SAME", 2, 301), 4);
    EXPECT_EQ(index.record, 300u);
    EXPECT_EQ(index.Find("SAME", 2, 299), 0);
}

TEST_F(Ntx, ChangesDontMoveThePosition) {
    index.Make('C', 100);
    AddNumbered(1, 20);
    ASSERT_EQ(index.Find(NumberedKey(8)), 0);
    ASSERT_EQ(index.Add(NumberedKey(90), 90), 0);
    ASSERT_EQ(index.Delete(NumberedKey(1), 1), 0);
    EXPECT_EQ(index.Current(), 0);
    EXPECT_EQ(index.record, 8u);
}

// Add

TEST_F(Ntx, FirstKeyTakesTheLastSlotOfTheRoot) {
    index.Make('C', 5);
    ASSERT_EQ(index.Add("BERTA", 1), 0);
    NtxBytes form{5};
    std::vector<int> table = {66};
    for (int i = 0; i < 66; i++) table.push_back(i);
    std::vector<NtxBytes::Item> slots(67);
    slots[66] = {0, 1, "BERTA"};
    EXPECT_EQ(File(), form.Header(2, 1024, 0, "NAME") + form.Page(1, table, slots));

    // The second one stands before it by the table alone.
    ASSERT_EQ(index.Add("ANNA", 2), 0);
    table.insert(table.begin(), 65);
    table.pop_back();
    slots[65] = {0, 2, "ANNA "};
    EXPECT_EQ(File(), form.Header(3, 1024, 0, "NAME") + form.Page(2, table, slots));
}

TEST_F(Ntx, KeyEndsAtItsZeroAndIsFilledWithBlanks) {
    index.Make('C', 5);
    ASSERT_EQ(ZBDCKADD(index.handle, "A\0BCDE", 1), 0);
    EXPECT_EQ(index.Top(), 0);
    EXPECT_EQ(index.Key(), "A    ");
}

// With keys of 100 bytes a page holds 8. What the root holds after 8 adds in
// ascending order: each took the last spare slot.
TEST_F(Ntx, SplitForAKeyInTheUpperHalfStandsByteForByte) {
    index.Make('C', 100);
    AddNumbered(1, 8);
    NtxBytes form{100};
    auto item = [](int number) { return NtxBytes::Item{0, number, NumberedKey(number)}; };
    auto slots = [&](std::vector<int> numbers) {
        std::vector<NtxBytes::Item> items;
        for (int number : numbers) items.push_back(number ? item(number) : NtxBytes::Item{});
        return items;
    };
    EXPECT_EQ(File(), form.Header(9, 1024, 0, "NAME") +
                          form.Page(8, {8, 7, 6, 5, 4, 3, 2, 1, 0}, slots({0, 8, 7, 6, 5, 4, 3, 2, 1})));

    // The places 5 to 7 change with 0 to 2, then place 8 with place 4; the new key
    // takes place 3, which was that of key 4.
    ASSERT_EQ(index.Add(NumberedKey(9), 9), 0);
    auto lower = slots({1, 2, 3, 4, 5});
    EXPECT_EQ(File(), form.Header(10, 3072, 0, "NAME") +
                          form.Page(4, {3, 2, 1, 5, 0, 8, 7, 6, 4}, slots({0, 8, 7, 6, 5, 9, 3, 2, 1})) +
                          form.Page(4, form.FreshTable(), lower) +
                          form.Page(1, form.FreshTable(), {{2048, 5, NumberedKey(5)}, {1024, 0, ""}}));
    EXPECT_EQ(index.Records(), Numbers(1, 9));
}

TEST_F(Ntx, SplitForAKeyInTheLowerHalfStandsByteForByte) {
    index.Make('C', 100);
    AddNumbered(9, 1);
    NtxBytes form{100};
    auto item = [](int number) { return NtxBytes::Item{0, number, NumberedKey(number)}; };
    // Key 9 went to slot 8, key 8 to slot 7 and so on. Key 1 goes to the new page;
    // in the old one the places 4 to 8 come to the front.
    std::vector<NtxBytes::Item> upper = {{}};
    for (int number = 2; number <= 9; number++) upper.push_back(item(number));
    std::vector<NtxBytes::Item> lower;
    for (int number = 1; number <= 5; number++) lower.push_back(item(number));
    EXPECT_EQ(File(), form.Header(10, 3072, 0, "NAME") + form.Page(4, {5, 6, 7, 8, 0, 1, 2, 3, 4}, upper) +
                          form.Page(4, form.FreshTable(), lower) +
                          form.Page(1, form.FreshTable(), {{2048, 5, NumberedKey(5)}, {1024, 0, ""}}));
    EXPECT_EQ(index.Records(), Numbers(1, 9));
}

TEST_F(Ntx, KeyInTheMiddleOfAFullPageGoesUpItself) {
    index.Make('C', 100);
    for (int number : {1, 2, 3, 4, 6, 7, 8, 9, 5})
        ASSERT_EQ(index.Add(NumberedKey(number), static_cast<uint32_t>(number)), 0);
    EXPECT_EQ(Word(4), 3072u);
    EXPECT_EQ(ReadFile(index.file, 3072 + 20 + 4, 6), Le32(5) + "05");
    EXPECT_EQ(Count(1024), 4);
    EXPECT_EQ(Count(2048), 4);
    EXPECT_EQ(index.Records(), Numbers(1, 9));
}

TEST_F(Ntx, EveryAddAndDeleteCountsTheVersion) {
    index.Make('C', 5);
    EXPECT_EQ(Version(), 1);
    ASSERT_EQ(index.Add("ANNA", 1), 0);
    EXPECT_EQ(Version(), 2);
    ASSERT_EQ(index.Delete("ANNA", 1), 0);
    EXPECT_EQ(Version(), 3);
    // Another program's count is counted on.
    PatchFile(index.file, 2, Le16(500));
    ASSERT_EQ(index.Add("ANNA", 1), 0);
    EXPECT_EQ(Version(), 501);
    ASSERT_EQ(index.Close(), 0);
    EXPECT_EQ(Version(), 501);
}

TEST_F(Ntx, UniqueIndexTakesASecondKeyInFront) {
    index.Make('C' | 0x80, 3);
    ASSERT_EQ(index.Add("ABC", 1), 0);
    EXPECT_EQ(index.Add("ABC", 2), 0);
    EXPECT_EQ(index.Records(), (std::vector<uint32_t>{2, 1}));
}

TEST_F(Ntx, AnyMarkButZeroMakesTheIndexUnique) {
    ASSERT_EQ(index.Create('C', 3), 0);
    PatchFile(index.file, 278, Le16(0x0100));
    ASSERT_EQ(index.Open(), 0);
    ASSERT_EQ(index.Add("ABC", 1), 0);
    ASSERT_EQ(index.Add("ABC", 2), 0);
    EXPECT_EQ(index.Records(), (std::vector<uint32_t>{2, 1}));
}

TEST_F(Ntx, SecondEqualPairGoesBeforeTheFirst) {
    index.Make('C', 3);
    ASSERT_EQ(index.Add("AAA", 1), 0);
    ASSERT_EQ(index.Add("ABC", 2), 0);
    EXPECT_EQ(index.Add("ABC", 2), 0);
    EXPECT_EQ(PageRecords(1024), (std::vector<uint32_t>{1, 2, 2}));
}

// A pair that stands above the leaves and is added once more loses the subtree
// beneath it: callers add an entry once.
TEST_F(Ntx, SecondEqualPairAboveTheLeavesCutsOffItsSubtree) {
    index.Make('C', 100);
    AddNumbered(1, 9);
    ASSERT_EQ(index.Add(NumberedKey(5), 5), 0);
    EXPECT_EQ(Count(3072), 2);
    EXPECT_EQ(index.Top(), 0);
    EXPECT_EQ(index.record, 5u);
    EXPECT_EQ(index.Bottom(), 0);
    EXPECT_EQ(index.record, 9u);
    EXPECT_EQ(index.Find(NumberedKey(3)), 0);
    EXPECT_EQ(index.record, 5u);
}

// Delete

TEST_F(Ntx, DeletePutsTheSlotAtTheEndOfTheTable) {
    index.Make('C', 100);
    AddNumbered(1, 3);
    ASSERT_EQ(index.Delete(NumberedKey(2), 2), 0);
    NtxBytes form{100};
    std::vector<NtxBytes::Item> slots(6);
    for (int number : {3, 2, 1}) slots.push_back({0, number, NumberedKey(number)});
    EXPECT_EQ(File(), form.Header(5, 1024, 0, "NAME") + form.Page(2, {8, 6, 0, 1, 2, 3, 4, 5, 7}, slots));
}

TEST_F(Ntx, DeleteOfAMissingKeyWritesNothing) {
    index.Make('C', 100);
    EXPECT_EQ(index.Delete(NumberedKey(1), 1), 2);
    AddNumbered(10, 30);
    Bytes before = File();
    EXPECT_EQ(index.Delete(NumberedKey(31), 31), 4);
    EXPECT_EQ(index.Delete(NumberedKey(20), 21), 4);
    EXPECT_EQ(index.Delete("2", 20), 4);
    EXPECT_EQ(File(), before);
}

TEST_F(Ntx, DeleteBelowAllKeysRemovesTheFirst) {
    index.Make('C', 100);
    AddNumbered(10, 30);
    EXPECT_EQ(index.Delete(NumberedKey(1), 1), 3);
    EXPECT_EQ(ZBECODE(), 3);
    EXPECT_EQ(index.Records(), Numbers(11, 30));
}

TEST_F(Ntx, UniqueDeleteTakesTheFirstEqualKeyWhateverTheRecord) {
    index.Make('C' | 0x80, 5);
    ASSERT_EQ(index.Add("ANNA", 1), 0);
    ASSERT_EQ(index.Add("ANTON", 2), 0);
    EXPECT_EQ(index.Delete("ANTON", 77), 0);
    // What is given of the key is all that is compared.
    ASSERT_EQ(index.Add("ANTON", 2), 0);
    EXPECT_EQ(index.Delete("AN", 2), 0);
    EXPECT_EQ(index.Records(), (std::vector<uint32_t>{2}));
}

// What the pages of the following tests hold, by slots: number 0 is a slot that was
// never used.
NtxBytes::Item Numbered(int number) {
    return number ? NtxBytes::Item{0, number, NumberedKey(number)} : NtxBytes::Item{};
}
std::vector<NtxBytes::Item> Slots(const std::vector<int>& numbers) {
    std::vector<NtxBytes::Item> items;
    for (int number : numbers) items.push_back(Numbered(number));
    return items;
}

TEST_F(Ntx, ShortPageIsFilledFromTheRight) {
    index.Make('C', 100);
    AddNumbered(1, 10);
    // 1 to 4 at 2048, 5 in the root at 3072, 6 to 10 at 1024.
    ASSERT_EQ(index.Delete(NumberedKey(1), 1), 0);
    // 5 comes down to the end pointer's item at 2048, 6 goes up, and its slot to the
    // end of the table at 1024.
    NtxBytes form{100};
    EXPECT_EQ(File(), form.Header(12, 3072, 0, "NAME") +
                          form.Page(4, {2, 1, 5, 4, 0, 8, 7, 6, 3}, Slots({0, 8, 7, 6, 10, 9, 3, 2, 1})) +
                          form.Page(4, {1, 2, 3, 4, 5, 6, 7, 8, 0}, Slots({1, 2, 3, 4, 5})) +
                          form.Page(1, form.FreshTable(), {{2048, 6, NumberedKey(6)}, {1024, 0, ""}}));
    EXPECT_EQ(index.Records(), Numbers(2, 10));
}

TEST_F(Ntx, LastPageIsFilledFromTheLeft) {
    index.Make('C', 100);
    AddNumbered(1, 9);
    ASSERT_EQ(index.Add("005", 55), 0);
    // Five keys at 2048, the rightmost page at 1024 falls below 4.
    ASSERT_EQ(index.Delete(NumberedKey(9), 9), 0);
    // The slot of 9, the last spare one now, comes to the front for 5, and 4 goes up.
    NtxBytes form{100};
    auto left = Slots({1, 2, 3, 4, 5, 0, 0, 0});
    left.push_back({0, 55, Wide("005")});
    EXPECT_EQ(File(), form.Header(12, 3072, 0, "NAME") +
                          form.Page(4, {5, 3, 2, 1, 0, 8, 7, 6, 4}, Slots({0, 8, 7, 6, 5, 5, 3, 2, 1})) +
                          form.Page(4, {8, 0, 1, 2, 3, 4, 5, 6, 7}, left) +
                          form.Page(1, form.FreshTable(), {{2048, 4, NumberedKey(4)}, {1024, 0, ""}}));
    EXPECT_EQ(index.Records(), (std::vector<uint32_t>{55, 1, 2, 3, 4, 5, 6, 7, 8}));
}

TEST_F(Ntx, MergeEmptiesTheRootAndFreesTwoPages) {
    index.Make('C', 100);
    AddNumbered(1, 9);
    ASSERT_EQ(index.Delete(NumberedKey(1), 1), 0);
    // The page folded in was freed first, then the old root before it: their first
    // 4 bytes lead on. The end pointer's item, which was never used, came along to
    // slot 0. The separator left the root without a child of its own.
    NtxBytes form{100};
    Bytes folded = form.Page(4, {3, 2, 1, 5, 0, 8, 7, 6, 4}, Slots({0, 8, 7, 6, 5, 9, 3, 2, 1}));
    Bytes oldRoot = form.Page(0, {0, 2, 3, 4, 5, 6, 7, 8, 0}, {{0, 5, NumberedKey(5)}, {2048, 0, ""}});
    EXPECT_EQ(File(), form.Header(11, 2048, 3072, "NAME") + folded.replace(0, 4, Le32(0)) +
                          form.Page(8, {1, 2, 3, 4, 5, 6, 7, 8, 0}, Slots({0, 2, 3, 4, 5, 6, 7, 8, 9})) +
                          oldRoot.replace(0, 4, Le32(1024)));
    EXPECT_EQ(index.Records(), Numbers(2, 9));
}

TEST_F(Ntx, FreedPagesAreUsedAgainWithTheirBytesBeforeTheFileGrows) {
    index.Make('C', 100);
    AddNumbered(1, 9);
    ASSERT_EQ(index.Delete(NumberedKey(1), 1), 0);
    Bytes freed = ReadFile(index.file, 3072, 1024);
    size_t size = FileSize(index.file);
    ASSERT_EQ(index.Add(NumberedKey(10), 10), 0);
    EXPECT_EQ(FileSize(index.file), size);
    EXPECT_EQ(Word(8), 0u);
    EXPECT_EQ(Word(4), 1024u);
    // The lower half went to 3072; behind its items the old bytes still stand.
    EXPECT_EQ(Count(3072), 4);
    size_t behind = 20 + 5 * 108;
    EXPECT_EQ(ReadFile(index.file, 3072 + behind, 1024 - behind), freed.substr(behind));
    EXPECT_EQ(index.Records(), Numbers(2, 10));
    // And the file grows again.
    AddNumbered(11, 15);
    EXPECT_EQ(FileSize(index.file), size + 1024);
    EXPECT_EQ(Word(8), 0u);
}

TEST_F(Ntx, KeyAboveTheLeavesIsReplacedByTheOneBeforeIt) {
    index.Make('C', 100);
    AddNumbered(1, 9);
    ASSERT_EQ(index.Add("045", 45), 0);
    ASSERT_EQ(index.Delete(NumberedKey(5), 5), 0);
    EXPECT_EQ(ReadFile(index.file, 3072 + 20, 14), Le32(2048) + Le32(45) + "045   ");
    EXPECT_EQ(Count(2048), 4);
    EXPECT_EQ(index.Records(), (std::vector<uint32_t>{1, 2, 3, 4, 45, 6, 7, 8, 9}));
}

TEST_F(Ntx, IndexIsEmptiedToAnEmptyRoot) {
    index.Make('C', 100);
    AddNumbered(1, 60);
    for (int number = 60; number > 0; number--)
        ASSERT_EQ(index.Delete(NumberedKey(number), static_cast<uint32_t>(number)), 0);
    EXPECT_EQ(index.Top(), 2);
    EXPECT_EQ(Count(Word(4)), 0);
    size_t size = FileSize(index.file);
    AddNumbered(60, 1);
    EXPECT_EQ(FileSize(index.file), size);
    EXPECT_EQ(index.Records(), Numbers(1, 60));
}

// Keys of a record, and builds

class NtxData : public Ntx {
  protected:
    int16_t data = -1;

    // Records of text, as they stand behind their delete flags.
    void OpenTable(const std::vector<Bytes>& fields, const std::vector<Bytes>& records) {
        size_t length = records.empty() ? 1 + static_cast<size_t>(fields.size()) : records[0].size();
        if (records.empty()) {
            length = 1;
            for (auto& field : fields) length += static_cast<uint8_t>(field[16]);
        }
        WriteFile("t.dbf", Dbf(3, static_cast<int>(length), fields, records));
        uint16_t opened;
        ASSERT_EQ(ZBDDOPENX(&opened, "t.dbf", 1), 0);
        data = static_cast<int16_t>(opened);
    }
    void OpenNumbered(int count) {
        std::vector<Bytes> records;
        for (int i = 1; i <= count; i++) records.push_back(" " + NumberedKey(i));
        OpenTable({DbfField("NAME", 'C', 100)}, records);
    }
    int Build(int type, int length, int decimals = 0, std::string expression = "NAME") {
        int code = ZBDCINDEX(data, index.file.c_str(), static_cast<int16_t>(type), expression.data(),
                             static_cast<int16_t>(length), static_cast<int16_t>(decimals));
        used = expression.c_str();
        return code;
    }
    // Builds, opens, and tells the stored keys.
    std::vector<Bytes> BuiltKeys(int type, int length, int decimals, const char* expression) {
        EXPECT_EQ(Build(type, length, decimals, expression), 0);
        EXPECT_EQ(index.Open(), 0);
        std::vector<Bytes> keys;
        for (int code = index.Top(); code == 0; code = index.Next())
            keys.push_back(Bytes(index.buffer, static_cast<size_t>(length)));
        EXPECT_EQ(index.Close(), 0);
        return keys;
    }
    std::string used;
};

TEST_F(NtxData, KeysAreMadeOfTheRecord) {
    OpenTable({DbfField("NAME", 'C', 5), DbfField("BORN", 'D', 8), DbfField("AMOUNT", 'N', 8, 2),
               DbfField("OK", 'L', 1), DbfField("FLOAT", 'F', 5, 1)},
              {" ANNA 19960229  -12.50T  1.5", " BERT         12345.67F  2.5"});
    ASSERT_EQ(ZBCDSTYLE(2), 0);
    ASSERT_EQ(ZBDDRGET(data, 1), 0);
    void* key = nullptr;
    auto make = [&](int type, int length, int decimals, const char* expression) {
        EXPECT_EQ(index.Create(type, length, decimals, expression), 0);
        EXPECT_EQ(index.Open(), 0);
        int code = ZBDCKMAKE(data, index.handle, &key);
        EXPECT_EQ(ZBECODE(), code);
        ZBESCODE(0);
        EXPECT_EQ(index.Close(), 0);
        Bytes made = key ? static_cast<char*>(key) : "";
        ZBMFREE(key);
        return std::pair<int, Bytes>(code, made);
    };
    using Made = std::pair<int, Bytes>;
    // A text comes as it is: neither filled nor cut.
    EXPECT_EQ(make('C', 10, 0, "NAME"), Made(0, "ANNA "));
    EXPECT_EQ(make('C', 2, 0, "NAME"), Made(0, "ANNA "));
    // A date comes as its key whatever the current style.
    EXPECT_EQ(make('D', 8, 0, "BORN"), Made(0, "19960229"));
    // A negative number keeps its sign here.
    EXPECT_EQ(make('N', 9, 2, "AMOUNT"), Made(0, "-00012.50"));
    EXPECT_EQ(make('N', 6, 2, "AMOUNT"), Made(0, "-12.50"));
    EXPECT_EQ(make('N', 5, 2, "AMOUNT"), Made(-7, ""));
    EXPECT_EQ(make('C', 5, 0, "OK"), Made(-7, ""));
    EXPECT_EQ(make('N', 5, 1, "FLOAT"), Made(-7, ""));
    EXPECT_EQ(make('C', 5, 0, "LONGERTHANTEN"), Made(-7, ""));
    // A blank date has no form in the stored style.
    ASSERT_EQ(ZBDDRGET(data, 2), 0);
    EXPECT_EQ(make('D', 8, 0, "BORN"), Made(-15, ""));

    index.Make('C', 10);
    ZbBlock block = 0;
    ASSERT_EQ(ZBDCKMAKEH(data, index.handle, &block), 0);
    ASSERT_EQ(_ZBMLOCK(&key, block), 0);
    EXPECT_STREQ(static_cast<char*>(key), "BERT ");
    _ZBMFREE(block);
}

TEST_F(NtxData, BuildOfNoRecordsLeavesAnEmptyIndexAndNoWorkFile) {
    OpenTable({DbfField("NAME", 'C', 5)}, {});
    WriteFile("stacks.tmp", "somebody's");
    EXPECT_EQ(Build('C', 5, 0, "n ame"), 0);
    EXPECT_EQ(used, "name");
    EXPECT_EQ(FileSize(index.file), 2048u);
    EXPECT_EQ(Version(), 1);
    EXPECT_EQ(ReadFile("stacks.tmp"), "somebody's");
}

TEST_F(NtxData, BuiltRootOfMaxKeysStandsByteForByte) {
    OpenNumbered(8);
    ASSERT_EQ(Build('C', 100, 0, "na me"), 0);
    EXPECT_EQ(used, "NAME");
    NtxBytes form{100};
    std::vector<NtxBytes::Item> slots;
    for (int number = 1; number <= 8; number++) slots.push_back({0, number, NumberedKey(number)});
    EXPECT_EQ(File(), form.Header(2, 1024, 0, "NAME") + form.Page(8, form.FreshTable(), slots));
    EXPECT_FALSE(FileExists("stacks.tmp"));
}

TEST_F(NtxData, BuildOfOneKeyMoreStandsByteForByte) {
    OpenNumbered(9);
    ASSERT_EQ(Build('C', 100), 0);
    NtxBytes form{100};
    std::vector<NtxBytes::Item> slots;
    for (int number = 1; number <= 8; number++) slots.push_back({0, number, NumberedKey(number)});
    // The ninth key rose; the page behind it holds none, and the bytes of the one
    // before it.
    EXPECT_EQ(File(), form.Header(2, 2048, 0, "NAME") + form.Page(8, form.FreshTable(), slots) +
                          form.Page(1, form.FreshTable(), {{1024, 9, NumberedKey(9)}, {3072, 0, ""}}) +
                          form.Page(0, form.FreshTable(), slots));
}

TEST_F(NtxData, LastLeafWithoutKeysIsSteppedOver) {
    OpenNumbered(9);
    ASSERT_EQ(Build('C', 100), 0);
    ASSERT_EQ(index.Open(), 0);
    EXPECT_EQ(index.Records(), Numbers(1, 9));
    EXPECT_EQ(index.Records(false).size(), 9u);
    EXPECT_EQ(index.Bottom(), 0);
    EXPECT_EQ(index.record, 9u);
    EXPECT_EQ(index.Next(), 3);
    EXPECT_EQ(index.record, 9u);
    EXPECT_EQ(index.Find(NumberedKey(77)), 4);
    EXPECT_EQ(index.record, 9u);
    EXPECT_EQ(index.Find(NumberedKey(9), 2, 9), 0);
    EXPECT_EQ(index.Find(NumberedKey(9), 2, 8), 4);
    EXPECT_EQ(index.record, 9u);
}

TEST_F(NtxData, KeyBehindTheLastGoesToTheLeafWithoutKeys) {
    OpenNumbered(9);
    ASSERT_EQ(Build('C', 100), 0);
    ASSERT_EQ(index.Open(), 0);
    ASSERT_EQ(index.Add(NumberedKey(10), 10), 0);
    EXPECT_EQ(Count(2048), 1);
    EXPECT_EQ(Count(3072), 1);
    ASSERT_EQ(index.Add(NumberedKey(9), 99), 0);
    EXPECT_EQ(Count(3072), 2);
    EXPECT_EQ(index.Records(), (std::vector<uint32_t>{1, 2, 3, 4, 5, 6, 7, 8, 9, 99, 10}));
}

// What a built index isn't good for: its last page may be short, and what fills a
// short page up takes it to hold one key less than the half.
TEST_F(NtxData, DeleteFromAShortBuiltPageBringsFalseKeys) {
    OpenNumbered(10);
    ASSERT_EQ(Build('C', 100), 0);
    ASSERT_EQ(index.Open(), 0);
    EXPECT_EQ(Count(3072), 1);
    // 8 keys and none: one comes over, and the page counts as half full.
    ASSERT_EQ(index.Delete(NumberedKey(10), 10), 0);
    EXPECT_EQ(Count(1024), 7);
    EXPECT_EQ(Count(3072), 4);
    EXPECT_EQ(ReadFile(index.file, 2048 + 24, 6), Le32(8) + "08");
    EXPECT_EQ(PageRecords(3072), (std::vector<uint32_t>{9, 2, 3, 4}));
}

TEST_F(NtxData, MergeOfAShortBuiltPageCountsAsFull) {
    OpenNumbered(12);
    ASSERT_EQ(Build('C', 100), 0);
    ASSERT_EQ(index.Open(), 0);
    EXPECT_EQ(Count(3072), 3);
    for (uint32_t i = 1; i <= 4; i++) ASSERT_EQ(index.Delete(NumberedKey(static_cast<int>(i)), i), 0);
    ASSERT_EQ(Count(1024), 4);
    // 4 keys, the one above and 2: the eighth is what the short page's end pointer
    // held.
    ASSERT_EQ(index.Delete(NumberedKey(12), 12), 0);
    EXPECT_EQ(Word(4), 1024u);
    EXPECT_EQ(PageRecords(1024), (std::vector<uint32_t>{5, 6, 7, 8, 9, 10, 11, 4}));
}

TEST_F(NtxData, ThreeLevelsCanEndInPagesWithoutKeys) {
    OpenNumbered(81);
    ASSERT_EQ(Build('C', 100), 0);
    ASSERT_EQ(index.Open(), 0);
    size_t root = Word(4);
    EXPECT_EQ(Count(root), 1);
    size_t right = Word(root + 20 + 108);
    EXPECT_EQ(Count(right), 0);
    size_t leaf = Word(right + 20);
    EXPECT_EQ(Count(leaf), 0);
    EXPECT_EQ(index.Records(), Numbers(1, 81));
    EXPECT_EQ(index.Records(false).size(), 81u);
    EXPECT_EQ(index.Find(NumberedKey(90)), 4);
    EXPECT_EQ(index.record, 81u);

    // A key behind all goes through the page without keys to the leaf below it. To
    // take it out would need a neighbour that the parent doesn't have.
    ASSERT_EQ(index.Add(NumberedKey(82), 82), 0);
    EXPECT_EQ(Count(leaf), 1);
    EXPECT_EQ(index.Find(NumberedKey(82), 2, 82), 0);
    Bytes before = File();
    EXPECT_EQ(index.Delete(NumberedKey(82), 82), -4);
    ZBESCODE(0);
    EXPECT_EQ(File(), before);

    // The same where the key to go stands above, and its place would be filled from
    // that leaf: the root's two subtrees change their sides.
    Bytes left = ReadFile(index.file, root + 20, 4);
    PatchFile(index.file, root + 20, Le32(static_cast<int64_t>(right)));
    PatchFile(index.file, root + 20 + 108, left);
    PatchFile(index.file, leaf + 20 + 8, NumberedKey(80));
    before = File();
    EXPECT_EQ(index.Delete(NumberedKey(81), 81), -4);
    ZBESCODE(0);
    EXPECT_EQ(File(), before);
}

// Of 760 keys the last page above the leaves but one has 3, and the page over it
// none: the merge of two leaves would leave 2 there, and no neighbour to mend that.
TEST_F(NtxData, DeleteThatAPageFurtherUpCantFollowWritesNothing) {
    std::vector<Bytes> records;
    for (int i = 1; i <= 760; i++) records.push_back(" " + Wide(std::to_string(1000 + i)));
    OpenTable({DbfField("NAME", 'C', 100)}, records);
    ASSERT_EQ(Build('C', 100), 0);
    ASSERT_EQ(index.Open(), 0);
    auto remove = [&](uint32_t record) { return index.Delete(Wide(std::to_string(1000 + record)), record); };
    // 748 to 755 share a leaf, 757 to 760 the next.
    for (uint32_t record = 748; record <= 751; record++) ASSERT_EQ(remove(record), 0);
    Bytes before = File();
    EXPECT_EQ(remove(752), -4);
    ZBESCODE(0);
    EXPECT_TRUE(File() == before);
    // The key above that leaf would be filled up from it.
    EXPECT_EQ(remove(756), -4);
    ZBESCODE(0);
    EXPECT_TRUE(File() == before);
    std::vector<uint32_t> expected = Numbers(1, 747);
    for (uint32_t record = 752; record <= 760; record++) expected.push_back(record);
    EXPECT_EQ(index.Records(), expected);
}

TEST_F(NtxData, BuiltEqualKeysStandInRecordOrderAndDeletedRecordsAreThere) {
    std::vector<Bytes> records;
    for (int i = 0; i < 300; i++) records.push_back(i % 7 ? " SAME " : "*SAME ");
    records.push_back(" AAAA ");
    OpenTable({DbfField("NAME", 'C', 5)}, records);
    ASSERT_EQ(Build('C', 5), 0);
    ASSERT_EQ(index.Open(), 0);
    std::vector<uint32_t> expected = Numbers(1, 300);
    expected.insert(expected.begin(), 301);
    EXPECT_EQ(index.Records(), expected);
    // Later adds go behind them.
    ASSERT_EQ(index.Add("SAME", 5000), 0);
    EXPECT_EQ(index.Bottom(), 0);
    EXPECT_EQ(index.record, 5000u);
}

TEST_F(NtxData, BuildTakesTextsAndDatesAsTheyStand) {
    OpenTable({DbfField("NAME", 'C', 5), DbfField("BORN", 'D', 8)}, {" ANNA 19960229"});
    EXPECT_EQ(BuiltKeys('C', 5, 0, "NAME"), (std::vector<Bytes>{"ANNA "}));
    EXPECT_EQ(BuiltKeys('C', 3, 0, "NAME"), (std::vector<Bytes>{"ANN"}));
    EXPECT_EQ(BuiltKeys('D', 8, 0, "BORN"), (std::vector<Bytes>{"19960229"}));
    // A key longer than the field goes on into what stands behind it.
    EXPECT_EQ(BuiltKeys('C', 9, 0, "NAME"), (std::vector<Bytes>{"ANNA 1996"}));
}

TEST_F(NtxData, BuildOfANumberFieldOfTheKeysFormTakesItsText) {
    OpenTable({DbfField("AMOUNT", 'N', 8, 2)},
              {"    12.50", "  -12.50 ", "         ", " -9999.99", " 12345.67"});
    auto keys = BuiltKeys('N', 8, 2, "AMOUNT");
    // Blanks in front become zeros. Of a negative number what follows the minus is
    // complemented, and zeros behind it become 0x5C.
    std::vector<Bytes> expected = {Hex("23 23 23 23 2E 23 23 5C"), Hex("2B 2A 2E 27 2C 3C 5C 5C"), "00000000",
                                   "00012.50", "12345.67"};
    EXPECT_EQ(keys, expected);
}

TEST_F(NtxData, BuiltNegativeNumberDoesNotEndInABlank) {
    OpenTable({DbfField("AMOUNT", 'N', 7, 2)}, {" -012.50"});
    EXPECT_EQ(BuiltKeys('N', 7, 2, "AMOUNT"), (std::vector<Bytes>{Hex("2C 2B 2A 2E 27 2C 5C")}));
    // That of ZBDCKNUM will, and lies before it: what comes back is another key.
    ASSERT_EQ(index.Open(), 0);
    ASSERT_EQ(ZBDCKNUM(index.handle, index.buffer, -12.5), 0);
    EXPECT_EQ(Bytes(index.buffer, 7), Hex("2C 2B 2A 2E 27 2C 00"));
    index.record = 1;
    EXPECT_EQ(ZBDCKFIND(index.handle, index.buffer, &index.record, 2), 0);
    EXPECT_EQ(Bytes(index.buffer, 7), Hex("2C 2B 2A 2E 27 2C 5C"));
}

// A key that is longer than the field takes what stands behind it, within the
// room for records read ahead.
TEST_F(NtxData, BuiltKeyGoesOnBehindTheLastRecord) {
    for (size_t count : {1u, 300u}) {
        OpenTable({DbfField("NAME", 'C', 5)}, std::vector<Bytes>(count, " ABCDE"));
        ASSERT_EQ(Build('C', 100), 0);
        ASSERT_EQ(ZBDDCLOSE(data), 0);
        if (count > 1) continue;
        ASSERT_EQ(index.Open(), 0);
        ASSERT_EQ(index.Top(), 0);
        EXPECT_EQ(Bytes(index.buffer, 100), "ABCDE" + Fill(95));
        EXPECT_EQ(index.Close(), 0);
    }
}

TEST_F(NtxData, BuildOfAnotherNumberFieldWritesItAnew) {
    OpenTable({DbfField("AMOUNT", 'N', 8, 2)}, {"    12.50", "   -12.50", "         "});
    std::vector<Bytes> expected = {Hex("2C 2C 2B 2A 2E 27 5C"), "00000.0", "00012.5"};
    EXPECT_EQ(BuiltKeys('N', 7, 1, "AMOUNT"), expected);
    EXPECT_EQ(Build('N', 5, 2, "AMOUNT"), -7);
    ZBESCODE(0);
    EXPECT_FALSE(FileExists(index.file));
}

TEST_F(NtxData, BuildOfOtherFieldsMakesKeysOfZeros) {
    OpenTable({DbfField("OK", 'L', 1), DbfField("FLOAT", 'F', 5, 1)}, {" T  1.5", " F  2.5"});
    for (const char* field : {"OK", "FLOAT"}) {
        ASSERT_EQ(Build('C', 3, 0, field), 0);
        ASSERT_EQ(index.Open(), 0);
        EXPECT_EQ(index.Bottom(), 0);
        EXPECT_EQ(Bytes(index.buffer, 3), Fill(3));
        EXPECT_EQ(index.record, 2u);
        ASSERT_EQ(index.Close(), 0);
    }
}

TEST_F(NtxData, BuildByExpressionKeepsMinusSignsAndFillsShortTexts) {
    OpenTable({DbfField("NAME", 'C', 5), DbfField("AMOUNT", 'N', 8, 2)},
              {" ANNA    12.50", " BERT   -12.50"});
    EXPECT_EQ(BuiltKeys('N', 8, 2, "AMOUNT+0"), (std::vector<Bytes>{"-0012.50", "00012.50"}));
    EXPECT_EQ(BuiltKeys('C', 8, 0, "LEFT(NAME,2)"), (std::vector<Bytes>{"AN      ", "BE      "}));
    EXPECT_EQ(BuiltKeys('C', 7, 0, "NAME+STR(AMOUNT,8,2)"), (std::vector<Bytes>{"ANNA   ", "BERT   "}));
}

TEST_F(NtxData, FailedBuildLeavesNeitherIndexNorWorkFile) {
    OpenTable({DbfField("NAME", 'C', 5), DbfField("OK", 'L', 1)}, {" ANNA T"});
    for (const char* expression : {"LONGERTHANTEN", "NAME+1", "OK+OK", "STR(NAME)"}) {
        EXPECT_EQ(Build('C', 5, 0, expression), -7) << expression;
        EXPECT_EQ(ZBECODE(), -7);
        ZBESCODE(0);
        EXPECT_FALSE(FileExists("stacks.tmp"));
        EXPECT_FALSE(FileExists(index.file));
        uint16_t conflict = 1;
        EXPECT_EQ(ZBDDLOCK(data, 2, &conflict), 0);
        EXPECT_EQ(conflict, 0);
        EXPECT_EQ(ZBDDUNLOCK(data, 2, nullptr), 0);
    }
}

TEST_F(NtxData, FailedBuildIsLoggedLevelByLevel) {
    OpenTable({DbfField("NAME", 'C', 5)}, {" ANNA "});
    StartLog();
    EXPECT_EQ(Build('C', 101), -23);
    EXPECT_EQ(Log(), (std::vector<LogEntry>{{"Ccreate", -23}, {"Cindex", -23}}));
}

TEST_F(NtxData, BuildPassesOnWhatCreateSaysAndKeepsTheOldFile) {
    OpenTable({DbfField("NAME", 'C', 5)}, {" ANNA "});
    WriteFile(index.file, "old");
    EXPECT_EQ(Build('X', 5), -22);
    ZBESCODE(0);
    EXPECT_EQ(Build('C', 101), -23);
    ZBESCODE(0);
    EXPECT_EQ(Build('N', 5, 4), -30);
    ZBESCODE(0);
    EXPECT_EQ(Build('C', 5, 0, std::string(256, 'x')), -7);
    ZBESCODE(0);
    EXPECT_EQ(ZBDCINDEX(data, nullptr, 'C', nullptr, 5, 0), -21);
    ZBESCODE(0);
    char expression[] = "NAME";
    EXPECT_EQ(ZBDCINDEX(50, "t.ntx", 'C', expression, 5, 0), -13);
    EXPECT_EQ(ZBDCINDEX(data, "t.ntx", 'C', expression, 5, 0), -13);
    EXPECT_EQ(ReadFile(index.file), "old");
}

TEST_F(NtxData, BuildWithoutAWorkFileSaysSo) {
    OpenTable({DbfField("NAME", 'C', 5)}, {" ANNA "});
    ASSERT_EQ(system("mkdir stacks.tmp"), 0);
    EXPECT_EQ(Build('C', 5), -46);
    EXPECT_FALSE(FileExists(index.file));
}

TEST_F(NtxData, UniqueBuildKeepsEqualKeys) {
    OpenTable({DbfField("NAME", 'C', 5)}, {" SAME ", " SAME "});
    ASSERT_EQ(Build('C' | 0x80, 5), 0);
    ASSERT_EQ(index.Open(), 0);
    EXPECT_EQ(index.Records(), Numbers(1, 2));
    ZbNtxInfo info{};
    ASSERT_EQ(ZBDCINFO(index.handle, &info), 0);
    EXPECT_EQ(info.keyFlags, 0x0080);
}

// Damaged files

TEST_F(Ntx, CountsAndOffsetsOutsideThePageAreRefused) {
    index.Make('C', 100);
    AddNumbered(1, 9);
    Bytes good = File();
    auto refused = [&](size_t at, const Bytes& bytes) {
        WriteFile(index.file, good);
        PatchFile(index.file, at, bytes);
        EXPECT_EQ(index.Top(), -6) << at;
        ZBESCODE(0);
        EXPECT_EQ(index.Find(NumberedKey(2)), -6) << at;
        ZBESCODE(0);
        EXPECT_EQ(index.Add(NumberedKey(2), 22), -6) << at;
        ZBESCODE(0);
    };
    refused(2048, Bytes(1, 9));
    refused(2048, Bytes(1, '\x7F'));
    refused(2048, Bytes(1, '\xFF'));
    refused(3072, Bytes(1, '\x80'));
    refused(2050, Le16(19));  // in the table
    refused(2050, Le16(0));
    refused(2052, Le16(1024 - 107));  // one byte beyond the page
    refused(2058, Le16(65535));       // the end pointer's
    refused(3074, Le16(917));
    // Spare items are looked at when they are drawn upon.
    WriteFile(index.file, good);
    PatchFile(index.file, 2050 + 16, Le16(917));
    EXPECT_EQ(index.Records(), Numbers(1, 9));
    EXPECT_EQ(index.Add(NumberedKey(2), 22), -6);
    ZBESCODE(0);
    EXPECT_EQ(index.Records(), Numbers(1, 9));
    // The high byte of the count isn't looked at.
    WriteFile(index.file, good);
    PatchFile(index.file, 2049, Bytes(1, '\x55'));
    EXPECT_EQ(index.Records(), Numbers(1, 9));
}

TEST_F(Ntx, ChildrenOutsideTheFileAreRefused) {
    index.Make('C', 100);
    AddNumbered(1, 9);
    for (int64_t child : {512, 1025, 4096, 0x40000000, -1024}) {
        PatchFile(index.file, 3072 + 20, Le32(child));
        EXPECT_EQ(index.Top(), -4) << child;
        ZBESCODE(0);
        EXPECT_EQ(index.Find(NumberedKey(2)), -4);
        ZBESCODE(0);
    }
}

TEST_F(Ntx, PagesInACircleEnd) {
    index.Make('C', 100);
    AddNumbered(1, 60);
    size_t root = Word(4);
    for (int i = 0; i <= Count(root); i++) {
        size_t item = root + Word(root + 2 + 2 * static_cast<size_t>(i)) % 65536;
        PatchFile(index.file, item, Le32(static_cast<int64_t>(root)));
    }
    for (int mode : {0, 2}) {
        EXPECT_EQ(index.Find(NumberedKey(30), mode, 7), -6);
        ZBESCODE(0);
    }
    EXPECT_EQ(index.Top(), -6);
    ZBESCODE(0);
    EXPECT_EQ(index.Bottom(), -6);
    ZBESCODE(0);
    EXPECT_EQ(index.Add(NumberedKey(30), 7), -6);
    ZBESCODE(0);
    EXPECT_EQ(index.Delete(NumberedKey(30), 7), -6);
}

// A page that is every child's child: the walk through equal keys would take ages.
TEST_F(Ntx, SearchThroughMoreEqualKeysThanTheFileHoldsEnds) {
    NtxBytes form{100};
    Bytes file = form.Header(1, 1024, 0, "NAME");
    auto slots = [&](int64_t child) {
        std::vector<NtxBytes::Item> items;
        for (int i = 1; i <= 9; i++) items.push_back({child, i, Wide("SAME")});
        return items;
    };
    constexpr int Levels = 15;
    for (int level = 1; level <= Levels; level++)
        file += form.Page(8, form.FreshTable(), slots(level < Levels ? 1024 * (level + 1) : 0));
    WriteFile(index.file, file);
    ASSERT_EQ(index.Open(), 0);
    EXPECT_EQ(index.Find("SAME", 2, 77), -6);
    ZBESCODE(0);
    EXPECT_EQ(index.Find("SAME"), 0);
}

TEST_F(Ntx, FreeChainThatLeadsAstrayEndsAnAdd) {
    index.Make('C', 100);
    AddNumbered(1, 8);
    Bytes good = File();
    for (int64_t head : {1024, 1, 2048, 0x7FFFFC00}) {
        WriteFile(index.file, good);
        PatchFile(index.file, 8, Le32(head));
        EXPECT_EQ(index.Add(NumberedKey(9), 9), head == 1024 ? -6 : -4) << head;
        ZBESCODE(0);
    }
}

TEST_F(Ntx, DamagedPagesNeitherHangNorCrash) {
    index.Make('C', 20);
    for (uint32_t i = 1; i <= 400; i++) ASSERT_EQ(index.Add("KEY" + std::to_string(i * 7919 % 1000), i), 0);
    for (uint32_t i = 1; i <= 150; i++)
        ASSERT_EQ(index.Delete("KEY" + std::to_string(i * 7919 % 1000), i), 0);
    ASSERT_EQ(index.Close(), 0);
    Bytes good = File();
    uint32_t seed = 12345;
    auto random = [&] { return seed = seed * 1103515245 + 12345, seed >> 8; };
    for (int round = 0; round < 400; round++) {
        Bytes bad = good;
        for (int i = 0; i < 4; i++) {
            size_t page = 1024 * (1 + random() % (good.size() / 1024 - 1));
            size_t last = bad.size() - 4;
            switch (random() % 6) {
                case 0: bad[std::min(page, last)] = static_cast<char>(random()); break;
                case 1:
                    bad.replace(std::min(page + 2 + random() % 35 * 2, last), 2,
                                Le16(static_cast<int>(random())));
                    break;
                case 2:
                    bad.replace(std::min(page + 68 + random() % 33 * 28, last), 4,
                                Le32(random() % 20 * 1024));
                    break;
                case 3: bad.replace(std::min(page + random() % 1020, last), 4, Le32(random())); break;
                case 4: bad.replace(4 + random() % 2 * 4, 4, Le32(random() % 20 * 1024)); break;
                case 5:
                    bad.resize(std::max<size_t>(2048, std::min(bad.size(), page + random() % 1024)));
                    break;
            }
        }
        WriteFile(index.file, bad);
        if (index.Open() < 0) {
            ZBESCODE(0);
            continue;
        }
        for (int step = 0; step < 40; step++) {
            std::string key = "KEY" + std::to_string(random() % 1000);
            uint32_t record = random() % 400 + 1;
            switch (random() % 7) {
                case 0: index.Add(key, record); break;
                case 1: index.Delete(key, record); break;
                case 2: index.Find(key, static_cast<int>(random() % 8), record); break;
                case 3: index.Top(); break;
                case 4: index.Bottom(); break;
                case 5: index.Next(); break;
                case 6: index.Previous(); break;
            }
            ZBESCODE(0);
        }
        ASSERT_EQ(index.Close(), 0);
    }
}

TEST_F(Ntx, TwoProcessesChangeOneIndexUnderADataFilesLock) {
    ZbFieldSpec spec{"NAME", 'C', 5, 0};
    ASSERT_EQ(ZBDDCREATE("t.dbf", 1, &spec, 1), 0);
    ASSERT_EQ(index.Create('N', 6, 0), 0);
    constexpr uint32_t Each = 400;
    auto work = [](uint32_t first) {
        if (ZBDINIT(100, 1) != 0) return 1;
        uint16_t table;
        NtxIndex tree;
        if (ZBDDOPENX(&table, "t.dbf", 1 | ZB_Shared) != 0) return 2;
        auto lock = [&] {
            uint16_t conflict = 1;
            while (conflict)
                if (ZBDDLOCK(static_cast<int16_t>(table), 2, &conflict) != 0) return false;
            return true;
        };
        // An open takes the length before the root: in between a root can come that
        // lies behind it.
        if (!lock() || tree.Open(ZB_Shared) < 0) return 3;
        if (ZBDDUNLOCK(static_cast<int16_t>(table), 2, nullptr) != 0) return 3;
        for (uint32_t i = 0; i < Each; i++) {
            if (!lock()) return 4;
            char key[8];
            if (ZBDCKNUM(tree.handle, key, first + 2 * i) != 0) return 5;
            if (tree.Add(key, first + 2 * i) != 0) return 6;
            if (ZBDDUNLOCK(static_cast<int16_t>(table), 2, nullptr) != 0) return 7;
        }
        return tree.Close() == 0 ? 0 : 8;
    };
    Process odd([&](Process&) { return work(1); });
    Process even([&](Process&) { return work(2); });
    ASSERT_EQ(odd.Wait(), 0);
    ASSERT_EQ(even.Wait(), 0);
    ASSERT_EQ(index.Open(), 0);
    EXPECT_EQ(index.Records(), Numbers(1, 2 * Each));
    EXPECT_EQ(Version(), 1 + 2 * static_cast<int>(Each));
}

}  // namespace
}  // namespace test
