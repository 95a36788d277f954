// Values that the user gives for fields of one record.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "memo.h"
#include "options.h"

namespace tool {

// FIELD=VALUE, one after the other.
struct Assignment {
    std::string field;
    std::string value;
};
std::vector<Assignment> ParseAssignments(const std::vector<std::string>& texts);

class Assigner {
  public:
    // Throws when there is no such field.
    Assigner(Data& data, const std::vector<Assignment>& assignments, Codec& codec);

    // Whether a memo's text is among the values. Then OpenMemos is needed, which
    // takes the lock on the whole table until this goes; it reads records, so
    // that the record comes into the buffer behind it.
    bool hasMemos() const { return anyMemo; }
    void OpenMemos(const std::string& memoName, double wait);

    // Puts the values into the record buffer, and memos into their file. Those
    // that don't fit throw before anything is written, or with `loose` are stored
    // as they fit, which is told.
    void Assign(bool loose, const TextOptions& text);

  private:
    std::string Fitting(const Field& field, const std::string& value, bool loose, const TextOptions& text);

    Data& data;
    Codec& codec;
    std::vector<std::pair<size_t, std::string>> values;  // by field number
    bool anyMemo = false;
    std::optional<TableLock> lock;
    std::optional<MemoFile> memos;
};

}  // namespace tool
