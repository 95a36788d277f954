// What a check has to tell of several files.
#pragma once

#include <string>
#include <vector>

#include "failure.h"
#include "findings.h"
#include "output.h"

namespace tool {

// One file, and what was found in it.
struct Checked {
    std::string path;
    std::string about;  // "table, 5 records of 4 fields"
    Findings findings;
    bool failed = false;  // couldn't be looked at
};

void ShowText(const std::vector<Checked>& files, Output& output);
void ShowJson(const std::vector<Checked>& files, Output& output);

// By the worst that was found.
Exit StatusOf(const std::vector<Checked>& files);

}  // namespace tool
