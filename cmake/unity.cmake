# The presets of CI compile the files of one folder together (CMAKE_UNITY_BUILD), so that headers and templates are
# compiled once: the program in all of them, the library under sanitizers. A batch is a whole folder, whatever the
# number of its files; so a name in an anonymous namespace must be the only one in its folder, and a new file changes
# nothing for other folders.
function(tessel_unity_by_folder target)
  set_target_properties(${target} PROPERTIES UNITY_BUILD_MODE GROUP)
  get_target_property(files ${target} SOURCES)
  foreach(file IN LISTS files)
    cmake_path(GET file PARENT_PATH folder)
    cmake_path(RELATIVE_PATH folder BASE_DIRECTORY ${CMAKE_CURRENT_SOURCE_DIR})
    string(MAKE_C_IDENTIFIER ${folder} group)
    # Compiled once per instruction set: these files include themselves, and so stand alone.
    if(NOT file MATCHES "_simd\\.cpp$")
      set_source_files_properties(${file} PROPERTIES UNITY_GROUP ${group})
    endif()
  endforeach()
endfunction()
