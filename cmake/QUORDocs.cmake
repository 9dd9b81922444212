# SPDX-License-Identifier: MIT
# The API reference: `cmake --build build --target docs` writes HTML from
# the public headers into build/docs/html (part of the default build, and
# installed with the headers). Doxygen's warnings go to
# build/docs/doxygen-warnings.txt; a test keeps that file empty.
#
# The headers keep plain // comments; docs/doxygen_filter.py hands them to
# Doxygen as documentation (the file's opening comment as the file's, a
# comment above a declaration as its description, one behind it as its
# brief), with Doxygen's special characters taken literally.
find_package(Doxygen)
if(NOT DOXYGEN_FOUND)
  message(FATAL_ERROR "Doxygen is missing (apt-get install doxygen); it writes the API "
                      "reference. Or configure with -DQUOR_BUILD_DOCS=OFF.")
endif()
# Debian's Python unless another one is asked for (the filter needs
# nothing but the standard library).
if(NOT DEFINED Python3_EXECUTABLE AND EXISTS /usr/bin/python3)
  set(Python3_EXECUTABLE /usr/bin/python3)
endif()
find_package(Python3 REQUIRED COMPONENTS Interpreter)

set(QUOR_DOCS_DIR ${PROJECT_BINARY_DIR}/docs)
set(QUOR_DOCS_WARNINGS ${QUOR_DOCS_DIR}/doxygen-warnings.txt)
set(QUOR_DOCS_FILTER "${Python3_EXECUTABLE} ${PROJECT_SOURCE_DIR}/docs/doxygen_filter.py")
configure_file(${PROJECT_SOURCE_DIR}/docs/Doxyfile.in ${QUOR_DOCS_DIR}/Doxyfile @ONLY)

add_custom_command(OUTPUT ${QUOR_DOCS_DIR}/html/index.html
  COMMAND ${CMAKE_COMMAND} -E remove_directory ${QUOR_DOCS_DIR}/html
  COMMAND ${DOXYGEN_EXECUTABLE} ${QUOR_DOCS_DIR}/Doxyfile
  DEPENDS ${QUOR_PUBLIC_HEADERS}
          ${PROJECT_SOURCE_DIR}/docs/mainpage.md
          ${PROJECT_SOURCE_DIR}/docs/doxygen_filter.py
          ${QUOR_DOCS_DIR}/Doxyfile
  WORKING_DIRECTORY ${QUOR_DOCS_DIR}
  COMMENT "Writing the API reference (Doxygen)"
  VERBATIM)
add_custom_target(docs ALL DEPENDS ${QUOR_DOCS_DIR}/html/index.html)
install(DIRECTORY ${QUOR_DOCS_DIR}/html DESTINATION ${QUOR_DOC_INSTALL_DIR} COMPONENT dev)
