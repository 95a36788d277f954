// The other stores: SQLite and LMDB in small classes that end the program when a
// call fails, and the files that the workloads read. shapelib is used as it is.
//
// SQLite runs without a journal and without syncs and with a cache that holds
// the whole file, LMDB without syncs. That is the least that each can be asked
// to do; it comes nearest to the library, which hands every write to the system
// at once and never waits for the disk.
#pragma once

#include <lmdb.h>
#include <sqlite3.h>

#include <cstdint>
#include <string>

#include "data.h"

namespace bench {

class Sqlite {
  public:
    explicit Sqlite(const std::string& name);
    ~Sqlite() { sqlite3_close(db); }
    Sqlite(const Sqlite&) = delete;
    Sqlite& operator=(const Sqlite&) = delete;

    void Exec(const char* sql);
    sqlite3_stmt* Prepare(const char* sql);

  private:
    sqlite3* db = nullptr;
};

class SqliteStatement {
  public:
    SqliteStatement(Sqlite& db, const char* sql) : statement(db.Prepare(sql)) {}
    ~SqliteStatement() { sqlite3_finalize(statement); }
    SqliteStatement(const SqliteStatement&) = delete;
    SqliteStatement& operator=(const SqliteStatement&) = delete;
    operator sqlite3_stmt*() const { return statement; }

  private:
    sqlite3_stmt* statement;
};

class Lmdb {
  public:
    explicit Lmdb(const std::string& name);
    ~Lmdb() { mdb_env_close(env); }
    Lmdb(const Lmdb&) = delete;
    Lmdb& operator=(const Lmdb&) = delete;

    MDB_txn* Begin(bool readOnly);
    static void Commit(MDB_txn* txn);
    void Put(MDB_txn* txn, const void* key, size_t length, uint32_t record, unsigned flags);
    void Delete(MDB_txn* txn, const void* key, size_t length);

    MDB_dbi dbi = 0;

  private:
    MDB_env* env = nullptr;
};

// The version of each peer, for the head of the report.
std::string PeerVersions();

// The table of all people, its columns and what an insert binds.
inline constexpr char CreateTable[] =
    "CREATE TABLE people(name TEXT, text TEXT, amount REAL, date TEXT, flag INTEGER)";
inline constexpr char InsertRow[] = "INSERT INTO people VALUES(?,?,?,?,?)";
void InsertPerson(sqlite3_stmt* insert, const Person& person);

// The files of the data set in each store, made once.
inline constexpr char TableName[] = "people.db";     // SQLite: the table alone
inline constexpr char IndexedName[] = "indexed.db";  // and with an index on each of two columns
void MakeSqliteFiles();

}  // namespace bench
