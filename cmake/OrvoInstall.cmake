# Installs the libraries, their public headers, the CMake package `orvo` and the pkg-config files.
# Nothing installed names a path of the build: a prefix may be moved as a whole.

set(ORVO_CMAKE_DIR ${CMAKE_INSTALL_LIBDIR}/cmake/orvo)
set(ORVO_PKGCONFIG_DIR ${CMAKE_INSTALL_LIBDIR}/pkgconfig)

set(orvo_libraries orvo_api)
if(TARGET orvo_kit)
  list(APPEND orvo_libraries orvo_kit)
endif()

install(TARGETS ${orvo_libraries} EXPORT orvo-targets
  LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR}
  ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR}
  RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR}
)
install(EXPORT orvo-targets NAMESPACE orvo:: DESTINATION ${ORVO_CMAKE_DIR})

# Headers whose names end in _p belong to the library alone.
function(orvo_install_headers folder)
  install(DIRECTORY ${PROJECT_SOURCE_DIR}/${folder}/ DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/orvo
    FILES_MATCHING PATTERN "*.h" PATTERN "*_p.h" EXCLUDE)
endfunction()
orvo_install_headers(src/api)

configure_package_config_file(${PROJECT_SOURCE_DIR}/cmake/orvo-config.cmake.in
  ${PROJECT_BINARY_DIR}/package/orvo-config.cmake INSTALL_DESTINATION ${ORVO_CMAKE_DIR}
  NO_SET_AND_CHECK_MACRO)
write_basic_package_version_file(${PROJECT_BINARY_DIR}/package/orvo-config-version.cmake
  COMPATIBILITY SameMinorVersion)
install(FILES
  ${PROJECT_BINARY_DIR}/package/orvo-config.cmake
  ${PROJECT_BINARY_DIR}/package/orvo-config-version.cmake
  DESTINATION ${ORVO_CMAKE_DIR})

# pkg-config finds the prefix from where the file lies.
file(RELATIVE_PATH ORVO_PREFIX_FROM_PKGCONFIG
  ${CMAKE_INSTALL_PREFIX}/${ORVO_PKGCONFIG_DIR} ${CMAKE_INSTALL_PREFIX})
string(REGEX REPLACE "/$" "" ORVO_PREFIX_FROM_PKGCONFIG ${ORVO_PREFIX_FROM_PKGCONFIG})
function(orvo_install_pkgconfig library)
  configure_file(${PROJECT_SOURCE_DIR}/cmake/${library}.pc.in ${PROJECT_BINARY_DIR}/package/${library}.pc @ONLY)
  install(FILES ${PROJECT_BINARY_DIR}/package/${library}.pc DESTINATION ${ORVO_PKGCONFIG_DIR})
endfunction()
orvo_install_pkgconfig(orvo_api)

if(TARGET orvo_kit)
  orvo_install_headers(src/kit)
  orvo_install_pkgconfig(orvo_kit)
endif()
