// A walk's records as SQL that makes a table of them.
#pragma once

#include <string>

#include "output.h"
#include "scan.h"

namespace tool {

enum class SqlDialect { sqlite, postgres };

struct SqlOptions {
    SqlDialect dialect = SqlDialect::sqlite;
    std::string table;      // its name there
    bool addToOne = false;  // that exists: no CREATE TABLE
};

// Writes one transaction: everything arrives, or nothing, also when a record
// can't be read.
class SqlWriter {
  public:
    SqlWriter(Scan& scan, const SqlOptions& options, Output& output);
    void Begin();
    void Record();
    void End();

  private:
    std::string Name(const std::string& name) const;
    const char* Type(const Field& field) const;
    std::string Columns() const;
    void AppendCopyValue(const Value& value, std::string& out) const;
    void AppendInsertValue(const Field& field, const Value& value, std::string& out) const;

    Scan& scan;
    const SqlOptions& options;
    Output& output;
    uint64_t rows = 0;
};

}  // namespace tool
