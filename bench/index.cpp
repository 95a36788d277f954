// Indexes: look-ups, the walk, the build and random adds.
#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cstring>
#include <vector>

#include "data.h"
#include "families.h"
#include "files.h"
#include "peers.h"
#include "report.h"
#include "workloads.h"

namespace bench {
namespace {

// The keys that are looked up: the same for all.
const std::vector<Key>& Lookups() {
    static const auto keys = DrawKeys(sizes.lookups, 1, sizes.records);
    return keys;
}

// The keys that are added, of records behind the last, in random order.
const std::vector<Key>& Adds() {
    static const auto keys = [] {
        std::vector<Key> made;
        for (uint32_t i = 1; i <= sizes.adds; i++) made.push_back(KeyOf(sizes.records + i));
        return made;
    }();
    return keys;
}

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

// The library's own.

template <class F>
std::string NameOf(On on) {
    return std::string(Column(on)) + F::Extension;
}

template <class F>
class OpenIndex {
  public:
    OpenIndex(const std::string& name, On on) : handle(F::Open(name.c_str(), on)) { Warm(name); }
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
    explicit FindZb(On on) : index(NameOf<F>(on), on), field(on), keys(Lookups()) { Run(); }
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
    explicit WalkZb(On on) : index(NameOf<F>(on), on) {}
    void Run() {
        KeyRoom bytes;
        uint32_t record;
        uint64_t sum = 0;
        int32_t code = F::Top(index.handle, bytes, &record);
        for (uint32_t i = 0; i < sizes.records; i++) {
            Check(code == 0, "walk", code);
            sum += record;
            code = F::Next(index.handle, bytes, &record);
        }
        Check(sum == uint64_t{sizes.records} * (sizes.records + 1) / 2, "the walk's records");
    }

  private:
    OpenIndex<F> index;
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

template <class F>
class AddZb {
  public:
    explicit AddZb(On on) : field(on), name("add" + std::string(F::Extension)), keys(Adds()) {
        CopyFile(NameOf<F>(on), name);
    }
    ~AddZb() { unlink(name.c_str()); }
    void Run() {
        OpenIndex<F> index(name, field);
        KeyRoom bytes;
        for (const Key& key : keys) {
            index.MakeKey(bytes, key, field);
            CheckCode(F::Add(index.handle, bytes, key.record), "add");
        }
    }

  private:
    On field;
    std::string name;
    const std::vector<Key>& keys;
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
        Check(sum == uint64_t{sizes.records} * (sizes.records + 1) / 2, "the walk's records");
    }

  private:
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

void AddKey(sqlite3_stmt* insert, const Key& key, On on) {
    BindKey(insert, key, on);
    sqlite3_bind_int64(insert, 2, key.record);
    Check(sqlite3_step(insert) == SQLITE_DONE, "insert");
    sqlite3_reset(insert);
}

class AddSqlite {
  public:
    explicit AddSqlite(On on) : field(on), keys(Adds()) {
        CopyFile(SqliteKeysName(on), "add.db");
        Warm("add.db");
    }
    ~AddSqlite() { unlink("add.db"); }
    void Run() {
        Sqlite db("add.db");
        SqliteStatement insert(db, InsertKey);
        db.Exec("BEGIN");
        for (const Key& key : keys) AddKey(insert, key, field);
        db.Exec("COMMIT");
    }

  private:
    On field;
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
        Check(sum == uint64_t{sizes.records} * (sizes.records + 1) / 2, "the walk's records");
    }

  private:
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

class AddLmdb {
  public:
    explicit AddLmdb(On on) : field(on), keys(Adds()) { CopyFile(LmdbName(on), "add.mdb"); }
    ~AddLmdb() {
        unlink("add.mdb");
        unlink("add.mdb-lock");
    }
    void Run() {
        Lmdb db("add.mdb");
        MDB_txn* txn = db.Begin(false);
        for (const Key& key : keys) db.Put(txn, Bytes(key, field), Length(key, field), key.record, 0);
        Lmdb::Commit(txn);
    }

  private:
    On field;
    const std::vector<Key>& keys;
};

// Registration.

void MakeIndexFiles(On on) {
    if (access(LmdbName(on).c_str(), F_OK) == 0) return;
    int16_t data = OpenData(DataName);
    ForEachFamily([&](auto family) {
        using F = decltype(family);
        F::Build(data, NameOf<F>(on).c_str(), on);
    });
    ZBDDCLOSE(data);
    BuildLmdb(on, LmdbName(on)).Run();

    Sqlite db(SqliteKeysName(on));
    db.Exec(on == On::Name
                ? "CREATE TABLE keys(key TEXT, record INTEGER, PRIMARY KEY(key, record)) WITHOUT ROWID"
                : "CREATE TABLE keys(key REAL, record INTEGER, PRIMARY KEY(key, record)) WITHOUT ROWID");
    SqliteStatement insert(db, InsertKey);
    db.Exec("BEGIN");
    SortAll(on, [&](const SortItem& item) { AddKey(insert, KeyOf(item.record), on); });
    db.Exec("COMMIT");
}

std::string Ours(const char* label) { return std::string("zb ") + label; }

void WorkloadsOn(On on) {
    std::string column = Column(on);
    std::string keys = on == On::Name ? "names of 20 characters" : "numbers";
    auto files = [on] { MakeIndexFiles(on); };

    Workload("find-" + column, "Looking up " + keys, "key",
             "Random keys that exist, in an index of all records, warm. Each look-up of the library sees the "
             "file as "
             "it is at that moment, other programs' changes with it; SQLite and LMDB do that where each "
             "look-up is a "
             "transaction of its own (\"alone\"), and see one state of the file where all stand in one.");
    Needs(files);
    ForEachFamily([&](auto family) {
        using F = decltype(family);
        Contend<FindZb<F>>(Ours(F::Label), sizes.lookups, on);
    });
    Contend<FindSqlite>("SQLite alone", sizes.lookups, on, Each::Alone, "OFF");
    Contend<FindSqlite>("SQLite alone, WAL", sizes.lookups, on, Each::Alone, "WAL");
    Contend<FindSqlite>("SQLite", sizes.lookups, on, Each::InTransaction, "OFF");
    Contend<FindLmdb>("LMDB alone", sizes.lookups, on, Each::Alone);
    Contend<FindLmdb>("LMDB", sizes.lookups, on, Each::InTransaction);
    ForEachFamily([&](auto family) {
        Aim(Ours(family.Label), "SQLite alone", 5);
        Aim(Ours(family.Label), "SQLite", 1);
        Aim(Ours(family.Label), "LMDB alone", 1);
    });

    Workload("walk-" + column, "Walking all " + keys, "key",
             "The first key and then the next one until the end. Between two calls the library holds nothing "
             "but the "
             "key, and finds it again from the root; the others have a cursor in the tree.");
    Needs(files);
    ForEachFamily(
        [&](auto family) { Contend<WalkZb<decltype(family)>>(Ours(family.Label), sizes.records, on); });
    Contend<WalkSqlite>("SQLite", sizes.records, on);
    Contend<WalkLmdb>("LMDB", sizes.records, on);

    Workload(
        "build-" + column, "Building an index on " + keys, "record",
        "From all records of the file. The library reads the data file and sorts in 64 KiB and a work file; "
        "SQLite (CREATE INDEX) and LMDB (keys read from the data file, sorted, appended) have all the memory "
        "they want. \"sort and write\" writes the sorted keys one behind the other.");
    ForEachFamily(
        [&](auto family) { Contend<BuildZb<decltype(family)>>(Ours(family.Label), sizes.records, on); });
    Contend<BuildSqlite>("SQLite", sizes.records, on);
    Contend<BuildLmdb>("LMDB", sizes.records, on);
    Contend<BuildNothing>("sort and write", sizes.records, on);
    ForEachFamily([&](auto family) {
        Aim(Ours(family.Label), "SQLite", 2);
        Aim(Ours(family.Label), "LMDB", 1);
    });

    Workload(
        "add-" + column, "Adding " + keys, "key",
        "Random keys into an index of all records. Each add of the library is in the file when it returns; "
        "SQLite (a table of keys and record numbers without row numbers) and LMDB add all in one "
        "transaction.");
    Needs(files);
    ForEachFamily([&](auto family) { Contend<AddZb<decltype(family)>>(Ours(family.Label), sizes.adds, on); });
    Contend<AddSqlite>("SQLite", sizes.adds, on);
    Contend<AddLmdb>("LMDB", sizes.adds, on);
    ForEachFamily([&](auto family) { Aim(Ours(family.Label), "SQLite", 1.5); });
}

}  // namespace

void IndexWorkloads() {
    WorkloadsOn(On::Name);
    WorkloadsOn(On::Amount);
}

}  // namespace bench
