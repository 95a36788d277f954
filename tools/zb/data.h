// An open data file, as the commands use it.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "zb.h"

namespace tool {

struct Field {
    std::string name;
    char type;
    uint16_t width;
    uint16_t decimals;
    uint16_t offset;  // in the record; the delete flag is byte 0
};

// The bytes of a table's header that the tool looks at itself: the library
// doesn't choose a dialect, and doesn't report the language byte.
struct Header {
    uint8_t version = 0;
    uint8_t date[3] = {};
    uint16_t length = 0;
    uint16_t recordLength = 0;
    uint32_t records = 0;
    uint8_t production = 0;
    uint8_t language = 0;
};

Header ReadHeader(const std::string& path);

const char* DialectName(int dialect);

// The simplest dialect that can hold these fields; 1 when none can, so that a
// creation tells what is wrong.
int FittingDialect(const std::vector<Field>& fields);

// What a caller of ZBDDCREATE hands over.
std::vector<ZbFieldSpec> Specs(const std::vector<Field>& fields);

enum class Access {
    read,      // read only, shared
    write,     // shared; the changes take locks
    exclusive  // nobody else has the file open meanwhile
};

struct OpenOptions {
    int dialect = 0;    // 0: by the version byte
    double wait = 2.0;  // seconds to try again while another program is in the way
};

class Data {
  public:
    Data(const std::string& path, Access access, const OpenOptions& options);
    ~Data();
    Data(const Data&) = delete;
    void operator=(const Data&) = delete;

    // Ends the work on the file; a failure to write its last changes throws.
    void Close();

    const std::string& path() const { return name; }
    const Header& header() const { return head; }
    const std::vector<Field>& fields() const { return table; }
    size_t FieldNumber(const std::string& fieldName) const;  // throws when there is none
    uint32_t count() const;
    int dialect() const { return info.dialect; }
    int16_t id() const { return handle; }  // as the library knows it
    bool hasMemo() const { return info.hasMemo != 0; }
    const ZbDataInfo& state() const { return info; }
    bool lengthFits() const { return !oddLength; }

    // Reads a record into the buffer; true when it is deleted.
    bool Read(uint32_t record);
    // The bytes of a field in the buffer, of a record read before.
    std::string_view Raw(const Field& field) const { return {buffer + field.offset, field.width}; }

    void Clear();
    void Put(size_t field, const std::string& bytes);
    uint32_t Append();
    void Update(uint32_t record);
    void Delete(uint32_t record);
    void Recall(uint32_t record);
    void Pack();

    // Others keep out until the unlock, or the close. Throws when another
    // program keeps the lock for longer than the wait.
    void LockForAppend();
    void UnlockForAppend();
    // Until the close: others may read and lock records no more, or may no more change the table.
    void LockWhole() { LockUntilClose(2); }
    void LockShared() { LockUntilClose(4); }
    void LockRecord(uint32_t record);
    void UnlockRecord(uint32_t record);

  private:
    void Open(Access access);
    void Describe();
    void LockUntilClose(int16_t kind);

    std::string name;
    OpenOptions options;
    Header head;
    int16_t handle = -1;
    ZbDataInfo info = {};
    std::vector<Field> table;
    const char* buffer = nullptr;
    bool oddLength = false;
};

}  // namespace tool
