set(ZB_TARGET x86_64)
include(${CMAKE_CURRENT_LIST_DIR}/mingw.cmake)
# The tests run under Wine.
find_program(ZB_WINE NAMES wine64 PATHS /usr/lib/wine NO_CMAKE_FIND_ROOT_PATH)
if(ZB_WINE)
  set(CMAKE_CROSSCOMPILING_EMULATOR ${ZB_WINE})
endif()
