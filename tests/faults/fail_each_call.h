// Lets everything that an operation asks of the platform fail, one call after
// the other, and holds what the library does then against what it promises:
//
//   - the code says what failed,
//   - nothing stays open, locked or allocated once the caller has closed what he
//     has handles of,
//   - other open objects work on,
//   - the operation succeeds when it is tried again,
//   - every record that was acknowledged is there.
//
// A scenario is a list of steps, each one call of the library. What departs from
// the rule stands beside it, with the reason.
#pragma once

#include <filesystem>
#include <functional>
#include <map>
#include <optional>

#include "core/library.h"
#include "data/left_files.h"
#include "expr/expr.h"
#include "support/data_files.h"
#include "support/dbf.h"
#include "support/environment.h"
#include "support/fake_platform.h"

namespace test {

// A data file of people: NAME C(100), AGE N(5).
inline constexpr int NameWidth = 100;

inline Bytes Person(std::string_view name, char flag = ' ') {
    Bytes record = flag + Bytes(name);
    return record + Fill(1 + NameWidth - record.size(), ' ') + "   42";
}

inline Bytes PeopleFile(const std::vector<Bytes>& records) {
    return Dbf(3, 1 + NameWidth + 5, {DbfField("NAME", 'C', NameWidth), DbfField("AGE", 'N', 5)}, records);
}

// What the steps of a scenario work on and hand from one to the next.
struct World {
    int16_t data = -1;
    int16_t dbt = -1;
    int16_t fpt = -1;
    int16_t index = -1;
    int16_t mdx = -1;
    int32_t tag = -1;
    int32_t block = 0;
    uint32_t record = 0;
    char buffer[512] = {};
    void* address = nullptr;  // of a block that the library handed out
    ZbBlock memory = 0;       // its handle
    bool built = false;       // whether the last build of an index succeeded

    // The records whose writing succeeded, by number. One whose update failed
    // isn't promised to be the old or the new one.
    std::map<uint32_t, Bytes> acknowledged;

    int32_t Append(std::string_view name) {
        SetRecord(data, Person(name));
        int32_t code = ZBDDRPUT(data, &record, 0);
        if (code == 0) acknowledged[record] = Person(name);
        return code;
    }
    int32_t Update(uint32_t number, std::string_view name) {
        SetRecord(data, Person(name));
        record = number;
        acknowledged.erase(number);
        int32_t code = ZBDDRPUT(data, &record, 256);
        if (code == 0) acknowledged[number] = Person(name);
        return code;
    }

    // Gives back all that there is a handle of. A close that fails before it has
    // closed anything is tried again, as a caller would.
    void Close() {
        auto close = [](auto& handle, auto call) {
            for (int attempt = 0; handle >= 0 && attempt < 2; attempt++) {
                ZBESCODE(0);
                if (call(handle) >= 0) handle = -1;
            }
        };
        close(tag, ZBDMTCLOSE);
        close(data, ZBDDCLOSE);
        close(dbt, ZBDTCLOSE);
        close(fpt, ZBDWCLOSE);
        close(mdx, ZBDMCLOSE);
        close(index, closeIndex);
        ZBESCODE(0);
        ZBMFREE(address);
        _ZBMFREE(memory);
    }

    int32_t(ZB_CALL* closeIndex)(int16_t) = ZBDNCLOSE;
};

// Turns a closing call into a step that gives the handle up where it succeeds.
template <auto Call, auto Member>
int32_t Closing(World& world) {
    int32_t code = Call(world.*Member);
    if (code >= 0) world.*Member = -1;
    return code;
}

struct Step {
    std::string name;
    std::function<int32_t(World&)> call;
    int32_t success = 0;
    bool repeats = true;  // whether it succeeds when tried again after a failure
};

// One thing that goes wrong in a step.
struct Fault {
    Call kind;
    int nth;  // call of its kind
    enum Way { Error, Short, ForEver } way;
    FakePlatform::TraceEntry call;
    size_t at;  // its place in the trace

    // The seek of a size change, which fails and succeeds like it.
    bool resizes = false;
    // Something nobody looks at the result of: the way back from a look at the
    // length, or the look at the record count behind a lock.
    bool aside = false;
};

// A call that a step makes of the platform: the n-th of its kind.
struct Place {
    Call kind;
    int nth;
};

// A departure from the rule, for the calls of a kind (or of any) that a step makes
// between two others. A step's name that ends with * stands for all that begin so.
struct Departure {
    std::string step;
    Call kind = Call::Any;
    Place after{Call::Any, 0};           // from the start on
    Place before{Call::Any, INT32_MAX};  // to the end
    std::optional<Fault::Way> way{};
    std::optional<int32_t> code{};  // in place of the rule's
    FakePlatform::Holdings lost{};  // what stays behind; the step isn't tried again then
    bool sometimes = false;         // the rule may hold all the same
    const char* reason;
};

struct Scenario {
    std::string name;
    std::function<void()> prepare;  // makes the files that are there at the start
    std::vector<Step> steps;
    std::vector<Departure> departures{};
    std::function<void(const World&)> verify{};  // looks at the files that are left
};

inline const char* NameOf(Call kind) {
    constexpr const char* names[] = {"open",           "read",       "write",       "seek",   "size change",
                                     "close",          "delete",     "lock",        "unlock", "rename",
                                     "existence test", "allocation", "reallocation"};
    return kind < Call::Free ? names[static_cast<int>(kind)] : "call";
}

inline std::ostream& operator<<(std::ostream& out, const Fault& fault) {
    constexpr const char* ways[] = {"fails", "comes short", "fails and so do all that follow"};
    return out << NameOf(fault.kind) << ' ' << fault.nth << ' ' << ways[fault.way];
}

using Trace = std::vector<FakePlatform::TraceEntry>;

// All that can go wrong in a step, from what it asked of the platform when
// nothing did.
inline std::vector<Fault> FaultsOf(const Trace& trace) {
    std::vector<Fault> faults;
    std::map<Call, int> counts;
    for (size_t at = 0; at < trace.size(); at++) {
        auto [kind, bytes, how] = trace[at];
        if (kind >= Call::Free) continue;
        int nth = ++counts[kind];
        auto before = [&](size_t steps, Call call) { return at >= steps && trace[at - steps].call == call; };
        bool back = before(1, Call::Seek) && trace[at - 1].how == static_cast<uint32_t>(zb::SeekFrom::End);
        bool refresh = before(1, Call::Lock) || (before(1, Call::Seek) && before(2, Call::Lock));
        Fault fault{kind, nth, Fault::Error, trace[at], at};
        fault.resizes = kind == Call::Seek && at + 1 < trace.size() && trace[at + 1].call == Call::SetEnd;
        fault.aside = (kind == Call::Seek && back) || ((kind == Call::Seek || kind == Call::Read) && refresh);
        auto add = [&](Fault::Way way) {
            fault.way = way;
            faults.push_back(fault);
        };
        add(Fault::Error);
        bool transfer = kind == Call::Read || kind == Call::Write;
        if (transfer && bytes > 0) add(Fault::Short);
        if (kind == Call::Write || kind == Call::Open) add(Fault::ForEver);
    }
    return faults;
}

inline size_t IndexOf(const Trace& trace, Place place) {
    int nth = 0;
    for (size_t at = 0; at < trace.size(); at++)
        if (trace[at].call == place.kind && ++nth == place.nth) return at;
    return trace.size();
}

inline void Arm(FakePlatform& fake, const Fault& fault) {
    constexpr uint32_t InputOutput = 5, Access = 13, Locked = 33, DiskFull = 112, BadPosition = 131;
    uint32_t error = InputOutput;
    if (fault.kind == Call::Open || fault.kind == Call::Rename || fault.kind == Call::Delete) error = Access;
    if (fault.kind == Call::Write || fault.kind == Call::SetEnd) error = DiskFull;
    if (fault.kind == Call::Seek) error = BadPosition;
    if (fault.kind == Call::Lock) error = Locked;
    if (fault.way == Fault::Short)
        fake.Shorten(fault.kind, fault.nth, fault.call.count - 1);
    else
        fake.Fail(fault.kind, fault.nth, error, fault.way == Fault::ForEver ? FakePlatform::Forever : 1);
}

// The rule: each kind of failure has its code. A file that can't be had as asked
// is opened for reading, a lock that can't be had is a conflict, and a size that
// can't be changed is told by the log: these are no failures.
inline int32_t CodeFor(const Fault& fault, int32_t success) {
    if (fault.aside || fault.resizes) return success;
    switch (fault.kind) {
        case Call::Open:
            return fault.way == Fault::ForEver || !(fault.call.how & zb::OpenExisting) ? zb::ErrOpen
                                                                                       : success;
        case Call::Read: return zb::ErrRead;
        case Call::Write: return zb::ErrWrite;
        case Call::Seek: return zb::ErrSeek;
        case Call::Close: return zb::ErrBadHandle;
        case Call::Delete: return zb::ErrAccess;
        case Call::Rename: return zb::ErrAccess;
        case Call::Unlock: return static_cast<int16_t>(0xC000 | 5);
        case Call::Allocate:
        case Call::Reallocate: return zb::ErrMemory;
        default: return success;
    }
}

// The departures of every scenario that opens a data file.
inline const Departure LengthUnknown{.step = "ZBDDOPENX",
                                     .kind = Call::Seek,
                                     .after = {Call::Seek, 1},
                                     .code = 0,
                                     .reason = "a length that can't be had is no objection"};

// An object whose file can't be closed stays until the library stops.
inline Departure NotClosed(const char* step, int blocks) {
    return {.step = step,
            .kind = Call::Close,
            .lost = {0, 0, blocks},
            .reason = "an object whose file can't be closed stays until the library stops"};
}

class Faults : public DirectoryTest {
  protected:
    Environment today{"ZB_TODAY", "1999-12-31"};

    // Fails, in each step of a scenario, every call that it makes.
    void FailEachCall(const Scenario& scenario) {
        SCOPED_TRACE(scenario.name);
        Remember(scenario);
        for (size_t step = 0; step < scenario.steps.size() && !HasFatalFailure(); step++)
            for (const Fault& fault : FaultsOf(traces[step])) FailOnce(scenario, step, fault);
        for (const Departure& departure : scenario.departures)
            EXPECT_TRUE(met.count(&departure))
                << "no such thing: " << departure.step << ", " << departure.reason;
        RecordProperty("faults", count);
    }

    int count = 0;

  private:
    // An object that has nothing to do with what fails.
    struct Bystander {
        Bystander() {
            EXPECT_EQ(ZBDDOPENX(&data, "other.dbf", 1), 0);
            EXPECT_EQ(ZBDNOPENX(&index, "other.ndx", 0), 0);
        }
        void Check() const {
            EXPECT_EQ(ZBDDRGET(static_cast<int16_t>(data), 2), 0);
            EXPECT_EQ(RecordBytes(static_cast<int16_t>(data)), Person("OTTO"));
            char key[NameWidth + 1];
            uint32_t record = 0;
            EXPECT_EQ(ZBDNKTOP(static_cast<int16_t>(index), key, &record), 0);
            EXPECT_EQ(record, 1u);
        }
        uint16_t data, index;
    };

    void MakeOthers() {
        WriteFile("other.dbf", PeopleFile({Person("OLGA"), Person("OTTO")}));
        uint16_t data;
        char expression[] = "NAME";
        ASSERT_EQ(ZBDDOPENX(&data, "other.dbf", 1), 0);
        ASSERT_EQ(ZBDNINDEX(static_cast<int16_t>(data), "other.ndx", 'C', expression, 10), 0);
        ASSERT_EQ(ZBDDCLOSE(static_cast<int16_t>(data)), 0);
    }

    // Takes down the files of the start, and what each step asks of the platform.
    // The first round is there for what is made once in a process.
    void Remember(const Scenario& scenario) {
        ASSERT_EQ(ZBDINIT(100, 4), 0);
        MakeOthers();
        scenario.prepare();
        ZBDTERM();
        for (auto& entry : std::filesystem::directory_iterator("."))
            files[entry.path().filename().string()] = ReadFile(entry.path().string());
        for (int round = 0; round < 2; round++) {
            traces.clear();
            Restore();
            FakePlatform fake;
            ASSERT_EQ(ZBDINIT(100, 4), 0);
            Bystander bystander;
            World world;
            for (const Step& step : scenario.steps) {
                fake.Reset();
                ASSERT_EQ(step.call(world), step.success) << step.name;
                traces.push_back(fake.Trace());
            }
            world.Close();
            ZBDTERM();
            if (scenario.verify) scenario.verify(world);
        }
    }

    void Restore() {
        for (auto& entry : std::filesystem::directory_iterator("."))
            if (!files.count(entry.path().filename().string())) std::filesystem::remove(entry);
        for (auto& [name, bytes] : files) WriteFile(name, bytes);
    }

    // What the departures say of a fault: the code of the first that has one, and
    // the losses of the first that has some.
    struct Expected {
        int32_t code;
        FakePlatform::Holdings lost;
        bool sometimes;
    };
    Expected ExpectedOf(const Scenario& scenario, size_t which, const Fault& fault) {
        const Step& step = scenario.steps[which];
        const Trace& trace = traces[which];
        std::optional<int32_t> code;
        FakePlatform::Holdings lost{};
        bool sometimes = false;
        for (const Departure& departure : scenario.departures) {
            bool all = departure.step.ends_with('*');
            if (all ? !step.name.starts_with(departure.step.substr(0, departure.step.size() - 1))
                    : step.name != departure.step)
                continue;
            bool kind = departure.kind == fault.kind || (departure.kind == Call::SetEnd && fault.resizes);
            if (departure.kind != Call::Any && !kind) continue;
            if (departure.after.nth > 0 && fault.at <= IndexOf(trace, departure.after)) continue;
            if (fault.at >= IndexOf(trace, departure.before)) continue;
            if (departure.way && *departure.way != fault.way) continue;
            bool says = false;
            if (departure.code && !code) code = departure.code, says = true;
            bool failed = code.value_or(CodeFor(fault, step.success)) < 0;
            if (departure.lost != zero && lost == zero && (failed || departure.code))
                lost = departure.lost, says = true;
            if (says) met.insert(&departure);
            sometimes |= says && departure.sometimes;
        }
        return {code.value_or(CodeFor(fault, step.success)), lost, sometimes};
    }

    void FailOnce(const Scenario& scenario, size_t which, const Fault& fault) {
        const Step& step = scenario.steps[which];
        Expected expected = ExpectedOf(scenario, which, fault);
        std::stringstream what;
        what << step.name << ", " << fault;
        SCOPED_TRACE(what.str());
        count++;

        Restore();
        FakePlatform fake;
        ASSERT_EQ(ZBDINIT(100, 4), 0);
        Bystander bystander;
        World world;
        zb::ReleaseSpareValue();
        auto before = fake.Held();
        for (size_t i = 0; i < which; i++)
            ASSERT_EQ(scenario.steps[i].call(world), scenario.steps[i].success);

        fake.Reset();
        Arm(fake, fault);
        int32_t code = step.call(world);
        fake.Reset();
        if (!expected.sometimes || code != CodeFor(fault, step.success)) {
            EXPECT_EQ(code, expected.code);
        }
        EXPECT_EQ(ZBECODE(), code);
        ZBESCODE(0);
        bystander.Check();
        if (code < 0 && step.repeats && expected.lost == zero) {
            EXPECT_EQ(step.call(world), step.success) << "at the second try";
        }

        world.Close();
        zb::ReleaseSpareValue();
        auto after = fake.Held();
        FakePlatform::Holdings lost{after.files - before.files, after.locks - before.locks,
                                    after.blocks - before.blocks};
        if (!expected.sometimes || lost != zero) {
            EXPECT_EQ(lost.files, expected.lost.files) << "files left open";
            EXPECT_EQ(lost.locks, expected.lost.locks) << "locks left";
            EXPECT_EQ(lost.blocks, expected.lost.blocks) << "blocks left";
        }
        ZBDTERM();
        CloseLeftFiles();
        CheckRecords(world);
        if (scenario.verify) scenario.verify(world);
    }

    static void CheckRecords(const World& world) {
        if (world.acknowledged.empty()) return;
        Bytes file = ReadFile("t.dbf");
        auto size = world.acknowledged.begin()->second.size();
        for (auto& [number, record] : world.acknowledged)
            EXPECT_EQ(file.substr(97 + (number - 1) * size, size), record) << "record " << number;
    }

    static constexpr FakePlatform::Holdings zero{};
    std::map<std::string, Bytes> files;
    std::vector<Trace> traces;
    std::set<const Departure*> met;
};

}  // namespace test
