#include "dates/styles.h"

#include <cstring>

#include "core/ascii.h"
#include "core/library.h"

namespace zb {
namespace {

constexpr DateStyle styles[StyleCount] = {
    DateStyle("Gregorian (mm/dd/yy)"),    // 1
    DateStyle("Gregorian (mm/dd/yyyy)"),  // 2
    DateStyle("Julian (yyyy/ddd)"),       // 3
    DateStyle("dBASE (yyyymmdd)"),        // 4
    DateStyle("DMY (ddmmyy)"),            // 5
    DateStyle("German (dd.mm.yy)"),       // 6
    DateStyle("German (dd.mm.yyyy)"),     // 7
    DateStyle("British (dd/mm/yy)"),      // 8
    DateStyle("British (dd/mm/yyyy)"),    // 9
    DateStyle("French (dd/mm/yy)"),       // 10
    DateStyle("French (dd/mm/yyyy)"),     // 11
    DateStyle("Italian (dd-mm-yy)"),      // 12
    DateStyle("Italian (dd-mm-yyyy)"),    // 13
    DateStyle("ENSI (yy.mm.dd)"),         // 14
    DateStyle("ENSI (yyyy.mm.dd)"),       // 15
};

struct Keyword {
    const char* word;
    uint16_t style;
};

constexpr Keyword keywords[] = {
    {"GREGOR", 1},   {"GREGORL", 2},  {"JULIAN", 3},    {"YMD", 4},     {"DMY", 5},      {"GERMAN", 6},
    {"EURODATE", 6}, {"GERMANL", 7},  {"EURODATEL", 7}, {"BRITISH", 8}, {"BRITISHL", 9}, {"FRENCH", 10},
    {"FRENCHL", 11}, {"ITALIAN", 12}, {"ITALIANL", 13}, {"ENSI", 14},   {"ENSIL", 15},
};

}  // namespace

const DateStyle* FindStyle(int style) {
    return style >= 1 && style <= StyleCount ? &styles[style - 1] : nullptr;
}

int StyleLength(int style) {
    auto* found = FindStyle(style);
    return found ? found->length() : 0;
}

uint16_t StyleOfKeyword(const char* keyword) {
    for (auto& [word, style] : keywords)
        if (EqualNoCase(word, keyword)) return style;
    return 1;
}

}  // namespace zb

using namespace zb;

int32_t ZB_CALL ZBCDSTYLE(uint16_t style) {
    if (!library.attached) return SetCode(ErrNotAttached);
    if (!FindStyle(style)) return SetCode(ErrBadOption);
    library.dateStyle = style;
    return CurrentCode();
}

int32_t ZB_CALL ZBCDGSTYLE(uint16_t* style, char* name) {
    if (!library.attached) return SetCode(ErrNotAttached);
    if (!style || !name) return Fail("Gstyle", ErrNullPointer);
    *style = library.dateStyle;
    // A start that failed leaves no style.
    auto* found = FindStyle(library.dateStyle);
    std::string_view text = found ? found->name : std::string_view();
    text.copy(name, text.size());
    name[text.size()] = '\0';
    return CurrentCode();
}
