// The data set: records of 80 bytes with five fields, always the same ones,
// which a bijection draws from their numbers. So names and amounts are unique,
// and in an order that has nothing to do with that of the records.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "zb.h"

namespace bench {

inline constexpr int NameWidth = 20;
inline constexpr int TextWidth = 38;
inline constexpr int AmountWidth = 12;
inline constexpr int RecordLength = 1 + NameWidth + TextWidth + AmountWidth + 8 + 1;

struct Person {
    char name[NameWidth + 1];  // filled with blanks, as in the file
    char text[TextWidth + 1];
    double amount;
    char date[9];  // yyyymmdd
    char flag;     // 0 or 1
};

// The record of that number, counted from 1.
Person PersonOf(uint32_t number);

// The length of a text without its trailing blanks.
int Trimmed(const char* text, int width);

// A key of one of the two indexed fields, in the forms that the stores take.
struct Key {
    char name[NameWidth + 1];
    int nameLength;
    double amount;
    unsigned char sortable[8];
    uint32_t record;
};
Key KeyOf(uint32_t number);

// An amount, which isn't negative, as bytes that sort as it does.
void Sortable(double amount, unsigned char (&bytes)[8]);

// `count` keys of records drawn from `first` on, `range` of them.
std::vector<Key> DrawKeys(size_t count, uint32_t first, uint32_t range);

// How much is done at one size of the data set.
struct Sizes {
    uint32_t records;
    uint32_t lookups;
    uint32_t ranges;
    uint32_t changes;  // adds or deletes
    uint32_t updates;
    uint32_t appends;
    uint32_t memos;
    uint32_t binds;
};
extern Sizes sizes;

// What is done when times are taken of that many records; and what is enough to
// count instructions and calls.
Sizes SizesToTime(uint32_t records);
Sizes SizesToCount(uint32_t records);

// Beyond this, workloads whose times only follow that of the look-up aren't run.
inline constexpr uint32_t Million = 1000000;

// Something that is made at the first use, and again for another size.
template <class T>
class PerSize {
  public:
    template <class Make>
    const T& Get(Make make) {
        if (madeFor != sizes.records) value = make();
        madeFor = sizes.records;
        return value;
    }

  private:
    T value;
    uint32_t madeFor = 0;
};

// The files that all workloads read, in the current directory.
inline constexpr char DataName[] = "people.dbf";

// Opens a data file of the library's, in its first dialect; creates an empty one.
int16_t OpenData(const char* name, uint16_t mode = ZB_DialectClassic);
void CreateData(const char* name);
void MakeDataFile();

// Where the first record stands in it.
int64_t FirstRecordAt();

}  // namespace bench
