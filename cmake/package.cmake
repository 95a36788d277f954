# What `cmake --install` puts in place, and the Debian packages that cpack makes
# of it: the library, what programs are built with, and the tool.
include(GNUInstallDirs)
include(CMakePackageConfigHelpers)

install(TARGETS zb EXPORT zbTargets
        LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT library NAMELINK_COMPONENT development
        ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT development
        RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR} COMPONENT library)
install(FILES include/zb.h include/zb.hpp DESTINATION ${CMAKE_INSTALL_INCLUDEDIR} COMPONENT development)

set(ZB_CMAKE_DIR ${CMAKE_INSTALL_LIBDIR}/cmake/zb)
install(EXPORT zbTargets NAMESPACE zb:: DESTINATION ${ZB_CMAKE_DIR} COMPONENT development)
configure_package_config_file(cmake/package/zbConfig.cmake.in zbConfig.cmake INSTALL_DESTINATION ${ZB_CMAKE_DIR})
write_basic_package_version_file(zbConfigVersion.cmake COMPATIBILITY SameMajorVersion)
install(FILES ${CMAKE_CURRENT_BINARY_DIR}/zbConfig.cmake ${CMAKE_CURRENT_BINARY_DIR}/zbConfigVersion.cmake
        DESTINATION ${ZB_CMAKE_DIR} COMPONENT development)
configure_file(cmake/package/zb.pc.in zb.pc @ONLY)
install(FILES ${CMAKE_CURRENT_BINARY_DIR}/zb.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig COMPONENT development)
install(FILES docs/man/libzb.3 DESTINATION ${CMAKE_INSTALL_MANDIR}/man3 COMPONENT development)

install(FILES LICENSE README.md CHANGELOG.md DESTINATION ${CMAKE_INSTALL_DOCDIR} COMPONENT development)

set(CPACK_GENERATOR DEB)
set(CPACK_COMPONENTS_ALL library development)
if(ZB_TOOL)
  list(APPEND CPACK_COMPONENTS_ALL tool)
endif()
set(CPACK_PACKAGE_CONTACT "the zb authors <maintainers@users.noreply.example>")
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "record-level access to xBase files")
set(CPACK_PACKAGE_HOMEPAGE_URL "")
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_STRIP_FILES ON)
set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS_PRIVATE_DIRS ${CMAKE_CURRENT_BINARY_DIR})
set(CPACK_DEBIAN_LIBRARY_PACKAGE_NAME libzb${PROJECT_VERSION_MAJOR})
set(CPACK_DEBIAN_LIBRARY_PACKAGE_SECTION libs)
set(CPACK_DEBIAN_LIBRARY_PACKAGE_GENERATE_SHLIBS ON)
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_NAME libzb-dev)
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_SECTION libdevel)
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_DEPENDS "libzb${PROJECT_VERSION_MAJOR} (= ${PROJECT_VERSION})")
set(CPACK_DEBIAN_TOOL_PACKAGE_NAME zb)
set(CPACK_DEBIAN_TOOL_PACKAGE_SECTION database)
set(CPACK_COMPONENT_LIBRARY_DESCRIPTION "The shared library: data files, memo files, indexes and locks.")
set(CPACK_COMPONENT_DEVELOPMENT_DESCRIPTION "What C and C++ programs are built with: headers, CMake package, pkg-config.")
set(CPACK_COMPONENT_TOOL_DESCRIPTION "The zb command: show, check, change, convert and mend xBase files.")
include(CPack)
