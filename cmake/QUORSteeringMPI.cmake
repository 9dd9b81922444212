# SPDX-License-Identifier: MIT
# quor::SteeringMPI: steering a simulation that runs across many MPI
# processes (include/quor/steeringmpi.h, source/mpi/). Built when MPI is
# found (Debian: libopenmpi-dev, openmpi-bin); QUOR_HAVE_MPI says whether it
# was, and QUOR_MPIEXEC is the launcher the tests and benchmarks use.
find_package(MPI COMPONENTS CXX QUIET)
set(QUOR_HAVE_MPI OFF)
if(MPI_CXX_FOUND AND MPIEXEC_EXECUTABLE)
  set(QUOR_HAVE_MPI ON)
  set(QUOR_MPIEXEC ${MPIEXEC_EXECUTABLE})
  file(GLOB QUOR_MPI_SOURCES CONFIGURE_DEPENDS ${PROJECT_SOURCE_DIR}/source/mpi/*.cpp)
  add_library(QUOR_SteeringMPI SHARED ${QUOR_MPI_SOURCES}
              ${PROJECT_SOURCE_DIR}/include/quor/steeringmpi.h)
  add_library(quor::SteeringMPI ALIAS QUOR_SteeringMPI)
  target_link_libraries(QUOR_SteeringMPI
    PUBLIC quor::SteeringAPI MPI::MPI_CXX
    PRIVATE quor_warnings)
  set_target_properties(QUOR_SteeringMPI PROPERTIES
    VERSION ${PROJECT_VERSION}
    SOVERSION ${PROJECT_VERSION_MAJOR}
    EXPORT_NAME SteeringMPI
    # Installed, it finds libQUOR_SteeringAPI next to it, in any prefix (a
    # program's run path does not reach the libraries its libraries need).
    INSTALL_RPATH "$ORIGIN")
  # Installed with the programs (quor-simd links it), so that the core
  # library's package does not pull in Open MPI; so is its part of the CMake
  # package, which find_package(QUORSteering ... COMPONENTS MPI) loads.
  install(TARGETS QUOR_SteeringMPI EXPORT QUORSteeringMPITargets
    LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT tools)
  install(EXPORT QUORSteeringMPITargets NAMESPACE quor::
    DESTINATION ${QUOR_CMAKE_INSTALL_DIR} COMPONENT tools)
  message(STATUS "MPI found: quor::SteeringMPI and the MPI mode of quor-simd are built")
else()
  message(STATUS "MPI not found: no quor::SteeringMPI (install libopenmpi-dev openmpi-bin)")
endif()
