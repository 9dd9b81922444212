# SPDX-License-Identifier: MIT
# wxWidgets as an imported target, one per set of components: the library
# uses base and net (quor::wx); the simulation engine's PNML loader adds xml.
# The project's build and the installed package (QUORSteeringConfig.cmake)
# both make quor::wx with this function, so a program that links
# quor::SteeringAPI gets the same wxWidgets flags either way.
#
#   quor_wx_target(TARGET [REQUIRED] [QUIET] COMPONENT...)
#
# Makes TARGET (an INTERFACE IMPORTED target carrying wx-config's include
# directories, definitions, compile flags and libraries) unless it exists,
# and sets TARGET_FOUND in the caller's scope. REQUIRED and QUIET are
# find_package's.
function(quor_wx_target p_target)
  set(l_components ${ARGN})
  set(l_mode "")
  foreach(l_word REQUIRED QUIET)
    if(l_word IN_LIST l_components)
      list(REMOVE_ITEM l_components ${l_word})
      list(APPEND l_mode ${l_word})
    endif()
  endforeach()
  if(TARGET ${p_target})
    set(${p_target}_FOUND TRUE PARENT_SCOPE)
    return()
  endif()
  find_package(wxWidgets 3.2 ${l_mode} COMPONENTS ${l_components})
  if(NOT wxWidgets_FOUND)
    set(${p_target}_FOUND FALSE PARENT_SCOPE)
    return()
  endif()
  # wx-config's flags as a list without empty items.
  set(l_libraries ${wxWidgets_LIBRARIES})
  list(REMOVE_ITEM l_libraries "")
  # GLOBAL: targets in other folders link libraries that carry it.
  add_library(${p_target} INTERFACE IMPORTED GLOBAL)
  set_target_properties(${p_target} PROPERTIES
    INTERFACE_INCLUDE_DIRECTORIES "${wxWidgets_INCLUDE_DIRS}"
    INTERFACE_COMPILE_DEFINITIONS "${wxWidgets_DEFINITIONS}"
    INTERFACE_COMPILE_OPTIONS "${wxWidgets_CXX_FLAGS}"
    INTERFACE_LINK_LIBRARIES "${l_libraries}")
  set(${p_target}_FOUND TRUE PARENT_SCOPE)
endfunction()
