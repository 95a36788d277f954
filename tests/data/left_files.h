#pragma once

#include "file/handles.h"

namespace test {

// Closes what failed creations have left open: the handles outlive the library.
inline void CloseLeftFiles() {
    for (uint16_t handle = 2; handle < 102; handle++)
        if (zb::FhmapLookup(static_cast<int16_t>(handle)) != zb::PlatformHandle::None) zb::PfClose(handle);
}

}  // namespace test
