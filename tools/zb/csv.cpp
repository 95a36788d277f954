#include "csv.h"

#include "failure.h"
#include "zb.h"

namespace tool {

void AppendCsv(std::string_view value, char delimiter, std::string& out) {
    bool plain = true;
    for (char c : value)
        if (c == delimiter || c == '"' || c == '\n' || c == '\r') plain = false;
    if (!value.empty() && (value.front() == ' ' || value.back() == ' ')) plain = false;
    if (plain) {
        out += value;
        return;
    }
    out += '"';
    for (char c : value) {
        if (c == '"') out += '"';
        out += c;
    }
    out += '"';
}

CsvReader::CsvReader(FILE* input, std::string name, char delimit)
    : file(input), title(std::move(name)), delimiter(delimit), buffer(1 << 18, '\0') {
    if (Fill() && end >= 3 && buffer.compare(0, 3, "\xEF\xBB\xBF") == 0) position = 3;
}

bool CsvReader::Fill() {
    taken += end;
    position = 0;
    end = std::fread(buffer.data(), 1, buffer.size(), file);
    if (end == 0 && std::ferror(file)) throw CodeFailure(ZB_ErrRead, title);
    return end > 0;
}

int CsvReader::Peek() {
    if (position == end && !Fill()) return EOF;
    return static_cast<unsigned char>(buffer[position]);
}

int CsvReader::Get() {
    int c = Peek();
    if (c == EOF) return EOF;
    ++position;
    if (c == '\n') ++currentLine;
    return c;
}

void CsvReader::ReadQuoted(std::string& cell) {
    for (;;) {
        int c = Get();
        if (c == EOF)
            throw Failure(Exit::damaged, title + ": a quote opened on line " + std::to_string(rowLine) +
                                             " or after is never closed");
        if (c == '"') {
            if (Peek() != '"') return;
            Get();
        }
        cell += static_cast<char>(c);
    }
}

bool CsvReader::Next(std::vector<std::string>& row) {
    while (Peek() == '\n' || Peek() == '\r') Get();
    rowLine = currentLine;
    if (Peek() == EOF) return false;
    size_t count = 0;
    for (;;) {
        if (row.size() == count) row.emplace_back();
        std::string& cell = row[count++];
        cell.clear();
        if (Peek() == '"') {
            Get();
            ReadQuoted(cell);
        }
        int c;
        while ((c = Get()) != delimiter && c != '\n' && c != EOF) {
            if (c == '\r' && (Peek() == '\n' || Peek() == EOF)) continue;
            cell += static_cast<char>(c);
        }
        if (c != delimiter) break;
    }
    row.resize(count);
    return true;
}

}  // namespace tool
