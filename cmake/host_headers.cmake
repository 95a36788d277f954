# Libraries that are headers alone serve every target. On a cross build they are
# taken from this system's own, one directory each, since the others there are
# those of another target.
function(zb_host_headers target directory)
  set(linked ${PROJECT_BINARY_DIR}/host_headers/${directory})
  file(MAKE_DIRECTORY ${linked})
  file(CREATE_LINK /usr/include/${directory} ${linked}/${directory} SYMBOLIC)
  add_library(${target} INTERFACE IMPORTED)
  target_include_directories(${target} SYSTEM INTERFACE ${linked})
endfunction()
