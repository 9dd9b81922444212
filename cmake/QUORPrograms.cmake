# SPDX-License-Identifier: MIT
# The project's programs, each made with one call:
#
#   quor_add_program(quor-simd
#     WHATIS "steerable Petri-net simulation server"   # the manual page's NAME line
#     SOURCES main.cpp
#     LIBRARIES quor_simd_core)
#
# builds the program with the project's warnings and the programs' common
# library (apps/common: --help, --version, exit statuses, console start-up),
# installs it (component tools), writes its manual page with help2man from
# its --help and --version (installed in man1) and has the tests check its
# command-line conventions. Example programs, which show the library alone
# and are not installed, are made with quor_add_example(NAME SOURCE...).
#
# The programs of the project, for the tests.
define_property(GLOBAL PROPERTY QUOR_PROGRAMS
  BRIEF_DOCS "Programs whose command-line conventions the tests check"
  FULL_DOCS "Each built with quor_add_program or quor_add_example.")
define_property(GLOBAL PROPERTY QUOR_INSTALLED_PROGRAMS
  BRIEF_DOCS "Programs that are installed with a manual page"
  FULL_DOCS "Each built with quor_add_program.")

if(QUOR_BUILD_MANPAGES)
  find_program(QUOR_HELP2MAN help2man)
  if(NOT QUOR_HELP2MAN)
    message(FATAL_ERROR "help2man is missing (apt-get install help2man); it writes the "
                        "programs' manual pages. Or configure with -DQUOR_BUILD_MANPAGES=OFF.")
  endif()
endif()

# Installed programs find the library next to them (bin/../lib) unless it
# goes to a folder the system searches anyway.
set(QUOR_PROGRAM_RPATH "")
if(NOT "${CMAKE_INSTALL_FULL_LIBDIR}" IN_LIST CMAKE_CXX_IMPLICIT_LINK_DIRECTORIES)
  file(RELATIVE_PATH l_bin_to_lib ${CMAKE_INSTALL_FULL_BINDIR} ${CMAKE_INSTALL_FULL_LIBDIR})
  set(QUOR_PROGRAM_RPATH "$ORIGIN/${l_bin_to_lib}")
endif()

function(quor_add_program p_name)
  cmake_parse_arguments(PARSE_ARGV 1 l "" "WHATIS" "SOURCES;LIBRARIES")
  if(NOT l_WHATIS OR NOT l_SOURCES)
    message(FATAL_ERROR "quor_add_program(${p_name}): WHATIS and SOURCES are needed")
  endif()
  add_executable(${p_name} ${l_SOURCES})
  target_link_libraries(${p_name} PRIVATE quor_app_common ${l_LIBRARIES} quor_warnings)
  set_target_properties(${p_name} PROPERTIES INSTALL_RPATH "${QUOR_PROGRAM_RPATH}")
  install(TARGETS ${p_name} RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR} COMPONENT tools)
  set_property(GLOBAL APPEND PROPERTY QUOR_PROGRAMS ${p_name})
  set_property(GLOBAL APPEND PROPERTY QUOR_INSTALLED_PROGRAMS ${p_name})

  if(QUOR_BUILD_MANPAGES)
    set(l_page ${PROJECT_BINARY_DIR}/man/man1/${p_name}.1)
    add_custom_command(OUTPUT ${l_page}
      COMMAND ${CMAKE_COMMAND} -E make_directory ${PROJECT_BINARY_DIR}/man/man1
      COMMAND ${QUOR_HELP2MAN} --no-info --section=1 "--name=${l_WHATIS}"
              --output=${l_page} $<TARGET_FILE:${p_name}>
      DEPENDS ${p_name}
      COMMENT "Writing the manual page of ${p_name}"
      VERBATIM)
    add_custom_target(${p_name}-man ALL DEPENDS ${l_page})
    install(FILES ${l_page} DESTINATION ${CMAKE_INSTALL_MANDIR}/man1 COMPONENT tools)
  endif()
endfunction()

function(quor_add_example p_name)
  add_executable(${p_name} ${ARGN})
  target_link_libraries(${p_name} PRIVATE quor::SteeringAPI quor_warnings)
  set_property(GLOBAL APPEND PROPERTY QUOR_PROGRAMS ${p_name})
endfunction()
