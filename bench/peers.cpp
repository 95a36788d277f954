#include "peers.h"

#include <cstring>

#include "files.h"

namespace bench {

Sqlite::Sqlite(const std::string& name) {
    Check(sqlite3_open(name.c_str(), &db) == SQLITE_OK, name.c_str());
    Exec("PRAGMA journal_mode=OFF");
    Exec("PRAGMA synchronous=OFF");
    Exec("PRAGMA cache_size=-2097152");
    Exec("PRAGMA mmap_size=2147418112");
    Exec("PRAGMA temp_store=MEMORY");
}

void Sqlite::Exec(const char* sql) {
    Check(sqlite3_exec(db, sql, nullptr, nullptr, nullptr) == SQLITE_OK, sql);
}

sqlite3_stmt* Sqlite::Prepare(const char* sql) {
    sqlite3_stmt* statement = nullptr;
    Check(sqlite3_prepare_v3(db, sql, -1, SQLITE_PREPARE_PERSISTENT, &statement, nullptr) == SQLITE_OK, sql);
    return statement;
}

void InsertPerson(sqlite3_stmt* insert, const Person& person) {
    sqlite3_bind_text(insert, 1, person.name, Trimmed(person.name, NameWidth), SQLITE_STATIC);
    sqlite3_bind_text(insert, 2, person.text, Trimmed(person.text, TextWidth), SQLITE_STATIC);
    sqlite3_bind_double(insert, 3, person.amount);
    sqlite3_bind_text(insert, 4, person.date, 8, SQLITE_STATIC);
    sqlite3_bind_int(insert, 5, person.flag);
    Check(sqlite3_step(insert) == SQLITE_DONE, "insert");
    sqlite3_reset(insert);
}

Lmdb::Lmdb(const std::string& name) {
    Check(mdb_env_create(&env) == 0, "mdb_env_create");
    Check(mdb_env_set_mapsize(env, size_t{4} << 30) == 0, "mdb_env_set_mapsize");
    Check(mdb_env_open(env, name.c_str(), MDB_NOSUBDIR | MDB_NOSYNC, 0644) == 0, name.c_str());
    MDB_txn* txn = Begin(false);
    Check(mdb_dbi_open(txn, nullptr, 0, &dbi) == 0, "mdb_dbi_open");
    Commit(txn);
}

MDB_txn* Lmdb::Begin(bool readOnly) {
    MDB_txn* txn = nullptr;
    Check(mdb_txn_begin(env, nullptr, readOnly ? MDB_RDONLY : 0, &txn) == 0, "mdb_txn_begin");
    return txn;
}

void Lmdb::Commit(MDB_txn* txn) { Check(mdb_txn_commit(txn) == 0, "mdb_txn_commit"); }

void Lmdb::Put(MDB_txn* txn, const void* key, size_t length, uint32_t record, unsigned flags) {
    MDB_val name{length, const_cast<void*>(key)};
    MDB_val value{sizeof record, &record};
    int code = mdb_put(txn, dbi, &name, &value, flags);
    Check(code == 0, "mdb_put", code);
}

void Lmdb::Delete(MDB_txn* txn, const void* key, size_t length) {
    MDB_val name{length, const_cast<void*>(key)};
    int code = mdb_del(txn, dbi, &name, nullptr);
    Check(code == 0, "mdb_del", code);
}

std::string PeerVersions() {
    int major, minor, patch;
    mdb_version(&major, &minor, &patch);
    return std::string("SQLite ") + sqlite3_libversion() + ", LMDB " + std::to_string(major) + "." +
           std::to_string(minor) + "." + std::to_string(patch);
}

void MakeSqliteFiles() {
    {
        Sqlite db(TableName);
        db.Exec(CreateTable);
        db.Exec("BEGIN");
        SqliteStatement insert(db, InsertRow);
        for (uint32_t i = 1; i <= sizes.records; i++) InsertPerson(insert, PersonOf(i));
        db.Exec("COMMIT");
    }
    CopyFile(TableName, IndexedName);
    Sqlite db(IndexedName);
    db.Exec("CREATE INDEX by_name ON people(name)");
    if (sizes.records <= Million) db.Exec("CREATE INDEX by_amount ON people(amount)");
    db.Exec("ANALYZE");
}

}  // namespace bench
