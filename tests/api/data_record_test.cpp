#include <algorithm>
#include <cstring>

#include "support/dbf.h"

namespace test {
namespace {

class DataRecord : public LibraryTest {
  protected:
    uint16_t handle = 7;
    uint32_t number = 0;

    int Open(const Bytes& bytes, int mode = 0) {
        WriteFile("a.dbf", bytes);
        return ZBDDOPENX(&handle, "a.dbf", static_cast<uint16_t>(mode));
    }
    int16_t Data() const { return static_cast<int16_t>(handle); }
    int Close() { return ZBDDCLOSE(Data()); }
    int Get(int32_t recordNo) { return ZBDDRGET(Data(), recordNo); }
    int Append() { return ZBDDRPUT(Data(), &number, 0); }
    int Update(uint32_t recordNo) {
        number = recordNo;
        return ZBDDRPUT(Data(), &number, 256);
    }
    Bytes Buffer() {
        ZbDataRecordInfo info;
        EXPECT_EQ(ZBDDRINFO(Data(), &info), 0);
        return {reinterpret_cast<char*>(info.buffer), info.recordLength};
    }
    void SetBuffer(const Bytes& bytes) {
        ZbDataRecordInfo info;
        ASSERT_EQ(ZBDDRINFO(Data(), &info), 0);
        ASSERT_EQ(bytes.size(), info.recordLength);
        memcpy(reinterpret_cast<char*>(info.buffer), bytes.data(), bytes.size());
    }
    uint32_t Current() {
        uint32_t current = 99;
        EXPECT_EQ(ZBDDRNUM(Data(), &current), 0);
        return current;
    }
    uint32_t Count() {
        uint32_t count = 99;
        EXPECT_EQ(ZBDDSIZE(Data(), &count), 0);
        return count;
    }
    // The file's bytes, but for the date byte.
    Bytes File() {
        Bytes bytes = ReadFile("a.dbf");
        bytes[1] = 0x15;
        return bytes;
    }
    void ClosedFileIs(const Bytes& bytes) {
        ASSERT_EQ(Close(), 0);
        EXPECT_EQ(File(), bytes);
    }
};

// ---- reading ----

TEST_F(DataRecord, GetReadsARecordAndMakesItTheCurrentOne) {
    ASSERT_EQ(Open(People({Anna, Bert, Cleo})), 0);
    EXPECT_EQ(Current(), 0u);
    EXPECT_EQ(Buffer(), Fill(14, ' '));
    EXPECT_EQ(Get(3), 0);
    EXPECT_EQ(Buffer(), Cleo);
    EXPECT_EQ(Current(), 3u);
    EXPECT_EQ(Get(1), 0);
    EXPECT_EQ(Buffer(), Anna);
    EXPECT_EQ(Current(), 1u);
}

TEST_F(DataRecord, GetOfADeletedRecordReturns1AndHasTheRecord) {
    ASSERT_EQ(Open(People({Anna, Bert})), 0);
    StartLog();
    EXPECT_EQ(Get(2), 1);
    EXPECT_EQ(ZBECODE(), 1);
    EXPECT_TRUE(Log().empty());
    EXPECT_EQ(Buffer(), Bert);
    EXPECT_EQ(Current(), 2u);
}

TEST_F(DataRecord, GetOfALiveRecordAfterADeletedOneReturns0) {
    ASSERT_EQ(Open(People({Anna, Bert})), 0);
    EXPECT_EQ(Get(2), 1);
    EXPECT_EQ(Get(1), 0);
    EXPECT_EQ(ZBECODE(), 0);
}

TEST_F(DataRecord, AfterAnyFailureGetReturnsItsCodeAndReadsNothingUntilItIsCleared) {
    ASSERT_EQ(Open(People({Anna, Bert, Cleo})), 0);
    ASSERT_EQ(Get(1), 0);
    uint16_t other;
    ASSERT_EQ(ZBDDOPENX(&other, "none.dbf", 0), -46);
    for (int i = 0; i < 3; i++) EXPECT_EQ(Get(3), -46);
    EXPECT_EQ(ZBESCODE(0), 0);
    EXPECT_EQ(Buffer(), Anna);
    EXPECT_EQ(Current(), 1u);
    EXPECT_EQ(Get(3), 0);
    EXPECT_EQ(Buffer(), Cleo);
}

TEST_F(DataRecord, GetOutsideTheRecordCountIsRefused) {
    ASSERT_EQ(Open(People({Anna, Bert, Cleo})), 0);
    ASSERT_EQ(Get(1), 0);
    for (int32_t outside : {0, 4, -1, int32_t{-2147483647 - 1}, 2147483647}) {
        StartLog();
        EXPECT_EQ(Get(outside), -4) << outside;
        EXPECT_EQ(Log(), (std::vector<LogEntry>{{"Drget", -4}}));
        ZBESCODE(0);
    }
    EXPECT_EQ(Buffer(), Anna);
    EXPECT_EQ(Current(), 1u);
}

TEST_F(DataRecord, GetBehindTheFilesEndIsAShortRead) {
    ASSERT_EQ(Open(People({Anna, Bert, Cleo}).substr(0, 97 + 2 * 14 + 5)), 7);
    ASSERT_EQ(Get(1), 0);
    StartLog();
    EXPECT_EQ(Get(3), -2);
    EXPECT_EQ(Log(), (std::vector<LogEntry>{{"DataRead", -2}, {"Drget", -2}}));
    ZBESCODE(0);
    EXPECT_EQ(Current(), 1u);
}

TEST_F(DataRecord, APositionBeyond31BitsIsRefused) {
    Bytes file = People({Anna});
    file.replace(4, 4, Le32(0x7FFFFFFF));
    ASSERT_EQ(Open(file), 7);
    StartLog();
    EXPECT_EQ(Get(0x7FFFFFFF), -4);
    EXPECT_EQ(Log(), (std::vector<LogEntry>{{"Hseek", -4}, {"DataRead", -4}, {"Drget", -4}}));
    ZBESCODE(0);
    // 97 + 14 * 153391683 is 2^31 + 11, and 14 less lies within.
    EXPECT_EQ(Get(153391684), -4);
    ZBESCODE(0);
    EXPECT_EQ(Get(153391683), -2);
    ZBESCODE(0);
    // Record 306783373 would stand at 9 in 32 bits, in the header.
    EXPECT_EQ(Get(306783373), -4);
}

TEST_F(DataRecord, ANegativeRecordCountHasNoRecords) {
    Bytes file = People({Anna});
    file.replace(4, 4, Le32(-1));
    ASSERT_EQ(Open(file), 7);
    for (int32_t n : {-2, -1, 0, 1}) {
        EXPECT_EQ(Get(n), -4) << n;
        ZBESCODE(0);
    }
}

TEST_F(DataRecord, ARecordAppendedByAnotherIsSeenAfterARefresh) {
    ASSERT_EQ(Open(People({Anna}), ZB_Shared), 0);
    PatchFile("a.dbf", 97 + 14, Bert + '\x1A');
    PatchFile("a.dbf", 4, Le32(2));
    EXPECT_EQ(Get(2), -4);
    ZBESCODE(0);
    ASSERT_EQ(ZBDDHGET(Data()), 0);
    EXPECT_EQ(Get(2), 1);
}

TEST_F(DataRecord, ARecordChangedByAnotherIsSeenAtOnce) {
    ASSERT_EQ(Open(People({Anna, Bert}), ZB_Shared), 0);
    ASSERT_EQ(Get(1), 0);
    PatchFile("a.dbf", 97, Cleo);
    ASSERT_EQ(Get(1), 0);
    EXPECT_EQ(Buffer(), Cleo);
}

TEST_F(DataRecord, AnyFlagButABlankReadsAsDeletedAndOnlyAnAsteriskStandsSo) {
    Bytes odd = Anna;
    odd[0] = 'X';
    ASSERT_EQ(Open(People({odd, Bert, Anna})), 0);
    EXPECT_EQ(Get(1), 1);
    EXPECT_EQ(ZBDDRSTAT(Data()), 0);
    EXPECT_EQ(Get(2), 1);
    EXPECT_EQ(ZBDDRSTAT(Data()), 1);
    EXPECT_EQ(ZBECODE(), 1);
    EXPECT_EQ(ZBDDRSTAT(Data()), 1);
    EXPECT_EQ(Get(3), 0);
    EXPECT_EQ(ZBDDRSTAT(Data()), 0);
}

// ---- images ----

// One field of each type, and a C behind the D.
Bytes AllTypes(const std::vector<Bytes>& records, int version = 131) {
    return Dbf(version, 1 + 3 + 8 + 6 + 1 + 10 + 2,
               {DbfField("TEXT", 'C', 3), DbfField("DAY", 'D', 8), DbfField("AMOUNT", 'N', 6, 2),
                DbfField("SURE", 'L', 1), DbfField("NOTE", 'M', 10), DbfField("LAST", 'C', 2)},
               records);
}

Bytes Image(char flag, const Bytes& text, const Bytes& day, double amount, char sure, uint32_t note,
            const Bytes& last) {
    Bytes bytes(1, flag);
    bytes += text + Fill(4 - text.size()) + day + Fill(9 - day.size());
    bytes.append(reinterpret_cast<const char*>(&amount), 8);
    bytes += sure;
    bytes.append(reinterpret_cast<const char*>(&note), 4);
    return bytes + last + Fill(3 - last.size());
}

TEST_F(DataRecord, AnImageHasEachFieldInItsRoom) {
    ASSERT_EQ(Open(AllTypes({"*abc19960229 12.50T        77xy"})), 0);
    Bytes image = Fill(30, 'q');
    EXPECT_EQ(ZBDDRGETX(Data(), image.data(), 1), 1);
    EXPECT_EQ(ZBECODE(), 1);
    EXPECT_EQ(image.substr(0, 29 + 1), Image('*', "abc", "02/29/96", 12.5, 1, 77, "xy"));
    EXPECT_EQ(Current(), 1u);
}

TEST_F(DataRecord, ALongDateIsCutByTheFieldBehindIt) {
    ASSERT_EQ(Open(AllTypes({" abc19960229 12.50T        77xy"})), 0);
    ASSERT_EQ(ZBCDSTYLE(2), 0);
    Bytes image = Fill(30, 'q');
    EXPECT_EQ(ZBDDRGETX(Data(), image.data(), 1), 0);
    EXPECT_EQ(image.substr(0, 5 + 9), Bytes(" abc\0"
                                            "02/29/199",
                                            14));
    double amount;
    memcpy(&amount, image.data() + 14, 8);
    EXPECT_EQ(amount, 12.5);
}

TEST_F(DataRecord, AFieldThatFailsEndsTheImage) {
    // A blank date in front of other text can't be read.
    ASSERT_EQ(Open(AllTypes({"*abc         12.50T        77xy"})), 0);
    Bytes image = Fill(30, 'q');
    EXPECT_EQ(ZBDDRGETX(Data(), image.data(), 1), -15);
    EXPECT_EQ(image.substr(0, 5), Bytes("*abc\0", 5));
    EXPECT_EQ(image.substr(14), Fill(16, 'q'));
    ZBESCODE(0);
    EXPECT_EQ(Current(), 1u);
}

TEST_F(DataRecord, AnImageOutsideTheRecordCountIsLeftAlone) {
    ASSERT_EQ(Open(AllTypes({})), 0);
    Bytes image = Fill(30, 'q');
    EXPECT_EQ(ZBDDRGETX(Data(), image.data(), 1), -4);
    EXPECT_EQ(image, Fill(30, 'q'));
}

TEST_F(DataRecord, AFailedReadStillFillsTheFlagOfTheImage) {
    Bytes file = AllTypes({"*abc19960229 12.50T        77xy"});
    ASSERT_EQ(Open(file.substr(0, file.size() - 15)), 7);
    Bytes image = Fill(40, 'q');
    EXPECT_EQ(ZBDDRGETX(Data(), image.data(), 1), -2);
    EXPECT_EQ(ZBECODE(), -2);
    EXPECT_EQ(image[0], '*');
    EXPECT_EQ(image.substr(14, 26), Fill(26, 'q'));  // the date at the latest stops it
    ZBESCODE(0);
    EXPECT_EQ(Current(), 0u);
}

// The image has as much room for them as their widths say, and not a byte more.
TEST_F(DataRecord, DatesAndLogicalsOfTooLittleWidthKeepWithinTheImage) {
    for (int style : {1, 2, 5}) {
        for (int width : {0, 1, 3, 7}) {
            auto blanks = static_cast<size_t>(width);
            ASSERT_EQ(
                Open(Dbf(3, 2 + width,
                         {DbfField("TEXT", 'C', 1), DbfField("DAY", 'D', width), DbfField("SURE", 'L', 0)},
                         {"*x" + Fill(blanks, ' ')})),
                0);
            ASSERT_EQ(ZBCDSTYLE(static_cast<uint16_t>(style)), 0);
            Bytes expected = Bytes("*x\0", 3) + Fill(std::min<size_t>(blanks, style == 5 ? 6 : 8), ' ');
            expected.resize(3 + blanks + 1);
            std::vector<char> image(expected.size());
            image.shrink_to_fit();
            EXPECT_EQ(ZBDDRGETX(Data(), image.data(), 1), 1);
            EXPECT_EQ(Bytes(image.data(), image.size()), expected) << style << " " << width;
            EXPECT_EQ(ZBDDRPUTX(Data(), image.data(), &number, 0), 0);
            EXPECT_EQ(Buffer(), " x" + Fill(blanks, ' '));
            EXPECT_EQ(Close(), 0);
        }
    }
}

TEST_F(DataRecord, AnImageIsAppended) {
    ASSERT_EQ(Open(AllTypes({})), 0);
    Bytes image = Image('*', "abc", "02/29/96", 12.5, 'T', 77, "xy");
    ASSERT_EQ(ZBDDRPUTX(Data(), image.data(), &number, 0), 0);
    EXPECT_EQ(number, 1u);
    ClosedFileIs(AllTypes({" abc19960229 12.50T        77xy"}));
}

TEST_F(DataRecord, AnImageIsWrittenOverARecord) {
    Bytes old = "*zzz19991231999.99F         1zz";
    ASSERT_EQ(Open(AllTypes({old, old, old})), 0);
    Bytes image = Image('*', "a", "", -1, 0, 0, "");
    number = 2;
    ASSERT_EQ(ZBDDRPUTX(Data(), image.data(), &number, 256), 0);
    ClosedFileIs(AllTypes({old,
                           " a          "
                           " -1.00F         0  ",
                           old}));
}

TEST_F(DataRecord, TheWarningsOfTheFieldsStayAndTheRecordIsWritten) {
    Bytes before = Dbf(3, 9, {DbfField("AMOUNT", 'N', 5, 2), DbfField("TEXT", 'C', 3)}, {});
    ASSERT_EQ(Open(before), 0);
    double amount = 0.125;
    Bytes image = ' ' + Bytes(reinterpret_cast<char*>(&amount), 8) + Bytes("abc\0", 4);
    EXPECT_EQ(ZBDDRPUTX(Data(), image.data(), &number, 0), 6);
    EXPECT_EQ(ZBECODE(), 6);
    amount = 1;
    image = ' ' + Bytes(reinterpret_cast<char*>(&amount), 8) + Bytes("abcde\0", 6);
    EXPECT_EQ(ZBDDRPUTX(Data(), image.data(), &number, 0), 5);
    EXPECT_EQ(number, 2u);
    number = 1;
    EXPECT_EQ(ZBDDRPUTX(Data(), image.data(), &number, 256), 5);
    EXPECT_EQ(ReadFile("a.dbf", 97),
              "  1.00abc"
              "  1.00abc"
              "\x1A");
}

TEST_F(DataRecord, AValueThatIsRefusedEndsThePutWithNothingWritten) {
    Bytes file = AllTypes({"*abc19960229 12.50T        77xy"});
    ASSERT_EQ(Open(file), 0);
    Bytes image = Image(' ', "new", "02/28/96", 12.5, '!', 78, "zz");
    number = 1;
    StartLog();
    EXPECT_EQ(ZBDDRPUTX(Data(), image.data(), &number, 256), -33);
    ASSERT_FALSE(Log().empty());
    EXPECT_EQ(Log().back(), (LogEntry{"Drput", -33}));
    ZBESCODE(0);
    EXPECT_EQ(number, 1u);
    EXPECT_EQ(Current(), 0u);
    // What came before it is in the buffer.
    EXPECT_EQ(Buffer().substr(0, 18), " new19960228 12.50");
    EXPECT_EQ(Buffer().substr(18), Fill(13, ' '));
    ASSERT_EQ(Close(), 0);
    EXPECT_EQ(ReadFile("a.dbf"), file);
}

// ---- appending ----

TEST_F(DataRecord, AnAppendWritesTheRecordTheEndMarkAndTheCount) {
    ASSERT_EQ(Open(People({Anna, Bert})), 0);
    SetBuffer(Cleo);
    EXPECT_EQ(Append(), 0);
    EXPECT_EQ(number, 3u);
    EXPECT_EQ(Current(), 3u);
    EXPECT_EQ(Count(), 3u);
    // At once, not at the close.
    EXPECT_EQ(ReadFile("a.dbf"), People({Anna, Bert, Cleo}));
    ClosedFileIs(People({Anna, Bert, Cleo}));
}

TEST_F(DataRecord, AnAppendUndeletesTheBuffer) {
    ASSERT_EQ(Open(People({})), 0);
    SetBuffer(Bert);
    EXPECT_EQ(Append(), 0);
    Bytes live = Bert;
    live[0] = ' ';
    EXPECT_EQ(Buffer(), live);
    ClosedFileIs(People({live}));
}

TEST_F(DataRecord, AnAppendOverALongerFileLeavesWhatIsBehindTheEndMark) {
    ASSERT_EQ(Open(People({}) + Fill(40, 'z')), 7);
    SetBuffer(Anna);
    EXPECT_EQ(Append(), 0);
    EXPECT_EQ(ReadFile("a.dbf"), People({Anna}) + Fill(40 - 14, 'z'));
}

TEST_F(DataRecord, InTheEofFillDialectTheEndMarkFillsARecord) {
    Bytes file = People({});
    ASSERT_EQ(Open(file, 7), 0);
    SetBuffer(Anna);
    EXPECT_EQ(Append(), 0);
    EXPECT_EQ(FileSize("a.dbf"), file.size() + 2 * 14 - 1);
    EXPECT_EQ(ReadFile("a.dbf"), People({Anna}) + Fill(13, 0x1A));
    SetBuffer(Cleo);
    EXPECT_EQ(Append(), 0);
    EXPECT_EQ(FileSize("a.dbf"), file.size() + 3 * 14 - 1);
    EXPECT_EQ(ReadFile("a.dbf"), People({Anna, Cleo}) + Fill(13, 0x1A));
    EXPECT_EQ(Close(), 0);
    EXPECT_EQ(ZBDDOPENX(&handle, "a.dbf", 7), 0);
}

TEST_F(DataRecord, InTheEofFillDialectAMemoFieldMakesTheEndMarkOneByte) {
    Bytes file = Dbf(131, 11, {DbfField("NOTE", 'M', 10)}, {});
    ASSERT_EQ(Open(file, 7), 0);
    EXPECT_EQ(Append(), 0);
    EXPECT_EQ(FileSize("a.dbf"), file.size() + 11);
}

TEST_F(DataRecord, AnAppendInEveryOtherDialectEndsInOneByte) {
    for (int dialect : {1, 2, 3, 4, 5, 6, 8, 9}) {
        ASSERT_EQ(Open(People({Anna}), dialect), 0);
        SetBuffer(Cleo);
        EXPECT_EQ(Append(), 0);
        EXPECT_EQ(ReadFile("a.dbf"), People({Anna, Cleo})) << dialect;
        EXPECT_EQ(Close(), 0);
    }
}

TEST_F(DataRecord, AWarningBeforeAnAppendIsGoneAfterIt) {
    ASSERT_EQ(Open(People({Bert})), 0);
    ASSERT_EQ(Get(1), 1);
    EXPECT_EQ(Append(), 0);
    EXPECT_EQ(ZBECODE(), 0);
}

TEST_F(DataRecord, ADamagedCountNeverLeadsAnAppendIntoTheHeader) {
    for (int64_t count : {int64_t{-1}, int64_t{-2}, int64_t{-7}, int64_t{-2147483648}, int64_t{0x7FFFFFFF},
                          int64_t{306783372}, int64_t{306783371}}) {
        Bytes file = People({Anna});
        file.replace(4, 4, Le32(count));
        ASSERT_EQ(Open(file), 7);
        number = 99;
        EXPECT_EQ(Append(), -4) << count;
        // The number that it would have been, and the count in memory, stand.
        EXPECT_EQ(number, static_cast<uint32_t>(count + 1));
        ZBESCODE(0);
        EXPECT_EQ(Count(), static_cast<uint32_t>(count + 1));
        EXPECT_EQ(Current(), 0u);
        ASSERT_EQ(Close(), 0);
        EXPECT_EQ(ReadFile("a.dbf"), file);
    }
}

TEST_F(DataRecord, AnAppendReachesToTheLastPositionAndNotBeyond) {
    // Records of 14 from 97: number 153391682 ends at 2^31 - 3, the next beyond.
    Bytes file = People({Anna});
    file.replace(4, 4, Le32(153391682));
    ASSERT_EQ(Open(file), 7);
    EXPECT_EQ(Append(), -4);
    ZBESCODE(0);
    EXPECT_EQ(ReadFile("a.dbf"), file);
}

// ---- updating ----

TEST_F(DataRecord, AnUpdateOfADeletedRecordMakesItLive) {
    ASSERT_EQ(Open(People({Anna, Bert, Cleo})), 0);
    ASSERT_EQ(Get(2), 1);
    EXPECT_EQ(Update(2), 0);
    EXPECT_EQ(number, 2u);
    Bytes live = Bert;
    live[0] = ' ';
    EXPECT_EQ(ReadFile("a.dbf"), People({Anna, live, Cleo}));
}

TEST_F(DataRecord, AnUpdateMakesItsRecordTheCurrentOne) {
    ASSERT_EQ(Open(People({Anna, Bert, Cleo})), 0);
    ASSERT_EQ(Get(1), 0);
    EXPECT_EQ(Update(3), 0);
    EXPECT_EQ(Current(), 3u);
    EXPECT_EQ(ReadFile("a.dbf"), People({Anna, Bert, Anna}));
}

TEST_F(DataRecord, AnUpdateOfRecord0IsRefused) {
    Bytes file = People({Anna});
    ASSERT_EQ(Open(file), 0);
    ASSERT_EQ(Get(1), 0);
    StartLog();
    EXPECT_EQ(Update(0), -4);
    EXPECT_EQ(Log(), (std::vector<LogEntry>{{"Drput", -4}}));
    ZBESCODE(0);
    EXPECT_EQ(Current(), 0u);
    EXPECT_EQ(ReadFile("a.dbf"), file);
}

TEST_F(DataRecord, AnUpdateBeyondTheEndExtendsTheFileAndNotTheCount) {
    ASSERT_EQ(Open(People({Anna})), 0);
    ASSERT_EQ(Get(1), 0);
    EXPECT_EQ(Update(4), 0);
    EXPECT_EQ(Count(), 1u);
    EXPECT_EQ(ReadFile("a.dbf"), People({Anna}) + Fill(27) + Anna);
    EXPECT_EQ(Get(4), -4);
}

TEST_F(DataRecord, AnUpdateBeyond31BitsIsRefused) {
    Bytes file = People({Anna});
    ASSERT_EQ(Open(file), 0);
    // The first that would not end within 31 bits, and one that wraps into the header.
    for (uint32_t beyond : {153391683u, 306783373u, 0x80000000u, 0xFFFFFFFFu}) {
        EXPECT_EQ(Update(beyond), -4) << beyond;
        ZBESCODE(0);
        EXPECT_EQ(Current(), beyond);
    }
    EXPECT_EQ(ReadFile("a.dbf"), file);
}

TEST_F(DataRecord, AnyOtherModeIsRefusedAndWritesNothing) {
    Bytes file = People({Anna});
    ASSERT_EQ(Open(file), 0);
    ASSERT_EQ(Get(1), 0);
    for (int mode : {1, 2, 255, 257, 512, 0xFF00, 0xFFFF}) {
        StartLog();
        number = 1;
        EXPECT_EQ(ZBDDRPUT(Data(), &number, static_cast<uint16_t>(mode)), -12) << mode;
        EXPECT_EQ(Log(), (std::vector<LogEntry>{{"Drput", -12}}));
        ZBESCODE(0);
        EXPECT_EQ(number, 1u);
    }
    ASSERT_EQ(Close(), 0);
    EXPECT_EQ(ReadFile("a.dbf"), file);
}

TEST_F(DataRecord, AReadOnlyFileTakesNoPut) {
    Bytes file = AllTypes({"*abc19960229 12.50T        77xy"});
    ASSERT_EQ(Open(file, ZB_ReadOnly), 0);
    ASSERT_EQ(Get(1), 1);
    Bytes before = Buffer();
    Bytes image = Image(' ', "new", "02/28/96", 12.5, 'F', 78, "zz");
    for (int mode : {0, 256, 1}) {
        StartLog();
        number = 1;
        EXPECT_EQ(ZBDDRPUTX(Data(), image.data(), &number, static_cast<uint16_t>(mode)), -36);
        EXPECT_EQ(Log(), (std::vector<LogEntry>{{"Drput", -36}}));
        ZBESCODE(0);
    }
    EXPECT_EQ(Buffer(), before);
    EXPECT_EQ(Count(), 1u);
    EXPECT_EQ(ZBDDRDEL(Data(), 9), -36);
    ZBESCODE(0);
    StartLog();
    EXPECT_EQ(ZBDDRUNDEL(Data(), 1), -36);
    EXPECT_EQ(Log(), (std::vector<LogEntry>{{"Drundel", -36}}));
    ZBESCODE(0);
    ASSERT_EQ(Close(), 0);
    EXPECT_EQ(ReadFile("a.dbf"), file);
}

// ---- deleting ----

TEST_F(DataRecord, DeleteAndUndeleteWriteTheFlag) {
    Bytes gone = Anna;
    gone[0] = '*';
    Bytes back = Bert;
    back[0] = ' ';
    ASSERT_EQ(Open(People({Anna, Bert})), 0);
    EXPECT_EQ(ZBDDRDEL(Data(), 1), 0);
    EXPECT_EQ(ReadFile("a.dbf"), People({gone, Bert}));
    EXPECT_EQ(Current(), 1u);
    EXPECT_EQ(Buffer(), gone);
    EXPECT_EQ(ZBDDRUNDEL(Data(), 2), 0);
    EXPECT_EQ(ZBECODE(), 0);
    EXPECT_EQ(ReadFile("a.dbf"), People({gone, back}));
    EXPECT_EQ(Current(), 2u);
    EXPECT_EQ(Buffer(), back);
}

TEST_F(DataRecord, DeletingADeletedRecordWritesNothingAndChangesTheDate) {
    Bytes file = People({Anna, Bert});
    file[1] = 99;
    ASSERT_EQ(Open(file), 0);
    EXPECT_EQ(ZBDDRDEL(Data(), 2), 0);
    EXPECT_EQ(ZBECODE(), 0);
    EXPECT_EQ(ReadFile("a.dbf"), file);
    EXPECT_EQ(Current(), 2u);
    ASSERT_EQ(Close(), 0);
    Bytes after = ReadFile("a.dbf");
    EXPECT_NE(after[1], 99);
    after[1] = 99;
    EXPECT_EQ(after, file);
}

TEST_F(DataRecord, UndeletingALiveRecordWritesNothingAndChangesTheDate) {
    Bytes file = People({Anna});
    file[1] = 99;
    ASSERT_EQ(Open(file), 0);
    EXPECT_EQ(ZBDDRUNDEL(Data(), 1), 0);
    EXPECT_EQ(ReadFile("a.dbf"), file);
    ASSERT_EQ(Close(), 0);
    EXPECT_NE(ReadFile("a.dbf", 1, 1), "\x63");
}

TEST_F(DataRecord, AFlagThatIsNeitherIsReplacedByBoth) {
    Bytes odd = Anna, gone = Anna;
    odd[0] = 'X';
    gone[0] = '*';
    ASSERT_EQ(Open(People({odd, odd})), 0);
    EXPECT_EQ(ZBDDRDEL(Data(), 1), 0);
    EXPECT_EQ(ZBDDRUNDEL(Data(), 2), 0);
    EXPECT_EQ(ReadFile("a.dbf"), People({gone, Anna}));
}

TEST_F(DataRecord, DeletingOutsideTheRecordCountIsRefused) {
    Bytes file = People({Anna});
    ASSERT_EQ(Open(file), 0);
    for (int32_t outside : {0, 2, -1}) {
        StartLog();
        EXPECT_EQ(ZBDDRDEL(Data(), outside), -4);
        EXPECT_EQ(Log(), (std::vector<LogEntry>{{"Drdel", -4}}));
        ZBESCODE(0);
        EXPECT_EQ(ZBDDRUNDEL(Data(), outside), -4);
        ZBESCODE(0);
    }
    EXPECT_EQ(Current(), 0u);
    ASSERT_EQ(Close(), 0);
    EXPECT_EQ(ReadFile("a.dbf"), file);
}

TEST_F(DataRecord, DeletingARecordThatCantBeReadChangesNothing) {
    Bytes file = People({Anna, Bert}).substr(0, 97 + 20);
    ASSERT_EQ(Open(file), 7);
    StartLog();
    EXPECT_EQ(ZBDDRDEL(Data(), 2), -2);
    EXPECT_EQ(Log(), (std::vector<LogEntry>{{"DataRead", -2}, {"Drdel", -2}}));
    ZBESCODE(0);
    EXPECT_EQ(ZBDDRUNDEL(Data(), 2), -2);
    ZBESCODE(0);
    ASSERT_EQ(Close(), 0);
    EXPECT_EQ(ReadFile("a.dbf"), file);
}

// ---- the buffer ----

TEST_F(DataRecord, ClearFillsTheBufferAndKeepsTheCurrentRecord) {
    ASSERT_EQ(Open(People({Anna, Bert})), 0);
    ASSERT_EQ(Get(2), 1);
    EXPECT_EQ(ZBDDRCLEAR(Data()), 0);
    EXPECT_EQ(Buffer(), Fill(14, ' '));
    EXPECT_EQ(Current(), 2u);
}

TEST_F(DataRecord, ThePlaceOfTheBufferIsToldByAddressAndByHandle) {
    ASSERT_EQ(Open(People({Anna})), 0);
    ASSERT_EQ(Get(1), 0);
    ZbDataRecordInfo byAddress, byHandle;
    ASSERT_EQ(ZBDDRINFO(Data(), &byAddress), 0);
    ASSERT_EQ(ZBDDRINFOH(Data(), &byHandle), 0);
    EXPECT_EQ(byAddress.recordLength, 14);
    EXPECT_EQ(byAddress.fieldCount, 2);
    EXPECT_EQ(byHandle.recordLength, 14);
    EXPECT_EQ(byHandle.fieldCount, 2);
    void* address = nullptr;
    ASSERT_EQ(_ZBMLOCK(&address, static_cast<ZbBlock>(byHandle.buffer)), 0);
    EXPECT_EQ(reinterpret_cast<uintptr_t>(address), byAddress.buffer);
    // The record is followed by zeros.
    EXPECT_EQ(Bytes(static_cast<char*>(address), 14 + 128), Anna + Fill(128));
}

TEST_F(DataRecord, ABufferThatTheHostMovedIsFoundAgain) {
    ASSERT_EQ(Open(People({Anna})), 0);
    ZbDataRecordInfo info;
    ASSERT_EQ(ZBDDRINFOH(Data(), &info), 0);
    auto block = static_cast<ZbBlock>(info.buffer);
    ASSERT_EQ(_ZBMRALLOC(&block, 1000000), 0);
    EXPECT_EQ(Get(1), 0);
    EXPECT_EQ(Buffer(), Anna);
}

TEST_F(DataRecord, ABufferThatTheHostFreedFailsTheBind) {
    ASSERT_EQ(Open(People({Anna})), 0);
    ZbDataRecordInfo info;
    ASSERT_EQ(ZBDDRINFOH(Data(), &info), 0);
    ASSERT_EQ(_ZBMFREE(static_cast<ZbBlock>(info.buffer)), 0);
    StartLog();
    EXPECT_EQ(Get(1), -58);
    EXPECT_EQ(Log(), (std::vector<LogEntry>{{"Mglock", -58}, {"Dslock", -58}, {"Drget", -58}}));
}

TEST_F(DataRecord, ABufferThatTheHostMadeTooSmallFailsTheBind) {
    ASSERT_EQ(Open(Dbf(3, 4001, {DbfField("T", 'C', 4000 & 255, 4000 >> 8)}, {' ' + Fill(4000, 'x')})), 0);
    ZbDataRecordInfo info;
    ASSERT_EQ(ZBDDRINFOH(Data(), &info), 0);
    auto block = static_cast<ZbBlock>(info.buffer);
    ASSERT_EQ(_ZBMRALLOC(&block, 4000), 0);
    StartLog();
    EXPECT_EQ(Get(1), -58);
    EXPECT_EQ(Log(), (std::vector<LogEntry>{{"Mglock", -58}, {"Dslock", -58}, {"Drget", -58}}));
    ZBESCODE(0);
    ASSERT_EQ(_ZBMRALLOC(&block, 4001), 0);
    EXPECT_EQ(Get(1), 0);
    EXPECT_EQ(Buffer(), ' ' + Fill(4000, 'x'));
}

TEST_F(DataRecord, FlushReturns8ForAnyHandleAndOverAFailure) {
    ASSERT_EQ(Open(People({Anna})), 0);
    StartLog();
    EXPECT_EQ(ZBDDFLUSH(Data()), 8);
    EXPECT_EQ(ZBECODE(), 8);
    EXPECT_EQ(ZBDDFLUSH(-1), 8);
    EXPECT_EQ(ZBDDFLUSH(94), 8);
    ZBESCODE(-33);
    EXPECT_EQ(ZBDDFLUSH(Data()), 8);
    EXPECT_EQ(ZBECODE(), 8);
    EXPECT_TRUE(Log().empty());
}

}  // namespace
}  // namespace test
