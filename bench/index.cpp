// Indexes: look-ups, walks, ranges, builds, random adds and deletes.
#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cstring>
#include <filesystem>
#include <type_traits>
#include <vector>

#include "data.h"
#include "families.h"
#include "files.h"
#include "peers.h"
#include "report.h"
#include "workloads.h"

namespace bench {
namespace {

std::vector<Key> KeysOf(uint32_t first, uint32_t count) {
    std::vector<Key> keys;
    for (uint32_t i = 0; i < count; i++) keys.push_back(KeyOf(first + i));
    return keys;
}

// The keys that are looked up: the same for all.
const std::vector<Key>& Lookups() {
    static PerSize<std::vector<Key>> keys;
    return keys.Get([] { return DrawKeys(sizes.lookups, 1, sizes.records); });
}

// The keys that are added, of records behind the last, and those that are deleted.
// The order of the records is a random one of the keys.
const std::vector<Key>& Adds() {
    static PerSize<std::vector<Key>> keys;
    return keys.Get([] { return KeysOf(sizes.records + 1, sizes.changes); });
}
const std::vector<Key>& Deletes() {
    static PerSize<std::vector<Key>> keys;
    return keys.Get([] { return KeysOf(1, sizes.changes); });
}

// A full walk meets each record once.
void CheckWalk(uint64_t sum) {
    Check(sum == uint64_t{sizes.records} * (sizes.records + 1) / 2, "the walk's records");
}

// The keys of one range.
constexpr int RangeKeys = 100;

const char* Column(On on) { return on == On::Name ? "name" : "amount"; }

const void* Bytes(const Key& key, On on) {
    return on == On::Name ? static_cast<const void*>(key.name) : key.sortable;
}
size_t Length(const Key& key, On on) { return on == On::Name ? static_cast<size_t>(key.nameLength) : 8; }

void BindKey(sqlite3_stmt* statement, const Key& key, On on) {
    if (on == On::Name)
        sqlite3_bind_text(statement, 1, key.name, key.nameLength, SQLITE_STATIC);
    else
        sqlite3_bind_double(statement, 1, key.amount);
}

// Why others are ahead, where they are.

constexpr char PagesReason[] =
    "They compare keys in pages that lie in their own memory, or that they map and trust. The library copies "
    "each page of the way out of the mapped file, since another program may be writing it, and checks its "
    "header. To catch up it would have to be told that nobody else writes the file.";
constexpr char WalkReason[] =
    "Their cursors stand in a leaf and take the next key from there; the library goes down from the root "
    "at each step, because the contract is that a walk sees what other programs have changed since. To "
    "catch up it would need a mark in the file that tells whether anything has changed, which the formats "
    "don't have.";
constexpr char ChangeReason[] =
    "They change pages in memory and write them once, at the end; the library hands each changed page to "
    "the system before the call returns, and the header where the file grows. To catch up it would have "
    "to gather the changes of many calls, which others couldn't see meanwhile.";
constexpr char SplitReason[] =
    " Built indexes have full leaves, so that early adds split: that is a page more to write, and a change "
    "of the file's size, which costs as much as both writes.";

// The library's own.

template <class F>
std::string NameOf(On on) {
    return std::string(Column(on)) + F::Extension;
}

template <class F>
class OpenIndex {
  public:
    OpenIndex(const std::string& name, On on) : handle(F::Open(name.c_str(), on)) {}
    ~OpenIndex() { F::Close(handle); }
    OpenIndex(const OpenIndex&) = delete;
    OpenIndex& operator=(const OpenIndex&) = delete;

    void MakeKey(char* bytes, const Key& key, On on) const {
        if (on == On::Name)
            memcpy(bytes, key.name, sizeof key.name);
        else
            F::Number(handle, bytes, key.amount);
    }

    typename F::Handle handle;
};

// Room for a key of any family.
using KeyRoom = char[32];

template <class F>
class FindZb {
  public:
    explicit FindZb(On on) : index(NameOf<F>(on), on), field(on), keys(Lookups()) {
        Run();  // brings the file into the cache
    }
    void Run() {
        KeyRoom bytes;
        for (const Key& key : keys) {
            index.MakeKey(bytes, key, field);
            uint32_t record = 0;
            F::Find(index.handle, bytes, &record);
            Check(record == key.record, "find", key.record);
        }
    }

  private:
    OpenIndex<F> index;
    On field;
    const std::vector<Key>& keys;
};

template <class F>
class WalkZb {
  public:
    WalkZb(On on, uint32_t keys) : index(NameOf<F>(on), on), count(keys) { Warm(NameOf<F>(on)); }
    void Run() {
        KeyRoom bytes;
        uint32_t record;
        uint64_t sum = 0;
        int32_t code = F::Top(index.handle, bytes, &record);
        for (uint32_t i = 0; i < count; i++) {
            Check(code == 0, "walk", code);
            sum += record;
            code = F::Next(index.handle, bytes, &record);
        }
        if (count == sizes.records) CheckWalk(sum);
    }

  private:
    OpenIndex<F> index;
    uint32_t count;
};

template <class F>
class RangeZb {
  public:
    explicit RangeZb(On on) : index(NameOf<F>(on), on), field(on), keys(Lookups()) { Run(); }
    void Run() {
        for (uint32_t i = 0; i < sizes.ranges; i++) {
            KeyRoom bytes;
            index.MakeKey(bytes, keys[i], field);
            uint32_t record = 0;
            int32_t code = F::Find(index.handle, bytes, &record);
            Check(code == 0 && record == keys[i].record, "find", code);
            for (int key = 1; key < RangeKeys && code == 0; key++)
                code = F::Next(index.handle, bytes, &record);
            CheckCode(code, "next");
        }
    }

  private:
    OpenIndex<F> index;
    On field;
    const std::vector<Key>& keys;
};

template <class F>
class BuildZb {
  public:
    explicit BuildZb(On on) : field(on), name("build" + std::string(F::Extension)), data(OpenData(DataName)) {
        Warm(DataName);
    }
    ~BuildZb() {
        ZBDDCLOSE(data);
        unlink(name.c_str());
    }
    void Run() { F::Build(data, name.c_str(), field); }

  private:
    On field;
    std::string name;
    int16_t data;
};

enum class Change { Add, Delete };

const std::vector<Key>& KeysTo(Change change) { return change == Change::Add ? Adds() : Deletes(); }

template <class F>
class ChangeZb {
  public:
    ChangeZb(On on, Change what)
        : field(on), change(what), name("change" + std::string(F::Extension)), keys(KeysTo(what)) {
        CopyFile(NameOf<F>(on), name);
    }
    ~ChangeZb() { unlink(name.c_str()); }
    void Run() {
        OpenIndex<F> index(name, field);
        KeyRoom bytes;
        for (const Key& key : keys) {
            index.MakeKey(bytes, key, field);
            if (change == Change::Add)
                CheckCode(F::Add(index.handle, bytes, key.record), "add");
            else
                Check(F::Delete(index.handle, bytes, key.record) == 0, "delete", key.record);
        }
    }

  private:
    On field;
    Change change;
    std::string name;
    const std::vector<Key>& keys;
};

// The deletes of a tag go well until a leaf takes keys from its neighbour, which
// can leave a page that is read as another kind. What came before is measured.
class DeleteMdx {
  public:
    explicit DeleteMdx(On on) : field(on), keys(Deletes()) { CopyFile(NameOf<Mdx>(on), "change.mdx"); }
    ~DeleteMdx() { unlink("change.mdx"); }
    void Run() {
        OpenIndex<Mdx> index("change.mdx", field);
        KeyRoom bytes;
        for (const Key& key : keys) {
            index.MakeKey(bytes, key, field);
            if (Mdx::Delete(index.handle, bytes, key.record) != 0) break;
            deleted++;
        }
        ZBESCODE(0);
        Check(deleted > 0, "delete");
    }
    uint64_t Items() const { return deleted; }

  private:
    On field;
    const std::vector<Key>& keys;
    uint64_t deleted = 0;
};

// A tag filled key by key in the order of the records: what its build does at once.
class FillMdx {
  public:
    explicit FillMdx(On on) : field(on), keys(KeysOf(1, sizes.records)) { Mdx::Create("fill.mdx", on); }
    ~FillMdx() { unlink("fill.mdx"); }
    void Run() {
        OpenIndex<Mdx> index("fill.mdx", field);
        KeyRoom bytes;
        for (const Key& key : keys) {
            index.MakeKey(bytes, key, field);
            CheckCode(Mdx::Add(index.handle, bytes, key.record), "add");
        }
    }

  private:
    On field;
    std::vector<Key> keys;
};

// SQLite: an index on a column of the table, except for the adds.

enum class Each { InTransaction, Alone };

class FindSqlite {
  public:
    FindSqlite(On on, Each each, const char* journal)
        : field(on), together(each == Each::InTransaction), keys(Lookups()), db(IndexedName) {
        db.Exec((std::string("PRAGMA journal_mode=") + journal).c_str());
        select = db.Prepare((std::string("SELECT rowid FROM people WHERE ") + Column(on) + "=?").c_str());
        Run();
    }
    ~FindSqlite() {
        sqlite3_finalize(select);
        db.Exec("PRAGMA journal_mode=OFF");
    }
    void Run() {
        if (together) db.Exec("BEGIN");
        for (const Key& key : keys) {
            BindKey(select, key, field);
            Check(sqlite3_step(select) == SQLITE_ROW, "find");
            Check(sqlite3_column_int64(select, 0) == key.record, "find", key.record);
            sqlite3_reset(select);
        }
        if (together) db.Exec("COMMIT");
    }

  private:
    On field;
    bool together;
    const std::vector<Key>& keys;
    Sqlite db;
    sqlite3_stmt* select;
};

class WalkSqlite {
  public:
    explicit WalkSqlite(On on) : db(IndexedName) {
        std::string column = Column(on);
        select = db.Prepare(("SELECT " + column + ", rowid FROM people ORDER BY " + column).c_str());
        Run();
    }
    ~WalkSqlite() { sqlite3_finalize(select); }
    void Run() {
        uint64_t sum = 0;
        while (sqlite3_step(select) == SQLITE_ROW)
            sum += static_cast<uint64_t>(sqlite3_column_int64(select, 1));
        sqlite3_reset(select);
        CheckWalk(sum);
    }

  private:
    Sqlite db;
    sqlite3_stmt* select;
};

class RangeSqlite {
  public:
    explicit RangeSqlite(On on) : field(on), keys(Lookups()), db(IndexedName) {
        std::string column = Column(on);
        select = db.Prepare(("SELECT " + column + ", rowid FROM people WHERE " + column + ">=? ORDER BY " +
                             column + " LIMIT " + std::to_string(RangeKeys))
                                .c_str());
        Run();
    }
    ~RangeSqlite() { sqlite3_finalize(select); }
    void Run() {
        for (uint32_t i = 0; i < sizes.ranges; i++) {
            BindKey(select, keys[i], field);
            Check(sqlite3_step(select) == SQLITE_ROW, "find");
            Check(sqlite3_column_int64(select, 1) == keys[i].record, "find", keys[i].record);
            while (sqlite3_step(select) == SQLITE_ROW) continue;
            sqlite3_reset(select);
        }
    }

  private:
    On field;
    const std::vector<Key>& keys;
    Sqlite db;
    sqlite3_stmt* select;
};

class BuildSqlite {
  public:
    explicit BuildSqlite(On on) : field(on) {
        CopyFile(TableName, "build.db");
        Warm("build.db");
    }
    ~BuildSqlite() { unlink("build.db"); }
    void Run() {
        Sqlite db("build.db");
        db.Exec((std::string("CREATE INDEX built ON people(") + Column(field) + ")").c_str());
    }

  private:
    On field;
};

// A tree of keys and record numbers without a table: the least that SQLite can
// be asked to keep.
std::string SqliteKeysName(On on) { return std::string(Column(on)) + "-keys.db"; }
constexpr char InsertKey[] = "INSERT INTO keys VALUES(?,?)";
constexpr char DeleteKey[] = "DELETE FROM keys WHERE key=? AND record=?";

void ChangeKey(sqlite3_stmt* statement, const Key& key, On on) {
    BindKey(statement, key, on);
    sqlite3_bind_int64(statement, 2, key.record);
    Check(sqlite3_step(statement) == SQLITE_DONE, "a change of a key");
    sqlite3_reset(statement);
}

class ChangeSqlite {
  public:
    ChangeSqlite(On on, Change what) : field(on), change(what), keys(KeysTo(what)) {
        CopyFile(SqliteKeysName(on), "change.db");
        Warm("change.db");
    }
    ~ChangeSqlite() { unlink("change.db"); }
    void Run() {
        Sqlite db("change.db");
        SqliteStatement statement(db, change == Change::Add ? InsertKey : DeleteKey);
        db.Exec("BEGIN");
        for (const Key& key : keys) ChangeKey(statement, key, field);
        db.Exec("COMMIT");
    }

  private:
    On field;
    Change change;
    const std::vector<Key>& keys;
};

// LMDB: the key, and the record number as its value.

std::string LmdbName(On on) { return std::string(Column(on)) + ".mdb"; }

class FindLmdb {
  public:
    FindLmdb(On on, Each each)
        : field(on),
          together(each == Each::InTransaction),
          keys(Lookups()),
          db(LmdbName(on)),
          txn(db.Begin(true)) {
        Run();
    }
    ~FindLmdb() { mdb_txn_abort(txn); }
    void Run() {
        for (const Key& key : keys) {
            if (!together) {
                mdb_txn_reset(txn);
                Check(mdb_txn_renew(txn) == 0, "mdb_txn_renew");
            }
            MDB_val name{Length(key, field), const_cast<void*>(Bytes(key, field))};
            MDB_val value;
            Check(mdb_get(txn, db.dbi, &name, &value) == 0, "find", key.record);
            uint32_t record;
            memcpy(&record, value.mv_data, sizeof record);
            Check(record == key.record, "find", key.record);
        }
    }

  private:
    On field;
    bool together;
    const std::vector<Key>& keys;
    Lmdb db;
    MDB_txn* txn;
};

class WalkLmdb {
  public:
    explicit WalkLmdb(On on) : db(LmdbName(on)), txn(db.Begin(true)) { Run(); }
    ~WalkLmdb() { mdb_txn_abort(txn); }
    void Run() {
        MDB_cursor* cursor;
        Check(mdb_cursor_open(txn, db.dbi, &cursor) == 0, "mdb_cursor_open");
        MDB_val name, value;
        uint64_t sum = 0;
        while (mdb_cursor_get(cursor, &name, &value, MDB_NEXT) == 0) {
            uint32_t record;
            memcpy(&record, value.mv_data, sizeof record);
            sum += record;
        }
        mdb_cursor_close(cursor);
        CheckWalk(sum);
    }

  private:
    Lmdb db;
    MDB_txn* txn;
};

class RangeLmdb {
  public:
    explicit RangeLmdb(On on) : field(on), keys(Lookups()), db(LmdbName(on)), txn(db.Begin(true)) { Run(); }
    ~RangeLmdb() { mdb_txn_abort(txn); }
    void Run() {
        MDB_cursor* cursor;
        Check(mdb_cursor_open(txn, db.dbi, &cursor) == 0, "mdb_cursor_open");
        for (uint32_t i = 0; i < sizes.ranges; i++) {
            MDB_val name{Length(keys[i], field), const_cast<void*>(Bytes(keys[i], field))};
            MDB_val value;
            int code = mdb_cursor_get(cursor, &name, &value, MDB_SET_RANGE);
            Check(code == 0, "find", keys[i].record);
            for (int key = 1; key < RangeKeys && code == 0; key++)
                code = mdb_cursor_get(cursor, &name, &value, MDB_NEXT);
        }
        mdb_cursor_close(cursor);
    }

  private:
    On field;
    const std::vector<Key>& keys;
    Lmdb db;
    MDB_txn* txn;
};

// What a program has to do that keeps its index in LMDB: read the data file in
// large pieces, sort the keys in memory, and append them in order.
struct SortItem {
    unsigned char bytes[NameWidth];
    uint32_t record;
};

template <class Take>
void SortAll(On on, Take take) {
    std::vector<SortItem> items(sizes.records);
    int file = open(DataName, O_RDONLY);
    Check(file >= 0, DataName);
    off_t at = FirstRecordAt();
    constexpr size_t Piece = 1000;
    std::vector<char> piece(Piece * RecordLength);
    for (size_t i = 0; i < items.size(); i += Piece) {
        size_t count = std::min(Piece, items.size() - i);
        auto bytes = static_cast<ssize_t>(count * RecordLength);
        Check(pread(file, piece.data(), static_cast<size_t>(bytes), at) == bytes, "pread");
        at += bytes;
        for (size_t j = 0; j < count; j++) {
            const char* name = piece.data() + j * RecordLength + 1;
            items[i + j].record = static_cast<uint32_t>(i + j + 1);
            if (on == On::Name) {
                memcpy(items[i + j].bytes, name, NameWidth);
            } else {
                double amount =
                    strtod(std::string(name + NameWidth + TextWidth, AmountWidth).c_str(), nullptr);
                unsigned char sortable[8];
                Sortable(amount, sortable);
                memcpy(items[i + j].bytes, sortable, sizeof sortable);
            }
        }
    }
    close(file);
    size_t length = on == On::Name ? NameWidth : 8;
    std::sort(items.begin(), items.end(), [length](const SortItem& a, const SortItem& b) {
        return memcmp(a.bytes, b.bytes, length) < 0;
    });
    for (const SortItem& item : items) take(item);
}

size_t ItemLength(const SortItem& item, On on) {
    return on == On::Amount
               ? 8
               : static_cast<size_t>(Trimmed(reinterpret_cast<const char*>(item.bytes), NameWidth));
}

class BuildLmdb {
  public:
    explicit BuildLmdb(On on, const std::string& file = "build.mdb") : field(on), name(file) {
        unlink(name.c_str());
        unlink((name + "-lock").c_str());
    }
    ~BuildLmdb() {
        if (name != "build.mdb") return;
        unlink(name.c_str());
        unlink((name + "-lock").c_str());
    }
    void Run() {
        Lmdb db(name);
        MDB_txn* txn = db.Begin(false);
        SortAll(field, [&](const SortItem& item) {
            db.Put(txn, item.bytes, ItemLength(item, field), item.record, MDB_APPEND);
        });
        Lmdb::Commit(txn);
    }

  private:
    On field;
    std::string name;
};

// The sort alone, and the sorted items written one after the other.
class BuildNothing {
  public:
    explicit BuildNothing(On on) : field(on) {}
    ~BuildNothing() { unlink("build.items"); }
    void Run() {
        FILE* file = fopen("build.items", "wb");
        SortAll(field, [&](const SortItem& item) { fwrite(&item, sizeof item, 1, file); });
        fclose(file);
    }

  private:
    On field;
};

class ChangeLmdb {
  public:
    ChangeLmdb(On on, Change what) : field(on), change(what), keys(KeysTo(what)) {
        CopyFile(LmdbName(on), "change.mdb");
    }
    ~ChangeLmdb() {
        unlink("change.mdb");
        unlink("change.mdb-lock");
    }
    void Run() {
        Lmdb db("change.mdb");
        MDB_txn* txn = db.Begin(false);
        for (const Key& key : keys) {
            if (change == Change::Add)
                db.Put(txn, Bytes(key, field), Length(key, field), key.record, 0);
            else
                db.Delete(txn, Bytes(key, field), Length(key, field));
        }
        Lmdb::Commit(txn);
    }

  private:
    On field;
    Change change;
    const std::vector<Key>& keys;
};

// The least that a change costs: one page read and written where it stands.
class ChangeCalls {
  public:
    ChangeCalls(On on, Change what) : keys(KeysTo(what)) {
        CopyFile(NameOf<Ndx>(on), "change.pages");
        file = open("change.pages", O_RDWR);
        Check(file >= 0, "change.pages");
        pages = static_cast<uint32_t>(lseek(file, 0, SEEK_END) / PageSize);
        Warm("change.pages");
    }
    ~ChangeCalls() {
        close(file);
        unlink("change.pages");
    }
    void Run() {
        char page[PageSize];
        for (const Key& key : keys) {
            off_t at = static_cast<off_t>(key.record * 2654435761u % pages) * PageSize;
            Check(pread(file, page, PageSize, at) == PageSize, "pread");
            Check(pwrite(file, page, PageSize, at) == PageSize, "pwrite");
        }
    }

  private:
    static constexpr int PageSize = 512;
    const std::vector<Key>& keys;
    int file;
    uint32_t pages;
};

// The least that a look-up costs by calls: one page read.
class FindCalls {
  public:
    explicit FindCalls(On on) : keys(Lookups()), name(NameOf<Ndx>(on)), file(open(name.c_str(), O_RDONLY)) {
        Check(file >= 0, name.c_str());
        pages = static_cast<uint32_t>(lseek(file, 0, SEEK_END) / PageSize);
        Warm(name);
    }
    ~FindCalls() { close(file); }
    void Run() {
        char page[PageSize];
        for (const Key& key : keys) {
            off_t at = static_cast<off_t>(key.record * 2654435761u % pages) * PageSize;
            Check(pread(file, page, PageSize, at) == PageSize, "pread");
        }
    }

  private:
    static constexpr int PageSize = 512;
    const std::vector<Key>& keys;
    std::string name;
    int file;
    uint32_t pages;
};

// Registration.

// Calls `use` with each family that is measured at this size.
template <class Use>
void ForEachMeasured(Use use) {
    ForEachFamily([&](auto family) {
        if (sizes.records <= family.Largest) use(family);
    });
}

// The same without those whose keys can't be found.
template <class Use>
void ForEachExact(Use use) {
    ForEachMeasured([&](auto family) {
        if constexpr (decltype(family)::Exact) use(family);
    });
}

void MakeIndexFiles(On on) {
    if (access(LmdbName(on).c_str(), F_OK) == 0) return;
    int16_t data = OpenData(DataName);
    ForEachMeasured([&](auto family) {
        using F = decltype(family);
        F::Build(data, NameOf<F>(on).c_str(), on);
    });
    ZBDDCLOSE(data);
    BuildLmdb(on, LmdbName(on)).Run();

    if (sizes.records > Million) return;  // nothing is changed at larger sizes
    Sqlite db(SqliteKeysName(on));
    db.Exec(on == On::Name
                ? "CREATE TABLE keys(key TEXT, record INTEGER, PRIMARY KEY(key, record)) WITHOUT ROWID"
                : "CREATE TABLE keys(key REAL, record INTEGER, PRIMARY KEY(key, record)) WITHOUT ROWID");
    SqliteStatement insert(db, InsertKey);
    db.Exec("BEGIN");
    SortAll(on, [&](const SortItem& item) { ChangeKey(insert, KeyOf(item.record), on); });
    db.Exec("COMMIT");
}

std::string Ours(const char* label) { return std::string("zb ") + label; }

void FindWorkload(const std::string& title, On on) {
    Workload("find-" + std::string(Column(on)), title, "key",
             "Random keys that exist, in an index of all records, warm. Each look-up of the library sees the "
             "file as it is at that moment, other programs' changes with it; SQLite and LMDB do that where "
             "each look-up is a transaction of its own (\"alone\"), and see one state of the file where all "
             "stand in one. \"pread\" is the reading of one page by a call of the system.");
    Needs([on] { MakeIndexFiles(on); });
    ForEachExact([&](auto family) { Own<FindZb<decltype(family)>>(family.Label, sizes.lookups, on); });
    Peer<FindSqlite>("SQLite alone", sizes.lookups, on, Each::Alone, "OFF");
    Peer<FindSqlite>("SQLite alone, WAL", sizes.lookups, on, Each::Alone, "WAL");
    Peer<FindSqlite>("SQLite", sizes.lookups, on, Each::InTransaction, "OFF");
    Peer<FindLmdb>("LMDB alone", sizes.lookups, on, Each::Alone);
    Peer<FindLmdb>("LMDB", sizes.lookups, on, Each::InTransaction);
    Floor<FindCalls>("pread", sizes.lookups, on);
    ForEachExact([&](auto family) { AimAt(Ours(family.Label), "SQLite alone", 5); });
    ForEachExact([&](auto family) { AimAt(Ours(family.Label), "SQLite", 1); });
    ForEachExact([&](auto family) { AimAt(Ours(family.Label), "LMDB alone", 1); });
    for (auto peer : {"LMDB", "LMDB alone", "SQLite"}) Reason(peer, PagesReason);
}

void BuildWorkload(const std::string& title, On on) {
    Workload("build-" + std::string(Column(on)), title, "record",
             "From all records of the file. The library reads the data file and sorts in 64 KiB and a work "
             "file; SQLite (CREATE INDEX) and LMDB (keys read from the data file, sorted, appended) have all "
             "the memory they want. \"sort and write\" writes the sorted keys one behind the other. An MDX "
             "tag is built by adding key after key in the order of the records; \"zb MDX adds\" is the same "
             "by single calls.");
    ForEachMeasured([&](auto family) { Own<BuildZb<decltype(family)>>(family.Label, sizes.records, on); });
    if (sizes.records <= Mdx::Largest) Own<FillMdx>("MDX adds", sizes.records, on);
    Peer<BuildSqlite>("SQLite", sizes.records, on);
    Peer<BuildLmdb>("LMDB", sizes.records, on);
    Floor<BuildNothing>("sort and write", sizes.records, on);
    ForEachMeasured([&](auto family) { AimAt(Ours(family.Label), "SQLite", 2); });
    ForEachMeasured([&](auto family) { AimAt(Ours(family.Label), "LMDB", 1); });
    for (auto peer : {"SQLite", "LMDB"})
        Reason(peer,
               "A tag has no bulk path: where keys come in the order of the records, each is a search in "
               "the tree. Sorting them first would do, but leave other pages than the format's other "
               "writers make. The other families merge their runs from a work file, where LMDB's builder "
               "sorts in memory: a buffer of all keys in place of 64 KiB would catch up.");
}

void WalkWorkload(const std::string& title, On on) {
    Workload("walk-" + std::string(Column(on)), title, "key",
             "The first key and then the next one until the end. Between two calls the library holds nothing "
             "but the key, and finds it again from the root, in the file as it is then; the others have a "
             "cursor in the tree and see one state of the file. A compact IDX file keeps no keys that could "
             "be found, so that each step looks through all that lies before it: its first 1000 keys are "
             "walked.");
    Needs([on] { MakeIndexFiles(on); });
    ForEachMeasured([&](auto family) {
        uint32_t count = family.Exact ? sizes.records : 1000;
        Own<WalkZb<decltype(family)>>(family.Label, count, on, count);
    });
    Peer<WalkSqlite>("SQLite", sizes.records, on);
    Peer<WalkLmdb>("LMDB", sizes.records, on);
    for (auto peer : {"SQLite", "LMDB"}) Reason(peer, WalkReason);
}

void RangeWorkload(const std::string& title, On on) {
    Workload("range-" + std::string(Column(on)), title, "key",
             "A random key that exists is found, and the 99 behind it follow. A compact IDX file has no keys "
             "that could be found.");
    Needs([on] { MakeIndexFiles(on); });
    uint64_t items = uint64_t{sizes.ranges} * RangeKeys;
    ForEachExact([&](auto family) { Own<RangeZb<decltype(family)>>(family.Label, items, on); });
    Peer<RangeSqlite>("SQLite", items, on);
    Peer<RangeLmdb>("LMDB", items, on);
    for (auto peer : {"SQLite", "LMDB"}) Reason(peer, WalkReason);
}

void ChangeWorkload(const std::string& title, On on, Change change) {
    bool adds = change == Change::Add;
    Workload(
        (adds ? "add-" : "delete-") + std::string(Column(on)), title, "key",
        std::string(adds ? "Random new keys into an index of all records."
                         : "Random keys out of an index of all records.") +
            " Each change of the library is in the file when the call returns; SQLite (a table of keys "
            "and record numbers without row numbers) and LMDB make all in one transaction. \"pread and "
            "pwrite\" reads one page and writes it back." +
            (adds ? ""
                  : " Of an MDX tag only so many keys are deleted as go well: sooner or later a leaf takes "
                    "keys from its neighbour in a way that leaves the tag damaged, which the format's "
                    "other programs do, too."));
    Needs([on] { MakeIndexFiles(on); });
    ForEachExact([&](auto family) {
        if constexpr (std::is_same_v<decltype(family), Mdx>)
            if (!adds) return Own<DeleteMdx>(family.Label, sizes.changes, on);
        Own<ChangeZb<decltype(family)>>(family.Label, sizes.changes, on, change);
    });
    Peer<ChangeSqlite>("SQLite", sizes.changes, on, change);
    Peer<ChangeLmdb>("LMDB", sizes.changes, on, change);
    Floor<ChangeCalls>("pread and pwrite", sizes.changes, on, change);
    if (adds) ForEachExact([&](auto family) { AimAt(Ours(family.Label), "SQLite", 1.5); });
    for (auto peer : {"SQLite", "LMDB"}) Reason(peer, std::string(ChangeReason) + (adds ? SplitReason : ""));
}

}  // namespace

void IndexWorkloads() {
    FindWorkload("Looking up names", On::Name);
    if (sizes.records <= Million) {
        FindWorkload("Looking up numbers", On::Amount);
        WalkWorkload("Walking all names", On::Name);
        WalkWorkload("Walking all numbers", On::Amount);
        RangeWorkload("Ranges of 100 names", On::Name);
        RangeWorkload("Ranges of 100 numbers", On::Amount);
        ChangeWorkload("Adding names", On::Name, Change::Add);
        ChangeWorkload("Adding numbers", On::Amount, Change::Add);
        ChangeWorkload("Deleting names", On::Name, Change::Delete);
        ChangeWorkload("Deleting numbers", On::Amount, Change::Delete);
        BuildWorkload("Building an index on numbers", On::Amount);
    }
    BuildWorkload("Building an index on names", On::Name);
}

std::string IndexSizes() {
    std::string out = "### Size of indexes\n\nOf " + Grouped(sizes.records) +
                      " records, as they were built: bytes a key, and beside the standard IDX file's.\n\n"
                      "| | names | | numbers | |\n|---|---:|---:|---:|---:|\n";
    for (On on : {On::Name, On::Amount}) MakeIndexFiles(on);
    auto line = [&](const std::string& label, auto nameOf) {
        out += "| " + label + " |";
        for (On on : {On::Name, On::Amount}) {
            auto bytes = static_cast<double>(std::filesystem::file_size(nameOf(on)));
            auto standard = static_cast<double>(std::filesystem::file_size(NameOf<Idx>(on)));
            out += Format(" %.1f |", bytes / sizes.records) + Format(" %.2f |", bytes / standard);
        }
        out += "\n";
    };
    ForEachMeasured([&](auto family) { line(Ours(family.Label), NameOf<decltype(family)>); });
    line("LMDB", LmdbName);
    line("SQLite, keys without a table", SqliteKeysName);
    return out + "\n";
}

}  // namespace bench
