// travel DIRECTORY write           writes a file of every kind, and in results.txt
//                                  the code of each call
// travel DIRECTORY hold KIND       locks shared.dbf, says so, and waits for input
// travel DIRECTORY ask KIND        says 0, or 100 for a conflict
// travel DIRECTORY append COUNT    appends records to shared.dbf, each under a lock
//
// One program for every system. What it writes has to be the same on each, byte by
// byte, and those that run on one machine have to respect each other's locks.
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <string>
#include <vector>

#include "zb.h"

namespace {

FILE* results;

// Writes a call's code down and clears it. Warnings and failures belong to the
// results like anything else.
int32_t Note(const char* call, int32_t code) {
    fprintf(results, "%s %d\n", call, code);
    ZBESCODE(0);
    return code;
}

// The same numbers on every system.
struct Numbers {
    uint64_t state = 20240229;

    uint32_t Next() {
        state = state * 6364136223846793005u + 1442695040888963407u;
        return static_cast<uint32_t>(state >> 33);
    }
    int Below(int limit) { return static_cast<int>(Next() % static_cast<uint32_t>(limit)); }
    double Amount() {
        double value = static_cast<double>(Next()) - 1073741824.0;
        return std::ldexp(value, Below(40) - 30);
    }
    std::string Word(size_t length) {
        std::string word;
        while (word.size() < length) word += static_cast<char>('A' + Below(26));
        return word;
    }
};

ZbFieldSpec Spec(const char* name, char type, uint16_t width, uint16_t decimals = 0) {
    ZbFieldSpec spec{};
    strcpy(spec.name, name);
    spec.type = static_cast<uint16_t>(type);
    spec.width = width;
    spec.decimals = decimals;
    return spec;
}

// A key expression in memory that the library may change.
class Expression {
  public:
    explicit Expression(const char* from) : text(from) { text.resize(text.size() + 1); }
    operator char*() { return text.data(); }

  private:
    std::string text;
};

void WriteTable(int dialect, Numbers& numbers) {
    std::string name = "table" + std::to_string(dialect) + ".dbf";
    std::string memoName = "memo" + std::to_string(dialect);
    std::vector<ZbFieldSpec> specs = {Spec("NAME", 'C', 20),   Spec("AMOUNT", 'N', 17, 5),
                                      Spec("RATE", 'N', 8, 2), Spec("BORN", 'D', 8),
                                      Spec("OK", 'L', 1),      Spec("NOTE", 'M', 10)};
    uint16_t opened = 0;
    Note("ZBDDCREATE", ZBDDCREATE(name.c_str(), static_cast<int16_t>(specs.size()), specs.data(),
                                  static_cast<int16_t>(dialect)));
    if (Note("ZBDDOPENX", ZBDDOPENX(&opened, name.c_str(), static_cast<uint16_t>(dialect))) < 0) return;
    auto data = static_cast<int16_t>(opened);

    int16_t terminated = -1, fpt = -1;
    Note("ZBDTCREATEX", ZBDTCREATEX((memoName + ".dbt").c_str(), 1, static_cast<int16_t>(dialect)));
    bool dbt = Note("ZBDTOPENX",
                    ZBDTOPENX(&terminated, (memoName + ".dbt").c_str(), static_cast<uint16_t>(dialect))) >= 0;
    Note("ZBDWCREATE", ZBDWCREATE((memoName + ".fpt").c_str(), 64));
    Note("ZBDWOPENX", ZBDWOPENX(&fpt, (memoName + ".fpt").c_str(), 0));

    std::vector<int32_t> blocks;
    for (int i = 0; i < 120; i++) {
        Note("ZBDDRCLEAR", ZBDDRCLEAR(data));
        std::string word = numbers.Word(static_cast<size_t>(numbers.Below(25)));
        Note("ZBDDFNPUT", ZBDDFNPUT(data, "NAME", word.c_str()));
        double amount = numbers.Amount(), rate = numbers.Amount() / 1e5;
        Note("ZBDDFNPUT", ZBDDFNPUT(data, "AMOUNT", &amount));
        Note("ZBDDFNPUT", ZBDDFNPUT(data, "RATE", &rate));
        char day[32] = {};
        Note("ZBCDL2SX", ZBCDL2SX(day, 4, 2440000 + numbers.Below(20000)));
        Note("ZBDDFNPUT", ZBDDFNPUT(data, "BORN", day));
        Note("ZBDDFNPUTS", ZBDDFNPUTS(data, "OK", numbers.Below(2) ? "T" : "F"));
        std::string text = numbers.Word(static_cast<size_t>(numbers.Below(1500)));
        int32_t block = 0;
        if (dbt) Note("ZBDTRPUT", ZBDTRPUT(terminated, &block, text.c_str(), ZB_MemoNew));
        if (!blocks.empty() && numbers.Below(3) == 0) {
            int32_t old = blocks[static_cast<size_t>(numbers.Below(static_cast<int>(blocks.size())))];
            Note("ZBDWRPUT", ZBDWRPUT(fpt, &old, text.c_str(), ZB_MemoReplace));
        } else {
            int32_t fptBlock = 0;
            Note("ZBDWRPUT", ZBDWRPUT(fpt, &fptBlock, text.c_str(), ZB_MemoNew));
            blocks.push_back(fptBlock);
        }
        Note("ZBDDFNPUT", ZBDDFNPUT(data, "NOTE", &block));
        uint32_t record = 0;
        Note("ZBDDRPUT", ZBDDRPUT(data, &record, 0));
    }
    for (int i = 0; i < 20; i++) Note("ZBDDRDEL", ZBDDRDEL(data, 1 + numbers.Below(120)));
    for (int32_t i = 1; i <= 120; i++) {
        Note("ZBDDRGET", ZBDDRGET(data, i));
        double amount = 0, rate = 0;
        Note("ZBDDFNGET", ZBDDFNGET(data, "AMOUNT", &amount));
        Note("ZBDDFNGET", ZBDDFNGET(data, "RATE", &rate));
        fprintf(results, "%a %a\n", amount, rate);
        for (const char* expression :
             {"STR(AMOUNT,12,3)+NAME", "DTOS(BORN)+LEFT(NAME,4)", "SUBSTR(NAME,2,3)"}) {
            ZbEvalResult result{};
            int32_t code = ZBDXEVAL(data, Expression(expression), &result);
            std::string value;
            if (code >= 0 && result.value)
                value.assign(static_cast<const char*>(result.value), static_cast<size_t>(result.length));
            Note("ZBDXEVAL", code);
            fprintf(results, "'%s'\n", value.c_str());
            if (result.value) ZBMFREE(result.value);
        }
    }
    if (dbt) Note("ZBDTCLOSE", ZBDTCLOSE(terminated));
    Note("ZBDWCLOSE", ZBDWCLOSE(fpt));
    Note("ZBDDPACK", ZBDDPACK(&data));
    Note("ZBDDCLOSE", ZBDDCLOSE(data));
}

// Adds and deletes `count` numbers each; a delete names a pair that was added.
template <class Change>
void Churn(Numbers& numbers, int count, Change change) {
    std::vector<int> kept;
    for (int i = 0; i < count; i++) {
        int value = numbers.Below(100000);
        change(true, value);
        kept.push_back(value);
        if (numbers.Below(3) != 0) continue;
        auto at = static_cast<size_t>(numbers.Below(static_cast<int>(kept.size())));
        change(false, kept[at]);
        kept.erase(kept.begin() + static_cast<ptrdiff_t>(at));
    }
}

std::string Padded(int value, size_t length) {
    std::string key = std::to_string(value);
    key.resize(length + 8, ' ');
    return key;
}

void WriteIndexes(Numbers& numbers) {
    uint16_t opened = 0;
    if (Note("ZBDDOPENX", ZBDDOPENX(&opened, "table1.dbf", ZB_DialectClassic | ZB_Shared)) < 0) return;
    auto data = static_cast<int16_t>(opened);
    auto record = [](int value) { return static_cast<uint32_t>(value % 1000 + 1); };

    Note("ZBDNINDEX", ZBDNINDEX(data, "names.ndx", 'C', Expression("NAME"), 20));
    Note("ZBDNINDEX", ZBDNINDEX(data, "amounts.ndx", 'N', Expression("AMOUNT"), 8));
    Note("ZBDNOPENX", ZBDNOPENX(&opened, "names.ndx", ZB_Shared));
    auto index = static_cast<int16_t>(opened);
    Churn(numbers, 800, [&](bool add, int value) {
        std::string key = Padded(value, 20);
        Note(add ? "ZBDNKADD" : "ZBDNKDEL",
             add ? ZBDNKADD(index, key.data(), record(value)) : ZBDNKDEL(index, key.data(), record(value)));
    });
    Note("ZBDNCLOSE", ZBDNCLOSE(index));

    Note("ZBDCINDEX", ZBDCINDEX(data, "names.ntx", 'C', Expression("LEFT(NAME,20)"), 20, 0));
    Note("ZBDCINDEX", ZBDCINDEX(data, "rates.ntx", 'N', Expression("RATE"), 8, 2));
    Note("ZBDCINDEX", ZBDCINDEX(data, "days.ntx", 'D', Expression("BORN"), 8, 0));
    Note("ZBDCOPENX", ZBDCOPENX(&opened, "names.ntx", ZB_Shared));
    index = static_cast<int16_t>(opened);
    Churn(numbers, 800, [&](bool add, int value) {
        std::string key = Padded(value, 20);
        Note(add ? "ZBDCKADD" : "ZBDCKDEL",
             add ? ZBDCKADD(index, key.data(), record(value)) : ZBDCKDEL(index, key.data(), record(value)));
    });
    Note("ZBDCCLOSE", ZBDCCLOSE(index));

    for (unsigned compact : {0u, 0x0400u}) {
        std::string name = compact ? "compact.idx" : "standard.idx";
        auto type = static_cast<uint16_t>('C' | compact);
        Note("ZBDIINDEX", ZBDIINDEX(data, name.c_str(), type, Expression("NAME"), 20));
        Note("ZBDIOPENX", ZBDIOPENX(&opened, name.c_str(), ZB_Shared));
        index = static_cast<int16_t>(opened);
        Churn(numbers, 400, [&](bool add, int value) {
            std::string key = Padded(value, 20);
            Note(add ? "ZBDIKADD" : "ZBDIKDEL", add ? ZBDIKADD(index, key.data(), record(value))
                                                    : ZBDIKDEL(index, key.data(), record(value)));
        });
        Note("ZBDICLOSE", ZBDICLOSE(index));
    }

    int16_t file = -1;
    Note("ZBDMCREATE", ZBDMCREATE("tags.mdx", 2));
    Note("ZBDMOPENX", ZBDMOPENX(&file, "tags.mdx", ZB_Shared));
    auto mdx = static_cast<uint16_t>(file);
    Note("ZBDMTINDEX", ZBDMTINDEX(data, mdx, "NAMES", 'C', Expression("NAME"), 20));
    Note("ZBDMTINDEX", ZBDMTINDEX(data, mdx, "AMOUNTS", 'N', Expression("AMOUNT"), 12));
    Note("ZBDMTINDEX", ZBDMTINDEX(data, mdx, "DAYS", 'D', Expression("BORN"), 8));
    int32_t names = -1, amounts = -1;
    Note("ZBDMTUSE", ZBDMTUSE(&names, mdx, "NAMES"));
    Note("ZBDMTUSE", ZBDMTUSE(&amounts, mdx, "AMOUNTS"));
    Churn(numbers, 800, [&](bool add, int value) {
        // Added alone: after some deletes of long keys the format itself ends calls.
        if (add) Note("ZBDMKADD", ZBDMKADD(names, Padded(value, 20).data(), record(value)));
        char number[16] = {};
        Note("ZBDMKNUM", ZBDMKNUM(number, value / 8.0 - 3000));
        Note(add ? "ZBDMKADD" : "ZBDMKDEL",
             add ? ZBDMKADD(amounts, number, record(value)) : ZBDMKDEL(amounts, number, record(value)));
    });
    Note("ZBDMTCLOSE", ZBDMTCLOSE(amounts));
    Note("ZBDMTCLOSE", ZBDMTCLOSE(names));
    Note("ZBDMTERASE", ZBDMTERASE(file, "DAYS"));
    Note("ZBDMCLOSE", ZBDMCLOSE(file));
    Note("ZBDDCLOSE", ZBDDCLOSE(data));
}

void WriteDates() {
    for (int32_t day = 1800000; day < 2500000; day += 9973)
        for (int16_t style = 1; style <= 15; style++) {
            char text[40] = {};
            Note("ZBCDL2SX", ZBCDL2SX(text, style, day));
            int32_t back = -1;
            Note("ZBCDS2LX", ZBCDS2LX(&back, text, style));
            fprintf(results, "%s %d\n", text, back);
        }
}

int WriteAll() {
    results = fopen("results.txt", "wb");
    Note("ZBDINIT", ZBDINIT(100, 4));
    Numbers numbers;
    for (int dialect = 1; dialect <= 9; dialect++) WriteTable(dialect, numbers);
    WriteIndexes(numbers);
    WriteDates();
    Note("ZBDTERM", ZBDTERM());
    // For the programs that share it.
    ZbFieldSpec spec = Spec("NAME", 'C', 10);
    ZBDINIT(100, 4);
    Note("ZBDDCREATE", ZBDDCREATE("shared.dbf", 1, &spec, ZB_DialectClassic));
    ZBDTERM();
    fclose(results);
    return 0;
}

int Share(const std::string& work, int number) {
    uint16_t opened = 0, conflict = 0;
    if (ZBDINIT(100, 4) != 0 || ZBDDOPENX(&opened, "shared.dbf", ZB_DialectClassic | ZB_Shared) != 0)
        return 1;
    auto data = static_cast<int16_t>(opened);
    if (work == "append") {
        char name[16];
        for (int i = 0; i < number; i++) {
            do {
                if (ZBDDLOCK(data, 1, &conflict) != 0) return 2;
            } while (conflict);
            snprintf(name, sizeof name, "%d", i);
            uint32_t record = 0;
            if (ZBDDFPUT(data, 0, name) != 0 || ZBDDRPUT(data, &record, 0) != 0) return 3;
            if (ZBDDUNLOCK(data, 1, nullptr) != 0) return 4;
        }
        return ZBDDCLOSE(data) == 0 ? 0 : 5;
    }
    if (ZBDDLOCK(data, static_cast<int16_t>(number), &conflict) != 0) return 6;
    printf("%d\n", conflict);
    fflush(stdout);
    if (work == "hold") getchar();
    // Not left to the system, which may take its time after the end of a process.
    return ZBDDCLOSE(data) == 0 ? 0 : 5;
}

}  // namespace

int main(int count, char** arguments) {
    if (count < 3) return 64;
    std::error_code error;
    std::filesystem::current_path(arguments[1], error);
    if (error) return 65;
    std::string work = arguments[2];
    if (work == "write") return WriteAll();
    return count > 3 ? Share(work, atoi(arguments[3])) : 64;
}
