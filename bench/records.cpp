// Reading and appending records.
#include <fcntl.h>
#include <shapefil.h>
#include <unistd.h>

#include <cstring>

#include "data.h"
#include "files.h"
#include "peers.h"
#include "report.h"
#include "workloads.h"

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

Sum expected;

void CheckSum(const Sum& sum) {
    // The styles of the dates differ, and so do their last digits.
    Check(sum.amounts == expected.amounts, "a sum over all records");
}

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
        CheckSum(sum);
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
        CheckSum(sum);
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
        CheckSum(sum);
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
        CheckSum(sum);
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
        for (uint32_t i = 0; i < sizes.records; i++) {
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
        for (int i = 0; i < static_cast<int>(sizes.records); i++) {
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
        for (uint32_t i = 0; i < sizes.records; i++) InsertPerson(insert, people[i % Drawn]);
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
        for (uint32_t i = 0; i < sizes.records; i++, at += RecordLength) {
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
        for (uint32_t i = 0; i < 10 * sizes.records; i++) CheckCode(ZBDDRNUM(data, &record), "ZBDDRNUM");
    }

  private:
    int16_t data;
};

// The least that a call of the library costs: it looks at nothing.
class Nothing {
  public:
    void Run() {
        for (uint32_t i = 0; i < 10 * sizes.records; i++) CheckCode(ZBDVERSION(3), "ZBDVERSION");
    }
};

}  // namespace

void RecordWorkloads() {
    Workload("read", "Reading all records", "record",
             "All records in file order, and the values of all five fields of each. \"zb fields\" is one "
             "ZBDDRGET and "
             "five ZBDDFGET a record, which also turn the date into the current style; \"zb images\" is one "
             "ZBDDRGETX. \"pread\" reads each record with one system call and looks at no field.");
    Needs([] {
        for (uint32_t i = 1; i <= sizes.records; i++) expected.amounts += PersonOf(i).amount;
    });
    Contend<ReadFields>("zb fields", sizes.records);
    Contend<ReadImages>("zb images", sizes.records);
    Contend<ReadShapelib>("shapelib", sizes.records);
    Contend<ReadSqlite>("SQLite", sizes.records);
    Contend<ReadCalls>("pread", sizes.records);
    Aim("zb fields", "shapelib", 2);
    Aim("zb fields", "SQLite", 1);
    Aim("zb images", "shapelib", 2);
    Aim("zb images", "SQLite", 1);

    Workload(
        "append", "Appending records", "record",
        "The values of five fields put one by one, and the record appended. The library writes the record, "
        "the "
        "end mark and the record count at each append, so that other programs see it at once; shapelib "
        "writes "
        "records through a buffer and the count at the close; SQLite inserts all in one transaction. "
        "\"pwrite\" "
        "is the record's write alone, \"3 pwrites\" the three writes of the library without anything else.");
    Contend<AppendFields>("zb", sizes.records);
    Contend<AppendShapelib>("shapelib", sizes.records);
    Contend<AppendSqlite>("SQLite", sizes.records);
    Contend<AppendCalls>("pwrite", sizes.records, 1);
    Contend<AppendCalls>("3 pwrites", sizes.records, 3);
    Aim("zb", "shapelib", 1);

    Workload("bind", "The cost of a call", "call",
             "ZBDDRNUM binds a data file and does no more than store a number; ZBDVERSION binds nothing.");
    Contend<Bind>("zb ZBDDRNUM", 10 * uint64_t{sizes.records});
    Contend<Nothing>("zb ZBDVERSION", 10 * uint64_t{sizes.records});
}

}  // namespace bench
