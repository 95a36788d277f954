// The forms that a date takes as text.
#pragma once

#include <cstdint>
#include <string_view>

#include "dates/dates.h"

namespace zb {

// A style's name tells its form in parentheses, and from that follows the rest.
// Positions count from 0; the day is the day of the year where the form has no
// month.
struct DateStyle {
    std::string_view name;
    std::string_view form;
    char separator = 0;
    int8_t separators = 0;
    int8_t yearAt = 0, yearWidth = 0;
    int8_t monthAt = -1;
    int8_t dayAt = 0, dayWidth = 0;

    constexpr explicit DateStyle(std::string_view text) : name(text) {
        form = name.substr(name.find('(') + 1);
        form.remove_suffix(1);
        for (size_t i = 0; i < form.size(); i++) {
            auto at = static_cast<int8_t>(i);
            switch (form[i]) {
                case 'y':
                    if (yearWidth++ == 0) yearAt = at;
                    break;
                case 'm':
                    if (monthAt < 0) monthAt = at;
                    break;
                case 'd':
                    if (dayWidth++ == 0) dayAt = at;
                    break;
                default: separator = form[i]; separators++;
            }
        }
    }

    constexpr int length() const { return static_cast<int>(form.size()); }
    constexpr bool shortYear() const { return yearWidth == 2; }
    constexpr bool julian() const { return monthAt < 0; }
    // A text may come without its two separators, though then its fields no
    // longer stand where they are looked for.
    constexpr int leastLength() const { return separators == 2 ? length() - 2 : length(); }
};

// Null for an unknown style.
const DateStyle* FindStyle(int style);

}  // namespace zb
