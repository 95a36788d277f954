// A data file of known contents, byte by byte, for tests that read fields.
#pragma once

#include "support/support.h"

namespace test {

// Fields: NAME C(10), CITY C(5), AMOUNT N(8,2), RATE F(6,1), OK L, NOTE M, BORN D.
// Record 1 is ANNA, BONN, 10.50, -2.5, true, memo block 42, 29 February 1996;
// record 2 has blanks everywhere.
inline void WritePeople(const std::string& name = "people.dbf") {
    Bytes file =
        Hex("83 15 0B 1D 02 00 00 00 01 01 31 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00"
            "4E 41 4D 45 00 00 00 00 00 00 00 43 00 00 00 00 0A 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00"
            "43 49 54 59 00 00 00 00 00 00 00 43 00 00 00 00 05 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00"
            "41 4D 4F 55 4E 54 00 00 00 00 00 4E 00 00 00 00 08 02 00 00 00 00 00 00 00 00 00 00 00 00 00 00"
            "52 41 54 45 00 00 00 00 00 00 00 46 00 00 00 00 06 01 00 00 00 00 00 00 00 00 00 00 00 00 00 00"
            "4F 4B 00 00 00 00 00 00 00 00 00 4C 00 00 00 00 01 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00"
            "4E 4F 54 45 00 00 00 00 00 00 00 4D 00 00 00 00 0A 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00"
            "42 4F 52 4E 00 00 00 00 00 00 00 44 00 00 00 00 08 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00"
            "0D");
    file += " ANNA      BONN    10.50  -2.5T        4219960229";
    file += Fill(49, ' ');
    file += '\x1A';
    WriteFile(name, file);
}

}  // namespace test
