// Holds the place of rooms that are being built.
#include "data/data.h"
#include "dates/dates.h"

namespace zb {
uint16_t StyleOfKeyword(const char*) { return 1; }
Code DataQuickClose(int) { return 0; }
}  // namespace zb
int32_t ZB_CALL ZBDDCLOSE(int16_t) { return 0; }
