// Comma-separated values: quotes around what needs them, doubled inside.
#pragma once

#include <cstdint>
#include <cstdio>
#include <string>
#include <string_view>
#include <vector>

#include "row_reader.h"

namespace tool {

// Appends a value, quoted where it has to be.
void AppendCsv(std::string_view value, char delimiter, std::string& out);

class CsvReader : public RowReader {
  public:
    // Reads from the position of `input` on; `name` is for messages.
    CsvReader(FILE* input, std::string name, char delimiter);

    // The next row; false at the end. Lines end with LF or CR LF; a last line
    // needs no end; empty lines are passed over. Quotes may stand around any
    // value, and lines and delimiters within them are text.
    bool Next(std::vector<std::string>& row) override;

    uint64_t line() const override { return rowLine; }
    uint64_t bytes() const override { return taken + position; }
    const std::string& name() const override { return title; }

  private:
    int Get();
    int Peek();
    bool Fill();
    void ReadQuoted(std::string& cell);

    FILE* file;
    std::string title;
    char delimiter;
    std::string buffer;
    size_t position = 0;
    size_t end = 0;
    uint64_t taken = 0;
    uint64_t currentLine = 1;
    uint64_t rowLine = 0;
};

}  // namespace tool
