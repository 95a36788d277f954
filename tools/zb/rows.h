// A walk's records as rows of JSON or CSV.
#pragma once

#include <string>

#include "scan.h"

namespace tool {

// Appends the current record as one JSON object: its number and deletion first
// where `numbered` says so.
void AppendJsonRecord(Scan& scan, bool numbered, std::string& out);

// The line of names, and the current record as a line.
void AppendCsvTitles(const Scan& scan, char delimiter, std::string& out);
void AppendCsvRecord(Scan& scan, char delimiter, std::string& out);

// The column that carries the delete flag, where deleted records are among the rows.
inline constexpr const char* kDeletedColumn = "_deleted";

}  // namespace tool
