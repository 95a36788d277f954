# Makes LIBRARY, the import library of a 32-bit DLL whose functions are __stdcall
# and exported by their plain names: it maps _NAME@BYTES to NAME.
file(STRINGS ${EXPORTS} names)
execute_process(COMMAND ${NM} ${DLL} OUTPUT_VARIABLE symbols COMMAND_ERROR_IS_FATAL ANY)
set(definitions "LIBRARY zb.dll\nEXPORTS\n")
foreach(name ${names})
  if(NOT symbols MATCHES " T _(${name}@[0-9]+)")
    message(FATAL_ERROR "${DLL} has no __stdcall function ${name}")
  endif()
  string(APPEND definitions "    ${CMAKE_MATCH_1}\n")
endforeach()
file(WRITE ${LIBRARY}.def "${definitions}")
file(REMOVE ${LIBRARY})
execute_process(COMMAND ${DLLTOOL} --kill-at --dllname zb.dll --input-def ${LIBRARY}.def --output-lib ${LIBRARY}
                COMMAND_ERROR_IS_FATAL ANY)
