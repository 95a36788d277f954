// The operations of the IDX family, each on an open index. They return the code
// that stands: below 0 a failure, logged; otherwise 0 or the warning of a search
// or walk, which the steps that follow it leave alone.
#pragma once

#include "index/idx/format.h"

namespace zb {

// file.cpp

IdxFile* Islock(int handle);
Code Ihget(IdxFile& index);                                     // re-reads RootPage, FreeHead and FileEnd
Code Ipget(IdxFile& index, uint32_t offset, IdxPage* view);     // a tree page, its counts checked
Code IpgetRaw(IdxFile& index, uint32_t offset, IdxPage* view);  // any page
Code Ipput(IdxFile& index, const IdxPage& page);                // writes and forgets it
void Ipforget(IdxFile& index);
Code Iknewpage(IdxFile& index, IdxPage* view);  // a page for use, with whatever it held
Code Ikfreepage(IdxFile& index, uint32_t offset);
Code IdxWriteHeader(IdxFile& index);  // the fields that change
Code IdxWriteRoot(IdxFile& index);
void IdxFormatRoot(uint8_t* page, int keyLength, bool compact);  // as an empty root leaf
Code IdxQuickClose(int handle);

// keys.cpp

// The way through a packed leaf: an entry can only be reached through those
// before it.
struct IdxReader {
    explicit IdxReader(const IdxPage& leaf)
        : page(leaf), entryCursor(leaf.packedAt(-1)), keyCursor(IdxPageSize) {}

    Code Ikdecode();  // the next entry

    const IdxPage& page;
    int entryCursor;  // of the packed entry last read
    int keyCursor;    // of its stored bytes
    uint32_t work = 0;
    uint32_t record = 0;
    int dupCount = 0;
    int trailCount = 0;
    int storedCount = 0;
};

Code Ikentry(IdxFile& index, const IdxPage& page, int slot, uint8_t* key, uint32_t* record);
Code Ikfind(IdxFile& index, uint8_t* key, uint32_t* record, int mode);
Code Iktop(IdxFile& index, uint8_t* key, uint32_t* record);
Code Ikbot(IdxFile& index, uint8_t* key, uint32_t* record);
Code Iknext(IdxFile& index, uint8_t* key, uint32_t* record);
Code Ikprev(IdxFile& index, uint8_t* key, uint32_t* record);
Code Ikcur(IdxFile& index, uint8_t* key, uint32_t* record);

// change.cpp

// How much of a key a packed leaf shares with the key before it.
struct IdxShared {
    int dupCount;
    int trailCount;
    int storedCount;
};
IdxShared Ikdiff(const uint8_t* before, const uint8_t* key, int keyLength);
uint32_t Ikpack(const IdxPage& page, const IdxShared& shared, uint32_t record);
void IdxStorePacked(uint8_t* to, uint32_t packed, int entryBytes);

Code Ikadd(IdxFile& index, const uint8_t* key, uint32_t record);
Code Ikdel(IdxFile& index, const uint8_t* key, uint32_t record);

}  // namespace zb
