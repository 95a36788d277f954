// A walk through a table for showing it: which records, which fields, and what
// is told at the end about values that couldn't be shown as they should.
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <vector>

#include "failure.h"
#include "memo.h"
#include "options.h"

namespace tool {

class Scan {
  public:
    Scan(Data& data, const ScanOptions& options);

    const std::vector<Field>& columns() const { return shown; }
    // The columns' names in UTF-8; where two fields have the same, they differ.
    const std::vector<std::string>& titles() const { return names; }
    bool showsDeletion() const { return deleted != Deleted::skip; }
    // Records that the walk may touch, for a bar.
    uint32_t span() const { return last >= next ? last - next + 1 : 0; }

    // The next record that is to be shown; false at the end, and at a record that
    // can't be read.
    bool Next();
    // Whether it ended at a record that can't be read.
    bool isBroken() const { return broken.has_value(); }
    uint32_t record() const { return current; }
    bool isDeleted() const { return currentDeleted; }
    bool showsMemos() const { return !noMemo; }
    // The value of a column in this record, until the next call.
    const Value& Get(size_t column);

    // Tells on standard error what didn't parse or convert. Throws when the
    // listing isn't whole: a record couldn't be read, or text was refused.
    void Report() const;

  private:
    void MakeTitles();
    void OpenMemos();
    void ReadMemo();

    Data& data;
    Deleted deleted;
    BadValues badValues;
    BadText badText;
    Encoding encoding;
    Codec codec;
    std::vector<Field> shown;
    std::vector<std::string> names;
    uint32_t next = 1;
    uint32_t last = 0;
    uint64_t left;
    uint32_t current = 0;
    bool currentDeleted = false;
    Value value;
    std::string memoName;
    bool noMemo;
    bool memosSought = false;
    std::unique_ptr<MemoFile> memos;
    std::string memoBytes;
    std::optional<Failure> broken;
    uint64_t unreadable = 0;
    uint64_t lostMemos = 0;
    std::string lostWhere;  // the first of them
    uint64_t unconverted = 0;
};

}  // namespace tool
