#include "support/tables.h"

namespace fuzz {
namespace {

ZbFieldSpec Spec(const char* name, char type, uint16_t width, uint16_t decimals = 0) {
    ZbFieldSpec spec{};
    strncpy(spec.name, name, sizeof spec.name - 1);
    spec.type = static_cast<uint16_t>(type);
    spec.width = width;
    spec.decimals = decimals;
    return spec;
}

void Fill(int16_t data, int records) {
    for (int i = 1; i <= records; i++) {
        ZBDDRCLEAR(data);
        char text[32];
        snprintf(text, sizeof text, "KEY%05d", i * 7 % 1000);
        ZBDDFNPUT(data, "NAME", text);
        double amount = i * 1.25 - 10;
        ZBDDFNPUT(data, "AMOUNT", &amount);
        snprintf(text, sizeof text, "%02d/%02d/%02d", i % 12 + 1, i % 28 + 1, i % 100);
        ZBDDFNPUT(data, "BORN", text);
        ZBDDFNPUT(data, "OK", i % 2 ? "T" : "F");
        auto block = static_cast<uint32_t>(i % 5 + 1);
        ZBDDFNPUT(data, "NOTES", &block);
        ZBESCODE(0);
        uint32_t number;
        ZBDDRPUT(data, &number, 0);
        if (i % 6 == 0) ZBDDRDEL(data, i);
    }
}

std::string Table(int dialect, int records) {
    return MakeFile("A.DBF", [&](Session&) {
        ZbFieldSpec specs[] = {Spec("NAME", 'C', 10),
                               Spec("AMOUNT", 'N', 8, 2),
                               Spec("BORN", 'D', 8),
                               Spec("OK", 'L', 1),
                               Spec("NOTES", 'M', 10),
                               Spec("RATE", dialect == 2 || dialect == 3 || dialect == 8 ? 'F' : 'N', 12, 4),
                               Spec("LONG", 'C', static_cast<uint16_t>(dialect == 6 ? 600 : 60))};
        if (ZBDDCREATE("A.DBF", 7, specs, static_cast<int16_t>(dialect)) < 0) {
            ZBESCODE(0);
            specs[5].type = 'N';
            ZBDDCREATE("A.DBF", 7, specs, static_cast<int16_t>(dialect));
        }
        uint16_t data;
        ZBDDOPENX(&data, "A.DBF", static_cast<uint16_t>(dialect));
        Fill(static_cast<int16_t>(data), records);
    });
}

}  // namespace

const DataSeeds& DataFiles() {
    static const DataSeeds seeds = [] {
        DataSeeds made;
        for (int i = 0; i < 9; i++) made.files[i] = Table(i + 1, 12);
        return made;
    }();
    return seeds;
}

std::string People(int records) { return Table(2, records); }

}  // namespace fuzz
