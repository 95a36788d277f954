// Holds the place of rooms that are being built.
#include "data/data.h"

namespace zb {
Code DataQuickClose(int) { return 0; }
}  // namespace zb
int32_t ZB_CALL ZBDDCLOSE(int16_t) { return 0; }
