// The index families under one set of names, so that each workload is written
// once. Most families differ in the letter of their calls alone.
#pragma once

#include <cstdint>
#include <cstring>
#include <string>

#include "files.h"
#include "zb.h"

namespace bench {

// What an index is on: the names, texts of 20 characters, or the amounts.
enum class On { Name, Amount };

struct Ndx {
    static constexpr char Label[] = "NDX";
    static constexpr char Extension[] = ".ndx";
    using Handle = int16_t;

    static void Build(int16_t data, const char* name, On on) {
        char expression[16];
        CheckCode(ZBDNINDEX(data, name, TypeOf(on), ExpressionOf(on, expression), LengthOf(on)), "ZBDNINDEX");
    }
    static Handle Open(const char* name, On) {
        uint16_t index;
        CheckCode(ZBDNOPENX(&index, name, ZB_Shared), name);
        return static_cast<Handle>(index);
    }
    static void Close(Handle index) { CheckCode(ZBDNCLOSE(index), "ZBDNCLOSE"); }
    static int32_t Find(Handle index, void* key, uint32_t* record) {
        return ZBDNKFIND(index, key, record, 0);
    }
    static int32_t Top(Handle index, void* key, uint32_t* record) { return ZBDNKTOP(index, key, record); }
    static int32_t Next(Handle index, void* key, uint32_t* record) { return ZBDNKNEXT(index, key, record); }
    static int32_t Add(Handle index, const void* key, uint32_t record) {
        return ZBDNKADD(index, key, record);
    }
    static void Number(Handle, void* key, double value) { ZBDNKNUM(key, value); }

    static int16_t TypeOf(On on) { return on == On::Name ? 'C' : 'N'; }
    static int16_t LengthOf(On on) { return on == On::Name ? 20 : 8; }
    static char* ExpressionOf(On on, char (&text)[16]) {
        return strcpy(text, on == On::Name ? "NAME" : "AMOUNT");
    }
};

// Calls `use` with each family that the library has.
template <class Use>
void ForEachFamily(Use use) {
    use(Ndx{});
}

}  // namespace bench
