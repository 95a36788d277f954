// NDX indexes through the exported calls alone.
#include <cmath>
#include <cstring>
#include <memory>

#include "support/support.h"

namespace test {
namespace {

class Ndx : public LibraryTest {
  protected:
    int16_t index = -1;

    static std::string Le32(uint32_t value) {
        std::string bytes;
        for (int i = 0; i < 4; i++) bytes += static_cast<char>(value >> 8 * i);
        return bytes;
    }
    static int32_t Create(const char* name, int16_t type, int16_t length, std::string expression = "NAME") {
        return ZBDNCREATE(name, type, expression.data(), length);
    }
    static int32_t Open(const char* name, int16_t* handle, uint16_t mode = 0) {
        uint16_t opened = 77;
        int32_t code = ZBDNOPENX(&opened, name, mode);
        *handle = static_cast<int16_t>(opened);
        return code;
    }
    void Make(int16_t type, int16_t length) {
        ASSERT_EQ(Create("x.ndx", type, length), 0);
        ASSERT_EQ(Open("x.ndx", &index), 0);
    }
    int32_t Add(const std::string& key, uint32_t record) {
        return ZBDNKADD(index, Padded(key).c_str(), record);
    }
    int32_t Delete(const std::string& key, uint32_t record) {
        return ZBDNKDEL(index, Padded(key).c_str(), record);
    }
    int32_t AddNumber(double value, uint32_t record) { return ZBDNKADD(index, &value, record); }

    // A caller's buffer: key length + 1 bytes at least.
    static std::string Padded(std::string key) {
        key.resize(104);
        return key;
    }

    struct Found {
        int32_t code;
        std::string key;
        uint32_t record;
        bool operator==(const Found&) const = default;
        friend void PrintTo(const Found& found, std::ostream* out) {
            *out << found.code << " \"" << found.key << "\" " << found.record;
        }
    };
    using Walk = int32_t(ZB_CALL*)(int16_t, void*, uint32_t*);
    Found Go(Walk walk, const std::string& before = "?", uint32_t record = 99) {
        std::string key = Padded(before);
        int32_t code = walk(index, key.data(), &record);
        return {code, key.c_str(), record};
    }
    Found Find(const std::string& wanted, int16_t mode, uint32_t record = 0) {
        std::string key = Padded(wanted);
        int32_t code = ZBDNKFIND(index, key.data(), &record, mode);
        return {code, key.c_str(), record};
    }
    std::pair<int32_t, double> FindNumber(double wanted, int16_t mode = 0) {
        char key[12] = {};
        memcpy(key, &wanted, 8);
        uint32_t record = 0;
        int32_t code = ZBDNKFIND(index, key, &record, mode);
        memcpy(&wanted, key, 8);
        return {code, wanted};
    }
    // The bytes of the file as they are now.
    static Bytes File() { return ReadFile("x.ndx"); }
};

// Create

TEST_F(Ndx, NewNumericFileHas1024BytesAnd31KeysAPage) {
    ASSERT_EQ(Create("x.ndx", 'N', 8, "AMOUNT"), 0);
    Bytes expected = Hex("01000000 02000000 00000000 0800 1F00 0100 1000 000000 00") + "AMOUNT";
    expected.resize(1024);
    EXPECT_EQ(File(), expected);
}

TEST_F(Ndx, NewCharacterFileHasThePaddedEntrySize) {
    std::string expression = "last + first";
    ASSERT_EQ(ZBDNCREATE("x.ndx", 'C', expression.data(), 10), 0);
    EXPECT_STREQ(expression.c_str(), "last+first");  // blanks go from the caller's text, case stays
    Bytes expected = Hex("01000000 02000000 00000000 0A00 1900 0000 1400 000000 00") + "LAST+FIRST";
    expected.resize(1024);
    EXPECT_EQ(File(), expected);
}

TEST_F(Ndx, LongestKeyHasFourKeysAPage) {
    ASSERT_EQ(Create("x.ndx", 'C', 100), 0);
    EXPECT_EQ(ReadFile("x.ndx", 12, 8), Hex("6400 0400 0000 6C00"));
}

TEST_F(Ndx, LowerCaseTypeForcesItsLength) {
    EXPECT_EQ(Create("x.ndx", 'n', 0), 0);
    EXPECT_EQ(ReadFile("x.ndx", 12, 2), Hex("0800"));
    EXPECT_EQ(Create("x.ndx", 'd', 500), 0);
    EXPECT_EQ(ReadFile("x.ndx", 12, 6), Hex("0800 1F00 0100"));
}

TEST_F(Ndx, TypeC3MakesAUniqueCharacterIndex) {
    ASSERT_EQ(Create("x.ndx", 0xC3, 5), 0);
    ASSERT_EQ(Open("x.ndx", &index), 0);
    ZbNdxInfo info{};
    ASSERT_EQ(ZBDNINFO(index, &info), 0);
    EXPECT_EQ(info.keyType, 'C');
    EXPECT_EQ(info.keyFlags, 0x0080);
}

TEST_F(Ndx, KeyLengthAndTypeAreChecked) {
    EXPECT_EQ(Create("x.ndx", 'C', 0), -23);
    ZBESCODE(0);
    EXPECT_EQ(Create("x.ndx", 'C', 101), -23);
    ZBESCODE(0);
    EXPECT_EQ(Create("x.ndx", 'L', 1), -22);
    ZBESCODE(0);
    EXPECT_FALSE(FileExists("x.ndx"));
}

TEST_F(Ndx, ExpressionOf220CharactersIsAcceptedAnd221Refused) {
    EXPECT_EQ(Create("x.ndx", 'C', 5, std::string(220, 'A')), 0);
    EXPECT_EQ(Create("x.ndx", 'C', 5, std::string(220, 'A') + std::string(30, ' ')), 0);
    EXPECT_EQ(Open("x.ndx", &index), 0);
    char text[300];
    EXPECT_EQ(ZBDNEXPR(index, text), 0);
    EXPECT_EQ(text, std::string(220, 'A'));
    EXPECT_EQ(Create("y.ndx", 'C', 5, std::string(221, 'A')), -7);
}

TEST_F(Ndx, CreateAnswersNullsEmptyNamesAndPendingCodes) {
    char expression[] = "NAME";
    EXPECT_EQ(ZBDNCREATE(nullptr, 'C', expression, 5), -21);
    ZBESCODE(0);
    EXPECT_EQ(ZBDNCREATE("x.ndx", 'C', nullptr, 5), -21);
    EXPECT_EQ(ZBDNCREATE("x.ndx", 'C', expression, 5), -21);
    ZBESCODE(0);
    EXPECT_EQ(ZBDNCREATE("", 'C', expression, 5), -14);
    ZBESCODE(0);
    EXPECT_EQ(ZBDNCREATE("no/such/x.ndx", 'C', expression, 5), -46);
}

// Open

TEST_F(Ndx, OpenTestsTheHeaderInOrder) {
    struct Case {
        size_t offset;
        const char* bytes;
        int code;
    };
    const Case cases[] = {
        {12, "0000", -23},    {12, "6500", -23}, {18, "0F00", -24}, {18, "1400", -24}, {0, "00000000", -25},
        {0, "03000000", -25}, {14, "2000", -26}, {14, "0100", -26}, {16, "0200", -22},
    };
    for (const Case& c : cases) {
        ASSERT_EQ(Create("x.ndx", 'N', 8), 0);
        PatchFile("x.ndx", c.offset, Hex(c.bytes));
        EXPECT_EQ(Open("x.ndx", &index), c.code) << c.offset << ' ' << c.bytes;
        EXPECT_EQ(index, -1);
        ZBESCODE(0);
    }
    ASSERT_EQ(Create("x.ndx", 'N', 8), 0);
    PatchFile("x.ndx", 24, std::string(221, 'A'));
    EXPECT_EQ(Open("x.ndx", &index), -7);
}

TEST_F(Ndx, OpenAcceptsEntriesPaddedByOthers) {
    for (const char* size : {"0D00", "0E00"}) {  // a key of 5 bytes, not padded at all and to 2 bytes
        ASSERT_EQ(Create("x.ndx", 'C', 5), 0);
        PatchFile("x.ndx", 18, Hex(size));
        EXPECT_EQ(Open("x.ndx", &index), 0);
        EXPECT_EQ(Add("B", 2), 0);
        EXPECT_EQ(Add("A", 1), 0);
        EXPECT_EQ(Go(ZBDNKTOP), (Found{0, "A    ", 1}));
        EXPECT_EQ(ZBDNCLOSE(index), 0);
    }
}

// A numeric key of 4 bytes is a short float, and goes where that sorts.
TEST_F(Ndx, PairsOfNumbersOfAnotherLengthAreComparedInThatLength) {
    ASSERT_EQ(Create("x.ndx", 'N', 8), 0);
    PatchFile("x.ndx", 12, Hex("0400 2A00 0100 0C00"));
    ASSERT_EQ(Open("x.ndx", &index), 0);
    const float numbers[] = {1.0F, -1.0F, -2.0F, 0.5F};
    for (uint32_t i = 0; i < 4; i++) EXPECT_EQ(ZBDNKADD(index, &numbers[i], i + 1), 0);
    EXPECT_EQ(File().substr(512, 52), Hex("04000000"
                                          "00000000 03000000 000000C0"
                                          "00000000 02000000 000080BF"
                                          "00000000 04000000 0000003F"
                                          "00000000 01000000 0000803F"));
    float key = -1.0F;
    uint32_t record = 2;
    EXPECT_EQ(ZBDNKFIND(index, &key, &record, 2), 0);
    EXPECT_EQ(ZBDNKDEL(index, &numbers[2], 3), 0);
    EXPECT_EQ(ZBDNKTOP(index, &key, &record), 0);
    EXPECT_EQ(key, -1.0F);
    EXPECT_EQ(record, 2u);
}

TEST_F(Ndx, OpenTestsTheLowByteOfItsMode) {
    ASSERT_EQ(Create("x.ndx", 'C', 5), 0);
    for (uint16_t mode = 0; mode < 256; mode++) {
        bool known = mode == 0 || mode == 1 || mode == 2 || mode == 7;
        ASSERT_EQ(Open("x.ndx", &index, mode), known ? 0 : -18) << mode;
        ZBESCODE(0);
        if (known) {
            ASSERT_EQ(ZBDNCLOSE(index), 0);
        }
    }
}

TEST_F(Ndx, LongerFileOpensWithAWarning) {
    ASSERT_EQ(Create("x.ndx", 'C', 5), 0);
    WriteFile("x.ndx", File() + "x");
    EXPECT_EQ(Open("x.ndx", &index), 7);
    EXPECT_EQ(Add("A", 1), 0);
}

TEST_F(Ndx, ShortHeaderCantBeRead) {
    ASSERT_EQ(Create("x.ndx", 'C', 5), 0);
    Bytes whole = File();
    for (size_t length : {0, 1, 100, 247}) {
        WriteFile("x.ndx", whole.substr(0, length));
        EXPECT_EQ(Open("x.ndx", &index), -2);
        EXPECT_EQ(index, -1);
        ZBESCODE(0);
    }
}

TEST_F(Ndx, OpenAnswersNullsAndMissingFiles) {
    uint16_t handle = 77;
    EXPECT_EQ(ZBDNOPENX(nullptr, "x.ndx", 0), -21);
    ZBESCODE(0);
    EXPECT_EQ(ZBDNOPENX(&handle, nullptr, 0), -21);
    EXPECT_EQ(ZBDNOPENX(&handle, "x.ndx", 0), -21);
    EXPECT_EQ(handle, 77);
    ZBESCODE(0);
    EXPECT_EQ(ZBDNOPENX(&handle, "x.ndx", 0), -46);
    EXPECT_EQ(handle, 0xFFFF);
    ZBESCODE(0);
    EXPECT_EQ(ZBDNOPENX(&handle, std::string(300, 'x').c_str(), 0), -46);
}

TEST_F(Ndx, InfoTellsTheHeader) {
    Make('C', 12);
    ZbNdxInfo info;
    memset(&info, 0xFF, sizeof info);
    ASSERT_EQ(ZBDNINFO(index, &info), 0);
    EXPECT_STREQ(info.fileName, "x.ndx");
    EXPECT_EQ(info.accessFlags, 0xFFF8);
    EXPECT_EQ(info.keyLength, 12);
    EXPECT_EQ(info.keyType, 'C');
    EXPECT_EQ(info.keyFlags, 0);
    EXPECT_EQ(info.reportedFlag, 0);
    EXPECT_EQ(info.expressionLength, 4);
    EXPECT_STREQ(info.expression, "NAME");
    ASSERT_EQ(ZBDNCLOSE(index), 0);
    ASSERT_EQ(Open("x.ndx", &index, ZB_ReadOnly | ZB_OpenShared), 0);
    ASSERT_EQ(ZBDNINFO(index, &info), 0);
    EXPECT_EQ(info.accessFlags, 0xFFFB);
}

TEST_F(Ndx, InfoCutsALongExpression) {
    std::string expression(150, 'B');
    ASSERT_EQ(Create("x.ndx", 'C', 5, expression), 0);
    ASSERT_EQ(Open("x.ndx", &index), 0);
    ZbNdxInfo info;
    ASSERT_EQ(ZBDNINFO(index, &info), 0);
    EXPECT_EQ(info.expressionLength, 150);
    EXPECT_EQ(std::string(info.expression, 100), expression.substr(0, 100));
}

// Find and walk

TEST_F(Ndx, FindBetweenGivesTheEntryBefore) {
    Make('N', 8);
    for (int i = 1; i <= 3; i++) ASSERT_EQ(AddNumber(10.0 * i, static_cast<uint32_t>(i)), 0);
    EXPECT_EQ(FindNumber(15), std::pair(4, 10.0));
    EXPECT_EQ(FindNumber(35), std::pair(4, 30.0));
    EXPECT_EQ(FindNumber(20), std::pair(0, 20.0));
    // Below all keys: the first one, and no warning.
    EXPECT_EQ(FindNumber(5), std::pair(0, 10.0));
}

TEST_F(Ndx, FindByPrefixAndByPattern) {
    Make('C', 10);
    ASSERT_EQ(Add("SMITH", 1), 0);
    ASSERT_EQ(Add("SMYTHE", 2), 0);
    EXPECT_EQ(Find("SM", 0), (Found{0, "SMITH     ", 1}));
    EXPECT_EQ(Find("SMY", 1), (Found{0, "SMYTHE    ", 2}));
    EXPECT_EQ(Find("SM?T", 4), (Found{0, "SMITH     ", 1}));
    EXPECT_EQ(Find("SM?THE", 4), (Found{0, "SMYTHE    ", 2}));
    // Without the bit for patterns a '?' is a byte like any other: it sorts first.
    EXPECT_EQ(Find("SN?", 0), (Found{4, "SMYTHE    ", 2}));
}

TEST_F(Ndx, ModeTwoLooksForThePair) {
    Make('C', 5);
    for (uint32_t record : {2u, 4u, 6u}) ASSERT_EQ(Add("A", record), 0);
    EXPECT_EQ(Find("A    ", 2, 4), (Found{0, "A    ", 4}));
    EXPECT_EQ(Find("A    ", 2, 5), (Found{4, "A    ", 4}));
    EXPECT_EQ(Find("A    ", 2, 7), (Found{4, "A    ", 6}));
    EXPECT_EQ(Find("A    ", 2, 1), (Found{0, "A    ", 2}));  // before all of them
    EXPECT_EQ(Find("A", 0), (Found{0, "A    ", 2}));         // the first of the equal ones
}

TEST_F(Ndx, EmptyIndexSaysSoAndTakesTheCallersBuffersAsPosition) {
    Make('C', 5);
    EXPECT_EQ(Go(ZBDNKTOP, "ABCDE", 7), (Found{2, "ABCDE", 7}));
    EXPECT_EQ(Go(ZBDNKBOT, "ABCDE", 7), (Found{2, "ABCDE", 7}));
    EXPECT_EQ(Find("ABCDE", 0, 7), (Found{2, "ABCDE", 7}));
    ASSERT_EQ(Add("ABCDE", 7), 0);
    EXPECT_EQ(Go(ZBDNKCUR), (Found{0, "ABCDE", 7}));
}

TEST_F(Ndx, NextWithoutAPositionIsNearAndPreviousGoesToTheLast) {
    Make('C', 5);
    ASSERT_EQ(Add("A", 1), 0);
    ASSERT_EQ(Add("B", 2), 0);
    EXPECT_EQ(Go(ZBDNKNEXT, "X", 9), (Found{4, "X", 9}));
    EXPECT_EQ(Go(ZBDNKPREV), (Found{0, "B    ", 2}));
}

TEST_F(Ndx, CurrentWithoutAPositionTakesTheCallersBuffers) {
    Make('C', 5);
    ASSERT_EQ(Add("A", 1), 0);
    ASSERT_EQ(Add("B", 2), 0);
    EXPECT_EQ(Go(ZBDNKCUR, "B    ", 2), (Found{4, "B    ", 2}));
    EXPECT_EQ(Go(ZBDNKCUR), (Found{0, "B    ", 2}));
}

TEST_F(Ndx, WalksEndOnTheEndKeys) {
    Make('C', 5);
    for (uint32_t i = 0; i < 3; i++) ASSERT_EQ(Add(std::string(1, static_cast<char>('A' + i)), i + 1), 0);
    EXPECT_EQ(Go(ZBDNKBOT), (Found{0, "C    ", 3}));
    EXPECT_EQ(Go(ZBDNKNEXT), (Found{3, "C    ", 3}));
    EXPECT_EQ(Go(ZBDNKPREV), (Found{0, "B    ", 2}));
    EXPECT_EQ(Go(ZBDNKPREV), (Found{0, "A    ", 1}));
    EXPECT_EQ(Go(ZBDNKPREV), (Found{3, "A    ", 1}));
    EXPECT_EQ(Go(ZBDNKNEXT), (Found{0, "B    ", 2}));
}

TEST_F(Ndx, DeletedPositionMovesToTheEntryBeforeAndWalksOnWithAWarning) {
    Make('C', 5);
    for (uint32_t i = 0; i < 4; i++) ASSERT_EQ(Add(std::string(1, static_cast<char>('A' + i)), i + 1), 0);
    ASSERT_EQ(Find("C", 0), (Found{0, "C    ", 3}));
    ASSERT_EQ(Delete("C", 3), 0);
    EXPECT_EQ(Go(ZBDNKCUR), (Found{4, "B    ", 2}));
    ASSERT_EQ(Find("D", 0).code, 0);
    ASSERT_EQ(Delete("D", 4), 0);
    ASSERT_EQ(Add("E", 5), 0);
    EXPECT_EQ(Go(ZBDNKNEXT), (Found{4, "E    ", 5}));  // from B, with the warning still standing
}

TEST_F(Ndx, PositionInAnEmptiedIndex) {
    Make('C', 5);
    ASSERT_EQ(Add("A", 1), 0);
    ASSERT_EQ(Go(ZBDNKTOP).code, 0);
    ASSERT_EQ(Delete("A", 1), 0);
    EXPECT_EQ(Go(ZBDNKNEXT, "X", 9), (Found{3, "X", 9}));
    ASSERT_EQ(Add("A", 1), 0);
    ASSERT_EQ(Go(ZBDNKTOP).code, 0);
    ASSERT_EQ(Delete("A", 1), 0);
    EXPECT_EQ(Go(ZBDNKCUR, "X", 9), (Found{2, "X", 9}));
}

TEST_F(Ndx, CollatingOrderSortsByTheTable) {
    ZBDTERM();
    WriteProfile("[sort]\r\nasciisort=0\r\n");
    ASSERT_EQ(ZBDINIT(100, 1), 0);
    Make('C', 4);
    const char* inOrder[] = {" x", "9",    "A",    "\xC4", "\xC5", "B", "Z",
                             "a",  "\xE1", "\xE0", "b",    "(",    "#", "\xA8"};
    uint32_t record = 0;
    for (const char* key :
         {"#", "b", "\xC5", "9", "Z", "\xE0", " x", "A", "\xA8", "a", "(", "\xC4", "B", "\xE1"})
        ASSERT_EQ(Add(key, ++record), 0);
    Found found = Go(ZBDNKTOP);
    for (const char* key : inOrder) {
        std::string padded = key;
        padded.resize(4, ' ');
        EXPECT_EQ(found.key, padded);
        found = Go(ZBDNKNEXT);
    }
    EXPECT_EQ(found.code, 3);
    // Bytes outside the table equal each other.
    EXPECT_EQ(_ZBDNKCMP("\x01\x41", "\x02\x41", 0, 2), 0);
    EXPECT_LT(_ZBDNKCMP("A", "\x01", 0, 1), 0);
}

// Add and delete

TEST_F(Ndx, AddedEntriesStandInOrder) {
    Make('C', 5);
    ASSERT_EQ(Add("BOB", 2), 0);
    ASSERT_EQ(Add("ANNA", 1), 0);
    Bytes page =
        Hex("02000000") + Le32(0) + Le32(1) + "ANNA " + Fill(3) + Le32(0) + Le32(2) + "BOB  " + Fill(3);
    EXPECT_EQ(ReadFile("x.ndx", 512, page.size()), page);
    EXPECT_EQ(ReadFile("x.ndx", 0, 8), Le32(1) + Le32(2));
}

TEST_F(Ndx, ThirtySecondKeySplitsTheRoot) {
    Make('N', 8);
    for (uint32_t i = 1; i <= 32; i++) ASSERT_EQ(AddNumber(i, i), 0);
    Bytes file = File();
    ASSERT_EQ(file.size(), 2048u);
    EXPECT_EQ(file.substr(0, 8), Le32(3) + Le32(4));
    EXPECT_EQ(file[512], 16);   // the old page, with the upper half
    EXPECT_EQ(file[1024], 16);  // the new page, with the lower half
    EXPECT_EQ(file[1536], 1);   // the new root
    double sixteen = 16, seventeen = 17;
    Bytes lowest(reinterpret_cast<char*>(&seventeen), 8);
    Bytes separator(reinterpret_cast<char*>(&sixteen), 8);
    EXPECT_EQ(file.substr(512 + 4, 16), Le32(0) + Le32(17) + lowest);
    EXPECT_EQ(file.substr(1024 + 4 + 15 * 16, 16), Le32(0) + Le32(16) + separator);
    EXPECT_EQ(file.substr(1024 + 4 + 16 * 16, 4), Le32(0));
    EXPECT_EQ(file.substr(1536, 24), Le32(1) + Le32(2) + Le32(0) + separator + Le32(1));
}

TEST_F(Ndx, SecondEqualPairIsASecondEntry) {
    Make('C', 5);
    ASSERT_EQ(Add("A", 1), 0);
    ASSERT_EQ(Add("A", 1), 0);
    EXPECT_EQ(ReadFile("x.ndx", 512, 1), "\x02");
}

TEST_F(Ndx, UniqueIndexTakesASecondKeyInFront) {
    Make('C' | 0x80, 5);
    ASSERT_EQ(Add("A", 1), 0);
    EXPECT_EQ(Add("A", 2), 0);
    EXPECT_EQ(Go(ZBDNKTOP), (Found{0, "A    ", 2}));
    // A delete there doesn't look at the record number.
    EXPECT_EQ(Delete("A", 77), 0);
    EXPECT_EQ(Go(ZBDNKTOP), (Found{0, "A    ", 1}));
}

TEST_F(Ndx, DeleteOfAMissingKeyBetweenOthersChangesNothing) {
    Make('C', 5);
    ASSERT_EQ(Add("A", 1), 0);
    ASSERT_EQ(Add("C", 3), 0);
    Bytes before = File();
    EXPECT_EQ(Delete("B", 2), 4);
    EXPECT_EQ(Delete("A", 2), 4);
    EXPECT_EQ(File(), before);
}

TEST_F(Ndx, DeleteBelowAllKeysRemovesTheFirst) {
    Make('C', 5);
    ASSERT_EQ(Add("B", 1), 0);
    ASSERT_EQ(Add("C", 2), 0);
    EXPECT_EQ(Delete("A", 9), 3);
    EXPECT_EQ(ZBECODE(), 3);
    EXPECT_EQ(Go(ZBDNKTOP), (Found{0, "C    ", 2}));
}

TEST_F(Ndx, DeleteInAnEmptyIndexSaysSo) {
    Make('C', 5);
    EXPECT_EQ(Delete("A", 1), 2);
}

TEST_F(Ndx, DeleteOfALeafsLastKeyChangesItsSeparator) {
    Make('N', 8);
    for (uint32_t i = 1; i <= 40; i++) ASSERT_EQ(AddNumber(i, i), 0);
    double last = 16;
    ASSERT_EQ(ZBDNKDEL(index, &last, 16), 0);
    double separator;
    memcpy(&separator, ReadFile("x.ndx", 1536 + 12, 8).data(), 8);
    EXPECT_EQ(separator, 15);
}

TEST_F(Ndx, DeletingDownToOneLeafMakesItTheRootAndTheCloseCutsTheFile) {
    Make('N', 8);
    for (uint32_t i = 1; i <= 32; i++) ASSERT_EQ(AddNumber(i, i), 0);
    double value = 1;
    for (; value <= 2; value++) ASSERT_EQ(ZBDNKDEL(index, &value, static_cast<uint32_t>(value)), 0);
    // 14 and 16 keys fit in one page of 31: the right page went into the left.
    EXPECT_EQ(ReadFile("x.ndx", 0, 4), Le32(2));
    EXPECT_EQ(ReadFile("x.ndx", 1024, 1), "\x1E");
    // Both the old root and the right page are free, the root freed last.
    EXPECT_EQ(ReadFile("x.ndx", 512, 1), "\xFF");
    EXPECT_EQ(ReadFile("x.ndx", 516, 4), Le32(0));
    EXPECT_EQ(ReadFile("x.ndx", 1536, 1), "\xFF");
    EXPECT_EQ(ReadFile("x.ndx", 1540, 4), Le32(1));
    ASSERT_EQ(ZBDNCLOSE(index), 0);
    EXPECT_EQ(FileSize("x.ndx"), 1024u);
    EXPECT_EQ(ReadFile("x.ndx", 0, 8), Le32(1) + Le32(2));
    ASSERT_EQ(Open("x.ndx", &index), 0);
    EXPECT_EQ(FindNumber(3), std::pair(0, 3.0));
    EXPECT_EQ(FindNumber(32), std::pair(0, 32.0));
}

TEST_F(Ndx, AfterDeletingAllKeysTheCloseLeavesTheHeaderAndTheEmptyRoot) {
    Make('N', 8);
    for (uint32_t i = 1; i <= 100; i++) ASSERT_EQ(AddNumber(i, i), 0);
    ASSERT_GT(FileSize("x.ndx"), 2048u);
    for (double value = 1; value <= 100; value++)
        ASSERT_EQ(ZBDNKDEL(index, &value, static_cast<uint32_t>(value)), 0);
    EXPECT_EQ(Go(ZBDNKTOP).code, 2);
    // The root had to move, and the search for it met an empty index.
    EXPECT_EQ(ZBDNCLOSE(index), 2);
    EXPECT_EQ(FileSize("x.ndx"), 1024u);
    EXPECT_EQ(ReadFile("x.ndx", 0, 8), Le32(1) + Le32(2));
    EXPECT_EQ(ReadFile("x.ndx", 512, 1), Bytes(1, '\0'));
    ASSERT_EQ(Open("x.ndx", &index), 0);
    EXPECT_EQ(AddNumber(7, 7), 0);
    EXPECT_EQ(FindNumber(7), std::pair(0, 7.0));
}

TEST_F(Ndx, AShortTextIsReadToItsEndOnly) {
    Make('C', 60);
    std::unique_ptr<char[]> text(new char[2]{'A', 0});
    EXPECT_EQ(ZBDNKADD(index, text.get(), 1), 0);
    EXPECT_EQ(ReadFile("x.ndx", 512 + 12, 60), "A" + Bytes(59, ' '));
    EXPECT_EQ(ZBDNKDEL(index, text.get(), 1), 0);
    EXPECT_EQ(ReadFile("x.ndx", 512, 1), Bytes(1, '\0'));
}

TEST_F(Ndx, FreedPageIsUsedAgainBeforeTheFileGrows) {
    Make('N', 8);
    for (uint32_t i = 1; i <= 32; i++) ASSERT_EQ(AddNumber(i, i), 0);
    for (double value = 1; value <= 2; value++)
        ASSERT_EQ(ZBDNKDEL(index, &value, static_cast<uint32_t>(value)), 0);
    for (uint32_t i = 33; i <= 40; i++) ASSERT_EQ(AddNumber(i, i), 0);
    EXPECT_EQ(FileSize("x.ndx"), 2048u);
    EXPECT_EQ(ReadFile("x.ndx", 4, 4), Le32(4));
}

// A page that one handle freed is cut off by the close of another, and is a page of
// the tree again when the file has grown.
TEST_F(Ndx, AFreedPageThatIsInUseAgainIsLeftAlone) {
    ASSERT_EQ(Create("x.ndx", 'C', 100), 0);
    int16_t first, second;
    ASSERT_EQ(Open("x.ndx", &first, ZB_Shared), 0);
    ASSERT_EQ(Open("x.ndx", &second, ZB_Shared), 0);
    auto Name = [](uint32_t number) { return std::to_string(100 + number); };
    auto AddAll = [&](int16_t handle, uint32_t from, uint32_t to) {
        index = handle;
        for (uint32_t i = from; i <= to; i++) ASSERT_EQ(Add(Name(i), i), 0);
    };
    auto DeleteAll = [&](int16_t handle, std::initializer_list<uint32_t> numbers) {
        index = handle;
        for (uint32_t i : numbers) ASSERT_EQ(Delete(Name(i), i), 0);
    };
    AddAll(first, 1, 9);
    DeleteAll(first, {1, 2, 3});  // frees page 4
    DeleteAll(second, {4, 9, 5});
    ASSERT_EQ(ZBDNCLOSE(second), 0);
    ASSERT_EQ(FileSize("x.ndx"), 1024u);

    // As long as the page lies behind the file's end it can't be had.
    AddAll(first, 10, 10);
    EXPECT_EQ(Add(Name(11), 11), -4);
    ZBESCODE(0);
    EXPECT_EQ(ZBDNCLOSE(first), -6);
    ZBESCODE(0);

    ASSERT_EQ(Open("x.ndx", &second, ZB_Shared), 0);
    AddAll(second, 11, 14);
    ASSERT_EQ(FileSize("x.ndx"), 2560u);
    AddAll(first, 15, 16);

    AddAll(first, 17, 18);
    EXPECT_EQ(FileSize("x.ndx"), 3072u);
    EXPECT_EQ(ZBDNCLOSE(first), 0);
    EXPECT_EQ(FileSize("x.ndx"), 3072u);
    index = second;
    EXPECT_EQ(Go(ZBDNKTOP).record, 6u);
    for (uint32_t i : {7u, 8u, 10u, 11u, 12u, 13u, 14u, 15u, 16u, 17u, 18u})
        EXPECT_EQ(Go(ZBDNKNEXT).record, i);
}

// The same where the close comes to it.
TEST_F(Ndx, ACloseFillsNoPageThatIsInUseAgain) {
    Make('N', 8);
    // Page 2 with 1 to 16 takes in page 4 with 17 to 32.
    for (uint32_t i = 1; i <= 63; i++) ASSERT_EQ(AddNumber(i, i), 0);
    for (double value = 1; value <= 2; value++)
        ASSERT_EQ(ZBDNKDEL(index, &value, static_cast<uint32_t>(value)), 0);
    ASSERT_EQ(ReadFile("x.ndx", 4 * 512, 1), Bytes(1, '\xFF'));
    PatchFile("x.ndx", 4 * 512, Hex("01"));
    Bytes file = File();
    EXPECT_EQ(ZBDNCLOSE(index), 0);
    EXPECT_TRUE(File() == file);
}

TEST_F(Ndx, ReadOnlyIndexIsNotChanged) {
    Make('C', 5);
    ASSERT_EQ(Add("A", 1), 0);
    ASSERT_EQ(ZBDNCLOSE(index), 0);
    ASSERT_EQ(Open("x.ndx", &index, ZB_ReadOnly), 0);
    EXPECT_EQ(Add("B", 2), -36);
    ZBESCODE(0);
    EXPECT_EQ(Delete("A", 1), -36);
    ZBESCODE(0);
    EXPECT_EQ(Go(ZBDNKTOP), (Found{0, "A    ", 1}));
    EXPECT_EQ(ZBDNCLOSE(index), 0);
}

TEST_F(Ndx, EveryCallAnswersNullsForeignHandlesAndPendingCodes) {
    Make('C', 5);
    char key[16] = "A";
    uint32_t record = 1;
    void* made = key;
    ZbBlock block = 1;
    auto expect = [](int32_t code, int expected) {
        EXPECT_EQ(code, expected);
        ZBESCODE(0);
    };
    for (Walk walk : {ZBDNKTOP, ZBDNKBOT, ZBDNKNEXT, ZBDNKPREV, ZBDNKCUR}) {
        expect(walk(index, nullptr, &record), -21);
        expect(walk(index, key, nullptr), -21);
        expect(walk(-1, key, &record), -13);
        expect(walk(95, key, &record), -13);
        expect(walk(50, key, &record), -13);
        ZBESCODE(-5);
        expect(walk(index, key, &record), -5);
    }
    expect(ZBDNKFIND(index, nullptr, &record, 0), -21);
    expect(ZBDNKFIND(index, key, nullptr, 0), -21);
    expect(ZBDNKFIND(7, key, &record, 0), -13);
    expect(ZBDNKADD(index, nullptr, 1), -21);
    expect(ZBDNKADD(9, key, 1), -13);
    expect(ZBDNKDEL(index, nullptr, 1), -21);
    expect(ZBDNKDEL(9, key, 1), -13);
    expect(ZBDNKMAKE(0, index, nullptr), -21);
    expect(ZBDNKMAKE(0, 9, &made), -13);
    EXPECT_EQ(made, nullptr);
    expect(ZBDNKMAKEH(0, index, nullptr), -21);
    expect(ZBDNKMAKEH(0, 9, &block), -13);
    EXPECT_EQ(block, 0xFFFFFFFF);
    expect(ZBDNKNUM(nullptr, 1), -21);
    expect(ZBDNKDATE(nullptr, "19960229", 4), -21);
    expect(ZBDNKDATE(key, nullptr, 4), -21);
    expect(ZBDNINFO(index, nullptr), -21);
    expect(ZBDNEXPR(9, nullptr), -21);
    expect(ZBDNEXPR(9, key), -13);
    expect(ZBDNHGET(9), -13);
    expect(ZBDNHGET(index), 0);
    expect(ZBDNCLOSE(9), -13);
    ZBESCODE(-5);
    expect(ZBDNKNUM(key, 1), -5);
    ZBESCODE(-5);
    expect(ZBDNKDATE(key, "19960229", 4), -5);
}

// Keys

TEST_F(Ndx, NumberAndDateKeysAreDoubles) {
    char key[8];
    ASSERT_EQ(ZBDNKNUM(key, -12.5), 0);
    EXPECT_EQ(Bytes(key, 8), Hex("00000000000029C0"));
    double count;
    ASSERT_EQ(ZBDNKDATE(key, "20000101", 4), 0);
    memcpy(&count, key, 8);
    EXPECT_EQ(count, 2451545);
    ASSERT_EQ(ZBDNKDATE(key, "02/29/1996", 2), 0);
    memcpy(&count, key, 8);
    EXPECT_EQ(count, 2450143);  // one less than the true Julian day of that year's rule
    ASSERT_EQ(ZBDNKDATE(key, "        ", 4), 0);
    EXPECT_EQ(Bytes(key, 8), Hex("7DC39425AD49B254"));
    EXPECT_EQ(ZBDNKDATE(key, "19961301", 4), -15);
}

TEST_F(Ndx, NumberKeyClearsAWarning) {
    Make('C', 5);
    ASSERT_EQ(Go(ZBDNKTOP).code, 2);
    char key[8];
    EXPECT_EQ(ZBDNKNUM(key, 1), 0);
    EXPECT_EQ(ZBECODE(), 0);
}

TEST_F(Ndx, CompareKnowsItsTypes) {
    auto number = [](double value) { return Bytes(reinterpret_cast<char*>(&value), 8); };
    auto compare = [](const Bytes& a, const Bytes& b, int16_t type) {
        return _ZBDNKCMP(a.data(), b.data(), type, static_cast<int16_t>(a.size()));
    };
    EXPECT_EQ(compare("abc", "abd", 0), -1);
    EXPECT_EQ(compare("\xFF", "a", 0), 1);
    EXPECT_EQ(_ZBDNKCMP("a", "b", 0, 0), 0);
    EXPECT_GT(compare(number(2), number(1), 1), 0);
    EXPECT_EQ(compare(number(1), number(-1), 1), 1);
    EXPECT_EQ(compare(number(-2), number(-1), 1), -1);
    EXPECT_EQ(compare(number(-1), number(-1), 2), 0);
    EXPECT_NE(compare(number(0.0), number(-0.0), 1), 0);
    EXPECT_EQ(compare(Hex("0102"), Hex("0103"), 3), -1);
    EXPECT_EQ(compare(Hex("0102"), Hex("0902"), 5), -8);
    EXPECT_EQ(compare(Hex("FFFF"), Hex("0100"), 4), -1);
    EXPECT_EQ(compare(Hex("FEFF"), Hex("FFFF"), 6), -1);
    EXPECT_EQ(compare("a?c", "axc", 8), 0);
    EXPECT_EQ(compare("axc", "a?c", 8), 'x' - '?');
    EXPECT_EQ(compare("abc", "xyz", 7), 0);
    EXPECT_EQ(compare("abc", "xyz", 99), 0);
}

class NdxData : public Ndx {
  protected:
    int16_t data = -1;

    void MakeTable(std::vector<ZbFieldSpec> specs) {
        ASSERT_EQ(ZBDDCREATE("t.dbf", static_cast<int16_t>(specs.size()), specs.data(), 2), 0);
        uint16_t opened;
        ASSERT_EQ(ZBDDOPENX(&opened, "t.dbf", 2), 0);
        data = static_cast<int16_t>(opened);
    }
    uint32_t Append() {
        uint32_t record = 0;
        EXPECT_EQ(ZBDDRPUT(data, &record, 0), 0);
        return record;
    }
    int32_t Build(const char* type, const std::string& expression, int16_t length = 8) {
        std::string text = expression;
        return ZBDNINDEX(data, "x.ndx", *type, text.data(), length);
    }
};

TEST_F(NdxData, KeysAreMadeOfTheRecord) {
    MakeTable({{"NAME", 'C', 5, 0}, {"BORN", 'D', 8, 0}, {"AMOUNT", 'N', 8, 2}, {"F", 'F', 8, 2}});
    ASSERT_EQ(ZBDDFPUTS(data, 0, "ANNA"), 0);
    ASSERT_EQ(ZBDDFPUTS(data, 1, "20000101"), 0);
    ASSERT_EQ(ZBCDSTYLE(2), 0);  // the date term is a text in the current style
    double amount = -2.5;
    ASSERT_EQ(ZBDDFPUT(data, 2, &amount), 0);
    void* key;
    double number;

    ASSERT_EQ(Create("x.ndx", 'C', 10, "NAME+DTOS(BORN)"), 0);
    ASSERT_EQ(Open("x.ndx", &index), 0);
    ASSERT_EQ(ZBDNKMAKE(data, index, &key), 0);
    EXPECT_STREQ(static_cast<char*>(key), "ANNA 20000101");
    ZBMFREE(key);
    ZBDNCLOSE(index);

    ASSERT_EQ(Create("x.ndx", 'D', 8, "BORN"), 0);
    ASSERT_EQ(Open("x.ndx", &index), 0);
    ASSERT_EQ(ZBDNKMAKE(data, index, &key), 0);
    memcpy(&number, key, 8);
    EXPECT_EQ(number, 2451545);
    ZBMFREE(key);
    ZBDNCLOSE(index);

    ASSERT_EQ(Create("x.ndx", 'N', 8, "AMOUNT"), 0);
    ASSERT_EQ(Open("x.ndx", &index), 0);
    ZbBlock block;
    ASSERT_EQ(ZBDNKMAKEH(data, index, &block), 0);
    ASSERT_EQ(_ZBMLOCK(&key, block), 0);
    memcpy(&number, key, 8);
    EXPECT_EQ(number, -2.5);
    _ZBMFREE(block);
    ZBDNCLOSE(index);

    // A field of type F gives no key here.
    ASSERT_EQ(Create("x.ndx", 'N', 8, "F"), 0);
    ASSERT_EQ(Open("x.ndx", &index), 0);
    EXPECT_EQ(ZBDNKMAKE(data, index, &key), -7);
    EXPECT_EQ(key, nullptr);
}

// Build

TEST_F(NdxData, BuildOfNoRecordsLeavesAnEmptyRootAndNoWorkFile) {
    MakeTable({{"NAME", 'C', 5, 0}});
    WriteFile("stacks.tmp", "somebody's");
    EXPECT_EQ(Build("C", "NAME", 5), 0);
    EXPECT_EQ(FileSize("x.ndx"), 1024u);
    EXPECT_EQ(ReadFile("stacks.tmp"), "somebody's");
}

TEST_F(NdxData, BuiltLeafOf31KeysIsFullAndStaysTheRoot) {
    MakeTable({{"AMOUNT", 'N', 8, 0}});
    for (double value = 31; value >= 1; value--) {
        ASSERT_EQ(ZBDDFPUT(data, 0, &value), 0);
        Append();
    }
    ASSERT_EQ(Build("N", "amount"), 0);
    Bytes file = File();
    ASSERT_EQ(file.size(), 1024u);
    EXPECT_EQ(file.substr(0, 8), Le32(1) + Le32(2));
    EXPECT_EQ(file[512], 31);
    for (uint32_t i = 0; i < 31; i++) EXPECT_EQ(file.substr(512 + 4 + i * 16 + 4, 4), Le32(31 - i));
    EXPECT_FALSE(FileExists("stacks.tmp"));
}

TEST_F(NdxData, BuiltTreeOfTwoLevelsStandsByteForByte) {
    MakeTable({{"NAME", 'C', 100, 0}});
    for (char c = 'I'; c >= 'A'; c--) {
        ASSERT_EQ(ZBDDFPUTS(data, 0, std::string(1, c).c_str()), 0);
        Append();
    }
    ASSERT_EQ(Build("C", "NAME", 100), 0);
    Bytes file = File();
    ASSERT_EQ(file.size(), 512u * 5);  // leaves 1, 3, 4 and their parent 2
    auto key = [](char c) {
        Bytes bytes(100, ' ');
        bytes[0] = c;
        return bytes;
    };
    EXPECT_EQ(file.substr(0, 8), Le32(2) + Le32(5));
    EXPECT_EQ(file.substr(512, 4 + 2 * 108),
              Le32(4) + Le32(0) + Le32(9) + key('A') + Le32(0) + Le32(8) + key('B'));
    EXPECT_EQ(file.substr(1024, 4 + 2 * 108 + 4),
              Le32(2) + Le32(1) + Le32(0) + key('D') + Le32(3) + Le32(0) + key('H') + Le32(4));
    EXPECT_EQ(file.substr(2048, 4 + 108), Le32(1) + Le32(0) + Le32(1) + key('I'));
}

TEST_F(NdxData, LeafThatLostItsKeysBetweenFullOnesStopsWalks) {
    MakeTable({{"NAME", 'C', 100, 0}});
    for (char c = 'A'; c <= 'L'; c++) {
        ASSERT_EQ(ZBDDFPUTS(data, 0, std::string(1, c).c_str()), 0);
        Append();
    }
    ASSERT_EQ(Build("C", "NAME", 100), 0);  // three full leaves of four keys
    ASSERT_EQ(Open("x.ndx", &index), 0);
    for (char c = 'E'; c <= 'H'; c++)
        ASSERT_EQ(Delete(std::string(1, c), static_cast<uint32_t>(c - 'A' + 1)), 0);
    auto key = [](char c) { return std::string(1, c) + std::string(99, ' '); };
    EXPECT_EQ(Find("D", 0), (Found{0, key('D'), 4}));
    EXPECT_EQ(Go(ZBDNKNEXT).code, -6);
    ZBESCODE(0);
    EXPECT_EQ(Find("F", 0).code, -6);
    ZBESCODE(0);
    EXPECT_EQ(Add("F", 6), -6);
    ZBESCODE(0);
    EXPECT_EQ(Find("I", 0), (Found{0, key('I'), 9}));
    EXPECT_EQ(Go(ZBDNKNEXT), (Found{0, key('J'), 10}));
}

TEST_F(NdxData, LeafWithoutKeysDoesntKeepTheIndexFromBeingClosed) {
    MakeTable({{"NAME", 'C', 100, 0}});
    for (char c = 'A'; c <= 'P'; c++) {
        ASSERT_EQ(ZBDDFPUTS(data, 0, std::string(1, c).c_str()), 0);
        Append();
    }
    ASSERT_EQ(Build("C", "NAME", 100), 0);  // full leaves 1, 3, 4 and 5 under the root 2
    ASSERT_EQ(Open("x.ndx", &index), 0);
    for (char c : std::string("ABCEFGD"))  // leaf 3 goes into leaf 1 and is free
        ASSERT_EQ(Delete(std::string(1, c), static_cast<uint32_t>(c - 'A' + 1)), 0);
    for (char c : std::string("MNOP"))  // leaf 5 has no neighbour with room
        ASSERT_EQ(Delete(std::string(1, c), static_cast<uint32_t>(c - 'A' + 1)), 0);
    ASSERT_EQ(ReadFile("x.ndx", 5 * 512, 1), Bytes(1, '\0'));
    // That leaf is the last page. It moves into the free one, though no search
    // finds the way to it.
    EXPECT_EQ(ZBDNCLOSE(index), 0);
    EXPECT_EQ(FileSize("x.ndx"), 5 * 512u);
    auto key = [](char c) { return std::string(1, c) + std::string(99, ' '); };
    EXPECT_EQ(ReadFile("x.ndx", 0, 8), Le32(2) + Le32(5));
    EXPECT_EQ(ReadFile("x.ndx", 1024, 4 + 2 * 108 + 4),
              Le32(2) + Le32(1) + Le32(0) + key('H') + Le32(4) + Le32(0) + key('L') + Le32(3));
    EXPECT_EQ(ReadFile("x.ndx", 3 * 512, 1), Bytes(1, '\0'));
    ASSERT_EQ(Open("x.ndx", &index), 0);
    EXPECT_EQ(Go(ZBDNKTOP), (Found{0, key('H'), 8}));
    EXPECT_EQ(Go(ZBDNKNEXT), (Found{0, key('I'), 9}));
}

TEST_F(NdxData, BuiltEqualKeysStandInRecordOrderAndDeletedRecordsAreThere) {
    MakeTable({{"NAME", 'C', 5, 0}});
    for (int i = 0; i < 40; i++) {
        ASSERT_EQ(ZBDDFPUTS(data, 0, i % 2 ? "ODD" : "EVEN"), 0);
        Append();
    }
    ASSERT_EQ(ZBDDRDEL(data, 3), 0);
    ASSERT_EQ(Build("C", "NAME", 5), 0);
    ASSERT_EQ(Open("x.ndx", &index), 0);
    Found found = Go(ZBDNKTOP);
    for (uint32_t record = 1; record <= 39; record += 2, found = Go(ZBDNKNEXT))
        ASSERT_EQ(found, (Found{0, "EVEN ", record}));
    for (uint32_t record = 2; record <= 40; record += 2, found = Go(ZBDNKNEXT))
        ASSERT_EQ(found, (Found{0, "ODD  ", record}));
    EXPECT_EQ(found.code, 3);
}

TEST_F(NdxData, BuiltNumbersSortNegativeOnesFirst) {
    MakeTable({{"AMOUNT", 'N', 8, 2}});
    for (double value : {1.0, -1.0, 0.0, -2.0, 2.5}) {
        ASSERT_EQ(ZBDDFPUT(data, 0, &value), 0);
        Append();
    }
    ASSERT_EQ(Build("N", "AMOUNT"), 0);
    ASSERT_EQ(Open("x.ndx", &index), 0);
    char key[12];
    uint32_t record;
    std::vector<uint32_t> order;
    for (int32_t code = ZBDNKTOP(index, key, &record); code == 0; code = ZBDNKNEXT(index, key, &record))
        order.push_back(record);
    EXPECT_EQ(order, (std::vector<uint32_t>{4, 2, 3, 1, 5}));
}

TEST_F(NdxData, BuildByExpressionPadsShortTexts) {
    MakeTable({{"NAME", 'C', 5, 0}});
    for (const char* name : {"B", "A"}) {
        ASSERT_EQ(ZBDDFPUTS(data, 0, name), 0);
        Append();
    }
    ASSERT_EQ(Build("C", "LEFT(NAME,1)", 3), 0);
    ASSERT_EQ(Open("x.ndx", &index), 0);
    EXPECT_EQ(Go(ZBDNKTOP), (Found{0, "A  ", 2}));
    EXPECT_EQ(Go(ZBDNKNEXT), (Found{0, "B  ", 1}));
}

TEST_F(NdxData, BuildOfBlankDatesAndNumbers) {
    MakeTable({{"BORN", 'D', 8, 0}, {"AMOUNT", 'N', 8, 2}, {"END", 'C', 1, 0}});
    Append();
    ASSERT_EQ(ZBDDFPUTS(data, 0, "19960229"), 0);
    ASSERT_EQ(ZBDDFPUTS(data, 1, "   -1.50"), 0);
    Append();
    ASSERT_EQ(Build("D", "BORN"), 0);
    ASSERT_EQ(Open("x.ndx", &index), 0);
    EXPECT_EQ(FindNumber(1e100), std::pair(0, 1e100));
    ZBDNCLOSE(index);
    ASSERT_EQ(Build("N", "AMOUNT"), 0);
    ASSERT_EQ(Open("x.ndx", &index), 0);
    EXPECT_EQ(FindNumber(0), std::pair(0, 0.0));
    EXPECT_EQ(FindNumber(-1.5), std::pair(0, -1.5));
}

TEST_F(NdxData, FailedBuildRemovesTheWorkFileAndLeavesTheIndex) {
    MakeTable({{"OK", 'L', 1, 0}, {"F", 'F', 5, 1}, {"NAME", 'C', 5, 0}});
    Append();
    for (const char* expression : {"OK", "F", "NAME+1", "STR(NAME)"}) {
        EXPECT_EQ(Build("C", expression, 5), -7) << expression;
        EXPECT_EQ(ZBECODE(), -7);
        ZBESCODE(0);
        EXPECT_FALSE(FileExists("stacks.tmp"));
        EXPECT_TRUE(FileExists("x.ndx"));
        // The lock on the data file is gone.
        uint16_t conflict = 1;
        EXPECT_EQ(ZBDDLOCK(data, 2, &conflict), 0);
        EXPECT_EQ(conflict, 0);
        EXPECT_EQ(ZBDDUNLOCK(data, 2, nullptr), 0);
    }
}

TEST_F(NdxData, BuildPassesOnWhatCreateSays) {
    MakeTable({{"NAME", 'C', 5, 0}});
    Append();
    EXPECT_EQ(Build("X", "NAME", 5), -22);
    ZBESCODE(0);
    EXPECT_EQ(Build("C", "NAME", 101), -23);
    ZBESCODE(0);
    EXPECT_EQ(ZBDNINDEX(data, nullptr, 'C', nullptr, 5), -21);
    ZBESCODE(0);
    char expression[] = "NAME";
    EXPECT_EQ(ZBDNINDEX(50, "x.ndx", 'C', expression, 5), -13);
}

TEST_F(NdxData, BuildWithoutAWorkFileSaysSo) {
    MakeTable({{"NAME", 'C', 5, 0}});
    Append();
    ASSERT_EQ(ZBDDCLOSE(data), 0);
    uint16_t opened;
    ASSERT_EQ(ZBDDOPENX(&opened, "t.dbf", 2), 0);
    data = static_cast<int16_t>(opened);
    ASSERT_EQ(system("mkdir stacks.tmp"), 0);
    EXPECT_EQ(Build("C", "NAME", 5), -46);
    ZBESCODE(0);
}

// Damaged files

TEST_F(Ndx, DamagedPagesNeitherHangNorCrash) {
    Make('C', 20);
    for (uint32_t i = 1; i <= 400; i++) ASSERT_EQ(Add("KEY" + std::to_string(i * 7919 % 1000), i), 0);
    ASSERT_EQ(ZBDNCLOSE(index), 0);
    Bytes good = File();
    uint32_t seed = 12345;
    auto random = [&] { return seed = seed * 1103515245 + 12345, seed >> 8; };
    for (int round = 0; round < 300; round++) {
        Bytes bad = good;
        for (int i = 0; i < 4; i++) {
            size_t page = 1 + random() % (bad.size() / 512 - 1);
            switch (random() % 4) {
                case 0: bad[page * 512] = static_cast<char>(random()); break;
                case 1: bad.replace(page * 512 + 4 + random() % 16 * 28, 4, Le32(random() % 30)); break;
                case 2: bad.replace(page * 512 + random() % 508, 4, Le32(random())); break;
                case 3: bad.resize(page * 512 + random() % 512); break;
            }
            if (bad.size() < 2048) bad = good;
        }
        WriteFile("x.ndx", bad);
        if (Open("x.ndx", &index) < 0) {
            ZBESCODE(0);
            continue;
        }
        for (int step = 0; step < 40; step++) {
            std::string key = "KEY" + std::to_string(random() % 1000);
            uint32_t record = random() % 400 + 1;
            switch (random() % 7) {
                case 0: Add(key, record); break;
                case 1: Delete(key, record); break;
                case 2: Find(key, static_cast<int16_t>(random() % 8), record); break;
                case 3: Go(ZBDNKTOP); break;
                case 4: Go(ZBDNKBOT); break;
                case 5: Go(ZBDNKNEXT); break;
                case 6: Go(ZBDNKPREV); break;
            }
            ZBESCODE(0);
        }
        if (ZBDNCLOSE(index) < 0) {
            ZBESCODE(0);
            // What couldn't be compacted stays open; the restart gives it up.
            ASSERT_EQ(ZBDINIT(100, 1), 0);
        }
    }
}

TEST_F(Ndx, PageOutsideTheFileIsRefused) {
    Make('N', 8);
    for (uint32_t i = 1; i <= 32; i++) ASSERT_EQ(AddNumber(i, i), 0);
    PatchFile("x.ndx", 1536 + 4, Le32(4));  // the first child, where the file has pages 1 to 3
    double value = 1;
    EXPECT_EQ(FindNumber(1).first, -4);
    ZBESCODE(0);
    EXPECT_EQ(Go(ZBDNKTOP).code, -4);
    ZBESCODE(0);
    EXPECT_EQ(ZBDNKDEL(index, &value, 1), -4);
    ZBESCODE(0);
    EXPECT_EQ(FindNumber(32), std::pair(0, 32.0));
}

TEST_F(Ndx, PagesInACircleEnd) {
    Make('C', 100);
    for (uint32_t i = 1; i <= 60; i++) ASSERT_EQ(Add("K" + std::to_string(100 + i), i), 0);
    uint32_t root = 0;
    memcpy(&root, ReadFile("x.ndx", 0, 4).data(), 4);
    Bytes page = ReadFile("x.ndx", root * 512, 512);
    for (int i = 0; i <= page[0]; i++)
        PatchFile("x.ndx", root * 512 + 4 + static_cast<size_t>(i) * 108, Le32(root));
    EXPECT_EQ(Find("K130", 0).code, -6);
    ZBESCODE(0);
    EXPECT_EQ(Go(ZBDNKTOP).code, -6);
    ZBESCODE(0);
    EXPECT_EQ(Go(ZBDNKBOT).code, -6);
    ZBESCODE(0);
}

// Twelve levels, each page of which has the one below for all its five children,
// under a header that claims a large file: five to the twelfth ways down. No call
// goes them all.
TEST_F(Ndx, TreesOfFewPagesAndManyWaysEnd) {
    Make('C', 100);
    ASSERT_EQ(ZBDNCLOSE(index), 0);
    auto entry = [](uint32_t child, uint32_t record, const char* key) {
        Bytes text = key;
        text.resize(100, ' ');
        return Le32(child) + Le32(record) + text;
    };
    Bytes image = ReadFile("x.ndx").substr(0, 512);
    for (uint32_t page = 1; page <= 13; page++) {
        uint32_t child = page < 13 ? page + 1 : 0;
        image += Le32(4);
        for (int i = 0; i < 4; i++) image += entry(child, child ? 0 : 1, child ? "K800" : "K100");
        image += Le32(child);
        image.resize((page + 1) * 512);
    }
    WriteFile("x.ndx", image);
    PatchFile("x.ndx", 4, Le32(0xFFFFFFFF));
    ASSERT_EQ(Open("x.ndx", &index), 7);
    EXPECT_EQ(Find("K500", 0).code, -6);
    ZBESCODE(0);
    EXPECT_EQ(Add("K500", 1), -6);
    ZBESCODE(0);
    EXPECT_EQ(Delete("K500", 1), -6);
    ZBESCODE(0);
}

TEST_F(Ndx, QuickCloseGivesUpThePlatformFile) {
    Make('C', 5);
    ASSERT_EQ(ZBDQCLOSE(), 0);
    EXPECT_EQ(Go(ZBDNKTOP).code, -46);
    ZBESCODE(0);
    EXPECT_EQ(ZBDNCLOSE(index), -46);
    ZBESCODE(0);
}

TEST_F(NdxData, TwoProcessesChangeOneIndexUnderTheDataFilesLock) {
    MakeTable({{"NAME", 'C', 5, 0}});
    ASSERT_EQ(ZBDDCLOSE(data), 0);
    ASSERT_EQ(Create("x.ndx", 'N', 8), 0);
    constexpr uint32_t Each = 400;
    auto work = [](uint32_t first) {
        if (ZBDINIT(100, 1) != 0) return 1;
        uint16_t table, tree;
        if (ZBDDOPENX(&table, "t.dbf", 2 | ZB_Shared) != 0) return 2;
        if (ZBDNOPENX(&tree, "x.ndx", ZB_Shared) < 0) return 3;
        for (uint32_t i = 0; i < Each; i++) {
            uint16_t conflict = 1;
            do {
                if (ZBDDLOCK(static_cast<int16_t>(table), 2, &conflict) != 0) return 4;
            } while (conflict);
            double value = first + 2 * i;
            if (ZBDNKADD(static_cast<int16_t>(tree), &value, first + 2 * i) != 0) return 5;
            if (ZBDDUNLOCK(static_cast<int16_t>(table), 2, nullptr) != 0) return 6;
        }
        ZBDNCLOSE(static_cast<int16_t>(tree));
        return 0;
    };
    Process odd([&](Process&) { return work(1); });
    Process even([&](Process&) { return work(2); });
    ASSERT_EQ(odd.Wait(), 0);
    ASSERT_EQ(even.Wait(), 0);
    ASSERT_EQ(Open("x.ndx", &index), 0);
    char key[12];
    uint32_t record, expected = 0;
    for (int32_t code = ZBDNKTOP(index, key, &record); code == 0; code = ZBDNKNEXT(index, key, &record))
        ASSERT_EQ(record, ++expected);
    EXPECT_EQ(expected, 2 * Each);
}

}  // namespace
}  // namespace test
