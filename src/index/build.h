// The bulk build of NDX, NTX and IDX indexes: keys are made in record order,
// sorted in memory in runs, written to a work file, merged, and given in order
// to the family, which lays them into pages from the leaves up.
//
// A sort record is the key in a form whose bytes sort as the keys do, and the
// record number, most significant byte first. So comparing whole sort records
// orders equal keys by record number, and the order is total.
//
// A family gives an object of a type with
//
//   Step, Floor           by how many bytes the buffer shrinks while memory is
//                         short, and the size at or below which that ends
//   Unit                  the name under which the build logs
//   RereadsCount          whether the record count is read again without a lock
//   KeepsIndexOnFailure   whether the index file stays after a failure
//   name, expression      of the index
//   Create()              creates the index
//   Open()                opens and binds it; Close() closes it, unless a host
//                         function has
//   GiveUp()              closes it without another word, where Close() left it
//                         open: nobody else has a handle of it
//   keyLength()
//   Collates()            whether keys compare by the collating sequence
//   CheckField(field)     a refusal of the whole field, before any key
//   FieldKey(field, bytes, key)     the sort form of a plain field's key
//   MakeKey(data, key)    the sort form of the current record's key; a failure where
//                         a host function has closed the index
//   Begin()               before the first record
//   Take(item)            the next sort record, in order
//   Finish()              after the last
#pragma once

#include <algorithm>

#include "data/data.h"
#include "file/operations.h"
#include "index/index.h"

namespace zb {

inline constexpr char WorkFileName[] = "stacks.tmp";

// The sorting: everything between the making of keys and the pages.
class RunSorter {
  public:
    // Finds the memory. ErrMemory when there is not even a buffer above `floor`.
    Code Size(int keyLength, uint32_t records, bool collate, int step, int floor);
    Code CreateWorkFile();

    // The runs, one after the other: fill Item(0) to Item(count - 1), then Store.
    uint32_t runCount() const { return runs; }
    uint32_t RunSize(uint32_t run) const;
    uint8_t* Item(uint32_t i) const { return buffer.data + i * itemSize; }
    void Number(uint8_t* item, uint32_t record) const { StoreBe32(item + keyLength, record); }
    Code StoreRun(uint32_t run);

    // Merges the runs, giving each sort record to `take` in order.
    template <class Take>
    Code Merge(Take take) {
        if (MergePasses() < 0 || LoadAll(0, runs) < 0) return CurrentCode();
        while (const uint8_t* item = Head()) {
            if (take(item) < 0 || Advance() < 0) return CurrentCode();
        }
        return CurrentCode();
    }

    // Frees all memory and removes the work file, whatever happened.
    void Finish();

  private:
    struct Run {
        uint8_t* window;  // its share of the buffer
        uint8_t* next;    // the sort record at its head; null when the run is done
        uint8_t* end;
        uint64_t prefix;   // the first bytes of the head
        int64_t position;  // where its unread rest begins in the work file
        uint32_t left;     // sort records not yet read
    };
    struct Key {
        uint64_t prefix;
        const uint8_t* item;
    };

    int Compare(const uint8_t* a, const uint8_t* b) const;
    bool Before(const Run& a, const Run& b) const;
    uint64_t Prefix(const uint8_t* item) const;
    Code Transfer(bool write, int64_t position, uint8_t* bytes, int64_t count);
    Code Load(Run& run);
    Code LoadAll(uint32_t first, uint32_t count);
    void Play(uint32_t leaf);
    const uint8_t* Head() const { return table[base + tree.data[0]].next; }
    Code Advance();
    Code MergePasses();
    Code MergeGroup(uint32_t first, uint32_t count, int64_t to);

    Block<uint8_t> buffer;
    Block<uint8_t> output;
    Block<Run> table;
    Block<Key> keys;
    Block<uint32_t> tree;  // the tournament: 0 the winner, above it the losers
    uint32_t runs;
    uint32_t records;
    uint32_t perRun;
    uint32_t window;  // sort records of a run's share in the merge
    uint32_t base;    // the first run of those that are being merged
    uint32_t playing;
    uint32_t keyLength;
    uint32_t itemSize;
    int64_t origin;  // where the runs begin in the work file
    bool collate;
    bool workFileMade;
    uint16_t workFile;
};

// Writes pages, gathering those that follow one another in the file where a few
// fit in its room.
class PageWriter {
  public:
    Code Write(uint16_t file, int64_t position, const uint8_t* page, int size);
    Code Flush(uint16_t file);

  private:
    static constexpr int Room = 4096;
    uint8_t pages[Room];
    int64_t start = 0;
    int used = 0;
};

// The tree levels that a build has open, leaves first. `Extra` is what the
// family keeps of a level beside its page.
struct BuildLevel {
    uint32_t page;  // where the open page will go
    Block<uint8_t> image;
    int16_t used;  // entries of a level above the leaves

    bool begun() const { return image.data != nullptr; }
};

namespace build {

// A build's memory is told: of the data file, no more than this stays mapped.
inline constexpr int64_t MostMapped = 1 << 20;

// The records that a data file has in full.
inline Code RecordsInFile(const char* unit, const DataFile& file, uint32_t* records) {
    uint32_t length;
    if (!PfSeek(file.handle, 0, SeekFrom::End, &length)) return Fail(unit, ErrSeek);
    int64_t bytes = int64_t{length} - file.headerLength();
    *records = bytes > 0 ? static_cast<uint32_t>(bytes / file.recordLength()) : 0;
    return 0;
}

// An object that a build works on, through calls of host functions: one of them
// may have closed it, and opened another that has the same handle and address.
struct Held {
    int handle;
    uint64_t serial;

    static Held Now(int handle) { return {handle, SlotSerial(handle)}; }
    bool Stands() const { return SlotSerial(handle) == serial; }
};

// The failure of a build that has lost what it works on. `bound` is the object's
// bind, made anew.
template <class Object>
Code StillBound(const char* unit, const Held& held, const Object* before, const Object* bound) {
    if (bound == before && held.Stands()) return 0;
    return Pending() ? CurrentCode() : Fail(unit, ErrBadHandle);
}

// The keys of one run, from a plain field or from the evaluator.
template <class F>
Code FillRun(F& family, RunSorter& sorter, const Held& data, DataFile& file, int field, uint32_t first,
             uint32_t count) {
    for (uint32_t i = 0; i < count; i++) {
        uint32_t record = first + i;
        uint8_t* item = sorter.Item(i);
        if (field >= 0) {
            if (DataReadAhead(file, record) < 0) return CurrentCode();
            const Field& source = file.fields[field];
            if (family.FieldKey(source, AheadRecord(file, record) + source.offset, item) < 0)
                return CurrentCode();
        } else {
            auto handle = static_cast<int16_t>(data.handle);
            if (ZBDDRGET(handle, static_cast<int32_t>(record)) < 0 || family.MakeKey(handle, item) < 0)
                return CurrentCode();
            if (StillBound(F::Unit, data, &file, Dslock(handle)) < 0) return CurrentCode();
        }
        sorter.Number(item, record);
    }
    return SetCode(0);
}

template <class F>
Code SortAndWrite(F& family, RunSorter& sorter, const Held& data, DataFile& file) {
    // A damaged count leads to a record that can't be read, and until then to no
    // more memory than the file's length does.
    auto count = static_cast<uint32_t>(file.recordCount());
    uint32_t records;
    if (RecordsInFile(F::Unit, file, &records) < 0) return CurrentCode();
    records = std::min(count, records + 1);
    if (sorter.Size(family.keyLength(), records, family.Collates(), F::Step, F::Floor) < 0)
        return Pass(F::Unit);
    int field = FieldNumber(file, family.expression);
    if (field >= 0) {
        if (family.CheckField(file.fields[field]) < 0) return CurrentCode();
    } else {
        // Record 1 shows early whether the expression gives keys at all.
        KeyBuffer trial;
        auto handle = static_cast<int16_t>(data.handle);
        if (ZBDDRGET(handle, 1) < 0 || family.MakeKey(handle, trial) < 0) return Pass(F::Unit);
        if (StillBound(F::Unit, data, &file, Dslock(handle)) < 0) return CurrentCode();
    }
    uint32_t record = 1;
    int64_t read = 0;
    for (uint32_t run = 0; run < sorter.runCount(); run++) {
        uint32_t size = sorter.RunSize(run);
        if (FillRun(family, sorter, data, file, field, record, size) < 0) return Pass(F::Unit);
        read += int64_t{size} * file.recordLength();
        if (read > MostMapped) {
            PfReleaseReads(file.handle);
            read = 0;
        }
        if (sorter.StoreRun(run) < 0) return Pass(F::Unit);
        record += size;
    }
    if (records < count) return Fail(F::Unit, ErrRead);
    if (family.Begin() < 0) return Pass(F::Unit);
    if (sorter.Merge([&](const uint8_t* item) { return family.Take(item); }) < 0) return Pass(F::Unit);
    return family.Finish() < 0 ? Pass(F::Unit) : CurrentCode();
}

// Runs a step of the cleaning up with the code at 0, and puts the old code back.
template <class Step>
void Keeping(Step step) {
    Code code = CurrentCode();
    SetCode(0);
    step();
    SetCode(code);
}

}  // namespace build

// Creates the index and fills it from all records of a data file, deleted ones
// too. The data file is locked meanwhile, if the lock can be had.
template <class F>
Code BuildIndex(F& family, int16_t data) {
    DataFile* file = Dslock(data);
    if (!file) return Pass(F::Unit);
    if (family.Create() < 0) {
        Pass(F::Unit);
        // Of all that can fail there only a write and the close come after the file
        // is there.
        bool created = CurrentCode() == ErrWrite || CurrentCode() == ErrBadHandle;
        if (created && !F::KeepsIndexOnFailure) build::Keeping([&] { Herase(family.name); });
        return CurrentCode();
    }
    if (file->recordCount() <= 0) return SetCode(0);

    auto held = build::Held::Now(data);
    uint16_t conflict = 0;
    DataLock(*file, LockAll, &conflict);
    if (conflict && F::RereadsCount) HeaderRefresh(*file);
    RunSorter sorter{};
    bool opened = false;
    if (!Pending() && file->recordCount() > 0) {
        if (AheadOpen(*file) < 0 || sorter.CreateWorkFile() < 0 || family.Open() < 0) {
            Pass(F::Unit);
        } else {
            opened = true;
            build::SortAndWrite(family, sorter, held, *file);
        }
    }

    build::Keeping([&] { sorter.Finish(); });
    if (opened) {
        Code code = CurrentCode();
        SetCode(0);
        Code closed = family.Close();
        if (closed < 0) build::Keeping([&] { family.GiveUp(); });
        SetCode(code < 0 || F::IgnoresClose ? code : closed);
    }
    build::Keeping([&] {
        file = held.Stands() ? Dslock(data) : nullptr;
        if (!file) return;
        AheadClose(*file);
        if (!conflict) DataUnlock(*file, LockAll, nullptr);
    });
    if (Pending() && !F::KeepsIndexOnFailure) build::Keeping([&] { Herase(family.name); });
    return CurrentCode();
}

}  // namespace zb
