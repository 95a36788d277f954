// The operations of the NTX family, each on an open index. They return the code
// that stands: below 0 a failure, logged; otherwise 0 or the warning of a search
// or walk, which the steps that follow it leave alone.
#pragma once

#include "index/ntx/format.h"

namespace zb {

// file.cpp

NtxFile* Cslock(int handle);
Code Chget(NtxFile& index);                                     // re-reads Version, RootPage and FreeHead
Code Cpget(NtxFile& index, uint32_t offset, NtxPage* view);     // a tree page, its count and items checked
Code CpgetRaw(NtxFile& index, uint32_t offset, NtxPage* view);  // any page
Code Cpput(NtxFile& index, const NtxPage& page);                // writes and forgets it
Code Cknewpage(NtxFile& index, NtxPage* view);                  // a page for use, empty
Code Ckfreepage(NtxFile& index, uint32_t offset);
void Cpforget(NtxFile& index);
Code NtxWriteVersion(NtxFile& index);  // counts a change, and writes Version and RootPage
Code NtxWriteRoot(NtxFile& index);     // writes RootPage alone
Code NtxQuickClose(int handle);

// keys.cpp

Code Ckfind(NtxFile& index, uint8_t* key, uint32_t* record, int mode);
Code Cktop(NtxFile& index, uint8_t* key, uint32_t* record);
Code Ckbot(NtxFile& index, uint8_t* key, uint32_t* record);
Code Cknext(NtxFile& index, uint8_t* key, uint32_t* record);
Code Ckprev(NtxFile& index, uint8_t* key, uint32_t* record);
Code Ckcur(NtxFile& index, uint8_t* key, uint32_t* record);

// Goes down from the item that the path stands on: to the first place of the
// first leaf beneath it, or behind the last key of the last.
Code CkDescend(NtxFile& index, NtxPage& page, bool last);

// Copies a key as it is stored: it ends at its first zero byte and is filled with
// blanks. Tells the length of the text.
int NtxStoredKey(const NtxFile& index, const uint8_t* key, KeyBuffer& stored);

// A number as the text of a key: filled with zeros in front, a minus sign first.
// False when that is longer than the key, or no number.
bool NtxNumberText(char (&text)[MaxKeyLength + 12], double value, int keyLength, int decimals);

// Writes a number's text, behind its minus sign, so that larger ones sort lower.
inline uint8_t NtxComplement(uint8_t c) { return c == '.' ? c : static_cast<uint8_t>(0x5C - c); }

// change.cpp

Code Ckadd(NtxFile& index, const uint8_t* key, uint32_t record);
Code Ckdel(NtxFile& index, const uint8_t* key, uint32_t record);

// Moves `count` places of the table from one place to another. Those that are
// written over come to stand where the others went from.
void Cktblmove(const NtxPage& page, int to, int from, int count);

}  // namespace zb
