# Nothing but the names in exports.txt leaves the library: by a version script,
# or by a module definition file on Windows.
file(STRINGS ${CMAKE_CURRENT_LIST_DIR}/exports.txt ZB_EXPORTS)
set_property(DIRECTORY APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS ${CMAKE_CURRENT_LIST_DIR}/exports.txt)

if(NOT ZB_SANITIZE)
  add_test(NAME exports COMMAND ${CMAKE_COMMAND} -DOBJDUMP=${CMAKE_OBJDUMP} -DLIBRARY=$<TARGET_FILE:zb>
                                -DEXPORTS=${CMAKE_CURRENT_LIST_DIR}/exports.txt -P
                                ${CMAKE_CURRENT_LIST_DIR}/exports_test.cmake)
endif()

if(NOT WIN32)
  set(ZB_EXPORT_MAP ${CMAKE_CURRENT_BINARY_DIR}/exports.map)
  list(JOIN ZB_EXPORTS ";\n    " ZB_EXPORT_LINES)
  file(CONFIGURE OUTPUT ${ZB_EXPORT_MAP} CONTENT "{\n  global:\n    @ZB_EXPORT_LINES@;\n  local:\n    *;\n};\n" @ONLY)
  target_link_options(zb PRIVATE -Wl,--version-script=${ZB_EXPORT_MAP})
  set_target_properties(zb PROPERTIES LINK_DEPENDS ${ZB_EXPORT_MAP})
  return()
endif()

set(ZB_EXPORT_DEF ${CMAKE_CURRENT_BINARY_DIR}/zb.def)
list(JOIN ZB_EXPORTS "\n    " ZB_EXPORT_LINES)
file(CONFIGURE OUTPUT ${ZB_EXPORT_DEF} CONTENT "LIBRARY zb.dll\nEXPORTS\n    @ZB_EXPORT_LINES@\n" @ONLY)
target_sources(zb PRIVATE ${ZB_EXPORT_DEF})
set_target_properties(zb PROPERTIES PREFIX "" LINK_DEPENDS ${ZB_EXPORT_DEF})

if(CMAKE_SIZEOF_VOID_P EQUAL 4)
  # The symbols carry the size of their arguments and the exported names don't. The
  # linker finds the ones for the others, but its import library knows the names
  # alone: one is made that leads from what a caller's object asks for.
  target_link_options(zb PRIVATE -Wl,--enable-stdcall-fixup)
  add_custom_command(
    TARGET zb POST_BUILD
    COMMAND
      ${CMAKE_COMMAND} -DNM=${CMAKE_NM} -DDLLTOOL=${CMAKE_DLLTOOL} -DDLL=$<TARGET_FILE:zb>
      -DEXPORTS=${CMAKE_CURRENT_LIST_DIR}/exports.txt -DLIBRARY=$<TARGET_LINKER_FILE:zb> -P
      ${CMAKE_CURRENT_LIST_DIR}/import_library.cmake
    VERBATIM)
endif()
