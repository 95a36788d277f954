// Data files made by the library itself, as the seeds of what is damaged.
#pragma once

#include <string>
#include <vector>

#include "support/session.h"

namespace fuzz {

// A file of each of the nine dialects, as the file of one dialect holds it, with
// fields of every type that the dialect has and a few records.
struct DataSeeds {
    std::string files[9];
};
const DataSeeds& DataFiles();

// A file of dialect 2 with fields NAME C(10), AMOUNT N(8,2), BORN D, OK L, NOTES M
// and `records` records; the memo fields count from 1.
std::string People(int records);

// Runs `make` in a session of its own, and gives the file of that name.
template <class Make>
std::string MakeFile(const std::string& name, Make make) {
    Session session;
    make(session);
    ZBESCODE(0);
    ZBDTERM();
    std::string bytes;
    if (std::string* made = session.platform.Find(name)) bytes = *made;
    if (bytes.empty()) Broken("a seed can't be made");
    ZBDINIT(100, 1);
    return bytes;
}

}  // namespace fuzz
