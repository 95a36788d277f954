// Rows of values from a file, whatever its format.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace tool {

class RowReader {
  public:
    virtual ~RowReader() = default;

    // The next row, in the file's encoding; false at the end.
    virtual bool Next(std::vector<std::string>& row) = 0;

    virtual uint64_t line() const = 0;   // where the last row began
    virtual uint64_t bytes() const = 0;  // read so far
    virtual const std::string& name() const = 0;

    // The columns' names where each row brings its own: as many as the last row
    // has values, and more with rows to come. Null where they are the first row.
    virtual const std::vector<std::string>* titles() const { return nullptr; }
    // Whether the last row's value is a text, whatever it looks like.
    virtual bool isText(size_t) const { return false; }
};

}  // namespace tool
