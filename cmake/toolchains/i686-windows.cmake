set(ZB_TARGET i686)
include(${CMAKE_CURRENT_LIST_DIR}/mingw.cmake)
