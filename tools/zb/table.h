// Records as lines of aligned columns.
#pragma once

#include <string>
#include <vector>

#include "output.h"

namespace tool {

struct Column {
    std::string title;
    bool right = false;  // numbers stand at the right
};

// Column widths are those of the title and the first rows, which are kept back
// for it; what comes later is written as it comes, and may stand out.
class Table {
  public:
    Table(Output& output, std::vector<Column> columns);

    // The next row: a cell for each column, then EndRow.
    std::string& Cell(size_t column) { return row[column]; }
    void EndRow();
    void Finish();

  private:
    void Write(const std::vector<std::string>& cells);
    void WriteKept();

    Output& output;
    std::vector<Column> columns;
    std::vector<size_t> widths;
    std::vector<std::string> row;
    std::vector<std::vector<std::string>> kept;
    bool measured = false;
};

}  // namespace tool
