#include "platform/platform.h"

namespace zb {

Platform* platform = &NativePlatform();

}  // namespace zb
