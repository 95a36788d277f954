// JSON lines: one object a line, whose names are those of fields.
#pragma once

#include <cstdio>
#include <map>

#include "row_reader.h"

namespace tool {

class JsonLinesReader : public RowReader {
  public:
    JsonLinesReader(FILE* input, const std::string& name);
    ~JsonLinesReader() override;

    // Empty lines are passed over. Numbers come as they stand, without an
    // exponent; true and false as T and F, null as nothing. Throws at what is no
    // such object.
    bool Next(std::vector<std::string>& row) override;
    uint64_t line() const override { return rowLine; }
    uint64_t bytes() const override { return taken; }
    const std::string& name() const override { return title; }
    const std::vector<std::string>* titles() const override { return &names; }
    bool isText(size_t column) const override { return texts[column]; }

    // For the parser: a member of the object.
    void Put(const std::string& member, std::string value, bool isText);

  private:
    FILE* file;
    std::string title;
    std::vector<std::string> names;
    std::map<std::string, size_t> places;
    std::vector<std::string>* current = nullptr;
    std::vector<bool> texts;
    char* buffer = nullptr;
    size_t room = 0;
    uint64_t taken = 0;
    uint64_t lines = 0;
    uint64_t rowLine = 0;
};

// A number without its exponent: "1.5e3" is "1500". One whose exponent is out of
// all bounds stays as it is.
std::string PlainNumber(const std::string& number);

}  // namespace tool
