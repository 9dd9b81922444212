# SPDX-License-Identifier: MIT
# Debian packages with CPack, one per install component:
#
#   libquor-steeringapi0       runtime: the shared library
#   libquor-steeringapi-dev    dev: headers, CMake package, quor-steering.pc,
#                              API reference and example sources
#   quor-steering-tools        tools: programs, example nets, manual pages
#
#   cmake -S . -B build-deb -DCMAKE_INSTALL_PREFIX=/usr
#   cmake --build build-deb -j2
#   (cd build-deb && cpack -G DEB)
#
# The dependencies on other packages come from the shared libraries the
# files need (dpkg-shlibdeps); between these packages, from the components.
set(CPACK_PACKAGE_NAME quor-steering)
set(CPACK_PACKAGE_VENDOR "The QUOR Steering authors")
set(CPACK_PACKAGE_CONTACT "The QUOR Steering authors")
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "${PROJECT_DESCRIPTION}")
set(CPACK_PACKAGE_VERSION ${PROJECT_VERSION})
set(CPACK_RESOURCE_FILE_LICENSE ${PROJECT_SOURCE_DIR}/LICENSE)
set(CPACK_GENERATOR DEB)
# The packaged library and programs without their debugging information.
set(CPACK_STRIP_FILES ON)
set(CPACK_COMPONENTS_ALL runtime dev tools)

set(CPACK_COMPONENT_RUNTIME_DESCRIPTION
  "Shared library to watch and steer running Petri-net simulations over TCP")
set(CPACK_COMPONENT_DEV_DESCRIPTION
  "Headers, CMake package, pkg-config file and API reference of libQUOR_SteeringAPI")
set(CPACK_COMPONENT_TOOLS_DESCRIPTION
  "Steerable simulation server quor-simd, the command-line client quor-steer, the dashboard quor-web, the steering and wire demos, example nets")
set(CPACK_COMPONENT_DEV_DEPENDS runtime)
set(CPACK_COMPONENT_TOOLS_DEPENDS runtime)

set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
# The programs need the library of the runtime package, which is not
# installed while the packages are made: dpkg-shlibdeps finds it here.
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS_PRIVATE_DIRS ${PROJECT_BINARY_DIR})
set(CPACK_DEBIAN_ENABLE_COMPONENT_DEPENDS ON)

set(CPACK_DEBIAN_RUNTIME_PACKAGE_NAME ${QUOR_PACKAGE_NAME_runtime})
set(CPACK_DEBIAN_RUNTIME_PACKAGE_SECTION libs)
# The runtime package's shlibs file (packages built against the library
# then depend on it) and its ldconfig trigger. Written here rather than
# with CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS, which would run `file` on every
# file of every package (the API reference has hundreds).
file(WRITE ${PROJECT_BINARY_DIR}/debian/shlibs
  "libQUOR_SteeringAPI ${PROJECT_VERSION_MAJOR} ${QUOR_PACKAGE_NAME_runtime} (>= ${PROJECT_VERSION})\n")
file(WRITE ${PROJECT_BINARY_DIR}/debian/triggers "activate-noawait ldconfig\n")
set(CPACK_DEBIAN_RUNTIME_PACKAGE_CONTROL_EXTRA
  ${PROJECT_BINARY_DIR}/debian/shlibs ${PROJECT_BINARY_DIR}/debian/triggers)

set(CPACK_DEBIAN_DEV_PACKAGE_NAME ${QUOR_PACKAGE_NAME_dev})
set(CPACK_DEBIAN_DEV_PACKAGE_SECTION libdevel)
# The headers include wxWidgets' headers; quor::SteeringAPI and the .pc
# file use wx-config's flags.
set(CPACK_DEBIAN_DEV_PACKAGE_DEPENDS "libwxgtk3.2-dev")
# Nothing in it is linked: no dependencies to find.
set(CPACK_DEBIAN_DEV_PACKAGE_SHLIBDEPS OFF)

set(CPACK_DEBIAN_TOOLS_PACKAGE_NAME ${QUOR_PACKAGE_NAME_tools})
set(CPACK_DEBIAN_TOOLS_PACKAGE_SECTION science)
# quor-web serves Debian's copy of the plotting library to its page.
set(CPACK_DEBIAN_TOOLS_PACKAGE_DEPENDS "libjs-chart.js")
# quor-steer plot draws with gnuplot when it is there.
set(CPACK_DEBIAN_TOOLS_PACKAGE_SUGGESTS "gnuplot-nox")

include(CPack)
