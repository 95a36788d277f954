// Keys of IDX indexes: made, found, walked.
#include <cfloat>
#include <cmath>
#include <random>

#include "support/idx.h"

namespace test {
namespace {

class IdxKeys : public LibraryTest {
  protected:
    void Create(uint16_t type, int keyLength) {
        char expression[] = "NAME";
        ASSERT_EQ(0, ZBDICREATE("a.idx", type, expression, static_cast<int16_t>(keyLength)));
        uint16_t handle;
        ASSERT_EQ(0, ZBDIOPENX(&handle, "a.idx", 0));
        index = static_cast<int16_t>(handle);
        ASSERT_EQ(0, ZBDIKTYPE(index, static_cast<int16_t>(type & 0x7F)));
    }
    void AddTens() {
        for (uint32_t i = 1; i <= 3; i++)
            ASSERT_EQ(0, ZBDIKADD(index, (std::to_string(i) + "0").data(), i * 10));
    }
    int32_t Find(const Bytes& wanted, uint32_t number, int16_t mode) {
        memset(key, '#', sizeof key);
        memcpy(key, wanted.data(), wanted.size());
        record = number;
        return ZBDIKFIND(index, key, &record, mode);
    }
    Bytes Key(size_t length) const { return Bytes(key, length); }

    int16_t index = -1;
    char key[128] = {};
    uint32_t record = 0;
};

Bytes Encoded(double value) {
    char key[8];
    EXPECT_EQ(0, ZBDIKNUM(key, value));
    return Bytes(key, 8);
}

TEST_F(IdxKeys, NumbersAreEncoded) {
    EXPECT_EQ(Hex("80 00 00 00 00 00 00 00"), Encoded(0));
    EXPECT_EQ(Hex("BF F0 00 00 00 00 00 00"), Encoded(1));
    EXPECT_EQ(Hex("40 0F FF FF FF FF FF FF"), Encoded(-1));
    EXPECT_EQ(Hex("7F FF FF FF FF FF FF FF"), Encoded(-0.0));
    EXPECT_EQ(Hex("FF F0 00 00 00 00 00 00"), Encoded(INFINITY));
    EXPECT_EQ(Hex("00 0F FF FF FF FF FF FF"), Encoded(-INFINITY));
    EXPECT_EQ(Hex("80 00 00 00 00 00 00 01"), Encoded(5e-324));
}

TEST_F(IdxKeys, EncodedNumbersSortAsTheNumbersDo) {
    std::vector<double> values = {-INFINITY, -DBL_MAX, -1e100,  -2, -1, -DBL_MIN, -5e-324, -0.0,
                                  0,         5e-324,   DBL_MIN, 1,  2,  1e100,    DBL_MAX, INFINITY};
    for (size_t i = 1; i < values.size(); i++) EXPECT_LT(Encoded(values[i - 1]), Encoded(values[i])) << i;
    std::mt19937_64 random(7);
    for (int i = 0; i < 20000; i++) {
        double a = std::bit_cast<double>(random());
        double b = std::bit_cast<double>(random());
        if (std::isnan(a) || std::isnan(b) || a == b) continue;
        ASSERT_EQ(a < b, Encoded(a) < Encoded(b)) << a << " " << b;
    }
}

TEST_F(IdxKeys, DatesAreEncodedDayNumbers) {
    char out[8];
    ASSERT_EQ(0, ZBDIKDATE(out, "20000101", 4));
    EXPECT_EQ(Hex("C1 42 B4 2C 80 00 00 00"), Bytes(out, 8));  // 2451545
    EXPECT_EQ(Encoded(2451545), Bytes(out, 8));
    ASSERT_EQ(0, ZBDIKDATE(out, "20000301", 4));
    EXPECT_EQ(Encoded(2451545 + 31 + 29), Bytes(out, 8));
    ASSERT_EQ(0, ZBDIKDATE(out, "00000101", 4));
    EXPECT_EQ(Encoded(1 - 365 + 1721410), Bytes(out, 8));
    ASSERT_EQ(0, ZBDIKDATE(out, "        ", 4));
    EXPECT_EQ(Hex("80 00 00 00 00 00 00 00"), Bytes(out, 8));
    EXPECT_EQ(0, ZBECODE());
    EXPECT_EQ(ZB_ErrBadDate, ZBDIKDATE(out, "20001301", 4));
    ZBESCODE(0);
    EXPECT_EQ(ZB_ErrBadDate, ZBDIKDATE(out, "20010229", 4));
    ZBESCODE(0);
    EXPECT_EQ(ZB_ErrBadOption, ZBDIKDATE(out, "20010228", 99));
}

TEST_F(IdxKeys, ADateWithMonth13IsRefused) {
    char out[9] = "unharmed";
    EXPECT_EQ(ZB_ErrBadDate, ZBDIKDATE(out, "20001301", 4));
    EXPECT_STREQ("unharmed", out);
}

TEST_F(IdxKeys, ANumberClearsAWarning) {
    Create('C', 2);
    EXPECT_EQ(ZB_KeyEmpty, ZBDIKTOP(index, key, &record));
    EXPECT_EQ(ZB_KeyEmpty, ZBECODE());
    Encoded(1);
    EXPECT_EQ(0, ZBECODE());
}

TEST_F(IdxKeys, TheFirstKeyOfAnEmptyIndexIsKeyEmptyAndBecomesThePosition) {
    for (uint16_t form : {0, int{ZB_IdxCompact}}) {
        Create(static_cast<uint16_t>('C' | form), 2);
        strcpy(key, "zz");
        record = 7;
        EXPECT_EQ(ZB_KeyEmpty, ZBDIKTOP(index, key, &record));
        EXPECT_EQ(ZB_KeyEmpty, ZBDIKBOT(index, key, &record));
        EXPECT_EQ(ZB_KeyEmpty, ZBDIKFIND(index, key, &record, 0));
        EXPECT_STREQ("zz", key);
        EXPECT_EQ(7u, record);
        // The buffers are the position now.
        EXPECT_EQ(ZB_KeyEmpty, ZBDIKCUR(index, key, &record));
        EXPECT_EQ(ZB_KeyEnd, ZBDIKNEXT(index, key, &record));
        EXPECT_EQ(ZB_KeyEnd, ZBDIKPREV(index, key, &record));
        EXPECT_STREQ("zz", key);
        EXPECT_EQ(7u, record);
        EXPECT_EQ(0, ZBDICLOSE(index));
    }
}

TEST_F(IdxKeys, FindGivesTheKeyBeforeThePlace) {
    Create('C', 2);
    AddTens();
    EXPECT_EQ(0, Find("20", 0, 0));
    EXPECT_EQ(20u, record);
    EXPECT_EQ(ZB_KeyNear, Find("15", 0, 0));
    EXPECT_STREQ("10", key);
    EXPECT_EQ(10u, record);
    EXPECT_EQ(ZB_KeyNear, Find("35", 0, 0));
    EXPECT_STREQ("30", key);
    EXPECT_EQ(30u, record);
    EXPECT_EQ(0, Find("05", 0, 0));
    EXPECT_STREQ("10", key);
    EXPECT_EQ(10u, record);
}

TEST_F(IdxKeys, OnlyMode2LooksAtTheRecord) {
    Create('C', 2);
    AddTens();
    for (int16_t mode : {0, 1, 3, 4, 6}) EXPECT_EQ(0, Find("20", 99, mode)) << mode;
    EXPECT_EQ(ZB_KeyNear, Find("20", 99, 2));
    EXPECT_EQ(20u, record);
    EXPECT_EQ(0, Find("20", 20, 2));
}

TEST_F(IdxKeys, TheWholeKeyLengthIsComparedWhateverFollowsATerminator) {
    Create('C', 5);
    ASSERT_EQ(0, ZBDIKADD(index, "AB   ", 1));
    EXPECT_EQ(0, Find("AB   ", 0, 0));
    EXPECT_EQ(ZB_KeyNear, Find("AB  !", 0, 0));
    EXPECT_EQ(0, Find(Bytes("AB\0  ", 5), 0, 0));  // below all keys
    EXPECT_STREQ("AB   ", key);
    EXPECT_EQ(ZB_KeyNear, Find("AB", 0, 0));  // '#' follows in the buffer
}

TEST_F(IdxKeys, WalksStartAtTheirEndsWithoutAPosition) {
    Create('C', 2);
    AddTens();
    ASSERT_EQ(0, ZBDIKNEXT(index, key, &record));
    EXPECT_EQ(10u, record);
    ASSERT_EQ(0, ZBDICLOSE(index));
    uint16_t handle;
    ASSERT_EQ(0, ZBDIOPENX(&handle, "a.idx", 0));
    index = static_cast<int16_t>(handle);
    ASSERT_EQ(0, ZBDIKPREV(index, key, &record));
    EXPECT_EQ(30u, record);
}

TEST_F(IdxKeys, WalksEndOnTheLastKey) {
    Create('C', 2);
    AddTens();
    ASSERT_EQ(0, ZBDIKTOP(index, key, &record));
    EXPECT_EQ(ZB_KeyEnd, ZBDIKPREV(index, key, &record));
    EXPECT_STREQ("10", key);
    EXPECT_EQ(0, ZBDIKNEXT(index, key, &record));
    EXPECT_EQ(0, ZBDIKNEXT(index, key, &record));
    EXPECT_STREQ("30", key);
    EXPECT_EQ(ZB_KeyEnd, ZBDIKNEXT(index, key, &record));
    EXPECT_STREQ("30", key);
    EXPECT_EQ(30u, record);
    EXPECT_EQ(0, ZBDIKPREV(index, key, &record));
    EXPECT_STREQ("20", key);
    EXPECT_EQ(0, ZBDIKCUR(index, key, &record));
    EXPECT_STREQ("20", key);
}

TEST_F(IdxKeys, TheCurrentKeyWithoutAPositionTakesTheCallersBuffers) {
    Create('C', 2);
    AddTens();
    strcpy(key, "20");
    record = 20;
    EXPECT_EQ(ZB_KeyNear, ZBDIKCUR(index, key, &record));
    EXPECT_EQ(0, ZBDIKNEXT(index, key, &record));
    EXPECT_EQ(30u, record);
}

TEST_F(IdxKeys, AKeyThatHasGoneMovesThePosition) {
    Create('C', 2);
    AddTens();
    ASSERT_EQ(0, Find("20", 0, 0));
    ASSERT_EQ(0, ZBDIKDEL(index, "20", 20));
    EXPECT_EQ(ZB_KeyNear, ZBDIKCUR(index, key, &record));
    EXPECT_STREQ("10", key);
    ASSERT_EQ(0, Find("10", 0, 0));
    ASSERT_EQ(0, ZBDIKDEL(index, "10", 10));
    // Below all keys now: the position goes to the first.
    EXPECT_EQ(ZB_KeyNear, ZBDIKNEXT(index, key, &record));
    EXPECT_STREQ("30", key);
    EXPECT_EQ(30u, record);
    EXPECT_EQ(0, ZBDIKCUR(index, key, &record));
}

TEST_F(IdxKeys, AStepAfterALostKeyKeepsTheWarning) {
    Create('C', 2);
    AddTens();
    ASSERT_EQ(0, Find("20", 0, 0));
    ASSERT_EQ(0, ZBDIKDEL(index, "20", 20));
    EXPECT_EQ(ZB_KeyNear, ZBDIKNEXT(index, key, &record));
    EXPECT_EQ(30u, record);
}

TEST_F(IdxKeys, OnlyCharacterKeysEndInAZero) {
    Create('C', 2);
    AddTens();
    ASSERT_EQ(0, Find("20", 0, 0));
    EXPECT_EQ(Bytes("20\0#", 4), Key(4));
    ASSERT_EQ(0, ZBDIKTYPE(index, 'N'));
    ASSERT_EQ(0, Find("20", 0, 0));
    EXPECT_EQ("20##", Key(4));
}

TEST_F(IdxKeys, RecordNumbersAreBigEndianInEntries) {
    Create('C', 2);
    ASSERT_EQ(0, ZBDIKADD(index, "AB", 0x01020304));
    EXPECT_EQ(Hex("41 42 01 02 03 04"), ReadFile("a.idx", 512 + 12, 6));
    EXPECT_EQ(0, Find("AB", 0x01020304, 2));
    EXPECT_EQ(0x01020304u, record);
}

TEST_F(IdxKeys, EqualKeysAreFoundAcrossLeaves) {
    Create('C', 100);
    Bytes same(100, 'M');
    for (uint32_t i = 1; i <= 30; i++) ASSERT_EQ(0, ZBDIKADD(index, same.data(), i));
    for (uint32_t i = 1; i <= 30; i++) {
        EXPECT_EQ(0, Find(same, i, 2));
        EXPECT_EQ(i, record);
    }
    EXPECT_EQ(0, Find(same, 0, 0));
    EXPECT_EQ(1u, record);
    EXPECT_EQ(ZB_KeyNear, Find(same, 31, 2));
    EXPECT_EQ(30u, record);
}

// Keys from records

class IdxMake : public IdxKeys {
  protected:
    void SetUp() override {
        IdxKeys::SetUp();
        ZbFieldSpec fields[] = {{"NAME", 'C', 5, 0},
                                {"BORN", 'D', 8, 0},
                                {"SIZE", 'N', 6, 2},
                                {"GOOD", 'L', 1, 0},
                                {"PART", 'F', 8, 2}};
        ASSERT_EQ(0, ZBDDCREATE("a.dbf", 5, fields, ZB_DialectDb4));
        uint16_t handle;
        ASSERT_EQ(0, ZBDDOPENX(&handle, "a.dbf", ZB_DialectDb4));
        data = static_cast<int16_t>(handle);
        WriteFile("rows", "");
        Bytes row = " ANNA 19960229 -1.00T    2.50";
        Bytes file = ReadFile("a.dbf");
        ASSERT_EQ(0, ZBDDCLOSE(data));
        file[4] = 1;
        size_t header = static_cast<uint8_t>(file[8]) + 256u * static_cast<uint8_t>(file[9]);
        WriteFile("a.dbf", file.substr(0, header) + row + "\x1A");
        ASSERT_EQ(0, ZBDDOPENX(&handle, "a.dbf", ZB_DialectDb4));
        data = static_cast<int16_t>(handle);
        ASSERT_EQ(0, ZBDDRGET(data, 1));
    }
    Bytes Make(const std::string& expression, size_t length) {
        std::string copy = expression;
        EXPECT_EQ(0, ZBDICREATE("m.idx", 'C', copy.data(), 10));
        uint16_t handle;
        EXPECT_EQ(0, ZBDIOPENX(&handle, "m.idx", 0));
        void* made = nullptr;
        code = ZBDIKMAKE(data, static_cast<int16_t>(handle), &made);
        Bytes bytes;
        if (code < 0) {
            EXPECT_EQ(nullptr, made);
            ZBESCODE(0);
            ZbBlock block = 1;
            EXPECT_EQ(code, ZBDIKMAKEH(data, static_cast<int16_t>(handle), &block));
            EXPECT_EQ(0xFFFFFFFF, block);
            ZBESCODE(0);
        } else {
            bytes.assign(static_cast<char*>(made), length);
            EXPECT_EQ(0, ZBMFREE(made));
        }
        EXPECT_EQ(0, ZBDICLOSE(static_cast<int16_t>(handle)));
        return bytes;
    }

    int16_t data = -1;
    int32_t code = 0;
};

TEST_F(IdxMake, EveryTypeHasItsForm) {
    EXPECT_EQ(Bytes("ANNA \0", 6), Make("NAME", 6));
    EXPECT_EQ(Encoded(-1), Make("SIZE", 8));
    EXPECT_EQ(Bytes("T\0", 2), Make("GOOD", 2));
    EXPECT_EQ(Encoded(2450143), Make("BORN", 8));
    EXPECT_EQ("ANNA 19960229", Make("NAME+DTOS(BORN)", 13));
    Make("PART", 8);
    EXPECT_EQ(ZB_ErrExpression, code);
}

TEST_F(IdxMake, AFailedEvaluationGivesNoKey) {
    Make("SUBSTR(NAME,0,1)", 1);
    EXPECT_EQ(ZB_ErrExpression, code);
}

}  // namespace
}  // namespace test
