// Data files on a platform that fails.
#include "faults/fail_each_call.h"

namespace test {
namespace {

void Prepare() { WriteFile("t.dbf", PeopleFile({Person("ANNA"), Person("BERT", '*'), Person("CLEO")})); }

int32_t OpenData(World& w) {
    uint16_t handle = 0xFFFF;
    int32_t code = ZBDDOPENX(&handle, "t.dbf", 1 | ZB_Shared);
    w.data = static_cast<int16_t>(handle);
    return code;
}

const Step Open{"ZBDDOPENX", OpenData};
const Step Close{"ZBDDCLOSE", Closing<ZBDDCLOSE, &World::data>};

TEST_F(Faults, OfRecords) {
    FailEachCall({
        .name = "records",
        .prepare = Prepare,
        .steps =
            {
                Open,
                {"ZBDDHGET", [](World& w) { return ZBDDHGET(w.data); }},
                {"ZBDDRGET", [](World& w) { return ZBDDRGET(w.data, 1); }},
                {"ZBDDRGETX", [](World& w) { return ZBDDRGETX(w.data, w.buffer, 3); }},
                {"ZBDDRPUT appends", [](World& w) { return w.Append("DORA"); }},
                {"ZBDDRPUT appends again", [](World& w) { return w.Append("EMIL"); }},
                {"ZBDDRPUT updates", [](World& w) { return w.Update(2, "BEATE"); }},
                {"ZBDDRPUTX",
                 [](World& w) {
                     w.record = 3;
                     return ZBDDRPUTX(w.data, w.buffer, &w.record, 256);
                 }},
                {"ZBDDRDEL", [](World& w) { return ZBDDRDEL(w.data, 1); }},
                {"ZBDDRUNDEL", [](World& w) { return ZBDDRUNDEL(w.data, 1); }},
                {"ZBDDFLUSH", [](World& w) { return ZBDDFLUSH(w.data); }, 8},
                Close,
            },
        .departures = {LengthUnknown, NotClosed("ZBDDCLOSE", 4)},
    });
}

TEST_F(Faults, OfLocks) {
    FailEachCall({
        .name = "locks",
        .prepare = Prepare,
        .steps =
            {
                Open,
                {"ZBDDRLOCK tries", [](World& w) { return ZBDDRLOCK(w.data, 1, 5, nullptr); }},
                {"ZBDDRLOCK takes", [](World& w) { return ZBDDRLOCK(w.data, 1, 7, nullptr); }},
                {"ZBDDRLOCK releases", [](World& w) { return ZBDDRLOCK(w.data, 1, 6, nullptr); }},
                {"ZBDDLOCK header", [](World& w) { return ZBDDLOCK(w.data, 1, nullptr); }},
                {"ZBDDUNLOCK header", [](World& w) { return ZBDDUNLOCK(w.data, 1, nullptr); }},
                {"ZBDDLOCK shared", [](World& w) { return ZBDDLOCK(w.data, 4, nullptr); }},
                {"ZBDDUNLOCK shared", [](World& w) { return ZBDDUNLOCK(w.data, 4, nullptr); }},
                {"ZBDDLOCK tries", [](World& w) { return ZBDDLOCK(w.data, 5, nullptr); }},
                {"ZBDDLOCK all", [](World& w) { return ZBDDLOCK(w.data, 2, nullptr); }},
                Close,
            },
        .departures =
            {
                LengthUnknown,
                NotClosed("ZBDDCLOSE", 4),
                {.step = "ZBDDLOCK*",
                 .kind = Call::Unlock,
                 .code = 0,
                 .reason = "a lock that was taken on the way and can't be given up is told by the log alone"},
            },
    });
}

TEST_F(Faults, OfCreation) {
    FailEachCall({
        .name = "creation",
        .prepare = Prepare,
        .steps = {{"ZBDDCREATE",
                   [](World&) {
                       return Create("new.dbf", {Spec("NAME", 'C', 10), Spec("BORN", 'D')}, 1);
                   }}},
        .departures = {{.step = "ZBDDCREATE",
                        .after = {Call::Open, 1},
                        .before = {Call::Close, 1},
                        .lost = {1, 0, 0},
                        .reason = "a creation that fails closes nothing"}},
    });
}

TEST_F(Faults, OfPack) {
    FailEachCall({
        .name = "pack",
        .prepare = Prepare,
        .steps =
            {
                Open,
                {"ZBDDPACK", [](World& w) { return ZBDDPACK(&w.data); }, 0, false},
                Close,
            },
        .departures =
            {
                LengthUnknown,
                NotClosed("ZBDDCLOSE", 4),
                {.step = "ZBDDPACK",
                 .kind = Call::Seek,
                 .after = {Call::Read, 3},
                 .before = {Call::Seek, 6},
                 .code = 0,
                 .reason = "the length of the new file"},
                {.step = "ZBDDPACK",
                 .kind = Call::Seek,
                 .after = {Call::Seek, 15},
                 .code = 0,
                 .reason = "the length of the packed file"},
                {.step = "ZBDDPACK",
                 .kind = Call::Unlock,
                 .code = 0,
                 .reason = "the new file never held the lock that is taken off it"},
                {.step = "ZBDDPACK",
                 .after = {Call::Open, 1},
                 .before = {Call::Close, 1},
                 .lost = {1, 0, 0},
                 .reason = "a creation that fails closes nothing"},
                {.step = "ZBDDPACK",
                 .kind = Call::Open,
                 .after = {Call::Open, 1},
                 .before = {Call::Open, 3},
                 .way = Fault::Error,
                 .code = zb::ErrWrite,
                 .lost = {1, 0, 4},
                 .reason = "the new file opens for reading"},
                {.step = "ZBDDPACK",
                 .after = {Call::Allocate, 5},
                 .before = {Call::Close, 2},
                 .lost = {1, 0, 4},
                 .reason = "a pack that fails leaves the new file open"},
                {.step = "ZBDDPACK",
                 .kind = Call::Close,
                 .after = {Call::Close, 1},
                 .lost = {0, 0, 4},
                 .reason = "an object whose file can't be closed stays"},
            },
        .verify =
            [](const World&) {
                // Under its own name or, between the renames, under the backup's.
                Bytes file = ReadFile(FileExists("t.dbf") ? "t.dbf" : "t.BAK");
                EXPECT_NE(file.find(Person("ANNA")), Bytes::npos);
                EXPECT_NE(file.find(Person("CLEO")), Bytes::npos);
            },
    });
}

}  // namespace
}  // namespace test
