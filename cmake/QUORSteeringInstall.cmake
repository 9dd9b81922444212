# SPDX-License-Identifier: MIT
# What `cmake --install` puts where, by component: runtime (the shared
# library), dev (headers, the CMake package, quor-steering.pc, the API
# reference) and tools (programs, example nets, manual pages; see
# QUORPrograms.cmake). The Debian packages follow the same split.
include(CMakePackageConfigHelpers)

# The Debian package of each component (see QUORPackaging.cmake).
set(QUOR_PACKAGE_NAME_runtime libquor-steeringapi${PROJECT_VERSION_MAJOR})
set(QUOR_PACKAGE_NAME_dev libquor-steeringapi-dev)
set(QUOR_PACKAGE_NAME_tools quor-steering-tools)

set(QUOR_CMAKE_INSTALL_DIR ${CMAKE_INSTALL_LIBDIR}/cmake/QUORSteering)
set(QUOR_DOC_INSTALL_DIR ${CMAKE_INSTALL_DATAROOTDIR}/doc/quor-steering)

install(TARGETS QUOR_SteeringAPI EXPORT QUORSteeringTargets
  LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT runtime NAMELINK_COMPONENT dev)
install(DIRECTORY ${PROJECT_SOURCE_DIR}/include/quor
  DESTINATION ${CMAKE_INSTALL_INCLUDEDIR} COMPONENT dev)

# find_package(QUORSteering 0.2 CONFIG REQUIRED) and quor::SteeringAPI.
install(EXPORT QUORSteeringTargets NAMESPACE quor::
  DESTINATION ${QUOR_CMAKE_INSTALL_DIR} COMPONENT dev)
configure_package_config_file(
  ${PROJECT_SOURCE_DIR}/cmake/QUORSteeringConfig.cmake.in
  ${PROJECT_BINARY_DIR}/QUORSteeringConfig.cmake
  INSTALL_DESTINATION ${QUOR_CMAKE_INSTALL_DIR})
# Same major version, same binary interface (the SONAME says the same).
write_basic_package_version_file(
  ${PROJECT_BINARY_DIR}/QUORSteeringConfigVersion.cmake
  COMPATIBILITY SameMajorVersion)
install(FILES
  ${PROJECT_BINARY_DIR}/QUORSteeringConfig.cmake
  ${PROJECT_BINARY_DIR}/QUORSteeringConfigVersion.cmake
  ${PROJECT_SOURCE_DIR}/cmake/QUORSteeringWx.cmake
  DESTINATION ${QUOR_CMAKE_INSTALL_DIR} COMPONENT dev)

# quor-steering.pc: one line compiles and links a client, wxWidgets' flags
# included (Debian's wxWidgets has no .pc file of its own, so wx-config's
# flags of this build are written in). The prefix is found from the
# file's own place (${pcfiledir}), so the file is right wherever the
# installed tree is: in the prefix given to cmake --install, in a Debian
# package, or unpacked anywhere.
get_target_property(l_wx_includes quor::wx INTERFACE_INCLUDE_DIRECTORIES)
get_target_property(l_wx_definitions quor::wx INTERFACE_COMPILE_DEFINITIONS)
get_target_property(l_wx_options quor::wx INTERFACE_COMPILE_OPTIONS)
get_target_property(l_wx_libraries quor::wx INTERFACE_LINK_LIBRARIES)
set(QUOR_PC_WX_CFLAGS "")
foreach(l_dir IN LISTS l_wx_includes)
  string(APPEND QUOR_PC_WX_CFLAGS " -I${l_dir}")
endforeach()
foreach(l_definition IN LISTS l_wx_definitions)
  string(APPEND QUOR_PC_WX_CFLAGS " -D${l_definition}")
endforeach()
foreach(l_option IN LISTS l_wx_options)
  string(APPEND QUOR_PC_WX_CFLAGS " ${l_option}")
endforeach()
string(REPLACE ";" " " QUOR_PC_WX_LIBS "${l_wx_libraries}")
file(RELATIVE_PATH QUOR_PC_PREFIX_FROM_PCFILEDIR
  ${CMAKE_INSTALL_FULL_LIBDIR}/pkgconfig ${CMAKE_INSTALL_PREFIX})
configure_file(${PROJECT_SOURCE_DIR}/cmake/quor-steering.pc.in
  ${PROJECT_BINARY_DIR}/pkgconfig/quor-steering.pc @ONLY)
install(FILES ${PROJECT_BINARY_DIR}/pkgconfig/quor-steering.pc
  DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig COMPONENT dev)

# Debian wants the licence of each package as its copyright file.
foreach(l_component runtime dev tools)
  install(FILES ${PROJECT_SOURCE_DIR}/LICENSE
    DESTINATION ${CMAKE_INSTALL_DATAROOTDIR}/doc/${QUOR_PACKAGE_NAME_${l_component}}
    RENAME copyright COMPONENT ${l_component})
endforeach()
