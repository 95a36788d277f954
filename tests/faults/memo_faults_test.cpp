// Memo files on a platform that fails.
#include "faults/fail_each_call.h"
#include "support/memo.h"

namespace test {
namespace {

constexpr int TextLength = 700;  // more than a block

template <auto Call, auto Member, auto... Rest>
int32_t Taking(World& w) {
    ZBMFREE(w.address);
    w.address = nullptr;
    return Call(w.*Member, w.block, &w.address, Rest...);
}

// The steps of a .DBT file of a dialect: 1 ends its memos with a mark, 2 counts
// them.
template <int Dialect>
std::vector<Step> DbtSteps() {
    return {
        {"ZBDTCREATEX", [](World&) { return ZBDTCREATEX("m.dbt", 1, Dialect); }},
        {"ZBDTOPENX", [](World& w) { return ZBDTOPENX(&w.dbt, "m.dbt", Dialect); }},
        {"ZBDTRPUT adds",
         [](World& w) { return ZBDTRPUT(w.dbt, &w.block, Text(TextLength).c_str(), ZB_MemoNew); }},
        {"ZBDTRPUT replaces in place",
         [](World& w) { return ZBDTRPUT(w.dbt, &w.block, Text(100).c_str(), ZB_MemoReplace); }},
        {"ZBDTRPUT moves",
         [](World& w) { return ZBDTRPUT(w.dbt, &w.block, Text(3 * TextLength).c_str(), ZB_MemoReplace); }},
        {"ZBDTRGET", Taking<ZBDTRGET, &World::dbt, int16_t{0}>},
        {"ZBDTRGETH",
         [](World& w) {
             _ZBMFREE(w.memory);
             return ZBDTRGETH(w.dbt, w.block, &w.memory, 0);
         }},
        {"ZBDTHGET", [](World& w) { return ZBDTHGET(w.dbt); }},
        {"ZBDTCLOSE", Closing<ZBDTCLOSE, &World::dbt>, 0, false},
    };
}

std::vector<Step> FptSteps() {
    return {
        {"ZBDWCREATE", [](World&) { return ZBDWCREATE("m.fpt", 2); }},
        {"ZBDWOPENX", [](World& w) { return ZBDWOPENX(&w.fpt, "m.fpt", 0); }},
        {"ZBDWRPUT adds", [](World& w) { return ZBDWRPUT(w.fpt, &w.block, Text(TextLength).c_str(), 0); }},
        {"ZBDWRPUT replaces in place",
         [](World& w) { return ZBDWRPUT(w.fpt, &w.block, Text(100).c_str(), 0x100); }},
        {"ZBDWRPUT moves",
         [](World& w) { return ZBDWRPUT(w.fpt, &w.block, Text(3 * TextLength).c_str(), 0x100); }, 0, false},
        {"ZBDWRGET", Taking<ZBDWRGET, &World::fpt>},
        {"ZBDWHGET", [](World& w) { return ZBDWHGET(w.fpt); }},
        {"ZBDWCLOSE", Closing<ZBDWCLOSE, &World::fpt>, 0, false},
    };
}

// Two records with a memo each, and one without.
void PrepareDbt() {
    ASSERT_EQ(Create("t.dbf", {Spec("NOTE", 'M')}, 1), 0);
    ASSERT_EQ(ZBDTCREATE("t.dbt"), 0);
    int16_t data = Open("t.dbf", 1);
    int16_t memo;
    ASSERT_EQ(ZBDTOPENX(&memo, "t.dbt", 1), 0);
    for (unsigned seed : {1, 2}) {
        int32_t block;
        ASSERT_EQ(ZBDTRPUT(memo, &block, Text(TextLength, seed).c_str(), ZB_MemoNew), 0);
        SetRecord(data, Fill(10, ' ') + std::to_string(block));
        Append(data);
    }
    ASSERT_EQ(ZBDDCLOSE(data), 0);
    ASSERT_EQ(ZBDTCLOSE(memo), 0);
}

void PrepareFpt() {
    ASSERT_EQ(Create("t.dbf", {Spec("NOTE", 'M')}, 4), 0);
    ASSERT_EQ(ZBDWCREATE("t.fpt", 2), 0);
    int16_t data = Open("t.dbf", 4);
    int16_t memo;
    ASSERT_EQ(ZBDWOPENX(&memo, "t.fpt", 0), 0);
    for (unsigned seed : {1, 2}) {
        int32_t block;
        ASSERT_EQ(ZBDWRPUT(memo, &block, Text(TextLength, seed).c_str(), 0), 0);
        SetRecord(data, Fill(10, ' ') + std::to_string(block));
        Append(data);
    }
    ASSERT_EQ(ZBDDCLOSE(data), 0);
    ASSERT_EQ(ZBDWCLOSE(memo), 0);
}

// Both texts are on the disk, in the memo file or in what pack made of it.
void VerifyTexts(const World&) {
    Bytes all;
    for (auto& entry : std::filesystem::directory_iterator(".")) all += ReadFile(entry.path().string());
    for (unsigned seed : {1, 2}) EXPECT_NE(all.find(Text(TextLength, seed)), Bytes::npos);
}

template <int Dialect>
int32_t OpenData(World& w) {
    uint16_t handle = 0xFFFF;
    int32_t code = ZBDDOPENX(&handle, "t.dbf", Dialect);
    w.data = static_cast<int16_t>(handle);
    return code;
}

// A terminated memo ends with its mark: where a read comes short, reading goes on.
Departure Continued(const char* step, int firstRead, int lastRead) {
    return {.step = step,
            .kind = Call::Read,
            .after = {Call::Read, firstRead - 1},
            .before = {Call::Read, lastRead + 1},
            .way = Fault::Short,
            .code = 0,
            .reason = "a terminated memo ends with its mark"};
}

// What a memo pack that fails leaves behind.
std::vector<Departure> OfPack(const char* step) {
    return {
        LengthUnknown,
        {.step = step, .kind = Call::Unlock, .code = 0, .reason = "the old file is closed soon"},
        {.step = step,
         .kind = Call::Open,
         .after = {Call::Open, 1},
         .before = {Call::Open, 3},
         .way = Fault::Error,
         .code = zb::ErrReadOnly,
         .lost = {1, 0, 1},
         .reason = "the new file opens for reading"},
        {.step = step,
         .after = {Call::Read, 2},
         .before = {Call::Close, 2},
         .lost = {1, 0, 1},
         .reason = "a pack that fails leaves the new file open"},
    };
}

std::vector<Departure> With(std::vector<Departure> departures, const Departure& more) {
    departures.insert(departures.begin(), more);
    return departures;
}

TEST_F(Faults, OfTerminatedMemos) {
    FailEachCall({.name = "terminated memos",
                  .prepare = [] {},
                  .steps = DbtSteps<1>(),
                  .departures = {Continued("ZBDTRGET*", 2, 5), Continued("ZBDTRPUT moves", 2, 2)}});
}

TEST_F(Faults, OfCountedMemos) {
    FailEachCall({.name = "counted memos", .prepare = [] {}, .steps = DbtSteps<2>()});
}

TEST_F(Faults, OfFptMemos) {
    FailEachCall({.name = "FPT memos", .prepare = [] {}, .steps = FptSteps()});
}

TEST_F(Faults, OfMemoPack) {
    FailEachCall({
        .name = "memo pack",
        .prepare = PrepareDbt,
        .steps =
            {
                {"ZBDDOPENX", OpenData<1>},
                {"ZBDTOPENX", [](World& w) { return ZBDTOPENX(&w.dbt, "t.dbt", 1); }},
                {"ZBDTPACK", [](World& w) { return ZBDTPACK(w.data, &w.dbt); }, 0, false},
            },
        .departures =
            With(With(OfPack("ZBDTPACK"), Continued("ZBDTPACK", 5, 6)), Continued("ZBDTPACK", 10, 11)),
        .verify = VerifyTexts,
    });
}

TEST_F(Faults, OfFptPack) {
    FailEachCall({
        .name = "FPT pack",
        .prepare = PrepareFpt,
        .steps =
            {
                {"ZBDDOPENX", OpenData<4>},
                {"ZBDWOPENX", [](World& w) { return ZBDWOPENX(&w.fpt, "t.fpt", 0); }},
                {"ZBDWPACK", [](World& w) { return ZBDWPACK(w.data, &w.fpt); }, 0, false},
            },
        .departures = With(OfPack("ZBDWPACK"), {.step = "ZBDWPACK",
                                                .kind = Call::SetEnd,
                                                .before = {Call::Close, 1},
                                                .code = zb::ErrMemoShort,
                                                .reason = "the new file stays shorter than a header"}),
        .verify = VerifyTexts,
    });
}

}  // namespace
}  // namespace test
