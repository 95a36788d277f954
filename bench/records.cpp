// Reading, appending and updating records.
#include <fcntl.h>
#include <shapefil.h>
#include <unistd.h>

#include <cstdlib>
#include <cstring>
#include <vector>

#include "data.h"
#include "files.h"
#include "peers.h"
#include "report.h"
#include "workloads.h"
#include "zb.hpp"

namespace bench {
namespace {

// What a reader makes of the values, so that none is read for nothing.
struct Sum {
    double amounts = 0;
    uint64_t bytes = 0;

    void Add(const char* name, const char* text, double amount, const char* date, int flag) {
        bytes += static_cast<uint64_t>(name[0] + text[0] + date[7] + flag);
        amounts += amount;
    }
};

// The sum of all amounts, which each reader must come to. Counts of cents are
// whole, but what the stores hold are doubles, added in the same order.
double ExpectedAmounts() {
    static PerSize<double> expected;
    return expected.Get([] {
        double amounts = 0;
        for (uint32_t i = 1; i <= sizes.records; i++) amounts += PersonOf(i).amount;
        return amounts;
    });
}

void CheckAmounts(double amounts) { Check(amounts == ExpectedAmounts(), "a sum over all records"); }

class ReadFields {
  public:
    ReadFields() : data(OpenData(DataName)) { Warm(DataName); }
    ~ReadFields() { ZBDDCLOSE(data); }
    void Run() {
        Sum sum;
        char name[NameWidth + 1], text[TextWidth + 1], date[11], flag;
        double amount;
        for (int32_t i = 1; i <= static_cast<int32_t>(sizes.records); i++) {
            CheckCode(ZBDDRGET(data, i), "ZBDDRGET");
            ZBDDFGET(data, 0, name);
            ZBDDFGET(data, 1, text);
            ZBDDFGET(data, 2, &amount);
            ZBDDFGET(data, 3, date);
            CheckCode(ZBDDFGET(data, 4, &flag), "ZBDDFGET");
            sum.Add(name, text, amount, date, flag);
        }
        CheckAmounts(sum.amounts);
    }

  private:
    int16_t data;
};

class ReadImages {
  public:
    ReadImages() : data(OpenData(DataName)) { Warm(DataName); }
    ~ReadImages() { ZBDDCLOSE(data); }
    void Run() {
        constexpr int TextAt = 1 + NameWidth + 1;
        constexpr int AmountAt = TextAt + TextWidth + 1;
        constexpr int DateAt = AmountAt + 8;
        constexpr int FlagAt = DateAt + 8 + 1;
        Sum sum;
        char image[FlagAt + 1 + 2];
        for (int32_t i = 1; i <= static_cast<int32_t>(sizes.records); i++) {
            CheckCode(ZBDDRGETX(data, image, i), "ZBDDRGETX");
            double amount;
            memcpy(&amount, image + AmountAt, sizeof amount);
            sum.Add(image + 1, image + TextAt, amount, image + DateAt, image[FlagAt]);
        }
        CheckAmounts(sum.amounts);
    }

  private:
    int16_t data;
};

class ReadShapelib {
  public:
    ReadShapelib() : data(DBFOpen(DataName, "rb")) {
        Check(data, DataName);
        Warm(DataName);
    }
    ~ReadShapelib() { DBFClose(data); }
    void Run() {
        Sum sum;
        char name[NameWidth + 1], text[TextWidth + 1], date[9];
        for (int i = 0; i < static_cast<int>(sizes.records); i++) {
            // A string is good until the next is read.
            strcpy(name, DBFReadStringAttribute(data, i, 0));
            strcpy(text, DBFReadStringAttribute(data, i, 1));
            double amount = DBFReadDoubleAttribute(data, i, 2);
            strcpy(date, DBFReadStringAttribute(data, i, 3));
            sum.Add(name, text, amount, date, DBFReadLogicalAttribute(data, i, 4)[0] == 'T');
        }
        CheckAmounts(sum.amounts);
    }

  private:
    DBFHandle data;
};

class ReadSqlite {
  public:
    ReadSqlite() : db(TableName), select(db, "SELECT name, text, amount, date, flag FROM people") {
        Run();  // fills the cache
    }
    void Run() {
        Sum sum;
        while (sqlite3_step(select) == SQLITE_ROW) {
            auto text = [&](int i) { return reinterpret_cast<const char*>(sqlite3_column_text(select, i)); };
            sum.Add(text(0), text(1), sqlite3_column_double(select, 2), text(3),
                    sqlite3_column_int(select, 4));
        }
        sqlite3_reset(select);
        CheckAmounts(sum.amounts);
    }

  private:
    Sqlite db;
    SqliteStatement select;
};

class ReadCalls {
  public:
    ReadCalls() : file(open(DataName, O_RDONLY)) { Warm(DataName); }
    ~ReadCalls() { close(file); }
    void Run() {
        char record[RecordLength];
        off_t at = FirstRecordAt();
        for (uint32_t i = 0; i < sizes.records; i++, at += RecordLength)
            Check(pread(file, record, RecordLength, at) == RecordLength, "pread");
    }

  private:
    int file;
};

// One field of every record.

class ScanField {
  public:
    ScanField() : data(OpenData(DataName)) { Warm(DataName); }
    ~ScanField() { ZBDDCLOSE(data); }
    void Run() {
        double amounts = 0;
        for (int32_t i = 1; i <= static_cast<int32_t>(sizes.records); i++) {
            double amount;
            CheckCode(ZBDDRGET(data, i), "ZBDDRGET");
            CheckCode(ZBDDFGET(data, 2, &amount), "ZBDDFGET");
            amounts += amount;
        }
        CheckAmounts(amounts);
    }

  private:
    int16_t data;
};

// The same by the C++ interface: a walk over the records, and a field held.
class ScanCpp {
  public:
    ScanCpp() : data(DataName, ZB_ReadOnly | ZB_Shared) { Warm(DataName); }
    void Run() {
        double amounts = 0;
        zb::Field amount = data[size_t{2}];
        for (const zb::Record& record : data.records()) {
            (void)record;
            amounts += amount.number();
        }
        CheckAmounts(amounts);
    }

  private:
    zb::DataFile data;
};

class ScanShapelib {
  public:
    ScanShapelib() : data(DBFOpen(DataName, "rb")) {
        Check(data, DataName);
        Warm(DataName);
    }
    ~ScanShapelib() { DBFClose(data); }
    void Run() {
        double amounts = 0;
        for (int i = 0; i < static_cast<int>(sizes.records); i++)
            amounts += DBFReadDoubleAttribute(data, i, 2);
        CheckAmounts(amounts);
    }

  private:
    DBFHandle data;
};

class ScanSqlite {
  public:
    ScanSqlite() : db(TableName), select(db, "SELECT amount FROM people") { Run(); }
    void Run() {
        double amounts = 0;
        while (sqlite3_step(select) == SQLITE_ROW) amounts += sqlite3_column_double(select, 0);
        sqlite3_reset(select);
        CheckAmounts(amounts);
    }

  private:
    Sqlite db;
    SqliteStatement select;
};

class ScanCalls {
  public:
    ScanCalls() : file(open(DataName, O_RDONLY)) { Warm(DataName); }
    ~ScanCalls() { close(file); }
    void Run() {
        double amounts = 0;
        char text[AmountWidth + 1] = {};
        off_t at = FirstRecordAt() + 1 + NameWidth + TextWidth;
        for (uint32_t i = 0; i < sizes.records; i++, at += RecordLength) {
            Check(pread(file, text, AmountWidth, at) == AmountWidth, "pread");
            amounts += strtod(text, nullptr);
        }
        CheckAmounts(amounts);
    }

  private:
    int file;
};

// One field changed, in records all over the file.

constexpr char UpdateName[] = "update.dbf";

const std::vector<Key>& Updates() {
    static PerSize<std::vector<Key>> keys;
    return keys.Get([] { return DrawKeys(sizes.updates, 1, sizes.records); });
}

class UpdateField {
  public:
    UpdateField() : keys(Updates()) {
        CopyFile(DataName, UpdateName);
        Warm(UpdateName);
        data = OpenData(UpdateName);
    }
    ~UpdateField() {
        ZBDDCLOSE(data);
        unlink(UpdateName);
    }
    void Run() {
        for (const Key& key : keys) {
            double amount = key.amount + 1;
            uint32_t record = key.record;
            CheckCode(ZBDDRGET(data, static_cast<int32_t>(record)), "ZBDDRGET");
            CheckCode(ZBDDFPUT(data, 2, &amount), "ZBDDFPUT");
            CheckCode(ZBDDRPUT(data, &record, 256), "ZBDDRPUT");
        }
    }

  private:
    const std::vector<Key>& keys;
    int16_t data;
};

class UpdateShapelib {
  public:
    UpdateShapelib() : keys(Updates()) {
        CopyFile(DataName, UpdateName);
        Warm(UpdateName);
    }
    ~UpdateShapelib() { unlink(UpdateName); }
    void Run() {
        DBFHandle data = DBFOpen(UpdateName, "rb+");
        Check(data, UpdateName);
        for (const Key& key : keys)
            Check(DBFWriteDoubleAttribute(data, static_cast<int>(key.record) - 1, 2, key.amount + 1),
                  "shapelib");
        DBFClose(data);
    }

  private:
    const std::vector<Key>& keys;
};

class UpdateSqlite {
  public:
    UpdateSqlite() : keys(Updates()) {
        CopyFile(TableName, "update.db");
        Warm("update.db");
    }
    ~UpdateSqlite() { unlink("update.db"); }
    void Run() {
        Sqlite db("update.db");
        SqliteStatement update(db, "UPDATE people SET amount=? WHERE rowid=?");
        db.Exec("BEGIN");
        for (const Key& key : keys) {
            sqlite3_bind_double(update, 1, key.amount + 1);
            sqlite3_bind_int64(update, 2, key.record);
            Check(sqlite3_step(update) == SQLITE_DONE, "update");
            sqlite3_reset(update);
        }
        db.Exec("COMMIT");
    }

  private:
    const std::vector<Key>& keys;
};

class UpdateCalls {
  public:
    UpdateCalls() : keys(Updates()) {
        CopyFile(DataName, UpdateName);
        Warm(UpdateName);
        file = open(UpdateName, O_RDWR);
        Check(file >= 0, UpdateName);
    }
    ~UpdateCalls() {
        close(file);
        unlink(UpdateName);
    }
    void Run() {
        char record[RecordLength];
        off_t first = FirstRecordAt();
        for (const Key& key : keys) {
            off_t at = first + off_t{key.record - 1} * RecordLength;
            Check(pread(file, record, RecordLength, at) == RecordLength, "pread");
            Check(pwrite(file, record, RecordLength, at) == RecordLength, "pwrite");
        }
    }

  private:
    const std::vector<Key>& keys;
    int file;
};

// A handful of people, so that the making of values costs nobody anything.
constexpr uint32_t Drawn = 1024;
const Person* People() {
    static const auto* people = [] {
        auto* made = new Person[Drawn];
        for (uint32_t i = 0; i < Drawn; i++) made[i] = PersonOf(i + 1);
        return made;
    }();
    return people;
}

constexpr char AppendName[] = "append.dbf";

class AppendFields {
  public:
    AppendFields() : people(People()) {
        CreateData(AppendName);
        data = OpenData(AppendName);
    }
    ~AppendFields() {
        ZBDDCLOSE(data);
        unlink(AppendName);
    }
    void Run() {
        for (uint32_t i = 0; i < sizes.appends; i++) {
            const Person& person = people[i % Drawn];
            uint32_t record;
            ZBDDFPUT(data, 0, person.name);
            ZBDDFPUT(data, 1, person.text);
            ZBDDFPUT(data, 2, &person.amount);
            ZBDDFPUTS(data, 3, person.date);
            ZBDDFPUT(data, 4, &person.flag);
            CheckCode(ZBDDRPUT(data, &record, 0), "ZBDDRPUT");
        }
    }

  private:
    const Person* people;
    int16_t data;
};

class AppendShapelib {
  public:
    AppendShapelib() : people(People()), data(DBFCreate(AppendName)) {
        Check(data, AppendName);
        DBFAddNativeFieldType(data, "NAME", 'C', NameWidth, 0);
        DBFAddNativeFieldType(data, "TEXT", 'C', TextWidth, 0);
        DBFAddNativeFieldType(data, "AMOUNT", 'N', AmountWidth, 2);
        DBFAddNativeFieldType(data, "DATE", 'D', 8, 0);
        DBFAddNativeFieldType(data, "FLAG", 'L', 1, 0);
    }
    ~AppendShapelib() { unlink(AppendName); }
    void Run() {
        for (int i = 0; i < static_cast<int>(sizes.appends); i++) {
            const Person& person = people[static_cast<uint32_t>(i) % Drawn];
            DBFWriteStringAttribute(data, i, 0, person.name);
            DBFWriteStringAttribute(data, i, 1, person.text);
            DBFWriteDoubleAttribute(data, i, 2, person.amount);
            DBFWriteStringAttribute(data, i, 3, person.date);
            Check(DBFWriteLogicalAttribute(data, i, 4, person.flag ? 'T' : 'F'), "shapelib");
        }
        DBFClose(data);
    }

  private:
    const Person* people;
    DBFHandle data;
};

class AppendSqlite {
  public:
    AppendSqlite() : people(People()) { unlink("append.db"); }
    ~AppendSqlite() { unlink("append.db"); }
    void Run() {
        Sqlite db("append.db");
        db.Exec(CreateTable);
        SqliteStatement insert(db, InsertRow);
        db.Exec("BEGIN");
        for (uint32_t i = 0; i < sizes.appends; i++) InsertPerson(insert, people[i % Drawn]);
        db.Exec("COMMIT");
    }

  private:
    const Person* people;
};

// The writes alone: of the record, or of the record, the end mark and the record
// count, as the format's sharing asks for.
class AppendCalls {
  public:
    explicit AppendCalls(int calls)
        : writes(calls), file(open(AppendName, O_RDWR | O_CREAT | O_TRUNC, 0644)) {
        Check(file >= 0, AppendName);
    }
    ~AppendCalls() {
        close(file);
        unlink(AppendName);
    }
    void Run() {
        char record[RecordLength + 1];
        memset(record, 'x', sizeof record);
        off_t at = 194;
        bool good = true;
        for (uint32_t i = 0; i < sizes.appends; i++, at += RecordLength) {
            good &= pwrite(file, record, RecordLength, at) == RecordLength;
            if (writes == 3) {
                good &= pwrite(file, record, 1, at + RecordLength) == 1;
                good &= pwrite(file, &i, 4, 4) == 4;
            }
        }
        Check(good, "pwrite");
    }

  private:
    int writes;
    int file;
};

class Bind {
  public:
    Bind() : data(OpenData(DataName)) {}
    ~Bind() { ZBDDCLOSE(data); }
    void Run() {
        uint32_t record;
        for (uint32_t i = 0; i < sizes.binds; i++) CheckCode(ZBDDRNUM(data, &record), "ZBDDRNUM");
    }

  private:
    int16_t data;
};

// The least that a call of the library costs: it looks at nothing.
class Nothing {
  public:
    void Run() {
        for (uint32_t i = 0; i < sizes.binds; i++) CheckCode(ZBDVERSION(3), "ZBDVERSION");
    }
};

}  // namespace

void RecordWorkloads() {
    Workload("read", "Reading all records", "record",
             "All records in file order, and the values of all five fields of each. \"zb fields\" is one "
             "ZBDDRGET and five ZBDDFGET a record, which also turn the date into the current style; \"zb "
             "images\" is one ZBDDRGETX. \"pread\" reads each record with one system call and looks at no "
             "field.");
    Needs([] { ExpectedAmounts(); });
    Own<ReadFields>("fields", sizes.records);
    Own<ReadImages>("images", sizes.records);
    Peer<ReadShapelib>("shapelib", sizes.records);
    Peer<ReadSqlite>("SQLite", sizes.records);
    Floor<ReadCalls>("pread", sizes.records);
    for (auto own : {"zb fields", "zb images"}) AimAt(own, "shapelib", 2);
    for (auto own : {"zb fields", "zb images"}) AimAt(own, "SQLite", 1);
    Reason("SQLite",
           "Its amounts are stored as doubles, its dates as the texts that are asked for, and one step "
           "gives all fields. Six calls a record, each of which finds its file anew, and a number that "
           "is parsed cost more; ZBDDRGETX saves the calls.");
    if (sizes.records > Million) return;

    Workload("scan", "Reading one field of all records", "record",
             "All records in file order, and the amount of each. \"zb in C++\" does it by zb.hpp, \"zb\" by "
             "the plain calls. \"pread\" reads the field's 12 bytes alone and turns them into a number.");
    Needs([] { ExpectedAmounts(); });
    Own<ScanField>("", sizes.records);
    Own<ScanCpp>("in C++", sizes.records);
    Peer<ScanShapelib>("shapelib", sizes.records);
    Peer<ScanSqlite>("SQLite", sizes.records);
    Floor<ScanCalls>("pread", sizes.records);
    AimAt("zb", "shapelib", 2);
    AimAt("zb", "SQLite", 1);
    Reason("SQLite",
           "It steps from row to row within a page and takes a double from there; the library copies the "
           "whole record and parses a text. To catch up a call would have to read one field past the record "
           "buffer.");

    Workload("append", "Appending records", "record",
             "The values of five fields put one by one, and the record appended. The library writes the "
             "record, the end mark and the record count at each append, so that other programs see it at "
             "once; shapelib writes records through a buffer and the count at the close; SQLite inserts "
             "all in one transaction. \"pwrite\" is the record's write alone, \"3 pwrites\" the "
             "library's three without anything else.");
    Own<AppendFields>("", sizes.appends);
    Peer<AppendShapelib>("shapelib", sizes.appends);
    Peer<AppendSqlite>("SQLite", sizes.appends);
    Floor<AppendCalls>("pwrite", sizes.appends, 1);
    Floor<AppendCalls>("3 pwrites", sizes.appends, 3);
    AimAt("zb", "shapelib", 1);
    for (auto peer : {"SQLite", "shapelib"})
        Reason(peer,
               "It keeps what is appended in memory and hands it over in pages; the library's record is "
               "in the file, and counted, when the call returns. To catch up it would have to gather "
               "records, which other programs couldn't see meanwhile.");

    Workload("update", "Updating records in random order", "record",
             "A record is read, one number put into it, and the record written back. shapelib holds the "
             "record until another is touched; SQLite updates all in one transaction. \"pread and "
             "pwrite\" moves the record and does nothing else.");
    Own<UpdateField>("", sizes.updates);
    Peer<UpdateShapelib>("shapelib", sizes.updates);
    Peer<UpdateSqlite>("SQLite", sizes.updates);
    Floor<UpdateCalls>("pread and pwrite", sizes.updates);
    for (auto peer : {"SQLite", "shapelib"})
        Reason(peer,
               "It changes pages in memory and writes each once, at the end; the library's record is in "
               "the file when the call returns, by one call of the system. To catch up it would have to "
               "gather updates, which other programs couldn't see meanwhile.");

    Workload("bind", "The cost of a call", "call",
             "ZBDDRNUM binds a data file and does no more than store a number; ZBDVERSION binds nothing.");
    Own<Bind>("ZBDDRNUM", sizes.binds);
    Own<Nothing>("ZBDVERSION", sizes.binds);
}

}  // namespace bench
