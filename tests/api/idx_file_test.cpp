// IDX files: creation, the open with its checks, what an open index tells.
#include "support/idx.h"

namespace test {
namespace {

class IdxFileTest : public LibraryTest {
  protected:
    int32_t Create(uint16_t type, int keyLength, std::string expression = "NAME",
                   const char* name = "a.idx") {
        text = expression;
        text.resize(text.size() + 1);
        int32_t code = ZBDICREATE(name, type, text.data(), static_cast<int16_t>(keyLength));
        text.resize(strlen(text.c_str()));
        return code;
    }
    int32_t Open(uint16_t mode = 0) {
        handle = 1234;
        int32_t code = ZBDIOPENX(&handle, "a.idx", mode);
        index = static_cast<int16_t>(handle);
        return code;
    }
    int32_t TryOpen(uint16_t mode = 0) {
        int32_t code = Open(mode);
        EXPECT_EQ(code < 0, handle == 65535);
        if (code >= 0) ZBDICLOSE(index);
        ZBESCODE(0);
        return code;
    }
    ZbIdxInfo Info() {
        ZbIdxInfo info;
        memset(&info, 0xEE, sizeof info);
        EXPECT_EQ(0, ZBDIINFO(index, &info));
        return info;
    }

    std::string text;
    uint16_t handle = 0;
    int16_t index = -1;
};

using IdxCreate = IdxFileTest;
using IdxOpen = IdxFileTest;
using IdxInfo = IdxFileTest;
using IdxContract = IdxFileTest;

TEST_F(IdxCreate, ANewStandardFileIs1024Bytes) {
    ASSERT_EQ(0, Create('C', 5));
    Bytes expected = Hex("00 02 00 00 FF FF FF FF 00 04 00 00 05 00 00 00 4E 41 4D 45");
    expected += Fill(512 - expected.size());
    expected += Hex("03 00 00 00 FF FF FF FF FF FF FF FF");
    expected += Fill(1024 - expected.size());
    EXPECT_EQ(expected, ReadFile("a.idx"));
}

TEST_F(IdxCreate, ANewCompactFileIs1536Bytes) {
    ASSERT_EQ(0, Create('C' | ZB_IdxCompact | ZB_IdxUnique, 10));
    Bytes expected = Hex("00 04 00 00 00 00 00 00 00 00 00 00 0A 00 21 00");
    expected += Fill(504 - expected.size());
    expected += Hex("05 00 01 00 00 00 05 00 4E 41 4D 45");
    expected += Fill(1024 - expected.size());
    expected += Hex("03 00 00 00 FF FF FF FF FF FF FF FF E8 01 FF FF 00 00 0F 0F 10 04 04 03");
    expected += Fill(1536 - expected.size());
    EXPECT_EQ(expected, ReadFile("a.idx"));
}

TEST_F(IdxCreate, TheWidthsOfAPackedLeafComeFromTheKeyLength) {
    const struct {
        int keyLength;
        const char* bytes;
    } cases[] = {{1, "E8 01 FF 3F 00 00 01 01 0E 01 01 02"},  {2, "E8 01 FF FF 0F 00 03 03 14 02 02 03"},
                 {3, "E8 01 FF FF 0F 00 03 03 14 02 02 03"},  {10, "E8 01 FF FF 00 00 0F 0F 10 04 04 03"},
                 {31, "E8 01 FF 3F 00 00 1F 1F 0E 05 05 03"}, {32, "E8 01 FF FF 0F 00 3F 3F 14 06 06 04"},
                 {100, "E8 01 FF FF 03 00 7F 7F 12 07 07 04"}};
    for (auto& c : cases) {
        ASSERT_EQ(0, Create('C' | ZB_IdxCompact, c.keyLength));
        EXPECT_EQ(Hex(c.bytes), ReadFile("a.idx", 1024 + 12, 12)) << c.keyLength;
    }
}

TEST_F(IdxCreate, TypesForceTheirLengths) {
    const struct {
        int type, given, stored;
    } cases[] = {{'C', 1, 1}, {'c', 100, 100}, {'D', 99, 8}, {'d', 0, 8},
                 {'L', 0, 1}, {'l', 7, 1},     {'N', -1, 8}};
    for (auto& c : cases) {
        ASSERT_EQ(0, Create(static_cast<uint16_t>(c.type), c.given));
        EXPECT_EQ(c.stored, IdxImage("a.idx").keyLength());
    }
    for (int type : {int{'F'}, int{'M'}, 0, int{'A'}}) {
        EXPECT_EQ(ZB_ErrKeyType, Create(static_cast<uint16_t>(type), 8));
        ZBESCODE(0);
    }
    for (int length : {0, 101, -5}) {
        EXPECT_EQ(ZB_ErrKeyLength, Create('C', length));
        ZBESCODE(0);
    }
}

TEST_F(IdxCreate, TheDescendingBitMakesNoDescendingFile) {
    ASSERT_EQ(0, Create(0x0100 | 'C' | ZB_IdxCompact, 5));
    EXPECT_EQ(Hex("00 00"), ReadFile("a.idx", 502, 2));
    ASSERT_EQ(0, Open());
    EXPECT_EQ(0x0400, Info().keyFlags);
}

TEST_F(IdxCreate, BlanksGoFromTheCallersText) {
    ASSERT_EQ(0, Create('C', 5, " upper( na me ) "));
    EXPECT_EQ("upper(name)", text);
    EXPECT_EQ("UPPER(NAME)", std::string(ReadFile("a.idx", 16, 220).c_str()));
    ASSERT_EQ(0, Open());
    char expression[300];
    EXPECT_EQ(0, ZBDIEXPR(index, expression));
    EXPECT_STREQ("UPPER(NAME)", expression);
}

TEST_F(IdxCreate, AnExpressionOf220BytesCanBeCreatedAndNotOpened) {
    for (uint16_t form : {0, int{ZB_IdxCompact}}) {
        auto type = static_cast<uint16_t>('C' | form);
        ASSERT_EQ(0, Create(type, 5, std::string(220, 'x') + " "));
        EXPECT_EQ(std::string(220, 'X'), ReadFile("a.idx", form ? 512 : 16, 220));
        EXPECT_EQ(ZB_ErrExpression, TryOpen());
        ASSERT_EQ(0, Create(type, 5, std::string(219, 'x')));
        EXPECT_EQ(0, TryOpen());
        EXPECT_EQ(ZB_ErrExpression, Create(type, 5, std::string(221, 'x')));
        ZBESCODE(0);
    }
}

TEST_F(IdxCreate, RefusesInOrder) {
    char expression[] = "NAME";
    ZBESCODE(-99);
    EXPECT_EQ(-99, ZBDICREATE(nullptr, 'C', nullptr, 5));
    ZBESCODE(0);
    EXPECT_EQ(ZB_ErrNullPointer, ZBDICREATE(nullptr, 'X', expression, 5));
    ZBESCODE(0);
    EXPECT_EQ(ZB_ErrNullPointer, ZBDICREATE("a.idx", 'X', nullptr, 5));
    ZBESCODE(0);
    EXPECT_EQ(ZB_ErrOpen, ZBDICREATE("no/such/place.idx", 'C', expression, 5));
    EXPECT_FALSE(FileExists("a.idx"));
}

TEST_F(IdxOpen, TakesTheModesOfItsDialects) {
    ASSERT_EQ(0, Create('C', 5));
    for (int mode = 0; mode <= 12; mode++) {
        bool fine = mode == 0 || mode == 3 || mode == 4 || mode == 8;
        EXPECT_EQ(fine ? 0 : ZB_ErrFileType, TryOpen(static_cast<uint16_t>(mode))) << mode;
    }
}

TEST_F(IdxOpen, ChecksTheHeader) {
    for (uint16_t form : {0, int{ZB_IdxCompact}}) {
        auto fresh = [&] { ASSERT_EQ(0, Create(static_cast<uint16_t>('C' | form), 5)); };
        fresh();
        PatchFile("a.idx", 12, Hex("00 00"));
        EXPECT_EQ(ZB_ErrKeyLength, TryOpen());
        PatchFile("a.idx", 12, Hex("65 00"));
        EXPECT_EQ(ZB_ErrKeyLength, TryOpen());
        PatchFile("a.idx", 12, Hex("05 01"));
        EXPECT_EQ(ZB_ErrKeyLength, TryOpen());
        fresh();
        for (const char* root : {"00 00 00 00", "FF 01 00 00", "00 08 00 00", "00 02 00 80", "FF FF FF FF"}) {
            PatchFile("a.idx", 0, Hex(root));
            EXPECT_EQ(ZB_ErrRootPage, TryOpen()) << root;
        }
    }
}

TEST_F(IdxOpen, TheRootsAlignmentShowsAtItsFirstUse) {
    ASSERT_EQ(0, Create('C', 5));
    PatchFile("a.idx", 0, Hex("01 02"));
    ASSERT_EQ(0, Open());
    char key[8];
    uint32_t record;
    EXPECT_EQ(ZB_ErrSeek, ZBDIKTOP(index, key, &record));
}

TEST_F(IdxOpen, AStandardFileIsAsLongAsItsHeaderSays) {
    ASSERT_EQ(0, Create('C', 5));
    WriteFile("a.idx", ReadFile("a.idx") + Fill(76));
    EXPECT_EQ(0, TryOpen());
    PatchFile("a.idx", 8, Hex("00 02 00 00"));
    EXPECT_EQ(ZB_ErrRootPage, TryOpen());
    PatchFile("a.idx", 8, Hex("00 00 00 80"));
    EXPECT_EQ(ZB_ErrRootPage, TryOpen());
}

TEST_F(IdxOpen, ShortFilesEndInARead) {
    ASSERT_EQ(0, Create('C', 5));
    Bytes standard = ReadFile("a.idx");
    for (size_t length : {0, 15, 235}) {
        WriteFile("a.idx", standard.substr(0, length));
        EXPECT_EQ(ZB_ErrRead, TryOpen()) << length;
    }
    ASSERT_EQ(0, Create('C' | ZB_IdxCompact, 5));
    Bytes compact = ReadFile("a.idx");
    for (size_t length : {511, 516}) {
        WriteFile("a.idx", compact.substr(0, length));
        EXPECT_EQ(ZB_ErrRead, TryOpen()) << length;
    }
    WriteFile("a.idx", compact);
    PatchFile("a.idx", 510, Hex("01 04"));  // one byte more than there is
    EXPECT_EQ(ZB_ErrRead, TryOpen());
    PatchFile("a.idx", 510, Hex("00 04"));
    EXPECT_EQ(0, TryOpen());
    PatchFile("a.idx", 510, Hex("00 80"));
    EXPECT_EQ(ZB_ErrRead, TryOpen());
}

TEST_F(IdxOpen, ACompactExpressionStandsWhereTheHeaderSays) {
    ASSERT_EQ(0, Create('C' | ZB_IdxCompact, 5));
    PatchFile("a.idx", 506, Hex("03 00"));
    ASSERT_EQ(0, Open());
    char expression[300];
    EXPECT_EQ(0, ZBDIEXPR(index, expression));
    EXPECT_STREQ("ME", expression);
}

TEST_F(IdxOpen, AnExpressionOfNoBytesMayStandAnywhere) {
    ASSERT_EQ(0, Create('C' | ZB_IdxCompact, 5));
    PatchFile("a.idx", 506, Hex("00 FF 00 00 00 00"));
    ASSERT_EQ(0, Open());
    char expression[300];
    EXPECT_EQ(0, ZBDIEXPR(index, expression));
    EXPECT_STREQ("", expression);
}

TEST_F(IdxOpen, SqueezesAndFoldsTheExpression) {
    ASSERT_EQ(0, Create('C', 5));
    PatchFile("a.idx", 16, "na m e");
    ASSERT_EQ(0, Open());
    char expression[300];
    EXPECT_EQ(0, ZBDIEXPR(index, expression));
    EXPECT_STREQ("NAME", expression);
}

TEST_F(IdxOpen, RefusalsLeaveTheHandleOrStoreMinusOne) {
    ASSERT_EQ(0, Create('C', 5));
    uint16_t out = 77;
    ZBESCODE(-99);
    EXPECT_EQ(-99, ZBDIOPENX(&out, "a.idx", 0));
    EXPECT_EQ(77, out);
    ZBESCODE(0);
    EXPECT_EQ(ZB_ErrNullPointer, ZBDIOPENX(&out, nullptr, 0));
    EXPECT_EQ(77, out);
    ZBESCODE(0);
    EXPECT_EQ(ZB_ErrNullPointer, ZBDIOPENX(nullptr, "a.idx", 0));
    ZBESCODE(0);
    EXPECT_EQ(ZB_ErrOpen, ZBDIOPENX(&out, "none.idx", 0));
    EXPECT_EQ(65535, out);
}

TEST_F(IdxInfo, TellsOfAStandardFile) {
    ASSERT_EQ(0, Create('C' | ZB_IdxUnique, 5));
    ASSERT_EQ(0, Open());
    ZbIdxInfo info = Info();
    EXPECT_STREQ("a.idx", info.fileName);
    EXPECT_EQ(0xEEE8, info.accessFlags);
    EXPECT_EQ(5, info.keyLength);
    EXPECT_EQ('?', info.keyType);
    EXPECT_EQ(0x0080, info.keyFlags);
    EXPECT_EQ(3, info.decimals);
    EXPECT_EQ(0, info.reportedFlag);
    EXPECT_EQ(4, info.expressionLength);
    EXPECT_STREQ("NAME", info.expression);
    EXPECT_EQ(0, ZBDIKTYPE(index, 'c'));
    EXPECT_EQ('C', Info().keyType);
}

TEST_F(IdxInfo, TellsOfACompactFile) {
    ASSERT_EQ(0, Create('N' | ZB_IdxCompact, 0));
    PatchFile("a.idx", 502, Hex("01 00"));
    ASSERT_EQ(0, Open());
    ZbIdxInfo info = Info();
    EXPECT_EQ(0x0500, info.keyFlags);
    EXPECT_EQ(8, info.decimals);
    EXPECT_EQ(8, info.keyLength);
}

TEST_F(IdxInfo, AnyOfTheHighFlagBitsMakesAFileCompactAndBit5AloneIsReported) {
    ASSERT_EQ(0, Create('C' | ZB_IdxCompact, 5));
    for (const char* flags : {"40", "80"}) {
        PatchFile("a.idx", 14, Hex(flags));
        ASSERT_EQ(0, Open());
        EXPECT_EQ(8, Info().decimals);
        EXPECT_EQ(0, Info().keyFlags);
        ASSERT_EQ(0, ZBDICLOSE(index));
    }
    PatchFile("a.idx", 14, Hex("1E"));
    EXPECT_EQ(ZB_ErrRootPage, TryOpen());  // standard, and FileEnd is 0
}

TEST_F(IdxInfo, ADescendingWordInAStandardFileIsNothing) {
    ASSERT_EQ(0, Create('C', 5));
    PatchFile("a.idx", 502, Hex("01 00"));
    ASSERT_EQ(0, Open());
    EXPECT_EQ(0, Info().keyFlags);
}

TEST_F(IdxInfo, ALongExpressionIsCutWithoutATerminator) {
    ASSERT_EQ(0, Create('C', 5, std::string(120, 'y')));
    ASSERT_EQ(0, Open());
    ZbIdxInfo info = Info();
    EXPECT_EQ(120, info.expressionLength);
    EXPECT_EQ(std::string(100, 'Y'), std::string(info.expression, 100));
}

TEST_F(IdxInfo, TheKeyTypeIsAQuestionMarkUntilItIsTold) {
    for (uint16_t form : {0, int{ZB_IdxCompact}}) {
        ASSERT_EQ(0, Create(static_cast<uint16_t>('D' | form), 0));
        ASSERT_EQ(0, Open());
        EXPECT_EQ('?', Info().keyType);
        ASSERT_EQ(0, ZBDIKTYPE(index, 'd'));
        EXPECT_EQ('D', Info().keyType);
        ASSERT_EQ(0, ZBDICLOSE(index));
        ASSERT_EQ(0, Open());
        EXPECT_EQ('?', Info().keyType);
        ASSERT_EQ(0, ZBDICLOSE(index));
    }
}

TEST_F(IdxInfo, ABadTypeIsRefusedAndKept) {
    ASSERT_EQ(0, Create('C', 5));
    ASSERT_EQ(0, Open());
    EXPECT_EQ(ZB_ErrKeyType, ZBDIKTYPE(index, 'x'));
    ZBESCODE(0);
    EXPECT_EQ('X', Info().keyType);
    EXPECT_EQ(ZB_ErrKeyType, ZBDIKTYPE(index, 0xC3));
    ZBESCODE(0);
    EXPECT_EQ(0xFFC3, Info().keyType);
    for (int type : {'C', 'D', 'L', 'N', 'c', 'd', 'l', 'n'})
        EXPECT_EQ(0, ZBDIKTYPE(index, static_cast<int16_t>(type)));
}

TEST_F(IdxContract, NullPointersAreRefusedBeforeTheHandle) {
    uint32_t record = 0;
    char key[128];
    auto refused = [](int32_t code) {
        EXPECT_EQ(ZB_ErrNullPointer, code);
        ZBESCODE(0);
    };
    refused(ZBDIEXPR(-1, nullptr));
    refused(ZBDIINFO(-1, nullptr));
    for (auto walk : {ZBDIKTOP, ZBDIKBOT, ZBDIKNEXT, ZBDIKPREV, ZBDIKCUR}) {
        refused(walk(-1, nullptr, &record));
        refused(walk(-1, key, nullptr));
    }
    refused(ZBDIKFIND(-1, nullptr, &record, 0));
    refused(ZBDIKFIND(-1, key, nullptr, 0));
    refused(ZBDIKADD(-1, nullptr, 1));
    refused(ZBDIKDEL(-1, nullptr, 1));
    refused(ZBDIKMAKE(-1, -1, nullptr));
    refused(ZBDIKMAKEH(-1, -1, nullptr));
    refused(ZBDIKNUM(nullptr, 1.0));
    refused(ZBDIKDATE(nullptr, "", 1));
    refused(ZBDIKDATE(key, nullptr, 1));
}

TEST_F(IdxContract, HandlesOfOtherThingsAreRefused) {
    ASSERT_EQ(0, Create('C', 5));
    char ndxExpression[] = "NAME";
    ASSERT_EQ(0, ZBDNCREATE("a.ndx", 'C', ndxExpression, 5));
    uint16_t other;
    ASSERT_EQ(0, ZBDNOPENX(&other, "a.ndx", 0));
    uint32_t record = 0;
    char key[300] = {};
    ZbIdxInfo info;
    void* made;
    ZbBlock block;
    for (int h : {-1, 200, 50, int{other}}) {
        auto bad = static_cast<int16_t>(h);
        auto refused = [](int32_t code) {
            EXPECT_EQ(ZB_ErrBadHandle, code);
            ZBESCODE(0);
        };
        for (auto walk : {ZBDIKTOP, ZBDIKBOT, ZBDIKNEXT, ZBDIKPREV, ZBDIKCUR})
            refused(walk(bad, key, &record));
        refused(ZBDIKFIND(bad, key, &record, 0));
        refused(ZBDIKADD(bad, key, 1));
        refused(ZBDIKDEL(bad, key, 1));
        refused(ZBDICLOSE(bad));
        refused(ZBDIHGET(bad));
        refused(ZBDIEXPR(bad, key));
        refused(ZBDIINFO(bad, &info));
        refused(ZBDIKTYPE(bad, 'C'));
        refused(ZBDIKMAKE(-1, bad, &made));
        EXPECT_EQ(nullptr, made);
        refused(ZBDIKMAKEH(-1, bad, &block));
        EXPECT_EQ(0xFFFFFFFF, block);
        char expression[] = "NAME";
        refused(ZBDIINDEX(bad, "b.idx", 'C', expression, 5));
    }
    EXPECT_FALSE(FileExists("b.idx"));
}

TEST_F(IdxContract, APendingFailureRefusesEveryCall) {
    ASSERT_EQ(0, Create('C', 5));
    ASSERT_EQ(0, Open());
    uint32_t record = 5;
    char key[300] = "x";
    ZbIdxInfo info;
    void* made;
    ZbBlock block;
    char expression[] = "NAME";
    ZBESCODE(-99);
    for (auto walk : {ZBDIKTOP, ZBDIKBOT, ZBDIKNEXT, ZBDIKPREV, ZBDIKCUR})
        EXPECT_EQ(-99, walk(index, key, &record));
    EXPECT_EQ(-99, ZBDIKFIND(index, key, &record, 0));
    EXPECT_EQ(-99, ZBDIKADD(index, key, 1));
    EXPECT_EQ(-99, ZBDIKDEL(index, key, 1));
    EXPECT_EQ(-99, ZBDICLOSE(index));
    EXPECT_EQ(-99, ZBDIHGET(index));
    EXPECT_EQ(-99, ZBDIEXPR(index, key));
    EXPECT_EQ(-99, ZBDIINFO(index, &info));
    EXPECT_EQ(-99, ZBDIKTYPE(index, 'C'));
    EXPECT_EQ(-99, ZBDIKMAKE(0, index, &made));
    EXPECT_EQ(-99, ZBDIKMAKEH(0, index, &block));
    EXPECT_EQ(-99, ZBDIKNUM(key, 1));
    EXPECT_EQ(-99, ZBDIKDATE(key, "01/01/00", 1));
    EXPECT_EQ(-99, ZBDIINDEX(0, "b.idx", 'C', expression, 5));
    EXPECT_STREQ("x", key);
    EXPECT_EQ(5u, record);
    ZBESCODE(0);
    EXPECT_EQ(0, ZBDICLOSE(index));
}

TEST_F(IdxContract, AReadOnlyIndexTakesNoChange) {
    ASSERT_EQ(0, Create('C', 5));
    ASSERT_EQ(0, Open(ZB_ReadOnly));
    EXPECT_EQ(0xEEE9, Info().accessFlags);
    EXPECT_EQ(ZB_ErrReadOnly, ZBDIKADD(index, "ANNA ", 1));
    ZBESCODE(0);
    EXPECT_EQ(ZB_ErrReadOnly, ZBDIKDEL(index, "ANNA ", 1));
    ZBESCODE(0);
    char key[8];
    uint32_t record;
    EXPECT_EQ(ZB_KeyEmpty, ZBDIKTOP(index, key, &record));
}

TEST_F(IdxContract, AnotherHandlesChangesAreSeen) {
    ASSERT_EQ(0, Create('C', 100));
    ASSERT_EQ(0, Open(ZB_Shared));
    int16_t first = index;
    ASSERT_EQ(0, Open(ZB_Shared));
    for (uint32_t i = 1; i <= 20; i++)
        ASSERT_EQ(0, ZBDIKADD(first, Bytes(100, static_cast<char>('A' + i)).data(), i));
    EXPECT_EQ(0, ZBDIHGET(index));
    char key[128];
    uint32_t record = 0;
    EXPECT_EQ(0, ZBDIKBOT(index, key, &record));
    EXPECT_EQ(20u, record);
}

TEST_F(IdxContract, AQuickCloseGivesTheFileUp) {
    ASSERT_EQ(0, Create('C', 5));
    ASSERT_EQ(0, Open());
    EXPECT_EQ(0, ZBDQCLOSE());
    EXPECT_EQ(ZB_ErrOpen, ZBDIHGET(index));
}

TEST_F(IdxContract, FailuresAreLoggedUpTheLevels) {
    ASSERT_EQ(0, Create('C', 5));
    ASSERT_EQ(0, Open());
    PatchFile("a.idx", 0, Hex("01 02"));
    StartLog();
    char key[8];
    uint32_t record;
    EXPECT_EQ(ZB_ErrSeek, ZBDIKTOP(index, key, &record));
    std::vector<LogEntry> expected = {{"Ipget", -4}, {"Iktop", -4}, {"Iktop", -4}};
    EXPECT_EQ(expected, Log());
}

}  // namespace
}  // namespace test
