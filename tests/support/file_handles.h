// The map of file handles, which each start of the library attaches to and no
// stop detaches from.
#pragma once

#include "file/handles.h"

namespace test {

// Takes the map away, however often it was attached, so that the next attach
// makes a new one and handles count from 2 again.
inline void DropFileHandles() {
    for (int i = 0; i < 10000; i++) zb::FhmapDetach();
}

}  // namespace test
