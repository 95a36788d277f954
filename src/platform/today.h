// A day that stands in for the clock's, so that files come out the same on any.
#pragma once

#include "platform/platform.h"

namespace zb {

// Names the environment variable that holds such a day.
inline constexpr char TodayVariable[] = "ZB_TODAY";

// Puts the date that a text of the form YYYY-MM-DD names in the clock's place;
// leaves the clock's where it names none, or is null.
void ReplaceDate(LocalTime* now, const char* text);

}  // namespace zb
