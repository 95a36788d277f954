// Indexes on a platform that fails.
#include "faults/fail_each_call.h"
#include "pages/pages.h"

namespace test {
namespace {

constexpr int Records = 24;  // with keys of 100 bytes, several pages in every format

Bytes Name(int number) { return std::to_string(100 + number * 7 % Records); }

Bytes Key(int number) { return Name(number) + Fill(NameWidth - 3, ' ') + '\0'; }

void PrepareData() {
    std::vector<Bytes> records;
    for (int i = 0; i < Records; i++) records.push_back(Person(Name(i)));
    WriteFile("t.dbf", PeopleFile(records));
}

// The operations on keys, which differ only by the width of the handle.
template <class Handle>
struct KeyCalls {
    std::string prefix;
    Handle World::*handle;
    int32_t(ZB_CALL* add)(Handle, const void*, uint32_t);
    int32_t(ZB_CALL* remove)(Handle, const void*, uint32_t);
    int32_t(ZB_CALL* find)(Handle, void*, uint32_t*, int16_t);
    int32_t(ZB_CALL* top)(Handle, void*, uint32_t*);
    int32_t(ZB_CALL* bottom)(Handle, void*, uint32_t*);
    int32_t(ZB_CALL* next)(Handle, void*, uint32_t*);
    int32_t(ZB_CALL* previous)(Handle, void*, uint32_t*);
    int32_t(ZB_CALL* current)(Handle, void*, uint32_t*);
    int32_t(ZB_CALL* make)(int16_t, Handle, void**);
    int32_t(ZB_CALL* makeHandle)(int16_t, Handle, ZbBlock*);
    int32_t(ZB_CALL* refresh)(Handle);
    const char* refreshName = "HGET";
};

const KeyCalls<int16_t> Ndx{"ZBDN",    &World::index, ZBDNKADD, ZBDNKDEL,  ZBDNKFIND,  ZBDNKTOP, ZBDNKBOT,
                            ZBDNKNEXT, ZBDNKPREV,     ZBDNKCUR, ZBDNKMAKE, ZBDNKMAKEH, ZBDNHGET};
const KeyCalls<int16_t> Ntx{"ZBDC",    &World::index, ZBDCKADD, ZBDCKDEL,  ZBDCKFIND,  ZBDCKTOP, ZBDCKBOT,
                            ZBDCKNEXT, ZBDCKPREV,     ZBDCKCUR, ZBDCKMAKE, ZBDCKMAKEH, ZBDCHGET};
const KeyCalls<int16_t> Idx{"ZBDI",    &World::index, ZBDIKADD, ZBDIKDEL,  ZBDIKFIND,  ZBDIKTOP, ZBDIKBOT,
                            ZBDIKNEXT, ZBDIKPREV,     ZBDIKCUR, ZBDIKMAKE, ZBDIKMAKEH, ZBDIHGET};
const KeyCalls<int32_t> Mdx{"ZBDM",    &World::tag, ZBDMKADD, ZBDMKDEL,  ZBDMKFIND,  ZBDMKTOP,  ZBDMKBOT,
                            ZBDMKNEXT, ZBDMKPREV,   ZBDMKCUR, ZBDMKMAKE, ZBDMKMAKEH, ZBDMTHGET, "THGET"};

int32_t OpenData(World& w) {
    uint16_t handle = 0xFFFF;
    int32_t code = ZBDDOPENX(&handle, "t.dbf", 1);
    w.data = static_cast<int16_t>(handle);
    return code;
}

// Adds and deletes the keys of every record: pages split, and go again.
template <class Handle>
std::vector<Step> ChangeSteps(const KeyCalls<Handle>& calls) {
    std::vector<Step> steps;
    for (int i = 0; i < Records; i++)
        steps.push_back({calls.prefix + "KADD " + std::to_string(i),
                         [=](World& w) { return calls.add(w.*calls.handle, Key(i).data(), i + 1u); }, 0,
                         false});
    for (int i = 0; i < Records; i++)
        steps.push_back({calls.prefix + "KDEL " + std::to_string(i),
                         [=](World& w) { return calls.remove(w.*calls.handle, Key(i).data(), i + 1u); }, 0,
                         false});
    return steps;
}

// Everything that only reads, from the state after a build.
template <class Handle>
std::vector<Step> ReadSteps(const KeyCalls<Handle>& calls) {
    auto step = [&](const char* name, auto call) {
        return Step{calls.prefix + name,
                    [=](World& w) { return call(w.*calls.handle, w.buffer, &w.record); }};
    };
    return {
        step("KTOP", calls.top),
        step("KNEXT", calls.next),
        step("KBOT", calls.bottom),
        step("KPREV", calls.previous),
        step("KCUR", calls.current),
        {calls.prefix + "KFIND",
         [=](World& w) {
             memcpy(w.buffer, Key(5).data(), NameWidth + 1);
             w.record = 0;
             return calls.find(w.*calls.handle, w.buffer, &w.record, 0);
         }},
        {calls.prefix + calls.refreshName, [=](World& w) { return calls.refresh(w.*calls.handle); }},
        {"ZBDDOPENX", OpenData},
        {"ZBDDRGET", [](World& w) { return ZBDDRGET(w.data, 3); }},
        {calls.prefix + "KMAKE",
         [=](World& w) {
             ZBMFREE(w.address);
             w.address = nullptr;
             return calls.make(w.data, w.*calls.handle, &w.address);
         }},
        {calls.prefix + "KMAKEH",
         [=](World& w) {
             _ZBMFREE(w.memory);
             w.memory = 0;
             return calls.makeHandle(w.data, w.*calls.handle, &w.memory);
         }},
    };
}

char* NameExpression() {
    static char text[8];
    return strcpy(text, "NAME");
}

// An expression that goes through the evaluator.
char* LongExpression() {
    static char text[24];
    return strcpy(text, "SUBSTR(NAME,1,100)");
}

int32_t OpenIndex(World& w, int32_t(ZB_CALL* open)(uint16_t*, const char*, uint16_t),
                  int32_t(ZB_CALL* close)(int16_t)) {
    uint16_t handle = 0xFFFF;
    int32_t code = open(&handle, "t.idx", 0);
    w.index = static_cast<int16_t>(handle);
    w.closeIndex = close;
    return code;
}

int32_t OpenNdx(World& w) { return OpenIndex(w, ZBDNOPENX, ZBDNCLOSE); }
int32_t OpenNtx(World& w) { return OpenIndex(w, ZBDCOPENX, ZBDCCLOSE); }
int32_t OpenIdx(World& w) { return OpenIndex(w, ZBDIOPENX, ZBDICLOSE); }

int32_t BuildNdx(World& w, char* expression) {
    return ZBDNINDEX(w.data, "t.idx", 'C', expression, NameWidth);
}
int32_t BuildNtx(World& w, char* expression) {
    return ZBDCINDEX(w.data, "t.idx", 'C', expression, NameWidth, 0);
}
template <unsigned Form>
int32_t BuildIdx(World& w, char* expression) {
    return ZBDIINDEX(w.data, "t.idx", 'C' | Form, expression, NameWidth);
}
int32_t BuildMdx(World& w, char* expression) {
    return ZBDMTINDEX(w.data, static_cast<uint16_t>(w.mdx), "TAG", 'C', expression, NameWidth);
}

int32_t OpenMdx(World& w) { return ZBDMOPENX(&w.mdx, "t.mdx", 0); }
int32_t UseTag(World& w) { return ZBDMTUSE(&w.tag, static_cast<uint16_t>(w.mdx), "TAG"); }

template <class Build>
auto Prepare(Build build) {
    return [=] {
        PrepareData();
        World w;
        ASSERT_EQ(OpenData(w), 0);
        ASSERT_EQ(build(w, NameExpression()), 0);
        ASSERT_EQ(ZBDDCLOSE(w.data), 0);
    };
}

void PrepareMdx() {
    PrepareData();
    ASSERT_EQ(ZBDMCREATE("t.mdx", 1), 0);
    World w;
    ASSERT_EQ(OpenData(w), 0);
    ASSERT_EQ(OpenMdx(w), 0);
    ASSERT_EQ(BuildMdx(w, NameExpression()), 0);
    ASSERT_EQ(ZBDMCLOSE(w.mdx), 0);
    ASSERT_EQ(ZBDDCLOSE(w.data), 0);
}

std::vector<Step> Between(std::vector<Step> first, const std::vector<Step>& middle,
                          const std::vector<Step>& last) {
    first.insert(first.end(), middle.begin(), middle.end());
    first.insert(first.end(), last.begin(), last.end());
    return first;
}

template <class Build>
std::vector<Step> BuildSteps(Build call, const char* name) {
    auto build = [=](World& w, char* expression) {
        int32_t code = call(w, expression);
        w.built = code >= 0;
        return code;
    };
    return {
        {"ZBDDOPENX", OpenData},
        {name, [=](World& w) { return build(w, NameExpression()); }},
        {std::string(name) + " by an expression", [=](World& w) { return build(w, LongExpression()); }},
    };
}

// ---- What departs from the rule ----

Departure CannotGrow(const char* step) {
    return {.step = step,
            .kind = Call::SetEnd,
            .code = zb::ErrRead,
            .reason = "a page that the file couldn't grow by can't be read"};
}

// The look at the length leaves the file at its end.
Departure ReadsAtEnd(const char* step, int seek) {
    return {.step = step,
            .kind = Call::Seek,
            .after = {Call::Seek, seek - 1},
            .before = {Call::Seek, seek + 1},
            .code = zb::ErrRead,
            .reason = "an open reads from where the look at the length left it"};
}

Departure CreationStaysOpen(const char* step) {
    return {.step = step,
            .kind = Call::Write,
            .before = {Call::Close, 1},
            .lost = {1, 0, 0},
            .reason = "a creation that can't write closes nothing"};
}

// Free pages are filled at a close. Where that fails, also for what a change that
// failed has left, the index stays open.
std::vector<Departure> OfCompaction() {
    Departure close{.step = "ZBDNCLOSE",
                    .code = zb::ErrStructure,
                    .lost = {1, 0, 2},
                    .sometimes = true,
                    .reason = "a compaction that fails says so and leaves the index open"};
    std::vector<Departure> departures;
    for (Call kind : {Call::Seek, Call::Read, Call::Write}) {
        close.kind = kind;
        departures.push_back(close);
    }
    departures.push_back({.step = "ZBDNKDEL*",
                          .lost = {1, 0, 2},
                          .sometimes = true,
                          .reason = "what it leaves can't be compacted"});
    return departures;
}

// What builds of the three families have in common.
std::vector<Departure> OfBuild(const char* step) {
    return {
        LengthUnknown,
        {.step = step, .kind = Call::Unlock, .code = 0, .reason = "the build's own code stands"},
        {.step = step,
         .kind = Call::Allocate,
         .after = {Call::Allocate, 4},
         .before = {Call::Allocate, 10},
         .code = 0,
         .reason = "a smaller buffer will do"},
        {.step = step,
         .kind = Call::Open,
         .after = {Call::Open, 2},
         .way = Fault::Error,
         .code = zb::ErrWrite,
         .reason = "the index opens for reading"},
        {.step = step,
         .kind = Call::Close,
         .after = {Call::Close, 1},
         .before = {Call::Close, 3},
         .code = 0,
         .reason = "the work file is of no account once it was read"},
        {.step = step, .kind = Call::Delete, .code = 0, .reason = "the same"},
    };
}

// NTX and IDX builds keep their code over the close.
std::vector<Departure> OfKeepingBuild(const char* step) {
    std::vector<Departure> departures = OfBuild(step);
    departures.push_back(
        {.step = step, .after = {Call::Delete, 1}, .code = 0, .reason = "the build's own code stands"});
    departures.push_back(ReadsAtEnd(step, 4));
    return departures;
}

std::vector<Departure> With(std::vector<Departure> departures, const Departure& more) {
    departures.insert(departures.begin(), more);
    return departures;
}

// A build that reports success has made a sound index of all records.
void VerifyBuilt(const World& w, const std::function<pages::Survey()>& survey) {
    if (!w.built) return;
    pages::Survey found = survey();
    EXPECT_EQ(found.faults, std::vector<std::string>());
    EXPECT_EQ(found.keys, static_cast<uint64_t>(Records));
}

// ---- Changes ----

TEST_F(Faults, OfNdxChanges) {
    FailEachCall(
        {.name = "NDX changes",
         .prepare = [] {},
         .steps = Between(
             {{"ZBDNCREATE", [](World&) { return ZBDNCREATE("t.idx", 'C', NameExpression(), NameWidth); }},
              {"ZBDNOPENX", OpenNdx}},
             ChangeSteps(Ndx), {{"ZBDNCLOSE", Closing<ZBDNCLOSE, &World::index>, zb::KeyEmpty}}),
         .departures = With(With(OfCompaction(), NotClosed("ZBDNCLOSE", 2)), CannotGrow("ZBDNKADD*"))});
}

TEST_F(Faults, OfNtxChanges) {
    FailEachCall(
        {.name = "NTX changes",
         .prepare = [] {},
         .steps = Between(
             {{"ZBDCCREATE", [](World&) { return ZBDCCREATE("t.idx", 'C', NameExpression(), NameWidth, 0); }},
              {"ZBDCOPENX", OpenNtx}},
             ChangeSteps(Ntx), {{"ZBDCCLOSE", Closing<ZBDCCLOSE, &World::index>}}),
         .departures = {NotClosed("ZBDCCLOSE", 2), CannotGrow("ZBDCKADD*"), ReadsAtEnd("ZBDCOPENX", 3),
                        CreationStaysOpen("ZBDCCREATE")}});
}

TEST_F(Faults, OfIdxChanges) {
    FailEachCall(
        {.name = "IDX changes",
         .prepare = [] {},
         .steps = Between(
             {{"ZBDICREATE", [](World&) { return ZBDICREATE("t.idx", 'C', NameExpression(), NameWidth); }},
              {"ZBDIOPENX", OpenIdx},
              {"ZBDIKTYPE", [](World& w) { return ZBDIKTYPE(w.index, 'C'); }}},
             ChangeSteps(Idx), {{"ZBDICLOSE", Closing<ZBDICLOSE, &World::index>}}),
         .departures = {NotClosed("ZBDICLOSE", 2), CannotGrow("ZBDIKADD*"), ReadsAtEnd("ZBDIOPENX", 3)}});
}

TEST_F(Faults, OfMdxChanges) {
    FailEachCall(
        {.name = "MDX changes",
         .prepare = [] {},
         .steps = Between(
             {{"ZBDMCREATE", [](World&) { return ZBDMCREATE("t.mdx", 1); }},
              {"ZBDMOPENX", OpenMdx},
              {"ZBDMTNEW", [](World& w) { return ZBDMTNEW(w.mdx, "TAG", 'C', NameExpression(), NameWidth); }},
              {"ZBDMTUSE", UseTag}},
             ChangeSteps(Mdx),
             {{"ZBDMTCLOSE", Closing<ZBDMTCLOSE, &World::tag>},
              {"ZBDMTERASE", [](World& w) { return ZBDMTERASE(w.mdx, "TAG"); }, 0, false},
              {"ZBDMCLOSE", Closing<ZBDMCLOSE, &World::mdx>}}),
         .departures = {NotClosed("ZBDMCLOSE", 1), CannotGrow("ZBDMKADD*")}});
}

// ---- Reads ----

TEST_F(Faults, OfNdxReads) {
    FailEachCall({.name = "NDX reads",
                  .prepare = Prepare(BuildNdx),
                  .steps = Between({{"ZBDNOPENX", OpenNdx}}, ReadSteps(Ndx), {}),
                  .departures = {LengthUnknown}});
}

TEST_F(Faults, OfNtxReads) {
    FailEachCall({.name = "NTX reads",
                  .prepare = Prepare(BuildNtx),
                  .steps = Between({{"ZBDCOPENX", OpenNtx}}, ReadSteps(Ntx), {}),
                  .departures = {LengthUnknown, ReadsAtEnd("ZBDCOPENX", 3)}});
}

TEST_F(Faults, OfIdxReads) {
    FailEachCall({.name = "IDX reads",
                  .prepare = Prepare(BuildIdx<0>),
                  .steps = Between({{"ZBDIOPENX", OpenIdx}}, ReadSteps(Idx), {}),
                  .departures = {LengthUnknown, ReadsAtEnd("ZBDIOPENX", 3)}});
}

TEST_F(Faults, OfMdxReads) {
    FailEachCall(
        {.name = "MDX reads",
         .prepare = PrepareMdx,
         .steps = Between(
             {{"ZBDMOPENX", OpenMdx},
              {"ZBDMTUSEX", [](World& w) { return ZBDMTUSEX(&w.tag, static_cast<uint16_t>(w.mdx), 1); }}},
             ReadSteps(Mdx), {}),
         .departures = {LengthUnknown}});
}

// ---- Builds ----

TEST_F(Faults, OfNdxBuilds) {
    FailEachCall(
        {.name = "NDX builds",
         .prepare = PrepareData,
         .steps = BuildSteps(BuildNdx, "ZBDNINDEX"),
         .departures = OfBuild("ZBDNINDEX*"),
         .verify = [](const World& w) { VerifyBuilt(w, [] { return pages::SurveyNdx("t.idx"); }); }});
}

TEST_F(Faults, OfNtxBuilds) {
    FailEachCall(
        {.name = "NTX builds",
         .prepare = PrepareData,
         .steps = BuildSteps(BuildNtx, "ZBDCINDEX"),
         .departures = With(OfKeepingBuild("ZBDCINDEX*"), CreationStaysOpen("ZBDCINDEX*")),
         .verify = [](const World& w) { VerifyBuilt(w, [] { return pages::SurveyNtx("t.idx"); }); }});
}

TEST_F(Faults, OfIdxBuilds) {
    FailEachCall(
        {.name = "IDX builds",
         .prepare = PrepareData,
         .steps = BuildSteps(BuildIdx<0>, "ZBDIINDEX"),
         .departures = OfKeepingBuild("ZBDIINDEX*"),
         .verify = [](const World& w) { VerifyBuilt(w, [] { return pages::SurveyIdx("t.idx"); }); }});
}

TEST_F(Faults, OfCompactIdxBuilds) {
    FailEachCall(
        {.name = "compact IDX builds",
         .prepare = PrepareData,
         .steps = BuildSteps(BuildIdx<ZB_IdxCompact>, "ZBDIINDEX"),
         .departures = OfKeepingBuild("ZBDIINDEX*"),
         .verify = [](const World& w) { VerifyBuilt(w, [] { return pages::SurveyIdx("t.idx"); }); }});
}

TEST_F(Faults, OfMdxBuilds) {
    FailEachCall({.name = "MDX builds",
                  .prepare =
                      [] {
                          PrepareData();
                          ASSERT_EQ(ZBDMCREATE("t.mdx", 1), 0);
                      },
                  .steps = Between({{"ZBDMOPENX", OpenMdx}}, BuildSteps(BuildMdx, "ZBDMTINDEX"), {}),
                  .departures = {LengthUnknown,
                                 CannotGrow("ZBDMTINDEX*"),
                                 {.step = "ZBDMTINDEX*",
                                  .kind = Call::Unlock,
                                  .code = 0,
                                  .reason = "the build's own code stands"}},
                  .verify =
                      [](const World& w) {
                          VerifyBuilt(w, [] { return pages::SurveyMdx("t.mdx").tags.at(0).tree; });
                      }});
}

}  // namespace
}  // namespace test
