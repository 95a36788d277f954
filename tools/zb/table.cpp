#include "table.h"

#include <algorithm>

#include "terminal.h"
#include "text.h"

namespace tool {
namespace {

constexpr size_t kMeasured = 500;

}  // namespace

Table::Table(Output& out, std::vector<Column> all)
    : output(out), columns(std::move(all)), row(columns.size()) {
    for (const Column& column : columns) widths.push_back(DisplayWidth(column.title));
}

void Table::EndRow() {
    if (measured) {
        Write(row);
        output.Breathe();
    } else {
        kept.push_back(row);
        if (kept.size() == kMeasured) WriteKept();
    }
    for (std::string& cell : row) cell.clear();
}

void Table::Finish() {
    if (!measured) WriteKept();
}

void Table::WriteKept() {
    measured = true;
    for (const auto& cells : kept)
        for (size_t index = 0; index < cells.size(); ++index)
            widths[index] = std::max(widths[index], DisplayWidth(cells[index]));
    std::vector<std::string> titles;
    for (const Column& column : columns) titles.push_back(column.title);
    if (OutputColour()) output.buffer() += "\x1b[1m";
    Write(titles);
    if (OutputColour()) output.buffer().insert(output.buffer().size() - 1, "\x1b[0m");
    for (const auto& cells : kept) {
        Write(cells);
        output.Breathe();
    }
    kept.clear();
}

void Table::Write(const std::vector<std::string>& cells) {
    std::string& out = output.buffer();
    for (size_t index = 0; index < cells.size(); ++index) {
        if (index > 0) out += "  ";
        size_t width = DisplayWidth(cells[index]);
        size_t space = widths[index] > width ? widths[index] - width : 0;
        if (columns[index].right) out.append(space, ' ');
        out += cells[index];
        if (!columns[index].right) out.append(space, ' ');
    }
    while (!out.empty() && out.back() == ' ') out.pop_back();
    out += '\n';
}

}  // namespace tool
