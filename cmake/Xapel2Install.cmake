# What is installed: libraries, headers in a folder of their own, files for find_package and pkg-config, the application.
include(CMakePackageConfigHelpers)
include(GNUInstallDirs)

# The declarations of the host stand apart from /usr/include, where a host may have headers of the same names.
set(HEADER_DIR ${CMAKE_INSTALL_INCLUDEDIR}/xapel2-ext-sc)
set(PACKAGE_DIR ${CMAKE_INSTALL_LIBDIR}/cmake/xapel2_ext_sc)

set(LIBRARIES xapel2_hostapi xapel2_ext_sc)
install(DIRECTORY ${PROJECT_SOURCE_DIR}/hostapi/xapel2 DESTINATION ${HEADER_DIR} FILES_MATCHING PATTERN "*.h")
install(FILES ${PROJECT_SOURCE_DIR}/tlconsumer/xapel2_ext_sc/xapel2_ext_sc.h DESTINATION ${HEADER_DIR})
if(XAPEL2_GENICAM_LIBRARY)
  set(HOST_LIBS ${XAPEL2_GENICAM_LIBRARY})
else()
  list(APPEND LIBRARIES xapel2_genicam)
  set(HOST_REQUIRES xapel2_genicam)
  install(DIRECTORY ${PROJECT_SOURCE_DIR}/standin/include/xapel2_standin DESTINATION ${HEADER_DIR}
    FILES_MATCHING PATTERN "*.h")
  configure_file(${PROJECT_SOURCE_DIR}/cmake/xapel2_genicam.pc.in xapel2_genicam.pc @ONLY)
  install(FILES ${CMAKE_CURRENT_BINARY_DIR}/xapel2_genicam.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
  if(TARGET xapel2_genicam_aravis)
    install(TARGETS xapel2_genicam_aravis LIBRARY NAMELINK_SKIP)  # loaded by its name, never linked
  endif()
  if(XAPEL2_BUILD_APPS)
    install(TARGETS xapel2-shading)
  endif()
endif()
install(TARGETS ${LIBRARIES} EXPORT xapel2_ext_sc-targets INCLUDES DESTINATION ${HEADER_DIR})
install(EXPORT xapel2_ext_sc-targets NAMESPACE xapel2:: DESTINATION ${PACKAGE_DIR})

configure_file(${PROJECT_SOURCE_DIR}/cmake/xapel2_ext_sc.pc.in xapel2_ext_sc.pc @ONLY)
install(FILES ${CMAKE_CURRENT_BINARY_DIR}/xapel2_ext_sc.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
configure_file(${PROJECT_SOURCE_DIR}/cmake/xapel2_ext_sc-config.cmake.in xapel2_ext_sc-config.cmake @ONLY)
# Before 1.0 a minor version may change the interface.
write_basic_package_version_file(xapel2_ext_sc-config-version.cmake COMPATIBILITY SameMinorVersion)
install(FILES ${CMAKE_CURRENT_BINARY_DIR}/xapel2_ext_sc-config.cmake
  ${CMAKE_CURRENT_BINARY_DIR}/xapel2_ext_sc-config-version.cmake DESTINATION ${PACKAGE_DIR})
