// The operations of the MDX family, each on an open file or an attached tag. They
// return the code that stands: below 0 a failure, logged; otherwise 0 or the
// warning of a search or walk, which the steps that follow it leave alone.
#pragma once

#include "index/mdx/format.h"

namespace zb {

inline constexpr UnitNames MdxUnits = {"Mktop",  "Mkbot", "Mknext", "Mkprev", "Mkcur",
                                       "Mkfind", "Mkadd", "Mkdel",  "Mkmake"};

// A tag handle: the tag's number above, the file's handle below.
inline constexpr int32_t NoTag = -1;

// file.cpp

MdxFile* Mslock(int handle);
MdxTag* MslockTag(int32_t handle);
Code Mhget(MdxTag& tag);                                   // re-reads nextPage, the free list and rootPage
Code Mpget(MdxTag& tag, uint32_t page, MdxPage* view);     // a tree page, its count checked
Code MpgetRaw(MdxTag& tag, uint32_t page, MdxPage* view);  // any page
Code Mpput(MdxTag& tag, const MdxPage& page);              // writes and forgets it
Code Mpnew(MdxTag& tag, MdxPage* view);                    // a page for use, its first 8 bytes zero
Code Mpfree(MdxTag& tag, uint32_t page);
void Mpforget(MdxTag& tag);
uint32_t MdxPagesThere(const MdxFile& file);  // more than any tree has, whatever the header says
Code MdxWriteHeader(MdxFile& file, int offset, int length);  // a stretch of the header's copy
bool MdxGrow(MdxFile& file, uint32_t* page);                 // a block at nextPage, which moves on
Code MdxWriteRoot(MdxTag& tag);
Code MdxQuickClose(int handle);

// tags.cpp

void MdxDetach(MdxTag& tag);

// keys.cpp

Code Mkfind(MdxTag& tag, uint8_t* key, uint32_t* record, int mode);
Code Mktop(MdxTag& tag, uint8_t* key, uint32_t* record);
Code Mkbot(MdxTag& tag, uint8_t* key, uint32_t* record);
Code Mknext(MdxTag& tag, uint8_t* key, uint32_t* record);
Code Mkprev(MdxTag& tag, uint8_t* key, uint32_t* record);
Code Mkcur(MdxTag& tag, uint8_t* key, uint32_t* record);

// change.cpp

Code Mkadd(MdxTag& tag, const uint8_t* key, uint32_t record);
Code Mkdel(MdxTag& tag, const uint8_t* key, uint32_t record);

}  // namespace zb
