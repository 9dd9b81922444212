# SPDX-License-Identifier: MIT
# Every target that compiles code of this project links quor_warnings, the
# one home of the compiler warnings. quor_check_warnings(DIR) looks at the
# targets of DIR and of the folders below it and stops the configuration
# with the names of those that do not.
function(quor_check_warnings p_dir)
  set(l_missing "")
  set(l_dirs ${p_dir})
  while(l_dirs)
    list(POP_FRONT l_dirs l_dir)
    get_property(l_subdirs DIRECTORY ${l_dir} PROPERTY SUBDIRECTORIES)
    list(APPEND l_dirs ${l_subdirs})
    get_property(l_targets DIRECTORY ${l_dir} PROPERTY BUILDSYSTEM_TARGETS)
    foreach(l_target IN LISTS l_targets)
      get_target_property(l_type ${l_target} TYPE)
      if(NOT l_type MATCHES "^(EXECUTABLE|STATIC_LIBRARY|SHARED_LIBRARY|MODULE_LIBRARY|OBJECT_LIBRARY)$")
        continue()
      endif()
      get_target_property(l_libraries ${l_target} LINK_LIBRARIES)
      if(NOT "quor_warnings" IN_LIST l_libraries)
        list(APPEND l_missing ${l_target})
      endif()
    endforeach()
  endwhile()
  if(l_missing)
    string(REPLACE ";" ", " l_missing "${l_missing}")
    message(FATAL_ERROR "These targets do not link quor_warnings, the project's compiler "
                        "warnings: ${l_missing}. Add target_link_libraries(TARGET PRIVATE "
                        "quor_warnings) (quor_add_program and quor_add_example do it).")
  endif()
endfunction()
