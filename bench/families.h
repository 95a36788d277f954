// The index families under one set of names, so that each workload is written
// once. A family is a type with
//
//   Handle, Label, Extension
//   Build(data, name, on)   makes the index of all records
//   Open(name, on), Close(handle)
//   Find, Top, Next, Add, Delete, Number
//   Exact     whether keys can be found, added and deleted one by one
//   Largest   the most records that it is measured with
#pragma once

#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string>

#include "files.h"
#include "zb.h"

namespace bench {

// What an index is on: the names, texts of 20 characters, or the amounts.
enum class On { Name, Amount };

// What is the same in the families but for the letter in the calls' names.
template <auto FindCall, auto TopCall, auto NextCall, auto AddCall, auto DeleteCall>
struct Calls {
    using Handle = int16_t;
    static constexpr bool Exact = true;
    static constexpr uint32_t Largest = UINT32_MAX;

    static int32_t Find(Handle index, void* key, uint32_t* record) { return FindCall(index, key, record, 0); }
    static int32_t Top(Handle index, void* key, uint32_t* record) { return TopCall(index, key, record); }
    static int32_t Next(Handle index, void* key, uint32_t* record) { return NextCall(index, key, record); }
    static int32_t Add(Handle index, const void* key, uint32_t record) { return AddCall(index, key, record); }
    static int32_t Delete(Handle index, const void* key, uint32_t record) {
        return DeleteCall(index, key, record);
    }
};

inline int16_t TypeOf(On on) { return on == On::Name ? 'C' : 'N'; }
inline int16_t LengthOf(On on) { return on == On::Name ? 20 : 8; }

// Expressions are changed in place by the calls that take them.
struct Expression {
    char text[16];
    explicit Expression(On on) { strcpy(text, on == On::Name ? "NAME" : "AMOUNT"); }
};

struct Ndx : Calls<ZBDNKFIND, ZBDNKTOP, ZBDNKNEXT, ZBDNKADD, ZBDNKDEL> {
    static constexpr char Label[] = "NDX";
    static constexpr char Extension[] = ".ndx";

    static void Build(int16_t data, const char* name, On on) {
        CheckCode(ZBDNINDEX(data, name, TypeOf(on), Expression(on).text, LengthOf(on)), "ZBDNINDEX");
    }
    static Handle Open(const char* name, On) {
        uint16_t index;
        CheckCode(ZBDNOPENX(&index, name, ZB_Shared), name);
        return static_cast<Handle>(index);
    }
    static void Close(Handle index) { CheckCode(ZBDNCLOSE(index), "ZBDNCLOSE"); }
    static void Number(Handle, void* key, double value) { ZBDNKNUM(key, value); }
};

struct Ntx : Calls<ZBDCKFIND, ZBDCKTOP, ZBDCKNEXT, ZBDCKADD, ZBDCKDEL> {
    static constexpr char Label[] = "NTX";
    static constexpr char Extension[] = ".ntx";

    // Numbers are text, as wide as the field.
    static void Build(int16_t data, const char* name, On on) {
        auto length = static_cast<int16_t>(on == On::Name ? 20 : 12);
        auto decimals = static_cast<int16_t>(on == On::Name ? 0 : 2);
        CheckCode(ZBDCINDEX(data, name, TypeOf(on), Expression(on).text, length, decimals), "ZBDCINDEX");
    }
    static Handle Open(const char* name, On) {
        uint16_t index;
        CheckCode(ZBDCOPENX(&index, name, ZB_Shared), name);
        return static_cast<Handle>(index);
    }
    static void Close(Handle index) { CheckCode(ZBDCCLOSE(index), "ZBDCCLOSE"); }
    static void Number(Handle index, void* key, double value) { ZBDCKNUM(index, key, value); }
};

// Both forms of IDX.
template <uint16_t Form>
struct IdxOf : Calls<ZBDIKFIND, ZBDIKTOP, ZBDIKNEXT, ZBDIKADD, ZBDIKDEL> {
    static void Build(int16_t data, const char* name, On on) {
        auto typeWord = static_cast<uint16_t>(TypeOf(on) | Form);
        CheckCode(ZBDIINDEX(data, name, typeWord, Expression(on).text, LengthOf(on)), "ZBDIINDEX");
    }
    static Handle Open(const char* name, On on) {
        uint16_t opened;
        CheckCode(ZBDIOPENX(&opened, name, ZB_Shared), name);
        auto index = static_cast<Handle>(opened);
        CheckCode(ZBDIKTYPE(index, TypeOf(on)), "ZBDIKTYPE");
        return index;
    }
    static void Close(Handle index) { CheckCode(ZBDICLOSE(index), "ZBDICLOSE"); }
    static void Number(Handle, void* key, double value) { ZBDIKNUM(key, value); }
};

struct Idx : IdxOf<0> {
    static constexpr char Label[] = "IDX";
    static constexpr char Extension[] = ".idx";
};

// Compact files are built for other programs, and can be walked.
struct IdxCompact : IdxOf<0x400> {
    static constexpr bool Exact = false;
    static constexpr char Label[] = "IDX compact";
    static constexpr char Extension[] = ".compact.idx";
};

// MDX files take days before 2020 alone: without one none can be opened.
inline void SetDay() { setenv("ZB_TODAY", "1999-12-31", 1); }

// One tag in a file of its own, in blocks of 1024 bytes.
struct Mdx {
    static constexpr char Label[] = "MDX";
    static constexpr char Extension[] = ".mdx";
    static constexpr char Tag[] = "PEOPLE";
    static constexpr bool Exact = true;
    static constexpr uint32_t Largest = 1000000;

    struct Handle {
        int16_t file;
        int32_t tag;
    };

    static int16_t CreateFile(const char* name) {
        int16_t file;
        CheckCode(ZBDMCREATEX(name, 2, 0), "ZBDMCREATEX");
        CheckCode(ZBDMOPENX(&file, name, ZB_Shared), name);
        return file;
    }
    static void Build(int16_t data, const char* name, On on) {
        int16_t file = CreateFile(name);
        CheckCode(ZBDMTINDEX(data, static_cast<uint16_t>(file), Tag, static_cast<uint32_t>(TypeOf(on)),
                             Expression(on).text, LengthOf(on)),
                  "ZBDMTINDEX");
        CheckCode(ZBDMCLOSE(file), "ZBDMCLOSE");
    }
    // The same without keys.
    static void Create(const char* name, On on) {
        int16_t file = CreateFile(name);
        CheckCode(ZBDMTNEW(file, Tag, static_cast<uint32_t>(TypeOf(on)), Expression(on).text, LengthOf(on)),
                  "ZBDMTNEW");
        CheckCode(ZBDMCLOSE(file), "ZBDMCLOSE");
    }
    static Handle Open(const char* name, On) {
        Handle index;
        CheckCode(ZBDMOPENX(&index.file, name, ZB_Shared), name);
        CheckCode(ZBDMTUSE(&index.tag, static_cast<uint16_t>(index.file), Tag), "ZBDMTUSE");
        return index;
    }
    static void Close(Handle index) { CheckCode(ZBDMCLOSE(index.file), "ZBDMCLOSE"); }
    static int32_t Find(Handle index, void* key, uint32_t* record) {
        return ZBDMKFIND(index.tag, key, record, 0);
    }
    static int32_t Top(Handle index, void* key, uint32_t* record) { return ZBDMKTOP(index.tag, key, record); }
    static int32_t Next(Handle index, void* key, uint32_t* record) {
        return ZBDMKNEXT(index.tag, key, record);
    }
    static int32_t Add(Handle index, const void* key, uint32_t record) {
        return ZBDMKADD(index.tag, key, record);
    }
    static int32_t Delete(Handle index, const void* key, uint32_t record) {
        return ZBDMKDEL(index.tag, key, record);
    }
    static void Number(Handle, void* key, double value) { ZBDMKNUM(key, value); }
};

// Calls `use` with each family.
template <class Use>
void ForEachFamily(Use use) {
    use(Ndx{});
    use(Ntx{});
    use(Idx{});
    use(IdxCompact{});
    use(Mdx{});
}

}  // namespace bench
