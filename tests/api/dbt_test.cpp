// .DBT memo files.
#include <cstring>
#include <map>
#include <random>

#include "support/memo.h"
#include "support/system.h"

using namespace test;

namespace {

class Dbt : public DbtTest {};

const std::string End = Hex("1A 1A");
const std::string Soft = Hex("8D 0A");

// ---- creation ----

TEST_F(Dbt, ANewTerminatedFileHolds513BytesAndTheFirstMemoOverwritesItsEndMark) {
    ASSERT_EQ(ZBDTCREATE("memo.dbt"), 0);
    EXPECT_EQ(ReadFile("memo.dbt"), Hex("01 00 00 00") + Fill(508) + Hex("1A"));
    int16_t memo = Open(1);
    EXPECT_EQ(Put(memo, "Hi"), 1);
    EXPECT_EQ(ReadFile("memo.dbt"), Hex("02 00 00 00") + Fill(508) + "Hi" + End);
}

TEST_F(Dbt, EveryTerminatedDialectMakesTheSameFile) {
    for (int16_t dialect : {1, 3, 5, 6, 7, 66}) {
        ASSERT_EQ(ZBDTCREATEX("memo.dbt", 32, dialect), 0);
        EXPECT_EQ(ReadFile("memo.dbt"), Hex("01 00 00 00") + Fill(508) + Hex("1A")) << dialect;
    }
}

TEST_F(Dbt, ANewCountedFileIsItsHeaderBlockAndAnEndMark) {
    ASSERT_EQ(ZBDTCREATEX("notes.dbt", 1, 2), 0);
    EXPECT_EQ(ReadFile("notes.dbt"), Hex("01 00 00 00  00 00 00 00  4E 4F 54 45 53 00 00 00  00 00 02 01"
                                         "00 02 00 00") +
                                         Fill(488) + Hex("1A"));
    ASSERT_EQ(ZBDTCREATEX("notes.dbt", 32, 2), 0);
    Bytes large = ReadFile("notes.dbt");
    EXPECT_EQ(large.size(), 16385u);
    EXPECT_EQ(large.substr(16, 8), Hex("00 00 02 01 00 40 00 00"));
    EXPECT_EQ(large.substr(24), Fill(16360) + Hex("1A"));
}

TEST_F(Dbt, TheNameInACountedHeaderIsThePathAsGivenUpToItsFirstPoint) {
    auto name = [](const char* path) {
        EXPECT_EQ(ZBDTCREATEX(path, 1, 2), 0);
        return ReadFile(path, 8, 8);
    };
    EXPECT_EQ(name("longername.dbt"), "LONGERNA");
    EXPECT_EQ(name("eight__8.dbt"), "EIGHT__8");
    EXPECT_EQ(name("a.b.c"), "A" + Fill(7));
    EXPECT_EQ(name("./memo.dbt"), Fill(8));
    EXPECT_EQ(name("/tmp/zb-memo-name.dbt"), "/TMP/ZB-");
    std::remove("/tmp/zb-memo-name.dbt");
    EXPECT_EQ(name("\xE4z{"), "\xE4Z{" + Fill(5));
}

TEST_F(Dbt, CreationChecksInItsOrder) {
    ZBESCODE(-6);
    EXPECT_EQ(ZBDTCREATEX(nullptr, 0, 0), -6);
    ZBESCODE(0);
    EXPECT_EQ(ZBDTCREATEX(nullptr, 0, 0), -21);
    ZBESCODE(0);
    EXPECT_EQ(ZBDTCREATEX("", 0, 0), -49);
    ZBESCODE(0);
    EXPECT_EQ(ZBDTCREATEX("x.dbt", 33, 1), -49);
    EXPECT_FALSE(FileExists("x.dbt"));
    ZBESCODE(0);
    EXPECT_EQ(ZBDTCREATEX("", 1, 4), -14);
    ZBESCODE(0);
    EXPECT_EQ(ZBDTCREATEX("no/such/directory", 1, 4), -46);
}

TEST_F(Dbt, AnUnknownDialectLeavesAnEmptyFile) {
    for (int16_t dialect : {0, 4, 8, 9, 65, 67, 258, -1}) {
        WriteFile("x.dbt", "something");
        EXPECT_EQ(ZBDTCREATEX("x.dbt", 1, dialect), -18) << dialect;
        EXPECT_TRUE(FileExists("x.dbt"));
        EXPECT_EQ(FileSize("x.dbt"), 0u);
        ZBESCODE(0);
    }
}

TEST_F(Dbt, ACreationClearsAWarning) {
    ZBESCODE(4);
    EXPECT_EQ(ZBDTCREATE("memo.dbt"), 0);
    EXPECT_EQ(ZBECODE(), 0);
}

// ---- open and close ----

TEST_F(Dbt, OpenTellsWhatItGot) {
    ASSERT_EQ(ZBDTCREATE("memo.dbt"), 0);
    ZbDbtInfo info;
    auto flags = [&](int mode) {
        int16_t memo = Open(mode);
        memset(&info, 0xFF, sizeof info);
        EXPECT_EQ(ZBDTINFO(memo, &info), 0);
        EXPECT_EQ(ZBDTCLOSE(memo), 0);
        return info.flags;
    };
    EXPECT_EQ(flags(0), 0);
    EXPECT_EQ(+info.dialect, 1);
    EXPECT_EQ(+info.reported, 0);
    EXPECT_STREQ(info.path, "memo.dbt");
    EXPECT_EQ(flags(3 | ZB_ReadOnly), 1);
    EXPECT_EQ(+info.dialect, 3);
    EXPECT_EQ(flags(66 | ZB_Shared), 2);
    EXPECT_EQ(+info.dialect, 66);
    EXPECT_EQ(flags(ZB_OpenShared), 2);
    EXPECT_EQ(flags(ZB_OpenShared | ZB_ReadOnly), 3);
    static_assert(sizeof(ZbDbtInfo) == 267);
}

TEST_F(Dbt, AnOpenThatCannotWriteIsReadOnlyAndShared) {
    int16_t first = Make(1);
    int16_t second = -2;
    ASSERT_EQ(ZBDTCLOSE(first), 0);
    first = Open(1 | ZB_Shared);
    ASSERT_EQ(ZBDTOPENX(&second, "memo.dbt", 1), 0);
    ZbDbtInfo info;
    ASSERT_EQ(ZBDTINFO(second, &info), 0);
    EXPECT_EQ(+info.flags, 3);
    EXPECT_EQ(Put(second, "x"), -7);
    EXPECT_EQ(ZBECODE(), -36);
}

TEST_F(Dbt, OpenChecksTheHeader) {
    Bytes good = Hex("01 00 00 00  00 00 00 00  4E 4F 54 45 53 00 00 00  00 00 02 01  00 02 00 00") +
                 Fill(488) + Hex("1A");
    auto code = [&](size_t offset, const char* patch, int mode = 2, size_t size = SIZE_MAX) {
        WriteFile("memo.dbt", good.substr(0, size));
        PatchFile("memo.dbt", offset, Hex(patch));
        int16_t memo = 77;
        int32_t result = ZBDTOPENX(&memo, "memo.dbt", static_cast<uint16_t>(mode));
        EXPECT_EQ(memo < 0, result < 0);
        if (result < 0) {
            EXPECT_EQ(memo, -1);
        } else {
            EXPECT_EQ(ZBDTCLOSE(memo), 0);
        }
        ZBESCODE(0);
        return result;
    };
    EXPECT_EQ(code(20, "00 02"), 0);
    EXPECT_EQ(code(20, "00 40"), 0);
    EXPECT_EQ(code(20, "01 40"), -49);  // 16385
    EXPECT_EQ(code(20, "FF 01"), -49);  // 511
    EXPECT_EQ(code(20, "01 02"), 0);    // 513
    EXPECT_EQ(code(20, "00 80"), -49);
    EXPECT_EQ(code(18, "03"), -56);
    EXPECT_EQ(code(19, "02"), -56);
    EXPECT_EQ(code(22, "01"), -56);
    EXPECT_EQ(code(23, "01"), -56);
    EXPECT_EQ(code(18, "03 02 00 00"), -49);      // the block size comes first
    EXPECT_EQ(code(18, "03 02 00 00 01", 1), 0);  // and none of it counts without a counted layout
    EXPECT_EQ(code(0, "01", 2, 24), 0);
    EXPECT_EQ(code(0, "01", 2, 23), -17);
    EXPECT_EQ(code(0, "01", 1, 23), -17);
    for (int dialect : {4, 8, 9, 10, 65, 67, 255}) EXPECT_EQ(code(0, "01", dialect, 23), -18) << dialect;
}

TEST_F(Dbt, OpenRefusesWhatItCannotUse) {
    ASSERT_EQ(ZBDTCREATE("memo.dbt"), 0);
    int16_t memo = 77;
    ZBESCODE(-6);
    EXPECT_EQ(ZBDTOPENX(nullptr, nullptr, 1), -6);
    EXPECT_EQ(ZBDTOPENX(&memo, "memo.dbt", 1), -6);
    ZBESCODE(0);
    EXPECT_EQ(ZBDTOPENX(&memo, nullptr, 1), -21);
    ZBESCODE(0);
    EXPECT_EQ(ZBDTOPENX(nullptr, "memo.dbt", 1), -21);
    EXPECT_EQ(memo, 77);
    ZBESCODE(0);
    EXPECT_EQ(ZBDTOPENX(&memo, "missing.dbt", 1), -46);
    EXPECT_EQ(memo, -1);
    ZBESCODE(0);
    EXPECT_EQ(ZBDTOPENX(&memo, "", 1), -14);
    ZBESCODE(0);
    memo = Open(1);
    EXPECT_EQ(memo, 0);  // no slot was left taken
}

TEST_F(Dbt, ANameOf260BytesOpensAndOneOf261IsRefusedOnceItsHeaderIsRead) {
    ASSERT_EQ(ZBDTCREATEX("memo.dbt", 1, 2), 0);
    int16_t memo = Open(2, LongName("memo.dbt", 260).c_str());
    ZbDbtInfo info;
    ASSERT_EQ(ZBDTINFO(memo, &info), 0);
    EXPECT_EQ(std::string(info.path), LongName("memo.dbt", 260));
    ASSERT_EQ(ZBDTCLOSE(memo), 0);

    if (!OpensLongNames()) return;
    std::string name = LongName("memo.dbt", 261);
    auto refusal = [&](const std::string& path, uint16_t mode) {
        int32_t code = ZBDTOPENX(&memo, path.c_str(), mode);
        EXPECT_EQ(memo, -1);
        ZBESCODE(0);
        return code;
    };
    EXPECT_EQ(refusal(name, 2), -14);
    PatchFile("memo.dbt", 20, Hex("01 00"));
    EXPECT_EQ(refusal(name, 2), -14);
    EXPECT_EQ(refusal("memo.dbt", 2), -49);
    EXPECT_EQ(refusal(name, 4), -18);
    WriteFile("memo.dbt", Fill(23));
    EXPECT_EQ(refusal(name, 2), -17);
    EXPECT_EQ(refusal(LongName("missing.dbt", 261), 2), -46);
}

TEST_F(Dbt, OpenWithoutAFreeSlotStoresMinusOne) {
    ASSERT_EQ(ZBDINIT(5, 1), 0);
    ASSERT_EQ(ZBDTCREATE("memo.dbt"), 0);
    int16_t memo = 77;
    EXPECT_EQ(ZBDTOPENX(&memo, "memo.dbt", 1), -8);
    EXPECT_EQ(memo, -1);
}

TEST_F(Dbt, AClosedHandleIsNoHandle) {
    int16_t memo = Make(1);
    EXPECT_EQ(ZBDTCLOSE(memo), 0);
    EXPECT_EQ(ZBDTCLOSE(memo), -13);
    ZBESCODE(0);
    EXPECT_EQ(Open(1), memo);
}

TEST_F(Dbt, EveryCallRefusesAHandleThatIsNotItsOwn) {
    int16_t memo = Make(1);
    ASSERT_EQ(ZBDWCREATE("other.fpt", 1), 0);
    int16_t other = -1;
    ASSERT_EQ(ZBDWOPENX(&other, "other.fpt", 0), 0);
    for (int16_t handle : {other, int16_t{-1}, int16_t{2}, int16_t{95}, int16_t{32767}}) {
        void* text = this;
        ZbBlock block = 5;
        ZbDbtInfo info;
        auto refused = [](int32_t code) {
            ZBESCODE(0);
            return code == -13;
        };
        EXPECT_TRUE(refused(ZBDTCLOSE(handle)));
        EXPECT_TRUE(refused(ZBDTHGET(handle)));
        EXPECT_TRUE(refused(ZBDTRGET(handle, 1, &text, 0)));
        EXPECT_EQ(text, nullptr);
        EXPECT_TRUE(refused(ZBDTRGETH(handle, 1, &block, 0)));
        EXPECT_EQ(block, 0xFFFFFFFFu);
        EXPECT_EQ(Put(handle, "x"), -7);
        EXPECT_TRUE(refused(ZBECODE()));
        EXPECT_TRUE(refused(ZBDTINFO(handle, &info)));
    }
    EXPECT_EQ(ZBDWCLOSE(memo), -13);
}

TEST_F(Dbt, NullPointersComeBeforeThePendingCode) {
    int16_t memo = Make(1);
    int32_t block = 1;
    auto refused = [](int32_t code) {
        bool right = code == -21 && ZBECODE() == -21;
        ZBESCODE(-6);
        return right;
    };
    ZBESCODE(-6);
    EXPECT_TRUE(refused(ZBDTRGET(memo, 1, nullptr, 0)));
    EXPECT_TRUE(refused(ZBDTRGETH(memo, 1, nullptr, 0)));
    EXPECT_TRUE(refused(ZBDTRPUT(memo, nullptr, "x", 0)));
    EXPECT_TRUE(refused(ZBDTRPUT(memo, &block, nullptr, 0)));
    EXPECT_TRUE(refused(ZBDTINFO(memo, nullptr)));
}

TEST_F(Dbt, APendingCodeStopsEveryCall) {
    int16_t memo = Make(1);
    ASSERT_EQ(Put(memo, "x"), 1);
    ZBESCODE(-6);
    int32_t block = 9;
    void* text = this;
    ZbBlock handle = 5;
    ZbDbtInfo info;
    info.dialect = 99;
    EXPECT_EQ(ZBDTCREATE("other.dbt"), -6);
    EXPECT_FALSE(FileExists("other.dbt"));
    EXPECT_EQ(ZBDTHGET(memo), -6);
    EXPECT_EQ(ZBDTRGET(memo, 1, &text, 0), -6);
    EXPECT_EQ(text, nullptr);
    EXPECT_EQ(ZBDTRGETH(memo, 1, &handle, 0), -6);
    EXPECT_EQ(handle, 0xFFFFFFFFu);
    EXPECT_EQ(ZBDTRPUT(memo, &block, "y", 0), -6);
    EXPECT_EQ(block, 9);
    EXPECT_EQ(ZBDTINFO(memo, &info), -6);
    EXPECT_EQ(+info.dialect, 99);
    EXPECT_EQ(ZBDTCLOSE(memo), -6);
    ZBESCODE(0);
    EXPECT_EQ(Get(memo, 1), "x");
}

TEST_F(Dbt, FailuresAreLoggedUnderTheNamesOfTheOperations) {
    int16_t memo = Make(1);
    StartLog();
    auto log = [&](int32_t) {
        auto entries = Log();
        std::string units;
        for (auto& entry : entries) units += (units.empty() ? "" : " ") + entry.unit;
        ZBESCODE(0);
        StartLog();
        return units;
    };
    void* text;
    ZbDbtInfo info;
    int32_t block = 1;
    EXPECT_EQ(log(ZBDTCREATEX("x", 0, 1)), "Tcreate");
    EXPECT_EQ(log(ZBDTOPENX(&memo, nullptr, 1)), "Topen");
    EXPECT_EQ(log(ZBDTHGET(9)), "Tslock Thget");
    EXPECT_EQ(log(ZBDTRGET(9, 1, &text, 0)), "Tslock Trget");
    EXPECT_EQ(log(ZBDTRGET(memo, 0, &text, 0)), "Trget");
    EXPECT_EQ(log(ZBDTRPUT(9, &block, "", 0)), "Tslock Trput");
    EXPECT_EQ(log(ZBDTRPUT(memo, &block, "", 1)), "Trput");
    EXPECT_EQ(log(ZBDTINFO(9, &info)), "Tslock Tinfo");
    EXPECT_EQ(log(ZBDTPACK(9, nullptr)), "Tpack");
    EXPECT_EQ(log(ZBDTINFO(memo, nullptr)), "Tinfo");
}

TEST_F(Dbt, AfterAQuickCloseTheFileIsLost) {
    int16_t memo = Make(1);
    EXPECT_EQ(ZBDQCLOSE(), 0);
    EXPECT_EQ(ZBDTHGET(memo), -46);
    ZBESCODE(0);
    EXPECT_EQ(ZBDTCLOSE(memo), -46);
    EXPECT_EQ(ZBDTERM(), 0);
    ASSERT_EQ(ZBDINIT(100, 1), 0);
    EXPECT_EQ(Open(1), 0);
}

TEST_F(Dbt, StoppingTheLibraryClosesMemoFiles) {
    Make(1);
    EXPECT_EQ(ZBDTERM(), 0);
    ASSERT_EQ(ZBDINIT(100, 1), 0);
    int16_t memo = Open(1);
    ZbDbtInfo info;
    ASSERT_EQ(ZBDTINFO(memo, &info), 0);
    EXPECT_EQ(+info.flags, 0);  // exclusive: nobody else has it open
}

// ---- reading ----

TEST_F(Dbt, BlockZeroGivesMinusFourAndTheFileSizeInBytesIsTheOtherBound) {
    int16_t memo = Make(1);
    ASSERT_EQ(Put(memo, "Hi"), 1);  // the file has 516 bytes
    EXPECT_EQ(Get(memo, 0), "<-4>");
    ZBESCODE(0);
    EXPECT_EQ(Get(memo, -1), "<-4>");
    ZBESCODE(0);
    EXPECT_EQ(Get(memo, 517), "<-4>");
    ZBESCODE(0);
    EXPECT_EQ(Get(memo, 516), "<-6>");  // far beyond the end, and yet in range
    ZBESCODE(0);
    EXPECT_EQ(Get(memo, INT32_MAX), "<-4>");
    ZBESCODE(0);
    EXPECT_EQ(Get(memo, 1), "Hi");
}

TEST_F(Dbt, ATerminatedMemoEndsAtTheFirstMarkOrNotAtAll) {
    int16_t memo = Make(1);
    auto stored = [&](const Bytes& bytes) {
        WriteFile("memo.dbt", Hex("02 00 00 00") + Fill(508) + bytes);
        std::string text = Get(memo, 1);
        ZBESCODE(0);
        return text;
    };
    EXPECT_EQ(stored("Hi" + Hex("1A") + "there"), "Hi");
    EXPECT_EQ(stored(Hex("1A")), "");
    EXPECT_EQ(stored(""), "<-6>");
    EXPECT_EQ(stored("Hi"), "<-6>");
    EXPECT_EQ(stored(Text(512)), "<-6>");
    EXPECT_EQ(stored(Text(511) + Hex("1A")), Text(511));
    EXPECT_EQ(stored(Text(512) + Hex("1A")), Text(512));
    EXPECT_EQ(stored(Text(1536) + Hex("1A")), Text(1536));
    EXPECT_EQ(stored(Text(40000) + Hex("1A")), Text(40000));
    EXPECT_EQ(stored(Text(65535) + Hex("1A")), Text(65535));
    EXPECT_EQ(stored(Text(65536) + Hex("1A")), "<-29>");
    EXPECT_EQ(stored(Text(65536)), "<-6>");  // the end of the file is seen within the last pass
    EXPECT_EQ(stored("a" + Fill(1) + "b" + Hex("1A")), "a");
}

TEST_F(Dbt, ACountedMemoIsAsLongAsItsHeaderSays) {
    int16_t memo = Make(2);
    auto stored = [&](const Bytes& bytes) {
        PatchFile("memo.dbt", 512, bytes);
        std::string text = Get(memo, 1);
        ZBESCODE(0);
        return text;
    };
    EXPECT_EQ(stored(Hex("12 34 56 78 0A 00 00 00") + "Hi"), "Hi");  // the marks aren't looked at
    EXPECT_EQ(stored(Hex("FF FF 08 00 08 00 00 00")), "");
    EXPECT_EQ(stored(Hex("FF FF 08 00 07 00 00 00")), "<-6>");
    EXPECT_EQ(stored(Hex("FF FF 08 00 00 00 00 00")), "<-6>");
    EXPECT_EQ(stored(Hex("FF FF 08 00 FF FF FF FF")), "<-6>");
    EXPECT_EQ(stored(Hex("FF FF 08 00 00 00 00 80")), "<-6>");
    EXPECT_EQ(stored(Hex("FF FF 08 00 0B 00 00 00")), "<-2>");  // one more than the file has
    EXPECT_EQ(stored(Hex("FF FF 08 00 FF FF FF 7F")), "<-2>");
    EXPECT_EQ(stored(Hex("FF FF 08 00 0A 00 01 00")), "<-2>");  // whatever its low 16 bits say
    EXPECT_EQ(Get(memo, 2), "<-2>");
    ZBESCODE(0);

    PatchFile("memo.dbt", 512, Hex("FF FF 08 00 07 80 00 00") + Text(40000));
    EXPECT_EQ(Get(memo, 1), Text(32767));
    PatchFile("memo.dbt", 516, Hex("08 80"));
    EXPECT_EQ(Get(memo, 1), "<-2>");
}

TEST_F(Dbt, SoftReturnsStayOrGo) {
    for (int dialect : {1, 2}) {
        int16_t memo = Make(dialect);
        std::string text =
            "one " + Soft + "two" + Hex("8D") + "x three" + Hex("8D 8D") + "four" + Hex("8D 0A 8D 0A");
        ASSERT_EQ(Put(memo, text), 1);
        EXPECT_EQ(Get(memo, 1, 0), text);
        EXPECT_EQ(Get(memo, 1, 0x100), "one two threefour");
        ASSERT_EQ(Put(memo, "end" + Hex("8D")), 2);
        EXPECT_EQ(Get(memo, 2, 0x100), "end");
        ASSERT_EQ(Put(memo, Hex("8D 0A")), 3);
        EXPECT_EQ(Get(memo, 3, 0x100), "");
        ASSERT_EQ(Put(memo, Hex("8D 8D 8D 0A") + "z"), 4);
        EXPECT_EQ(Get(memo, 4, 0x100), "z");
        EXPECT_EQ(ZBDTCLOSE(memo), 0);
    }
}

TEST_F(Dbt, AnotherReadOptionIsRefusedAfterTheReading) {
    int16_t memo = Make(1);
    ASSERT_EQ(Put(memo, "Hi"), 1);
    for (int16_t option : {1, 0x101, 0x200, -1}) {
        EXPECT_EQ(Get(memo, 1, option), "<-12>");
        ZBESCODE(0);
    }
    EXPECT_EQ(Get(memo, 0, 1), "<-4>");
    ZBESCODE(0);
    PatchFile("memo.dbt", 514, "no");
    EXPECT_EQ(Get(memo, 1, 1), "<-12>");
}

TEST_F(Dbt, TheHandleFormGivesABlockThatTheCallerFrees) {
    int16_t memo = Make(1);
    ASSERT_EQ(Put(memo, "one " + Soft + "two"), 1);
    ZbBlock handle = 0;
    ASSERT_EQ(ZBDTRGETH(memo, 1, &handle, 0x100), 0);
    void* text = nullptr;
    ASSERT_EQ(_ZBMLOCK(&text, handle), 0);
    EXPECT_STREQ(static_cast<char*>(text), "one two");
    EXPECT_EQ(_ZBMFREE(handle), 0);
    EXPECT_EQ(ZBDTRGETH(memo, 0, &handle, 0), -4);
    EXPECT_EQ(handle, 0xFFFFFFFFu);
    ZBESCODE(0);
    EXPECT_EQ(ZBDTRGETH(memo, 1, &handle, 7), -12);
    EXPECT_EQ(handle, 0xFFFFFFFFu);
}

// ---- writing, terminated ----

TEST_F(Dbt, A510ByteTextReservesTwoBlocks) {
    int16_t memo = Make(1);
    EXPECT_EQ(Put(memo, Text(510)), 1);
    EXPECT_EQ(ReadFile("memo.dbt", 0, 4), Hex("03 00 00 00"));
    EXPECT_EQ(FileSize("memo.dbt"), 1024u);
    EXPECT_EQ(Put(memo, Text(509)), 3);
    EXPECT_EQ(Put(memo, ""), 4);
    EXPECT_EQ(Put(memo, Text(1021)), 5);
    EXPECT_EQ(Put(memo, Text(1022)), 7);
    EXPECT_EQ(ReadFile("memo.dbt", 0, 4), Hex("0A 00 00 00"));
}

TEST_F(Dbt, ALongerReplaceMovesTheMemoAndLeavesTheOldOneDead) {
    int16_t memo = Make(1);
    for (unsigned i = 1; i <= 4; i++) ASSERT_EQ(Put(memo, Text(10, i)), static_cast<int32_t>(i));
    ASSERT_EQ(Put(memo, Text(100)), 5);
    ASSERT_EQ(Put(memo, "next"), 6);
    EXPECT_EQ(Replace(memo, 5, Text(600)), 7);
    EXPECT_EQ(Get(memo, 7), Text(600));
    EXPECT_EQ(Get(memo, 5), Text(100));
    EXPECT_EQ(Get(memo, 6), "next");
    EXPECT_EQ(ReadFile("memo.dbt", 0, 4), Hex("09 00 00 00"));
}

TEST_F(Dbt, AWrappedReplaceGoesInPlaceOverWhateverFollows) {
    int16_t memo = Make(1);
    for (unsigned i = 1; i <= 4; i++) ASSERT_EQ(Put(memo, Text(10, i)), static_cast<int32_t>(i));
    ASSERT_EQ(Put(memo, Text(100)), 5);
    ASSERT_EQ(Put(memo, "next"), 6);
    std::string words;
    for (int i = 0; i < 60; i++) words += "nine-char ";
    ASSERT_EQ(words.size(), 600u);
    std::string wrapped;
    for (int i = 0; i < 15; i++) wrapped += std::string(i ? Soft : "") + words.substr(0, 40);
    EXPECT_EQ(Replace(memo, 5, words, 40), 5);
    EXPECT_EQ(ZBECODE(), 0);
    EXPECT_EQ(ReadFile("memo.dbt", 5 * 512), wrapped + End);
    EXPECT_EQ(Get(memo, 5, 0x100), words);
    EXPECT_EQ(Get(memo, 6), wrapped.substr(512));  // the tail of block 5's text
    EXPECT_EQ(ReadFile("memo.dbt", 0, 4), Hex("07 00 00 00"));
}

TEST_F(Dbt, ATextOfAtMost510BytesReplacesAnyMemoInPlace) {
    int16_t memo = Make(1);
    ASSERT_EQ(Put(memo, ""), 1);
    EXPECT_EQ(Replace(memo, 1, Text(510)), 1);
    EXPECT_EQ(ReadFile("memo.dbt", 512), Text(510) + End);
    EXPECT_EQ(Replace(memo, 1, "x"), 1);
    EXPECT_EQ(ReadFile("memo.dbt", 512), "x" + End + Text(510).substr(3) + End);
    EXPECT_EQ(ReadFile("memo.dbt", 0, 4), Hex("02 00 00 00"));
}

TEST_F(Dbt, AReplaceComparesTheBlocksOfTheOldTextWithoutItsMarksAndOfTheNewWithThem) {
    int16_t memo = Make(1);
    auto moves = [&](size_t old, size_t fresh) {
        int32_t block = Put(memo, Text(old));
        return Replace(memo, block, Text(fresh)) != block;
    };
    EXPECT_TRUE(moves(510, 511));
    EXPECT_TRUE(moves(512, 511));
    EXPECT_TRUE(moves(512, 512));
    EXPECT_FALSE(moves(513, 511));
    EXPECT_FALSE(moves(513, 1022));
    EXPECT_TRUE(moves(513, 1023));
    EXPECT_FALSE(moves(1025, 1534));
    EXPECT_FALSE(moves(5000, 0));
    EXPECT_EQ(ZBECODE(), 0);
}

TEST_F(Dbt, TheScanOfAnOldMemoStopsAtTheEndOfTheFile) {
    int16_t memo = Make(1);
    WriteFile("memo.dbt", Hex("02 00 00 00") + Fill(508) + Text(1100));
    EXPECT_EQ(Replace(memo, 1, Text(1500)), 1);
    EXPECT_EQ(ZBECODE(), 0);
    WriteFile("memo.dbt", Hex("04 00 00 00") + Fill(508) + Text(1024));
    EXPECT_EQ(Replace(memo, 1, Text(1500)), 4);
    EXPECT_EQ(Replace(memo, 100, Text(1500)), 7);  // beyond the end: no old text at all
    EXPECT_EQ(ZBECODE(), 0);
}

TEST_F(Dbt, TheScanOfAnOldMemoCountsIn16Bits) {
    int16_t memo = Make(1);
    WriteFile("memo.dbt", Hex("00 01 00 00") + Fill(508) + Text(65536 + 600) + End);
    EXPECT_EQ(Replace(memo, 1, Text(1000)), 1);  // counts as 600, two blocks
    WriteFile("memo.dbt", Hex("00 01 00 00") + Fill(508) + Text(65536 + 500) + End);
    EXPECT_EQ(Replace(memo, 1, Text(1000)), 256);
    WriteFile("memo.dbt", Hex("00 01 00 00") + Fill(508) + Text(50000) + End);
    EXPECT_EQ(Replace(memo, 1, Text(32765)), 1);
    EXPECT_EQ(ZBECODE(), 0);
}

TEST_F(Dbt, ATextOf32766BytesCountsAsFittingAnyMemo) {
    int16_t memo = Make(1);
    ASSERT_EQ(Put(memo, "one"), 1);
    ASSERT_EQ(Put(memo, "two"), 2);
    EXPECT_EQ(Replace(memo, 1, Text(32765)), 3);
    EXPECT_EQ(Replace(memo, 1, Text(32766)), 1);
    EXPECT_EQ(Get(memo, 1), Text(32766));
    EXPECT_EQ(Get(memo, 2), Text(32766).substr(512));
    EXPECT_EQ(Replace(memo, 1, Text(32767, 1)), 1);
    EXPECT_EQ(Get(memo, 1), Text(32767, 1));
}

TEST_F(Dbt, TheLongestTextThatCanBeWritten) {
    for (int dialect : {1, 2}) {
        int16_t memo = Make(dialect);
        EXPECT_EQ(Put(memo, Text(32766)), 1);
        int32_t block = Put(memo, Text(32767));
        EXPECT_EQ(ZBECODE(), 0);
        EXPECT_EQ(Get(memo, 1), Text(32766));
        EXPECT_EQ(Get(memo, block), Text(32767));
        Bytes before = ReadFile("memo.dbt");
        for (size_t length : {32768u, 65534u, 65536u, 70000u}) {
            EXPECT_EQ(Put(memo, Text(length)), static_cast<int32_t>(before.size()));  // no block
            EXPECT_EQ(ZBECODE(), -1);
            ZBESCODE(0);
            EXPECT_EQ(ReadFile("memo.dbt", 0, before.size()), before);
            EXPECT_EQ(Replace(memo, 1, Text(length)), 1);
            EXPECT_EQ(ZBECODE(), -1);
            ZBESCODE(0);
            EXPECT_EQ(Get(memo, block), Text(32767));
            WriteFile("memo.dbt", before);
        }
        EXPECT_EQ(ZBDTCLOSE(memo), 0);
    }
}

TEST_F(Dbt, OtherKindsOfWriteGoToTheNextBlockWithoutTakingIt) {
    int16_t memo = Make(1);
    ASSERT_EQ(Put(memo, "one"), 1);
    int32_t block = 1;
    EXPECT_EQ(ZBDTRPUT(memo, &block, "two", 0x200), 0);
    EXPECT_EQ(block, 1);
    EXPECT_EQ(ReadFile("memo.dbt"), Hex("02 00 00 00") + Fill(508) + "one" + End + Fill(507) + "two" + End);
    int16_t counted = Make(2, 1, "counted.dbt");
    Bytes before = ReadFile("counted.dbt");
    EXPECT_EQ(ZBDTRPUT(counted, &block, "two", 0x200), -12);
    EXPECT_EQ(ReadFile("counted.dbt"), before);
}

TEST_F(Dbt, WritesAreRefusedBeforeAnythingIsWritten) {
    int16_t memo = Make(2);
    ASSERT_EQ(Put(memo, "x"), 1);
    Bytes before = ReadFile("memo.dbt");
    int32_t block = 9;
    for (uint16_t width : {1, 9, 133, 255}) {
        EXPECT_EQ(ZBDTRPUT(memo, &block, "y", width), -34) << width;
        ZBESCODE(0);
    }
    EXPECT_EQ(block, 9);
    for (uint16_t width : {10, 132}) {
        EXPECT_EQ(ZBDTRPUT(memo, &block, "y", width), 0) << width;
    }
    ASSERT_EQ(ZBDTCLOSE(memo), 0);
    WriteFile("memo.dbt", before);
    memo = Open(2 | ZB_ReadOnly);
    block = 9;
    EXPECT_EQ(ZBDTRPUT(memo, &block, "y", 9), -36);  // before the width
    EXPECT_EQ(block, 9);
    EXPECT_EQ(ReadFile("memo.dbt"), before);
}

TEST_F(Dbt, AReplaceOfABlockOutsideTheFileIsNotRefused) {
    int16_t memo = Make(1);
    EXPECT_EQ(Replace(memo, 4, "far"), 4);
    EXPECT_EQ(ZBECODE(), 0);
    EXPECT_EQ(ReadFile("memo.dbt", 4 * 512), "far" + End);
    EXPECT_EQ(Replace(memo, -1, "x"), -1);
    EXPECT_EQ(ZBECODE(), -4);
    ZBESCODE(0);
    EXPECT_EQ(Replace(memo, INT32_MAX, "x"), INT32_MAX);
    EXPECT_EQ(ZBECODE(), -4);
    ZBESCODE(0);
    EXPECT_EQ(Replace(memo, 0, "x"), 0);  // the header, of which the next block is written last
    EXPECT_EQ(ReadFile("memo.dbt", 0, 5), Hex("01 00 00 00 00"));
}

TEST_F(Dbt, ADamagedNextBlockEndsTheWrite) {
    for (int dialect : {1, 2}) {
        int16_t memo = Make(dialect);
        for (const char* next : {"FF FF FF FF", "00 00 00 80", "FF FF FF 7F"}) {
            PatchFile("memo.dbt", 0, Hex(next));
            Put(memo, "x");
            EXPECT_EQ(ZBECODE(), -4) << next;
            ZBESCODE(0);
            EXPECT_EQ(ReadFile("memo.dbt", 0, 4), Hex(next));
        }
        EXPECT_EQ(ZBDTCLOSE(memo), 0);
    }
}

TEST_F(Dbt, AMemoThatWouldEndBeyond31BitsIsNotWritten) {
    for (int dialect : {1, 2}) {
        int16_t memo = Make(dialect);
        PatchFile("memo.dbt", 0, Hex("FF FF 3F 00"));  // the last block that begins within
        Bytes before = ReadFile("memo.dbt");
        for (int width : {0, 40}) {
            Put(memo, Text(dialect == 1 ? 511 : 500), width);
            EXPECT_EQ(ZBECODE(), -4) << dialect << " " << width;
            ZBESCODE(0);
            EXPECT_EQ(ReadFile("memo.dbt"), before);
        }
        Replace(memo, 0x3FFFFF, Text(510));
        EXPECT_EQ(ZBECODE(), dialect == 1 ? -4 : -2);
        ZBESCODE(0);
        EXPECT_EQ(ReadFile("memo.dbt"), before);
        EXPECT_EQ(ZBDTCLOSE(memo), 0);
    }
}

TEST_F(Dbt, RandomTerminatedMemosStayWhole) {
    std::mt19937 random(5);
    int16_t memo = Make(1);
    std::map<int32_t, std::string> texts;
    int32_t next = 1;
    for (unsigned step = 0; step < 600; step++) {
        std::string text = Text(random() % (random() % 4 ? 700 : 3000), step);
        auto reserved = static_cast<int32_t>((text.size() + 514) / 512);
        if (texts.empty() || random() % 2) {
            ASSERT_EQ(Put(memo, text), next);
            texts[next] = text;
            next += reserved;
        } else {
            auto old = std::next(texts.begin(), static_cast<ptrdiff_t>(random() % texts.size()));
            size_t oldBlocks = (old->second.size() + 511) / 512, newBlocks = (text.size() + 2 + 511) / 512;
            bool moves = text.size() > 510 && oldBlocks < newBlocks;
            int32_t expected = moves ? next : old->first;
            if (moves) next += reserved;
            ASSERT_EQ(Replace(memo, old->first, text), expected);
            if (moves) texts.erase(old);
            texts[expected] = text;
        }
        ASSERT_EQ(FromLe32(ReadFile("memo.dbt", 0, 4), 0), static_cast<uint32_t>(next));
    }
    for (auto& [block, text] : texts) EXPECT_EQ(Get(memo, block), text) << block;
}

// ---- wrapping ----

// The wrapping rule, character by character.
std::string Wrapped(const std::string& text, size_t width) {
    std::string out;
    size_t line = 0, point = 0;
    bool full = false;
    while (line < text.size()) {
        size_t hard = text.find('\r', line);
        if (hard != std::string::npos && hard - line <= width) {
            out += text.substr(line, hard - line + 1);
            out += hard + 1 < text.size() ? text[hard + 1] : '\0';
            line = point = hard + 2;
            continue;
        }
        size_t blank = text.find(' ', point);
        size_t candidate = blank == std::string::npos ? text.size() : blank + 1;
        if (candidate == text.size()) full = true;
        if (candidate - line < width) {
            point = candidate;
        } else {
            full = true;
            if (candidate - line == width) point = candidate;
        }
        if (!full) continue;
        if (point == line) point += std::min(width, text.size() - line);
        out += text.substr(line, point - line);
        if (point != text.size()) out += Soft;
        line = point;
        full = false;
    }
    return out;
}

class Wrap : public DbtTest {
  protected:
    std::string Stored(const std::string& text, int width) {
        int16_t memo = Make(1);
        EXPECT_EQ(Put(memo, text, width), 1);
        EXPECT_EQ(ZBECODE(), 0);
        EXPECT_EQ(ZBDTCLOSE(memo), 0);
        Bytes bytes = ReadFile("memo.dbt", 512);
        EXPECT_EQ(bytes.substr(bytes.size() - 2), End);
        bytes.resize(bytes.size() - 2);
        uint16_t counted = static_cast<uint16_t>(bytes.size());
        EXPECT_EQ(FromLe32(ReadFile("memo.dbt", 0, 4), 0), 1u + (counted + 514u) / 512);
        return bytes;
    }
};

TEST_F(Wrap, LinesBreakBehindBlanks) {
    EXPECT_EQ(Stored("", 10), "");
    EXPECT_EQ(Stored("one", 10), "one");
    EXPECT_EQ(Stored("one two three four", 10), "one two " + Soft + "three four");
    EXPECT_EQ(Stored("a b c d e f g h", 10), "a b c d e " + Soft + "f g h");
    EXPECT_EQ(Stored("one two  three", 10), "one two  " + Soft + "three");
}

TEST_F(Wrap, WordsBelowAtAndAboveTheWidth) {
    EXPECT_EQ(Stored("123456789 next", 10), "123456789 " + Soft + "next");
    EXPECT_EQ(Stored("1234567890 next", 10), "1234567890" + Soft + " next");
    EXPECT_EQ(Stored("1234567890", 10), "1234567890");
    EXPECT_EQ(Stored("12345678901", 10), "1234567890" + Soft + "1");
}

TEST_F(Wrap, AWordLongerThanTheWidthIsCutAtTheWidth) {
    EXPECT_EQ(Stored("12345678901234567890", 10), "1234567890" + Soft + "1234567890");
    EXPECT_EQ(Stored("ab 123456789012 cd", 10), "ab " + Soft + "1234567890" + Soft + "12 cd");
    EXPECT_EQ(Stored(std::string(25, 'x'), 10),
              std::string(10, 'x') + Soft + std::string(10, 'x') + Soft + std::string(5, 'x'));
}

TEST_F(Wrap, ACarriageReturnAndWhateverFollowsItEndALine) {
    EXPECT_EQ(Stored("one\r\ntwo", 10), "one\r\ntwo");
    EXPECT_EQ(Stored("one two th\r\nx", 10), "one two th\r\nx");  // at a distance of the width
    EXPECT_EQ(Stored("one two thr\r\nx", 10), "one two " + Soft + "thr\r\nx");
    EXPECT_EQ(Stored("a\rbc", 10), "a\rbc");
    EXPECT_EQ(Stored("a\r\r\rb c", 10), "a\r\r\rb c");
    EXPECT_EQ(Stored("\r\n\r\n", 10), "\r\n\r\n");
    EXPECT_EQ(Stored("end\r", 10), "end\r" + Fill(1));  // its pair is the terminator
}

TEST_F(Wrap, TabsAndLineFeedsAreNoBlanks) {
    EXPECT_EQ(Stored("one\ttwo\tthree\tfour", 10), "one\ttwo\tth" + Soft + "ree\tfour");
    EXPECT_EQ(Stored("one\ntwo\nthree\nfour", 10), "one\ntwo\nth" + Soft + "ree\nfour");
}

TEST_F(Wrap, BlanksAtTheEndOfTheText) {
    EXPECT_EQ(Stored("123456789 ", 10), "123456789 ");
    EXPECT_EQ(Stored("1234567890 ", 10), "1234567890" + Soft + " ");
    EXPECT_EQ(Stored(std::string(12, ' '), 10), std::string(10, ' ') + Soft + "  ");
}

TEST_F(Wrap, RandomTextsWrapAsTheRuleSays) {
    std::mt19937 random(11);
    const char letters[] = "abcdefgh      \t\r\n";
    for (int round = 0; round < 400; round++) {
        std::string text;
        size_t length = random() % 400, variety = 1 + random() % (sizeof letters - 1);
        for (size_t i = 0; i < length; i++) text += letters[random() % variety];
        int width = 10 + static_cast<int>(random() % 30);
        ASSERT_EQ(Stored(text, width), Wrapped(text, static_cast<size_t>(width))) << text << "|" << width;
    }
    std::string longest;
    while (longest.size() < 32767) longest += letters[random() % 14];
    EXPECT_EQ(Stored(longest, 10), Wrapped(longest, 10));
    EXPECT_EQ(Stored(std::string(32767, 'x'), 132), Wrapped(std::string(32767, 'x'), 132));
}

TEST_F(Wrap, NoTransferOfAWrappedTextIsTooLong) {
    std::string text(40000, 'x');
    EXPECT_EQ(Stored(text, 100), Wrapped(text, 100));
}

TEST_F(Wrap, TheBytesWrittenAreCountedIn16Bits) {
    std::string text(65000, 'x');
    std::string wrapped = Wrapped(text, 100);
    ASSERT_GT(wrapped.size(), 65536u);
    EXPECT_EQ(Stored(text, 100), wrapped);  // Stored holds the next block against the cut count
}

TEST_F(Wrap, SomeDialectsStoreTheTextAsItIs) {
    for (int dialect : {2, 6}) {
        int16_t memo = Make(dialect);
        std::string text = "one two three four";
        ASSERT_EQ(Put(memo, text, 10), 1);
        EXPECT_EQ(Get(memo, 1), text);
        EXPECT_EQ(ZBDTCLOSE(memo), 0);
    }
    int16_t memo = Make(6);
    ASSERT_EQ(Put(memo, "short"), 1);
    EXPECT_EQ(Replace(memo, 1, Text(600), 40), 2);  // and so its length is checked
    EXPECT_EQ(Get(memo, 2), Text(600));
}

// ---- writing, counted ----

TEST_F(Dbt, ACountedMemoFillsItsBlocksWithItsTextAndThenZeros) {
    int16_t memo = Make(2);
    EXPECT_EQ(Put(memo, "Hi"), 1);
    EXPECT_EQ(ReadFile("memo.dbt", 512), Hex("FF FF 08 00 0A 00 00 00") + "HiHi" + Fill(500));
    EXPECT_EQ(ReadFile("memo.dbt", 0, 4), Hex("02 00 00 00"));
    EXPECT_EQ(Put(memo, Text(504)), 2);
    EXPECT_EQ(ReadFile("memo.dbt", 1024), Hex("FF FF 08 00 00 02 00 00") + Text(504));
    EXPECT_EQ(Put(memo, Text(505)), 3);
    EXPECT_EQ(ReadFile("memo.dbt", 1536), Hex("FF FF 08 00 01 02 00 00") + Text(505) + Text(505) + Fill(6));
    EXPECT_EQ(Put(memo, Text(900)), 5);
    EXPECT_EQ(ReadFile("memo.dbt", 2560),
              Hex("FF FF 08 00 8C 03 00 00") + Text(900) + Text(900).substr(0, 116));
    EXPECT_EQ(ReadFile("memo.dbt", 0, 4), Hex("07 00 00 00"));
    EXPECT_EQ(Put(memo, ""), 7);
    EXPECT_EQ(ReadFile("memo.dbt", 3584), Hex("FF FF 08 00 08 00 00 00") + Fill(504));
}

TEST_F(Dbt, ACountedMemoStaysInPlaceWhenItsCapacityAllows) {
    int16_t memo = Make(2);
    ASSERT_EQ(Put(memo, Text(900)), 1);
    Bytes header = ReadFile("memo.dbt", 0, 512);
    EXPECT_EQ(Replace(memo, 1, Text(300, 1)), 1);
    EXPECT_EQ(ReadFile("memo.dbt"), header + Hex("FF FF 08 00 34 01 00 00") + Text(300, 1) +
                                        Text(300, 1).substr(0, 204) + Text(900).substr(504) +
                                        Text(900).substr(0, 116));
    EXPECT_EQ(Get(memo, 1), Text(300, 1));
}

TEST_F(Dbt, TheCapacityOfACountedMemoIsRoundedWithItsFaults) {
    // The longest text that stays, for a stored length and a block size.
    auto capacity = [&](int multiplier, uint32_t length) {
        int16_t memo = Make(2, multiplier);
        Put(memo, "");
        auto stays = [&](size_t needed) {
            PatchFile("memo.dbt", static_cast<size_t>(multiplier) * 512 + 4, Le32(length));
            bool stayed = needed >= 8 && Replace(memo, 1, Text(needed - 8)) == 1;
            EXPECT_EQ(ZBECODE(), 0);
            return stayed;
        };
        size_t low = 0, high = 33000 - 256;  // stays(low) counts as true
        while (high - low > 1) {
            size_t middle = (low + high) / 2;
            Bytes before = ReadFile("memo.dbt");
            (stays(middle) ? low : high) = middle;
            WriteFile("memo.dbt", before);
        }
        EXPECT_EQ(ZBDTCLOSE(memo), 0);
        return low;
    };
    EXPECT_EQ(capacity(1, 0x0A), 512u);
    EXPECT_EQ(capacity(1, 0x100), 256u);  // too low
    EXPECT_EQ(capacity(1, 0x1FF), 768u);  // too high
    EXPECT_EQ(capacity(1, 0x200), 512u);
    EXPECT_EQ(capacity(1, 0x201), 1024u);
    EXPECT_EQ(capacity(1, 0x300), 768u);   // too low
    EXPECT_EQ(capacity(1, 0x301), 1280u);  // too high
    EXPECT_EQ(capacity(2, 0x0A), 1024u);
    EXPECT_EQ(capacity(2, 0x3FF), 1792u);    // too high
    EXPECT_EQ(capacity(32, 0x101), 16640u);  // too high
    EXPECT_EQ(capacity(1, 0x1000A), 512u);   // cut to 16 bits
    EXPECT_EQ(capacity(1, 0x20000), 0u);
}

TEST_F(Dbt, AReplaceRunsOverTheNextBlockWhereTheCapacityComesOutTooHigh) {
    int16_t memo = Make(2);
    ASSERT_EQ(Put(memo, Text(0x1FF - 8)), 1);
    ASSERT_EQ(Put(memo, "next"), 2);
    EXPECT_EQ(Replace(memo, 1, Text(760)), 1);
    EXPECT_EQ(ReadFile("memo.dbt", 512),
              Hex("FF FF 08 00 00 03 00 00") + Text(760) + Text(760).substr(0, 256));
    EXPECT_EQ(Get(memo, 1), Text(760));
    EXPECT_NE(Get(memo, 2), "next");
    ZBESCODE(0);
}

TEST_F(Dbt, AMovedCountedMemoLeavesItsRunOnTheChain) {
    int16_t memo = Make(2);
    ASSERT_EQ(Put(memo, Text(700)), 1);  // blocks 1 and 2
    ASSERT_EQ(Put(memo, "other"), 3);
    EXPECT_EQ(Replace(memo, 1, Text(1100)), 4);  // blocks 4 to 6
    // The entry names the old next block, where the memo itself now stands.
    EXPECT_EQ(ReadFile("memo.dbt", 0, 4), Hex("01 00 00 00"));
    EXPECT_EQ(ReadFile("memo.dbt", 512, 8), Hex("04 00 00 00 02 00 00 00"));
    EXPECT_EQ(ReadFile("memo.dbt", 520, 692), Text(700).substr(0, 692));
    EXPECT_EQ(Get(memo, 4), Text(1100));
    // The first new memo that fits gets the blocks, and the chain ends.
    EXPECT_EQ(Put(memo, Text(600)), 1);
    EXPECT_EQ(ReadFile("memo.dbt", 0, 4), Hex("07 00 00 00"));
    EXPECT_EQ(Put(memo, "last"), 7);
    EXPECT_EQ(Get(memo, 1), Text(600));
    EXPECT_EQ(Get(memo, 3), "other");
    EXPECT_EQ(Get(memo, 4), Text(1100));
    EXPECT_EQ(Get(memo, 7), "last");
}

TEST_F(Dbt, AMemoLongerThanTheFreedRunIsGivenTheBlocksOfTheMovedMemo) {
    int16_t memo = Make(2);
    ASSERT_EQ(Put(memo, "small"), 1);
    ASSERT_EQ(Replace(memo, 1, Text(600)), 2);
    EXPECT_EQ(ReadFile("memo.dbt", 512, 8), Hex("02 00 00 00 01 00 00 00"));
    // The walk takes the moved memo's head for an entry: next 0x0008FFFF, 608 blocks.
    EXPECT_EQ(Put(memo, Text(700, 1)), 2);
    EXPECT_EQ(ReadFile("memo.dbt", 512, 8), Hex("FF FF 08 00 01 00 00 00"));
    EXPECT_EQ(ReadFile("memo.dbt", 0, 4), Hex("01 00 00 00"));
    EXPECT_EQ(Get(memo, 2), Text(700, 1));
}

TEST_F(Dbt, AnEmptyMemoRightAfterAMoveEndsTheChain) {
    int16_t memo = Make(2);
    ASSERT_EQ(Put(memo, Text(40)), 1);
    ASSERT_EQ(Replace(memo, 1, Text(600)), 2);
    ASSERT_EQ(Put(memo, ""), 1);
    EXPECT_EQ(ReadFile("memo.dbt", 0, 4), Hex("04 00 00 00"));
    EXPECT_EQ(Put(memo, Text(2000)), 4);
    EXPECT_EQ(Get(memo, 1), "");
    EXPECT_EQ(Get(memo, 2), Text(600));
    EXPECT_EQ(Get(memo, 4), Text(2000));
}

TEST_F(Dbt, AMoveFromAStoredLengthOf256LeavesARunOfNoBlocks) {
    int16_t memo = Make(2);
    ASSERT_EQ(Put(memo, Text(248)), 1);
    ASSERT_EQ(Replace(memo, 1, Text(249)), 2);
    EXPECT_EQ(ReadFile("memo.dbt", 512, 8), Hex("02 00 00 00 00 00 00 00"));
    EXPECT_EQ(Put(memo, ""), 2);  // over the memo that moved
    EXPECT_EQ(Get(memo, 2), "");
}

TEST_F(Dbt, AMemoThatMovesTwiceClosesTheChainToACircle) {
    int16_t memo = Make(2);
    ASSERT_EQ(Put(memo, "small"), 1);
    ASSERT_EQ(Replace(memo, 1, Text(600)), 2);
    EXPECT_EQ(Replace(memo, 2, Text(1200)), 2);  // no new block
    EXPECT_EQ(ZBECODE(), -6);
    ZBESCODE(0);
    // The entry is written, the header isn't, and the text is lost.
    EXPECT_EQ(ReadFile("memo.dbt", 1024, 8), Hex("01 00 00 00 02 00 00 00"));
    EXPECT_EQ(ReadFile("memo.dbt", 0, 4), Hex("01 00 00 00"));
    EXPECT_EQ(Get(memo, 2), "<-6>");
}

TEST_F(Dbt, AShortLiveMemoOnTheChainLeadsFarBeyondTheFile) {
    int16_t memo = Make(2);
    ASSERT_EQ(Put(memo, "small"), 1);
    ASSERT_EQ(Replace(memo, 1, Text(600)), 2);
    ASSERT_EQ(Replace(memo, 2, "tiny"), 2);
    EXPECT_EQ(Put(memo, Text(6400)), 0x8FFFF);  // 13 blocks, and 12 is what the memo tells
    EXPECT_EQ(FileSize("memo.dbt"), 512u * (0x8FFFF + 13));
    EXPECT_EQ(Get(memo, 0x8FFFF), Text(6400));
}

// A file with runs of 1, 3 and 2 blocks at 5, 1 and 8 in this order; 10 blocks in all.
class Chain : public DbtTest {
  protected:
    void SetUp() override {
        DbtTest::SetUp();
        memo = Make(2);
        ASSERT_EQ(Put(memo, Text(9 * 512 - 8)), 1);
        PatchFile("memo.dbt", 0, Le32(5));
        PatchFile("memo.dbt", 5 * 512, Le32(1) + Le32(1));
        PatchFile("memo.dbt", 1 * 512, Le32(8) + Le32(3));
        PatchFile("memo.dbt", 8 * 512, Le32(10) + Le32(2));
    }
    uint32_t Next() { return FromLe32(ReadFile("memo.dbt", 0, 4), 0); }
    Bytes Entry(int block) { return ReadFile("memo.dbt", static_cast<size_t>(block) * 512, 8); }
    int16_t memo = -1;
};

TEST_F(Chain, TheFirstRunThatFitsEndsTheChain) {
    EXPECT_EQ(Put(memo, "x"), 5);
    EXPECT_EQ(Next(), 10u);
    EXPECT_EQ(Put(memo, "y"), 10);
    EXPECT_EQ(Next(), 11u);
}

TEST_F(Chain, ALaterRunIsUnlinkedWhole) {
    EXPECT_EQ(Put(memo, Text(600)), 1);
    EXPECT_EQ(Next(), 5u);
    EXPECT_EQ(Entry(5), Le32(8) + Le32(1));
    EXPECT_EQ(Put(memo, Text(601)), 8);
    EXPECT_EQ(Entry(5), Le32(10) + Le32(1));
    EXPECT_EQ(Get(memo, 1), Text(600));
}

TEST_F(Chain, AMemoThatFitsNoRunGoesToTheEndAndTheLastRunPointsAtIt) {
    EXPECT_EQ(Put(memo, Text(1700)), 10);  // 4 blocks
    EXPECT_EQ(Next(), 5u);
    EXPECT_EQ(Entry(5), Le32(1) + Le32(1));
    EXPECT_EQ(Entry(1), Le32(8) + Le32(3));
    EXPECT_EQ(Entry(8), Le32(10) + Le32(2));
    EXPECT_EQ(Put(memo, Text(1701)), 10);  // and is given out again
    EXPECT_EQ(Get(memo, 10), Text(1701));
}

TEST_F(Chain, ACircleGivesMinusSix) {
    PatchFile("memo.dbt", 8 * 512, Le32(5) + Le32(2));
    Bytes before = ReadFile("memo.dbt");
    Put(memo, Text(1700));
    EXPECT_EQ(ZBECODE(), -6);
    EXPECT_EQ(ReadFile("memo.dbt"), before);
    ZBESCODE(0);
    PatchFile("memo.dbt", 5 * 512, Le32(5) + Le32(1));
    Put(memo, Text(1700));
    EXPECT_EQ(ZBECODE(), -6);
}

TEST_F(Chain, ANegativeBlockGivesMinusFour) {
    PatchFile("memo.dbt", 5 * 512, Le32(0xFFFFFFF0) + Le32(0));
    Put(memo, "x");
    EXPECT_EQ(ZBECODE(), -4);
    ZBESCODE(0);
    PatchFile("memo.dbt", 5 * 512, Le32(10) + Le32(0xFFFFFFFF));  // no run of negative length fits
    EXPECT_EQ(Put(memo, "x"), 10);
    EXPECT_EQ(ZBECODE(), 0);
}

TEST_F(Chain, ADamagedBlockSizeOrTailIsNotWalked) {
    PatchFile("memo.dbt", 0, Le32(10));
    PatchFile("memo.dbt", 10 * 512, Fill(100));  // less than a block behind the last
    EXPECT_EQ(Put(memo, "x"), 10);
    EXPECT_EQ(FileSize("memo.dbt"), 11u * 512);
}

// The counted layout on a string in memory, as its rules read.
struct CountedModel {
    static constexpr uint32_t Far = 5000;       // a block beyond the size of file that a test can bear
    static constexpr uint32_t Circle = 0xFFFF;  // the chain doesn't end

    Bytes file;
    size_t size;  // of a block

    uint32_t At(size_t offset) const { return FromLe32(file, offset); }
    void Write(size_t offset, const Bytes& bytes) {
        if (file.size() < offset + bytes.size()) file.resize(offset + bytes.size());
        file.replace(offset, bytes.size(), bytes);
    }
    std::string Read(uint32_t block) const { return file.substr(block * size + 8, At(block * size + 4) - 8); }

    uint32_t Put(const std::string& text) {
        uint32_t next = At(0);
        uint32_t block = New(text, next);
        if (block < Far) Write(0, Le32(next));
        return block;
    }
    uint32_t Replace(uint32_t block, const std::string& text) {
        uint32_t next = At(0), length = At(block * size + 4);
        auto capacity = static_cast<uint16_t>(length % 256 ? (length + size) & 0xFF00 : length);
        if (capacity >= text.size() + 8) {
            Store(block, text);
        } else {
            Write(block * size, Le32(next) + Le32(static_cast<uint32_t>(capacity / size)));
            next = block;
            block = New(text, next);
        }
        if (block < Far) Write(0, Le32(next));
        return block;
    }

  private:
    uint32_t New(const std::string& text, uint32_t& next) {
        auto blocks = static_cast<uint32_t>((text.size() + 8 + size - 1) / size);
        auto end = static_cast<uint32_t>(file.size() / size);
        uint32_t current = next, previous = 0;
        for (uint32_t steps = 0; current < end && blocks > At(current * size + 4); steps++) {
            if (steps > end) return Circle;
            previous = current;
            current = At(current * size);
        }
        if (current >= end) {
            if (current == next) next += blocks;
        } else if (!previous) {
            next = end;
        } else {
            Write(previous * size, Le32(At(current * size)));
        }
        if (current >= Far) return Far;
        Write(current * size, Hex("FF FF 08 00"));
        Store(current, text);
        return current;
    }
    void Store(uint32_t block, const std::string& text) {
        Bytes filled = text + text;
        filled.resize((text.size() + 8 + size - 1) / size * size - 8);
        if (filled.size() < text.size() * 2) filled = (text + text).substr(0, filled.size());
        Write(block * size + 4, Le32(static_cast<uint32_t>(text.size() + 8)) + filled);
    }
};

TEST_F(Dbt, RandomCountedMemosGoWhereTheRulesSay) {
    for (int multiplier : {1, 2, 5}) {
        std::mt19937 random(17);
        int16_t memo = Make(2, multiplier);
        CountedModel model{ReadFile("memo.dbt"), static_cast<size_t>(multiplier) * 512};
        std::vector<uint32_t> blocks;
        for (unsigned step = 0; step < 300; step++) {
            std::string text = Text(random() % (random() % 3 ? 600 : 3500), step);
            CountedModel before = model;
            bool fresh = blocks.empty() || random() % 2;
            uint32_t old = fresh ? 0 : blocks[random() % blocks.size()];
            // A memo that another has run over has no length to go by.
            if (!fresh && model.file.substr(old * model.size, 4) != Hex("FF FF 08 00")) continue;
            uint32_t block = fresh ? model.Put(text) : model.Replace(old, text);
            if (block == CountedModel::Far) {
                model = before;
                continue;
            }
            int32_t got = fresh ? Put(memo, text) : Replace(memo, static_cast<int32_t>(old), text);
            ASSERT_EQ(ReadFile("memo.dbt"), model.file) << step;
            if (block == CountedModel::Circle) {
                ASSERT_EQ(ZBECODE(), -6) << step;
                ZBESCODE(0);
                continue;
            }
            ASSERT_EQ(got, static_cast<int32_t>(block)) << step;
            ASSERT_EQ(Get(memo, got), model.Read(block)) << step;
            blocks.push_back(block);
        }
        EXPECT_EQ(ZBDTCLOSE(memo), 0);
    }
}

// In place only what is no longer than before, everything else as a new memo: so
// every memo stays whole in both layouts.
TEST_F(Dbt, MemosStayWholeWhenOnlyShorterTextsAreWrittenInPlace) {
    for (int dialect : {1, 2}) {
        std::mt19937 random(23);
        int16_t memo = Make(dialect, 2);
        std::map<int32_t, std::string> texts;
        for (unsigned step = 0; step < 500; step++) {
            std::string text = Text(random() % (random() % 4 ? 900 : 9000), step);
            if (texts.empty() || random() % 2) {
                int32_t block = Put(memo, text);
                ASSERT_EQ(texts.count(block), 0u);
                texts[block] = text;
                continue;
            }
            auto old = std::next(texts.begin(), static_cast<ptrdiff_t>(random() % texts.size()));
            bool shorter = text.size() <= old->second.size();
            int32_t block = shorter ? Replace(memo, old->first, text) : Put(memo, text);
            if (dialect == 2) {
                ASSERT_EQ(block == old->first, shorter);
            }
            texts.erase(old);
            ASSERT_EQ(texts.count(block), 0u);
            texts[block] = text;
        }
        EXPECT_EQ(ZBECODE(), 0);
        for (auto& [block, text] : texts) ASSERT_EQ(Get(memo, block), text) << block;
        EXPECT_EQ(ZBDTCLOSE(memo), 0);
    }
}

// ---- sharing ----

class DbtOfTwoProcesses : public Dbt, public testing::WithParamInterface<int> {};

INSTANTIATE_TEST_SUITE_P(Dialects, DbtOfTwoProcesses, testing::Values(1, 2));

TEST_P(DbtOfTwoProcesses, SeeEachOthersMemos) {
    int dialect = GetParam();
    ASSERT_EQ(ZBDTCREATEX("memo.dbt", 1, static_cast<int16_t>(dialect)), 0);
    Process other([&](Process& parent) {
        int16_t memo = Open(dialect | ZB_Shared);
        for (int32_t i = 0; i < 5; i++) {
            parent.Await();
            if (Get(memo, 2 * i + 1) != "here " + std::to_string(i)) return 1;
            if (Put(memo, "there " + std::to_string(i)) != 2 * i + 2) return 2;
            parent.Tell();
        }
        return 0;
    });
    int16_t memo = Open(dialect | ZB_Shared);
    for (int32_t i = 0; i < 5; i++) {
        EXPECT_EQ(Put(memo, "here " + std::to_string(i)), 2 * i + 1);
        other.Tell();
        other.Await();
        EXPECT_EQ(Get(memo, 2 * i + 2), "there " + std::to_string(i));
    }
    EXPECT_EQ(other.Wait(), 0);
    EXPECT_EQ(ZBDTHGET(memo), 0);
    EXPECT_EQ(ZBDTCLOSE(memo), 0);
}

TEST_F(Dbt, AFileThatAnotherCutGivesAShortRead) {
    int16_t memo = Make(2);
    ASSERT_EQ(Put(memo, Text(900)), 1);
    Bytes whole = ReadFile("memo.dbt");
    WriteFile("memo.dbt", whole.substr(0, 1000));
    EXPECT_EQ(Get(memo, 1), "<-2>");
    ZBESCODE(0);
    WriteFile("memo.dbt", whole.substr(0, 3));
    EXPECT_EQ(ZBDTHGET(memo), -2);
}

}  // namespace
