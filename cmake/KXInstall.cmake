# cmake --install: headers under include/kxstreams/, versioned libraries, the tool and its
# manual page, a pkg-config file and a CMake package whose KXStreams::KXStreams brings the
# utilities library and the include directory along.

include(CMakePackageConfigHelpers)

set_target_properties(KXUtils64 PROPERTIES EXPORT_NAME KXUtils INSTALL_RPATH "$ORIGIN")
set_target_properties(KXStreams64 PROPERTIES EXPORT_NAME KXStreams INSTALL_RPATH "$ORIGIN")
add_library(KXStreams::KXStreams ALIAS KXStreams64)
add_library(KXStreams::KXUtils ALIAS KXUtils64)

set(KX_PACKAGE_DIR ${CMAKE_INSTALL_LIBDIR}/cmake/KXStreams)

install(TARGETS KXUtils64 KXStreams64 EXPORT KXStreamsTargets
  LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR}
  INCLUDES DESTINATION ${CMAKE_INSTALL_INCLUDEDIR})
install(FILES ${KX_PUBLIC_HEADERS} DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/kxstreams)
if(TARGET kxstream)
  set_target_properties(kxstream PROPERTIES INSTALL_RPATH "$ORIGIN/../${CMAKE_INSTALL_LIBDIR}")
  install(TARGETS kxstream RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR})
  install(FILES tools/kxstream/kxstream.1 DESTINATION ${CMAKE_INSTALL_MANDIR}/man1)
endif()

install(EXPORT KXStreamsTargets NAMESPACE KXStreams:: DESTINATION ${KX_PACKAGE_DIR})
configure_package_config_file(cmake/KXStreamsConfig.cmake.in
  ${PROJECT_BINARY_DIR}/KXStreamsConfig.cmake INSTALL_DESTINATION ${KX_PACKAGE_DIR})
write_basic_package_version_file(${PROJECT_BINARY_DIR}/KXStreamsConfigVersion.cmake
  COMPATIBILITY SameMajorVersion)
install(FILES ${PROJECT_BINARY_DIR}/KXStreamsConfig.cmake
  ${PROJECT_BINARY_DIR}/KXStreamsConfigVersion.cmake DESTINATION ${KX_PACKAGE_DIR})

# Relative to the .pc file, so that the package works wherever --prefix puts it.
file(RELATIVE_PATH KX_PC_PREFIX "/root/${CMAKE_INSTALL_LIBDIR}/pkgconfig" "/root")
string(REGEX REPLACE "/$" "" KX_PC_PREFIX "${KX_PC_PREFIX}")
configure_file(cmake/kxstreams.pc.in ${PROJECT_BINARY_DIR}/kxstreams.pc @ONLY)
install(FILES ${PROJECT_BINARY_DIR}/kxstreams.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
