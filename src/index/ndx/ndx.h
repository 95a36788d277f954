// The operations of the NDX family, each on an open index. They return the code
// that stands: below 0 a failure, logged; otherwise 0 or the warning of a search
// or walk, which the steps that follow it leave alone.
#pragma once

#include "index/ndx/format.h"

namespace zb {

inline constexpr UnitNames NdxUnits = {"Nktop",  "Nkbot", "Nknext", "Nkprev", "Nkcur",
                                       "Nkfind", "Nkadd", "Nkdel",  "Nkmake"};

// file.cpp

NdxFile* Nslock(int handle);
Code Nhget(NdxFile& index);                                   // re-reads RootPage and PageCount
Code Npget(NdxFile& index, uint32_t page, NdxPage* view);     // a tree page, its count checked
Code NpgetRaw(NdxFile& index, uint32_t page, NdxPage* view);  // any page
Code Npput(NdxFile& index, const NdxPage& page);              // writes and forgets it
Code Npnew(NdxFile& index, NdxPage* view);                    // a page for use, empty
Code Npfree(NdxFile& index, uint32_t page);
void Npforget(NdxFile& index);
Code NdxWriteRoot(NdxFile& index);
uint32_t NdxPagesThere(const NdxFile& index);  // more than any tree has, whatever the header says
Code NdxQuickClose(int handle);

// keys.cpp

// Compares numbers of `length` little-endian bytes from the last byte to the
// first, the top bit of the last taken as a sign; the rest is a magnitude, or as
// in an integer.
int CompareSigned(const uint8_t* a, const uint8_t* b, int length, bool magnitude);

Code Nkfind(NdxFile& index, uint8_t* key, uint32_t* record, int mode);
Code Nktop(NdxFile& index, uint8_t* key, uint32_t* record);
Code Nkbot(NdxFile& index, uint8_t* key, uint32_t* record);
Code Nknext(NdxFile& index, uint8_t* key, uint32_t* record);
Code Nkprev(NdxFile& index, uint8_t* key, uint32_t* record);
Code Nkcur(NdxFile& index, uint8_t* key, uint32_t* record);

// change.cpp

Code Nkadd(NdxFile& index, const uint8_t* key, uint32_t record);
Code Nkdel(NdxFile& index, const uint8_t* key, uint32_t record);

}  // namespace zb
