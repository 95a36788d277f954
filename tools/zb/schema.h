// A table's fields: as the user writes them, and as data suggest them.
#pragma once

#include <set>
#include <string>
#include <string_view>
#include <vector>

#include "data.h"
#include "text.h"

namespace tool {

// "NAME:C20,BORN:D,AMOUNT:N10.2": types C and N with a width, N and F with
// decimals behind a point, D, L and M alone. Throws a usage failure.
std::vector<Field> ParseSchema(std::string_view text);

// The other way about: "C20", "N10.2", "D".
std::string TypeText(const Field& field);

// Makes a table: the library checks the fields. Dialect 0 takes the simplest
// one that holds them.
void CreateTable(const std::string& path, const std::vector<Field>& fields, int dialect);

// Turns any text into a field name: upper case, letters, digits and `_`, at
// most 10 of them, none twice among those in `taken`.
std::string FieldName(std::string_view title, std::set<std::string>& taken);

// Finds the narrowest field that holds every value shown to it.
class Guess {
  public:
    // `isText`: it is no number and no logical, whatever it looks like.
    void See(std::string_view value, Codec& codec, bool isText = false);
    Field Result(const std::string& name) const;

  private:
    bool seen = false;
    bool logical = true;
    bool date = true;
    bool number = true;
    size_t width = 1;  // bytes in the table's encoding
    size_t whole = 1;  // places before the point, the sign included
    size_t decimals = 0;
    std::string scratch;
};

}  // namespace tool
