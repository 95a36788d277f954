#include "platform/platform.h"

#include <cstring>

namespace zb {

Platform* platform = &NativePlatform();

bool Platform::SameName(const char* one, const char* other) { return strcmp(one, other) == 0; }

}  // namespace zb
